"""Lines with tabs between the columns, as `quillmere-archive entries` prints them."""

import re

_PLAIN = {b"t": b"\t", b"n": b"\n", b"r": b"\r", b"b": b"\b", b"f": b"\f", b"0": b"\0"}
_ESCAPES = {plain: b"\\" + sign for sign, plain in _PLAIN.items()} | {b"\\": b"\\\\"}


def unescaped(text: bytes) -> bytes:
    r"""
    >>> unescaped(rb"a\tb\\t")
    b'a\tb\\t'
    """
    return re.sub(rb"\\(.)", lambda match: _PLAIN.get(match[1], match[1]), text)


def escaped(text: bytes) -> bytes:
    r"""
    >>> escaped(b"a\tb\\t")
    b'a\\tb\\\\t'
    """
    return re.sub(rb"[\\\t\n\r\b\f\0]", lambda match: _ESCAPES[match[0]], text)
