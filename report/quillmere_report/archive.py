"""Reads what an archive says of its images and sets: docs/archive.md, without the documents.

Texts are str in which each byte that is no UTF-8 is a lone surrogate, U+DC00 + byte.
"""

import base64
import binascii
import dataclasses
import errno
import json
import os
import stat
from collections.abc import Iterator
from typing import Any

LARGEST_FILE = 64 * 2**20


class Unreadable(Exception):
    """What is wrong with a file, or that it is gone."""


class NoArchive(Exception):
    """There is no archive to make a page of; the text is the whole message."""


@dataclasses.dataclass
class Image:
    """What a manifest says."""

    directory: bytes
    client: str
    policy: str
    schedule: str
    backup_id: str
    time: int
    size: str
    size_bytes: int
    files: int
    exported: int
    entries: int
    document_bytes: int
    stored_bytes: int
    complaints: list[tuple[str, str]]  # command and line

    @property
    def has_warnings(self) -> bool:
        """Whether a command complained, or the listing counts other files than the document has."""
        return bool(self.complaints) or self.entries != self.files


@dataclasses.dataclass
class BackupSet:
    """What a set file says."""

    client: str
    policy: str
    schedule: str
    backup_id: str
    time: int
    size_bytes: int
    images: list[Image]

    @property
    def series(self) -> tuple[str, str, str]:
        return self.client, self.policy, self.schedule


@dataclasses.dataclass
class Archive:
    """An archive; `problems` says of each file that is left out which and why."""

    path: str
    server: str
    images: dict[str, Image] = dataclasses.field(default_factory=dict)
    sets: list[BackupSet] = dataclasses.field(default_factory=list)
    problems: list[tuple[str, str]] = dataclasses.field(default_factory=list)


class Members:
    """The members of a JSON object, each of the kind that it has to be."""

    def __init__(self, members: Any, name: str = "") -> None:
        if not isinstance(members, dict):
            raise Unreadable(f"{name} is missing or wrong" if name else "not JSON")
        self.members = members

    def text(self, key: str) -> str:
        value = self.members.get(key)
        if not isinstance(value, str):
            raise Unreadable(f"{key} is missing or wrong")
        packed = self.members.get(key + "_base64")
        if packed is None:
            return value
        try:
            return base64.b64decode(packed, validate=True).decode("utf-8", "surrogateescape")
        except (binascii.Error, TypeError, ValueError):
            raise Unreadable(f"{key}_base64 is missing or wrong") from None

    def number(self, key: str) -> int:
        value = self.members.get(key)
        if type(value) is not int or not -2**63 <= value < 2**64:
            raise Unreadable(f"{key} is missing or wrong")
        return value

    def array(self, key: str) -> list["Members"]:
        value = self.members.get(key)
        if not isinstance(value, list):
            raise Unreadable(f"{key} is missing or wrong")
        return [Members(item, key) for item in value]

    def inner(self, key: str) -> "Members":
        return Members(self.members.get(key), key)


def read_file(path: bytes) -> bytes:
    """All of a file, which has to be a regular one; nothing else is opened for good."""
    try:
        descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC)
    except OSError as error:
        if os.path.islink(path):
            raise Unreadable("is a symbolic link") from error
        raise Unreadable(error.strerror) from error
    with open(descriptor, "rb", buffering=0) as file:
        status = os.fstat(descriptor)
        if not stat.S_ISREG(status.st_mode):
            raise Unreadable("is no regular file")
        if status.st_size > LARGEST_FILE:
            raise Unreadable("larger than any of its kind")
        try:
            return file.read()
        except OSError as error:
            raise Unreadable(error.strerror) from error


def read_members(path: bytes, kind: str) -> Members:
    """The members of a JSON file of an archive."""
    data = read_file(path)
    try:
        members = Members(json.loads(data.decode("utf-8")))
    except (ValueError, RecursionError):
        raise Unreadable("not JSON") from None
    if members.members.get("format") != kind:
        raise Unreadable("not of quillmere-archive")
    version = members.number("version")
    if version != 1:
        raise Unreadable(f"format version {version} is newer than this program")
    return members


def read_image(directory: bytes) -> Image:
    members = read_members(os.path.join(directory, b"manifest.json"), "quillmere-archive image")
    document = members.inner("document")
    return Image(
        directory=directory, client=members.text("client"), policy=members.text("policy"),
        schedule=members.text("schedule"), backup_id=members.text("backup_id"),
        time=members.number("backup_time"), size=members.text("size"),
        size_bytes=members.number("size_bytes"), files=members.number("files"),
        exported=members.number("exported"), entries=members.number("entries"),
        document_bytes=document.number("bytes"), stored_bytes=document.number("stored_bytes"),
        complaints=[(command.text("command"), line.text("text"))
                    for command in members.array("commands")
                    for line in command.array("complaints")])


def read_set(path: bytes, images: dict[str, Image]) -> BackupSet:
    members = read_members(path, "quillmere-archive set")
    ids = [image.text("backup_id") for image in members.array("images")]
    for backup_id in ids:
        if backup_id not in images:
            raise Unreadable(f"the image {backup_id} is not there")
    return BackupSet(
        client=members.text("client"), policy=members.text("policy"),
        schedule=members.text("schedule"), backup_id=members.text("backup_id"),
        time=members.number("create_time"), size_bytes=members.number("size_bytes"),
        images=[images[backup_id] for backup_id in ids])


class Reader:
    """Walks an archive. A file that goes meanwhile is as if it had never been: prune is at work."""

    def __init__(self, root: bytes) -> None:
        self.root = root
        self.problems: list[tuple[str, str]] = []

    def note(self, path: bytes, what: str) -> None:
        if os.path.lexists(path):
            self.problems.append((os.fsdecode(os.path.relpath(path, self.root)), what))

    def names(self, path: bytes) -> list[bytes]:
        try:
            return sorted(os.listdir(path))
        except OSError as error:
            self.note(path, f"can't be read: {error.strerror}")
            return []

    def folders(self, path: bytes, depth: int) -> Iterator[bytes]:
        """The directories `depth` levels below `path`; of what else is there, verify speaks."""
        if depth == 0:
            yield path
            return
        for name in self.names(path):
            inner = os.path.join(path, name)
            if os.path.islink(inner):
                self.note(inner, "is a symbolic link")
            elif os.path.isdir(inner):
                yield from self.folders(inner, depth - 1)

    def images(self) -> dict[str, Image]:
        found = {}
        for directory in self.folders(os.path.join(self.root, b"images"), 2):
            try:
                image = read_image(directory)
                found[image.backup_id] = image
            except Unreadable as reason:
                self.note(os.path.join(directory, b"manifest.json"), str(reason))
                if not os.path.lexists(os.path.join(directory, b"manifest.json")):
                    self.note(directory, "has no manifest.json")
        return found

    def sets(self, images: dict[str, Image]) -> list[BackupSet]:
        found = []
        for directory in self.folders(os.path.join(self.root, b"sets"), 3):
            for name in self.names(directory):
                path = os.path.join(directory, name)
                try:
                    found.append(read_set(path, images))
                except Unreadable as reason:
                    self.note(path, str(reason))
        return found


def read_archive(path: str) -> Archive:
    """All of an archive but its documents."""
    root = os.fsencode(path)
    described = os.path.join(root, b"archive.json")
    try:
        if not os.path.isdir(root):
            os.listdir(root)  # says why
        server = read_members(described, "quillmere-archive").text("server")
    except OSError as error:
        raise NoArchive(f"can't open {path}: {error.strerror}") from error
    except Unreadable as reason:
        if str(reason) == os.strerror(errno.ENOENT):
            reason = Unreadable("no such file; quillmere-archive init makes an archive")
        raise NoArchive(f"{path}/archive.json: {reason}") from None
    reader = Reader(root)
    images, sets = {}, []
    # Either is missing until the first sync.
    if os.path.lexists(os.path.join(root, b"images")):
        images = reader.images()
    if os.path.lexists(os.path.join(root, b"sets")):
        sets = reader.sets(images)
    sets.sort(key=lambda one: (*one.series, one.time, one.backup_id))
    return Archive(path=path, server=server, images=images, sets=sets, problems=reader.problems)
