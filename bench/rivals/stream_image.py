#!/usr/bin/env python3
"""Prints the length and the path of each file entry of an image: stream_image.py [-0] DOCUMENT

Takes the same memory for ten million entries as for one. A tab stands between length and path, and
a newline behind them, or a zero byte with -0. Names of files come out in the bytes that the product
knows them by.
"""

import itertools
import json
import signal
import sys

# The layout of a document is a contract: each member has its line, and four blanks of indentation
# are those of a member of the root. No value holds a newline, so this cannot be part of one.
FENTRIES = b'\n    "fentries": '
ENTRY_LINES = 13  # eleven members and two braces
BLOCK_SIZE = 2**20


def value_offset(document):
    """Where the value of the last root member "fentries" begins: the one before, if any, is the
    product's metadata."""
    found, position, tail = None, 0, b""
    while block := document.read(BLOCK_SIZE):
        block = tail + block
        at = block.rfind(FENTRIES)
        if at >= 0:
            found = position + at + len(FENTRIES)
        tail = block[1 - len(FENTRIES):]
        position += len(block) - len(tail)
    if found is None:
        raise ValueError("not an image document, or not all of one")
    return found


def read_entry(document):
    """The next file entry as a dictionary of texts, and whether another one follows it."""
    text = b"".join(itertools.islice(document, ENTRY_LINES))
    has_next = text.endswith(b"},\n")
    # Bytes that are no UTF-8 become surrogates, as in the paths that Python's own functions take.
    return json.loads(text[:-2 if has_next else -1].decode("utf-8", "surrogateescape")), has_next


def stream_entries(document):
    """Yields the file entries of a document that is open for reading bytes."""
    document.seek(value_offset(document))
    value = document.readline()
    if value == b"[\n":
        has_next = True
        while has_next:
            entry, has_next = read_entry(document)
            yield entry
        value = document.readline()
    if value not in (b"    ]\n", b'""\n') or document.read(3) != b"}\n":
        raise ValueError("the document ends early")


def main(path, end):
    with open(path, "rb") as document:
        for entry in stream_entries(document):
            line = f"{entry['length']}\t{entry['path']}{end}"
            sys.stdout.buffer.write(line.encode("utf-8", "surrogateescape"))
        sys.stdout.buffer.flush()


if __name__ == "__main__":
    arguments = sys.argv[1:]
    with_zero_bytes = arguments[:1] == ["-0"]
    if len(arguments) != 1 + with_zero_bytes:
        print("usage: stream_image.py [-0] DOCUMENT", file=sys.stderr)
        sys.exit(2)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as head may go early
    try:
        main(arguments[-1], "\0" if with_zero_bytes else "\n")
    except (OSError, ValueError) as error:
        sys.exit(f"stream_image.py: {arguments[-1]}: {error}")
