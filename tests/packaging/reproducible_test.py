#!/usr/bin/env python3
"""That what is installed depends on the sources alone: builds a copy of them in another directory, at
another time, in another time zone and locale, and compares it with the build at hand, byte for byte.

usage: reproducible_test.py BUILD_DIRECTORY
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What the two builds have in common.
SETTINGS = re.compile(
    r"(CMAKE_(BUILD_TYPE|INSTALL_PREFIX|CXX_COMPILER|CXX_FLAGS\w*|\w+_LINKER_FLAGS\w*)"
    r"|PELORIK_(WERROR|HARDENING|BUILD_TOOL)):\w+=.*"
)


def run(*command, **environment):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, env={**os.environ, **environment})


def settings_of(build):
    lines = (build / "CMakeCache.txt").read_text().splitlines()
    return [f"-D{line}" for line in lines if SETTINGS.fullmatch(line)]


def build_elsewhere(build, scratch):
    """Builds the library and the tool of a copy of the sources; returns the build directory."""
    copy = scratch / "sources in another place"
    shutil.copytree(ROOT, copy, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
    other = scratch / "built"
    settings = [*settings_of(build), "-DPELORIK_BUILD_TESTS=OFF"]
    # Without the cache, whose answer would be the first build's own.
    elsewhere = {"TZ": "Asia/Vladivostok", "LC_ALL": "C", "CCACHE_DISABLE": "1"}
    run("cmake", "--no-warn-unused-cli", "-G", "Ninja", "-S", str(copy), "-B", str(other), *settings, **elsewhere)
    run("cmake", "--build", str(other), **elsewhere)
    return other


def installed(build, scratch):
    """What an installation of `build` puts where: each path with its permissions and its content."""
    destination = scratch / f"installed-{build.name}"
    run("cmake", "--install", str(build), DESTDIR=str(destination))
    files = {}
    for path in destination.rglob("*"):
        name = str(path.relative_to(destination))
        if path.is_symlink():
            files[name] = ("link", os.readlink(path))
        elif path.is_file():
            files[name] = (path.stat().st_mode, path.read_bytes())
    return files


def main(build):
    with tempfile.TemporaryDirectory() as directory:
        scratch = pathlib.Path(directory)
        here = installed(build, scratch)
        elsewhere = installed(build_elsewhere(build, scratch), scratch)
    differing = sorted(name for name in {*here, *elsewhere} if here.get(name) != elsewhere.get(name))
    print(f"{len(here)} files installed here, {len(elsewhere)} elsewhere, {len(differing)} differ", *differing)
    sizes = [len(content) for name, (_, content) in here.items() if name.endswith(("/bin/pelorik", ".so.1.0.0"))]
    # That both of them were there to be compared.
    return 0 if len(sizes) == 2 and min(sizes) > 0 and not differing else 1


sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
