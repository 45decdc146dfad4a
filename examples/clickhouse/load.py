#!/usr/bin/env python3
"""Brings a shard up to date with an archive: load.py ARCHIVE [OPTION_OF_CLICKHOUSE_CLIENT...]

Each image is loaded once. Its row, written last, makes its entries count. What the archive does not
hold any more counts no longer, and the backup sets become those that it has now.
"""

import contextlib
import datetime
import fcntl
import pathlib
import secrets
import sys
import time

from shard import Shard, ShardError
from quillmere_archive import Archive
from tsv import LoadError, all_numbers, lines_of, unescaped, whole_lines

COLUMNS = ["length", "path"]  # of the table of files, from `entries`; the length comes first
BATCH = 1_000_000  # entries; images that have no more together share an INSERT
# Seconds after which a load gives up. clear.py takes what was begun a day ago for cut.
LONGEST_LOAD = 43200


class Load:
    """Of an archive, into a shard."""

    def __init__(self, archive, shard):
        self.archive, self.shard = archive, shard
        self.server = archive.server
        self.failed = 0

    def run(self):
        """Returns the numbers of images that were loaded, and removed, and of sets."""
        self.refuse_other_shards()
        sets = list(self.archive.sets())  # before the images: those of a set are there before it is
        images = sorted(self.archive.images(), key=lambda image: -image.backup_time)
        known = self.loaded()
        missing = [image for image in images if (image.backup_id, image.sha256) not in known]
        loaded = sum(self.load_batch(batch) for batch in batches(missing))
        loads, removed = self.keep_only(images)
        return loaded, removed, self.replace_sets(sets, loads)

    def refuse_other_shards(self):
        """A server is on one shard as a whole, or else its sets are not found by its files."""
        elsewhere = self.shard.run(
            "SELECT (SELECT count() FROM quillmere.image WHERE server = {server:String}) - "
            "(SELECT count() FROM quillmere.image_here WHERE server = {server:String})",
            server=self.server)
        if elsewhere != b"0\n":
            raise LoadError(f"{self.archive.path}: its server is on another shard")

    def loaded(self):
        """Backup id and checksum of each image that counts."""
        rows = self.shard.rows("SELECT backup_id, sha256 FROM quillmere.image_here "
                               "WHERE server = {server:String}", server=self.server)
        return {(backup_id, sha256.decode()) for backup_id, sha256 in rows}

    def load_batch(self, images):
        """Returns how many of the images were loaded."""
        begun = int(time.time())
        loads = [secrets.randbits(63) for _ in images]
        self.shard.insert("quillmere.begun_here", "load, begun", [(load, begun) for load in loads])
        rows = []
        with self.shard.inserting("quillmere.file_here",
                                  "load, day, " + ", ".join(COLUMNS)) as write:
            for load, image in zip(loads, images):
                try:
                    length = copy_entries(image, load, write)
                except LoadError as error:
                    if image.document.parent.exists():  # it was not pruned just now
                        print(error, file=sys.stderr)
                        self.failed += 1
                else:
                    rows.append((load, self.server, image.client, image.policy, image.schedule,
                                 image.backup_id, image.backup_time, image.sha256.encode(),
                                 image.entry_count, length))
        if time.time() - begun > LONGEST_LOAD:
            raise LoadError(f"{self.archive.path}: a load took longer than {LONGEST_LOAD} seconds")
        if rows:
            self.shard.insert("quillmere.image_here",
                              "load, server, client, policy, schedule, backup_id, backup_time, "
                              "sha256, entries, bytes", rows)
        return len(rows)

    def keep_only(self, images):
        """Of the images that count, only these, each with this document and once. Returns their loads
        by their backup ids, and how many others there were."""
        wanted = {image.backup_id: image.sha256.encode() for image in images}
        loads, staying, gone, rows = {}, [], set(), self.shard.run(
            "SELECT backup_id, sha256, * FROM quillmere.image_here WHERE server = {server:String}",
            server=self.server).splitlines(keepends=True)
        for row in rows:
            backup_id, sha256, line = row.split(b"\t", 2)
            backup_id = unescaped(backup_id)
            if wanted.get(backup_id) == sha256 and backup_id not in loads:
                loads[backup_id] = int(line.split(b"\t")[0])
                staying.append(line)
            elif backup_id not in wanted:
                gone.add(backup_id)
        if len(staying) < len(rows):
            with self.replacing("image"):
                if staying:
                    self.shard.run("INSERT INTO quillmere.image_next FORMAT TabSeparated",
                                   b"".join(staying))
        return loads, len(gone)

    def replace_sets(self, sets, loads):
        """Returns how many there are now. A set whose images are not all there is none."""
        rows = [(self.server, one.client, one.policy, one.schedule, one.backup_id, one.create_time,
                 one.size_bytes, one.image_ids, [loads[member] for member in one.image_ids])
                for one in sets if all(member in loads for member in one.image_ids)]
        with self.replacing("backup_set"):
            if rows:
                self.shard.insert("quillmere.backup_set_next",
                                  "server, client, policy, schedule, backup_id, create_time, "
                                  "size_bytes, images, loads", rows)
        return len(rows)

    @contextlib.contextmanager
    def replacing(self, table):
        """What is put into the table's double meanwhile takes the place of the server's rows."""
        self.shard.run(f"ALTER TABLE quillmere.{table}_next DROP PARTITION {{server:String}}",
                       server=self.server)  # what the last run has left there
        yield
        self.shard.run(f"ALTER TABLE quillmere.{table}_here REPLACE PARTITION {{server:String}} "
                       f"FROM quillmere.{table}_next", server=self.server)


def batches(images):
    batch, entries = [], 0
    for image in images:
        if batch and entries + image.entry_count > BATCH:
            yield batch
            batch, entries = [], 0
        batch.append(image)
        entries += image.entry_count
    if batch:
        yield batch


def copy_entries(image, load, write):
    """Writes the image's entries as rows of the table of files; returns the sum of their lengths."""
    prefix = b"%d\t%s\t" % (load, day_of(image.backup_time))
    total = 0
    with lines_of(image.document.parent, COLUMNS) as stream:
        for lines in whole_lines(stream):
            lengths = lines.replace(b"\n", b"\t").split(b"\t")[::len(COLUMNS)]
            # The database takes a number that is too large for another one.
            if not all_numbers(lengths):
                raise LoadError(f"{image.document.parent}: the length of an entry is no number")
            total += sum(map(int, lengths))
            write(prefix + lines.replace(b"\n", b"\n" + prefix) + b"\n")
    return total


def day_of(seconds):
    """As the table of files has it; its months are the table's partitions."""
    seconds = min(max(seconds, 0), 2**32 - 1)
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).date().isoformat().encode()


def main(path, options):
    with (path / "archive.json").open("rb") as held:
        # Of two loads of an archive at once, the second waits, and finds nothing left to do.
        fcntl.flock(held, fcntl.LOCK_EX)
        # A shard that is down keeps nothing from being loaded into another one.
        load = Load(Archive(path), Shard([*options, "--skip_unavailable_shards=1"]))
        loaded, removed, sets = load.run()
    print(f"{loaded} images loaded, {removed} removed, {load.failed} failed; {sets} sets")
    return 1 if load.failed else 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        print("usage: load.py ARCHIVE [OPTION_OF_CLICKHOUSE_CLIENT...]", file=sys.stderr)
        sys.exit(2)
    try:
        sys.exit(main(pathlib.Path(sys.argv[1]).absolute(), sys.argv[2:]))
    except (LoadError, ShardError, OSError, ValueError, KeyError) as error:
        sys.exit(f"load.py: {error}")
