#!/usr/bin/env python3
"""The version that the build has is the newest one that the change logs describe."""

import argparse
import pathlib
import re
import sys
import unittest

OPTIONS = argparse.Namespace()


def newest(name, pattern):
    """The first version that `pattern` finds in a file of the tree."""
    return re.search(pattern, (OPTIONS.source / name).read_text(), re.MULTILINE)[1]


class Versions(unittest.TestCase):
    def test_the_change_log_describes_it(self):
        self.assertEqual(newest("CHANGELOG.md", r"^## (\d.*)$"), OPTIONS.version)

    def test_quillmere_report_says_it(self):
        self.assertEqual(newest("report/quillmere_report/__init__.py", r'^VERSION = "(.*)"$'),
                         OPTIONS.version)

    def test_the_package_s_change_log_describes_its_first_package(self):
        self.assertEqual(newest("packaging/debian/changelog", r"^quillmere \((.*?)\)"),
                         f"{OPTIONS.version}-1")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", required=True, type=pathlib.Path, help="the top folder")
    parser.add_argument("--version", required=True, help="the version of the build")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
