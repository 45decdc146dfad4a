#!/usr/bin/env python3
"""What is wrong in an archive, and that verify says all of it; sync and list beside it."""

import json
import os
import pathlib
import re
import shutil

import archive
from archive import FIRST, LAST, SECOND, THIRD, lines
from model import tree

SET = "sets/alpha/Daily/incr/1500172860.json"


class DamageTest(archive.ArchiveTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.check_sync()

    def path(self, name):
        return self.archive / name

    def check_found(self, *names):
        """verify has at least one line about each of these paths, and about no other."""
        status, stdout, stderr = self.run_program("verify", "--jobs", "2", self.archive)
        *problems, last = stdout.decode("utf-8", "surrogateescape").splitlines()
        self.assertEqual((status, stderr), (1, b""), problems)
        self.assertRegex(last, rf"\A\d+ images, \d+ sets, \d+ bytes: {len(problems)} problems\Z")
        about = [problem.split(": ", 1)[0] for problem in problems]
        for name in names:
            self.assertTrue(any(found == name or found.startswith(name + "/") for found in about),
                            (name, problems))
        for found in about:
            self.assertTrue(any(found == name or found.startswith(name + "/") for name in names),
                            (found, names))
        return problems


class FlippedBits(DamageTest):
    def check_each_byte(self, name, step, about):
        path = self.path(name)
        whole = path.read_bytes()
        for place in range(0, len(whole), step):
            damaged = bytearray(whole)
            damaged[place] ^= 1 << (place % 8)
            path.write_bytes(damaged)
            self.check_found(about)
        path.write_bytes(whole)
        self.check_verified()

    def test_in_a_document(self):
        name = f"images/alpha/{LAST}/{LAST}.json"
        self.check_each_byte(name, 97, name)

    def test_in_a_manifest(self):
        self.check_each_byte(f"images/alpha/{LAST}/manifest.json", 29, f"images/alpha/{LAST}")

    def test_in_checksums(self):
        self.check_each_byte(f"images/alpha/{LAST}/SHA256SUMS", 11, f"images/alpha/{LAST}")

    def test_in_a_compressed_document(self):
        shutil.rmtree(self.archive)
        self.init("--compress", "1")
        self.check_sync()
        name = f"images/alpha/{LAST}/{LAST}.json.zst"
        self.check_each_byte(name, 23, name)


class Files(DamageTest):
    def test_that_are_cut_short_or_too_long(self):
        document, manifest = (self.path(f"images/alpha/{LAST}/{name}")
                              for name in (f"{LAST}.json", "manifest.json"))
        for path in (document, manifest):
            whole = path.read_bytes()
            for text in (b"", whole[:1], whole[:-1], whole + b"\n"):
                path.write_bytes(text)
                self.check_found(f"images/alpha/{LAST}")
            path.write_bytes(whole)

    def test_that_are_missing(self):
        for name in (f"images/alpha/{LAST}/{LAST}.json", f"images/alpha/{LAST}/manifest.json",
                     f"images/alpha/{LAST}/SHA256SUMS"):
            with self.subTest(name):
                whole = self.path(name).read_bytes()
                self.path(name).unlink()
                self.check_found(f"images/alpha/{LAST}")
                self.path(name).write_bytes(whole)
                self.path(name).chmod(0o600)
        shutil.rmtree(self.path(f"images/alpha/{LAST}"))
        problems = self.check_found(SET)
        self.assertIn(LAST, problems[0])

    def test_that_do_not_belong_there(self):
        strays = ["x", "images/x", "images/alpha/x", f"images/alpha/{LAST}/x", "sets/x",
                  "sets/alpha/x", "sets/alpha/Daily/x", "sets/alpha/Daily/incr/x"]
        for name in strays:
            self.path(name).write_bytes(b"")
        self.path(f"images/alpha/{LAST}/folder").mkdir()
        os.mkfifo(self.path("images/alpha/pipe"))
        self.check_found(*strays, f"images/alpha/{LAST}/folder", "images/alpha/pipe")

    def test_in_the_place_of_others(self):
        self.path(f"images/alpha/{LAST}").rename(self.path("images/alpha/other"))
        self.path("sets/alpha/Daily/full").rename(self.path("sets/alpha/Daily/other"))
        self.check_found("images/alpha/other", "sets/alpha/Daily/other", SET)


class Sets(DamageTest):
    def test_that_are_no_sets(self):
        whole = self.path(SET).read_text()
        for text in ("", "{}", "x", whole[:-3], whole.replace("archive set", "archive other"),
                     whole.replace('"version": 1', '"version": 2'),
                     whole.replace('"policy": "Daily"', '"policy": "Other"'),
                     whole.replace(f'"{LAST}"', '"alpha_1500000000"'),
                     re.sub(r'"images": \[.*?\n    \]', '"images": 1', whole, flags=re.DOTALL)):
            with self.subTest(text):
                self.path(SET).write_text(text)
                self.check_found(SET)
        self.path(SET).write_text(whole)
        self.check_verified()

    def test_are_written_anew_where_they_are_damaged(self):
        self.path(SET).write_bytes(b"damaged")
        self.check_sync()
        self.check_tree(self.model.files())


class All(DamageTest):
    def test_is_said_in_one_run(self):
        document, manifest = (f"images/alpha/{FIRST}/{FIRST}.json",
                              f"images/alpha/{SECOND}/manifest.json")
        self.path(document).write_bytes(b"{}")
        self.path(manifest).write_bytes(b"{}")
        self.path("stray").write_bytes(b"")
        shutil.rmtree(self.path(f"images/alpha/{THIRD}"))
        self.check_found(document, f"images/alpha/{SECOND}", "stray",
                         "sets/alpha/Daily/incr/1500086520.json")

    def test_is_no_hindrance_for_list_but_said(self):
        self.path(f"images/alpha/{SECOND}/manifest.json").write_bytes(b"{}")
        status, stdout, stderr = self.run_program("list", "--images", "--json", self.archive)
        self.assertEqual(status, 4)
        self.assertEqual({image["backup_id"] for image in json.loads(stdout)}, {FIRST, THIRD, LAST})
        self.assertIn(f"images/alpha/{SECOND}/manifest.json".encode(), stderr)
        self.assertEqual(stderr.count(b"\n"), 1)


if __name__ == "__main__":
    archive.main(__doc__)
