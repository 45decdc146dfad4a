"""What the tests of quillmere-archive have in common: a catalogue of the stand-in at the product's
root, runs of the program, and the comparison of all that they print and leave behind."""

import argparse
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import model
from model import Model, make_catalogue, raw, tree

OPTIONS = argparse.Namespace()
# Seconds; a run that takes so long hangs.
TIMEOUT = int(os.environ.get("QUILLMERE_ARCHIVE_TIMEOUT", "240"))
SERVER = "server"

# One client's images of three nights: one of the first and of the third night, two of the second.
SMALL = {"seed": 3, "clients": 1, "policies": 1, "nights": 3, "no_parents": True, "entries": 6}
FIRST, SECOND, THIRD, LAST = (
    f"alpha_{1500000000 + 86400 * night + 60 * number}"
    for night, number in ((0, 1), (1, 1), (1, 2), (2, 1)))
SMALL_IDS = [LAST, THIRD, SECOND, FIRST]  # as they are exported, newest first


def lines(*texts):
    return "".join(text + "\n" for text in texts).encode("utf-8", "surrogateescape")


def summary(exported=0, failed=0, expired=0, warnings=0, written=0, removed=0, waiting=0):
    return (f"{exported} exported, {failed} failed, {expired} expired, {warnings} warnings; "
            f"sets: {written} written, {removed} removed, {waiting} waiting for images")


class ArchiveTest(unittest.TestCase):
    """Each test has a folder of its own, with an archive in it, and a catalogue."""

    maxDiff = 6000
    CATALOGUE = SMALL

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="archive-")
        self.addCleanup(directory.cleanup)
        self.folder = pathlib.Path(directory.name).resolve()
        self.archive = self.folder / "archive"
        self.root = pathlib.Path(OPTIONS.root)
        self.catalogue(**self.CATALOGUE)
        self.model = Model(OPTIONS.tool, self.root, SERVER)

    def catalogue(self, **options):
        self.faults()
        make_catalogue(OPTIONS.generator, self.root, **options)

    def faults(self, *texts):
        """What goes wrong with the product's commands from now on."""
        path = self.root / "faults"
        path.unlink(missing_ok=True)
        if texts:
            path.write_bytes(lines(*texts))

    def forgotten(self):
        return list((self.root / "db/images").rglob("*.forgotten"))

    def init(self, *options):
        self.check(["init", "--server", SERVER, *options, self.archive])

    def start(self, arguments, *, under=(), **options):
        """Starts the program in a session of its own, in the test's folder."""
        process = subprocess.Popen(
            [*under, OPTIONS.program, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, cwd=self.folder, start_new_session=True,
            env={**os.environ, "LC_ALL": "C"}, **options)
        self.addCleanup(self.dispose, process)
        return process

    def dispose(self, process):
        for pid in self.session(process):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        process.wait()
        process.stdout.close()
        process.stderr.close()

    @staticmethod
    def session(process):
        """The processes that the program has left, and itself."""
        found = []
        for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
            try:
                fields = stat.read_text(errors="replace").rpartition(")")[2].split()
            except (FileNotFoundError, ProcessLookupError):
                continue
            if fields[3] == str(process.pid) and fields[0] != "Z":
                found.append(int(stat.parent.name))
        return found

    def wait_for_end_of_session(self, process, seconds=TIMEOUT):
        end = time.monotonic() + seconds
        while self.session(process):
            self.assertLess(time.monotonic(), end, "processes are left behind")
            time.sleep(0.01)

    def run_program(self, *arguments, **options):
        """Status, standard output and standard error of a run that leaves no process behind."""
        process = self.start(arguments, **options)
        stdout, stderr = process.communicate(timeout=TIMEOUT)
        self.wait_for_end_of_session(process, 5)  # What was killed may take a moment.
        return process.returncode, stdout, stderr

    def check(self, arguments, status=0, stdout=b"", stderr=b"", **options):
        """Runs the program and compares how it ended and what it printed."""
        self.assertEqual(self.run_program(*arguments, **options), (status, stdout, stderr))

    def check_sync(self, *options, status=0, stdout=None, stderr=b"", under=()):
        """Runs a sync that exports one image after the other; `stdout` None is not compared."""
        actual = self.run_program("sync", "--jobs", "1", *options, self.archive, under=under)
        self.assertEqual((status, actual[1] if stdout is None else stdout, stderr), actual)

    def check_tree(self, expected, archive=None):
        """Compares every file of the archive."""
        actual = tree(archive or self.archive)
        self.assertEqual(sorted(actual), sorted(expected))
        for path, data in expected.items():
            self.assertEqual(actual[path], data, path)

    def check_verified(self, archive=None):
        """`verify` finds nothing wrong, and sha256sum neither."""
        archive = archive or self.archive
        actual = tree(archive)
        documents = [data for path, data in actual.items()
                     if path.startswith("images/") and path.endswith((".json", ".zst"))
                     and not path.endswith("/manifest.json")]
        sets = sum(path.startswith("sets/") for path in actual)
        self.check(["verify", archive], stdout=lines(
            f"{len(documents)} images, {sets} sets, {sum(map(len, documents))} bytes: 0 problems"))
        for sums in sorted(pathlib.Path(archive).glob("images/*/*/SHA256SUMS")):
            subprocess.run(["sha256sum", "--check", "--strict", "--quiet", "SHA256SUMS"],
                           cwd=sums.parent, check=True)

    def exported(self, backup_id, document=None):
        """The line about an image that was exported."""
        data = self.model.document(backup_id) if document is None else document
        entries = data.count(b'            "filenum": "')
        return f"{backup_id}: {entries} entries, {len(data)} bytes"


def main(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--program", required=True, help="quillmere-archive")
    parser.add_argument("--tool", required=True, help="quillmere")
    parser.add_argument("--root", required=True, help="the install root that both were built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)
    os.umask(0)  # what is made must not rely on it
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
