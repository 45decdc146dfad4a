"""Lines with tabs between the columns, as `quillmere-archive entries` prints them."""

import contextlib
import os
import pathlib
import re
import subprocess
from collections.abc import Iterator
from typing import IO

PROGRAM = os.environ.get("QUILLMERE_ARCHIVE", "quillmere-archive")
BUFFER_SIZE = 1 << 20  # bytes

_PLAIN = {b"t": b"\t", b"n": b"\n", b"r": b"\r", b"b": b"\b", b"f": b"\f", b"0": b"\0"}
_ESCAPES = {plain: b"\\" + sign for sign, plain in _PLAIN.items()} | {b"\\": b"\\\\"}


class LoadError(Exception):
    """Something could not be read or loaded; the text says what."""


@contextlib.contextmanager
def lines_of(image: pathlib.Path, columns: list[str]) -> Iterator[IO[bytes]]:
    """A stream of the file entries of an image, which is a directory of an archive.

    What was read of it counts when the context has ended without an error, not before.
    """
    command = [PROGRAM, "entries", "--columns", ",".join(columns), image]
    with subprocess.Popen(command, bufsize=BUFFER_SIZE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        yield process.stdout
        complaint = process.stderr.read().decode("utf-8", "backslashreplace").rstrip("\n")
    if process.returncode != 0:
        raise LoadError(complaint or f"{image}: {PROGRAM} ended with status {process.returncode}")


def unescaped(text: bytes) -> bytes:
    r"""
    >>> unescaped(rb"a\tb\\t")
    b'a\tb\\t'
    """
    if b"\\" not in text:
        return text
    return re.sub(rb"\\(.)", lambda match: _PLAIN.get(match[1], match[1]), text)


def escaped(text: bytes) -> bytes:
    r"""
    >>> escaped(b"a\tb\\t")
    b'a\\tb\\\\t'
    """
    return re.sub(rb"[\\\t\n\r\b\f\0]", lambda match: _ESCAPES[match[0]], text)


def whole_lines(stream: IO[bytes]) -> Iterator[bytes]:
    """What comes, in pieces of whole lines; each lacks its last newline. A line that is cut at the end
    of the stream is left out."""
    rest = b""
    while piece := stream.read1():
        lines, newline, rest = (rest + piece).rpartition(b"\n")
        if newline:
            yield lines


def all_numbers(texts: list[bytes]) -> bool:
    """Whether these are decimal numbers of no more than 18 digits, which fit everywhere.

    >>> all_numbers([b"0", b"999999999999999999"])
    True
    >>> [all_numbers([text]) for text in (b"", b"-1", b"1e3", b"1_0", b"1000000000000000000")]
    [False, False, False, False, False]
    """
    return all(map(bytes.isdigit, texts)) and max(map(len, texts)) <= 18
