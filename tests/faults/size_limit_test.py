#!/usr/bin/env python3
"""Files that take no more bytes than a limit: every write that is cut short, and where.

A limit on the size of files ends a write at any byte; a full disk would only end it between pages.
"""

import resource
import signal

import faults
from faults import ENTRY, FIRST, IMAGE, LIST, LISTING, METADATA, SET_LIST

DOCUMENT = f"{FIRST}.json"
TEMPORARY = f"{FIRST}.qvmeta.json"
SETS = "backup_sets.json"

# How the reader complains of so many bytes of the metadata. All but the newline are a document.
COMPLAINTS = (
    "expected value",
    "expected key string",
    "unterminated string",
    "unterminated string",
    "expected ':'",
    "expected value",
    "expected value",
    "unterminated string",
    "unterminated string",
    "expected '}' or ','",
)

def around(*sizes):
    """Each size with its neighbours."""
    return [size + offset for size in sizes for offset in (-1, 0, 1)]


STDIO_BUFFER = 4096  # bytes
FILE_STREAM_BUFFER = 8191
STANDARD_OUTPUT_BUFFER = 256 * 1024
PIECE_OF_ENTRIES = 512 * 1024


class SizeLimit(faults.FaultTest):
    def check_limited(self, size, arguments, stdout=None, ignored=(signal.SIGXFSZ,), **expected):
        """Compares a run in which no file takes more than `size` bytes."""
        process = self.start(
            arguments, limits={resource.RLIMIT_FSIZE: size}, ignored=ignored, stdout=stdout
        )
        with self.subTest(size=size):
            self.check(process, **expected)
        for path in self.out.iterdir():
            path.unlink()

    def check_document(self, size, arguments, name, whole):
        """Compares a run whose document is `whole`, or its beginning where it does not fit."""
        end = {}
        if size < len(whole):
            end["status"] = "SIGABRT"
            end["stderr"] = faults.uncaught_json_error(f"{self.out / name}: write error")
        self.check_limited(size, arguments + self.to_out, files={name: whole[:size]}, **end)

    def check_to_stdout(self, size, arguments, whole):
        """Compares a run that writes `whole` to standard output, a file."""
        end = {}
        if size < len(whole):
            end["status"] = "SIGABRT"
            end["stderr"] = faults.uncaught_json_error("<unspecified file>: write error")
        with open(self.out / "stdout", "wb") as stdout:
            self.check_limited(size, arguments, stdout, files={"stdout": whole[:size]}, **end)

    def test_of_the_metadata(self):
        self.install()
        for size, complaint in enumerate(COMPLAINTS):
            path = self.out / TEMPORARY
            self.check_limited(
                size,
                IMAGE + self.to_out,
                status="SIGABRT",
                stderr=faults.uncaught_json_error(f"{path}(1): {complaint}"),
                files={TEMPORARY: METADATA[:size]},
            )

    def test_of_the_blank_end_of_the_metadata(self):
        self.install()
        self.check_limited(
            len(METADATA) - 1,
            IMAGE + self.to_out,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{self.out / TEMPORARY}: write error"),
            files={TEMPORARY: METADATA[:-1]},
        )

    def test_of_the_metadata_without_output_directory(self):
        self.install()
        path = f"/tmp/{TEMPORARY}"
        stderr = faults.uncaught_json_error(f"{path}(1): expected value")
        self.check_limited(5, IMAGE, status="SIGABRT", stderr=stderr, files={path: METADATA[:5]})

    def test_of_long_metadata(self):
        metadata = b'{"a": "' + b"b" * 20000 + b'"}\n'
        self.scripts["qvmeta"] = self.prints(metadata)
        self.install()
        path = self.out / TEMPORARY
        stderr = faults.uncaught_json_error(f"{path}(1): unterminated string")
        for size in (*around(STDIO_BUFFER), 20000):
            self.check_limited(
                size,
                IMAGE + self.to_out,
                status="SIGABRT",
                stderr=stderr,
                files={TEMPORARY: metadata[:size]},
            )

    def test_of_a_small_document(self):
        self.install()
        whole = faults.document()
        for size in (11, 12, len(whole) // 2, len(whole) - 1, len(whole)):
            self.check_document(size, IMAGE, DOCUMENT, whole)

    def test_of_a_document_without_entries(self):
        self.scripts["rec_unfold"] = ""
        self.install()
        whole = faults.DOCUMENT_WITHOUT_ENTRIES
        for size in (11, len(whole) - 1, len(whole)):
            self.check_document(size, IMAGE, DOCUMENT, whole)

    def test_of_a_large_document(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 2000)
        self.install()
        whole = faults.document(2000)
        for size in (*around(FILE_STREAM_BUFFER, PIECE_OF_ENTRIES), len(whole) - 1, len(whole)):
            self.check_document(size, IMAGE, DOCUMENT, whole)

    def test_of_a_large_document_to_standard_output(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 2000)
        self.install()
        whole = faults.document(2000)
        for size in (*around(STANDARD_OUTPUT_BUFFER), len(whole) - 1, len(whole)):
            self.check_to_stdout(size, IMAGE, whole)

    def test_of_a_set_list(self):
        self.list_sets(300)
        whole = faults.set_list(300)
        for size in (0, 1, *around(FILE_STREAM_BUFFER), len(whole) - 1, len(whole)):
            self.check_document(size, [*SET_LIST, "--count", "0"], SETS, whole)

    def test_of_a_set_list_to_standard_output(self):
        self.list_sets(3000)
        whole = faults.set_list(3000)
        for size in (0, *around(STANDARD_OUTPUT_BUFFER), len(whole) - 1, len(whole)):
            self.check_to_stdout(size, [*SET_LIST, "--count", "0"], whole)

    def test_of_the_listing_to_standard_output_is_not_noticed(self):
        listing = self.list_sets(3000)
        for size in (0, *around(STANDARD_OUTPUT_BUFFER), len(listing) - 1, len(listing)):
            with open(self.out / "stdout", "wb") as stdout:
                self.check_limited(size, LIST, stdout, files={"stdout": listing[:size]})

    def list_sets(self, count):
        """Installs a listing of so many sets and returns it."""
        empty, header, *rows = LISTING.splitlines(keepends=True)
        listing = empty + header + b"".join(rows * count)
        self.scripts["listing"] = self.prints(listing)
        self.install()
        return listing

    def test_ends_the_tool_by_its_signal_when_that_is_not_ignored(self):
        self.install()
        self.check_limited(
            100,
            IMAGE + self.to_out,
            ignored=(),
            status="SIGXFSZ",
            files={DOCUMENT: faults.document()[:100]},
        )


if __name__ == "__main__":
    faults.main(__doc__)
