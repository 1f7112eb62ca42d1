"""Builds the extension of the Python module with CMake; `pip install . --no-build-isolation`."""

import pathlib
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r"^project\(.* VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]


class BuildWithCMake(build_ext):
    def build_extension(self, ext):
        # Where the package is put together; the install component fills it with all that it needs.
        package = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve().parent
        build = pathlib.Path(self.build_temp).resolve()
        options = ["CMAKE_BUILD_TYPE=Release", "ZEPH_BUILD_TESTS=OFF", "ZEPH_BUILD_TOOLS=OFF",
                   "ZEPH_REQUIRE_PYTHON=ON", "ZEPH_PYTHON_DIR=.",
                   f"Python_EXECUTABLE={sys.executable}"]
        subprocess.check_call(["cmake", "-S", ROOT, "-B", build, "-G", "Ninja",
                               *(f"-D{option}" for option in options)])
        subprocess.check_call(["cmake", "--build", build, "--target", "zeph_python"])
        subprocess.check_call(["cmake", "--install", build, "--component", "python",
                               "--prefix", package.parent])


setup(
    version=VERSION,
    packages=["zeph"],
    package_dir={"zeph": "python/zeph"},
    package_data={"zeph": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("zeph._core", sources=[])],
    cmdclass={"build_ext": BuildWithCMake},
    zip_safe=False,
)
