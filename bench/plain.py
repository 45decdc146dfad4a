"""Builds the tool with one of its clevernesses replaced by the plain version, by the patches in
bench/plain: what each of them wins is measured against that.
"""

import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
PATCHES = HERE / "plain"
NOT_NEEDED = (".git", "build", "tests")


class PlainVersions:
    """Makes the programs `folder`/NAME, for the install root `root`, in one build: each version
    differs from the next in a file or two."""

    def __init__(self, folder, root):
        self._folder = folder
        self._tree = folder / "tree"
        self._build = folder / "build"
        self._root = root

    def make(self, names):
        self._folder.mkdir(exist_ok=True)
        self._copy_tree()
        self._run("cmake", "--preset", "release", "-S", self._tree, "-B", self._build,
                  "-DQUILLMERE_TESTS=OFF", "-DQUILLMERE_BENCH=OFF",
                  f"-DQUILLMERE_INSTALL_ROOT={self._root}")
        for name in names:
            self._patch(name)
            self._run("cmake", "--build", self._build, "--target", "quillmere", "--", "--quiet")
            self._patch(name, "--reverse")
            shutil.copy(self._build / "quillmere", self._folder / name)

    def _copy_tree(self):
        """Leaves files alone that are the same, so that they are not compiled again."""
        needed = [path for path in HERE.parent.iterdir() if path.name not in NOT_NEEDED]
        for source in (file for path in needed for file in [path, *path.rglob("*")]
                       if file.is_file()):
            copy = self._tree / source.relative_to(HERE.parent)
            if not copy.exists() or copy.read_bytes() != source.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)

    def _patch(self, name, *options):
        result = self._patched(name, "--dry-run", *options)
        if result.returncode != 0:
            sys.exit(f"bench/plain/{name}.patch does not fit the sources any more:\n"
                     f"{result.stdout}")
        self._patched(name, *options)

    def _patched(self, name, *options):
        return subprocess.run(["patch", "--strip=1", "--fuzz=0", "--batch", "--reject-file=-",
                               f"--directory={self._tree}", f"--input={PATCHES / name}.patch",
                               *options], capture_output=True, text=True)

    def _run(self, *command):
        result = subprocess.run(command, capture_output=True, text=True, cwd=HERE.parent)
        if result.returncode != 0:
            sys.exit(f"{' '.join(map(os.fspath, command))} failed:\n{result.stdout}{result.stderr}")
