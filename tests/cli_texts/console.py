"""What documents show of a shell, and a place in which it is run."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "tests/e2e"))
from host_product import make_catalogue


def blocks_of_markdown(path, prompt=""):
    """The indented blocks of a document in which a line begins with the prompt, if there is one."""
    text = (ROOT / path).read_text(encoding="utf-8")
    blocks = re.findall(r"(?<=\n\n)(?: {4}.*\n)+(?=\n)", text)
    return [re.sub("^ {4}", "", block, flags=re.MULTILINE) for block in blocks
            if not prompt or f"\n    {prompt} " in "\n" + block]


def commands(block, prompt="$"):
    """The commands of a block, as (command, what it prints)."""
    begin = re.escape(prompt) + " "
    return re.findall(rf"^{begin}((?:.*[\\|]\n)*.*)\n((?:(?!{begin}).*\n)*)", block, re.MULTILINE)


class Console(unittest.TestCase):
    """A directory whose folders stand for those of the system, and commands for the shell in it."""

    # Folders of the system that commands find below the test's directory.
    FOLDERS = ("/srv",)

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name).resolve()
        for folder in self.FOLDERS:
            (self.directory / folder.lstrip("/")).mkdir(parents=True)

    def script(self, name, line):
        """Makes a command for the shell."""
        path = self.directory / "tools" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(f"#!/bin/sh\n{line}\n", encoding="utf-8")
        path.chmod(0o755)

    def placed(self, text):
        """The text with the folders where they are."""
        folders = "|".join(map(re.escape, self.FOLDERS))
        return re.sub(rf"(?<![\w./-])(?:{folders})\b", lambda found: f"{self.directory}{found[0]}", text)

    def shell(self, lines):
        """Runs lines; returns the status, standard output and standard error."""
        path = f"{self.directory}/tools:{os.environ['PATH']}"
        ended = subprocess.run(["sh", "-c", self.placed(lines)], cwd=self.directory,
                               env=os.environ | {"PATH": path}, capture_output=True, text=True,
                               errors="surrogateescape",
                               check=False)
        return (ended.returncode, *(text.replace(str(self.directory), "")
                                    for text in (ended.stdout, ended.stderr)))
