"""Archives that tests write by hand, in the layout of docs/archive.md."""

import hashlib
import json
import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "archive"))
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from host_product import ENTRY_KEYS  # noqa: E402
from model import file_name, json_text, moment, raw, texts  # noqa: E402

DAY = 86400
MONDAY = 1788134400  # 2026-08-31 00:00 UTC
MADE = MONDAY + 28 * DAY  # when the pages of the tests are made: 2026-09-28 00:00 UTC


ESCAPES = {b"\\": b"\\\\", b'"': b'\\"', b"/": b"\\/", b"\n": b"\\n", b"\t": b"\\t", b"\x1b": b"\\u001B"}
ROW = (b"        {\n" + b",\n".join(
    b'            "%s": "%s"' % (key.encode(), {"filenum": b"%d", "length": b"%b", "path": b"%b", "data": b"%b"}
                                 .get(key, b"%d" % at)) for at, key in enumerate(ENTRY_KEYS, -1))
       + b"\n        }")


def json_bytes(value):
    """A text as it stands in a document."""
    value = raw(value) if isinstance(value, str) else value
    return re.sub(rb'[\\"/\n\t\x1b]', lambda found: ESCAPES[found[0]], value)


def document(entries):
    """An image's document; the entries are paths, (path, length) or (path, length, data)."""
    rows = []
    for number, entry in enumerate(entries, start=1):
        path, *rest = entry if isinstance(entry, tuple) else (entry,)
        length, data = (*rest, *(1, "owner")[len(rest):])
        rows.append(ROW % (number, str(length).encode(), json_bytes(path), json_bytes(data)))
    array = b"[\n" + b",\n".join(rows) + b"\n    ]" if rows else b'""'
    return b'{\n    "backup_id": "x",\n    "fentries": ' + array + b"\n}\n"


class MadeArchive:
    """An archive in a folder that is new."""

    def __init__(self, folder, server="server", written=json_text):
        self.folder, self.server, self.written = pathlib.Path(folder), server, written
        self.folder.mkdir()
        self.write("archive.json", {"format": "quillmere-archive", "version": 1, "program": "made",
                                    **texts(server=server), **moment("created", MONDAY),
                                    "compression_level": 0})

    def write(self, path, members):
        path = self.folder / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(self.written(members))

    def image(self, client, policy, schedule, time, entries=(), *, complaints=(), files=None,
              size="1.0K", size_bytes=1024, compress=False):
        """Adds an image, and returns its id."""
        backup_id = f"{client}_{time}"
        entries = list(entries)
        data = document(entries)
        directory = self.folder / "images" / file_name(client) / file_name(backup_id)
        directory.mkdir(parents=True)
        name = file_name(backup_id) + ".json"
        stored = data
        if compress:
            name += ".zst"
            stored = subprocess.run(["zstd", "-1", "--stdout"], input=data, check=True,
                                    stdout=subprocess.PIPE).stdout
        (directory / name).write_bytes(stored)
        commands = [{"command": command, "status": 0,
                     "complaints": [texts(text=line) for of, line in complaints if of == command]}
                    for command in ("qvmeta", "qvroll", "rec_unfold")]
        self.write(directory / "manifest.json", {
            "format": "quillmere-archive image", "version": 1, "program": "made",
            **texts(server=self.server, client=client, policy=policy, schedule=schedule,
                    backup_id=backup_id),
            **moment("backup_time", time if abs(time) < 2**40 else 0) | {"backup_time": time},
            **texts(size=size), "size_bytes": size_bytes,
            "files": len(entries) if files is None else files, **moment("exported", MADE),
            "export_seconds": 0.5,
            "document": {"file": name, "bytes": len(data), "sha256": sha256(data),
                         "stored_bytes": len(stored), "stored_sha256": sha256(stored)},
            "entries": len(entries),
            "commands": commands})
        return backup_id

    def set(self, client, policy, schedule, time, *, images, backup_id=None, size_bytes=1024):
        """Adds a set of these images, defined by an image of this time."""
        folder = "/".join(map(file_name, (client, policy, schedule)))
        self.write(f"sets/{folder}/{file_name(str(time))}.json", {
            "format": "quillmere-archive set", "version": 1,
            **texts(server=self.server, client=client, policy=policy, schedule=schedule,
                    backup_id=backup_id or f"{client}_{time}"),
            "create_time": time, "create_time_utc": None, "size_bytes": size_bytes,
            "images": [texts(backup_id=image) for image in images]})

    def night(self, client, policy, schedule, time, entries=(), **options):
        """Adds an image that is a set by itself, and returns its id."""
        backup_id = self.image(client, policy, schedule, time, entries, **options)
        self.set(client, policy, schedule, time, images=[backup_id])
        return backup_id


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def found_by_archive(program, folder, pattern):
    """The paths that quillmere-archive find prints, as JSON texts."""
    run = subprocess.run([program, "find", "--json", folder, pattern], stdout=subprocess.PIPE,
                         check=False)
    assert run.returncode in (0, 1), run
    return [json.loads(line)["path"] for line in run.stdout.splitlines()]
