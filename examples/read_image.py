#!/usr/bin/env python3
"""Reads an image document as a whole and prints what is in it: read_image.py DOCUMENT

Names of files come out in the bytes that the product knows them by, whatever their encoding is.
"""

import json
import pathlib
import sys


def read_image(path):
    """The metadata of an image as (key, value) pairs, and its file entries as dictionaries.

    A byte that is no UTF-8 becomes a surrogate, as in the paths that Python's own functions take
    and give: `open(entry["path"])` opens the file that was backed up.
    """
    text = path.read_bytes().decode("utf-8", "surrogateescape")
    # A dictionary would keep one of two members with the same key. The last one holds the entries.
    *metadata, (key, entries) = json.loads(text, object_pairs_hook=tuple)
    if key != "fentries":
        raise ValueError("not an image document")
    return metadata, [dict(entry) for entry in entries]  # "", an empty array, has none


def print_summary(metadata, entries):
    lines = [f"metadata members: {len(metadata)}", f"file entries: {len(entries)}"]
    if entries:
        largest = max(entries, key=lambda entry: int(entry["length"]))
        lines += [f"total length: {sum(int(entry['length']) for entry in entries)}",
                  f"largest file: {largest['length']} {largest['path']}"]
    text = "\n".join(lines) + "\n"
    sys.stdout.buffer.write(text.encode("utf-8", "surrogateescape"))
    sys.stdout.buffer.flush()


if __name__ == "__main__":
    if len(sys.argv) != 2:
        print("usage: read_image.py DOCUMENT", file=sys.stderr)
        sys.exit(2)
    try:
        print_summary(*read_image(pathlib.Path(sys.argv[1])))
    except (OSError, ValueError, MemoryError, RecursionError) as error:
        sys.exit(f"read_image.py: {sys.argv[1]}: {str(error) or type(error).__name__}")
