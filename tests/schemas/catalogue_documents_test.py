#!/usr/bin/env python3
"""Every document that the tool makes of whole catalogues of the stand-in is as promised."""

import argparse
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from documents import IMAGE, SET_LIST
from host_product import HostProduct, make_catalogue

OPTIONS = argparse.Namespace()


def run(action, **options):
    """Runs an action, which must end with status 0; returns what it printed."""
    arguments = [text for option, value in options.items() for text in ("--" + option, str(value))]
    return subprocess.run([OPTIONS.program, "--action", action, *arguments], check=True,
                          stdout=subprocess.PIPE).stdout


class Catalogue(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def make(self, **options):
        make_catalogue(OPTIONS.generator, OPTIONS.root, **options)
        self.backup_ids = [image.backup_id for image in HostProduct(OPTIONS.root).images()]

    def assert_promised(self, kind, *documents):
        for document in documents:
            self.assertEqual(kind.problems(document), [], document.decode(errors="replace"))

    def exported(self, action, **options):
        """The documents that an action writes to an output directory, by their names."""
        with tempfile.TemporaryDirectory(dir=self.directory) as directory:
            self.assertEqual(run(action, output_dir=directory, **options), b"")
            return {path.name: path.read_bytes() for path in pathlib.Path(directory).iterdir()}

    def assert_set_list(self):
        """Checks the set list as a file and as it is printed; returns the times in it."""
        files = self.exported("dump_backup_set_list", count=0)
        self.assertEqual(list(files), ["backup_sets.json"])
        printed = run("dump_backup_set_list", count=0)
        self.assertEqual(printed, files["backup_sets.json"])
        self.assert_promised(SET_LIST, printed)
        return [one["BackupCreateTime"] for one in json.loads(printed)["backup_sets"]]

    def assert_sets(self):
        times = self.assert_set_list()
        self.assertGreater(len(times), 5)
        for time in times:
            files = self.exported("dump_backup_set", time=time)
            self.assertLessEqual(files.keys(), {f"{one}.json" for one in self.backup_ids})
            self.assertNotEqual(files, {})
            self.assert_promised(IMAGE, *files.values())

    def test_sets_with_parents(self):
        self.make(seed=11, images=40, entries=9)
        self.assert_sets()

    def test_sets_without_parents(self):
        self.make(seed=12, images=12, no_parents=True)
        self.assert_sets()

    def test_images_as_files_and_as_they_are_printed(self):
        self.make(seed=13, images=12)
        for backup_id in self.backup_ids:
            files = self.exported("dump_backup", backup_id=backup_id)
            self.assertEqual(list(files), [f"{backup_id}.json"])
            printed = run("dump_backup", backup_id=backup_id)
            self.assertEqual(printed, files[f"{backup_id}.json"])
            self.assert_promised(IMAGE, printed)

    def test_images_without_entries_are_in_no_set(self):
        self.make(seed=14, images=6, entries=0)
        self.assertEqual(self.assert_set_list(), [])
        for backup_id in self.backup_ids:
            (document,) = self.exported("dump_backup", backup_id=backup_id).values()
            self.assertEqual(json.loads(document)["fentries"], "")
            self.assert_promised(IMAGE, document)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
