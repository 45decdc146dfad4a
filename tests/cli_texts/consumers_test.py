#!/usr/bin/env python3
"""Each road of docs/consumers.md is taken, on the stand-in host product: what comes is what the product
knows, byte for byte. The table of DuckDB, which Debian doesn't have, is the only thing left out."""

import argparse
import collections
import glob
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import console
from console import ROOT
from host_product import HostProduct
from shells import run_tests

OPTIONS = argparse.Namespace()
CATALOGUE = {"seed": 1, "clients": 2, "policies": 2, "nights": 4}
IMAGE = "alpha_1500086460"
PAGE = (ROOT / "docs/consumers.md").read_text(encoding="utf-8")
ESCAPES = {b"\\": b"\\\\", b"\t": b"\\t", b"\n": b"\\n", b"\r": b"\\r", b"\b": b"\\b", b"\f": b"\\f"}
NOBODY = 65534


def sections():
    """The blocks of each section, fenced ones and those with commands, as (language, text)."""
    found = {}
    for section in PAGE.split("\n## ")[1:]:
        heading, _, text = section.partition("\n")
        found[heading] = [(language, block) for language, block in
                          re.findall(r"^```(\w+)\n(.*?)^```$", text, re.DOTALL | re.MULTILINE)]
        found[heading] += [("shell", re.sub("^ {4}", "", block, flags=re.MULTILINE))
                           for block in re.findall(r"(?<=\n\n)(?: {4}\$ .*\n(?: {4}.*\n)*)", text)]
    return found


def blocks(heading, language="shell"):
    return [text for name, text in sections()[heading] if name == language]


def escaped(text):
    for plain, escape in ESCAPES.items():  # the backslash first
        text = text.replace(plain, escape)
    return text


class Roads(console.Console):
    FOLDERS = ("/srv", "/usr/share")

    def setUp(self):
        super().setUp()
        console.make_catalogue(OPTIONS.generator, OPTIONS.root, **CATALOGUE)
        self.script("quillmere-archive", f'exec {OPTIONS.program} "$@"')
        for command in ("init", "sync --quiet"):
            self.assertEqual(self.shell(f"quillmere-archive {command} /srv/archive"), (0, "", ""))
        examples = self.directory / "usr/share/doc/quillmere/examples"
        shutil.copytree(ROOT / "examples/python", examples / "python")
        shutil.copytree(ROOT / "examples/node", examples / "node")
        self.product = HostProduct(OPTIONS.root)
        self.images = [image for image in self.product.images() if image.files]

    def files(self, backup_id):
        """Length and path of each entry of an image, as the product prints them."""
        return [(int(fields[1]), fields[9]) for fields in
                (line.split(b"\t") for line in self.product.entry_lines(backup_id))]

    def bytes_of(self):
        """The sum of the lengths of each client's files."""
        found = collections.Counter()
        for image in self.images:
            found[image.client] += sum(length for length, _ in self.files(image.backup_id))
        self.assertEqual(len(found), 2)
        return dict(found)

    def all_lines(self):
        return [b"%d\t%s\n" % (length, escaped(path)) for image in self.images
                for length, path in self.files(image.backup_id)]

    def run_block(self, block, **environment):
        """Runs the commands of a block in one shell, and returns the bytes that they print."""
        lines = [f"{command}\n" for command, _ in commands(block)]
        ended = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", self.placed("".join(lines))], cwd=self.directory, check=False,
            capture_output=True, env=os.environ | environment | {
                "PATH": f"{self.directory}/tools:{os.environ['PATH']}"})
        self.assertEqual((ended.returncode, ended.stderr), (0, b""), block)
        return ended.stdout

    def run_python(self, block):
        """Runs a block of Python by itself, and returns the names that it leaves."""
        names = {}
        path = os.environ["PATH"]
        os.environ["PATH"] = f"{self.directory}/tools:{path}"
        try:
            exec(self.placed(block), names)
        finally:
            os.environ["PATH"] = path
        return names

    def test_no_block_is_left_out(self):
        counts = {heading: collections.Counter(language for language, _ in found)
                  for heading, found in sections().items()}
        self.assertEqual(counts, {
            "jq": {"shell": 2}, "Lines": {"shell": 4}, "Python": {"python": 1}, "Node": {"js": 1},
            "pandas": {"python": 1}, "PostgreSQL": {"shell": 1}, "DuckDB": {"shell": 1, "sql": 1}})
        lines = re.findall(r"^ {4}(\S.*)$", re.sub(r"```.*?```", "", PAGE, flags=re.DOTALL), re.MULTILINE)
        run = "".join(text for found in sections().values() for _, text in found)
        self.assertEqual([line for line in lines if line not in run], [])

    def test_jq(self):
        names, policy = blocks("jq")
        lines = [b"%d\t%s\n" % (length, path.replace(b"\\", b"\\\\")) for length, path in self.files(IMAGE)]
        self.assertTrue(any(b"\xe9" in line for line in self.all_lines()))
        self.assertEqual(self.run_block(names), b"".join(lines))
        self.assertEqual(self.run_block(policy).decode(), commands(policy)[-1][1])

    def test_jq_on_a_latin_1_name(self):
        shutil.copyfile(ROOT / "docs/samples/latin-1-names.json",
                        self.directory / f"srv/archive/images/alpha/{IMAGE}/{IMAGE}.json")
        self.assertEqual(self.run_block(blocks("jq")[0]),
                         b"4096\t/home/alice/caf\xe9.txt\n512\t/home/alice/caf\xc3\xa9.txt\n"
                         b"0\t/home/\x80\xfe\xff/\xed\xa0\x80\n")

    def test_lines(self):
        largest, by_awk, by_jq, ids = blocks("Lines")
        lengths = sorted(int(line.split(b"\t")[0]) for line in self.all_lines())[-10:]
        output = self.run_block(largest).splitlines(keepends=True)
        self.assertEqual([int(line.split(b"\t")[0]) for line in output], lengths)
        self.assertLessEqual(set(output), set(self.all_lines()))
        self.assertEqual(sorted(self.run_block(by_awk).decode().splitlines()),
                         sorted(f"{client} {size}" for client, size in self.bytes_of().items()))
        self.assertEqual(json.loads(self.run_block(by_jq)), self.bytes_of())
        self.assertEqual(sorted(self.run_block(ids).decode().split()),
                         sorted(image.backup_id for image in self.images))

    def test_python(self):
        (block,) = blocks("Python", "python")
        self.addCleanup(sys.path.remove, self.placed("/usr/share/doc/quillmere/examples/python"))
        self.assertEqual(self.run_python(block)["bytes_of"],
                         {client.encode(): size for client, size in self.bytes_of().items()})

    def test_node(self):
        (block,) = blocks("Node", "js")
        script = self.directory / "sum.mjs"
        script.write_text(self.placed(block), encoding="utf-8")
        ended = subprocess.run(["node", script], check=True, stdout=subprocess.PIPE)
        self.assertEqual(ended.stdout, b"%d\n" % sum(length for length, _ in self.files(IMAGE)))

    def test_pandas(self):
        (block,) = blocks("pandas", "python")
        names = self.run_python(block)
        self.assertEqual(names["bytes_of"].to_dict(), self.bytes_of())
        found = zip(names["files"]["length"], map(os.fsencode, names["files"]["path"]))
        self.assertEqual(sorted(found), sorted(pair for image in self.images
                                               for pair in self.files(image.backup_id)))
        self.script("quillmere-archive", "printf 'client\\ttime\\tlength\\tpath\\n'; exit 1")
        with self.assertRaisesRegex(SystemExit, "something is missing"):
            self.run_python(block)

    def test_postgresql(self):
        (block,) = blocks("PostgreSQL")
        environment = {"PGHOST": self.start_postgresql(), "PGUSER": "tester", "PGPORT": "5432"}
        self.assertEqual(self.run_block(block, **environment).decode(), "".join(
            f"{client}|{sum(len(self.files(image.backup_id)) for image in self.images if image.client == client)}"
            f"|{size}\n" for client, size in sorted(self.bytes_of().items())))
        self.assertEqual(sorted(self.table(environment)), sorted(self.all_lines()))

        *_, (load, _), _ = commands(block)
        self.script("quillmere-archive", "printf 'a\\tb\\tc\\t1\\ta_1\\t5\\tp\\n'; exit 1")
        status, output, complaint = self.shell(
            "".join(f"export {name}={value}\n" for name, value in environment.items()) + load)
        self.assertEqual((status != 0, output), (True, ""))
        self.assertRegex(complaint, "exited with exit code 1|child process exited")
        self.assertEqual(sorted(self.table(environment)), sorted(self.all_lines()))

    @staticmethod
    def table(environment):
        """Length and path of each row."""
        output = subprocess.run(
            ["psql", "--dbname", "catalogue", "--command", "COPY (SELECT length, path FROM file) TO STDOUT"],
            check=True, stdout=subprocess.PIPE,
            env=os.environ | environment | {"PGCLIENTENCODING": "SQL_ASCII"}).stdout
        return output.splitlines(keepends=True)

    def start_postgresql(self):
        """Starts a server that ends with the test, as an ordinary user; returns its socket's folder."""
        programs = max(glob.glob("/usr/lib/postgresql/*/bin"), key=lambda path: int(path.split("/")[4]))
        folder = tempfile.mkdtemp(prefix="postgresql-")
        self.addCleanup(shutil.rmtree, folder)
        under = []
        if os.geteuid() == 0:  # as whom it does not run
            under = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
            os.chown(folder, NOBODY, NOBODY)

        def run(program, *arguments):
            subprocess.run([*under, f"{programs}/{program}", "--pgdata", f"{folder}/data", *arguments],
                           check=True, cwd=folder, stdout=subprocess.DEVNULL)

        run("initdb", "--auth=trust", "--username=tester", "--locale=C", "--encoding=UTF8", "--no-sync")
        self.addCleanup(run, "pg_ctl", "stop", "--mode=immediate", "--silent")
        run("pg_ctl", "start", "--wait", "--silent", f"--log={folder}/log", "--options",
            f"-k {folder} -c listen_addresses= -c port=5432 -c fsync=off")
        return folder

    def test_what_duckdb_reads(self):
        (block,) = blocks("DuckDB")
        self.assertEqual(self.run_block(block), b"")
        rows = [json.loads(line) for line in (self.directory / "entries.ndjson").read_bytes().splitlines()]
        self.assertEqual(len(rows), len(self.all_lines()))
        (columns,) = re.findall(r"columns = \{(.*?)\}", blocks("DuckDB", "sql")[0], re.DOTALL)
        self.assertEqual({key for row in rows for key in row}, set(re.findall(r"(\w+): '", columns)))


def commands(block):
    """The commands of a block, as (command, what it prints); one goes on where a line is indented."""
    return re.findall(r"^\$ (.*\n(?: .*\n)*)((?:(?!\$ ).*\n)*)", block, re.MULTILINE)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("--program", "--generator"):
        parser.add_argument(name, required=True, type=pathlib.Path)
    parser.add_argument("--root", required=True, help="the install root that both were built for")
    parser.parse_args(namespace=OPTIONS)
    run_tests("iconv", "jq", "node", "psql", "setpriv")
