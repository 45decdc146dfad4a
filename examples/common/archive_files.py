"""What loaders of databases read of an archive: its server, its images, its sets, its file entries.

Names are bytes in any encoding. Nothing is locked: a sync or a prune of the archive may run meanwhile.
"""

import base64
import contextlib
import json
import os
import pathlib
import subprocess
from collections.abc import Iterator
from typing import IO, Any, NamedTuple

PROGRAM = os.environ.get("QUILLMERE_ARCHIVE", "quillmere-archive")
VERSION = 1  # the highest that is known here
BUFFER_SIZE = 1 << 20  # bytes


class LoadError(Exception):
    """Something could not be read or loaded; the text says what."""


class Image(NamedTuple):
    """What a manifest says of an image."""

    directory: pathlib.Path
    client: bytes
    policy: bytes
    schedule: bytes
    backup_id: bytes
    backup_time: int
    entries: int
    sha256: str  # of its document


class BackupSet(NamedTuple):
    """What a set file says."""

    client: bytes
    policy: bytes
    schedule: bytes
    backup_id: bytes
    create_time: int
    size_bytes: int
    images: tuple[bytes, ...]


def server_of(archive: pathlib.Path) -> bytes:
    """The name of the server whose images the archive holds."""
    return _text(_read(archive / "archive.json", "quillmere-archive"), "server")


def images_of(archive: pathlib.Path) -> list[Image]:
    """The images, the newest first."""
    images = []
    for directory in (archive / "images").glob("*/*"):
        try:
            manifest = _read(directory / "manifest.json", "quillmere-archive image")
        except FileNotFoundError:
            if directory.exists():
                raise
            continue  # it was pruned just now
        images.append(Image(directory, *_names(manifest), manifest["backup_time"],
                            manifest["entries"], manifest["document"]["sha256"]))
    return sorted(images, key=lambda image: (-image.backup_time, image.backup_id))


def sets_of(archive: pathlib.Path) -> list[BackupSet]:
    """The backup sets. To be read before the images: those of a set are there before it is."""
    sets = []
    for path in (archive / "sets").glob("*/*/*/*.json"):
        with contextlib.suppress(FileNotFoundError):  # it was pruned, or replaced, just now
            one = _read(path, "quillmere-archive set")
            sets.append(BackupSet(*_names(one), one["create_time"], one["size_bytes"],
                                  tuple(_text(member, "backup_id") for member in one["images"])))
    return sets


@contextlib.contextmanager
def entries_of(image: Image, columns: list[str]) -> Iterator[IO[bytes]]:
    """A stream of the image's file entries: lines with tabs between the columns, and with escapes.

    What was read of it counts when the context has ended without an error, not before.
    """
    command = [PROGRAM, "entries", "--columns", ",".join(columns), image.directory]
    with subprocess.Popen(command, bufsize=BUFFER_SIZE, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        yield process.stdout
        complaint = process.stderr.read().decode("utf-8", "backslashreplace").rstrip("\n")
    if process.returncode != 0:
        raise LoadError(complaint or f"{image.directory}: {PROGRAM} ended with status "
                                     f"{process.returncode}")


def is_gone(image: Image) -> bool:
    """Whether the image has been pruned since it was listed."""
    return not image.directory.exists()


def _read(path: pathlib.Path, kind: str) -> dict[str, Any]:
    members = json.loads(path.read_bytes())
    if members["format"] != kind:
        raise LoadError(f"{path}: not of quillmere-archive")
    if members["version"] > VERSION:
        raise LoadError(f"{path}: format version {members['version']} is newer than this program")
    return members


def _names(members: dict[str, Any]) -> list[bytes]:
    return [_text(members, key) for key in ("client", "policy", "schedule", "backup_id")]


def _text(members: dict[str, Any], key: str) -> bytes:
    """The bytes of a text, which stand in base64 beside it where they are no UTF-8."""
    if key + "_base64" in members:
        return base64.b64decode(members[key + "_base64"])
    return members[key].encode()
