#!/usr/bin/env python3
"""Failures that last a moment only, or that show where nobody looks: none of them may end with
status 0 and less than there should be."""

import os
import resource
import signal
import socket
import time

import faults
from faults import DOCUMENT_WITHOUT_ENTRIES, ENTRY, FIRST, IMAGE, LIST, LISTING, SET_LIST

DOCUMENT = f"{FIRST}.json"
TEMPORARY = f"{FIRST}.qvmeta.json"
SETS = "backup_sets.json"
ERRORS = ("ENOSPC", "EIO", "EDQUOT")
BLOCK = 4096  # bytes that the C library writes to a file at a time


class OneFailedCall(faults.FaultTest):
    """One system call of the tool fails, for one file."""

    # The sanitizers' search for leaks and strace exclude each other.
    environment = {"LC_ALL": "C", "ASAN_OPTIONS": "detect_leaks=0"}

    def strace(self, call, path):
        """The command that makes `call`, "write:error=EIO:when=2" say, fail for the file `path`."""
        return ["strace", "-qq", "-o", os.devnull, "-P", str(path), "-e", f"inject={call}"]

    def check_injected(self, arguments, call, path, **expected):
        self.check_run(arguments + self.to_out, under=self.strace(call, path), **expected)

    def check_piece_is_missed(self, call, name, whole):
        """Runs the tool with `call` failing for the file `name`, and checks that it ends by the write
        error, with a part of `whole` in the file."""
        path = self.out / name
        self.install()
        process = self.start(IMAGE + self.to_out, under=self.strace(call, path))
        printed, diagnostics = process.communicate(timeout=faults.TIMEOUT)
        self.assertEqual(-signal.SIGABRT, process.returncode)
        self.assertEqual(self.write_error(name)["stderr"], diagnostics)
        self.assertEqual(b"", printed)
        left = path.read_bytes()
        self.assertLess(len(left), len(whole))
        return left

    def write_error(self, name):
        return {
            "status": "SIGABRT",
            "stderr": faults.uncaught_json_error(f"{self.out / name}: write error"),
        }

    def test_a_lost_piece_of_metadata_that_leave_a_document(self):
        metadata = b'{"a": "b"' + b"\n" * 3 * BLOCK + b"}\n"
        self.scripts["qvmeta"] = self.prints(metadata)
        for error in ERRORS:
            with self.subTest(error):
                (self.out / DOCUMENT).write_bytes(b"old")
                left = self.check_piece_is_missed(
                    f"write:error={error}:when=2", TEMPORARY, metadata
                )
                self.assertEqual(faults.METADATA, left.replace(b"\n", b"") + b"\n")
                self.assertEqual(b"old", (self.out / DOCUMENT).read_bytes())

    def test_a_lost_piece_of_metadata_that_leave_none(self):
        metadata = b'{"a": "' + b"b" * BLOCK + b'"}\n'
        self.scripts["qvmeta"] = self.prints(metadata)
        path = self.out / TEMPORARY
        self.check_injected(
            IMAGE,
            "write:error=ENOSPC:when=2",
            path,
            status="SIGABRT",
            stderr=faults.uncaught_json_error(f"{path}(1): unterminated string"),
            files={TEMPORARY: metadata[:BLOCK]},
        )

    def test_the_last_piece_of_metadata(self):
        self.scripts["qvmeta"] = self.prints(b'{"a": "b"}' + b" " * (BLOCK - 10) + b" \n")
        self.check_injected(
            IMAGE,
            "write:error=ENOSPC:when=2",
            self.out / TEMPORARY,
            files={TEMPORARY: b'{"a": "b"}' + b" " * (BLOCK - 10)},
            **self.write_error(TEMPORARY),
        )

    def test_the_close_of_the_temporary_file(self):
        for error in ERRORS:
            with self.subTest(error):
                self.check_injected(
                    IMAGE,
                    f"close:error={error}:when=1",
                    self.out / TEMPORARY,
                    files={TEMPORARY: faults.METADATA},
                    **self.write_error(TEMPORARY),
                )

    def test_the_close_of_an_image_document(self):
        for entries in (0, 1):
            self.scripts["rec_unfold"] = self.prints(ENTRY * entries)
            whole = faults.document() if entries else DOCUMENT_WITHOUT_ENTRIES
            for error in ERRORS:
                with self.subTest(error, entries=entries):
                    self.check_injected(
                        IMAGE,
                        f"close:error={error}",
                        self.out / DOCUMENT,
                        files={DOCUMENT: whole},
                        **self.write_error(DOCUMENT),
                    )

    def test_the_close_of_the_set_list(self):
        for listing, whole in ((LISTING, faults.set_list()), (b"", faults.EMPTY_SET_LIST)):
            self.scripts["listing"] = self.prints(listing)
            for error in ERRORS:
                with self.subTest(error, listing=listing):
                    self.check_injected(
                        SET_LIST,
                        f"close:error={error}",
                        self.out / SETS,
                        files={SETS: whole},
                        **self.write_error(SETS),
                    )

    def test_a_write_of_a_document(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 5000)
        whole = faults.document(5000)
        for error in ERRORS:
            with self.subTest(error):
                left = self.check_piece_is_missed(
                    f"write,writev:error={error}:when=2", DOCUMENT, whole
                )
                self.assertTrue(whole.startswith(left))

    def test_the_reading_of_the_temporary_file(self):
        self.check_injected(
            IMAGE,
            "read:error=EIO:when=1",
            self.out / TEMPORARY,
            status="SIGABRT",
            stderr=b"terminate called after throwing an instance of"
            b" 'std::__ios_failure'\n  what():  basic_filebuf::underflow error reading the file:"
            b" Input/output error\n",
            files={TEMPORARY: faults.METADATA},
        )


class NonBlockingOutput(faults.FaultTest):
    """The caller has made standard output non-blocking, and reads when it likes to."""

    def read_slowly(self, reader):
        pieces = []
        time.sleep(0.2)
        while piece := os.read(reader, 100_000):
            pieces.append(piece)
        return b"".join(pieces)

    def pipe(self):
        return os.pipe()

    def socket(self):
        return (end.detach() for end in socket.socketpair())

    def check_arrives(self, arguments, expected):
        self.install()
        for make in (self.pipe, self.socket):
            with self.subTest(make.__name__):
                reader, writer = make()
                os.set_blocking(writer, False)
                process = self.start(arguments, stdout=writer)
                os.close(writer)
                printed = self.read_slowly(reader)
                os.close(reader)
                self.check(process)
                self.assertTrue(printed == expected, f"{len(printed)} of {len(expected)} bytes")

    def test_gets_the_whole_listing(self):
        listing = LISTING * 20_000
        self.scripts["listing"] = self.prints(listing)
        self.check_arrives(LIST, listing)

    def test_gets_the_whole_document(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 20_000)
        self.check_arrives(IMAGE, faults.document(20_000))

    def test_gets_the_whole_set_list(self):
        rows = LISTING.split(b"\n", 2)[2]
        self.scripts["listing"] = self.prints(LISTING + rows * 9_999)
        self.check_arrives([*SET_LIST, "--count", "0"], faults.set_list(10_000))

    def test_gets_all_traces(self):
        self.scripts["rec_unfold"] = self.prints(ENTRY * 100_000)
        bucket = f"{faults.OPTIONS.root}/db/images/{faults.CLIENT}/1600000000/"
        traces = [
            f"[cmd] {self.path_of('qvmeta')} -json -backupid {FIRST}\n".encode() + faults.METADATA,
            f"[cmd] {self.path_of('qvroll')} -id {FIRST}\n".encode() + faults.LOOKUP,
            f"[cmd] {self.path_of('rec_unfold')} -dump {bucket}z\n".encode() + ENTRY * 100_000,
        ]
        self.check_arrives(
            [*IMAGE, "--verbose", "1"], b"".join(traces) + faults.document(100_000)
        )


class SmallStack(faults.FaultTest):
    """The stack is limited to 1 MiB."""

    def check_depth(self, depth, **expected):
        self.scripts["qvmeta"] = self.prints(b'{"a":' * depth + b'"b"' + b"}" * depth)
        self.scripts["rec_unfold"] = self.prints(b"")
        (self.out / DOCUMENT).write_bytes(b"old")
        limits = {resource.RLIMIT_STACK: 1 << 20}
        self.check_run(IMAGE + self.to_out, limits=limits, **expected)

    def test_refuses_what_it_could_not_hold_before_anything_is_replaced(self):
        for depth in (1093, 5000, 9999):
            with self.subTest(depth=depth):
                path = self.out / TEMPORARY
                self.check_depth(
                    depth,
                    status="SIGABRT",
                    stderr=faults.uncaught_json_error(f"{path}: nested too deeply"),
                    files={
                        DOCUMENT: b"old",
                        TEMPORARY: b'{"a":' * depth + b'"b"' + b"}" * depth,
                    },
                )
                path.unlink()

    def test_takes_what_it_holds(self):
        with open(faults.OPTIONS.program, "rb") as program:
            if b"__asan_init" in program.read():
                self.skipTest("a sanitizer's frames are larger")
        depth = 1092
        lines = ["{"]
        lines += ["    " * level + '"a": {' for level in range(1, depth)]
        lines += ["    " * depth + '"a": "b"']
        lines += ["    " * level + "}" for level in range(depth - 1, 1, -1)]
        lines += ["    },", '    "fentries": ""', "}", ""]
        self.check_depth(depth, files={DOCUMENT: "\n".join(lines).encode()})


class WhatTheProductSees(faults.FaultTest):
    def test_the_temporary_file_is_not_open_in_its_commands(self):
        self.scripts["qvmeta"] = (
            f"readlink /proc/$$/fd/* >{self.folder}/open\n" + self.scripts["qvmeta"]
        )
        self.check_run(IMAGE + self.to_out, files={DOCUMENT: faults.document()})
        self.assertNotIn(TEMPORARY, (self.folder / "open").read_text())


class SilentProduct(faults.FaultTest):
    """What the product has printed is there while it thinks, but for an unfinished line."""

    def check_shown(self, command, lines, arguments, before=b""):
        gate = faults.Gate(self)
        self.scripts[command] = self.prints(lines) + "printf unfinished\n" + gate.line
        self.install()
        process = self.start(arguments)
        gate.wait()
        shown = self.read(process, len(before) + len(lines))
        self.assertEqual(faults.short(before + lines), faults.short(shown))
        gate.open()
        process.communicate(timeout=faults.TIMEOUT)

    def test_in_the_listing(self):
        self.check_shown("listing", LISTING * 250, LIST)

    def test_in_traces(self):
        command = f"[cmd] {self.path_of('qvmeta')} -json -backupid {FIRST}\n".encode()
        self.check_shown("qvmeta", b"x\n" * 25_000, [*IMAGE, *self.to_out, "--verbose", "1"], command)


if __name__ == "__main__":
    faults.main(__doc__)
