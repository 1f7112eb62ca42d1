"""The source distribution holds all that `pip install` builds from."""

import pathlib
import subprocess
import sys
import tarfile

ROOT = pathlib.Path(__file__).parents[2]


def test_source_distributions_are_whole(tmp_path):
    # What setuptools leaves behind stays out of the tree: it works on links to its entries.
    tree = tmp_path / "tree"
    tree.mkdir()
    for entry in ROOT.iterdir():
        if not entry.name.startswith((".", "build")) and entry.suffix != ".egg-info":
            (tree / entry.name).symlink_to(entry)
    sdist = ["sdist", "--formats=tar", "--dist-dir", str(tmp_path)]
    subprocess.run([sys.executable, "setup.py", "-q", *sdist], cwd=tree, check=True)
    with tarfile.open(next(tmp_path.glob("*.tar"))) as archive:
        held = {"/".join(name.split("/")[1:]) for name in archive.getnames()}
    floors = ("cmake", "types", "kernels", "sparse", "math", "solver", "zeph", "python/zeph")
    files = [f for floor in floors for f in (ROOT / floor).rglob("*") if f.is_file()]
    files += [ROOT / name for name in ("CMakeLists.txt", "LICENSE", "pyproject.toml", "python/CMakeLists.txt")]
    files += (ROOT / "python").glob("*.[ch]*")
    wanted = {str(f.relative_to(ROOT)) for f in files if "__pycache__" not in f.parts}
    assert len(wanted) > 200 and wanted <= held
