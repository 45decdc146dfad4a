"""The page: an index of all sets and images, blocks with the entries, and what shows them."""

import base64
import dataclasses
import hashlib
import json
import pathlib
import string
import zlib
from collections.abc import Iterator

from . import VERSION
from .archive import Archive, Image
from .changes import Change, Comparison
from .entries import carried

PAGE = pathlib.Path(__file__).resolve().parent.parent / "page"
SCRIPTS = ("text.js", "data.js", "search.js", "nights.js", "growth.js", "treemap.js", "table.js",
           "image.js", "main.js")
LARGEST_EXACT = 2**53


def exact(number: int) -> int | str:
    """A number as JSON carries it to the script: as a text where a double would round it."""
    return number if abs(number) <= LARGEST_EXACT else str(number)


@dataclasses.dataclass
class Contents:
    """What goes into a page."""

    archive: Archive
    made: int
    shown: list[tuple[Image, bytes, bytes]] = dataclasses.field(default_factory=list)
    comparisons: list[Comparison] = dataclasses.field(default_factory=list)
    left_out: list[str] = dataclasses.field(default_factory=list)
    chosen: bool = False  # --image or --set said what is shown
    most_entries: int = 0


class Strings:
    """Each text once; elsewhere its number."""

    def __init__(self) -> None:
        self.numbers: dict[str, int] = {}

    def number(self, text: str) -> int:
        return self.numbers.setdefault(text, len(self.numbers))

    def all(self) -> list[str]:
        return [carried(text) for text in self.numbers]


def change_rows(changes: list[Change]) -> list[list[int | str | None]]:
    return [[carried(change.path.decode("utf-8", "surrogateescape")),
             None if change.before is None else exact(change.before),
             None if change.after is None else exact(change.after)] for change in changes]


def index(contents: Contents) -> dict[str, object]:
    """What the page's script has at hand from the beginning, as columns."""
    archive, strings = contents.archive, Strings()
    images = sorted(archive.images.values(),
                    key=lambda image: (image.client, image.policy, -image.time, image.backup_id))
    numbers = {image.backup_id: at for at, image in enumerate(images)}
    sets = {id(one): at for at, one in enumerate(archive.sets)}
    return {
        "version": VERSION,
        "server": carried(archive.server),
        "archive": carried(archive.path),
        "made": contents.made,
        "chosen": contents.chosen,
        "most_entries": contents.most_entries,
        "problems": [[carried(path), carried(what)] for path, what in archive.problems],
        "left_out": [carried(what) for what in contents.left_out],
        "shown": [numbers[image.backup_id] for image, _, _ in contents.shown],
        "images": {
            "backup_id": [carried(image.backup_id) for image in images],
            "client": [strings.number(image.client) for image in images],
            "policy": [strings.number(image.policy) for image in images],
            "schedule": [strings.number(image.schedule) for image in images],
            "size": [strings.number(image.size) for image in images],
            "time": [exact(image.time) for image in images],
            "size_bytes": [exact(image.size_bytes) for image in images],
            "files": [image.files for image in images],
            "exported": [exact(image.exported) for image in images],
            "entries": [image.entries for image in images],
            "document_bytes": [exact(image.document_bytes) for image in images],
            "stored_bytes": [exact(image.stored_bytes) for image in images],
            "complaints": [[[strings.number(command), strings.number(line)]
                            for command, line in image.complaints] for image in images],
        },
        "sets": {
            "backup_id": [carried(one.backup_id) for one in archive.sets],
            "client": [strings.number(one.client) for one in archive.sets],
            "policy": [strings.number(one.policy) for one in archive.sets],
            "schedule": [strings.number(one.schedule) for one in archive.sets],
            "time": [exact(one.time) for one in archive.sets],
            "size_bytes": [exact(one.size_bytes) for one in archive.sets],
            "images": [[numbers[image.backup_id] for image in one.images] for one in archive.sets],
        },
        "changes": [{"before": sets[id(one.before)], "after": sets[id(one.after)],
                     "folders": change_rows(one.folders), "files": change_rows(one.files)}
                    for one in contents.comparisons],
        "strings": strings.all(),
    }


def block(name: str, data: bytes) -> bytes:
    """Data for the page's script. Base64 has no character that means anything to HTML."""
    packed = base64.b64encode(zlib.compress(data, 6))
    return b'<script type="application/octet-stream" id="%s">%s</script>\n' % (name.encode(), packed)


def page(contents: Contents) -> Iterator[bytes]:
    """The page in parts. It holds all that it needs, and may not load anything."""
    markup = (PAGE / "page.html").read_text("utf-8")
    style = (PAGE / "page.css").read_text("utf-8")
    script = '"use strict";\n\n' + "\n".join((PAGE / name).read_text("utf-8") for name in SCRIPTS)

    def only(text: str) -> str:
        digest = base64.b64encode(hashlib.sha256(text.encode("utf-8")).digest())
        return f"'sha256-{digest.decode('ascii')}'"

    policy = (f"default-src 'none'; script-src {only(script)}; style-src {only(style)}; "
              "base-uri 'none'; form-action 'none'")
    whole = string.Template(markup).substitute(policy=policy, style=style, script=script,
                                               data="\0")
    before, after = whole.split("\0")
    yield before.encode("utf-8")
    yield block("index", json.dumps(index(contents), separators=(",", ":"),
                                    ensure_ascii=False).encode("utf-8"))
    for at, (_, in_table, others) in enumerate(contents.shown):
        yield block(f"table-{at}", in_table)
        yield block(f"others-{at}", others)
    yield after.encode("utf-8")
