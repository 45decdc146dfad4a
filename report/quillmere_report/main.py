"""The command line of quillmere-report."""

import argparse
import os
import re
import signal
import sys
import time
from types import FrameType

from . import VERSION
from .archive import Archive, BackupSet, Image, NoArchive, Unreadable, read_archive
from .changes import comparisons
from .entries import blocks
from .output import write_whole
from .page import Contents, page

FAILED = 1
NOT_READ = 4


def complain(text: str) -> None:
    """A line on standard error, with control characters as the archive's program shows them."""
    line = re.sub("[\\0-\\x1f\\x7f]", lambda sign: f"\\x{ord(sign[0]):02X}", text) + "\n"
    sys.stderr.buffer.write(line.encode("utf-8", "surrogateescape"))
    sys.stderr.buffer.flush()


def bound(text: str) -> int:
    if not re.fullmatch("[0-9]{1,12}", text):
        raise argparse.ArgumentTypeError(f"not a number of entries: {text!r}")
    return int(text)


def parser() -> argparse.ArgumentParser:
    made = argparse.ArgumentParser(
        prog="quillmere-report", allow_abbrev=False,
        description="Writes one HTML page of an archive that quillmere-archive keeps: all backup sets"
                    " and images, and the file entries of the newest set of each series.")
    made.add_argument("archive", metavar="ARCHIVE", help="directory of the archive")
    made.add_argument("-o", "--output", metavar="FILE", default="report.html",
                      help="the page (report.html)")
    made.add_argument("--image", metavar="ID", action="append", default=[],
                      help="file entries of this image instead; can be repeated")
    made.add_argument("--set", metavar="ID", action="append", default=[], dest="sets",
                      help="file entries of the set that this image defines; can be repeated")
    made.add_argument("--max-entries", metavar="N", type=bound, default=500000,
                      help="no more file entries than these (500000)")
    made.add_argument("--version", action="version", version=f"quillmere-report {VERSION}")
    return made


def newest_of_each_series(archive: Archive) -> list[BackupSet]:
    """The newest set of each series, the newest of all first."""
    newest = {one.series: one for one in archive.sets}  # each series goes by time
    return sorted(newest.values(), key=lambda one: (-one.time, one.series))


def chosen_images(archive: Archive, ids: list[str], sets: list[str]) -> tuple[list[Image], list[str]]:
    """The images that --image and --set name, and a line for each name of nothing."""
    images, unknown = [], []
    for backup_id in ids:
        if backup_id in archive.images:
            images.append(archive.images[backup_id])
        else:
            unknown.append(f"no image {backup_id} in {archive.path}")
    for backup_id in sets:
        found = [one for one in archive.sets if one.backup_id == backup_id]
        images += [image for one in found for image in one.images]
        if not found:
            unknown.append(f"no set {backup_id} in {archive.path}")
    return images, unknown


def add_entries(contents: Contents, images: list[Image]) -> list[str]:
    """Adds the entries of these images, each once and whole, as far as they fit; returns a line for
    each image whose entries could not be read."""
    room, failed = contents.most_entries, []
    for image in dict((image.backup_id, image) for image in images).values():
        if image.entries > room:
            contents.left_out.append(
                f"{image.backup_id}: its {image.entries:,} file entries, for which there is no room:"
                f" --max-entries is {contents.most_entries:,}")
            continue
        try:
            contents.shown.append((image, *blocks(image)))
        except Unreadable as reason:
            contents.left_out.append(f"{image.backup_id}: its file entries: {reason}")
            failed.append(f"{image.backup_id}: {reason}")
            continue
        room -= image.entries
    return failed


def made_at() -> int:
    """Now, or the time that reproducible builds have."""
    given = os.environ.get("SOURCE_DATE_EPOCH", "")
    return int(given) if re.fullmatch("[0-9]{1,11}", given) else int(time.time())


def end(number: int, _: FrameType | None) -> None:
    # Nothing stays behind: the way out removes the temporary file.
    sys.exit(128 + number)


def make_report(options: argparse.Namespace) -> int:
    """Makes the page, says on standard error what is not in it, and returns the status."""
    archive = read_archive(options.archive)
    contents = Contents(archive, made_at(), most_entries=options.max_entries,
                        chosen=bool(options.image or options.sets))
    unknown: list[str] = []
    if contents.chosen:
        images, unknown = chosen_images(archive, options.image, options.sets)
    else:
        images = [image for one in newest_of_each_series(archive) for image in one.images]
    if unknown:
        for line in unknown:
            complain(line)
        return FAILED
    failed = add_entries(contents, images)
    chosen_left_out = contents.left_out[:] if contents.chosen else failed
    contents.comparisons, not_compared = comparisons(archive, options.max_entries)
    contents.left_out += not_compared
    try:
        write_whole(options.output, page(contents))
    except OSError as error:
        complain(f"can't write {options.output}: {error.strerror}")
        return FAILED
    for path, what in archive.problems:
        complain(f"{path}: {what}")
    for line in chosen_left_out:
        complain(line)
    if archive.problems or failed:
        return NOT_READ
    return FAILED if chosen_left_out else 0


def main() -> int:
    options = parser().parse_args()
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, end)
    try:
        return make_report(options)
    except NoArchive as reason:
        complain(str(reason))
        return NOT_READ
