"""Lets CMake build the module and put it, with the library that it needs, into the wheel."""

import os
import pathlib
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

root = pathlib.Path(__file__).resolve().parent
version = re.search(r"project\(\w+ VERSION ([\d.]+)", (root / "CMakeLists.txt").read_text()).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        target = pathlib.Path(self.get_ext_fullpath(extension.name)).resolve().parent.parent
        build = pathlib.Path(self.build_temp).resolve()
        settings = {
            "CMAKE_BUILD_TYPE": "Release",
            "CMAKE_INSTALL_LIBDIR": "movra_sr",  # beside the module
            "MOVRA_PYTHON_DIR": ".",
            "MOVRA_BUILD_PYTHON": "ON",
            "MOVRA_BUILD_TOOL": "ON",
            "MOVRA_BUILD_TESTS": "OFF",
            "MOVRA_BUILD_BENCHMARKS": "OFF",
            "MOVRA_QUICK_BUILD": "ON",
            "Python_EXECUTABLE": sys.executable,
        }
        definitions = [f"-D{name}={value}" for name, value in settings.items()]
        subprocess.run(["cmake", "-G", "Ninja", "-S", root, "-B", build, *definitions], check=True)
        jobs = str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", build, "--target", "movra_sr_python", "--parallel", jobs], check=True)
        for component in ("runtime", "python"):
            install = ["cmake", "--install", build, "--prefix", target, "--component", component, "--strip"]
            subprocess.run(install, check=True)


setup(
    version=version,
    packages=[],
    ext_modules=[Extension("movra_sr._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
