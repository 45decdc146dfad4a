"""File entries, as quillmere-archive prints them, and in the form in which they go into the page."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from .archive import Image, Unreadable

# As the page's script takes them apart: those of its table first.
COLUMNS = ("path length filenum data"
           " plength dlength blknum in_image raw_partition_sz gigabytes device_num").split()
IN_TABLE = 4
NUMBER = re.compile(rb"-?[0-9]{1,20}")
ESCAPES = {b"\\": b"\\", b"t": b"\t", b"n": b"\n", b"r": b"\r", b"b": b"\b", b"f": b"\f"}
ESCAPE = re.compile(rb"\\(.)")
# A byte that is no UTF-8, or that parts the values, is carried as U+10FF00 + byte. What is one of
# these characters by itself is carried byte by byte.
CARRIED = re.compile("[\\0\\n\udc80-\udcff\U0010ff00-\U0010ffff]")


def carried_character(match: re.Match[str]) -> str:
    code = ord(match[0])
    if code >= 0x10FF00:
        return "".join(chr(0x10FF00 + byte) for byte in match[0].encode())
    return chr(0x10FF00 + (code & 0xFF))


def carried(text: str) -> str:
    """A text as the page holds it: what it can't hold otherwise is carried."""
    return CARRIED.sub(carried_character, text)


def unescaped(value: bytes) -> bytes:
    return ESCAPE.sub(lambda escape: ESCAPES[escape[1]], value) if b"\\" in value else value


def number(text: bytes) -> int:
    """A length; what is no number counts 0."""
    return int(text) if NUMBER.fullmatch(text) else 0


def archive_program() -> str:
    """quillmere-archive: the one beside this program, or that of the PATH."""
    beside = pathlib.Path(sys.argv[0]).resolve().with_name("quillmere-archive")
    found = str(beside) if os.access(beside, os.X_OK) else shutil.which("quillmere-archive")
    if found is None:
        raise Unreadable("quillmere-archive, which reads the entries, is not in the PATH")
    return found


def read_columns(image: Image, names: list[str]) -> list[list[bytes]]:
    """These columns of all entries of an image, each as a list of values."""
    run = subprocess.run(
        [archive_program(), "entries", "--columns", ",".join(names), os.path.abspath(image.directory)],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    if run.returncode != 0:
        said = run.stderr.decode("utf-8", "surrogateescape").splitlines()
        raise Unreadable(said[0] if said else
                         f"quillmere-archive entries ended with status {run.returncode}")
    rows = [line.split(b"\t") for line in run.stdout.split(b"\n")[:-1]]
    if len(rows) != image.entries or any(len(row) != len(names) for row in rows):
        raise Unreadable(f"{len(rows)} entries, but {image.entries} in the manifest")
    columns = [list(column) for column in zip(*rows)] if rows else [[] for _ in names]
    if b"\\" in run.stdout:
        columns = [[unescaped(value) for value in column] for column in columns]
    return columns


def lengths_by_path(image: Image) -> dict[bytes, int]:
    """The length of each path; of one that comes twice, the last."""
    paths, lengths = read_columns(image, ["path", "length"])
    return dict(zip(paths, map(number, lengths)))


def carried_column(values: list[bytes]) -> bytes:
    """Values, one for each line."""
    joined = b"\n".join(values)
    text = joined.decode("utf-8", "surrogateescape")
    if joined.count(b"\n") == max(0, len(values) - 1) and not re.search(CARRIED_IN_LINES, text):
        return joined
    return "\n".join(carried(value.decode("utf-8", "surrogateescape")) for value in values).encode()


CARRIED_IN_LINES = re.compile("[\\0\udc80-\udcff\U0010ff00-\U0010ffff]")


def blocks(image: Image) -> tuple[bytes, bytes]:
    """The entries of an image in the order of their paths, so that each folder is one stretch:
    the columns of the table, and the others. A zero byte parts the columns."""
    columns = read_columns(image, list(COLUMNS))
    order = sorted(range(len(columns[0])), key=columns[0].__getitem__)
    packed = [carried_column([column[at] for at in order]) for column in columns]
    return b"\0".join(packed[:IN_TABLE]), b"\0".join(packed[IN_TABLE:])
