#!/usr/bin/env python3
"""A disk that is full, has no room for one more file, or is read-only: a small file system in
memory, for which the test has to run in a private mount namespace."""

import os
import subprocess

import faults
from faults import ENTRY, FIRST, IMAGE, LISTING, SECOND, SET, SET_LIST

PAGE = os.sysconf("SC_PAGE_SIZE")  # what such a file system gives out at a time
DOCUMENT = f"{FIRST}.json"
TEMPORARY = f"{FIRST}.qvmeta.json"
SETS = "backup_sets.json"


class Disk(faults.FaultTest):
    """The output directory is a disk."""

    def mount(self, options):
        mount = ["mount", "-t", "tmpfs", "-o", options, "tmpfs", self.out]
        subprocess.run(mount, check=True)
        self.addCleanup(subprocess.run, ["umount", self.out], check=True)

    def mount_pages(self, count):
        self.mount(f"size={count * PAGE}")

    def write_error(self, name):
        return {
            "status": "SIGABRT",
            "stderr": faults.uncaught_json_error(f"{self.out / name}: write error"),
        }


class FullDisk(Disk):
    def check_cut_short(self, arguments, name, whole):
        """Compares a run on a disk that holds all pages of the document but one."""
        pages = len(whole) // PAGE
        self.mount_pages(pages)
        self.check_run(
            arguments + self.to_out,
            files={name: whole[: pages * PAGE]},
            **self.write_error(name),
        )

    def test_in_the_first_pages_of_a_document(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 20)
        self.check_cut_short(IMAGE, DOCUMENT, faults.document(20))

    def test_in_the_middle_of_a_large_document(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 5000)
        self.check_cut_short(IMAGE, DOCUMENT, faults.document(5000))

    def test_in_the_set_list(self):
        empty, header, *rows = LISTING.splitlines(keepends=True)
        self.scripts["listing"] = self.prints(empty + header + b"".join(rows * 300))
        self.check_cut_short([*SET_LIST, "--count", "0"], SETS, faults.set_list(300))

    def test_in_the_document_of_the_second_image_of_a_set(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 20)
        whole = faults.document(20)
        pages = -(-len(whole) // PAGE)
        self.mount_pages(pages + 1)
        name = f"{SECOND}.json"
        self.check_run(
            SET + self.to_out,
            files={DOCUMENT: whole, name: whole[:PAGE]},
            **self.write_error(name),
        )

    def test_behind_the_first_document_of_a_set(self):
        self.mount_pages(1)
        path = self.out / f"{SECOND}.qvmeta.json"
        self.check_run(
            SET + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{path}(1): expected value"),
            files={DOCUMENT: faults.document(), path.name: b""},
        )

    def test_for_the_temporary_file(self):
        self.mount_pages(1)
        (self.out / DOCUMENT).write_bytes(b"old")
        self.check_run(
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{self.out / TEMPORARY}(1): expected value"),
            files={DOCUMENT: b"old", TEMPORARY: b""},
        )

    def test_in_the_middle_of_the_temporary_file(self):
        metadata = b'{"a": "' + b"b" * PAGE + b'"}\n'
        self.scripts["qvmeta"] = self.prints(metadata)
        self.mount_pages(1)
        self.check_run(
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{self.out / TEMPORARY}(1): unterminated string"),
            files={TEMPORARY: metadata[:PAGE]},
        )

    def test_with_room_for_the_document_that_is_replaced(self):
        self.mount_pages(2)
        (self.out / DOCUMENT).write_bytes(b"o" * PAGE)
        self.check_run(IMAGE + self.to_out, files={DOCUMENT: faults.document()})


class DiskWithoutFiles(Disk):
    """No file can be created."""

    def check_refused(self):
        path = self.out / TEMPORARY
        stderr = f"fopen() failed. can't create file {path}\n".encode()
        self.check_run(IMAGE + self.to_out, status="1", stderr=stderr)
        stderr += b"dump_backup() failed. ret=1\n"
        self.check_run(SET + self.to_out, status="1", stderr=stderr)
        stderr = faults.uncaught_json_error(f"{self.out / SETS}: cannot open file")
        self.check_run(SET_LIST + self.to_out, status="SIGABRT", stderr=stderr)

    def test_that_has_no_room_for_one(self):
        self.mount("nr_inodes=1")
        self.check_refused()

    def test_that_is_read_only(self):
        self.mount("ro")
        self.check_refused()


if __name__ == "__main__":
    faults.main(__doc__)
