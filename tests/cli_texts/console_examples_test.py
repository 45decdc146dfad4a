#!/usr/bin/env python3
"""What the README and the manual page show of a shell happens like that, on the demo's catalogue."""

import argparse
import pathlib
import re
import sys
import unittest

import console
from console import ROOT, commands

OPTIONS = argparse.Namespace()
# Complaints of commands that are shown although this catalogue has nothing for them.
NOT_IN_THE_CATALOGUE = {"""quillmere --action list_backups --policy "'R&D daily'\"""":
                        "qvroll: no image matches\n"}


def blocks_of_manual_page():
    text = (ROOT / "man/quillmere.1").read_text(encoding="ascii")
    blocks = re.findall(r"^\.Bd -literal.*\n((?:.*\n)*?)\.Ed$", text, re.MULTILINE)
    return [block.replace(r"\e", "\\") for block in blocks]


class Examples(console.Console):
    def setUp(self):
        super().setUp()
        self.script("quillmere", f'exec {OPTIONS.program} "$@"')
        console.make_catalogue(OPTIONS.generator, OPTIONS.root, **demo_catalogue())

    def assert_happens(self, blocks):
        for command, expected in (pair for block in blocks for pair in commands(block)):
            with self.subTest(command):
                status, output, complaint = self.shell(command)
                self.assertEqual((status, complaint), (0, NOT_IN_THE_CATALOGUE.get(command, "")))
                if command.startswith("ls "):  # in columns, where there is a terminal
                    self.assertEqual(output.split(), expected.split())
                elif expected:
                    self.assertEqual(output, expected)

    def test_of_the_readme(self):
        blocks = [block for block in console.blocks_of_markdown("README.md", "$")
                  if "quillmere-archive" not in block]
        self.assertEqual(len(blocks), 1)
        self.assert_happens(blocks)

    def test_of_the_manual_page(self):
        blocks = [block for block in blocks_of_manual_page() if block.startswith("$")]
        self.assertEqual(len(blocks), 6)
        self.assert_happens(blocks)

    def test_the_manual_page_reads_the_paths_of_an_image_without_entries(self):
        ((command, _),) = [pair for block in blocks_of_manual_page() for pair in commands(block)
                           if "jq" in pair[0]]
        parent = re.sub(r"alpha_\d+", "alpha_1500197001", command)
        self.assertEqual(self.shell(parent), (0, "", ""))

    def test_the_manual_page_uses_a_set_list_only_if_nobody_complained(self):
        (lines,) = [block for block in blocks_of_manual_page() if "consume" in block]
        (self.directory / "srv/export").mkdir()
        self.script("consume", 'head -n 2 "$1"')
        self.assertEqual(self.shell(lines), (0, '{\n    "backup_sets": [\n', ""))
        (pathlib.Path(OPTIONS.root) / "bin/admincmd/qvroll").unlink()
        self.assertEqual(self.shell(lines), (0, "", ""))


def demo_catalogue():
    """The options that the demo makes the catalogue of the four actions with."""
    (line,) = re.findall(r"make_catalogue\" --root \S+ (--seed .*\\\n.*--images .*)",
                         (ROOT / "scripts/demo.sh").read_text(encoding="ascii"))
    return dict(re.findall(r"--(\S+) (\d+)", line))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, type=pathlib.Path, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
