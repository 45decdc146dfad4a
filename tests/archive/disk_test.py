#!/usr/bin/env python3
"""A disk that is full, at many points of a sync: small file systems in memory, for which the test has
to run in a private mount namespace."""

import os
import pathlib
import re
import subprocess

import archive
from archive import SMALL, lines, summary
from model import tree

PAGE = os.sysconf("SC_PAGE_SIZE")  # what such a file system gives out at a time


class DiskTest(archive.ArchiveTest):
    # About four pages a document.
    CATALOGUE = SMALL | {"entries": 35}

    def mount(self, options):
        self.archive.mkdir(mode=0o700)
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"{options},mode=700", "tmpfs", self.archive],
                       check=True)
        self.addCleanup(subprocess.run, ["umount", self.archive], check=True)

    def remount(self, options):
        subprocess.run(["mount", "-o", f"remount,{options}", self.archive], check=True)

    def unmount(self):
        subprocess.run(["umount", self.archive], check=True)
        self.archive.rmdir()
        self.doCleanups_of_mount()

    def doCleanups_of_mount(self):
        self._cleanups = [one for one in self._cleanups if one[0] is not subprocess.run]

    def check_short_disk(self, options, room):
        """A sync on a disk that is too small, then one on a disk with `room`: the first leaves whole
        images and sets and says what failed, the second has all. Returns whether it was too small."""
        self.mount(room)
        self.init()
        self.remount(options)
        status, stdout, stderr = self.run_program("sync", "--jobs", "2", self.archive)
        expected = self.model.files()
        # What is in .staging means nothing, and an empty folder no more.
        left = {path: data for path, data in tree(self.archive).items()
                if not path.startswith(".staging/") and not path.endswith("/")}
        self.assertLessEqual(left.items(), expected.items())
        images = {re.match("images/[^/]*/[^/]*/", path)[0] for path in left
                  if path.startswith("images/")}
        for path in expected:
            if path.startswith(tuple(images)):
                self.assertIn(path, left)
        if status == 0:
            self.assertEqual((left, stderr), (expected, b""))
        else:
            self.assertIn(status, (1, 4))
            self.assertRegex(stderr.decode(), r"No space left on device|fopen\(\) failed")
            self.remount(room)
            self.check_sync("--quiet", stdout=b"")
            self.check_tree(expected)
            self.check_verified()
        self.unmount()
        return status != 0


class FullDisk(DiskTest):
    def test_in_any_page(self):
        pages = 2
        while self.check_short_disk(f"size={pages * PAGE}", "size=100M"):
            pages += 1
        self.assertGreater(pages, 20)

    def test_for_any_file_or_folder(self):
        inodes = 4
        while self.check_short_disk(f"size=100M,nr_inodes={inodes}", "size=100M,nr_inodes=1000"):
            inodes += 1
        self.assertGreater(inodes, 20)


class SpaceToKeepFree(DiskTest):
    def test_begins_no_image_with_less(self):
        self.mount("size=10M")
        self.init()
        self.check_sync("--keep-free", "11M", status=1, stdout=lines(summary(waiting=4)),
                        stderr=lines("less than 11M free: 4 images left out"))
        self.check_tree(self.model.archive_json())
        self.check_sync("--keep-free", "90%")
        self.check_tree(self.model.files())

    def test_leaves_out_the_images_behind_the_one_that_took_it(self):
        self.mount("size=400K")
        self.init()
        keep = 400 * 1024 - 12 * PAGE
        status, stdout, stderr = self.run_program(
            "sync", "--jobs", "1", "--keep-free", str(keep), self.archive)
        self.assertEqual(status, 1)
        kept = len(list((self.archive / "images").glob("*/*/manifest.json")))
        self.assertTrue(0 < kept < 4, kept)
        self.assertRegex(stderr.decode(), rf"less than {keep} free")
        self.check_sync("--quiet", "--keep-free", "0", stdout=b"")
        self.check_tree(self.model.files())


if __name__ == "__main__":
    archive.main(__doc__)
