"""The source distribution holds all that `pip install` builds from."""

import pathlib
import subprocess
import sys
import tarfile

import zeph

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
        archive.extractall(tmp_path / "unpacked")
    (unpacked,) = (tmp_path / "unpacked").iterdir()
    assert unpacked.name.endswith(f"-{zeph.__version__}")
    floors = ("types", "kernels", "sparse", "math", "solver", "zeph", "python/zeph")
    files = [f.relative_to(ROOT) for floor in floors for f in (ROOT / floor).rglob("*.*")]
    missing = [f for f in files if "__pycache__" not in f.parts and not (unpacked / f).exists()]
    assert len(files) > 200 and not missing
    options = ("ZEPH_BUILD_TESTS=OFF", "ZEPH_BUILD_TOOLS=OFF", "ZEPH_REQUIRE_PYTHON=ON")
    configure = ["cmake", "-G", "Ninja", "-S", ".", "-B", "made", *(f"-D{o}" for o in options)]
    subprocess.run(configure, cwd=unpacked, check=True, stdout=subprocess.DEVNULL)
