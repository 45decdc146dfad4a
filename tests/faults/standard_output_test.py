#!/usr/bin/env python3
"""Standard output that takes nothing, or whose reader goes away."""

import os
import signal

import faults
from faults import ENTRY, FIRST, IMAGE, LIST, SECOND, SET, SET_LIST

DOCUMENT = f"{FIRST}.json"
DOCUMENTS = {DOCUMENT: faults.document(), f"{SECOND}.json": faults.document()}
SETS = {"backup_sets.json": faults.set_list()}
TRACED = ["--verbose", "1"]
WRITE_ERROR = {
    "status": "SIGABRT",
    "stderr": faults.uncaught_json_error("<unspecified file>: write error"),
}


class FullDevice(faults.FaultTest):
    """Traces are lost, documents in files are not."""

    def check_traced(self, arguments, files):
        self.install()
        with open("/dev/full", "wb") as stdout:
            self.check(self.start(arguments + self.to_out + TRACED, stdout=stdout), files=files)

    def test_for_the_traces_of_a_set(self):
        self.check_traced(SET, DOCUMENTS)

    def test_for_the_traces_of_the_set_list(self):
        self.check_traced(SET_LIST, SETS)


class ReaderGone(faults.FaultTest):
    """Nobody reads standard output from the start. The tool ends by SIGPIPE where it first writes.

    When whoever started it ignores that signal, a document that cannot be written ends it by an
    exception; a listing or a trace that cannot be written is not noticed."""

    def check_without_reader(self, arguments, *, ignored=(), **expected):
        self.install()
        reader, writer = os.pipe()
        os.close(reader)
        process = self.start(arguments, ignored=ignored, stdout=writer)
        os.close(writer)
        self.check(process, **expected)

    def check_ended(self, arguments, files=None):
        self.check_without_reader(arguments, status="SIGPIPE", files=files)

    def check_ignored(self, arguments, **expected):
        self.check_without_reader(arguments, ignored=[signal.SIGPIPE], **expected)

    def test_of_the_listing(self):
        self.check_ended(LIST)
        self.check_ignored(LIST)

    def test_of_the_set_list(self):
        self.check_ended(SET_LIST)
        self.check_ignored(SET_LIST, **WRITE_ERROR)

    def test_of_the_document_of_an_image(self):
        self.check_ended(IMAGE)
        self.check_ignored(IMAGE, **WRITE_ERROR)

    def test_of_the_usage(self):
        self.check_ended(["--help"])
        self.check_ignored(["--help"])

    def test_of_the_traces_of_the_listing(self):
        self.check_ended(LIST + TRACED)
        self.check_ignored(LIST + TRACED)

    def test_of_the_traces_of_the_set_list(self):
        self.check_ended(SET_LIST + self.to_out + TRACED)
        self.check_ignored(SET_LIST + self.to_out + TRACED, files=SETS)

    def test_of_the_traces_of_an_image(self):
        # The temporary file is there before the first command is traced.
        self.check_ended(IMAGE + self.to_out + TRACED, {f"{FIRST}.qvmeta.json": b""})
        self.check_ignored(
            IMAGE + self.to_out + TRACED, files={DOCUMENT: faults.document()}
        )

    def test_of_the_traces_of_a_set(self):
        self.check_ended(SET + self.to_out + TRACED)
        self.check_ignored(SET + self.to_out + TRACED, files=DOCUMENTS)


class ReaderGoes(faults.FaultTest):
    """The reader of standard output goes when it has read one byte."""

    def start_read(self, arguments, ignored):
        """Starts the tool; returns when the reader of its standard output is gone."""
        self.install()
        reader, writer = os.pipe()
        process = self.start(arguments, ignored=ignored, stdout=writer)
        os.close(writer)
        os.read(reader, 1)
        os.close(reader)
        return process

    def check_listing(self, ignored, **expected):
        """The listing is read to its end by the tool where the tool does not end before."""
        gate = faults.Gate(self)
        half = self.prints(b"row\n" * 100_000)
        self.scripts["listing"] = half + gate.line + half + "echo end >&2\n"
        process = self.start_read(LIST, ignored)
        gate.wait()
        gate.open()
        self.check(process, **expected)

    def test_in_the_middle_of_the_listing(self):
        self.check_listing([], status="SIGPIPE", stderr=b"end\n")

    def test_in_the_middle_of_the_listing_when_ignored(self):
        self.check_listing([signal.SIGPIPE], stderr=b"end\n")

    def test_in_the_middle_of_a_document(self):
        # More than any pipe holds, so that the tool waits for its reader.
        self.scripts["rec_unfold"] = self.prints(ENTRY * 8000)
        for ignored, expected in (([], {"status": "SIGPIPE"}), ([signal.SIGPIPE], WRITE_ERROR)):
            with self.subTest(ignored=ignored):
                self.check(self.start_read(IMAGE, ignored), **expected)


if __name__ == "__main__":
    faults.main(__doc__)
