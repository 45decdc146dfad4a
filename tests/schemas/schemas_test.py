#!/usr/bin/env python3
"""The schemas accept and refuse what they should, and nothing in them is idle."""

import copy
import json
import pathlib
import unittest

from documents import IMAGE, SET_LIST
from jsonschema import Draft202012Validator

ROOT = pathlib.Path(__file__).resolve().parents[2]

A_SET = {"BackupCreateTime": "1500269921", "BackupSize": "2048"}
AN_ENTRY = {"filenum": "1", "length": "4096", "plength": "41", "dlength": "90", "blknum": "88",
            "in_image": "1", "raw_partition_sz": "0", "gigabytes": "0", "device_num": "64768",
            "path": "/home/alice/a b", "data": "33188 alice"}


def without(member, of):
    return {key: value for key, value in of.items() if key != member}


def a_set(**members):
    return {"backup_sets": [A_SET | members]}


def an_image(**members):
    return {"files": "1", "fentries": [AN_ENTRY]} | members


def an_entry(**members):
    return an_image(fentries=[AN_ENTRY | members])


RIGHT_SET_LISTS = {
    "no sets": {"backup_sets": ""},
    "two sets": {"backup_sets": [A_SET, A_SET]},
    "the earliest time and the largest size": a_set(BackupCreateTime="-9223372036854775808",
                                                    BackupSize="18446744073709551615"),
    "the latest time and the smallest size": a_set(BackupCreateTime="9223372036854775807",
                                                   BackupSize="0"),
    "a time of 0": a_set(BackupCreateTime="0"),
}

WRONG_SET_LISTS = {
    "no object": [],
    "a string": "",
    "no members": {},
    "a member more": {"backup_sets": "", "count": "0"},
    "another case": {"Backup_sets": ""},
    "an empty array": {"backup_sets": []},
    "null for an empty array": {"backup_sets": None},
    "an object for an array": {"backup_sets": A_SET},
    "a text for an array": {"backup_sets": "x"},
    "a string for a set": {"backup_sets": ["x"]},
    "an empty string for a set": {"backup_sets": [""]},
    "an array for a set": {"backup_sets": [[A_SET]]},
    "a wrong set behind a right one": {"backup_sets": [A_SET, {}]},
    "a set without time": {"backup_sets": [without("BackupCreateTime", A_SET)]},
    "a set without size": {"backup_sets": [without("BackupSize", A_SET)]},
    "a set with a member more": a_set(client="alpha"),
    "a time that is a number": a_set(BackupCreateTime=1500269921),
    "a size that is a number": a_set(BackupSize=2048),
    "a size that is null": a_set(BackupSize=None),
} | {
    f"a time written {text!r}": a_set(BackupCreateTime=text)
    for text in ("", "-", "-0", "+1", "01", "-01", "1.5", "1e9", " 1", "1 ", "0x1", "now",
                 "10000000000000000000")
} | {
    f"a size written {text!r}": a_set(BackupSize=text)
    for text in ("", "-1", "+1", "01", "1.5", "2K", " 1", "1 ", "0x1", "100000000000000000000")
}

RIGHT_IMAGES = {
    "no metadata and no entries": {"fentries": ""},
    "two entries": an_image(fentries=[AN_ENTRY, AN_ENTRY]),
    "metadata of all shapes": an_image(a="", b=["", ["x"]], c={"d": {"e": [{"f": "g"}]}}),
    "a root that was an array": an_image(**{"": "last item"}),
    "an empty key beside others": an_image(a={"": "x", "k": "y"}),
    "a zero byte in the metadata": an_image(a="\0"),
    "a number that begins with 0": an_entry(filenum="012"),
    "numbers that are none": an_entry(length="-", gigabytes="1.5", blknum="0x1F"),
    "other bytes": an_entry(path="\udce9\x01\x7f\"\\/ ", data="x\r"),
}

WRONG_IMAGES = {
    "no object": [],
    "a string": "",
    "no entries": without("fentries", an_image()),
    "an empty array of entries": an_image(fentries=[]),
    "null for no entries": an_image(fentries=None),
    "a text for the entries": an_image(fentries="none"),
    "an object for the entries": an_image(fentries=AN_ENTRY),
    "a string for an entry": an_image(fentries=["x"]),
    "an empty string for an entry": an_image(fentries=[""]),
    "an array for an entry": an_image(fentries=[list(AN_ENTRY.values())]),
    "a wrong entry behind a right one": an_image(fentries=[AN_ENTRY, {}]),
    "an entry with a member more": an_entry(size="4096"),
    "metadata with a number": an_image(a=1),
    "metadata with true": an_image(a=True),
    "metadata with null": an_image(a=None),
    "metadata with an empty array": an_image(a=[]),
    "metadata with an empty object": an_image(a={}),
    "metadata with an object of empty keys": an_image(a={"": "x"}),
    "metadata with a number in an array": an_image(a=["x", 1]),
    "metadata with a number in an object": an_image(a={"b": 1}),
    "metadata with an empty array further down": an_image(a={"b": [{"c": []}]}),
} | {
    f"an entry without {member}": an_image(fentries=[without(member, AN_ENTRY)])
    for member in AN_ENTRY
} | {
    f"an entry whose {member} is {value!r}": an_entry(**{member: value})
    for member in AN_ENTRY for value in (1, None, "", ["x"], {"x": "y"}, "a\tb", "a\nb", "a\0b")
}


def places(node, place=()):
    """Where in a schema something stands that decides about documents."""
    if isinstance(node, (dict, list)):
        for key, value in node.items() if isinstance(node, dict) else enumerate(node):
            if key not in ("$schema", "$id", "title", "description"):
                yield (*place, key)
                yield from places(value, (*place, key))


def mutants(schema):
    """The schema with one thing left out, for each thing that can be, and the place of that."""
    for *path, key in places(schema):
        mutant = copy.deepcopy(schema)
        parent = mutant
        for step in path:
            parent = parent[step]
        if path == ["$defs"]:
            parent[key] = True  # something refers to it
        else:
            del parent[key]
        if "$defs" in mutant:
            yield (*path, key), mutant


class Schemas(unittest.TestCase):
    CASES = ((SET_LIST, RIGHT_SET_LISTS, WRONG_SET_LISTS), (IMAGE, RIGHT_IMAGES, WRONG_IMAGES))

    def test_they_are_schemas(self):
        for kind, _, _ in self.CASES:
            Draft202012Validator.check_schema(kind.schema)

    def test_they_accept_what_the_tool_can_write(self):
        for kind, right, _ in self.CASES:
            for what, document in right.items():
                with self.subTest(what):
                    kind.validator.validate(document)

    def test_they_refuse_what_it_cannot_write(self):
        for kind, _, wrong in self.CASES:
            for what, document in wrong.items():
                with self.subTest(what):
                    self.assertFalse(kind.validator.is_valid(document))

    def test_each_thing_in_them_decides_about_a_document(self):
        for kind, right, wrong in self.CASES:
            for place, mutant in mutants(kind.schema):
                with self.subTest("/".join(map(str, place))):
                    validator = Draft202012Validator(mutant)
                    self.assertFalse(all(map(validator.is_valid, right.values()))
                                     and not any(map(validator.is_valid, wrong.values())))

    def test_each_has_an_id_with_its_name_and_version(self):
        schemas = sorted((ROOT / "schemas").iterdir())
        self.assertEqual(len(schemas), 4)
        for path in schemas:
            name = path.name.removesuffix(".schema.json")
            self.assertEqual(json.loads(path.read_bytes())["$id"], f"urn:quillmere:schema:{name}:1")

    def test_all_that_they_describe_has_a_title(self):
        for kind, _, _ in self.CASES:
            for part in (kind.schema, *kind.schema["$defs"].values()):
                for what in (part, *part.get("properties", {}).values()):
                    self.assertIn("title", what)


if __name__ == "__main__":
    unittest.main()
