#!/usr/bin/env python3
"""The readers of examples/python and examples/node: both get the same entries of the same documents,
fail where these are not whole, and take the same memory whatever their size is."""

import argparse
import doctest
import hashlib
import json
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in (
    "tests/e2e", "tests/archive", "tests/cli_texts", "examples/python")]
import quillmere_archive
from host_product import ENTRY_KEYS, HostProduct, make_catalogue
from model import file_name
from shells import run_tests

OPTIONS = argparse.Namespace()
SAMPLES = ROOT / "docs/samples"
BLOCK = 2**20  # bytes that a reader reads at a time
MEMORY = 100_000_000  # bytes
ENTRIES = 1_000_000

VALUES = [b"1", b"512", b"41", b"90", b"88", b"1", b"0", b"0", b"64768", b"p", b"33188 alice"]

# Each prints for each document a line: the entries, and the message where it fails.
DRIVERS = {
    "python": """
import json, sys
from quillmere_archive import DocumentError, entries
for document in sys.argv[1:]:
    found, message = [], None
    try:
        for entry in entries(document):
            found.append([field.decode("latin-1") for field in entry])
    except (DocumentError, OSError) as error:
        message = str(error)
    print(json.dumps([found, message]))
""",
    "node": """
import { entries } from "MODULE";
for (const document of process.argv.slice(2)) {
  const found = [];
  let message = null;
  try {
    for await (const { path, data, ...numbers } of entries(document))
      found.push([...Object.values(numbers), path.toString("latin1"), data.toString("latin1")]);
  } catch (error) {
    message = error.message;
  }
  console.log(JSON.stringify([found, message]));
}
""",
}
# What counts the entries of a document, sums up their lengths, hashes their paths, and says how much
# memory that took, in KiB. (The resource usage of a process begins with that of its parent.)
COUNTERS = {
    "python": """
import hashlib, re, sys
from quillmere_archive import entries
count, length, paths = 0, 0, hashlib.sha256()
for entry in entries(sys.argv[1]):
    count += 1
    length += int(entry.length)
    paths.update(entry.path + b"\\n")
with open("/proc/self/status") as status:
    print(count, length, paths.hexdigest(), *re.findall("VmHWM:\\s*(\\d+) kB", status.read()))
""",
    "node": """
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";
import { entries } from "MODULE";
let count = 0, length = 0;
const paths = createHash("sha256");
for await (const entry of entries(process.argv[2])) {
  ++count;
  length += Number(entry.length);
  paths.update(entry.path).update("\\n");
}
const [, memory] = readFileSync("/proc/self/status", "utf8").match(/VmHWM:\\s*(\\d+) kB/);
console.log(count, length, paths.digest("hex"), memory);
""",
}
# What takes the first entry alone.
FIRSTS = {
    "python": """
import sys
from quillmere_archive import entries
for entry in entries(sys.argv[1]):
    print(entry.path.decode())
    break
""",
    "node": """
import { entries } from "MODULE";
for await (const entry of entries(process.argv[2])) {
  console.log(entry.path.toString());
  break;
}
""",
}


def entry(path=b"p", **values):
    """An entry as it stands in a document; values are bytes with their escapes."""
    fields = dict(zip(ENTRY_KEYS, VALUES, strict=True)) | {"path": path} | values
    return b"        {\n" + b",\n".join(b'            "%s": "%s"' % (key.encode(), value)
                                        for key, value in fields.items()) + b"\n        }"


def array(*entries):
    return b"[\n" + b",\n".join(entries) + b"\n    ]" if entries else b'""'


def document(*entries, metadata=b'    "backup_id": "alpha_1500100639",\n'):
    """An image document; the metadata are lines of it."""
    return b"{\n" + metadata + b'    "fentries": ' + array(*entries) + b"\n}\n"


def fields(path=b"p", **values):
    """The fields of an entry as a driver prints them."""
    found = dict(zip(ENTRY_KEYS, VALUES, strict=True)) | {"path": path} | values
    return [value.decode("latin-1") for value in found.values()]


class Case(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def write(self, name, data):
        path = self.directory / name
        path.write_bytes(data)
        return path

    def packed(self, path):
        subprocess.run(["zstd", "-q", path], check=True)
        return pathlib.Path(f"{path}.zst")


class Reader:
    """What holds for both."""

    def command(self, programs):
        """How one of the programs is started."""
        text = programs[self.LANGUAGE].replace("MODULE", str(ROOT / "examples/node/quillmere_entries.mjs"))
        path = self.directory / f"program.{self.SUFFIX}"
        path.write_text(text, encoding="utf-8")
        return [*self.INTERPRETER, path]

    def run_program(self, programs, *arguments):
        """Standard output of a program."""
        return subprocess.run(
            [*self.command(programs), *arguments], check=True, stdout=subprocess.PIPE,
            env=os.environ | {"PYTHONPATH": str(ROOT / "examples/python")}).stdout

    def read(self, *paths):
        """The entries and the message of each document."""
        lines = self.run_program(DRIVERS, *paths).splitlines()
        self.assertEqual(len(lines), len(paths))
        return [json.loads(line) for line in lines]

    def read_data(self, data, name="image.json"):
        (result,) = self.read(self.write(name, data))
        return result

    def assert_not_whole(self, data, entries, behind):
        path = self.directory / "image.json"
        self.assertEqual(self.read_data(data),
                         [entries, f"{path}: no whole document: wrong behind byte {behind}"])

    def test_samples(self):
        four = {"filenum": b"1", "length": b"2", "plength": b"3", "dlength": b"4", "blknum": b"5",
                "in_image": b"6", "raw_partition_sz": b"7", "gigabytes": b"8", "device_num": b"9"}
        expected = {
            "one-entry": [fields(b"/a b", **four, data=b"x")],
            "latin-1-names": [
                fields(b"/home/alice/caf\xe9.txt", length=b"4096", data=b"33188 alice users 4096"),
                fields(b"/home/alice/caf\xc3\xa9.txt", filenum=b"2", blknum=b"96",
                       data=b"33188 bob users 512"),
                fields(b"/home/\x80\xfe\xff/\xed\xa0\x80", filenum=b"3", length=b"0", plength=b"23",
                       blknum=b"97", data=b"33188 J\xfcrgen users 0")],
            "control-characters": [
                fields(b"/bell\x07/\b\f\r\x1b[31m\x7f/back\\slash\\n", length=b"7", plength=b"31",
                       data=b"33188 alice users 7\r")],
            "quotes-and-slashes": [fields(rb'/a/"b"\c', **four, data=b"'&<>%%d%")],
            "odd-numbers": [fields(b"p", **four | {"filenum": b"10"}, data=b"d"),
                            fields(b"p", **four | {"filenum": b" 0"}, data=b"d")],
            "two-fentries": [fields(b"/of/the/image", data=b"33188 alice users 512")],
        }
        for name in ("no-entries", "repeated-keys", "empty-arrays", "nested-metadata", "scalars", "escapes",
                     "empty-keys", "array-root"):
            expected[name] = []
        results = self.read(*(SAMPLES / f"{name}.json" for name in expected))
        self.assertEqual(dict(zip(expected, results)),
                         {name: [entries, None] for name, entries in expected.items()})

    def test_sample_that_is_cut(self):
        whole = (SAMPLES / "latin-1-names.json").read_bytes()
        (result,) = self.read(SAMPLES / "cut.json")
        self.assertEqual([field[9] for field in result[0]], ["/home/alice/caf\xe9.txt"])
        behind = whole.index(b"        },\n") + len(b"        },\n")
        self.assertEqual(result[1], f"{SAMPLES / 'cut.json'}: no whole document: wrong behind byte {behind}")

    def test_escapes(self):
        names = {
            rb"say \"hi\"": b'say "hi"',
            rb"back\\slash\\n\\": b"back\\slash\\n\\",
            rb"\\\/\\\\\/\/": rb"\/\\//",
            rb"\b\f\n\r\t\u0001\u001F": b"\b\f\n\r\t\x01\x1f",
            b"\x7f\x80\xff\xed\xa0\x80\xc3\xa9": b"\x7f\x80\xff\xed\xa0\x80\xc3\xa9",
            rb"a, b\": {}],": b'a, b": {}],',
        }
        self.assertEqual(self.read_data(document(*[entry(name, data=name) for name in names])),
                         [[fields(name, data=name) for name in names.values()], None])

    def test_what_is_no_escape_is_refused(self):
        begin = len(document(entry(b"first"), entry())) - len(entry()) - len(b"\n    ]\n}\n")
        for wrong in (rb"\x", rb"\u0041", rb"\u00e9", rb"\u000", rb"\u001f", b"a\\", rb"\\" b"\\"):
            with self.subTest(wrong):
                self.assert_not_whole(document(entry(b"first"), entry(wrong)), [fields(b"first")], begin)

    def test_of_two_fentries_the_last_counts(self):
        nested = (b'    "a": {\n        "fentries": ""\n    },\n'
                  b'    "b": "\\n    \\"fentries\\": ",\n')
        paths = []
        for number, other in enumerate((b'"none"', b'""', array(entry(b"not this")), b"[\n        \"x\"\n    ]")):
            metadata = (b'    "fentries": ' + other + b",\n" + nested) * 2
            paths.append(self.write(f"{number}.json", document(entry(b"this"), metadata=metadata)))
            paths.append(self.write(f"{number}-empty.json", document(metadata=metadata)))
        self.assertEqual(self.read(*paths), [[[fields(b"this")], None], [[], None]] * 4)

    def test_a_document_that_is_cut_anywhere_is_refused(self):
        first, second = entry(b"a"), entry(b"b")
        value = len(b'{\n    "backup_id": "alpha_1500100639",\n    "fentries": ')
        ends = {value: 0, value + 2: 0, value + 2 + len(first) + 2: 1,
                value + 2 + len(first) + 2 + len(second) + 1: 2}
        whole = document(first, second)
        paths, expected = [], []
        for size in range(len(whole)):
            path = self.write(f"cut-{size}.json", whole[:size])
            behind = max((end for end in ends if end <= size), default=size)
            paths.append(path)
            expected.append([[fields(b"a"), fields(b"b")][:ends.get(behind, 0)],
                             f"{path}: no whole document: wrong behind byte {behind}"])
        self.assertEqual(self.read(*paths), expected)

    def test_a_document_without_entries_that_is_cut_is_refused(self):
        whole = document()
        value = len(whole) - len(b'""\n}\n')
        for size in range(value - 5, len(whole)):
            self.assert_not_whole(whole[:size], [], value if size >= value else size)

    def test_what_is_no_image_document_is_refused(self):
        begin = len(b'{\n    "fentries": ')
        first = begin + len(b"[\n") + len(entry()) + len(b",\n")
        for data, entries, behind in (
                (b"", 0, 0),
                (b'{\n    "backup_sets": ""\n}\n', 0, len(b'{\n    "backup_sets": ""\n}\n')),
                (b'{\n    "a": {\n        "fentries": ""\n    }\n}\n', 0,
                 len(b'{\n    "a": {\n        "fentries": ""\n    }\n}\n')),
                (document(metadata=b"") + b"\n", 0, begin),
                (document(entry(), metadata=b"") + b"x", 1, first - 1),
                (document(metadata=b"").replace(b'""', b'"none"'), 0, begin),
                (document(entry(), entry(), metadata=b"").replace(b"},\n", b"}\n"), 1, first - 1),
                (document(entry(), entry(), metadata=b"").replace(b'"1",\n', b'"1"\n'), 0, begin + 2),
                (document(entry(), entry(more=b"x"), metadata=b""), 1, first),
                (document(entry(), entry(length=b"1\n2"), metadata=b""), 1, first)):
            with self.subTest(data):
                self.assert_not_whole(data, [fields()] * entries, behind)

    def test_wherever_a_block_ends(self):
        """The value of "fentries" begins around the end of a block."""
        names = [b"n" * (size % 97 + 1) for size in range(200)]
        start = len(b'{\n    "a": "') + len(b'",\n    "fentries": ')
        paths = [self.write(f"{shift}.json", document(
            *map(entry, names), metadata=b'    "a": "' + b"x" * (BLOCK + shift - start) + b'",\n'))
            for shift in range(-24, 25)]
        expected = [[fields(name) for name in names], None]
        for path, result in zip(paths, self.read(*paths)):
            self.assertEqual(result, expected, path)

    def test_entries_longer_than_blocks(self):
        names = [b"n" * (size % 97 + 1) for size in range(5000)] + [b"long" * (BLOCK - 200)] * 2 + [b"last"]
        self.assertEqual(self.read_data(document(*map(entry, names))),
                         [[fields(name) for name in names], None])

    def test_an_entry_that_no_product_prints_is_refused(self):
        begin = len(b'{\n    "fentries": [\n')
        self.assert_not_whole(document(entry(b"x" * 40 * BLOCK), metadata=b""), [], begin)

    def test_a_compressed_document(self):
        names = [b"caf\xe9-%d" % number for number in range(9000)]
        path = self.packed(self.write("image.json", document(
            *map(entry, names), metadata=b'    "fentries": ' + array(entry(b"not this")) + b",\n")))
        self.assertEqual(self.read(path), [[[fields(name) for name in names], None]])
        data = path.read_bytes()
        cut = self.write("cut.json.zst", data[:len(data) // 2])
        other = self.write("other.json.zst", b"x" * 100)
        self.assertEqual(self.read(cut, other), [[[], f"{cut} is no whole zstd file"],
                                                 [[], f"{other} is no whole zstd file"]])

    def test_a_document_that_is_not_there(self):
        for name in ("none.json", "none.json.zst"):
            ((entries, message),) = self.read(self.directory / name)
            self.assertEqual(entries, [])
            self.assertRegex(message, f"[Nn]o such file or directory.*{name}")

    def test_who_stops_early_leaves_nothing_behind(self):
        path = self.write("image.json", document(*[entry(b"first")] * 9000))
        for one in (path, self.packed(path)):
            self.assertEqual(self.run_program(FIRSTS, one), b"first\n")

    def test_the_memory_does_not_grow_with_the_document(self):
        path, paths, total = self.directory / "large.json", hashlib.sha256(), 0
        with path.open("wb") as file:
            file.write(document(metadata=b'    "backup_id": "alpha_1500100639",\n')[:-len(b'""\n}\n')] + b"[\n")
            template = entry(b"\\/srv\\/caf\xe9\\/a folder with a name\\/file-%d.txt",
                             filenum=b"%d", length=b"%d", data=b"33188 alice users %d " + b"0 " * 40)
            for begin in range(1, ENTRIES, 1000):
                numbers = range(begin, begin + 1000)
                block = b",\n".join([template % (n, n * 7 % 1000, n, n) for n in numbers])
                file.write(block + (b",\n" if begin + 1000 < ENTRIES else b"\n    ]\n}\n"))
                total += sum(n * 7 % 1000 for n in numbers)
                paths.update(b"".join([b"/srv/caf\xe9/a folder with a name/file-%d.txt\n" % n
                                       for n in numbers]))
        self.assertGreater(path.stat().st_size, 450_000_000)
        *found, memory = self.run_program(COUNTERS, path).decode().split()
        self.assertEqual(found, [str(ENTRIES), str(total), paths.hexdigest()])
        self.assertLess(int(memory) * 1024, MEMORY)


class PythonReader(Reader, Case):
    LANGUAGE, SUFFIX, INTERPRETER = "python", "py", (sys.executable,)


class NodeReader(Reader, Case):
    LANGUAGE, SUFFIX, INTERPRETER = "node", "mjs", ("node",)


class PythonArchive(Case):
    """The rest of the Python module."""

    def make_archive(self, *options, **catalogue):
        make_catalogue(OPTIONS.generator, OPTIONS.root, **catalogue)
        path = self.directory / "archive"
        for command in (["init", "--server", "caf\udce9", *options], ["sync", "--quiet"]):
            subprocess.run([OPTIONS.program, *command, path], check=True)
        return quillmere_archive.Archive(path), HostProduct(OPTIONS.root)

    def check_archive(self, archive, product):
        raw = os.fsencode
        images = {image.backup_id: image for image in product.images() if image.files}
        self.assertGreater(len(images), 20)
        self.assertEqual(archive.server, b"caf\xe9")
        found = list(archive.images())
        self.assertEqual(sorted(image.backup_id for image in found), sorted(map(raw, images)))
        for places in ([(image.client, image.backup_id) for image in found],
                       [(one.client, one.policy, one.schedule, b"%d" % one.create_time)
                        for one in archive.sets()]):
            self.assertEqual(places, sorted(places))
        for image in found:
            listed = images[os.fsdecode(image.backup_id)]
            entries = [quillmere_archive.Entry(*(raw(value) for _, value in entry))
                       for entry in product.entries(listed.backup_id)]
            self.assertEqual(
                (image.server, image.client, image.policy, image.schedule, image.backup_time, image.files,
                 image.entry_count, list(image.entries())),
                (b"caf\xe9", raw(listed.client), raw(listed.policy), raw(listed.schedule), listed.time,
                 listed.files, len(entries), entries))
            self.assertEqual(image.metadata()["client"], listed.client)
            self.assertEqual(archive.image(image.backup_id), image)
        sets = [(raw(one.backup_id), one.time, one.size, tuple(map(raw, one.image_ids)))
                for one in product.sets()]
        self.assertGreater(len(sets), 10)
        self.assertEqual(sorted((one.backup_id, one.create_time, one.size_bytes, one.image_ids)
                                for one in archive.sets()), sorted(sets))
        for one in archive.sets():
            for backup_id in one.image_ids:
                image = archive.image(backup_id)
                self.assertEqual((one.server, one.client, one.policy, one.schedule),
                                 (image.server, image.client, image.policy, image.schedule))

    def test_all_that_the_product_knows(self):
        self.check_archive(*self.make_archive(seed=5, clients=3, policies=2, nights=5))

    def test_the_same_from_compressed_documents(self):
        archive, product = self.make_archive("--compress", "3", seed=5, clients=3, policies=2, nights=5)
        self.assertEqual({image.document.suffix for image in archive.images()}, {".zst"})
        self.check_archive(archive, product)

    def test_an_empty_archive(self):
        path = self.directory / "archive"
        subprocess.run([OPTIONS.program, "init", path], check=True)
        archive = quillmere_archive.Archive(path)
        self.assertEqual((list(archive.images()), list(archive.sets())), ([], []))

    def test_names(self):
        for name in (b"", b".", b"a.b", b"/etc/passwd", b"\xff%\n", b"x" * 200, b"x" * 201, b"\xe9" * 67,
                     bytes(range(1, 256))):
            self.assertEqual(quillmere_archive.file_name(name), file_name(os.fsdecode(name)))

    def small(self):
        """An archive with an image and a set by hand, whose names are no UTF-8."""
        archive = self.directory / "small"
        folder = archive / "images/caf%E9/caf%E9_7"
        folder.mkdir(parents=True)
        (archive / "sets/caf%E9/P1/full").mkdir(parents=True)
        names = {"server": "s", "client": "caf\ufffd", "client_base64": "Y2Fm6Q==", "policy": "P1",
                 "schedule": "full", "backup_id": "caf\ufffd_7", "backup_id_base64": "Y2Fm6V83"}
        self.manifest = {"format": "quillmere-archive image", "version": 1, **names, "backup_time": 7,
                         "size_bytes": 1024, "files": 1,
                         "document": {"file": "caf%E9_7.json", "sha256": "9f86d0"}, "entries": 1}
        self.manifest_path = folder / "manifest.json"
        self.set_path = archive / "sets/caf%E9/P1/full/7.json"
        self.write("small/archive.json", b'{"format": "quillmere-archive", "version": 1, "server": "s"}\n')
        (folder / "caf%E9_7.json").write_bytes(document(entry(b"\xff")))
        self.manifest_path.write_text(json.dumps(self.manifest))
        self.set_path.write_text(json.dumps(
            {"format": "quillmere-archive set", "version": 1, **names, "create_time": 7, "size_bytes": 1024,
             "images": [{"backup_id": "caf\ufffd_7", "backup_id_base64": "Y2Fm6V83"}]}))
        return quillmere_archive.Archive(archive)

    def test_names_that_are_no_utf_8(self):
        archive = self.small()
        (image,), (one,) = archive.images(), archive.sets()
        self.assertEqual((image.client, image.backup_id, image.sha256, one.client, one.image_ids),
                         (b"caf\xe9", b"caf\xe9_7", "9f86d0", b"caf\xe9", (b"caf\xe9_7",)))
        self.assertEqual(archive.image(one.image_ids[0]), image)
        self.assertEqual([entry.path for entry in image.entries()], [b"\xff"])

    def test_what_is_wrong_is_an_error_that_names_the_file(self):
        archive = self.small()

        def assert_refused(path, text, message, read):
            path.write_text(text)
            with self.assertRaises(quillmere_archive.DocumentError) as caught:
                read()
            self.assertEqual(str(caught.exception), f"{path}: {message}")

        def with_(**members):
            return json.dumps(self.manifest | members)

        for text, message in (
                ("{", "not JSON"), ("[]", "not of quillmere-archive"), ("{}", "not of quillmere-archive"),
                (with_(format="quillmere-archive set"), "not of quillmere-archive"),
                (with_(version=2), "format version 2 is newer than this program"),
                (with_(version="1"), "a key is missing or wrong"),
                (with_(document=None), "a key is missing or wrong"),
                (with_(policy=1), "a key is missing or wrong"),
                (with_(client_base64="="), "a key is missing or wrong"),
                (with_(document={"file": "caf%E9_7.json"}), "a key is missing or wrong"),
                (with_(document={"file": "../../../archive.json", "sha256": ""}), "names another document")):
            with self.subTest(text):
                assert_refused(self.manifest_path, text, message, lambda: list(archive.images()))
        assert_refused(self.set_path, '{"format": "quillmere-archive set", "version": 1}',
                       "a key is missing or wrong", lambda: list(archive.sets()))
        assert_refused(archive.path / "archive.json", '{"format": "quillmere-archive", "version": 2}',
                       "format version 2 is newer than this program",
                       lambda: quillmere_archive.Archive(archive.path))
        assert_refused(archive.path / "archive.json", '{"format": "quillmere-archive", "version": 1}',
                       "a key is missing or wrong", lambda: quillmere_archive.Archive(archive.path))
        with self.assertRaises(FileNotFoundError):
            quillmere_archive.Archive(self.directory)

    def test_an_image_without_a_manifest_is_not_passed_over(self):
        archive = self.small()
        self.manifest_path.unlink()
        with self.assertRaises(FileNotFoundError):
            list(archive.images())

    def test_entries_that_the_manifest_does_not_count(self):
        archive = self.small()
        self.manifest_path.write_text(json.dumps(self.manifest | {"entries": 2}))
        (image,) = archive.images()
        with self.assertRaises(quillmere_archive.DocumentError) as caught:
            list(image.entries())
        self.assertEqual(str(caught.exception), f"{image.document}: 1 entries, but 2 in the manifest")

    def test_what_is_pruned_meanwhile_is_left_out(self):
        archive = self.small()
        folders = {"images": (self.manifest_path.parent, ["manifest.json"]),
                   "sets": (self.set_path.parent, ["7.json"])}
        shutil.rmtree(archive.path / "images")
        shutil.rmtree(archive.path / "sets")
        self.assertEqual((list(archive.images()), list(archive.sets())), ([], []))
        with unittest.mock.patch.object(quillmere_archive, "_folders", lambda top: [folders[top.name]]):
            self.assertEqual((list(archive.images()), list(archive.sets())), ([], []))

    def test_metadata(self):
        def read(data):
            return quillmere_archive.metadata(self.write("image.json", data))

        self.assertEqual(read(document(metadata=b"")), {})
        self.assertEqual(read(document(entry(), metadata=b'    "fentries": "1",\n    "a": "\xc3\xa9",\n')),
                         {"a": "\xe9"})
        self.assertEqual(quillmere_archive.metadata(self.packed(self.directory / "image.json")),
                         {"a": "\xe9"})
        with self.assertRaises(quillmere_archive.DocumentError) as caught:
            read(document(metadata=b"    x\n"))
        self.assertRegex(str(caught.exception), r"^/.*/image\.json: Expecting ")

    def test_its_examples(self):
        os.chdir(ROOT)
        failed, attempted = doctest.testmod(quillmere_archive)
        self.assertEqual((failed, attempted), (0, 3))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="quillmere-archive")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    _, rest = parser.parse_known_args(namespace=OPTIONS)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    run_tests("node", "zstd", arguments=rest)
