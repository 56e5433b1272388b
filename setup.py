"""Builds the Python package: CMake makes the library and the module that holds it.

CMAKE_ARGS in the environment adds options of CMake, CMAKE_BUILD_PARALLEL_LEVEL says how many compilers run at once.
With -DTX_PYTHON_LIBRARY=/path/to/libtx.a the library is not built, but taken from there.
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        target = Path(self.get_ext_fullpath(extension.name)).resolve()
        build = Path(self.build_temp).resolve()
        options = {
            "CMAKE_BUILD_TYPE": "Release", "BUILD_SHARED_LIBS": "OFF", "TX_BUILD_BOTH": "OFF", "TX_INSTALL": "OFF",
            "TX_BUILD_TESTS": "OFF", "TX_BUILD_EXAMPLES": "OFF", "TX_BUILD_PYTHON": "ON",
            "Python_EXECUTABLE": sys.executable, "TX_PYTHON_MODULE_DIR": str(target.parent),
            "CMAKE_POSITION_INDEPENDENT_CODE": "ON", "TX_DEVELOPER": "OFF", "TX_PYTHON_LIBRARY": "",
        }
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        given = shlex.split(os.environ.get("CMAKE_ARGS", ""))
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build), *generator,
                        *(f"-D{name}={value}" for name, value in options.items()), *given], check=True)
        jobs = [] if "CMAKE_BUILD_PARALLEL_LEVEL" in os.environ else ["--parallel", str(os.cpu_count() or 1)]
        subprocess.run(["cmake", "--build", str(build), "--target", "tx_python", *jobs], check=True)


version = re.search(r'#define TX_VERSION "([0-9.]+)"', (ROOT / "src/tx.h").read_text())[1]
setup(version=version, ext_modules=[Extension("tx._core", sources=[])], cmdclass={"build_ext": CMakeBuild})
