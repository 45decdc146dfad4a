#!/usr/bin/env python3
"""What `find` and `entries` print of an archive, against what Python's json module reads in its
documents; from streams; of documents that are damaged; into a pipe that nobody reads."""

import base64
import fnmatch
import json
import os
import signal
import subprocess

import archive
from archive import FIRST, LAST, SMALL_IDS, lines

FIELDS = ("filenum", "length", "plength", "dlength", "blknum", "in_image", "raw_partition_sz",
          "gigabytes", "device_num", "path", "data")
ESCAPES = {b"\\": b"\\\\", b"\t": b"\\t", b"\n": b"\\n", b"\r": b"\\r", b"\b": b"\\b", b"\f": b"\\f"}


def escaped(text):
    for plain, escape in ESCAPES.items():  # the backslash first
        text = text.replace(plain, escape)
    return text


def entries_of(document):
    """The entries as dictionaries of bytes."""
    image = json.loads(document.decode("latin-1"))
    return [{key: value.encode("latin-1") for key, value in entry.items()}
            for entry in image["fentries"] or []]


class Archive(archive.ArchiveTest):
    CATALOGUE = {"seed": 5, "clients": 3, "policies": 2, "nights": 3, "entries": 40}

    def images(self):
        """Manifests and entries, the newest image first."""
        found = []
        for path in sorted(self.archive.glob("images/*/*/manifest.json")):
            manifest = json.loads(path.read_bytes())
            files = list(path.parent.glob("*_*.json*"))
            data = files[0].read_bytes()
            if files[0].suffix == ".zst":
                data = subprocess.run(["zstd", "-dc", files[0]], check=True,
                                      capture_output=True).stdout
            found.append((manifest, entries_of(data)))
        return sorted(found, key=lambda image: -image[0]["backup_time"])

    def tsv(self, images):
        text = b""
        for manifest, entries in images:
            names = [str(manifest[key]).encode() for key in (
                "server", "client", "policy", "schedule", "backup_time", "backup_id")]
            for entry in entries:
                text += b"\t".join([*names, *(escaped(entry[field]) for field in FIELDS)]) + b"\n"
        return text

    def test_all_that_is_in_it_comes_out(self):
        for options in ((), ("--compress", "3")):
            with self.subTest(options):
                self.archive = self.folder / f"archive{len(options)}"
                self.init(*options)
                self.check_sync("--quiet", stdout=b"")
                images = self.images()
                self.assertGreater(sum(len(entries) for _, entries in images), 500)
                self.check(["entries", self.archive], stdout=self.tsv(images))
                self.check_ndjson(images)
                self.check_found(images)

    def check_ndjson(self, images):
        status, stdout, stderr = self.run_program("entries", "--format", "ndjson", self.archive)
        self.assertEqual((status, stderr), (0, b""))
        actual = [json.loads(line) for line in stdout.decode("utf-8").splitlines()]
        expected = [(manifest, entry) for manifest, entries in images for entry in entries]
        self.assertEqual(len(actual), len(expected))
        for one, (manifest, entry) in zip(actual, expected):
            self.assertEqual(one["time"], manifest["backup_time"])
            self.assertEqual(one["backup_id"], manifest["backup_id"])
            for field in FIELDS:
                data = base64.b64decode(one.get(field + "_base64", "")) or one[field].encode()
                self.assertEqual(data, entry[field])

    def check_found(self, images):
        """The questions of a restore: globs, whole paths, and the newest before some time."""
        paths = sorted({entry["path"] for _, entries in images for entry in entries})
        whole = [path for path in paths[::40] if not set(path) & set(b"*?[\\")]
        for pattern in (*whole, b"*.txt", b"/home/*", b"*/a*b*", b"*\xe9*", b"*"):
            text = os.fsdecode(pattern)
            expected = [(manifest, entry) for manifest, entries in images for entry in entries
                        if fnmatch.fnmatchcase(entry["path"], pattern)]
            self.check(["find", self.archive, text], status=0 if expected else 1,
                       stdout=self.found(expected))
            newest = {}
            for manifest, entry in expected:
                newest.setdefault((manifest["client"], entry["path"]), (manifest, entry))
            self.check(["find", "--newest", self.archive, text], status=0 if expected else 1,
                       stdout=self.found(newest.values()))
        middle = images[len(images) // 2][0]["backup_time"]
        expected = [(manifest, entry) for manifest, entries in images for entry in entries
                    if manifest["backup_time"] < middle]
        self.check(["find", "--before", middle_text(middle), self.archive, "*"],
                   stdout=self.found(expected))

    def found(self, entries):
        text = b""
        for manifest, entry in entries:
            names = [manifest[key].encode() for key in (
                "backup_time_utc", "client", "policy", "schedule", "backup_id")]
            text += b"\t".join([*names, escaped(entry["length"]), escaped(entry["path"])]) + b"\n"
        return text


def middle_text(seconds):
    """A time in another zone."""
    return subprocess.run(["date", "--date", f"@{seconds}", "+%Y-%m-%dT%H:%M:%S%:z"], check=True,
                          capture_output=True, text=True,
                          env={**os.environ, "TZ": "Asia/Kolkata"}).stdout.strip()


class Small(archive.ArchiveTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.check_sync("--quiet", stdout=b"")
        self.image = self.archive / "images/alpha" / LAST
        self.document = self.image / f"{LAST}.json"
        self.data = self.document.read_bytes()
        self.paths = b"".join(escaped(entry["path"]) + b"\n" for entry in entries_of(self.data))

    def check_entries(self, source, status=0, stdout=None, stderr=b"", data=None):
        """Of the column "path"; `data` comes to standard input."""
        process = subprocess.run([archive.OPTIONS.program, "entries", "--columns", "path", source],
                                 input=data, capture_output=True, check=False, cwd=self.folder,
                                 timeout=archive.TIMEOUT)
        self.assertEqual((process.returncode, process.stdout, process.stderr),
                         (status, self.paths if stdout is None else stdout, stderr))


class Streams(Small):
    def test_are_documents_plain_or_compressed(self):
        packed = subprocess.run(["zstd", "-c"], input=self.data, check=True,
                                capture_output=True).stdout
        for data in (self.data, packed, packed[:0] + self.data):
            self.check_entries("-", data=data)
        (self.folder / "d.zst").write_bytes(packed)
        self.check_entries("d.zst")
        self.check_entries("/dev/stdin", data=packed)

    def test_that_end_early(self):
        self.check_entries("-", data=b"", status=1, stdout=b"",
                           stderr=b"standard input: no document: wrong at byte 0\n")
        self.check_entries("-", data=b"\x28\xb5", status=1, stdout=b"",
                           stderr=b"standard input: no document: wrong at byte 0\n")
        self.check_entries("-", data=b"\x28\xb5\x2f\xfd", status=4, stdout=b"",
                           stderr=b"standard input is no whole zstd file\n")

    def test_cannot_tell_which_of_two_fentries_is_the_last(self):
        entries = self.data[self.data.index(b'    "fentries": ['):]
        data = b"{\n" + entries[:-3] + b",\n" + entries
        self.check_entries("-", data=data, status=1, stdout=self.paths, stderr=(
            b'standard input: two "fentries", of which the last counts: can\'t tell in a stream\n'))
        (self.folder / "d").write_bytes(data)
        self.check_entries("d")
        with open(self.folder / "d", "rb") as file:
            self.check(["entries", "--columns", "path", f"/dev/fd/{file.fileno()}"],
                       stdout=self.paths, pass_fds=[file.fileno()])

    def test_whose_reader_has_gone_away(self):
        for command in (["entries", self.archive], ["find", self.archive, "*"]):
            with self.subTest(command[0]):
                read_end, write_end = os.pipe()
                os.close(read_end)
                with subprocess.Popen([archive.OPTIONS.program, *command], stdout=write_end,
                                      stderr=subprocess.PIPE) as process:
                    os.close(write_end)
                    stderr = process.communicate(timeout=archive.TIMEOUT)[1]
                self.assertEqual((process.returncode, stderr), (-signal.SIGPIPE, b""))


class Damages(Small):
    def test_other_files_are_no_documents(self):
        for data, at in ((b"\0" * 5000, 0), (b"\xff" * 300, 0), (b"{}\n", 0), (b"[\n]\n", 0),
                         (b"{\n}\n", 2), (b'{\n    "backup_sets": ""\n}\n', 24),
                         ((self.image / "manifest.json").read_bytes(), None)):
            (self.folder / "d").write_bytes(data)
            at = len(data) - 2 if at is None else at
            self.check_entries("d", status=1, stdout=b"",
                               stderr=lines(f"d: no document: wrong at byte {at}"))

    def test_members_in_another_order(self):
        text = self.data.splitlines(keepends=True)
        first = next(i for i, line in enumerate(text) if b'"length": ' in line)
        at = sum(map(len, text[:first]))
        text[first], text[first + 1] = text[first + 1], text[first]
        (self.folder / "d").write_bytes(b"".join(text))
        self.check_entries("d", status=1, stdout=b"",
                           stderr=lines(f"d: no document: wrong at byte {at}"))

    def test_a_flipped_bit_of_the_layout_is_found_where_it_is(self):
        begin = self.data.index(b'"fentries": [\n') + 14
        end = self.data.index(b"        },\n", begin) + 11
        for at in range(begin, end):
            line = self.data.rindex(b"\n", 0, at) + 1
            position = at - line
            text = self.data[line:self.data.index(b"\n", at) + 1]
            value = text.find(b'": "') + 4 if b'": "' in text else len(text)
            if value <= position < len(text) - len(b'",\n' if text.endswith(b",\n") else b'"\n'):
                continue  # a value, in which another byte may be as good
            data = bytearray(self.data)
            data[at] ^= 1
            (self.folder / "d").write_bytes(bytes(data))
            process = subprocess.run([archive.OPTIONS.program, "entries", "d"], cwd=self.folder,
                                     capture_output=True, check=False, timeout=archive.TIMEOUT)
            self.assertEqual((process.returncode, process.stdout), (1, b""), at)
            self.assertRegex(process.stderr, rb"^d: no document: wrong at byte \d+\n$")
            said = int(process.stderr.split()[-1])
            # Of a newline, at the line behind both that became one.
            behind = self.data.index(b"\n", line + len(text)) + 1
            self.assertIn(said, (begin, line, line + len(text), behind), at)

    def test_what_cannot_be_read_is_said_and_the_others_are_searched(self):
        os.remove(self.document)
        (self.archive / "images/alpha" / FIRST / "manifest.json").write_bytes(b"{")
        error = lines(f"{self.archive}/images/alpha/{FIRST}/manifest.json: not JSON",
                      f"can't open {self.document}: No such file or directory")
        for command in (["find", self.archive, "*"], ["entries", self.archive]):
            status, stdout, stderr = self.run_program(*command)
            self.assertEqual((status, stderr), (4, error))
            self.assertEqual({backup_id for backup_id in SMALL_IDS if backup_id.encode() in stdout},
                             set(SMALL_IDS) - {FIRST, LAST})

    def test_a_filter_that_is_wrong_hides_nothing(self):
        expected = self.run_program("find", self.archive, "*/*")
        whole = (self.image / "paths.filter").read_bytes()
        for data in (b"", whole[:-1], whole[:100], whole + b"x", b"x" + whole[1:],
                     whole[:-9] + bytes(9)):
            (self.image / "paths.filter").write_bytes(data)
            self.assertEqual(self.run_program("find", self.archive, "*/*"), expected)
        self.check(["find", self.archive, "/no/such/path"], status=1)
        (self.image / "paths.filter").unlink()
        (self.image / "paths.filter").symlink_to("/dev/zero")
        self.assertEqual(self.run_program("find", self.archive, "*/*"), expected)


if __name__ == "__main__":
    archive.main(__doc__)
