"""Archives that are written by hand, image by image, in the layout of docs/archive.md."""

import os
import pathlib
import shutil
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "archive"))
from model import document_text, file_name, json_text, moment, sha256, texts

ENTRY = {"filenum": "1", "length": "", "plength": "41", "dlength": "90", "blknum": "88",
         "in_image": "1", "raw_partition_sz": "0", "gigabytes": "0", "device_num": "64768",
         "path": "", "data": "33188 alice"}


class HandMadeArchive:
    def __init__(self, path, server):
        self.path, self.server = path, os.fsdecode(server)
        self.write("archive.json", {
            "format": "quillmere-archive", "version": 1, "program": "by hand",
            **texts(server=self.server), **moment("created", 0), "compression_level": 0})

    def write(self, path, members):
        path = self.path / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(json_text(members))

    def image(self, client, policy, schedule, time, **files):
        """An image of `files`, pairs of path and length; returns its id."""
        backup_id = f"{client}_{time}"
        entries = [tuple((ENTRY | {"length": str(length), "path": os.fsdecode(path)}).items())
                   for path, length in files["files"]]
        document = document_text((("backup_id", backup_id), ("fentries", entries or "")))
        folder = self.folder(backup_id)
        self.write(folder / "manifest.json", {
            "format": "quillmere-archive image", "version": 1, "program": "by hand",
            **texts(server=self.server, client=client, policy=policy, schedule=schedule,
                    backup_id=backup_id),
            **moment("backup_time", time), "size": "1K", "size_bytes": 1024,
            "files": len(entries), **moment("exported", 0), "export_seconds": 0,
            "document": {"file": f"{file_name(backup_id)}.json", "bytes": len(document),
                         "sha256": sha256(document), "stored_bytes": len(document),
                         "stored_sha256": sha256(document)},
            "entries": len(entries), "commands": []})
        self.document(backup_id).write_bytes(document)
        return backup_id

    def folder(self, backup_id):
        client = backup_id.partition("_")[0]
        return self.path / "images" / file_name(client) / file_name(backup_id)

    def document(self, backup_id):
        return self.folder(backup_id) / f"{file_name(backup_id)}.json"

    def set(self, client, policy, schedule, time, *images):
        """A set of these images, closed by its parent at that time."""
        self.write(self.set_path(client, policy, schedule, time), {
            "format": "quillmere-archive set", "version": 1,
            **texts(server=self.server, client=client, policy=policy, schedule=schedule,
                    backup_id=f"{client}_{time}"),
            **moment("create_time", time), "size_bytes": 2**64 - 1,
            "images": [texts(backup_id=one) for one in images]})

    def set_path(self, client, policy, schedule, time):
        names = (file_name(name) for name in (client, policy, schedule))
        return self.path.joinpath("sets", *names, f"{time}.json")

    def prune(self, backup_id):
        shutil.rmtree(self.folder(backup_id))
