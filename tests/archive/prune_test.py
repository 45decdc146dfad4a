#!/usr/bin/env python3
"""What prune removes and leaves: also when it is killed, interrupted, or has no room for what it writes,
and what a sync makes of an archive that was pruned."""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import archive
from archive import LAST, SECOND, THIRD, lines, summary
from jsonschema import Draft202012Validator
from model import tree

KILLS = int(os.environ.get("QUILLMERE_ARCHIVE_KILLS", "20"))
FIRST_NIGHT, NIGHT = 1500000000, 86400  # seconds
SCHEMA = pathlib.Path(__file__).resolve().parents[2] / "schemas/manifest.schema.json"


class PruneTest(archive.ArchiveTest):
    BEFORE = FIRST_NIGHT + 2 * NIGHT - NIGHT // 2  # what goes is of the first two nights, at most

    def setUp(self):
        super().setUp()
        self.init()
        self.check_sync("--quiet", stdout=b"")

    def prune(self):
        """The arguments of a prune of what is of a time before that."""
        age = int(time.time()) - self.BEFORE
        return ["prune", "--older-than", f"{age}s", "--force", self.archive]

    def check_pruned(self):
        """Prunes, whatever is left to be."""
        status, stdout, stderr = self.run_program(*self.prune())
        self.assertEqual((status, stderr), (0, b""), stdout)
        self.check_is_pruned()

    def check_is_pruned(self):
        self.check_tree(self.model.pruned_files(self.BEFORE)[0])
        self.assertEqual(list((self.archive / ".staging").glob("*")), [])
        self.check_verified()


class Nights(PruneTest):
    """Two clients, with and without parent images."""

    CATALOGUE = {"seed": 5, "clients": 2, "policies": 3, "nights": 11}
    BEFORE = FIRST_NIGHT + 9 * NIGHT - NIGHT // 2

    def test_what_is_old_goes_and_is_not_fetched_again(self):
        whole = tree(self.archive)
        gone = self.model.pruned_files(self.BEFORE)[1]
        self.assertGreater(len(gone), 5)
        self.check_pruned()
        after = tree(self.archive)
        self.check_sync(stdout=lines(summary()))
        self.check_tree(after)
        self.check_sync("--quiet", "--again", stdout=b"")
        self.assertEqual(list(self.archive.glob("pruned/*/*")), [])
        shutil.rmtree(self.archive / "pruned")
        self.check_tree(whole)

    def test_the_last_sets_of_each_series_stay(self):
        arguments = self.prune()
        status, _, stderr = self.run_program(*arguments[:-1], "--keep-last", "4", arguments[-1])
        self.assertEqual((status, stderr), (0, b""))
        files, gone = self.model.pruned_files(self.BEFORE, keep_last=4)
        self.assertGreater(len(gone), 0)
        self.assertLess(len(gone), len(self.model.pruned_files(self.BEFORE)[1]))
        self.check_tree(files)

    def test_what_was_pruned_is_said_and_nothing_else(self):
        gone = self.model.pruned_files(self.BEFORE)[1]
        before = tree(self.archive)
        _, stdout, _ = self.run_program(*self.prune())
        after = tree(self.archive)
        sets = [path for path in before if path.startswith("sets/") and path not in after]
        size = sum(len(data) for path, data in before.items() if path not in after and re.fullmatch(
            r"images/.*/.*_\d+\.json", path))
        *found, planned, done = stdout.decode().splitlines()
        self.assertEqual(sorted(line.split(": of ")[0] for line in found), sorted(sets + gone))
        self.assertEqual((planned, done), tuple(
            f"{len(sets)} sets, {len(gone)} images, {size} bytes {what}"
            for what in ("to remove", "removed")))

    def test_marks_and_manifests_are_what_the_schema_says(self):
        self.check_pruned()
        validator = Draft202012Validator(json.loads(SCHEMA.read_text()))
        marks = [json.loads(path.read_text()) for path in self.archive.glob("pruned/*/*.json")]
        manifests = [json.loads(path.read_text())
                     for path in self.archive.glob("images/*/*/manifest.json")]
        self.assertTrue(marks and manifests)
        for document in marks + manifests:
            validator.validate(document)
        for wrong in ({"pruned": "x"}, {"pruned": None}, {"pruned_utc": "yesterday"},
                      {"pruned_utc": 1}):
            self.assertFalse(validator.is_valid(marks[0] | wrong), wrong)
        for key in ("pruned", "pruned_utc"):
            one = dict(marks[0])
            del one[key]
            self.assertFalse(validator.is_valid(one), key)


class Ended(PruneTest):
    CATALOGUE = {"seed": 6, "clients": 3, "policies": 3, "nights": 4, "entries": 2}
    BEFORE = FIRST_NIGHT + 3 * NIGHT - NIGHT // 2

    def setUp(self):
        super().setUp()
        self.copy = self.folder / "copy"
        subprocess.run(["cp", "-a", self.archive, self.copy], check=True)

    def images(self):
        return {path for path in tree(self.archive) if path.startswith("images/")}

    def restore(self):
        shutil.rmtree(self.archive)
        subprocess.run(["cp", "-a", self.copy, self.archive], check=True)

    def check_ended_at_any_time(self, number_of_signal):
        """Ends a prune at points in time, and returns what their statuses were."""
        self.restore()
        start = time.monotonic()
        self.assertEqual(self.run_program(*self.prune())[0], 0)
        whole = time.monotonic() - start
        self.check_is_pruned()
        statuses = set()
        for number in range(KILLS):
            with self.subTest(number):
                self.restore()
                process = self.start(self.prune())
                time.sleep(whole * (number + 0.5) / KILLS)
                process.send_signal(number_of_signal)
                process.communicate()
                statuses.add(process.returncode)
                self.check_verified()
                if number % 2:
                    # Between the two runs, as every night.
                    images = self.images()
                    self.check_sync("--quiet", stdout=b"")
                    self.assertEqual(self.images(), images)
                    self.check_verified()
                self.check_pruned()
        return statuses

    def test_by_a_kill_at_any_time_the_next_one_finishes(self):
        self.assertIn(-signal.SIGKILL, self.check_ended_at_any_time(signal.SIGKILL))

    def test_by_a_signal_between_two_images_the_next_one_finishes(self):
        # Before it begins to remove anything, a signal ends it as any program.
        statuses = self.check_ended_at_any_time(signal.SIGTERM)
        self.assertLessEqual(statuses, {0, -signal.SIGTERM, 128 + signal.SIGTERM})


class FullDisk(PruneTest):
    def init(self, *options):
        self.archive.mkdir(mode=0o700)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "nr_inodes=1000,mode=700", "tmpfs",
                        self.archive], check=True)
        self.addCleanup(subprocess.run, ["umount", self.archive], check=True)
        super().init(*options)

    def remount(self, inodes):
        subprocess.run(["mount", "-o", f"remount,nr_inodes={inodes}", self.archive], check=True)

    def test_an_image_without_room_for_its_mark_stays(self):
        copy = self.folder / "copy"
        subprocess.run(["cp", "-a", self.archive, copy], check=True)
        short = 0
        for room in range(10):
            with self.subTest(room):
                used = os.statvfs(self.archive)
                self.remount(used.f_files - used.f_ffree + room)
                status, _, stderr = self.run_program(*self.prune())
                if status == 0:
                    break
                short += 1
                self.assertEqual(status, 1)
                self.assertRegex(stderr.decode(), rf"\A(({SECOND}|{THIRD}): not removed: can't (make|"
                                 rf"write) {self.archive}/[^\n]*: No space left on device\n){{2}}\Z")
                self.assertTrue((self.archive / "images/alpha" / SECOND).is_dir())
                self.check_verified()
                self.remount(1000)
                self.check_pruned()
                for path in self.archive.iterdir():
                    (shutil.rmtree if path.is_dir() else os.unlink)(path)
                subprocess.run(["cp", "-a", f"{copy}/.", self.archive], check=True)
        self.assertEqual(status, 0)
        self.assertGreater(short, 0)
        self.check_is_pruned()


class ReadOnly(PruneTest):
    def test_can_be_planned_for(self):
        expected = tree(self.archive)
        subprocess.run(["mount", "--bind", self.archive, self.archive], check=True)
        self.addCleanup(subprocess.run, ["umount", self.archive], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", self.archive], check=True)
        self.check(self.prune(), status=4,
                   stderr=lines(f"can't lock {self.archive}/.lock: Read-only file system"))
        status, stdout, stderr = self.run_program(*self.prune(), "--dry-run")
        self.assertEqual((status, stderr), (0, b""))
        self.assertRegex(stdout.decode(), rf"\n{SECOND}: of [^\n]*\n{THIRD}: of [^\n]*\n"
                         r"2 sets, 2 images, \d+ bytes to remove\n\Z")
        self.check_tree(expected)


class TwoAtOnce(PruneTest):
    def test_of_two_one_does_the_work(self):
        for _ in range(5):
            both = [self.start(self.prune()) for _ in range(2)]
            ends = []
            for process in both:
                _, stderr = process.communicate(timeout=archive.TIMEOUT)
                ends.append((process.returncode, stderr))
            refused = (75, lines(f"another sync or prune works on {self.archive}"))
            self.assertIn((0, b""), ends)
            self.assertLessEqual(set(ends), {(0, b""), refused})
            self.check_is_pruned()
            self.check_sync("--quiet", "--again", stdout=b"")

    def test_a_sync_at_work_is_not_disturbed(self):
        shutil.rmtree(self.archive / "images/alpha" / LAST)
        self.faults("qvmeta * slow 700")
        first = self.start(["sync", "--jobs", "1", "--quiet", self.archive])
        end = time.monotonic() + archive.TIMEOUT
        while not any((self.archive / ".staging").glob("*")):
            self.assertLess(time.monotonic(), end)
            time.sleep(0.005)
        self.check(self.prune(), status=75,
                   stderr=lines(f"another sync or prune works on {self.archive}"))
        self.assertEqual(first.communicate(timeout=archive.TIMEOUT), (b"", b""))
        self.assertEqual(first.returncode, 0)
        self.faults()
        self.check_tree(self.model.files())


class Links(PruneTest):
    def test_are_never_followed(self):
        elsewhere = self.folder / "elsewhere"
        for name in (f"images/alpha/{SECOND}", "images/alpha", "images", "sets/alpha/Daily/full",
                     "sets", ".staging", "pruned"):
            with self.subTest(name):
                path = self.archive / name
                if path.exists():
                    path.rename(elsewhere)
                else:
                    elsewhere.mkdir()
                path.symlink_to(elsewhere)
                before = sorted(elsewhere.rglob("*"))
                status, _, stderr = self.run_program(*self.prune())
                self.assertIn(status, (1, 4))
                self.assertIn(os.fsencode(path), stderr)
                self.assertEqual(sorted(elsewhere.rglob("*")), before)
                path.unlink()
                elsewhere.rename(path)
                # Some of them are found only when the sets are gone.
                self.check_sync("--quiet", stdout=b"")
                self.assertTrue((self.archive / "images/alpha" / SECOND).is_dir())

    def test_inside_an_image_go_with_it(self):
        elsewhere = self.folder / "elsewhere"
        elsewhere.mkdir()
        (elsewhere / "kept").write_bytes(b"kept")
        (self.archive / "images/alpha" / SECOND / "link").symlink_to(elsewhere)
        self.check_pruned()
        self.assertEqual((elsewhere / "kept").read_bytes(), b"kept")


class OddNames(PruneTest):
    CATALOGUE = {"seed": 4, "clients": 25, "policies": 2, "nights": 3, "odd_names": True,
                 "entries": 2}

    def test_are_pruned_as_any_other(self):
        self.check_pruned()
        self.check_sync("--quiet", stdout=b"")
        self.check_is_pruned()
        self.check_sync("--quiet", "--again", stdout=b"")
        self.assertEqual(list(self.archive.glob("pruned/*/*")), [])
        shutil.rmtree(self.archive / "pruned")
        self.check_tree(self.model.files())


if __name__ == "__main__":
    archive.main(__doc__)
