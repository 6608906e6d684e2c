"""Builds the extension module with CMake. A wheel also contains libsamplerate.

The environment variable CMAKE_ARGS holds more options for CMake.
"""

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parents[2]


class Build(build_ext):
    def build_extension(self, extension: Extension) -> None:
        build = Path(self.build_temp).resolve()
        settings = ["-DPCM_PYTHON=ON", "-DPCM_LEVELS=OFF", "-DPCM_DOCS=OFF", "-DPCM_PYTHON_WHEEL=ON",
                    f"-DPython_EXECUTABLE={sys.executable}", "-DCMAKE_BUILD_TYPE=Release",
                    *shlex.split(os.environ.get("CMAKE_ARGS", ""))]
        subprocess.run(["cmake", "-S", ROOT, "-B", build, *settings], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "python_module", "-j2"], check=True)
        subprocess.run(["cmake", "--install", build, "--component", "python_wheel", "--prefix",
                        Path(self.get_ext_fullpath(extension.name)).resolve().parent], check=True)


setup(
    version=re.search(r"project\(pcm VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1],
    ext_modules=[Extension("pcm._pcm", [])],
    cmdclass={"build_ext": Build},
    zip_safe=False,
)
