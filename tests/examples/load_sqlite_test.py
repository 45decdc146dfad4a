#!/usr/bin/env python3
"""load_sqlite.py and questions.sql on sets that are written by hand, and on exported ones."""

import contextlib
import sqlite3
import subprocess

import example
from example import OPTIONS, ExampleCase, document, entry, make_product, run_tool

ALL_FILES = """SELECT backup_set.create_time, backup_id, path, length
               FROM file JOIN image USING (image) JOIN backup_set USING (create_time)"""


def set_list(*sets):
    """A set list of (time, size) pairs."""
    items = [b'        {\n            "BackupCreateTime": "%d",\n            "BackupSize": "%d"\n'
             b"        }" % one for one in sets]
    return b'{\n    "backup_sets": [\n' + b",\n".join(items) + b"\n    ]\n}\n"


class LoadSqlite(ExampleCase):
    def setUp(self):
        super().setUp()
        self.exports = self.directory / "exports"
        self.exports.mkdir()
        self.database = self.directory / "catalogue.db"

    def export(self, time, listed, **images):
        """Writes the export of a set by hand."""
        self.write(f"exports/{time}/backup_sets.json", listed)
        for backup_id, data in images.items():
            self.write(f"exports/{time}/{backup_id}.json", data)

    def load(self):
        return self.example("load_sqlite.py", self.database, self.exports)

    def assert_loads(self, *times):
        lines = [f"loaded {self.exports / str(time)}\n" for time in times]
        self.assertEqual(self.load(), (0, "".join(lines).encode(), b""))

    def ask(self, question):
        with contextlib.closing(sqlite3.connect(self.database)) as database:
            return database.execute(question).fetchall()

    def test_questions(self):
        small = [entry(b"2", b"small-%d" % number) for number in range(8)]
        self.export(1499913600, set_list((1499913600, 7000)), alpha_1499910001=document())
        self.export(1500000000, set_list((1500000000, 9000), (1499913600, 7000)),
                    alpha_1499990001=document(entry(b"10", rb"\/stays"),
                                              entry(b"20", rb"\/leaves")),
                    alpha_1499990002=document(entry(b"30", rb"\/say \"hi\""),
                                              entry(b"40", b"caf\xe9"), entry(b"1", rb"\/moves")),
                    alpha_1499990003=document())
        self.export(1500086400, set_list((1500086400, 8000), (1500000000, 9000)),
                    alpha_1500080001=document(entry(b"11", rb"\/stays"),
                                              entry(b"500", b"\xe9t\xe9")),
                    alpha_1500080002=document(*small),
                    alpha_1500080003=document(entry(b"1", rb"\/moves"), entry(b"600", rb"a\\b")))
        self.assert_loads(1499913600, 1500000000, 1500086400)
        with (OPTIONS.examples / "questions.sql").open() as questions:
            answers = subprocess.run(["sqlite3", "-readonly", self.database], stdin=questions,
                                     stdout=subprocess.PIPE, check=True).stdout
        self.assertEqual(answers.decode("latin-1").split("\n"), [
            "== The largest files of the newest set",
            "length\tpath",
            "600\ta\\b",
            "500\t\xe9t\xe9",
            "11\t/stays",
            "2\tsmall-0",
            "2\tsmall-1",
            "2\tsmall-2",
            "2\tsmall-3",
            "2\tsmall-4",
            "2\tsmall-5",
            "2\tsmall-6",
            "",
            "== Growth from set to set",
            "create_time\tutc\tsize\tfiles\tlength\tgrowth",
            "1499913600\t2017-07-13 02:40:00\t7000\t0\t0\t",
            "1500000000\t2017-07-14 02:40:00\t9000\t5\t101\t101",
            "1500086400\t2017-07-15 02:40:00\t8000\t12\t1128\t1027",
            "",
            "== Files of the set before the newest one that are not in the newest one",
            "path",
            "/leaves",
            '/say "hi"',
            "caf\xe9",
            ""])

    def test_names_keep_their_bytes(self):
        self.export(1500000000, set_list((1500000000, 1)),
                    **{"caf\udce9_1499990001": document(entry(b"1", rb"a\nb\tc\u0001"),
                                                        entry(b"2", b"\xff"))})
        self.assert_loads(1500000000)
        self.assertEqual(self.ask(ALL_FILES),
                         [(1500000000, b"caf\xe9_1499990001", b"a\nb\tc\x01", 1),
                          (1500000000, b"caf\xe9_1499990001", b"\xff", 2)])

    def test_sets_that_are_there_are_skipped(self):
        listed = set_list((1500000000, 5), (1500000001, 6))
        self.export(1500000000, listed, alpha_1=document(entry(b"1", b"a")))
        self.assert_loads(1500000000)
        self.export(1500000001, listed, alpha_2=document(entry(b"2", b"b")))
        self.assert_loads(1500000001)
        self.assert_loads()
        self.assertEqual(self.ask(ALL_FILES), [(1500000000, b"alpha_1", b"a", 1),
                                               (1500000001, b"alpha_2", b"b", 2)])

    def test_a_size_that_two_sets_of_a_second_do_not_share_is_none(self):
        listed = set_list((7, 2**63 - 1), (6, 3), (6, 4), (5, 8), (5, 8))
        for time in (5, 6, 7):
            self.export(time, listed, alpha_1=document())
        self.assert_loads(5, 6, 7)
        self.assertEqual(self.ask("SELECT * FROM backup_set ORDER BY create_time"),
                         [(5, 8), (6, None), (7, 2**63 - 1)])

    def test_a_set_comes_in_whole_or_not_at_all(self):
        whole = document(entry(b"1", b"a"), entry(b"2", b"b"))
        self.export(1500000000, set_list((1500000000, 5)), alpha_1=whole)
        self.export(1500000001, set_list((1500000001, 5)), alpha_2=whole, alpha_3=whole[:-3])
        status, output, message = self.load()
        self.assertEqual((status, output), (1, f"loaded {self.exports}/1500000000\n".encode()))
        self.assertIn(b"alpha_3.json: the document ends early", message)
        self.assertEqual(self.ask("SELECT create_time FROM backup_set"), [(1500000000,)])
        self.assertEqual(len(self.ask("SELECT * FROM file")), 2)
        self.assertEqual(len(self.ask("SELECT * FROM image")), 1)

    def test_what_an_unfinished_export_leaves_is_not_loaded(self):
        self.write("exports/.export.123456/set/alpha_1.json", document())
        self.assert_fails(self.load(), 1, b"there is no backup set")
        self.export(5, set_list((5, 5)), **{"alpha_1.qvmeta": b'{"files": 1}\n'})
        self.assert_fails(self.load(), 1, b"alpha_1.qvmeta.json", b"not an image document")
        self.exports.joinpath("5/backup_sets.json").unlink()
        self.assert_fails(self.load(), 1, b"backup_sets.json")
        self.assertEqual(self.ask("SELECT * FROM backup_set"), [])

    def test_wrong_arguments_show_the_usage(self):
        for arguments in ((), ("a",), ("a", "b", "c")):
            self.assert_fails(self.example("load_sqlite.py", *arguments), 2,
                              b"usage: load_sqlite.py")

    def test_exported_sets(self):
        product = make_product(seed=2, clients=1, policies=1, images=30)
        sets = product.sets()
        self.assertGreater(len(sets), 2)
        expected = []
        for one in sets:
            target = self.exports / str(one.time)
            target.mkdir()
            run_tool("dump_backup_set_list", output_dir=target)
            run_tool("dump_backup_set", time=one.time, output_dir=target)
            for backup_id in one.image_ids:
                for line in product.entry_lines(backup_id):
                    fields = line.split(b"\t")
                    expected.append((one.time, backup_id.encode(), fields[9], int(fields[1])))
        self.assert_loads(*sorted(one.time for one in sets))
        self.assertEqual(sorted(self.ask(ALL_FILES)), sorted(expected))
        self.assertEqual(sorted(self.ask("SELECT create_time, size FROM backup_set")),
                         sorted((one.time, one.size) for one in sets))


if __name__ == "__main__":
    example.main()
