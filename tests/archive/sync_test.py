#!/usr/bin/env python3
"""What init and sync make of catalogues that nothing is wrong with."""

import json
import os
import re
import shutil
import socket
import subprocess

import archive
from archive import FIRST, LAST, SECOND, SMALL, SMALL_IDS, THIRD, lines, summary
from model import file_name, tree


class Init(archive.ArchiveTest):
    def test_makes_an_empty_archive(self):
        self.init()
        self.check_tree(self.model.archive_json())
        self.assertEqual(self.archive.stat().st_mode, 0o040700)
        self.check(["list", "--json", self.archive], stdout=b"[]\n")
        self.check_verified()

    def test_fills_a_directory_that_is_empty(self):
        self.archive.mkdir(mode=0o700)
        self.init()
        self.check_tree(self.model.archive_json())

    def test_refuses_a_directory_that_is_not(self):
        self.archive.mkdir(mode=0o700)
        (self.archive / "x").touch(mode=0o600)
        self.check(["init", self.archive], status=4, stderr=lines(f"{self.archive} is not empty"))
        self.check_tree({"x": b""})

    def test_makes_no_archive_twice(self):
        self.init()
        self.check(["init", self.archive], status=4, stderr=lines(f"{self.archive} is not empty"))
        self.check_tree(self.model.archive_json())

    def test_the_server_is_this_host(self):
        self.check(["init", self.archive])
        server = json.loads((self.archive / "archive.json").read_text())["server"]
        self.assertEqual(server, socket.gethostname())


class Sync(archive.ArchiveTest):
    def setUp(self):
        super().setUp()
        self.init()

    def test_keeps_every_image_and_set(self):
        self.check_sync(stdout=lines(*map(self.exported, SMALL_IDS), summary(4, written=4)))
        self.check_tree(self.model.files())
        self.check_verified()

    def test_changes_nothing_when_nothing_is_new(self):
        self.check_sync()
        before = self.stamps()
        self.check_sync(stdout=lines(summary()))
        self.assertEqual(self.stamps(), before)

    def stamps(self):
        """Which files and folders there are, and when each changed."""
        return {path: (path.lstat().st_ino, path.lstat().st_mtime_ns)
                for name in ("archive.json", "images", "sets")
                for path in [self.archive / name, *(self.archive / name).rglob("*")]}

    def test_exports_several_images_at_a_time(self):
        status, stdout, stderr = self.run_program("sync", "--jobs", "3", self.archive)
        self.assertEqual((status, sorted(stdout.splitlines(True)), stderr), (0, sorted(
            lines(*map(self.exported, SMALL_IDS), summary(4, written=4)).splitlines(True)), b""))
        self.check_tree(self.model.files())

    def test_exports_an_image_again_that_was_removed(self):
        self.check_sync()
        shutil.rmtree(self.archive / "images/alpha" / SECOND)
        self.check_sync(stdout=lines(self.exported(SECOND), summary(1)))
        self.check_tree(self.model.files())

    def test_says_nothing_when_quiet(self):
        self.check_sync("--quiet", stdout=b"")
        self.check_tree(self.model.files())

    def test_a_dry_run_changes_nothing(self):
        self.check_sync("--dry-run", stdout=lines(
            *(f"{backup_id}: would be exported" for backup_id in SMALL_IDS), "4 to export"))
        self.check_tree(self.model.archive_json())

    def test_a_limit_takes_the_newest(self):
        self.check_sync("--limit", "1",
                        stdout=lines(self.exported(LAST), summary(1, written=1, waiting=3)))
        self.check_tree(self.model.files(without=(FIRST, SECOND, THIRD)))

    def test_an_image_is_skipped(self):
        self.check_sync("--skip", THIRD, "--skip", LAST, stdout=lines(
            self.exported(SECOND), self.exported(FIRST), summary(2, written=2, waiting=2)))
        self.check_tree(self.model.files(without=(THIRD, LAST)))

    def test_old_images_are_left_out(self):
        self.check_sync("--newer-than", "30d", stdout=lines(summary(waiting=4)))
        self.check_tree(self.model.archive_json())
        self.check_sync("--newer-than", "999999d")
        self.check_tree(self.model.files())

    def test_runs_where_the_archive_is_named_by_a_relative_path_or_a_link(self):
        (self.folder / "link").symlink_to("archive")
        self.check(["sync", "--quiet", "--limit", "2", "archive"])
        self.check(["sync", "--quiet", "link/"])
        self.check_tree(self.model.files())


class CompressedDocuments(archive.ArchiveTest):
    def test_are_those_that_quillmere_writes(self):
        self.init("--compress", "3")
        self.check_sync()
        self.check_verified()
        found = sorted((self.archive / "images").glob("*/*/*.zst"))
        self.assertEqual([path.name for path in found],
                         [f"{backup_id}.json.zst" for backup_id in sorted(SMALL_IDS)])
        for path in found:
            plain = subprocess.run(["zstd", "-dc", path], check=True, capture_output=True).stdout
            self.assertEqual(plain, self.model.document(path.name.removesuffix(".json.zst")))
            document = json.loads((path.parent / "manifest.json").read_text())["document"]
            self.assertEqual((document["file"], document["bytes"], document["stored_bytes"]),
                             (path.name, len(plain), path.stat().st_size))


class SeriesWithParents(archive.ArchiveTest):
    """Each policy has two images in every second night, and a parent image."""

    CATALOGUE = {"seed": 5, "clients": 2, "policies": 2, "nights": 3, "newest_first": True}

    def setUp(self):
        super().setUp()
        self.init()

    def parents(self):
        return [image for image in self.model.product().images() if image.files == 0]

    def test_keeps_no_parent_image(self):
        self.check_sync()
        self.check_tree(self.model.files())
        self.assertEqual(len(self.parents()), 12)

    def test_a_set_gains_members_while_its_night_goes_on(self):
        # Of the two images of the second night, the later one is still to come.
        late = "alpha_1500172980"
        images = [image.backup_id for image in self.model.product().images()]
        late = [one.image_ids for one in self.model.product().sets() if len(one.image_ids) == 2][0][0]
        self.assertIn(late, images)
        self.faults(f"qvmeta {late} forget")
        subprocess.run([self.root / "bin/admincmd/qvmeta", "-json", "-backupid", late], check=False,
                       capture_output=True)
        self.check_sync()
        self.check_tree(self.model.files())
        self.faults()
        self.check_sync(stdout=lines(self.exported(late), summary(1, written=1)))
        self.check_tree(self.model.files())

    def test_a_parent_that_expires_joins_two_sets(self):
        self.check_sync()
        sets = tree(self.archive)
        # Of three nights, newest first, the second one's: what it closed comes to the first one's.
        parent = [image for image in self.parents()
                  if (image.client, image.policy) == ("alpha", "Weekly-FS")][1]
        listing = self.root / "db/listing"
        rows = listing.read_bytes()
        row = re.search(rb"^%s .*\n" % parent.backup_id.encode(), rows, re.MULTILINE)[0]
        listing.write_bytes(rows.replace(row, b""))
        expected = self.model.files()
        self.assertLess(len([path for path in expected if path.startswith("sets/")]),
                        len([path for path in sets if path.startswith("sets/")]))
        self.check_sync(stdout=lines(summary(written=1, removed=1)))
        self.check_tree(expected)
        self.check_verified()

    def test_what_the_product_has_no_more_stays(self):
        self.check_sync()
        kept = self.model.files()
        self.catalogue(**SMALL, odd_names=True)
        self.check_sync()
        self.check_tree(self.model.files() | kept)

    def test_filters_choose_images_and_the_sets_of_their_series(self):
        self.check_sync("--client", "db.prod.example", "--client", "nobody", "--policy", "Daily")
        self.assertEqual({(path.split("/")[1]) for path in tree(self.archive) if "/" in path},
                         {"db.prod.example"})
        self.check_sync("--schedule", "incr")
        self.check_sync()
        self.check_tree(self.model.files())


class OddNames(archive.ArchiveTest):
    CATALOGUE = {"seed": 4, "clients": 25, "policies": 5, "nights": 1, "odd_names": True,
                 "entries": 2}

    def test_are_kept_as_any_other_and_run_nothing(self):
        self.init()
        self.check_sync("--quiet", stdout=b"")
        self.check_tree(self.model.files())
        self.check_verified()
        self.assertEqual(os.listdir(self.folder), ["archive"])
        names = {image.client for image in self.model.product().images()}
        self.assertLessEqual({"archive.json", "..", "a/b", "L" * 240, "my"}, names)
        self.assertEqual(file_name(".."), "%2E.")
        self.assertEqual(len(file_name("L" * 240)), 165)

    def test_reach_the_filters_as_they_are(self):
        self.init()
        self.check_sync("--quiet", "--client", "$(touch${IFS}run-by-a-name)", "--policy", "$HOME",
                        stdout=b"")
        found = [path for path in tree(self.archive) if path.endswith("manifest.json")]
        self.assertEqual([path.split("/")[1] for path in found],
                         ["%24%28touch%24%7BIFS%7Drun-by-a-name%29"] * 2)
        self.assertEqual(os.listdir(self.folder), ["archive"])

    def test_show_no_control_characters_on_a_terminal_or_in_a_journal(self):
        self.init()
        stdout = self.run_program("sync", "--jobs", "1", self.archive)[1]
        self.assertEqual(re.findall(rb"[\x00-\x09\x0b-\x1f\x7f]", stdout), [])
        self.assertIn(rb"bell\x07\x7F\x1B[31m_", stdout)


class Listing(archive.ArchiveTest):
    def test_without_images_leaves_an_empty_archive(self):
        self.init()
        (self.root / "db/listing").write_bytes(b"")
        (self.root / "bin/admincmd/qvroll").unlink()
        (self.root / "bin/admincmd/qvroll").write_text("#!/bin/sh\n")
        (self.root / "bin/admincmd/qvroll").chmod(0o755)
        self.check_sync(stdout=lines(summary()))
        self.check_tree(self.model.archive_json())


if __name__ == "__main__":
    archive.main(__doc__)
