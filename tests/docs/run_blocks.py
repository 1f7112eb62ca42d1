#!/usr/bin/env python3
"""Runs the fenced code blocks of Markdown pages, so that what readers copy works.

    run_blocks.py --path build/cli --python-path build/python --include . --library build/zeph/libzeph.so
                  --compiler c++ README.md docs      (a folder stands for the pages in it)

The blocks of a page run in their order in a folder of the page's own, which holds A.mtx (a positive
definite matrix of order 100), b.mtx (a right-hand side for it) and a link to docs to begin with. By
language:

    python          run in one interpreter a page; with >>> as a doctest
    cpp, c          a whole program, the last thing of which is its main; compiled without warnings
    console         "$ command" lines and what they print
    sh              commands that have to succeed
    output          what the program above prints
    text            shown as it is; with title="FILE" that file is made

In output, "..." stands for anything, and after <!-- numbers vary --> any number for any other. A
block after <!-- not run: reason --> is left out. Every other language, and none, is an error.
"""

import argparse
import contextlib
import doctest
import io
import multiprocessing
import os
import re
import subprocess
import sys
import tempfile
import traceback
from dataclasses import dataclass
from multiprocessing.pool import ThreadPool
from pathlib import Path

LANGUAGES = ("python", "cpp", "c", "console", "sh", "output", "text")
NUMBER = re.compile(r"[+-]?\d+(?:,\d{3})*(?:\.\d+)?(?:e[+-]?\d+)?")
WARNINGS = ("-Wall", "-Wextra", "-Werror")
ROOT = Path(__file__).resolve().parents[2]
SIDE = 10  # of the grid of A.mtx


@dataclass
class Block:
    page: Path
    line: int  # of the first line inside, counted from one
    language: str
    title: str
    text: str
    left_out: str
    numbers_vary: bool
    program: tuple = ()

    @property
    def place(self):
        return f"{self.page}:{self.line}"


def markdown(path):
    return sorted(path.rglob("*.md")) if path.is_dir() else [path]


def blocks_of(page):
    found, note, fence = [], "", None
    lines = page.read_text(encoding="utf-8").split("\n")
    for number, line in enumerate(lines, start=1):
        mark = re.match(r" {0,3}(```+)\s*(\S*)(.*)$", line)
        if fence is None and mark:
            fence, start = mark, number
        elif fence is None:
            note = line if line.strip() else note
        elif mark and not mark[2] and len(mark[1]) >= len(fence[1]):
            title = re.search(r'title="([^"]+)"', fence[3])
            left_out = re.search(r"<!-- not run: (.+) -->", note)
            found.append(
                Block(
                    page=page,
                    line=start + 1,
                    language=fence[2],
                    title=title[1] if title else "",
                    text="\n".join(lines[start : number - 1]) + "\n",
                    left_out=left_out[1] if left_out else "",
                    numbers_vary="<!-- numbers vary -->" in note,
                )
            )
            fence, note = None, ""
    if fence is not None:
        raise SystemExit(f"{page}:{start}: this block is never closed")
    return found


def require_same(block, expected, got):
    def plain(text):
        text = NUMBER.sub("0", text) if block.numbers_vary else text
        return "\n".join(line.rstrip() for line in text.strip().split("\n"))

    pattern = ".*".join(re.escape(part) for part in plain(expected).split("..."))
    if not re.fullmatch(pattern, plain(got), re.DOTALL):
        raise AssertionError(f"the page shows\n{expected.rstrip()}\nand the run printed\n{got}")


def write_programs(blocks, folder):
    """The sources of all C and C++ blocks, and in each block how to run it; C++ is one source, whose
    blocks are functions that the first argument chooses from."""
    sources, includes, functions, cases = [], [], [], []
    for number, block in enumerate(blocks):
        at = f'#line {block.line} "{block.page}"\n'
        if block.language == "c":
            source = folder / f"block{number}.c"
            source.write_text(at + block.text)
            sources.append(source)
            block.program = (str(source.with_suffix("")),)
        elif block.language == "cpp":
            lines = block.text.rstrip().split("\n")
            if lines[-1] != "}" or not any(line.startswith("int main(") for line in lines):
                raise SystemExit(f"{block.place}: a block of C++ is a program that ends with its main")
            includes += [line for line in lines if line.startswith("#")]
            body = "\n".join("" if line.startswith("#") else line for line in lines[:-1])
            functions.append(f"namespace block{number} {{\n{at}{body}\nreturn 0;\n}}\n}}\n")
            cases.append(f"    case {number}: return block{number}::main();\n")
            block.program = (str(folder / "blocks"), str(number))
    if functions:
        source = folder / "blocks.cpp"
        source.write_text(
            "\n".join(dict.fromkeys(["#include <cstdlib>", *includes]))
            + "\n"
            + "".join(functions)
            + "int main(int, char** arguments) {\n  switch (std::atoi(arguments[1])) {\n"
            + "".join(cases)
            + "    default: return 99;\n  }\n}\n"
        )
        sources.append(source)
    return sources


def compile_program(source, o):
    language = ("-x", "c", "-std=c11") if source.suffix == ".c" else ("-std=c++17",)
    libraries = [*o.library, *(f"-Wl,-rpath,{Path(p).parent}" for p in o.library)]
    command = [o.compiler, *language, *WARNINGS, *(f"-I{i}" for i in o.include), str(source)]
    command += ["-x", "none", *libraries, "-lm", "-o", str(source.with_suffix(""))]
    made = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return made.stdout if made.returncode else ""


class Page:
    """Runs the blocks of one page, in a process of its own whose working folder is the page's."""

    def __init__(self):
        self.names = {"__name__": "__main__"}
        self.printed = None

    def run(self, block):
        printed, self.printed = self.printed, None
        if block.language == "output":
            if printed is None:
                raise AssertionError("no program stands before this output")
            require_same(block, block.text, printed)
        elif block.language == "text":
            if block.title:
                Path(block.title).write_text(block.text)
        elif block.language == "console":
            self.console(block)
        elif block.language == "python":
            self.python(block)
        else:
            command = block.program or ("bash", "-e", "-c", block.text)
            self.printed = self.process(command)

    def process(self, command, accepted=(0,)):
        done = subprocess.run(
            command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60
        )
        if done.returncode not in accepted:
            raise AssertionError(f"exit status {done.returncode}\n{done.stdout}")
        return done.stdout

    def console(self, block):
        if not block.text.startswith("$ "):
            raise AssertionError('a console block begins with "$ " and a command')
        for part in re.split(r"^\$ ", block.text, flags=re.MULTILINE)[1:]:
            lines = part.split("\n")
            last = 0
            while lines[last].endswith("\\"):
                last += 1
            # A command that fails on the page fails to be shown: its message is what the page shows.
            got = self.process(("bash", "-c", "\n".join(lines[: last + 1])), accepted=range(256))
            require_same(block, "\n".join(lines[last + 1 :]), got)

    def python(self, block):
        if ">>>" not in block.text:
            with contextlib.redirect_stdout(io.StringIO()) as out:
                code = "\n" * (block.line - 1) + block.text
                exec(compile(code, str(block.page), "exec"), self.names)
            self.printed = out.getvalue()
            return
        test = doctest.DocTestParser().get_doctest(
            block.text, self.names, block.place, str(block.page), block.line - 1
        )
        runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS, verbose=False)
        said = []
        runner.run(test, out=said.append, clear_globs=False)
        self.names.update(test.globs)
        if runner.failures:
            raise AssertionError("".join(said))


def write_given_files():
    Path("docs").symlink_to(ROOT / "docs")
    n = SIDE * SIDE
    entries = [(i, i, 5.0) for i in range(n)]
    entries += [(i + 1, i, -1.0) for i in range(n - 1) if (i + 1) % SIDE]
    entries += [(i + SIDE, i, -1.0) for i in range(n - SIDE)]
    with open("A.mtx", "w") as file:
        file.write(f"%%MatrixMarket matrix coordinate real symmetric\n{n} {n} {len(entries)}\n")
        file.writelines(f"{i + 1} {j + 1} {v}\n" for i, j, v in entries)
    with open("b.mtx", "w") as file:
        file.write(f"%%MatrixMarket matrix array real general\n{n} 1\n" + "1\n" * n)


def run_page(blocks):
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        write_given_files()
        page = Page()
        for block in blocks:
            try:
                page.run(block)
            except BaseException as error:  # what stops a block must not stop the others
                known = isinstance(error, AssertionError)
                failures.append(f"{block.place}: {error if known else traceback.format_exc()}")
        os.chdir("/")
    return failures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("pages", nargs="+", type=Path)
    parser.add_argument("--compiler", default="c++")
    parser.add_argument("--include", action="append", default=[])
    parser.add_argument("--library", action="append", default=[])
    parser.add_argument("--path", action="append", default=[])
    parser.add_argument("--python-path", default="")
    o = parser.parse_args()

    pages = [blocks_of(page) for path in o.pages for page in markdown(path)]
    every = [b for page in pages for b in page]
    unknown = [b for b in every if b.language not in LANGUAGES and not b.left_out]
    for b in unknown:
        print(f"{b.place}: a block of {b.language or 'no language'} that is not marked as not run")
    left_out = [b for b in every if b.left_out]
    for b in left_out:
        print(f"{b.place}: not run: {b.left_out}")
    pages = [[b for b in page if not b.left_out and b not in unknown] for page in pages]

    os.environ["PATH"] = os.pathsep.join([*o.path, os.environ["PATH"]])
    os.environ.update(MPLBACKEND="Agg", PYTHONDONTWRITEBYTECODE="1", PYTHONPATH=o.python_path)
    sys.dont_write_bytecode = True
    sys.path.insert(0, o.python_path)
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        sources = write_programs([b for page in pages for b in page], Path(folder))
        with ThreadPool(2) as pool:
            failures += filter(None, pool.map(lambda s: compile_program(s, o), sources))
        with multiprocessing.get_context("fork").Pool(2, maxtasksperchild=1) as pool:
            if not failures:
                failures += sum(pool.map(run_page, pages, chunksize=1), [])
    print("\n".join(failures))
    ran = sum(b.language != "text" for page in pages for b in page)
    print(f"{ran} blocks run, {len(left_out)} not, {len(failures) + len(unknown)} failed")
    return 1 if failures or unknown or not ran else 0


if __name__ == "__main__":
    sys.exit(main())
