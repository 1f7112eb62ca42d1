"""Reference pages from public headers: Doxygen reads them, this writes Markdown from its XML."""

import re
import subprocess
import textwrap
from html import escape
from pathlib import Path
from xml.etree import ElementTree

SETTINGS = """
INPUT = {headers}
OUTPUT_DIRECTORY = {folder}
STRIP_FROM_PATH = {root}
GENERATE_HTML = NO
GENERATE_LATEX = NO
GENERATE_XML = YES
XML_PROGRAMLISTING = NO
QUIET = YES
MACRO_EXPANSION = YES
EXPAND_ONLY_PREDEF = YES
PREDEFINED = {macro}=
WARN_IF_UNDOCUMENTED = {strict}
WARN_AS_ERROR = FAIL_ON_WARNINGS
"""

INLINE = {"computeroutput": "code", "emphasis": "em", "bold": "strong", "superscript": "sup"}
SIGNS = {"ndash": "–", "mdash": "—", "linebreak": "<br>", "sp": " "}
WIDTH = 84


class Reference:
    """The XML of some headers, and the anchors of what they declare on the page."""

    def __init__(self, root, headers, folder, macro, strict=True):
        self.headers = headers
        settings = SETTINGS.format(
            headers=" ".join(f'"{root / h}"' for h in headers),
            folder=folder,
            root=root,
            macro=macro,
            strict="YES" if strict else "NO",
        )
        folder.mkdir(parents=True, exist_ok=True)
        if subprocess.run(["doxygen", "-"], input=settings, text=True).returncode:
            raise SystemExit("the headers are not documented as they should be")
        self.compounds = {}
        self.anchors = {}
        for file in (folder / "xml").glob("*.xml"):
            for compound in ElementTree.parse(file).getroot().iter("compounddef"):
                self.compounds[compound.get("id")] = compound
        for key, compound in self.compounds.items():
            if compound.get("kind") in ("class", "struct"):
                name = last_name(compound.findtext("compoundname"))
                self.anchors[key] = slug(name)
                for member in compound.iter("memberdef"):
                    if member.get("kind") == "function":
                        anchor = f"{slug(name)}-{slug(member.findtext('name'))}"
                        self.anchors[member.get("id")] = anchor
                    else:
                        self.anchors[member.get("id")] = slug(name)
            elif compound.get("kind") in ("namespace", "file"):
                for member in compound.iter("memberdef"):
                    self.anchors[member.get("id")] = slug(member.findtext("name"))

    def page(self, title, introduction):
        lines = [f"# {title}", "", introduction, ""]
        for header in self.headers:
            if body := self.header(str(header)):
                lines += [f"## {header} {{ #{slug(str(header))} }}", "", *body]
        return "\n".join(lines) + "\n"

    def header(self, header):
        lines, declared = [], {}
        for compound in self.compounds.values():
            if compound.get("kind") == "file" and compound.find("location").get("file") == header:
                lines += self.text(compound)
            if compound.get("kind") in ("class", "struct"):
                if declared_in(compound, header):
                    declared[compound.get("id")] = compound
                continue
            for member in compound.iter("memberdef"):
                if declared_in(member, header):
                    declared[member.get("id")] = member  # namespaces and files have the same ones
        previous = ""
        for element in sorted(filter(described, declared.values()), key=line_of):
            if element.tag == "compounddef":
                lines += self.of_class(element)
            else:
                lines += self.member(element, 3, previous)
            previous = element.findtext("name")
        return lines

    def of_class(self, compound):
        name = last_name(compound.findtext("compoundname"))
        lines = [f"### {name} {{ #{slug(name)} }}", "", *self.text(compound)]
        public = [
            member
            for section in compound.iter("sectiondef")
            if section.get("kind").startswith("public")
            for member in section.iter("memberdef")
        ]
        members = sorted(filter(described, public), key=line_of)
        fields = [m for m in members if m.get("kind") == "variable"]
        if fields:
            rows = [(declared_field(m), self.inline(m)) for m in fields]
            lines += [table(("member", "what it is"), rows), ""]
        previous = ""
        for member in members:
            if member not in fields:
                lines += self.member(member, 4, previous, slug(name) + "-")
                previous = member.findtext("name")
        return lines

    def member(self, member, level, previous, prefix=""):
        lines = []
        name = member.findtext("name")
        if name != previous:
            lines += [f"{'#' * level} {name} {{ #{prefix}{slug(name)} }}", ""]
        lines += ["```cpp", declaration(member), "```", "", *self.text(member)]
        if member.get("kind") == "enum":
            values = [v for v in member.iter("enumvalue") if described(v)]
            rows = [(escape(v.findtext("name")), self.inline(v)) for v in values]
            lines += [table(("value", "what it means"), rows), ""] if rows else []
        return lines

    def text(self, element):
        """Brief and detailed description as blocks of HTML and Markdown."""
        lines = []
        for part in ("briefdescription", "detaileddescription"):
            for para in element.find(part) if element.find(part) is not None else ():
                lines += self.block(para)
        return lines

    def inline(self, element):
        return " ".join(line for line in self.text(element) if line)[3:-4].replace("</p> <p>", " ")

    def block(self, para):
        """A paragraph; code in it stands between pieces of its own."""
        lines, piece = [], escape(para.text or "")
        for child in para:
            if child.tag in ("programlisting", "verbatim", "itemizedlist", "simplesect"):
                lines += [f"<p>{piece.strip()}</p>", ""] if piece.strip() else []
                piece = ""
                lines += self.special(child)
            else:
                piece += self.html(child)
            piece += escape(child.tail or "")
        return lines + ([f"<p>{piece.strip()}</p>", ""] if piece.strip() else [])

    def special(self, element):
        if element.tag == "programlisting":
            code = "\n".join(
                "".join(self.plain(h) for h in line) for line in element.iter("codeline")
            )
            return ["```cpp", code.rstrip(), "```", ""]
        if element.tag == "verbatim":
            return ["```cpp", textwrap.dedent(element.text).strip("\n"), "```", ""]
        if element.tag == "itemizedlist":
            items = [
                "".join(" ".join(self.block(p)) for p in item) for item in element.iter("listitem")
            ]
            return ["<ul>" + "".join(f"<li>{item}</li>" for item in items) + "</ul>", ""]
        return [line for para in element.iter("para") for line in self.block(para)]

    def html(self, element):
        inner = escape(element.text or "") + "".join(
            self.html(child) + escape(child.tail or "") for child in element
        )
        if element.tag == "ref":
            anchor = self.anchors.get(element.get("refid"))
            return f'<a href="#{anchor}">{inner}</a>' if anchor else inner
        if element.tag in INLINE:
            return f"<{INLINE[element.tag]}>{inner}</{INLINE[element.tag]}>"
        return SIGNS.get(element.tag, inner)

    def plain(self, element):
        text = element.text or ""
        for child in element:
            text += (" " if child.tag == "sp" else self.plain(child)) + (child.tail or "")
        return text


def declaration(member):
    """What a member was declared as, in lines that fit."""
    kind, name = member.get("kind"), member.findtext("name")
    if kind == "enum":
        values = ", ".join(v.findtext("name") for v in member.iter("enumvalue"))
        return f"enum {'class ' if member.get('strong') == 'yes' else ''}{name} {{ {values} }};"
    if kind == "define":
        return f"#define {name}"
    text = member.findtext("definition")
    if kind == "function":
        text = re.sub(r"\S+$", name, text)  # without the names of what it is in
    text += member.findtext("argsstring") or ""
    text = re.sub(r"\b(?:zeph|zeph_solver|korin)::", "", text)
    text = re.sub(r"\s*([*&]+)\s*(?=\w)", r"\1 ", text)
    text = re.sub(r"<\s+", "<", re.sub(r"\s+>", ">", text))
    text = re.sub(r"=\s*(default|0)$", r" = \1", re.sub(r"(?<=\w)=(?=[\w{])", " = ", text))
    if kind == "variable" and member.findtext("initializer"):
        text += " " + member.findtext("initializer")
    if member.get("explicit") == "yes":
        text = "explicit " + text
    lines = [""]
    for piece in re.split(r"(?<=,) ", text + ";"):
        if lines[-1].strip() and len(lines[-1]) + len(piece) > WIDTH:
            lines.append("   ")
        lines[-1] += (" " if lines[-1] else "") + piece
    return "\n".join(lines)


def declared_field(member):
    kind = "".join(member.find("type").itertext()) + (member.findtext("argsstring") or "")
    kind = escape(re.sub(r"<\s+", "<", re.sub(r"\s+>", ">", kind)))
    value = member.findtext("initializer") or ""
    start = f" {escape(value)}" if value not in ("", "{}") else ""
    return f"{kind} <strong>{escape(member.findtext('name'))}</strong>{start}"


def table(heads, rows):
    """Code in the first column, text in the second."""
    head = "".join(f"<th>{h}</th>" for h in heads)
    body = "\n".join(f"<tr><td><code>{a}</code></td><td>{b}</td></tr>" for a, b in rows)
    return f"<table><thead><tr>{head}</tr></thead><tbody>\n{body}\n</tbody></table>"


def described(element):
    return any(
        "".join(element.find(part).itertext()).strip()
        for part in ("briefdescription", "detaileddescription")
    )


def declared_in(element, header):
    location = element.find("location")
    return location is not None and location.get("file") == header


def line_of(element):
    return int(element.find("location").get("line"))


def last_name(text):
    return text.split("::")[-1]


def slug(text):
    return re.sub(r"[^a-z0-9]+", "-", text.lower()).strip("-") or "operator"


def public_headers(folder, first):
    """Those of a folder, some of them in an order that suits readers, before all others."""
    names = sorted(h.name for h in folder.glob("*.h"))
    chosen = [n for n in first if n in names] + [n for n in names if n not in first]
    return [Path(folder.name) / n for n in chosen]
