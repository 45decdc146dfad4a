#!/usr/bin/env python3
"""The export of an image with a million file entries: the memory that it takes and its bytes."""

import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from host_product import HostProduct, make_catalogue

OPTIONS = argparse.Namespace()

ENTRIES = 1_000_000
COMPARED = 1_000  # entries


def peak_memory(command):
    """Runs a command, which must succeed; returns the most memory that it took at any time, or any
    command that it ran, in MiB."""
    process = subprocess.Popen(command)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise AssertionError(f"{command}: status {process.returncode}")
    return usage.ru_maxrss / 1024


class LargeImage(unittest.TestCase):
    """The cases look at one export: it is the one thing here that takes time."""

    @classmethod
    def setUpClass(cls):
        # Half a gigabyte, which must not go to a /tmp in memory.
        directory = tempfile.TemporaryDirectory(dir=pathlib.Path(OPTIONS.root).parent)
        cls.addClassCleanup(directory.cleanup)
        make_catalogue(OPTIONS.generator, OPTIONS.root, seed=1, clients=1, policies=1, schedules=1,
                       images=1, entries=ENTRIES, no_parents=True)
        cls.addClassCleanup(make_catalogue, OPTIONS.generator, OPTIONS.root, seed=1)
        cls.product = HostProduct(OPTIONS.root)
        (image,) = cls.product.images()
        cls.backup_id = image.backup_id
        cls.memory = peak_memory([OPTIONS.program, "--action", "dump_backup", "--backup_id",
                                  cls.backup_id, "--output_dir", directory.name])
        cls.document = pathlib.Path(directory.name) / f"{cls.backup_id}.json"

    def test_the_memory_stays_below_the_limit(self):
        if OPTIONS.memory_limit is None:
            self.skipTest("no limit is given for this build")
        self.assertLess(self.memory, OPTIONS.memory_limit)

    def test_the_document_holds_every_entry(self):
        with self.document.open("rb") as document:
            count = sum(line.startswith(b'            "filenum": ') for line in document)
        self.assertEqual(count, ENTRIES)

    def test_the_document_begins_as_a_tree_of_its_first_entries_is_written(self):
        lines = self.product.entry_lines(self.backup_id)[:COMPARED]
        with tempfile.NamedTemporaryFile() as metadata:
            metadata.write(self.product.metadata_json(self.backup_id))
            metadata.flush()
            tree = subprocess.run([OPTIONS.tree_writer, metadata.name], check=True,
                                  input=b"\n".join(lines) + b"\n", stdout=subprocess.PIPE).stdout
        end = b"\n    ]\n}\n"
        self.assertTrue(tree.endswith(end))
        expected = tree.removesuffix(end) + b",\n        {\n"  # the next entry
        with self.document.open("rb") as document:
            self.assertEqual(document.read(len(expected)), expected)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.add_argument("--tree-writer", required=True, help="writes the document the plain way")
    parser.add_argument("--memory-limit", type=float, help="MiB")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], failfast=True)
