#!/usr/bin/env python3
"""docs/documents.md agrees with the schemas, and its examples with what the tool makes of a small
catalogue."""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(TESTS / "e2e"))
from documents import IMAGE, SET_LIST
from host_product import make_catalogue

OPTIONS = argparse.Namespace()
PAGE = (TESTS.parent / "docs/documents.md").read_text(encoding="utf-8")

# The catalogue of the examples: backup id, files and size of each image, the parents without files.
ROWS = (("alpha_1500100639", "2", "1.5M"), ("alpha_1500182280", "1", "484K"),
        ("alpha_1500254036", "0", "7M"),
        ("alpha_1500262113", "1", "9P"), ("alpha_1500269921", "0", "2G"))
ENTRIES = {
    "alpha_1500100639": (
        (b"1", b"4096", b"41", b"90", b"88", b"1", b"0", b"0", b"64768",
         '/home/alice/the "final" Übersicht.txt'.encode(), b"33188 alice users 4096"),
        (b"2", b"512", b"35", b"90", b"96", b"1", b"0", b"0", b"64768",
         rb"C:\letters", b"33188 bob users 512"),
    ),
    "alpha_1500182280": (),
    "alpha_1500262113": (
        (b"1", b"7", b"12", b"90", b"1", b"1", b"0", b"0", b"64768",
         b"/srv/caf\xe9", b"33188 bob users 7"),
    ),
}


def examples(language):
    """The fenced blocks of the page in a language."""
    blocks = re.findall(rf"^( *)```{language}\n(.*?)^ *```$", PAGE, re.DOTALL | re.MULTILINE)
    return [re.sub(f"^{indent}", "", block, flags=re.MULTILINE) for indent, block in blocks]


def tables():
    """What each table of members names in its first column, by the section that it is in."""
    found = {}
    for section in PAGE.split("\n## ")[1:]:
        heading, _, text = section.partition("\n")
        _, is_there, table = text.partition("\n| member |")
        if is_there:
            found[heading] = re.findall(r"^\| `(\w+)` \|", table, re.MULTILINE)
    return found


def make_example(metadata):
    """Has the stand-in serve the catalogue of the examples, with `metadata` for each image."""
    make_catalogue(OPTIONS.generator, OPTIONS.root, images=0)
    database = pathlib.Path(OPTIONS.root) / "db"
    rows = "".join(f"{backup_id} {'Sat Jul 15 2017':20}{files} {size} incr Daily MED1\n"
                   for backup_id, files, size in ROWS)
    (database / "listing").write_text(f"\nBackupid Date\n{rows}", encoding="ascii")
    folder = database / "images/alpha/1500000000"
    folder.mkdir(parents=True)
    for backup_id, entries in ENTRIES.items():
        time = backup_id.removeprefix("alpha_")
        (folder / f"{time}.meta").write_text(metadata, encoding="utf-8")
        (folder / f"{time}.id").write_text(f"1\n2\nfile: {time}.f\n", encoding="ascii")
        (folder / f"{time}.f").write_bytes(b"".join(b"\t".join(one) + b"\n" for one in entries))


def run(*arguments):
    return subprocess.run([OPTIONS.program, *arguments], check=True, stdout=subprocess.PIPE).stdout


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.set_list, cls.metadata, cls.image = examples("json")
        make_example(cls.metadata)

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def dump(self, backup_id):
        """Exports an image; returns where its document is."""
        run("--action", "dump_backup", "--backup_id", backup_id, "--output_dir", self.directory)
        return self.directory / f"{backup_id}.json"

    def test_its_tables_name_what_the_schemas_describe(self):
        self.assertEqual(tables(), {
            heading: [*kind.schema["properties"], *kind.members]
            for heading, kind in (("backup_sets.json", SET_LIST), ("BACKUP_ID.json", IMAGE))})

    def test_its_set_list_is_what_the_tool_writes(self):
        self.assertEqual(run("--action", "dump_backup_set_list").decode(), self.set_list)

    def test_its_image_is_what_the_tool_writes(self):
        self.assertEqual(self.dump("alpha_1500100639").read_text(encoding="utf-8"), self.image)

    def test_its_documents_are_as_promised(self):
        self.assertEqual(SET_LIST.problems(self.set_list.encode()), [])
        self.assertEqual(IMAGE.problems(self.image.encode()), [])

    def run_shell(self, lines):
        """Runs shell lines of the page; returns their status and the last line of what they say."""
        tools = self.directory / "tools"
        if not tools.exists():
            tools.mkdir()
            (tools / "quillmere").symlink_to(OPTIONS.program)
        ended = subprocess.run(
            ["sh", "-c", lines], cwd=self.directory, capture_output=True, text=True, check=False,
            env=dict(os.environ, PATH=f"{tools}:{os.environ['PATH']}"))
        self.assertEqual(ended.stdout, "")
        return ended.returncode, ended.stderr.rpartition("\n")[0].rpartition("\n")[2]

    def exported(self):
        """The sets that stand under their names, with the names of their documents."""
        return {path.name: os.listdir(path) for path in self.directory.glob("alpha_*")}

    def test_its_validator_accepts_documents_and_refuses_what_is_none(self):
        run("--action", "dump_backup_set_list", "--output_dir", self.directory)
        self.dump("alpha_1500262113")
        set_list, *image = re.findall(r"^    \$ (.*)$", PAGE, re.MULTILINE)
        self.assertEqual(len(image), 2)
        image = "\n".join(image)
        wrong = self.directory / "wrong.json"
        wrong.write_text('{"fentries": []}', encoding="ascii")
        for lines, status in ((set_list, 0), (image, 0), (set_list.replace("backup_sets.json", "wrong.json", 1), 1),
                              (image.replace("as_utf_8.json /", "wrong.json /"), 1)):
            with self.subTest(lines):
                ended = subprocess.run(
                    ["sh", "-c", lines.replace("/usr/share/quillmere/schemas", str(TESTS.parent / "schemas"))
                     .replace("python3", f"{sys.executable} -W ignore")],
                    cwd=self.directory, capture_output=True, text=True, check=False)
                self.assertEqual((ended.returncode, ended.stdout), (status, ""), ended.stderr)
                self.assertEqual(ended.stderr == "", status == 0, ended.stderr)

    def replace_rec_unfold(self, script):
        """Until the test ends, a shell script is in its place, where `rec_unfold.real` runs it;
        without a script, nothing is."""
        command = pathlib.Path(OPTIONS.root) / "bin/rec_unfold"
        real = command.rename(f"{command}.real")
        self.addCleanup(real.rename, command)
        if script:
            command.write_text(script, encoding="ascii")
            command.chmod(0o755)

    def test_its_shell_lines_export_a_set_under_its_name(self):
        (lines,) = examples("sh")
        for status in (0, 1):  # the second time there is a set of this name
            self.assertEqual(self.run_shell(lines)[0], status)
            self.assertEqual(self.exported(), {"alpha_1500269921": ["alpha_1500262113.json"]})

    def test_its_shell_lines_export_nothing_that_the_product_complained_about(self):
        (lines,) = examples("sh")
        self.replace_rec_unfold(None)
        status, complaint = self.run_shell(lines)
        self.assertEqual(status, 1)
        self.assertRegex(complaint, r"rec_unfold: not found$")
        self.assertEqual(self.exported(), {})

    def test_a_complaint_that_is_known_is_let_pass_and_no_other(self):
        (lines,) = examples("sh")
        (exception,) = re.findall(r"`(! grep -vxF .*?)`", PAGE)
        lines = re.sub(r"! grep '' .*(?= &&)", exception, lines)
        self.replace_rec_unfold("#!/bin/sh\necho the line, or another >&2\nexec $0.real \"$@\"\n")
        self.assertEqual(self.run_shell(lines), (1, "the line, or another"))
        self.assertEqual(self.exported(), {})
        lines = lines.replace("the line", "the line, or another")
        self.assertEqual(self.run_shell(lines), (0, ""))
        self.assertEqual(self.exported(), {"alpha_1500269921": ["alpha_1500262113.json"]})

    def test_its_python_lines_read_the_bytes_of_all_paths(self):
        (lines,) = examples("python")
        names = {}
        exec(lines, names)
        for backup_id, entries in ENTRIES.items():
            self.assertEqual(names["paths"](self.dump(backup_id)),
                             [path for *_, path, _ in entries])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, type=pathlib.Path, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
