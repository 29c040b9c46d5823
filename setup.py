"""Builds libnalveo.so with CMake and packs it into the wheel: `pip install .`

The package is pure Python over that library, so that one wheel serves every Python and numpy on
its platform.
"""

import pathlib
import re
import shutil
import subprocess

from setuptools import setup
from setuptools.command.build_py import build_py
from setuptools.dist import Distribution
from wheel.bdist_wheel import bdist_wheel

SOURCE = pathlib.Path(__file__).resolve().parent
LIBRARY = "libnalveo.so.0"


def version():
    """The version of the library, which the header tells."""
    header = (SOURCE / "include/nalveo.h").read_text(encoding="utf-8")
    return re.search(r'#define NALVEO_VERSION "(.+)"', header)[1]


class BuildWithLibrary(build_py):
    """Puts the library beside the modules."""

    def run(self):
        super().run()
        if self.editable_mode:
            place = SOURCE / "python/nalveo"
        else:
            place = pathlib.Path(self.build_lib) / "nalveo"
        build = SOURCE / "build/wheel"
        commands = [
            ["cmake", "-S", str(SOURCE), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
             "-DNALVEO_TESTS=OFF"],
            ["cmake", "--build", str(build), "--target", "nalveoshared", "--parallel"]]
        for command in commands:
            try:
                subprocess.run(command, check=True)
            except FileNotFoundError:
                raise SystemExit("nalveo: building the library needs CMake 3.25 and a C++20 "
                                 "compiler; on Debian: apt install cmake g++") from None
        place.mkdir(parents=True, exist_ok=True)
        shutil.copy(build / LIBRARY, place / LIBRARY)


class PlatformWheel(bdist_wheel):
    """A wheel for this platform, but for any Python."""

    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


class WithBinary(Distribution):
    """Not for any platform: there is a shared library in it."""

    def has_ext_modules(self):
        return True


setup(version=version(), distclass=WithBinary,
      cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel})
