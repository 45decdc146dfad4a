#!/usr/bin/env python3
"""Archives that are none: missing, foreign, newer, read-only, with links in them, or taken."""

import json
import os
import pathlib
import shutil
import subprocess
import time

import archive
from archive import LAST, SMALL_IDS, THIRD, lines, summary
from model import tree


class Place(archive.ArchiveTest):
    def check_refused(self, message, place=None, commands=("sync", "list", "verify")):
        """Every command ends with status 4 and this line, and changes nothing."""
        place = place or self.archive
        before = self.everything()
        for command in commands:
            self.check([command, place], status=4, stderr=lines(message))
        self.assertEqual(self.everything(), before)

    def everything(self):
        """All that is below the test's folder but locks, with links as what they are."""
        return {str(path): os.readlink(path) if path.is_symlink() else path.lstat().st_mode
                if not path.is_file() else path.read_bytes()
                for path in sorted(self.folder.rglob("*")) if path.name != ".lock"}


class NoArchive(Place):
    def test_a_directory_that_is_missing(self):
        self.check_refused(f"can't open {self.archive}: No such file or directory")

    def test_a_file(self):
        self.archive.write_bytes(b"")
        self.check_refused(f"can't open {self.archive}: Not a directory")

    def test_a_directory_without_the_file_that_makes_one(self):
        # As a mount point is while nothing is mounted.
        self.archive.mkdir()
        self.check_refused(f"{self.archive}/archive.json: no such file; "
                           "quillmere-archive init makes an archive")

    def test_archive_json_of_another_program(self):
        self.archive.mkdir()
        for wrong, texts in {
                "not JSON": ("", "x", '{"format": "quillmere-archive"', "[" * 100000),
                "not of quillmere-archive": ("{}", "[]", '{"format": "other", "version": 1}',
                                             '{"version": 1}',
                                             '{"format": "quillmere-archive image", "version": 1}'),
                "version is missing or wrong": ('{"format": "quillmere-archive"}',
                                                '{"format": "quillmere-archive", "version": "1"}',
                                                '{"format": "quillmere-archive", "version": 0}'),
        }.items():
            for text in texts:
                with self.subTest(text[:60]):
                    (self.archive / "archive.json").write_text(text)
                    self.check_refused(f"{self.archive}/archive.json: {wrong}")

    def test_archive_json_of_a_newer_version(self):
        self.init()
        path = self.archive / "archive.json"
        path.write_text(path.read_text().replace('"version": 1', '"version": 2'))
        self.check_refused(f"{path}: format version 2 is newer than this program")

    def test_archive_json_with_keys_of_a_later_program_is_taken(self):
        self.init()
        path = self.archive / "archive.json"
        path.write_text(json.dumps({"later": [1], **json.loads(path.read_text()), "more": {}}))
        self.check_sync()
        self.check(["verify", self.archive], stdout=self.run_program("verify", self.archive)[1])


class Links(Place):
    """A link inside an archive is never followed, wherever it leads."""

    def setUp(self):
        super().setUp()
        self.init()
        self.elsewhere = self.folder / "elsewhere"
        self.elsewhere.mkdir()

    def move(self, name):
        """Puts a link to it in the place of what is there; makes it, where nothing is."""
        path = self.archive / name
        target = self.elsewhere / "target"
        if path.exists():
            path.rename(target)
        else:
            target.mkdir()
        path.symlink_to(target)
        return path

    def check_sync_refused(self, name):
        before = self.everything()
        status, stdout, stderr = self.run_program("sync", "--jobs", "1", self.archive)
        self.assertIn(status, (1, 4), stdout)
        self.assertIn(os.fsencode(self.archive / name), stderr)
        self.assertEqual({path: value for path, value in self.everything().items()
                          if "/elsewhere" in path},
                         {path: value for path, value in before.items() if "/elsewhere" in path})
        self.assertTrue((self.archive / name).is_symlink())

    def test_archive_json(self):
        path = self.move("archive.json")
        before = self.everything()
        for command in ("sync", "list", "verify"):
            status, stdout, stderr = self.run_program(command, self.archive)
            self.assertEqual((status, stdout), (4, b""))
            self.assertIn(os.fsencode(path), stderr)
        self.assertEqual(self.everything(), before)

    def test_folders_on_the_way_to_a_new_image(self):
        for name in ("images", "images/alpha"):
            with self.subTest(name):
                shutil.rmtree(self.archive)
                shutil.rmtree(self.elsewhere)
                self.elsewhere.mkdir()
                self.init()
                (self.archive / name).parent.mkdir(mode=0o700, exist_ok=True)
                self.move(name)
                self.check_sync_refused(name)

    def test_folders_on_the_way_to_a_new_set(self):
        for name in ("sets", "sets/alpha", "sets/alpha/Daily", "sets/alpha/Daily/incr"):
            with self.subTest(name):
                shutil.rmtree(self.archive)
                shutil.rmtree(self.elsewhere)
                self.elsewhere.mkdir()
                self.init()
                (self.archive / name).parent.mkdir(mode=0o700, parents=True, exist_ok=True)
                self.move(name)
                self.check_sync_refused(name)

    def test_the_staging_folder_and_the_lock(self):
        for name in (".staging", ".lock"):
            with self.subTest(name):
                shutil.rmtree(self.archive)
                shutil.rmtree(self.elsewhere)
                self.elsewhere.mkdir()
                (self.elsewhere / "kept").write_bytes(b"kept")
                self.init()
                if name == ".lock":
                    (self.archive / name).unlink(missing_ok=True)
                    (self.archive / name).symlink_to(self.elsewhere / "lock")
                else:
                    (self.archive / name).rmdir()
                    (self.archive / name).symlink_to(self.elsewhere)
                self.check_sync_refused(name)

    def test_what_is_kept_is_found_by_verify(self):
        self.check_sync()
        for name in (f"images/alpha/{LAST}", f"images/alpha/{LAST}/manifest.json",
                     f"images/alpha/{LAST}/{LAST}.json", f"images/alpha/{LAST}/SHA256SUMS",
                     "images/alpha", "sets/alpha/Daily/incr/1500172860.json", "sets/alpha"):
            with self.subTest(name):
                shutil.rmtree(self.elsewhere)
                self.elsewhere.mkdir()
                path = self.move(name)
                status, stdout, stderr = self.run_program("verify", self.archive)
                path.unlink()
                (self.elsewhere / "target").rename(path)
                self.assertEqual((status, stderr), (1, b""))
                self.assertRegex(stdout.decode(), rf"(?m)^(.*/)?{name}(: .*| is a symbolic link)$")
        self.check_verified()


class ReadOnly(Place):
    def setUp(self):
        super().setUp()
        self.init()
        self.check_sync("--limit", "1")
        self.expected = tree(self.archive)
        subprocess.run(["mount", "--bind", self.archive, self.archive], check=True)
        self.addCleanup(subprocess.run, ["umount", self.archive], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", self.archive], check=True)

    def test_cannot_be_synced(self):
        status, stdout, stderr = self.run_program("sync", self.archive)
        self.assertEqual((status, stdout), (4, b""))
        self.assertEqual(stderr, lines(f"can't lock {self.archive}/.lock: Read-only file system"))
        self.check_tree(self.expected)

    def test_can_be_read(self):
        self.check_verified()
        self.assertEqual(self.run_program("list", self.archive)[0], 0)


class Taken(Place):
    def setUp(self):
        super().setUp()
        self.init()
        self.faults("qvmeta * slow 700")

    def wait_until_at_work(self):
        end = time.monotonic() + archive.TIMEOUT
        while not any((self.archive / ".staging").glob("*")):
            self.assertLess(time.monotonic(), end)
            time.sleep(0.005)

    def test_by_another_sync(self):
        first = self.start(["sync", "--jobs", "1", "--limit", "1", self.archive])
        self.wait_until_at_work()
        self.check(["sync", self.archive], status=75,
                   stderr=lines(f"another sync or prune works on {self.archive}"))
        # Readers take no lock.
        self.assertEqual(self.run_program("list", self.archive)[0], 0)
        self.assertEqual(self.run_program("verify", self.archive)[0], 0)
        stdout, stderr = first.communicate(timeout=archive.TIMEOUT)
        self.assertEqual((first.returncode, stdout, stderr), (0, lines(
            self.exported(LAST), summary(1, written=1, waiting=3)), b""))
        self.faults()
        self.check_sync()
        self.check_tree(self.model.files())

    def test_until_the_sync_is_killed(self):
        first = self.start(["sync", "--jobs", "1", self.archive])
        self.wait_until_at_work()
        first.kill()
        first.wait()
        self.faults()
        self.check_sync(stdout=lines(*map(self.exported, SMALL_IDS), summary(4, written=4)))
        self.wait_for_end_of_session(first)
        self.check_tree(self.model.files())


if __name__ == "__main__":
    archive.main(__doc__)
