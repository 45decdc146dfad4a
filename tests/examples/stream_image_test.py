#!/usr/bin/env python3
"""stream_image.py on documents that are written by hand, and on a large export."""

import hashlib
import io
import resource
import signal
import subprocess
import sys
import unittest.mock

import example
from example import OPTIONS, ExampleCase, document, entry, make_product, run_tool

ENTRIES = 160_000  # a document of 80 MB
MEMORY = 64 * 2**20  # bytes of address space, of which Python takes half


class StreamImage(ExampleCase):
    def stream(self, data, *options):
        return self.example("stream_image.py", *options, self.write("image.json", data))

    def test_length_and_path_of_each_entry(self):
        self.assertEqual(self.stream(document(entry(b"512", rb"\/home\/alice\/a"),
                                              entry(b"0", rb"\/home\/alice\/b \"c\" \\d"),
                                              entry(b"4096", b"caf\xe9"))),
                         (0, b'512\t/home/alice/a\n0\t/home/alice/b "c" \\d\n4096\tcaf\xe9\n', b""))

    def test_zero_bytes_let_names_hold_newlines_and_tabs(self):
        self.assertEqual(self.stream(document(entry(b"1", rb"a\nb\tc"), entry(b"2", b"d")), "-0"),
                         (0, b"1\ta\nb\tc\x002\td\x00", b""))

    def test_an_image_without_entries(self):
        self.assertEqual(self.stream(document()), (0, b"", b""))

    def test_of_two_members_fentries_the_last_one_holds_the_entries(self):
        last = document(entry(b"7", b"this"), metadata=b'    "files": "1",\n').removeprefix(b"{\n")
        nested = (b'    "a": {\n        "fentries": ""\n    },\n'
                  b'    "b": "\\n    \\"fentries\\": ",\n')
        for other in (b'"none"', b'""', b"[\n" + entry(b"9999", b"not this") + b"\n    ]"):
            with self.subTest(other=other):
                data = b'{\n    "fentries": ' + other + b",\n" + nested + last
                self.assertEqual(self.stream(data), (0, b"7\tthis\n", b""))

    def test_the_member_is_found_wherever_a_block_ends(self):
        import stream_image
        data = document(entry(b"7", b"this"), metadata=b'    "fentries": "none",\n')
        for size in range(1, 100):
            with unittest.mock.patch.object(stream_image, "BLOCK_SIZE", size):
                entries = list(stream_image.stream_entries(io.BytesIO(data)))
            self.assertEqual([one["path"] for one in entries], ["this"], size)

    def test_a_document_that_is_cut_anywhere_is_refused(self):
        import stream_image
        for whole in (document(entry(b"1", b"a"), entry(b"2", b"b")), document()):
            self.assertEqual(len(list(stream_image.stream_entries(io.BytesIO(whole)))),
                             whole.count(b"filenum"))
            for size in range(len(whole)):
                with self.assertRaises(ValueError, msg=whole[:size]):
                    list(stream_image.stream_entries(io.BytesIO(whole[:size])))

    def test_what_is_no_image_document_is_refused_before_anything_is_printed(self):
        nested = (b'{\n    "a": {\n        "fentries": [\n' + entry(b"1", b"a")
                  + b"\n        ]\n    },\n")
        for data in (nested, document().replace(b'""', b'"none"'), document() + b"\n",
                     b'{\n    "backup_sets": ""\n}\n'):
            with self.subTest(data=data):
                self.assert_fails(self.stream(data), 1, b"image.json")

    def test_a_failure_is_a_message_and_a_status(self):
        whole = document(entry(b"1", b"a"), entry(b"2", b"b"))
        self.assert_fails(self.stream(whole[:40]), 1, b"stream_image.py", b"image.json", b"not all")
        status, output, message = self.stream(whole[:-3])
        self.assertEqual((status, output), (1, b"1\ta\n2\tb\n"))
        self.assertIn(b"the document ends early", message)
        self.assert_fails(self.example("stream_image.py", self.directory / "none"), 1,
                          b"No such file")
        with open("/dev/full", "wb") as full:
            command = [sys.executable, OPTIONS.examples / "stream_image.py",
                       self.write("image.json", whole)]
            result = subprocess.run(command, stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn(b"No space left", result.stderr)

    def test_a_reader_may_go_early(self):
        path = self.write("image.json", document(*[entry(b"1", b"a")] * 30_000))
        command = [sys.executable, OPTIONS.examples / "stream_image.py", path]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            self.assertEqual(process.stdout.readline(), b"1\ta\n")
            process.stdout.close()
            self.assertEqual((process.stderr.read(), process.wait()), (b"", -signal.SIGPIPE))

    def test_wrong_arguments_show_the_usage(self):
        for arguments in ((), ("-0",), ("a", "b"), ("-0", "a", "b")):
            self.assert_fails(self.example("stream_image.py", *arguments), 2,
                              b"usage: stream_image.py")

    def test_the_memory_does_not_grow_with_the_document(self):
        product = make_product(clients=1, policies=1, schedules=1, images=1, entries=ENTRIES,
                               no_parents=True)
        (image,) = product.images()
        run_tool("dump_backup", backup_id=image.backup_id, output_dir=self.directory)
        path = self.directory / f"{image.backup_id}.json"
        self.assertGreater(path.stat().st_size, MEMORY)

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))

        expected = hashlib.sha256()
        for line in product.entry_lines(image.backup_id):
            fields = line.split(b"\t")
            expected.update(b"%s\t%s\n" % (fields[1], fields[9]))
        status, output, message = self.example("stream_image.py", path, preexec_fn=limit)
        self.assertEqual((status, message), (0, b""))
        self.assertEqual(output.count(b"\n"), ENTRIES)
        self.assertEqual(hashlib.sha256(output).digest(), expected.digest())

        # What loads the document, fails.
        self.assert_fails(self.example("read_image.py", path, preexec_fn=limit), 1, b"MemoryError")


if __name__ == "__main__":
    example.main()
