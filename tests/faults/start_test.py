#!/usr/bin/env python3
"""No descriptor and no process: each place at which a command is started or a file is opened."""

import resource
import subprocess
import sys

import faults
from faults import FIRST, IMAGE, LIST, LISTING, LOOKUP, METADATA, ENTRY, SECOND, SET, SET_LIST

LISTING_FAILED = (
    b"run command qvroll failed.\n"
    b"GetBackupImageList() failed. ret=1\n"
    b"GetBackupSetList() failed. ret=1\n"
)
IMAGE_FAILED = b"dump_backup() failed. ret=1\n"


def temporary(image):
    return f"{image}.qvmeta.json"


class StartTest(faults.FaultTest):
    # The check for leaks itself takes descriptors, and does not work below strace.
    environment = {**faults.FaultTest.environment, "ASAN_OPTIONS": "detect_leaks=0"}


class NoDescriptor(StartTest):
    """A limit of 4 leaves one descriptor beside the standard ones: enough for a file, too few for a
    pipe. A limit of 3 leaves none."""

    NO_PIPE = {resource.RLIMIT_NOFILE: 4}

    def then_limit(self, text, limit):
        """A script that limits the tool's descriptors, then prints."""
        return self.limits_tool(f"nofile={limit}") + self.prints(text)

    def test_for_the_listing_of_the_set_list(self):
        (self.out / "backup_sets.json").write_bytes(b"old")
        self.check_run(
            SET_LIST + self.to_out,
            limits=self.NO_PIPE,
            status="1",
            stderr=LISTING_FAILED,
            files={"backup_sets.json": b"old"},
        )

    def test_for_the_listing_of_a_set(self):
        self.check_run(
            SET + self.to_out, limits=self.NO_PIPE, status="1", stderr=LISTING_FAILED
        )

    def test_for_qvmeta_of_the_second_image(self):
        self.scripts["rec_unfold"] = self.then_limit(ENTRY, 4)
        self.check_run(
            SET + self.to_out,
            status="1",
            stderr=b"run command qvmeta failed.\n" + IMAGE_FAILED,
            files={f"{FIRST}.json": faults.document(), temporary(SECOND): b""},
        )

    def test_for_the_lookup_of_an_image_of_a_set(self):
        self.scripts["qvmeta"] = self.then_limit(METADATA, 4)
        self.check_run(
            SET + self.to_out, status="1", stderr=b"run command qvroll failed.\n" + IMAGE_FAILED
        )

    def test_for_rec_unfold_of_an_image_of_a_set(self):
        self.scripts["lookup"] = self.then_limit(LOOKUP, 4)
        self.check_run(
            SET + self.to_out, status="1", stderr=b"run command rec_unfold failed.\n" + IMAGE_FAILED
        )

    def test_for_the_temporary_file(self):
        self.scripts["listing"] = self.then_limit(LISTING, 3)
        path = self.out / temporary(FIRST)
        self.check_run(
            SET + self.to_out,
            status="1",
            stderr=f"fopen() failed. can't create file {path}\n".encode() + IMAGE_FAILED,
        )

    def test_for_reading_the_temporary_file(self):
        self.scripts["qvmeta"] = self.then_limit(METADATA, 3)
        path = self.out / temporary(FIRST)
        self.check_run(
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{path}: cannot open file"),
            files={path.name: METADATA},
        )

    def test_for_the_document_of_an_image(self):
        self.scripts["rec_unfold"] = self.then_limit(ENTRY, 3)
        path = self.out / f"{FIRST}.json"
        self.check_run(
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{path}: cannot open file"),
        )

    def test_for_the_set_list(self):
        self.scripts["listing"] = self.then_limit(LISTING, 3)
        path = self.out / "backup_sets.json"
        self.check_run(
            SET_LIST + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{path}: cannot open file"),
        )


class NoProcess(StartTest):
    """The system refuses the tool a process, the first that it asks for or a later one.

    A limit on processes does not bind root, and counts all that a user runs, so strace does it.
    """

    @classmethod
    def setUpClass(cls):
        try:
            command = ["strace", "-o", "/dev/null", "true"]
            probe = subprocess.run(command, capture_output=True, check=False)
            reason = probe.stderr.decode().strip() if probe.returncode else ""
        except FileNotFoundError:
            reason = "there is none"
        if reason:
            print(f"skipped: no strace: {reason}")
            sys.exit(faults.SKIPPED)

    def check_refused(self, number, arguments, message, files=None):
        """The run in which the start of the command `number`, from 1, is refused."""
        calls = "fork,vfork,clone,clone3"
        strace = ["strace", "-o", "/dev/null", f"--trace={calls}",
                  f"--inject={calls}:error=EAGAIN:when={number}"]
        self.check_run(arguments, under=strace, status="1", stderr=message, files=files)

    def test_for_the_listing(self):
        self.check_refused(1, LIST, b"run command qvroll failed.\n")

    def test_for_the_listing_of_the_set_list(self):
        (self.out / "backup_sets.json").write_bytes(b"old")
        self.check_refused(
            1, SET_LIST + self.to_out, LISTING_FAILED, {"backup_sets.json": b"old"}
        )

    def test_for_a_command_of_an_image(self):
        empty_file = {temporary(FIRST): b""}
        for number, command, files in (
            (1, b"qvmeta", empty_file), (2, b"qvroll", {}), (3, b"rec_unfold", {})
        ):
            with self.subTest(command):
                (self.out / temporary(FIRST)).unlink(missing_ok=True)
                self.check_refused(
                    number, IMAGE + self.to_out, b"run command " + command + b" failed.\n", files
                )

    def test_for_qvmeta_of_an_image_without_output_directory(self):
        files = {f"/tmp/{temporary(FIRST)}": b""}
        self.check_refused(1, IMAGE, b"run command qvmeta failed.\n", files)

    def test_for_the_listing_of_a_set(self):
        self.check_refused(1, SET + self.to_out, LISTING_FAILED)

    def test_for_a_command_of_the_second_image_of_a_set(self):
        first = {f"{FIRST}.json": faults.document()}
        with_empty_file = {**first, temporary(SECOND): b""}
        for number, command, files in (
            (5, b"qvmeta", with_empty_file), (6, b"qvroll", first), (7, b"rec_unfold", first)
        ):
            with self.subTest(command):
                (self.out / temporary(SECOND)).unlink(missing_ok=True)
                message = b"run command " + command + b" failed.\n" + IMAGE_FAILED
                self.check_refused(number, SET + self.to_out, message, files)


if __name__ == "__main__":
    faults.main(__doc__)
