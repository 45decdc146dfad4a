#!/usr/bin/env python3
"""The tool is interrupted or told to end while a command is at work."""

import os
import signal

import faults
from faults import ENTRY, FIRST, IMAGE, LIST, LISTING, LOOKUP, METADATA, SECOND, SET, SET_LIST

DOCUMENT = f"{FIRST}.json"
TEMPORARY = f"{FIRST}.qvmeta.json"
OLD_DOCUMENT = {DOCUMENT: b"old"}
OLD_SETS = {"backup_sets.json": b"old"}
OUTPUTS = {"listing": LISTING, "qvmeta": METADATA, "lookup": LOOKUP, "rec_unfold": ENTRY}


def interrupt(process):
    """What a terminal does: the tool and its command get the signal."""
    os.killpg(process.pid, signal.SIGINT)


def terminate(process):
    """What a service manager does first, or a script: the tool alone gets the signal."""
    process.terminate()


class SignalTest(faults.FaultTest):
    """The tool ends by the signal. What it has not flushed is lost; old documents stay."""

    def check_ended(self, arguments, command, *, before=None, left=None, stdout=b"", skipped=""):
        """Ends the tool by each signal, when `command` has printed half of its output.

        The files `before` are there from the start and stay, with those that are `left`; `stdout` has
        been printed by then. `skipped` is the script of the command where the tool is not to be ended
        yet."""
        before = before or {}
        output = OUTPUTS[command]
        half = self.prints(output[: len(output) // 2])
        for end, status in ((interrupt, "SIGINT"), (terminate, "SIGTERM")):
            for path in self.out.iterdir():
                path.unlink()
            for name, text in before.items():
                (self.out / name).write_bytes(text)
            with self.subTest(status):
                gate = faults.Gate(self)
                self.scripts[command] = skipped + half + gate.line
                self.install()
                process = self.start(arguments)
                gate.wait()
                self.assertEqual(stdout, self.read(process, len(stdout)))
                end(process)
                process.wait(faults.TIMEOUT)
                gate.open()
                self.check(process, status=status, files={**before, **(left or {})})


class AtTheListing(SignalTest):
    def test_whole_lines_are_printed(self):
        trace = f"[cmd] {faults.OPTIONS.root}/bin/admincmd/qvroll\n".encode()
        half = LISTING[: len(LISTING) // 2]
        lines = half[: half.rindex(b"\n") + 1]
        self.check_ended(LIST, "listing", stdout=lines)
        self.check_ended([*LIST, "--verbose", "1"], "listing", stdout=trace + lines)

    def test_the_set_list_stays(self):
        self.check_ended(SET_LIST + self.to_out, "listing", before=OLD_SETS)

    def test_a_set_leaves_nothing(self):
        self.check_ended(SET + self.to_out, "listing", before=OLD_DOCUMENT)


class AtACommandOfAnImage(SignalTest):
    def test_qvmeta_leaves_the_temporary_file(self):
        self.check_ended(
            IMAGE + self.to_out, "qvmeta", before=OLD_DOCUMENT, left={TEMPORARY: b""}
        )

    def test_qvmeta_without_output_directory_leaves_the_temporary_file(self):
        self.check_ended(IMAGE, "qvmeta", left={f"/tmp/{TEMPORARY}": b""})

    def test_lookup_leaves_nothing(self):
        self.check_ended(IMAGE + self.to_out, "lookup", before=OLD_DOCUMENT)

    def test_rec_unfold_leaves_nothing(self):
        self.check_ended(IMAGE + self.to_out, "rec_unfold", before=OLD_DOCUMENT)

    def test_rec_unfold_prints_nothing(self):
        self.check_ended(IMAGE, "rec_unfold")


class AtACommandOfTheSecondImage(SignalTest):
    """The document of the first image of the set stays."""

    def check_ended_later(self, command, left):
        whole = self.prints(OUTPUTS[command])
        for_the_first = f"if [ ! -e {self.out / DOCUMENT} ]; then\n{whole}exit\nfi\n"
        left = {DOCUMENT: faults.document(), **left}
        self.check_ended(SET + self.to_out, command, left=left, skipped=for_the_first)

    def test_qvmeta_leaves_the_temporary_file(self):
        self.check_ended_later("qvmeta", {f"{SECOND}.qvmeta.json": b""})

    def test_lookup_leaves_nothing(self):
        self.check_ended_later("lookup", {})

    def test_rec_unfold_leaves_nothing(self):
        self.check_ended_later("rec_unfold", {})


if __name__ == "__main__":
    faults.main(__doc__)
