"""The wheel's build step: packages the folder ztexport/ that the CMake
build laid out beside this file (pyproject.toml says how to run it). It
compiles nothing; the binaries in it are the build's own."""

import pathlib

from setuptools import setup
from setuptools.dist import Distribution

HERE = pathlib.Path(__file__).resolve().parent


class BuiltDistribution(Distribution):
    """The package holds a compiled extension: the wheel is tagged for this
    interpreter and platform, not as pure Python."""

    def has_ext_modules(self):
        return True


def package_files():
    folder = HERE / "ztexport"
    built = sorted(folder.glob("_ztexport*.so")) if folder.is_dir() else []
    if not built or not (HERE / "VERSION").is_file():
        raise SystemExit("%s: no built package here (the extension and VERSION are missing); build the wheel with "
                         "cmake --build BUILD --target ztexport_wheel" % folder)
    return sorted(p.name for p in folder.iterdir() if p.is_file() and p.suffix != ".py")


FILES = package_files()
setup(version=(HERE / "VERSION").read_text(encoding="utf-8").strip(), distclass=BuiltDistribution,
      package_data={"ztexport": FILES})
