#!/usr/bin/env python3
"""The product fails the archive: commands that are gone, fail, are killed, hang, complain or stop
half-way, images that expire in mid-run, and a listing that cannot be had."""

import re
import time

import archive
from archive import FIRST, LAST, SECOND, SMALL_IDS, THIRD, lines, summary

COMPLAINT = "licence expires in 12 days"
COMMANDS = ("qvmeta", "qvroll-id", "rec_unfold")


class CommandTest(archive.ArchiveTest):
    def setUp(self):
        super().setUp()
        self.init()

    def check_failed(self, reason, *options, more=()):
        """A sync whose second image fails for this reason, behind the lines `more` about it: the others
        are there, and the next sync has it, too."""
        others = [self.exported(backup_id) for backup_id in (LAST, SECOND, FIRST)]
        self.check_sync(
            *options, status=1, stdout=lines(*others, summary(
                3, failed=1, warnings=len(more), written=3, waiting=1)),
            stderr=lines(*(f"{THIRD}: {text}" for text in (*more, f"failed: {reason}"))))
        self.check_tree(self.model.files(without=[THIRD]))
        self.faults()
        self.check_sync(stdout=lines(self.exported(THIRD), summary(1, written=1)))
        self.check_tree(self.model.files())

    def check_nothing_done(self, reason, before=(), *options):
        """A sync that gets no listing, on an empty archive and on one with images."""
        self.check_sync(*options, status=3, stdout=b"",
                        stderr=lines(*before, f"the listing failed: {reason}"))
        self.check_tree(self.model.archive_json())


class CommandOfAnImage(CommandTest):
    def test_ends_with_another_status_than_0(self):
        for command in COMMANDS:
            with self.subTest(command):
                self.setUp()
                self.faults(f"{command} {THIRD} fail")
                name = command.removesuffix("-id")
                self.check_failed(f"{name} ended with status 1")

    def test_is_killed(self):
        for command in COMMANDS:
            with self.subTest(command):
                self.setUp()
                self.faults(f"{command} {THIRD} kill")
                name = command.removesuffix("-id")
                # It is the shell that sees the end of the command.
                self.check_failed(f"{name} ended with status 137", more=["Killed"])

    def test_hangs(self):
        for command in COMMANDS:
            with self.subTest(command):
                self.setUp()
                self.faults(f"{command} {THIRD} hang")
                name = command.removesuffix("-id")
                self.check_failed(f"{name} printed nothing for 5s", "--timeout", "5s")

    def test_is_slow_but_not_silent_for_so_long(self):
        self.faults("* * slow 300")
        self.check_sync("--timeout", "5s", "--limit", "2")
        self.check_tree(self.model.files(without=[SECOND, FIRST]))

    def test_prints_metadata_that_are_no_json(self):
        self.faults(f"qvmeta {THIRD} stop")
        status, stdout, stderr = self.run_program("sync", "--jobs", "1", self.archive)
        self.assertEqual((status, stdout), (1, lines(
            *(self.exported(backup_id) for backup_id in (LAST, SECOND, FIRST)),
            summary(3, failed=1, written=3, waiting=1))))
        self.assertRegex(stderr.decode(), rf"\A{THIRD}: failed: [^\n]*: expected [^\n]*\n\Z")
        self.check_tree(self.model.files(without=[THIRD]))

    def test_does_not_say_where_the_entries_are(self):
        self.faults(f"qvroll-id {THIRD} stop")
        self.check_failed(
            "parse output of qvrolle failed. output lines is not the same as expected.")

    def test_prints_fewer_entries_than_are_listed(self):
        self.faults(f"rec_unfold {THIRD} stop")
        whole = self.model.document(THIRD)
        status, stdout, stderr = self.run_program("sync", "--jobs", "1", self.archive)
        kept = (self.archive / "images/alpha" / THIRD / f"{THIRD}.json").read_bytes()
        self.assertEqual((status, stderr), (0, lines(f"{THIRD}: 3 entries, but 6 files listed")))
        self.assertEqual(stdout, lines(
            self.exported(LAST), self.exported(THIRD, kept), self.exported(SECOND),
            self.exported(FIRST), summary(4, warnings=1, written=4)))
        # The first three entries, whole.
        self.assertEqual(kept, whole[:whole.index(b',\n        {\n            "filenum": "4"')]
                         + b"\n    ]\n}\n")
        third = next(image for image in self.model.product().images() if image.backup_id == THIRD)
        self.check_tree(self.model.files() | self.model.image_files(third, document=kept))

    def test_is_gone(self):
        command = self.root / "bin/rec_unfold"
        content = command.read_bytes()
        command.unlink()
        missing = f"sh: 1: {command}: not found"
        self.check_sync(status=1, stdout=lines(summary(failed=4, warnings=4, waiting=4)), stderr=lines(*(
            f"{backup_id}: {text}" for backup_id in SMALL_IDS
            for text in (missing, "failed: rec_unfold ended with status 127"))))
        self.check_tree(self.model.archive_json())
        command.write_bytes(content)
        command.chmod(0o644)
        refused = f"sh: 1: {command}: Permission denied"
        self.check_sync("--limit", "1", status=1, stdout=lines(summary(failed=1, warnings=1, waiting=4)),
                        stderr=lines(*(f"{LAST}: {text}" for text in (
                            refused, "failed: rec_unfold ended with status 126"))))
        command.chmod(0o755)
        self.check_sync()
        self.check_tree(self.model.files())


class Complaints(CommandTest):
    def test_of_commands_are_passed_on_and_kept_and_change_nothing(self):
        self.faults(*(f"{command} * complain {COMPLAINT}" for command in COMMANDS))
        self.check_sync(
            stdout=lines(*map(self.exported, SMALL_IDS), summary(4, warnings=12, written=4)),
            stderr=lines(*(f"{backup_id}: {COMPLAINT}"
                           for backup_id in SMALL_IDS for _ in COMMANDS)))
        kept = {command: [COMPLAINT] for command in ("qvmeta", "qvroll", "rec_unfold")}
        self.faults()
        self.check_tree(self.model.files(complaints=kept))
        self.check_verified()

    def test_of_one_command_are_kept_as_its(self):
        self.faults(f"rec_unfold {FIRST} complain one", f"rec_unfold {FIRST} complain two")
        self.check_sync("--quiet", stdout=b"", stderr=lines(f"{FIRST}: one", f"{FIRST}: two"))
        self.faults()
        first = next(image for image in self.model.product().images() if image.backup_id == FIRST)
        self.check_tree(self.model.files() | self.model.image_files(
            first, complaints={"rec_unfold": ["one", "two"]}))

    def test_of_the_listing_are_passed_on(self):
        self.faults(f"qvroll * complain {COMPLAINT}")
        status, _, stderr = self.run_program("sync", self.archive)
        self.assertEqual((status, stderr), (0, lines(COMPLAINT)))

    def test_of_a_command_that_fails_stand_before_the_failure(self):
        self.faults(f"qvmeta {THIRD} complain {COMPLAINT}", f"qvmeta {THIRD} fail")
        self.check_failed("qvmeta ended with status 1", more=[COMPLAINT])


class Expired(CommandTest):
    def test_in_mid_run_is_no_failure(self):
        for command in COMMANDS[:2]:
            with self.subTest(command):
                self.setUp()
                self.faults(f"{command} {THIRD} forget")
                name = command.removesuffix("-id")
                # That it had expired is known at the end.
                self.check_sync(stdout=lines(
                    *(self.exported(backup_id) for backup_id in (LAST, SECOND, FIRST)),
                    f"{THIRD}: expired", summary(3, expired=1, warnings=1, written=3)),
                    stderr=lines(f"{THIRD}: {name}: no such image",
                                 f"{THIRD}: failed: {name} ended with status 1"))
                self.check_tree(self.model.files())

    def test_beside_a_failure_leaves_the_failure(self):
        self.faults(f"qvmeta {THIRD} forget", f"rec_unfold {FIRST} fail")
        self.check_sync(status=1, stdout=lines(
            self.exported(LAST), self.exported(SECOND), f"{THIRD}: expired",
            summary(2, failed=1, expired=1, warnings=1, written=2, waiting=1)),
            stderr=lines(f"{THIRD}: qvmeta: no such image",
                         f"{THIRD}: failed: qvmeta ended with status 1",
                         f"{FIRST}: failed: rec_unfold ended with status 1"))
        self.check_tree(self.model.files(without=[FIRST]))


class TheListing(CommandTest):
    def test_ends_with_another_status_than_0(self):
        self.faults("qvroll * fail")
        self.check_nothing_done("qvroll ended with status 1")

    def test_is_killed(self):
        self.faults("qvroll * kill")
        self.check_nothing_done("qvroll ended with status 137", ["Killed"])

    def test_hangs(self):
        self.faults("qvroll * hang")
        self.check_nothing_done("qvroll printed nothing for 5s", (), "--timeout", "5s")

    def test_is_of_a_product_that_is_gone(self):
        command = self.root / "bin/admincmd/qvroll"
        command.unlink()
        self.check_nothing_done("qvroll ended with status 127", [f"sh: 1: {command}: not found"])

    def test_is_of_a_command_that_cannot_be_run(self):
        command = self.root / "bin/admincmd/qvroll"
        command.chmod(0o644)
        self.check_nothing_done("qvroll ended with status 126",
                                [f"sh: 1: {command}: Permission denied"])

    def test_has_no_header(self):
        listing = self.root / "db/listing"
        listing.write_bytes(listing.read_bytes().replace(b"Backupid", b"Backup-id"))
        self.check_nothing_done("parse output of qvroll failed. expecting \"Backupid \"")

    def test_has_a_row_that_is_none(self):
        listing = self.root / "db/listing"
        listing.write_bytes(listing.read_bytes() + b"total 4\n")
        self.check_nothing_done("invalid backup id: total. no '_' found.")

    def test_leaves_what_is_there(self):
        self.check_sync()
        expected = self.model.files()
        self.faults("qvroll * fail")
        self.check_sync(status=3, stdout=b"",
                        stderr=lines("the listing failed: qvroll ended with status 1"))
        self.faults()
        self.check_tree(expected)


if __name__ == "__main__":
    archive.main(__doc__)
