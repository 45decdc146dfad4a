#!/usr/bin/env python3
"""read_image.py on documents that are written by hand, and on an export."""

import example
from example import ExampleCase, document, entry, make_product, run_tool


class ReadImage(ExampleCase):
    def read(self, data):
        return self.example("read_image.py", self.write("image.json", data))

    def test_the_summary(self):
        self.assertEqual(self.read(document(entry(b"512", rb"\/home\/alice\/a"),
                                            entry(b"4096", rb"\/home\/alice\/b c"),
                                            entry(b"0", rb"\/home\/alice\/d"),
                                            metadata=b'    "files": "3",\n    "copies": "1",\n')),
                         (0, b"metadata members: 2\n"
                             b"file entries: 3\n"
                             b"total length: 4608\n"
                             b"largest file: 4096 /home/alice/b c\n", b""))

    def test_the_bytes_of_a_name(self):
        names = {
            b"caf\xe9": b"caf\xe9",  # no UTF-8
            "caf\u00e9 \U0001f4c1".encode(): "caf\u00e9 \U0001f4c1".encode(),
            b"\x7f\x80\xff\xed\xa0\x80": b"\x7f\x80\xff\xed\xa0\x80",  # the last one a surrogate
            rb"say \"hi\"": b'say "hi"',
            rb"back\\slash\\n": rb"back\slash\n",
            rb"\b\f\n\r\t\u0001\u001F": b"\b\f\n\r\t\x01\x1f",
        }
        for written, name in names.items():
            with self.subTest(name=name):
                self.assertEqual(self.read(document(entry(b"7", written), metadata=b"")),
                                 (0, b"metadata members: 0\nfile entries: 1\ntotal length: 7\n"
                                     b"largest file: 7 " + name + b"\n", b""))

    def test_an_image_without_entries(self):
        self.assertEqual(self.read(document()), (0, b"metadata members: 1\nfile entries: 0\n", b""))

    def test_of_two_members_fentries_the_last_one_holds_the_entries(self):
        for other in (b'"none"', b'""', b"[\n" + entry(b"9999", b"not this") + b"\n    ]"):
            with self.subTest(other=other):
                metadata = (b'    "fentries": ' + other + b',\n    "files": "1",\n') * 2
                self.assertEqual(self.read(document(entry(b"7", b"this"), metadata=metadata)),
                                 (0, b"metadata members: 4\nfile entries: 1\ntotal length: 7\n"
                                     b"largest file: 7 this\n", b""))

    def test_what_is_no_whole_document_is_refused(self):
        whole = document(entry(b"1", b"a"), entry(b"2", b"b"))
        for size in (0, 1, 30, len(whole) // 2, whole.rindex(b"]"), len(whole) - len("}\n")):
            with self.subTest(size=size):
                self.assert_fails(self.read(whole[:size]), 1, b"read_image.py", b"image.json")
        self.assert_fails(self.read(b'{\n    "backup_sets": ""\n}\n'), 1, b"not an image document")
        self.assert_fails(self.read(document(entry(b"x", b"a"))), 1, b"invalid literal")
        self.assert_fails(self.example("read_image.py", self.directory / "none"), 1,
                          b"No such file")

    def test_metadata_of_any_depth_end_in_a_summary_or_in_a_message(self):
        depth = 9000
        metadata = b'"a": {' * depth + b'"a": ""' + b"}" * depth + b",\n"
        result = self.read(document(metadata=metadata))
        if result[0] != 0:
            self.assert_fails(result, 1, b"recursion")
        else:
            self.assertEqual(result[1], b"metadata members: 1\nfile entries: 0\n")

    def test_wrong_arguments_show_the_usage(self):
        for arguments in ((), ("a", "b")):
            self.assert_fails(self.example("read_image.py", *arguments), 2, b"usage: read_image.py")

    def test_exported_images(self):
        product = make_product(seed=3, clients=1, images=12, no_parents=True)
        for image in product.images():
            entries = [dict(one) for one in product.entries(image.backup_id)]
            sizes = [int(one["length"]) for one in entries]
            largest = entries[sizes.index(max(sizes))]["path"]
            expected = (f"metadata members: {len(product.metadata(image.backup_id))}\n"
                        f"file entries: {len(entries)}\ntotal length: {sum(sizes)}\n"
                        f"largest file: {max(sizes)} {largest}\n")
            with self.subTest(image=image.backup_id):
                exported = run_tool("dump_backup", backup_id=image.backup_id)
                self.assertEqual(self.read(exported),
                                 (0, expected.encode("utf-8", "surrogateescape"), b""))


if __name__ == "__main__":
    example.main()
