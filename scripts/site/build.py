#!/usr/bin/env python3
"""Builds the site of the documentation: the pages of docs/, and the reference from the sources.

    build.py --build build --site build/site

needs the command and the Python module in the build tree. Warnings are errors, and so is anything
that a page would fetch from elsewhere, or that leads nowhere.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from urllib.parse import unquote

sys.dont_write_bytecode = True

import commands  # noqa: E402
import docstrings  # noqa: E402
import headers  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]

FIRST_HEADERS = (
    "factor.h",
    "options.h",
    "report.h",
    "sparse_matrix.h",
    "dense_matrix.h",
    "matrix_file.h",
    "adjust.h",
    "adjustment_report.h",
    "pose_graph.h",
    "error.h",
)
WITHOUT_WORDS = ("zeph.h", "api.h", "zeph_c.h")

SOLVER_HEADERS = (
    "assembly/protosparse.h",
    "solver.h",
    "partial_inverse_lu.h",
    "partial_inverse_chol.h",
    "selected_inverse.h",
    "partial_inverse_sqrt.h",
    "ldl_minimal_set.h",
    "assembly/sparsexmlmatrix.h",
    "library.h",
)


def write_reference(build, folder, work):
    folder.mkdir()
    cpp = [h for h in headers.public_headers(ROOT / "zeph", FIRST_HEADERS)]
    cpp = [h for h in cpp if h.name not in WITHOUT_WORDS]
    pages = {
        "cpp": headers.Reference(ROOT, cpp, work / "cpp", "ZEPH_API").page(
            "C++: the namespace zeph",
            "`#include <zeph/zeph.h>` has all of it; link with `zeph::zeph`. Everything is in the "
            "namespace `zeph`. Indices are zero-based; dense matrices are stored column after column.",
        ),
        "c": headers.Reference(ROOT, [Path("zeph/zeph_c.h")], work / "c", "ZEPH_API").page(
            "C: zeph_c.h", "The same library for C and for other languages."
        ),
        "distributed": headers.Reference(
            ROOT, [Path("distributed/distributed_factor.h")], work / "distributed", "ZEPH_API"
        ).page(
            "C++ on several processes",
            "`#include <distributed/distributed_factor.h>`, and link with `zeph::distributed`.",
        ),
        "solver": headers.Reference(
            ROOT, [Path("solver") / h for h in SOLVER_HEADERS], work / "solver", "ZEPH_EXPORT"
        ).page(
            "libzeph_solver: the namespace zeph_solver",
            "`#include <solver/zeph_solver.h>` has all of it; link with "
            "`zeph_solver::zeph_solver`. The dense records are those of `types/zttypes.h`.",
        ),
        "command": commands.page(build / "cli" / "zeph", ROOT / "docs" / "command.md"),
    }
    sys.path.insert(0, str(build / "python"))
    import zeph

    pages["python"] = docstrings.page(zeph, extra=["plot"])
    for name, text in pages.items():
        (folder / f"{name}.md").write_text(text, encoding="utf-8")


def fetched_from_elsewhere(site):
    """What the pages and style sheets would load over the network when they are opened."""
    loads = re.compile(
        r"""<(?:script|img|iframe|source|embed|object)\b[^>]*?\b(?:src|data)=["']?(?:https?:)?//[^"'> ]+"""
        r"""|<link\b(?![^>]*rel=["']?(?:canonical|prev|next))[^>]*href=["']?(?:https?:)?//[^"'> ]+"""
        r"""|(?:url\(|@import\s)["']?(?:https?:)?//[^"') ]+"""
    )
    for file in sorted(site.rglob("*")):
        if file.suffix in (".html", ".css", ".svg"):
            for match in loads.finditer(file.read_text(encoding="utf-8")):
                yield f"{file.relative_to(site)}: {match[0]}"


def leads_nowhere(site):
    """Links and pictures of pages to files and places of the site that are not there."""
    pages = {p.resolve(): p.read_text(encoding="utf-8") for p in site.rglob("*.html")}
    places = {p: set(re.findall(r"""\b(?:id|name)=["']?([^"'> ]+)""", t)) for p, t in pages.items()}
    for page, text in sorted(pages.items()):
        found = set(re.findall(r"""<(?:a|img|link|script)\b[^>]*?\b(?:href|src)=["']([^"']+)""", text))
        for target in sorted(t for t in found if not re.match(r"[a-z]+:|/", t)):
            path, _, place = unquote(target).partition("#")
            file = (page.parent / path.split("?")[0]).resolve() if path else page
            file = file / "index.html" if file.is_dir() else file
            there = file.exists() and (not place or place in places.get(file, ()))
            if not there and page.name != "404.html":
                yield f"{page.relative_to(site.resolve())}: {target}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, default=ROOT / "build")
    parser.add_argument("--site", type=Path, default=ROOT / "build" / "site")
    o = parser.parse_args()
    work = o.build.resolve() / "site-source"
    shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(ROOT / "docs", work / "pages")
    write_reference(o.build.resolve(), work / "pages" / "reference", work)
    settings = {"ZEPH_SITE_PAGES": str(work / "pages"), "ZEPH_SITE": str(o.site.resolve())}
    command = [sys.executable, "-m", "mkdocs", "build", "--strict"]
    command += ["--config-file", str(ROOT / "mkdocs.yml")]
    out = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    built = subprocess.run(command, env={**os.environ, **settings}, **out)
    if built.returncode:
        print(built.stdout)
        return built.returncode
    wrong = [f"{where}, from elsewhere" for where in fetched_from_elsewhere(o.site)]
    wrong += [f"{where} leads nowhere" for where in leads_nowhere(o.site)]
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
