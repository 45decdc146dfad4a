"""The documents of the tool, held against their schemas and against what docs/documents.md says."""

import json
import pathlib
import re
import sys

from jsonschema import Draft202012Validator

SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / "schemas"
ESCAPES = {'"': r"\"", "\\": r"\\", "/": r"\/", "\b": r"\b", "\f": r"\f", "\n": r"\n", "\r": r"\r",
           "\t": r"\t"}

# The validator calls itself several times for each level of nested metadata.
sys.setrecursionlimit(20000)


def parse(document):
    """A document's bytes as a tree, in which an object is a tuple of (key, value): a key that comes
    twice is seen. What is no UTF-8 stays, as characters that stand for its bytes."""
    return json.loads(document.decode("utf-8", "surrogateescape"), object_pairs_hook=tuple)


def plain(tree):
    """The tree as the usual reader has it: of a key that comes twice, the last value is kept."""
    if isinstance(tree, tuple):
        return {key: plain(value) for key, value in tree}
    return [plain(item) for item in tree] if isinstance(tree, list) else tree


def written(tree, level=0):
    """The text of a tree in the layout of the documents."""
    if isinstance(tree, str):
        return '"' + re.sub(r'[\x00-\x1f"\\/]', lambda found: ESCAPES.get(
            found[0], f"\\u{ord(found[0]):04X}"), tree) + '"'
    if isinstance(tree, tuple):
        lines = [f"{written(key)}: {written(value, level + 1)}" for key, value in tree]
    else:
        lines = [written(item, level + 1) for item in tree]
    begin, end = "{}" if isinstance(tree, tuple) else "[]"
    indent = "    " * level
    return f"{begin}\n" + ",\n".join(f"{indent}    {line}" for line in lines) + f"\n{indent}{end}"


class Kind:
    """One of the two kinds of documents."""

    def __init__(self, schema, array, item):
        self.schema = json.loads((SCHEMAS / schema).read_text(encoding="utf-8"))
        self.validator = Draft202012Validator(self.schema)
        self.array = array  # the root member with the tool's own objects
        self.members = list(self.schema["$defs"][item]["properties"])  # of each of these objects

    def problems(self, document):
        """What is wrong with a document, given as bytes; nothing for one that is as promised."""
        try:
            tree = parse(document)
        except ValueError as error:
            return [f"is no JSON: {error}"]
        invalid = [error.message[:200] for error in self.validator.iter_errors(plain(tree))]
        if invalid:
            return invalid
        last_key, items = tree[-1]
        if last_key != self.array:
            return [f"ends with the member {last_key!r}"]
        found = [f"has an item with the members {item}" for item in items
                 if [key for key, _ in item] != self.members]
        if written(tree).encode("utf-8", "surrogateescape") + b"\n" != document:
            found.append("is laid out in another way")
        return found


SET_LIST = Kind("backup_sets.schema.json", "backup_sets", "backup_set")
IMAGE = Kind("image.schema.json", "fentries", "file_entry")
