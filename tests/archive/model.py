"""What an archive has to hold, byte for byte, worked out a second time from what the product's commands
print and from docs/archive.md, as plainly as it goes."""

import base64
import contextlib
import hashlib
import json
import os
import pathlib
import re
import string
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from host_product import UNITS, HostProduct, make_catalogue  # noqa: E402,F401

PROGRAM = "quillmere-archive 1.0.0"
PLAIN = f"{string.ascii_letters}{string.digits}_-".encode()  # in names of files
# What differs from run to run.
CHANGING = re.compile(rb'^( *"(?:exported|exported_utc|export_seconds|created|created_utc|pruned|'
                      rb'pruned_utc)": ).*?(,?)$', re.MULTILINE)


def raw(text):
    """The bytes of a text of the product."""
    return text.encode("utf-8", "surrogateescape")


def file_name(text):
    name = raw(text)
    encoded = "".join(
        chr(byte) if byte in PLAIN or (byte == ord(".") and place)
        else f"%{byte:02X}" for place, byte in enumerate(name)) or "%"
    if len(encoded) > 200:
        return encoded[:100] + "%" + hashlib.sha256(name).hexdigest()
    return encoded


def texts(**values):
    """The members of texts, each with its bytes where it is no UTF-8."""
    members = {}
    for key, value in values.items():
        data = raw(value)
        members[key] = data.decode("utf-8", "replace")
        if members[key].encode() != data:
            members[key + "_base64"] = base64.b64encode(data).decode()
    return members


def moment(key, seconds):
    """The members of a time, of one that RFC 3339 has a date for."""
    utc = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))
    return {key: seconds, key + "_utc": utc}


def json_text(value):
    return (json.dumps(value, indent=4, ensure_ascii=False) + "\n").encode()


def document_text(members):
    """A document of these members, in the layout of the tool's JSON writer."""
    def escaped(text):
        escapes = {"\b": "b", "\f": "f", "\n": "n", "\r": "r", "\t": "t", '"': '"', "\\": "\\",
                   "/": "/"}
        return '"' + "".join(
            "\\" + escapes[c] if c in escapes else f"\\u{ord(c):04X}" if ord(c) < 0x20 else c
            for c in text) + '"'

    def written(value, indent):
        inner, end = " " * (indent + 4), "\n" + " " * indent
        if isinstance(value, str):
            return escaped(value)
        if isinstance(value, tuple):
            items = (f"{inner}{escaped(key)}: {written(item, indent + 4)}" for key, item in value)
            return "{\n" + ",\n".join(items) + end + "}"
        return "[\n" + ",\n".join(inner + written(item, indent + 4) for item in value) + end + "]"

    return raw(written(members, 0)) + b"\n"


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def masked(data):
    """The text of a JSON file without what differs from run to run."""
    return CHANGING.sub(rb"\1-\2", data)


def size_in_bytes(size):
    return int(float(size[:-1]) * UNITS[size[-1]]) % 2**64


class Model:
    """The archive of the product installed under `root`, whose documents `tool` writes."""

    def __init__(self, tool, root, server="server"):
        self.tool, self.root, self.server = tool, pathlib.Path(root), server
        self.documents = {}

    def product(self):
        return HostProduct(self.root)

    def document(self, backup_id):
        """The document of an image: from the tool, unless the tool's shell would read its names as more
        than words, or they are too long for the tool's temporary file."""
        if backup_id not in self.documents:
            with self.no_faults():
                self.documents[backup_id] = self.document_now(backup_id)
        return self.documents[backup_id]

    @contextlib.contextmanager
    def no_faults(self):
        """What the product says when nothing goes wrong."""
        faults, aside = self.root / "faults", self.root / "no-faults"
        try:
            faults.rename(aside)
        except FileNotFoundError:
            yield
            return
        try:
            yield
        finally:
            aside.rename(faults)

    def document_now(self, backup_id):
        catalogue_file = str(self.product().catalogue_file(backup_id))
        if not re.fullmatch(r"[A-Za-z0-9._+-]{1,200} [A-Za-z0-9._+/-]+", f"{backup_id} {catalogue_file}"):
            product = self.product()
            return document_text(
                (*product.metadata(backup_id), ("fentries", product.entries(backup_id))))
        # In a directory of its own: other tests' temporary files may be in /tmp.
        with tempfile.TemporaryDirectory() as directory:
            run = subprocess.run([self.tool, "--action", "dump_backup", "--backup_id", backup_id,
                                  "--output_dir", directory], check=True, capture_output=True)
            assert (run.stdout, run.stderr) == (b"", b""), run
            return (pathlib.Path(directory) / f"{backup_id}.json").read_bytes()

    def manifest(self, image, complaints=(), document=None):
        """`complaints` are the lines on standard error of qvmeta, qvroll and rec_unfold."""
        data = self.document(image.backup_id) if document is None else document
        lines = dict(complaints)
        return {
            "format": "quillmere-archive image", "version": 1, "program": PROGRAM,
            **texts(server=self.server, client=image.client, policy=image.policy,
                    schedule=image.schedule, backup_id=image.backup_id),
            **moment("backup_time", image.time), **texts(size=image.size),
            "size_bytes": size_in_bytes(image.size), "files": image.files,
            **moment("exported", 0), "export_seconds": 0,
            "document": {"file": file_name(image.backup_id) + ".json",
                         "bytes": len(data), "sha256": sha256(data),
                         "stored_bytes": len(data), "stored_sha256": sha256(data)},
            "entries": data.count(b'            "filenum": "'),
            "commands": [{"command": command, "status": 0,
                          "complaints": [{"text": line} for line in lines.get(command, [])]}
                         for command in ("qvmeta", "qvroll", "rec_unfold")]}

    def image_files(self, image, complaints=(), document=None):
        """The files of an image, by their paths in the archive."""
        folder = f"images/{file_name(image.client)}/{file_name(image.backup_id)}"
        data = self.document(image.backup_id) if document is None else document
        manifest = self.manifest(image, complaints, document)
        name = manifest["document"]["file"]
        return {f"{folder}/{name}": data,
                f"{folder}/manifest.json": masked(json_text(manifest)),
                f"{folder}/SHA256SUMS": f"{sha256(data)}  {name}\n-  manifest.json\n".encode()}

    def set_file(self, one, image):
        """The file of a set, which has `image` as a member, by its path."""
        place = "/".join(file_name(text) for text in (image.client, image.policy, image.schedule))
        name = file_name(one.backup_id.split("_", 1)[1])
        return {f"sets/{place}/{name}.json": json_text({
            "format": "quillmere-archive set", "version": 1,
            **texts(server=self.server, client=image.client, policy=image.policy,
                    schedule=image.schedule, backup_id=one.backup_id),
            **moment("create_time", one.time), "size_bytes": one.size % 2**64,
            "images": [texts(backup_id=backup_id) for backup_id in one.image_ids]})}

    def archive_json(self, level=0):
        return {"archive.json": masked(json_text({
            "format": "quillmere-archive", "version": 1, "program": PROGRAM, "server": self.server,
            **moment("created", 0), "compression_level": level}))}

    def files(self, without=(), complaints=None):
        """All files of the archive that has each image but those with the ids `without`, and the
        sets that are whole. `complaints` are those of each image."""
        files = self.archive_json()
        images = self.product().images()
        by_id = {}
        for image in images:
            if image.files != 0 and image.backup_id not in without:
                by_id.setdefault(image.backup_id, image)
                files.update(self.image_files(image, complaints or {}))
        for one in self.product().sets():
            if all(member in by_id for member in one.image_ids):
                # Of two sets with one name the first counts.
                for path, data in self.set_file(one, by_id[one.image_ids[0]]).items():
                    files.setdefault(path, data)
        return files

    def pruned_files(self, before, keep_last=1):
        """The same archive after a prune of what is of a time before that, and the ids of the images
        that went."""
        images = {image.backup_id: image for image in self.product().images() if image.files != 0}
        by_series = {}
        for one in self.product().sets():
            image = images[one.image_ids[0]]
            by_series.setdefault((image.client, image.policy, image.schedule), []).append(one)
        files, staying = self.files(), set()
        for sets in by_series.values():
            sets.sort(key=lambda one: one.time, reverse=True)
            for place, one in enumerate(sets):
                times = [one.time, *(images[member].time for member in one.image_ids)]
                if place < keep_last or not 0 < min(times) <= max(times) < before:
                    staying.update(one.image_ids)
                else:
                    for path in self.set_file(one, images[one.image_ids[0]]):
                        del files[path]
        gone = []
        for image in images.values():
            sets = by_series.get((image.client, image.policy, image.schedule), [])
            if image.backup_id in staying or not 0 < image.time < before or not any(
                    one.time >= image.time for one in sets):
                continue
            gone.append(image.backup_id)
            for path in self.image_files(image):
                del files[path]
            mark = self.manifest(image) | moment("pruned", 0)
            name = f"{file_name(image.client)}/{file_name(image.backup_id)}"
            files[f"pruned/{name}.json"] = masked(json_text(mark))
        return files, gone


def tree(archive):
    """Every file of an archive by its path, as the model has it: what differs from run to run is
    masked, after the checksums have been compared. What is no folder of mode 0700 nor file of mode
    0600 shows as a text. Each image has a filter, which `verify` compares with its document."""
    found = {}
    for folder, folders, names in os.walk(os.fsencode(archive)):
        for name in folders + names:
            path = os.path.join(folder, name)
            at = os.fsdecode(os.path.relpath(path, os.fsencode(archive)))
            mode = os.lstat(path).st_mode
            if mode == 0o100600:
                found[at] = content(path)
            elif mode != 0o040700:
                found[at] = f"mode {mode:o}"
            elif not os.listdir(path):
                found[at + "/"] = "empty folder"
    for image in [path for path in found if path.endswith("/manifest.json")]:
        assert found.pop(image.replace("manifest.json", "paths.filter")), image
    # Held by no one any more, and always empty.
    assert found.pop(".lock", b"") == b""
    found.pop(".staging/", None)
    return found


def content(path):
    with open(path, "rb") as file:
        data = file.read()
    if path.endswith(b"/SHA256SUMS"):
        manifest = os.path.join(os.path.dirname(path), b"manifest.json")
        with open(manifest, "rb") as file:
            checksum = sha256(file.read()).encode()
        return data.replace(checksum + b"  manifest.json", b"-  manifest.json")
    if b"/images/" in path and not path.endswith(b"/manifest.json"):
        return data
    return masked(data)
