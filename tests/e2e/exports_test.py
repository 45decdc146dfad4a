#!/usr/bin/env python3
"""Every action of the tool against a whole catalogue of the stand-in host product.

Makes a catalogue under the root that the program was built for, and compares what the program
exports with what the product's own commands print.
"""

import argparse
import itertools
import pathlib
import shlex
import subprocess
import sys
import tempfile
import unittest

from host_product import HostProduct, make_catalogue, members, text

OPTIONS = argparse.Namespace()


def run(action, **options):
    """Runs an action, which must end with status 0 and without a message; returns what it wrote."""
    command = [OPTIONS.program, "--action", action]
    for option, value in options.items():
        if value is not None:
            command += ["--" + option, str(value)]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if (result.returncode, result.stderr) != (0, b""):
        raise AssertionError(f"{shlex.join(command)}: status {result.returncode}\n"
                             + result.stderr.decode(errors="replace"))
    return result.stdout


def quoted(value):
    """`value` as a caller has to write it so that the shell makes it this value again."""
    return None if value is None else shlex.quote(value)


class CatalogueCase(unittest.TestCase):
    """A case on one catalogue, which the class makes once."""

    CATALOGUE = {}

    @classmethod
    def setUpClass(cls):
        make_catalogue(OPTIONS.generator, OPTIONS.root, **cls.CATALOGUE)
        cls.product = HostProduct(OPTIONS.root)
        cls.images = cls.product.images()

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def filters(self, *columns):
        """Every value of these columns of the listing, or none, with every other, as far as there
        are images of them."""
        return sorted({tuple(getattr(image, column) if chosen else None
                             for column, chosen in zip(columns, choice))
                       for image in self.images
                       for choice in itertools.product((False, True), repeat=len(columns))},
                      key=str)

    def exported_set_list(self, **options):
        """The times and sizes of the exported set list, as they stand there."""
        run("dump_backup_set_list", output_dir=self.directory, **options)
        ((key, sets),) = members(text((self.directory / "backup_sets.json").read_bytes()))
        self.assertEqual(key, "backup_sets")
        for one in sets:
            self.assertEqual([name for name, _ in one], ["BackupCreateTime", "BackupSize"])
        return [(one[0][1], one[1][1]) for one in sets]

    def assert_image_document(self, document, backup_id):
        """The document holds all metadata of the image, and behind it all its entries."""
        *metadata, (last_key, entries) = members(text(document))
        self.assertEqual(tuple(metadata), self.product.metadata(backup_id))
        self.assertEqual(last_key, "fentries")
        self.assertEqual(list(entries), list(self.product.entries(backup_id)))


class SetsWithAndWithoutParents(CatalogueCase):
    CATALOGUE = {"seed": 1, "clients": 3, "policies": 2, "schedules": 2, "images": 40,
                 "entries": 12}

    def test_the_catalogue_has_something_to_export(self):
        for column in ("client", "policy", "schedule"):
            self.assertGreater(len(self.filters(column)), 2, column)
        self.assertGreater(len(self.product.sets()), 10)
        self.assertGreater(sum(image.files for image in self.images), 100)

    def test_the_set_list_of_each_filter_holds_its_sets_newest_first(self):
        for client, policy in self.filters("client", "policy"):
            with self.subTest(client=client, policy=policy):
                listed = self.exported_set_list(client=quoted(client), policy=quoted(policy),
                                                count=0)
                sets = self.product.sets(client, policy)
                self.assertEqual(sorted(listed), sorted((str(one.time), str(one.size % 2**64))
                                                        for one in sets))
                times = [int(time) for time, _ in listed]
                self.assertEqual(times, sorted(times, reverse=True))

    def test_a_count_keeps_the_newest_sets(self):
        newest = sorted((one.time for one in self.product.sets()), reverse=True)[:3]
        self.assertEqual([int(time) for time, _ in self.exported_set_list(count=3)], newest)

    def test_each_listed_time_exports_the_images_of_its_set_and_nothing_else(self):
        for client, policy in self.filters("client", "policy"):
            first_of_time = {}
            for one in self.product.sets(client, policy):
                first_of_time.setdefault(str(one.time), one)
            listed = self.exported_set_list(client=quoted(client), policy=quoted(policy), count=0)
            for time, _ in listed:
                if time == "0":
                    continue  # no set that --time can name
                with self.subTest(client=client, policy=policy, time=time):
                    self.assert_set_export(client, policy, time, first_of_time[time].image_ids)

    def assert_set_export(self, client, policy, time, image_ids):
        with tempfile.TemporaryDirectory(dir=self.directory) as directory:
            run("dump_backup_set", client=quoted(client), policy=quoted(policy), time=time,
                output_dir=directory)
            files = {path.name: path.read_bytes() for path in pathlib.Path(directory).iterdir()}
        self.assertEqual(sorted(files), sorted(image_id + ".json" for image_id in image_ids))
        for image_id in image_ids:
            self.assert_image_document(files[image_id + ".json"], image_id)

    def test_each_image_is_exported_alike_to_a_file_and_to_standard_output(self):
        for image in self.images:
            with self.subTest(backup_id=image.backup_id):
                printed = run("dump_backup", backup_id=image.backup_id)
                self.assert_image_document(printed, image.backup_id)
                run("dump_backup", backup_id=image.backup_id, output_dir=self.directory)
                written = (self.directory / f"{image.backup_id}.json").read_bytes()
                self.assertEqual(written, printed)
        self.assertEqual(len(list(self.directory.iterdir())),
                         len({image.backup_id for image in self.images}))

    def test_the_listing_is_the_product_s_own(self):
        for client, policy, schedule in self.filters("client", "policy", "schedule"):
            with self.subTest(client=client, policy=policy, schedule=schedule):
                listed = run("list_backups", client=quoted(client), policy=quoted(policy),
                             schedule=quoted(schedule))
                self.assertEqual(listed, self.product.listing(client, policy, schedule))


class SetsWithoutParents(SetsWithAndWithoutParents):
    CATALOGUE = SetsWithAndWithoutParents.CATALOGUE | {"images": 16, "no_parents": True}

    def test_each_image_is_a_set(self):
        self.assertEqual(len(self.product.sets()), len(self.images))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], failfast=True)
