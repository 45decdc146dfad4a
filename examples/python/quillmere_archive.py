r"""Reads what quillmere and quillmere-archive write, in the same memory whatever its size is.

    >>> for entry in entries("docs/samples/latin-1-names.json"):
    ...     print(int(entry.length), entry.path)
    4096 b'/home/alice/caf\xe9.txt'
    512 b'/home/alice/caf\xc3\xa9.txt'
    0 b'/home/\x80\xfe\xff/\xed\xa0\x80'

The file entries of all images of an archive, and the images of each of its backup sets:

    archive = Archive("/srv/archive")
    for image in archive.images():
        for entry in image.entries():
            ...
    for one in archive.sets():
        images = [archive.image(backup_id) for backup_id in one.image_ids]

Names are bytes, because nobody knows their encoding: print them with sys.stdout.buffer, or make
texts of them with os.fsdecode. What is not as it should be is a DocumentError, what can't be opened
an OSError. The whole module is this file; compressed documents take the command zstd besides.
"""

from __future__ import annotations

import base64
import contextlib
import hashlib
import json
import os
import pathlib
import re
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any, BinaryIO, NamedTuple, Union

Path = Union[str, "os.PathLike[str]"]
VERSION = 1  # of the archive's files, the highest that this module knows

BLOCK = 2**20  # bytes that are read at a time
LONGEST_ENTRY = 25 * 2**20  # bytes


class DocumentError(ValueError):
    """A document or another file is not whole, or not what it should be. The text says which."""


class Entry(NamedTuple):
    """A file entry: eleven fields, in the bytes that the product printed. int() takes a number's."""

    filenum: bytes
    length: bytes
    plength: bytes
    dlength: bytes
    blknum: bytes
    in_image: bytes
    raw_partition_sz: bytes
    gigabytes: bytes
    device_num: bytes
    path: bytes
    data: bytes


# The layout of a document is a contract: four blanks a level, each member on a line of its own, no
# newline in a value. So nothing but a member of the root looks like this.
FENTRIES = b'\n    "fentries": '
ENTRY = re.compile(
    rb" {8}\{\n" + b",\n".join(rb' {12}"%b": "([^\n]*)"' % name.encode() for name in Entry._fields)
    + rb"\n {8}\}(,?)\n")
ESCAPE = re.compile(rb"\\(?:u00([01][0-9A-F])|(.?))", re.DOTALL)
STANDS_FOR = {b'"': b'"', b"\\": b"\\", b"b": b"\b", b"f": b"\f", b"n": b"\n", b"r": b"\r", b"t": b"\t"}


def entries(document: Path) -> Iterator[Entry]:
    """The file entries of a document, which is packed where its name ends in ".zst".

    A document that is cut or was changed is a DocumentError, behind the entries that are whole: use
    none of them before the last one has come.
    """
    begin = _entries_offset(document)
    with _opened(document) as file:
        _skip(file, begin)
        text = file.read(BLOCK)
        has_next, at, end = text.startswith(b"[\n"), 2, b"    ]\n}\n"
        if not has_next:
            at, end = 0, b'""\n}\n'
        while has_next:
            found = ENTRY.match(text, at)
            if found:
                *values, comma = found.groups()
                try:
                    entry = Entry(*[_unescaped(value) if b"\\" in value else value for value in values])
                except KeyError:
                    raise _not_whole(document, begin + at) from None
                yield entry
                at, has_next = found.end(), comma == b","
                continue
            block = file.read(max(BLOCK, len(text) - at))
            if not block or len(text) - at > LONGEST_ENTRY:
                raise _not_whole(document, begin + at)
            begin, text, at = begin + at, text[at:] + block, 0
        if text[at:] + file.read(len(end)) != end:
            raise _not_whole(document, begin + at)


def metadata(document: Path) -> dict[str, Any]:
    """What a document says of its image, besides the file entries.

    >>> metadata("docs/samples/empty-arrays.json")
    {'a': '', 'o': '', 'l': ['', '', ['']]}

    What is empty is "", and every number a text. Of a key that comes twice, the last value is here.
    """
    begin = _entries_offset(document)
    with _opened(document) as file:
        text = file.read(begin)
    try:
        members = json.loads(text + b'""}')
    except ValueError as error:
        raise DocumentError(f"{os.fspath(document)}: {error}") from error
    del members["fentries"]
    return members


@dataclass(frozen=True)
class BackupSet:
    """A backup set of an archive. The times are in seconds since 1970."""

    server: bytes
    client: bytes
    policy: bytes
    schedule: bytes
    backup_id: bytes  # of the image that defines the set
    create_time: int
    size_bytes: int
    image_ids: tuple[bytes, ...]  # of its members


@dataclass(frozen=True)
class Image:
    """An image of an archive, as its manifest has it."""

    server: bytes
    client: bytes
    policy: bytes
    schedule: bytes
    backup_id: bytes
    backup_time: int
    size_bytes: int
    files: int  # as listed
    entry_count: int
    document: pathlib.Path
    sha256: str  # of the document as it was before it was packed

    def entries(self) -> Iterator[Entry]:
        """Its file entries, as those of a document, and as many as the manifest says."""
        count = 0
        for count, entry in enumerate(entries(self.document), 1):
            yield entry
        if count != self.entry_count:
            raise DocumentError(
                f"{self.document}: {count} entries, but {self.entry_count} in the manifest")

    def metadata(self) -> dict[str, Any]:
        """What the product said of it."""
        return metadata(self.document)


class Archive:
    """A directory that quillmere-archive keeps. It can be read at any time, also during a sync."""

    def __init__(self, path: Path) -> None:
        self.path = pathlib.Path(path)
        members = _members_of(self.path / "archive.json", "quillmere-archive")
        with _reading_keys_of(self.path / "archive.json"):
            self.server = _text(members, "server")

    def sets(self) -> Iterator[BackupSet]:
        """The backup sets, in the order of their files' names."""
        for folder, files in _folders(self.path / "sets"):
            for file in files:
                try:
                    one = _set_of(folder / file)
                except FileNotFoundError:  # pruned meanwhile
                    continue
                yield one

    def images(self) -> Iterator[Image]:
        """The images, in the order of their directories' names."""
        top = self.path / "images"
        for folder, _ in _folders(top):
            if folder.parent.parent == top:
                try:
                    image = _image_of(folder)
                except FileNotFoundError:
                    if folder.exists():  # it was not pruned just now
                        raise
                    continue
                yield image

    def image(self, backup_id: bytes) -> Image:
        """The image with this backup id."""
        client = backup_id.split(b"_", 1)[0]
        return _image_of(self.path / "images" / file_name(client) / file_name(backup_id))


def file_name(name: bytes) -> str:
    r"""What a client, policy, schedule or backup id is named in an archive.

    >>> file_name(b"alpha_1500086460"), file_name(b"caf\xe9 1"), file_name(b"..")
    ('alpha_1500086460', 'caf%E9%201', '%2E.')
    """
    escaped = re.sub(rb"^\.|[^A-Za-z0-9._-]", lambda found: b"%%%02X" % found[0][0], name)
    encoded = escaped.decode("ascii") or "%"
    if len(encoded) > 200:
        return encoded[:100] + "%" + hashlib.sha256(name).hexdigest()
    return encoded


def _set_of(path: pathlib.Path) -> BackupSet:
    members = _members_of(path, "quillmere-archive set")
    with _reading_keys_of(path):
        return BackupSet(
            **{key: _text(members, key)
               for key in ("server", "client", "policy", "schedule", "backup_id")},
            create_time=members["create_time"], size_bytes=members["size_bytes"],
            image_ids=tuple(_text(image, "backup_id") for image in members["images"]))


def _image_of(folder: pathlib.Path) -> Image:
    path = folder / "manifest.json"
    members = _members_of(path, "quillmere-archive image")
    with _reading_keys_of(path):
        document, sha256 = members["document"]["file"], members["document"]["sha256"]
    if document not in (f"{folder.name}.json", f"{folder.name}.json.zst"):
        raise DocumentError(f"{path}: names another document")
    with _reading_keys_of(path):
        return Image(
            **{key: _text(members, key)
               for key in ("server", "client", "policy", "schedule", "backup_id")},
            backup_time=members["backup_time"], size_bytes=members["size_bytes"],
            files=members["files"], entry_count=members["entries"], document=folder / document,
            sha256=sha256)


def _members_of(path: pathlib.Path, kind: str) -> dict[str, Any]:
    """The members of a JSON file of the archive."""
    try:
        members = json.loads(path.read_bytes())
    except ValueError as error:
        raise DocumentError(f"{path}: not JSON") from error
    if not isinstance(members, dict) or members.get("format") != kind:
        raise DocumentError(f"{path}: not of quillmere-archive")
    version = members.get("version")
    if not isinstance(version, int):
        raise DocumentError(f"{path}: a key is missing or wrong")
    if version > VERSION:
        raise DocumentError(f"{path}: format version {version} is newer than this program")
    return members


@contextlib.contextmanager
def _reading_keys_of(path: pathlib.Path) -> Iterator[None]:
    try:
        yield
    except (AttributeError, KeyError, TypeError, ValueError) as error:
        raise DocumentError(f"{path}: a key is missing or wrong") from error


def _text(members: dict[str, Any], key: str) -> bytes:
    """A text's bytes: they stand beside it where it is no UTF-8."""
    if f"{key}_base64" in members:
        return base64.b64decode(members[f"{key}_base64"], validate=True)
    return members[key].encode()


def _folders(top: pathlib.Path) -> Iterator[tuple[pathlib.Path, list[str]]]:
    """A folder and all below it, with the names of the files in each."""

    def complain(error: OSError) -> None:
        if not isinstance(error, FileNotFoundError):  # pruned meanwhile, or not there yet
            raise error

    for folder, names, files in os.walk(top, onerror=complain):
        names.sort()
        yield pathlib.Path(folder), sorted(files)


@contextlib.contextmanager
def _opened(document: Path) -> Iterator[BinaryIO]:
    """The document as it was before it was packed."""
    with open(document, "rb") as file:
        if not os.fspath(document).endswith(".zst"):
            yield file
            return
        command = ["zstd", "--decompress", "--stdout", "--quiet"]
        with subprocess.Popen(command, stdin=file, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as process:
            yield process.stdout
            if not process.stdout.read(1) and process.wait() != 0:
                raise DocumentError(f"{document} is no whole zstd file")


def _entries_offset(document: Path) -> int:
    """Where the value of the last "fentries" begins: any before it is of the product's metadata."""
    found, position, tail = 0, 0, b""
    with _opened(document) as file:
        while block := file.read(BLOCK):
            block = tail + block
            at = block.rfind(FENTRIES)
            if at >= 0:
                found = position + at + len(FENTRIES)
            tail = block[1 - len(FENTRIES):]
            position += len(block) - len(tail)
    if not found:
        raise _not_whole(document, position + len(tail))
    return found


def _skip(file: BinaryIO, size: int) -> None:
    if file.seekable():
        file.seek(size)
        return
    while size and (block := file.read(min(size, BLOCK))):
        size -= len(block)


def _unescaped(text: bytes) -> bytes:
    # No slash is without its backslash, so these two belong together wherever they are.
    text = text.replace(rb"\/", b"/")
    return ESCAPE.sub(_stands_for, text) if b"\\" in text else text


def _stands_for(escape: re.Match[bytes]) -> bytes:
    return bytes([int(escape[1], 16)]) if escape[1] else STANDS_FOR[escape[2]]


def _not_whole(document: Path, offset: int) -> DocumentError:
    return DocumentError(f"{os.fspath(document)}: no whole document: wrong behind byte {offset}")
