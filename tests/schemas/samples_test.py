#!/usr/bin/env python3
"""The documents in docs/samples are what golden cases expect of the tool, as promised, and all of them
are described."""

import json
import pathlib
import re
import unittest

from documents import IMAGE, SET_LIST

ROOT = pathlib.Path(__file__).resolve().parents[2]
SAMPLES = ROOT / "docs/samples"
CASES = ROOT / "tests/golden/cases"

IMAGES = {
    "one-entry": "dump-one-entry-to-a-file",
    "no-entries": "dump-metadata-of-an-empty-string",
    "latin-1-names": "dump-names-keep-their-bytes",
    "control-characters": "dump-control-characters-are-escaped",
    "quotes-and-slashes": "dump-quotes-slashes-and-backslashes-are-escaped",
    "odd-numbers": "dump-lines-that-begin-with-0-are-skipped",
    "two-fentries": "dump-metadata-may-have-fentries-of-their-own",
    "repeated-keys": "dump-metadata-keeps-repeated-and-dotted-keys-in-order",
    "empty-arrays": "dump-metadata-empty-arrays-and-objects-become-empty-strings",
    "nested-metadata": "dump-metadata-nests",
    "scalars": "dump-metadata-values-become-strings",
    "escapes": "dump-metadata-escapes-are-written-anew",
    "empty-keys": "dump-metadata-object-of-empty-keys-becomes-an-array",
    "array-root": "dump-metadata-of-an-array-become-members-with-empty-keys",
}
SET_LISTS = {
    "sets": "setlist-sizes-in-each-unit/files/backup_sets.json",
    "no-sets": "setlist-of-an-empty-listing-to-stdout/stdout",
    "sets-of-64-bits": "setlist-numbers-have-64-bits/files/backup_sets.json",
}
NOT_WHOLE = {"cut": "latin-1-names"}


def sample(name):
    return (SAMPLES / f"{name}.json").read_bytes()


class Samples(unittest.TestCase):
    def test_are_what_the_tool_writes(self):
        for name, case in IMAGES.items():
            with self.subTest(name):
                self.assertEqual(sample(name), (CASES / case / "files/alpha_1600123456.json").read_bytes())
        for name, path in SET_LISTS.items():
            with self.subTest(name):
                self.assertEqual(sample(name), (CASES / path).read_bytes())

    def test_are_as_promised(self):
        for kind, names in ((IMAGE, IMAGES), (SET_LIST, SET_LISTS)):
            for name in names:
                with self.subTest(name):
                    self.assertEqual(kind.problems(sample(name)), [])

    def test_but_for_the_one_that_is_cut(self):
        for name, whole in NOT_WHOLE.items():
            self.assertTrue(sample(whole).startswith(sample(name)))
            self.assertNotEqual(IMAGE.problems(sample(name)), [])

    def test_hold_what_their_page_says(self):
        """The paths, bytes and values that the rows name."""
        def entries(name):
            image = json.loads(sample(name).decode("latin-1"))
            return [{key: value.encode("latin-1") for key, value in entry.items()}
                    for entry in image["fentries"] or []]

        with_entries = {"one-entry", "latin-1-names", "control-characters", "quotes-and-slashes",
                        "odd-numbers", "two-fentries"}
        for name in IMAGES:
            self.assertEqual(bool(entries(name)), name in with_entries, name)
        self.assertEqual([entry["path"] for entry in entries("one-entry")], [b"/a b"])
        self.assertEqual([entry["path"] for entry in entries("quotes-and-slashes")], [rb'/a/"b"\c'])
        self.assertEqual([entry["path"] for entry in entries("two-fentries")], [b"/of/the/image"])
        self.assertEqual([entry["filenum"] for entry in entries("odd-numbers")], [b"10", b" 0"])
        self.assertEqual([entry["path"] for entry in entries("latin-1-names")],
                         [b"/home/alice/caf" + bytes.fromhex("E9 2E 74 78 74"),
                          b"/home/alice/caf" + bytes.fromhex("C3 A9 2E 74 78 74"),
                          b"/home/" + bytes.fromhex("80 FE FF 2F ED A0 80")])
        (entry,) = entries("control-characters")
        self.assertEqual(re.sub(rb"[ -~]", b"", entry["path"]), bytes.fromhex("07 08 0C 0D 1B 7F"))
        self.assertEqual((rb"\n" in entry["path"], entry["data"][-1:]), (True, b"\r"))
        self.assertEqual(re.findall(rb'"z": "(.)"', sample("repeated-keys")), [b"1", b"3"])
        for name, count in {"sets": 5, "no-sets": 0, "sets-of-64-bits": 3}.items():
            self.assertEqual(len(json.loads(sample(name))["backup_sets"]), count)

    def test_have_a_row_each(self):
        page = (SAMPLES / "README.md").read_text(encoding="utf-8")
        self.assertEqual(sorted(re.findall(r"^\| \[(.*?)\.json\]\(\1\.json\) \|", page, re.MULTILINE)),
                         sorted(IMAGES | SET_LISTS | NOT_WHOLE))
        self.assertEqual(sorted(path.name for path in SAMPLES.iterdir()),
                         sorted(["README.md"] + [f"{name}.json" for name in IMAGES | SET_LISTS | NOT_WHOLE]))


if __name__ == "__main__":
    unittest.main()
