"""Lines with tabs between the columns, as `quillmere-archive entries` prints them."""

import re
from collections.abc import Iterator
from typing import IO

_PLAIN = {b"t": b"\t", b"n": b"\n", b"r": b"\r", b"b": b"\b", b"f": b"\f", b"0": b"\0"}
_ESCAPES = {plain: b"\\" + sign for sign, plain in _PLAIN.items()} | {b"\\": b"\\\\"}


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
