"""`pip install .` builds the Python package by CMake, with the driver and the virtual camera inside."""

import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
TARGETS = ["_zrncamera", "zrncamera", "zrnsim"]


class CMakeBuild(build_ext):
    def run(self) -> None:
        tree = Path(self.build_temp).resolve()
        options = ["CMAKE_BUILD_TYPE=Release", "BUILD_TESTING=OFF", "ZRN_PYTHON_WHEEL=ON"]
        options.append(f"Python_EXECUTABLE={sys.executable}")
        self.cmake("-S", ROOT, "-B", tree, "-G", "Ninja", *(f"-D{option}" for option in options))
        self.cmake("--build", tree, "--target", *TARGETS)
        self.cmake("--install", tree, "--component", "python", "--prefix", Path(self.build_lib).resolve())

    @staticmethod
    def cmake(*arguments: object) -> None:
        subprocess.run(["cmake", *map(str, arguments)], check=True)


setup(
    version=re.search(r"project\(zrncamera VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1],
    packages=[],
    ext_modules=[Extension("zrncamera._zrncamera", [])],
    cmdclass={"build_ext": CMakeBuild},
)
