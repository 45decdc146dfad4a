#!/usr/bin/env python3
"""Sixty nights of eight clients and three policies, some 2,000 images, synced in two halves: all that is
in the archive is what the product and the tool say of it."""

import concurrent.futures
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import time

import archive
from archive import lines, summary
from model import file_name, raw, tree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))

NIGHTS = int(os.environ.get("QUILLMERE_ARCHIVE_NIGHTS", "60"))
CATALOGUE = {"seed": 7, "clients": 8, "policies": 3, "entries": 5}


class Nights(archive.ArchiveTest):
    CATALOGUE = CATALOGUE | {"nights": NIGHTS // 2}

    def images(self):
        return [image for image in self.model.product().images() if image.files != 0]

    def sync(self, exported):
        status, stdout, stderr = self.run_program("sync", "--jobs", "4", self.archive)
        *images, last = stdout.decode().splitlines()
        self.assertEqual((status, stderr, len(images)), (0, b"", exported))
        self.assertEqual(last, summary(exported, written=self.changed_sets()))

    def changed_sets(self):
        """How many sets are not those of the last time: each one of a series without parents has the
        size of the series."""
        sets = {(one.time, one.size, *one.image_ids) for one in self.model.product().sets()}
        changed, self.sets = len(sets - self.sets), sets
        return changed

    def test_in_two_halves(self):
        self.sets = set()
        self.init()
        first_half = self.images()
        self.sync(len(first_half))
        before = self.stamps()
        self.catalogue(**CATALOGUE, nights=NIGHTS)
        images = self.images()
        self.sync(len(images) - len(first_half))
        after = self.stamps()
        self.assertEqual({path: after[path] for path in before}, before)

        removed = images[len(images) // 3]
        shutil.rmtree(self.archive / "images" / removed.client / removed.backup_id)
        self.check_sync(stdout=lines(self.exported(removed.backup_id), summary(1)))

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(self.model.document, {image.backup_id for image in images}))
        self.check_tree(self.model.files())
        self.check_all_checksums()
        self.check_set_list()
        self.check_listed(images)
        self.check_pruned(images)

    def stamps(self):
        return {path: (path.stat().st_ino, path.stat().st_mtime_ns)
                for path in (self.archive / "images").rglob("*") if path.is_file()}

    def check_all_checksums(self):
        """In one run of sha256sum, and one of verify."""
        sums = []
        for path in (self.archive / "images").glob("*/*/SHA256SUMS"):
            for line in path.read_text().splitlines():
                checksum, name = line.split("  ")
                sums.append(f"{checksum}  {path.parent}/{name}\n")
        result = subprocess.run(["sha256sum", "--check", "--strict", "--quiet"], check=False,
                                input="".join(sums).encode(), capture_output=True)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        self.assertEqual(len(sums), 2 * len(self.images()))
        size = sum(path.stat().st_size for path in (self.archive / "images").glob("*/*/*_*.json"))
        self.check(["verify", self.archive], stdout=lines(
            f"{len(self.images())} images, {len(self.sets)} sets, {size} bytes: 0 problems"))

    def check_set_list(self):
        """The sets are those that dump_backup_set_list lists, with their times and sizes."""
        result = subprocess.run([archive.OPTIONS.tool, "--action", "dump_backup_set_list", "--count",
                                 "0"], check=True, capture_output=True)
        listed = sorted((one["BackupCreateTime"], one["BackupSize"])
                        for one in json.loads(result.stdout)["backup_sets"])
        kept = [json.loads(path.read_bytes()) for path in self.archive.glob("sets/*/*/*/*.json")]
        self.assertEqual(sorted((str(one["create_time"]), str(one["size_bytes"])) for one in kept),
                         listed)
        for path in self.archive.glob("sets/*/*/*/*.json"):
            self.assertEqual(path.stem, str(json.loads(path.read_bytes())["create_time"]))

    def check_listed(self, images):
        """`list` counts them by series."""
        stdout = self.run_program("list", "--json", self.archive)[1]
        expected = {}
        for image in images:
            key = (image.client, image.policy, image.schedule)
            expected[key] = expected.get(key, 0) + 1
        self.assertEqual({(one["client"], one["policy"], one["schedule"]): one["images"]
                          for one in json.loads(stdout)}, expected)
        # Every one of them ended years ago.
        status, stale, stderr = self.run_program("list", "--stale", "26h", "--json", self.archive)
        self.assertEqual((status, stale, stderr), (1, stdout, b""))
        self.check(["list", "--stale", "9999999h", "--json", self.archive], stdout=b"[]\n")

    def check_pruned(self, images):
        """What is older than half of the nights goes, is not fetched until that is asked for, and is
        forgotten when the product forgets it."""
        before = 1500000000 + 86400 * (NIGHTS // 2) - 43200
        age = int(time.time()) - before
        whole = tree(self.archive)
        expected, gone = self.model.pruned_files(before)
        self.assertGreater(len(gone), len(images) // 3)
        prune = ["prune", "--older-than", f"{age}s", "--force", self.archive]
        status, stdout, stderr = self.run_program(*prune)
        self.assertEqual((status, stderr), (0, b""))
        self.assertRegex(stdout.splitlines()[-1], rb"^\d+ sets, %d images, \d+ bytes removed$" % len(gone))
        self.check_tree(expected)
        self.check_sync(stdout=lines(summary()))
        self.check_tree(expected)

        self.check_sync("--quiet", "--again", stdout=b"")
        shutil.rmtree(self.archive / "pruned")
        self.check_tree(whole)

        self.assertEqual(self.run_program(*prune)[0], 0)
        listing = self.root / "db/listing"
        rows = listing.read_bytes().splitlines(True)
        listing.write_bytes(b"".join(row for row in rows if not row.startswith(raw(gone[0]) + b" ")))
        self.check_sync("--quiet", stdout=b"")
        marks = {path.name for path in self.archive.glob("pruned/*/*")}
        self.assertEqual(marks, {f"{backup_id}.json" for backup_id in gone[1:]})


if __name__ == "__main__":
    archive.main(__doc__)
