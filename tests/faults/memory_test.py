#!/usr/bin/env python3
"""Memory that is refused in the middle of what a command prints."""

import resource
import signal

import faults
from faults import CLIENT, ENTRY, FIRST, IMAGE, LISTING, METADATA, SET_LIST

MIB = 1024 * 1024
LIMIT = 32 * MIB  # bytes; without a catalogue, the tool takes a third of it
OUT_OF_MEMORY = (
    b"terminate called after throwing an instance of 'std::bad_alloc'\n  what():  std::bad_alloc\n"
)
TRACED = ["--verbose", "1"]


class Memory(faults.FaultTest):
    def check_ends(self, arguments, *, files):
        """The tool ends by an exception, and what is in `files` stays as it is; returns what it
        printed."""
        for name, text in files.items():
            (self.out / name).write_bytes(text)
        self.install()
        with open(self.folder / "stdout", "w+b") as stdout:
            process = self.start(arguments, limits={resource.RLIMIT_AS: LIMIT}, stdout=stdout)
            self.check(process, status="SIGABRT", stderr=OUT_OF_MEMORY, files=files)
            stdout.seek(0)
            return stdout.read()

    def prints_for_ever(self, line):
        return f"yes '{line.decode()}'\n"

    def check_trace(self, printed, beginning, line):
        """What is printed is the beginning and then the line again and again, all of it whole."""
        self.assertTrue(printed.startswith(beginning), printed[:1000])
        count = (len(printed) - len(beginning)) // len(line)
        self.assertGreater(count, 1000)
        self.assertTrue(printed == beginning + line * count, printed[-1000:])

    def test_in_the_middle_of_a_large_image(self):
        self.scripts["rec_unfold"] = self.prints_for_ever(ENTRY.rstrip(b"\n"))
        files = {f"{FIRST}.json": b"old"}
        self.assertEqual(self.check_ends(IMAGE + self.to_out, files=files), b"")

    def test_in_the_middle_of_a_large_image_leaves_its_trace(self):
        self.scripts["rec_unfold"] = self.prints_for_ever(ENTRY.rstrip(b"\n"))
        printed = self.check_ends(IMAGE + self.to_out + TRACED, files={})
        root = faults.OPTIONS.root
        beginning = (
            f"[cmd] {root}/bin/admincmd/qvmeta -json -backupid {FIRST}\n{METADATA.decode()}"
            f"[cmd] {root}/bin/admincmd/qvroll -id {FIRST}\n{faults.LOOKUP.decode()}"
            f"[cmd] {root}/bin/rec_unfold -dump {root}/db/images/{CLIENT}/1600000000/z\n"
        )
        self.check_trace(printed, beginning.encode(), ENTRY)

    def test_in_the_middle_of_a_large_image_to_standard_output(self):
        self.scripts["rec_unfold"] = self.prints_for_ever(ENTRY.rstrip(b"\n"))
        self.assertEqual(self.check_ends(IMAGE, files={}), b"")

    def test_in_the_middle_of_a_large_listing(self):
        row = LISTING.splitlines()[2]
        self.scripts["listing"] = self.prints(b"\nBackupid \n") + self.prints_for_ever(row)
        files = {"backup_sets.json": b"old"}
        self.assertEqual(self.check_ends(SET_LIST + self.to_out, files=files), b"")

    def test_in_the_middle_of_a_large_listing_leaves_its_trace(self):
        row = LISTING.splitlines()[2]
        self.scripts["listing"] = self.prints(b"\nBackupid \n") + self.prints_for_ever(row)
        printed = self.check_ends(SET_LIST + TRACED, files={})
        beginning = f"[cmd] {faults.OPTIONS.root}/bin/admincmd/qvroll\n\nBackupid \n"
        self.check_trace(printed, beginning.encode(), row + b"\n")


class MemoryForTheDocument(faults.FaultTest):
    def test_that_is_short_is_never_told_as_a_write_error(self):
        self.scripts["qvmeta"] = self.prints(b'{"a": "' + b"b" * (12 * MIB) + b'"}\n')
        self.install()
        document = self.out / f"{FIRST}.json"
        ends = set()
        for limit in range(32 * MIB, 160 * MIB, 4 * MIB):
            document.unlink(missing_ok=True)
            process = self.start(IMAGE + self.to_out, limits={resource.RLIMIT_AS: limit})
            stderr = process.communicate(timeout=faults.TIMEOUT)[1]
            ends.add((process.returncode, stderr, document.exists()))
        refused = -signal.SIGABRT, OUT_OF_MEMORY
        self.assertEqual({(*refused, False), (*refused, True), (0, b"", True)}, ends)


if __name__ == "__main__":
    faults.main(__doc__)
