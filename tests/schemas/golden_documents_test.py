#!/usr/bin/env python3
"""Every document that a golden case expects is as its schema and docs/documents.md promise."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(TESTS / "golden"))
from documents import IMAGE, SET_LIST
from run_case import read, tree

# Files with the name of a document that hold none, and why.
NO_DOCUMENTS = {
    "dump-document-name-taken-by-a-folder/alpha_1600123456.json": "a folder",
    "dump-document-that-cannot-be-written/alpha_1600123456.json": "the disk is full",
    "dump-failed-entry-keeps-the-existing-document/alpha_1600123456.json": "from before the run",
    "dump-metadata-of-a-number-empties-the-document/alpha_1600123456.json": "empty: no metadata",
    "setlist-existing-file-is-replaced/other.json": "not the tool's",
    "setlist-failure-keeps-the-existing-file/backup_sets.json": "from before the run",
    "setlist-file-name-taken-by-a-folder/backup_sets.json": "a folder",
    "setlist-file-that-cannot-be-written/backup_sets.json": "the disk is full",
}


def completed(case, scratch):
    """The case, or a copy that its program has completed."""
    if not (case / "prepare").exists():
        return case
    copy = pathlib.Path(scratch) / case.name
    shutil.copytree(case, copy, symlinks=True)
    subprocess.run([copy / "prepare"], cwd=copy, check=True)
    return copy


def documents_of(case):
    """The documents that a case expects, as (place, kind, bytes)."""
    for name, content in tree(case / "files").items():
        if name.endswith(b".json") and not name.endswith(b".qvmeta.json"):
            kind = SET_LIST if name == b"backup_sets.json" else IMAGE
            yield os.fsdecode(name), kind, content
    arguments = read(case / "args").split(b"\n")
    value_of = dict(zip(arguments, arguments[1:]))  # the last one of an option counts
    action = value_of.get(b"--action", b"")
    succeeds = not (case / "status").exists() and b"--help" not in arguments
    if succeeds and action.startswith(b"dump_") and not value_of.get(b"--output_dir"):
        # Traces may stand before it.
        _, begin, rest = (b"\n" + read(case / "stdout")).rpartition(b"\n{\n")
        kind = SET_LIST if action == b"dump_backup_set_list" else IMAGE
        yield "standard output", kind, begin[1:] + rest


class GoldenDocuments(unittest.TestCase):
    def test_all_but_those_that_are_none_are_as_promised(self):
        refused = {}
        with tempfile.TemporaryDirectory() as scratch:
            for folder in sorted((TESTS / "golden/cases").iterdir()):
                for place, kind, document in documents_of(completed(folder, scratch)):
                    if problems := kind.problems(document):
                        refused[f"{folder.name}/{place}"] = problems
        unexpected = {name: refused[name] for name in refused.keys() - NO_DOCUMENTS.keys()}
        self.assertEqual(unexpected, {})
        self.assertEqual(NO_DOCUMENTS.keys() - refused.keys(), set(), "are documents, or are gone")


if __name__ == "__main__":
    unittest.main()
