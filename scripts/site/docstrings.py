"""The reference page of the Python module, from its signatures and docstrings."""

import inspect
import re
import textwrap


def page(module, extra):
    """Everything public of the module, and of the modules in it whose names are in extra."""
    lines = [f"# Python: the module {module.__name__}", "", inspect.getdoc(module).split("\n")[0], ""]
    functions, classes, errors = [], [], []
    for name in module.__all__:
        thing = getattr(module, name)
        if inspect.isclass(thing):
            (errors if issubclass(thing, BaseException) else classes).append((name, thing))
        elif inspect.isfunction(thing):
            functions.append((name, thing))
    lines += ["## Functions", ""]
    for name, function in functions:
        lines += function_lines(f"zeph.{name}", function, "###")
    for name, cls in classes:
        lines += class_lines(name, cls)
    for name in extra:
        inner = getattr(module, name)
        lines += [f"## zeph.{name}", "", escaped(inspect.getdoc(inner) or ""), ""]
        for key, function in vars(inner).items():
            if inspect.isfunction(function) and key[0] != "_" and function.__module__ == inner.__name__:
                lines += function_lines(f"zeph.{name}.{key}", function, "###")
    lines += ["## Exceptions", ""]
    for name, error in errors:
        bases = ", ".join(base.__name__ for base in error.__bases__)
        lines += [f"### {name}", "", f"Below `{bases}`. {escaped(inspect.getdoc(error))}", ""]
    return "\n".join(lines) + "\n"


def class_lines(name, cls):
    lines = [f"## {name}", "", *docstring_lines(documented(name, cls))]
    if rows := attributes(cls):
        lines += ["| field | type | what it is |", "|---|---|---|"]
        lines += [f"| `{field}` | `{kind}` | {escaped(text)} |" for field, kind, text in rows] + [""]
    for key, member in vars(cls).items():
        if key[0] == "_":
            continue
        if isinstance(member, property):
            lines += [f"### {name}.{key}", "", *docstring_lines(documented(f"{name}.{key}", member))]
        elif inspect.isfunction(member):
            lines += function_lines(f"{name}.{key}", member, "###")
    return lines


def attributes(cls):
    """Fields of a class with the comments `#:` beside them."""
    pattern = r"^    (\w+): (.+?)(?: = .+?)?(?:  #: (.+))?$"
    return re.findall(pattern, inspect.getsource(cls), re.MULTILINE)


def function_lines(name, function, level):
    signature = inspect.signature(function)
    shown = [p for p in signature.parameters.values() if p.name != "self"]
    # Types stand below, in words; here they would hide what is asked for.
    plain = [p.replace(annotation=inspect.Parameter.empty) for p in shown]
    text = f"{name}{inspect.Signature(plain)}"
    if len(text) > 84:
        text = f"{name}(\n" + "".join(f"    {p},\n" for p in separated(plain)) + ")"
    lines = [f"{level} {name.split('.')[-1]}", "", "```python", text, "```", ""]
    return lines + docstring_lines(documented(name, function))


def documented(name, thing):
    text = inspect.getdoc(thing)
    if not text:
        raise SystemExit(f"{name} has no docstring")
    return text


def separated(parameters):
    star = False
    for p in parameters:
        star = star or p.kind is p.VAR_POSITIONAL
        if p.kind is p.KEYWORD_ONLY and not star:
            yield "*"
            star = True
        yield str(p)


def docstring_lines(text):
    """A docstring of NumPy's form as Markdown."""
    pieces = re.split(r"^(.+)\n-{3,}$", text, flags=re.MULTILINE)
    lines = prose(pieces[0])
    for heading, body in zip(pieces[1::2], pieces[2::2]):
        lines += [f"**{heading}**", ""]
        if heading in ("Examples", "Notes"):
            lines += prose(body)
        else:
            lines += definitions(body)
    return lines


def definitions(body):
    """Lines "name : type" with what is indented below them, as a list."""
    lines = []
    for entry in re.split(r"\n(?=\S)", body.strip("\n")):
        head, _, rest = entry.partition("\n")
        name, colon, kind = head.partition(" : ")
        shown = f"`{name}`" + (f" : `{kind}`" if colon else "")
        text = " ".join(textwrap.dedent(rest).split())
        lines.append(f"* {shown}" + (f"<br>{escaped(text)}" if text else ""))
    return lines + [""]


def prose(text):
    """Paragraphs, and between them examples, which begin with >>>."""
    lines = []
    for block in re.split(r"\n\s*\n", text.strip("\n")):
        if not block.strip():
            continue
        if block.lstrip().startswith((">>>", "...")):
            lines += ["```python", textwrap.dedent(block), "```", ""]
        else:
            lines += [escaped(block), ""]
    return lines


def escaped(text):
    """Text as it stands, for Markdown; what is between backticks stays."""
    parts = re.split(r"(`[^`]*`)", text or "")
    return "".join(p if p[:1] == "`" else re.sub(r"([*_<|])", r"\\\1", p) for p in parts)
