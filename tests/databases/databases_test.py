#!/usr/bin/env python3
"""examples/sqlite and examples/clickhouse: two servers' archives are loaded into an SQLite database and
into two ClickHouse shards, and each question is asked of both. What they hold and answer is compared with
answers by hand, with what the product's own commands print, and with each other."""

import argparse
import concurrent.futures
import contextlib
import doctest
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "cli_texts"))
import console
from hand_made import HandMadeArchive
from host_product import HostProduct, make_catalogue

OPTIONS = argparse.Namespace()
TIMEOUT = 120  # seconds
MIDNIGHT = 1499990400  # of 2017-07-14, a Friday, in UTC
NORTH, SOUTH = b"north", b"s\xfcd"
STRANGE = b"/home/bob/caf\xe9\ttab\nline\\back'"
SHARDS = None


def setUpModule():
    global SHARDS
    SHARDS = Shards()
    unittest.addModuleCleanup(SHARDS.end)


class Shards:
    """Two ClickHouse servers, started as the README says."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="shards-")
        self.ports = free_ports(2)
        environment = {f"QUILLMERE_SHARD_{number}": port for number, port in enumerate(self.ports, 1)}
        (command,) = [shown for shown, _ in shown_by("examples/clickhouse/README.md") if "two_shards" in shown]
        # The shell that it runs lives until this process closes the pipe, or is no more.
        self.process = subprocess.Popen(
            command.replace("/srv/shards", self.folder.name).split(), stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, cwd=OPTIONS.examples.parent, env=os.environ | environment)
        self.process.stdin.write(b"echo ready\n")
        self.process.stdin.flush()
        ready = self.process.stdout.readline()
        if ready != b"ready\n":
            self.end()
            raise AssertionError("the shards don't start")

    def end(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()
        self.folder.cleanup()

    def options(self, shard):
        return ["--host", "127.0.0.1", "--port", self.ports[shard]]

    def query(self, shard, text):
        return subprocess.run(["clickhouse-client", *self.options(shard), "--multiquery", "--query",
                               text], check=True, stdout=subprocess.PIPE).stdout

    def make_empty(self):
        schema = (OPTIONS.examples / "clickhouse/schema.sql").read_text()
        at_once(*(functools.partial(self.query, shard, "DROP DATABASE quillmere;" + schema)
                  for shard in (0, 1)))


def at_once(*calls):
    """What each of these functions returns."""
    with concurrent.futures.ThreadPoolExecutor(len(calls)) as threads:
        return tuple(one.result() for one in [threads.submit(call) for call in calls])


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [str(one.getsockname()[1]) for one in sockets]


def shown_by(readme):
    """The commands that it shows, and what they print."""
    return console.commands("\n\n".join(console.blocks_of_markdown(readme, "$")))


def unescaped(text):
    """As it is told by json, which knows these escapes."""
    text = text.decode("latin-1").replace('"', '\\"').replace("\\'", "'")
    return json.loads(f'"{text}"', strict=False).encode("latin-1")


def day(number, hour=0, minute=0):
    return MIDNIGHT + 86400 * number + 3600 * hour + 60 * minute


def report(loaded=0, removed=0, failed=0, sets=0):
    return f"{loaded} images loaded, {removed} removed, {failed} failed; {sets} sets\n".encode()


class Examples(unittest.TestCase):
    """A folder for each test."""

    maxDiff = 4000

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="databases-")
        self.addCleanup(directory.cleanup)
        self.folder = pathlib.Path(directory.name).resolve()
        self.database = self.folder / "catalogue.db"

    def example(self, name, *arguments, **environment):
        """Runs a program of the examples; returns its status, standard output and standard error."""
        environment = {"QUILLMERE_ARCHIVE": OPTIONS.program} | environment
        result = subprocess.run([sys.executable, OPTIONS.examples / name, *arguments],
                                stdin=subprocess.DEVNULL, capture_output=True, check=False,
                                env=os.environ | environment, timeout=TIMEOUT)
        return result.returncode, result.stdout, result.stderr

    def load(self, archive, shard, **environment):
        """What both loaders do with an archive."""
        return at_once(
            functools.partial(self.example, "sqlite/load.py", self.database, archive, **environment),
            functools.partial(self.example, "clickhouse/load.py", archive, *SHARDS.options(shard),
                              **environment))


class Databases(Examples):
    """And two empty shards."""

    asked = 0  # the shard that was asked last

    def setUp(self):
        super().setUp()
        SHARDS.make_empty()

    def assert_loads(self, archive, shard, status=0, stderr=b"", **numbers):
        for result in self.load(archive, shard):
            self.assertEqual(result, (status, report(**numbers), stderr))

    def ask(self, question, *arguments):
        """The rows of the answer, from the database and from the one shard or the other."""
        self.asked = 1 - self.asked
        answers = at_once(
            functools.partial(self.example, "sqlite/ask.py", self.database, question, *arguments),
            functools.partial(self.example, "clickhouse/ask.py", question, *arguments,
                              *SHARDS.options(self.asked)))
        tables = []
        for status, stdout, stderr in answers:
            self.assertEqual((status, stderr), (0, b""))
            tables.append([tuple(map(unescaped, line.split(b"\t")))
                           for line in stdout.split(b"\n")[:-1]])
        self.assertEqual(tables[0], tables[1])
        return tables[0]

    def assert_answer(self, question, *rows):
        """The names of the columns, and the rows."""
        expected = [tuple(cell if isinstance(cell, bytes) else str(cell).encode() for cell in row)
                    for row in rows]
        self.assertEqual(self.ask(*question), expected)

    def files(self):
        """(server, backup id, length, path) of each file entry that counts, from both."""
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            in_database = sorted(database.execute(
                "SELECT server, backup_id, length, path FROM file JOIN named_image USING (image)"))
            self.assertEqual(database.execute("PRAGMA integrity_check").fetchall(), [("ok",)])
        in_shards = SHARDS.query(0, """
            SELECT server, backup_id, length, path FROM quillmere.file
            ALL INNER JOIN (SELECT load, server, backup_id FROM quillmere.image_here) USING load""")
        rows = [tuple(map(unescaped, line.split(b"\t"))) for line in in_shards.split(b"\n")[:-1]]
        self.assertEqual(sorted((server, backup_id, int(length), path)
                                for server, backup_id, length, path in rows), in_database)
        return in_database

    def file_rows(self, shard):
        """All that are stored there, whether they count or not."""
        return int(SHARDS.query(shard, "SELECT count() FROM quillmere.file_here"))


class ByHand(Databases):
    """Two servers with a client of the same name."""

    def setUp(self):
        super().setUp()
        self.north = HandMadeArchive(self.folder / "north", NORTH)
        self.full_0 = self.north.image("alpha", "Daily", "full", day(0, 1), files=[
            (b"/home/alice/a.txt", 100), (b"/home/alice/b.txt", 50), (b"/etc/hosts", 10),
            (STRANGE, 7)])
        self.incr_1 = self.north.image("alpha", "Daily", "incr", day(1, 1), files=[
            (b"/etc/hosts", 11)])
        self.full_3 = self.north.image("alpha", "Daily", "full", day(3, 1), files=[
            (b"/home/alice/a.txt", 120), (b"/etc/hosts", 11), (b"/home/carol/new.bin", 1000)])
        self.also_3 = self.north.image("alpha", "Daily", "full", day(3, 1, 30), files=[
            (b"/var/log/x", 5)])
        self.incr_4 = self.north.image("alpha", "Daily", "incr", day(4, 1), files=[
            (b"/etc/hosts", 12)])
        self.north.set("alpha", "Daily", "full", day(0, 2), self.full_0)
        self.north.set("alpha", "Daily", "incr", day(1, 2), self.incr_1)
        self.north.set("alpha", "Daily", "full", day(3, 2), self.full_3, self.also_3)
        self.south = HandMadeArchive(self.folder / "south", SOUTH)
        self.full_2 = self.south.image("alpha", "P'\\1", "Full-W", day(2, 23), files=[
            (b"/etc/hosts", 10), (b"/srv/\xff", 3)])
        self.south.set("alpha", "P'\\1", "Full-W", day(2, 23), self.full_2)

    def load_both(self):
        self.assert_loads(self.north.path, 0, loaded=5, sets=3)
        self.assert_loads(self.south.path, 1, loaded=1, sets=1)

    def test_each_question_and_loading_again(self):
        self.load_both()
        for check in (self.check_who_holds_a_path, self.check_every_version_of_a_path,
                      self.check_the_largest_files_and_folders, self.check_growth,
                      self.check_what_left_between_two_full_backups,
                      self.check_nights_without_a_set, self.check_files_on_more_than_one_server,
                      self.check_that_loading_again_changes_nothing):
            with self.subTest(check.__name__):
                check()

    HOLDERS = ("set_time", "server", "client", "policy", "schedule", "backup_id", "length")

    def check_who_holds_a_path(self):
        in_full_3 = ("2017-07-17 02:00:00", NORTH, "alpha", "Daily", "full", self.full_3, 11)
        in_full_2 = ("2017-07-16 23:00:00", SOUTH, "alpha", "P'\\1", "Full-W", self.full_2, 10)
        in_incr_1 = ("2017-07-15 02:00:00", NORTH, "alpha", "Daily", "incr", self.incr_1, 11)
        for before in ("2017-07-18", "2017-07-17T04:00:01+02:00", str(day(3, 2) + 1)):
            self.assert_answer(("holders", b"/etc/hosts", before), self.HOLDERS, in_full_3, in_full_2)
        self.assert_answer(("holders", b"/etc/hosts", "2017-07-17T02:00:00Z"),
                           self.HOLDERS, in_full_2, in_incr_1)
        self.assert_answer(("holders", b"/etc/hosts", str(day(0, 2))), self.HOLDERS)
        self.assert_answer(("holders", STRANGE, "2017-07-18"), self.HOLDERS,
                           ("2017-07-14 02:00:00", NORTH, "alpha", "Daily", "full", self.full_0, 7))
        self.assert_answer(("holders", b"/srv/\xff", "2017-07-18"), self.HOLDERS,
                           ("2017-07-16 23:00:00", SOUTH, "alpha", "P'\\1", "Full-W", self.full_2, 3))
        self.assert_answer(("holders", b"/etc", "2017-07-18"), self.HOLDERS)

    def check_every_version_of_a_path(self):
        self.assert_answer(
            ("versions", b"/etc/hosts"),
            ("backup_time", "server", "client", "policy", "schedule", "backup_id", "length"),
            ("2017-07-18 01:00:00", NORTH, "alpha", "Daily", "incr", self.incr_4, 12),
            ("2017-07-17 01:00:00", NORTH, "alpha", "Daily", "full", self.full_3, 11),
            ("2017-07-16 23:00:00", SOUTH, "alpha", "P'\\1", "Full-W", self.full_2, 10),
            ("2017-07-15 01:00:00", NORTH, "alpha", "Daily", "incr", self.incr_1, 11),
            ("2017-07-14 01:00:00", NORTH, "alpha", "Daily", "full", self.full_0, 10))

    def check_the_largest_files_and_folders(self):
        north, south = (NORTH, "alpha", "Daily"), (SOUTH, "alpha", "P'\\1")
        self.assert_answer(("largest-files", "4"),
                           ("length", "server", "client", "policy", "path"),
                           (1000, *north, b"/home/carol/new.bin"), (120, *north, b"/home/alice/a.txt"),
                           (11, *north, b"/etc/hosts"), (10, *south, b"/etc/hosts"))
        header = ("bytes", "files", "server", "client", "policy", "folder")
        self.assert_answer(("largest-folders", "1", "9"), header,
                           (1120, 2, *north, b"/home"), (11, 1, *north, b"/etc"),
                           (10, 1, *south, b"/etc"), (5, 1, *north, b"/var"), (3, 1, *south, b"/srv"))
        self.assert_answer(("largest-folders", "2", "5"), header,
                           (1000, 1, *north, b"/home/carol"), (120, 1, *north, b"/home/alice"),
                           (11, 1, *north, b"/etc"), (10, 1, *south, b"/etc"),
                           (5, 1, *north, b"/var/log"))

    def check_growth(self):
        self.assert_answer(
            ("growth",),
            ("monday", "server", "client", "full_files", "full_bytes", "incremental_files",
             "incremental_bytes"),
            ("2017-07-10", NORTH, "alpha", 4, 167, 1, 11), ("2017-07-10", SOUTH, "alpha", 2, 13, 0, 0),
            ("2017-07-17", NORTH, "alpha", 4, 1136, 1, 12))

    def check_what_left_between_two_full_backups(self):
        self.assert_answer(("left", NORTH, "alpha", "Daily", "2017-07-18"), ("path", "length"),
                           (b"/home/alice/b.txt", 50), (STRANGE, 7))
        self.assert_answer(("left", NORTH, "alpha", "Daily", "2017-07-17"), ("path", "length"))
        self.assert_answer(("left", SOUTH, "alpha", "P'\\1", "2017-07-18"), ("path", "length"))

    def check_nights_without_a_set(self):
        self.assert_answer(("nights", "2017-07-12", "2017-07-17"),
                           ("night", "server", "client", "policy"),
                           ("2017-07-15", NORTH, "alpha", "Daily"),
                           ("2017-07-17", NORTH, "alpha", "Daily"),
                           ("2017-07-17", SOUTH, "alpha", "P'\\1"))
        self.assert_answer(("nights", "2017-07-16", "2017-07-16"),
                           ("night", "server", "client", "policy"))

    def check_files_on_more_than_one_server(self):
        self.assert_answer(("spread", "10", "5"), ("servers", "length", "path"),
                           (2, 10, b"/etc/hosts"))
        self.assert_answer(("spread", "11", "5"), ("servers", "length", "path"))

    def check_that_loading_again_changes_nothing(self):
        before = self.files()
        self.assert_loads(self.north.path, 0, sets=3)
        self.assert_loads(self.south.path, 1, sets=1)
        # Nor does another shard, which refuses it.
        self.assertEqual(
            self.example("clickhouse/load.py", self.north.path, *SHARDS.options(1)),
            (1, b"", f"load.py: {self.north.path}: its server is on another shard\n".encode()))
        self.assertEqual(self.files(), before)
        self.assertEqual((self.file_rows(0), self.file_rows(1)), (10, 2))

    def test_what_the_archive_has_pruned_goes(self):
        self.load_both()
        self.north.prune(self.full_0)
        self.north.set_path("alpha", "Daily", "full", day(0, 2)).unlink()
        # The parent of day 3 expired: its images are sets of their own now.
        self.north.set_path("alpha", "Daily", "full", day(3, 2)).unlink()
        self.north.set("alpha", "Daily", "full", day(3, 1), self.full_3)
        self.north.set("alpha", "Daily", "full", day(3, 1, 30), self.also_3)
        self.north.set("alpha", "Daily", "incr", day(4, 2), self.incr_4)
        self.assert_loads(self.north.path, 0, removed=1, sets=4)
        self.assert_answer(("holders", STRANGE, "2017-07-18"), self.HOLDERS)
        self.assert_answer(("holders", b"/etc/hosts", "2017-07-18T12:00:00"), self.HOLDERS,
                           ("2017-07-18 02:00:00", NORTH, "alpha", "Daily", "incr", self.incr_4, 12),
                           ("2017-07-16 23:00:00", SOUTH, "alpha", "P'\\1", "Full-W", self.full_2, 10))
        self.assert_answer(("left", NORTH, "alpha", "Daily", "2017-07-18"), ("path", "length"),
                           (b"/etc/hosts", 11), (b"/home/alice/a.txt", 120),
                           (b"/home/carol/new.bin", 1000))

    def test_an_image_with_another_document_is_loaded_again(self):
        self.load_both()
        self.assertEqual(self.full_2, self.south.image("alpha", "P'\\1", "Full-W", day(2, 23), files=[
            (b"/etc/hosts", 13)]))
        self.assert_loads(self.south.path, 1, loaded=1, sets=1)
        self.assertEqual([row for row in self.files() if row[0] == SOUTH],
                         [(SOUTH, self.full_2.encode(), 13, b"/etc/hosts")])
        self.assert_answer(("left", SOUTH, "alpha", "P'\\1", "2017-07-18"), ("path", "length"))

    def test_a_set_without_one_of_its_images_is_none(self):
        self.north.prune(self.also_3)
        self.assert_loads(self.north.path, 0, loaded=4, sets=2)

    def test_an_empty_archive(self):
        empty = HandMadeArchive(self.folder / "empty", b"empty")
        self.assert_loads(empty.path, 0)
        image = empty.image("alpha", "Daily", "full", day(0), files=[])
        empty.set("alpha", "Daily", "full", day(0), image)
        self.assert_loads(empty.path, 0, loaded=1, sets=1)
        empty.prune(image)
        empty.set_path("alpha", "Daily", "full", day(0)).unlink()
        self.assert_loads(empty.path, 0, removed=1)
        self.assertEqual(self.files(), [])

    def test_an_image_that_cannot_be_read_leaves_the_others_alone(self):
        document = self.north.document(self.full_3)
        data = document.read_bytes()
        document.write_bytes(data[:-30] + b"?" * 30)
        place = data.rindex(b'            "data": ')
        self.assertLess(place, len(data) - 30)
        self.assert_loads(self.north.path, 0, status=1, loaded=4, failed=1, sets=2,
                          stderr=f"{document}: no document: wrong at byte {place}\n".encode())
        self.assertEqual({row[1] for row in self.files()}, {
            one.encode() for one in (self.full_0, self.incr_1, self.also_3, self.incr_4)})
        document.write_bytes(data)
        self.assert_loads(self.north.path, 0, loaded=1, sets=3)

    def test_a_length_is_a_number(self):
        for length in ("-1", "1234567890123456789"):
            with self.subTest(length):
                image = self.south.image("beta", "Daily", "full", day(5), files=[
                    (b"/a", 1), (b"/b", length)])
                results = self.load(self.south.path, 1)
                folder = os.fsencode(self.south.folder(image))
                self.assertEqual([result[2] for result in results],
                                 [folder + b": the length of an entry is no number\n"] * 2)
                self.assertEqual([result[0] for result in results], [1, 1])
        image = self.south.image("beta", "Daily", "full", day(5), files=[
            (b"/b", 999999999999999999)])
        self.assert_loads(self.south.path, 1, loaded=1, sets=1)
        self.assertIn((SOUTH, image.encode(), 999999999999999999, b"/b"), self.files())

    def test_a_newer_format_is_refused(self):
        manifest = self.north.folder(self.full_0) / "manifest.json"
        manifest.write_bytes(manifest.read_bytes().replace(b'"version": 1', b'"version": 2'))
        expected = (1, b"", f"load.py: {manifest}: format version 2 is newer than this program\n".encode())
        self.assertEqual(self.load(self.north.path, 0), (expected, expected))
        (self.north.path / "archive.json").write_bytes(manifest.read_bytes())
        expected = (1, b"", f"load.py: {self.north.path}/archive.json: not of quillmere-archive\n".encode())
        self.assertEqual(self.load(self.north.path, 0), (expected, expected))

    def test_an_image_that_is_pruned_meanwhile_is_no_failure(self):
        for loader in ("sqlite/load.py", "clickhouse/load.py"):
            archive = self.folder / loader.partition("/")[0]
            shutil.copytree(self.north.path, archive)
            gone = archive / self.north.folder(self.full_0).relative_to(self.north.path)
            program = self.program(f'[ "$4" != {gone} ] || rm -r {gone}')
            self.assertEqual(self.example(loader, *self.places(loader, archive),
                                          QUILLMERE_ARCHIVE=program), (0, report(loaded=4, sets=2), b""))

    def places(self, loader, archive, shard=0):
        """The arguments of a loader."""
        if loader == "sqlite/load.py":
            return self.database, archive
        return archive, *SHARDS.options(shard)

    def program(self, lines):
        """quillmere-archive, which does something else before."""
        path = self.folder / "program"
        path.write_text(f'#!/bin/sh\n{lines}\nexec {OPTIONS.program} "$@"\n')
        path.chmod(0o755)
        return str(path)

    def test_entries_that_fail_without_a_word(self):
        failed = (1, report(failed=1),
                  f"{self.south.folder(self.full_2)}: false ended with status 1\n".encode())
        self.assertEqual(self.load(self.south.path, 1, QUILLMERE_ARCHIVE="false"), (failed, failed))
        missing = (1, b"", b"load.py: [Errno 2] No such file or directory: '/no/program'\n")
        self.assertEqual(self.load(self.south.path, 1, QUILLMERE_ARCHIVE="/no/program"),
                         (missing, missing))

    def test_a_load_that_could_be_taken_for_cut_does_not_count(self):
        run = ("import load\nload.LONGEST_LOAD = -1\ntry:\n"
               f"    load.main(load.pathlib.Path({str(self.south.path)!r}), {SHARDS.options(1)!r})\n"
               "except load.LoadError as error:\n    print(error)\n")
        result = subprocess.run([sys.executable, "-c", run], cwd=OPTIONS.examples / "clickhouse",
                                check=True, stdout=subprocess.PIPE,
                                env=os.environ | {"QUILLMERE_ARCHIVE": OPTIONS.program})
        self.assertEqual(result.stdout,
                         f"{self.south.path}: a load took longer than -1 seconds\n".encode())
        self.assertEqual(self.file_rows(1), 2)
        self.assertEqual(SHARDS.query(1, "SELECT count() FROM quillmere.image_here"), b"0\n")

    def test_more_columns_come_with_the_schema(self):
        copy = self.folder / "examples"
        for name in ("common", "python", "sqlite"):
            shutil.copytree(OPTIONS.examples / name, copy / name)
        schema = copy / "sqlite/schema.sql"
        text = schema.read_text()
        self.assertEqual(text.count("    path BLOB NOT NULL,\n"), 1)
        schema.write_text(text.replace("    path BLOB NOT NULL,\n",
                                       "    path BLOB NOT NULL,\n    data BLOB, device_num BLOB,\n"))
        subprocess.run([sys.executable, copy / "sqlite/load.py", self.database, self.south.path],
                       check=True, capture_output=True,
                       env=os.environ | {"QUILLMERE_ARCHIVE": OPTIONS.program})
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            self.assertEqual(
                database.execute("SELECT length, path, data, device_num FROM file").fetchall(),
                [(10, b"/etc/hosts", b"33188 alice", b"64768"),
                 (3, b"/srv/\xff", b"33188 alice", b"64768")])


class Catalogues(Databases):
    """What two catalogues of the stand-in hold arrives whole."""

    CLIENTS = {b"one": 2, b"two": 3}  # two of them are the same

    @classmethod
    def setUpClass(cls):
        folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="catalogues-")))
        cls.archives, cls.expected, cls.sets = [], [], []
        for server, clients in cls.CLIENTS.items():
            make_catalogue(OPTIONS.generator, OPTIONS.root, seed=11, clients=clients, policies=3,
                           nights=10, entries=60)
            product = HostProduct(OPTIONS.root)
            archive = folder / server.decode()
            subprocess.run([OPTIONS.program, "init", "--server", server, archive], check=True)
            subprocess.run([OPTIONS.program, "sync", "--quiet", archive], check=True)
            images = [image.backup_id for image in product.images() if image.files != 0]
            cls.archives.append(archive)
            cls.sets.append(len(product.sets()))
            for backup_id in images:
                for line in product.entry_lines(backup_id):
                    fields = line.split(b"\t")
                    cls.expected.append((server, backup_id.encode(), int(fields[1]), fields[9]))
            cls.expected.sort()

    def images(self, archive):
        return len(list(archive.glob("images/*/*")))

    def load_all(self):
        for shard, archive in enumerate(self.archives):
            self.assert_loads(archive, shard, loaded=self.images(archive), sets=self.sets[shard])

    def test_all_of_it_arrives_and_both_answer_alike(self):
        self.assertGreater(len(self.expected), 10000)
        self.load_all()
        self.assertEqual(self.files(), self.expected)
        newest = max(row[1].rpartition(b"_")[2] for row in self.expected).decode()
        answers = 0
        for path in sorted({row[3] for row in self.expected})[::1500]:
            held = [row for row in self.expected if row[3] == path]
            self.assertEqual(len(self.ask("versions", path)), 1 + len(held))
            answers += len(self.ask("holders", path, newest))
        self.assertGreater(answers, 10)
        for question in (("largest-files", "1000"), ("largest-folders", "1", "50"),
                         ("largest-folders", "3", "1000"), ("growth",), ("spread", "1", "1000"),
                         ("left", b"one", "alpha", "Daily", newest),
                         ("nights", "2017-07-10", "2017-07-30")):
            with self.subTest(question):
                self.assertGreater(len(self.ask(*question)), 2)

    def test_a_load_that_is_killed_counts_for_nothing(self):
        """It ends in the middle of an image, with all those before it behind it."""
        archive = self.archives[0]
        images = self.images(archive)
        count = self.folder / "count"
        program = self.folder / "killer"
        # In the middle of the fifth image, it kills the loader.
        program.write_text(f"""#!/bin/sh
echo >>{count}
if [ "$(wc -l <{count})" -eq 5 ]; then
  {OPTIONS.program} "$@" | head -n 30
  kill -9 $PPID
fi
exec {OPTIONS.program} "$@"
""")
        program.chmod(0o755)
        killed = (-signal.SIGKILL, b"", b"")
        self.assertEqual(self.example("sqlite/load.py", self.database, archive,
                                      QUILLMERE_ARCHIVE=str(program)), killed)
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            self.assertEqual(database.execute("SELECT count(*), max(number) FROM file").fetchall(),
                             [(4 * 60, 60)])
            self.assertEqual(database.execute("SELECT count(*) FROM image").fetchall(), [(4,)])
        count.unlink()
        # What has arrived is stored at once, and not with the rest of a million.
        at_once = ("--max_insert_block_size=50", "--min_insert_block_size_rows=50")
        self.assertEqual(self.example("clickhouse/load.py", archive, *SHARDS.options(0), *at_once,
                                      QUILLMERE_ARCHIVE=str(program)), killed)
        self.wait_for(lambda: self.file_rows(0) > 0)
        self.assertEqual(SHARDS.query(0, "SELECT count() FROM quillmere.image"), b"0\n")
        self.assertEqual(self.ask_shard("spread", "0", "9"), b"servers\tlength\tpath\n")
        cut = self.file_rows(0)

        for result, loaded in zip(self.load(archive, 0), (images - 4, images)):
            self.assertEqual(result, (0, report(loaded=loaded, sets=self.sets[0]), b""))
        whole = [row for row in self.expected if row[0] == b"one"]
        self.assertEqual(self.files(), whole)

        self.assertEqual(self.file_rows(0), len(whole) + cut)
        self.assertEqual(self.clear(), b"0 loads cleared\n")  # it could be at work
        self.assertEqual(self.file_rows(0), len(whole) + cut)
        self.assertEqual(self.clear(age=-1), f"{images} loads cleared\n".encode())
        self.assertEqual(self.file_rows(0), len(whole))
        self.assertEqual(self.files(), whole)
        self.assertEqual(self.clear(age=-1), b"0 loads cleared\n")

    def ask_shard(self, *question):
        return self.example("clickhouse/ask.py", *question, *SHARDS.options(0))[1]

    def wait_for(self, condition):
        end = time.monotonic() + TIMEOUT
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.1)

    def clear(self, age=None):
        """Removes what is no part of any image and was begun so many seconds ago."""
        if age is None:
            status, stdout, stderr = self.example("clickhouse/clear.py", *SHARDS.options(0))
            self.assertEqual((status, stderr), (0, b""))
            return stdout
        run = f"import clear; clear.AGE = {age}; clear.main({SHARDS.options(0)!r})"
        return subprocess.run([sys.executable, "-c", run], cwd=OPTIONS.examples / "clickhouse",
                              check=True, stdout=subprocess.PIPE).stdout


class CommandLines(Examples):
    def questions(self, folder):
        text = (OPTIONS.examples / folder / "questions.sql").read_text()
        return ("the questions:\n"
                + "".join(f"  {line[4:]}\n" for line in text.splitlines() if line.startswith("--- "))
                ).encode()

    def test_both_have_the_same_questions(self):
        self.assertEqual(self.questions("sqlite"), self.questions("clickhouse"))
        self.assertEqual(self.questions("sqlite").count(b"\n"), 9)

    def test_wrong_questions_show_the_right_ones(self):
        for arguments in ((), ("who",), ("holders", "/etc/hosts")):
            self.assertEqual(self.example("sqlite/ask.py", self.database, *arguments),
                             (2, b"", self.questions("sqlite")))
            self.assertEqual(self.example("clickhouse/ask.py", *arguments),
                             (2, b"", self.questions("clickhouse")))

    def test_wrong_arguments(self):
        for arguments, message in (
                (("holders", "/a", "yesterday"), b"BEFORE is no time: yesterday\n"),
                (("largest-files", "many"), b"COUNT is no number: many\n"),
                (("spread", "1", "-1"), b"COUNT is no number: -1\n")):
            self.assertEqual(self.example("sqlite/ask.py", self.database, *arguments), (2, b"", message))
            self.assertEqual(self.example("clickhouse/ask.py", *arguments), (2, b"", message))
        self.assertEqual(self.example("sqlite/ask.py", self.database, "growth", "more"),
                         (2, b"", b"ask.py: too many arguments: more\n"))

    def test_wrong_arguments_of_load(self):
        for arguments in ((), ("a",), ("a", "b", "c")):
            self.assertEqual(self.example("sqlite/load.py", *arguments),
                             (2, b"", b"usage: load.py DATABASE ARCHIVE\n"))
        self.assertEqual(self.example("clickhouse/load.py"), (
            2, b"", b"usage: load.py ARCHIVE [OPTION_OF_CLICKHOUSE_CLIENT...]\n"))

    def test_what_is_not_there(self):
        (port,) = free_ports(1)
        archive = HandMadeArchive(self.folder / "archive", b"a").path
        nowhere = self.folder / "nowhere"
        missing = (1, b"", f"load.py: [Errno 2] No such file or directory: '{nowhere}/archive.json'\n"
                   .encode())
        self.assertEqual(self.load(nowhere, 0), (missing, missing))
        self.assertEqual(self.example("sqlite/ask.py", nowhere, "growth"),
                         (1, b"", b"ask.py: unable to open database file\n"))
        for command in (("load.py", archive), ("ask.py", "growth"), ("clear.py",)):
            status, stdout, stderr = self.example(
                f"clickhouse/{command[0]}", *command[1:], "--host", "127.0.0.1", "--port", port)
            self.assertEqual((status, stdout), (1, b""))
            self.assertRegex(stderr, rb"\A%b: Code: 210\. DB::NetException: Connection refused.*\n\Z"
                             % command[0].encode())

    def test_a_client_that_fails(self):
        self.assertEqual(self.example("clickhouse/ask.py", "growth", "--nonsense"), (
            1, b"", b"ask.py: Bad arguments: unrecognised option '--nonsense'\n"))
        silent = self.folder / "clickhouse-client"
        silent.write_text("#!/bin/sh\nexit 1\n")
        silent.chmod(0o755)
        self.assertEqual(self.example("clickhouse/ask.py", "growth",
                                      PATH=f"{self.folder}:{os.environ['PATH']}"),
                         (1, b"", b"ask.py: clickhouse-client failed\n"))

    def test_two_shards_needs_a_command(self):
        result = subprocess.run([OPTIONS.examples / "clickhouse/two_shards.sh", self.folder],
                                capture_output=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (
            2, b"", b"usage: two_shards.sh FOLDER COMMAND [ARGUMENT...]\n"))

    def test_two_shards_needs_its_ports(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            ports = {"QUILLMERE_SHARD_1": str(taken.getsockname()[1]),
                     "QUILLMERE_SHARD_2": free_ports(1)[0]}
            result = subprocess.run(
                [OPTIONS.examples / "clickhouse/two_shards.sh", self.folder, "true"],
                capture_output=True, check=False, env=os.environ | ports)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (
            1, b"", f"two_shards.sh: no server on port {ports['QUILLMERE_SHARD_1']}; {self.folder} has "
                    "its log\n".encode()))

    def test_what_the_helpers_say_of_themselves(self):
        sys.path.insert(0, str(OPTIONS.examples / "common"))
        import tsv  # of the examples
        self.assertEqual(doctest.testmod(tsv), (0, 4))


class Readmes(Databases, console.Console):
    """What the two README files show of a shell happens like that."""

    FOLDERS = ("/opt", "/srv")

    def setUp(self):
        Databases.setUp(self)
        console.Console.setUp(self)
        for examples in ("examples", "opt/examples"):
            (self.directory / examples).symlink_to(OPTIONS.examples.resolve())
        self.script("quillmere-archive", f'exec {OPTIONS.program} "$@"')
        north, south = self.server("north"), self.server("south")
        self.fill_north(north)
        image = south.image("alpha", "Weekly", "full", day(2, 23), files=[(b"/etc/hosts", 10)])
        south.set("alpha", "Weekly", "full", day(2, 23), image)

    def server(self, name, folder=None):
        return HandMadeArchive(self.directory / "srv" / (folder or name), name.encode())

    def fill_north(self, archive):
        full = archive.image("alpha", "Daily", "full", day(0, 1), files=[(b"/etc/hosts", 10)])
        incr = archive.image("alpha", "Daily", "incr", day(1, 1), files=[(b"/etc/hosts", 11)])
        members = [archive.image("alpha", "Daily", "full", day(3, 1), files=[
            (b"/etc/hosts", 11), (b"/home/carol/new.bin", 1000)])]
        members += [archive.image("alpha", "Daily", "full", day(3, 1, number), files=[
            (b"/var/log/%d" % number, 5)]) for number in (10, 20)]
        archive.set("alpha", "Daily", "full", day(0, 2), full)
        archive.set("alpha", "Daily", "incr", day(1, 2), incr)
        archive.set("alpha", "Daily", "full", day(3, 2), *members)

    def assert_happens(self, readme, shown, replaced=None):
        found = [pair for pair in shown_by(readme) if "two_shards" not in pair[0]]
        self.assertEqual(len(found), shown)
        for command, expected in found:
            with self.subTest(command):
                for old, new in (replaced or {}).items():
                    command = command.replace(old, new)
                self.assertEqual(self.shell(command), (0, expected.strip("\n") + "\n", ""))

    def test_of_sqlite(self):
        self.fill_north(self.server("north", "archive"))
        self.assert_happens("examples/sqlite/README.md", 3)
        self.assertEqual((self.directory / "srv/catalogue.db").stat().st_mode, 0o100600)
        (cron,) = re.findall(r"^    0 8 \* \* \*  quillmere-archive  (.*)$",
                             (console.ROOT / "examples/sqlite/README.md").read_text(encoding="utf-8"),
                             re.MULTILINE)
        (self.directory / "srv/catalogue.db").unlink()
        self.assertEqual(self.shell(cron), (0, "", ""))
        self.assertTrue((self.directory / "srv/catalogue.db").exists())

    def test_of_clickhouse(self):
        self.assert_happens("examples/clickhouse/README.md", 3, dict(zip(("9001", "9002"), SHARDS.ports)))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--examples", required=True, type=pathlib.Path)
    parser.add_argument("--program", required=True, help="quillmere-archive")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    os.environ["PATH"] += ":/usr/sbin"
    if not shutil.which("clickhouse-server"):
        print("no clickhouse-server: Debian 12 has it")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
