#!/usr/bin/env python3
"""Removes the file entries of loads that do not count: clear.py [OPTION_OF_CLICKHOUSE_CLIENT...]

They are of loads that were cut and of images that the archive has pruned. To be run on each shard now
and then; what was begun within a day is left alone, as it may be at work.
"""

import sys
import time

from shard import Shard, ShardError

AGE = 86400  # seconds
MANY = 10_000  # loads, whose numbers are in the text of a query
POLL = 0.2  # seconds


def delete(shard, table, loads):
    """Deletes their rows, and waits until that is done."""
    shard.run(f"ALTER TABLE quillmere.{table} DELETE WHERE load IN ({', '.join(loads)})")
    waiting = ("SELECT count() FROM system.mutations "
               "WHERE database = 'quillmere' AND table = {table:String} AND NOT is_done")
    while shard.run(waiting, table=table.encode()) != b"0\n":
        time.sleep(POLL)


def main(options):
    shard = Shard(options)
    loads = [load.decode() for (load,) in shard.rows(
        f"SELECT DISTINCT load FROM quillmere.begun_here WHERE begun < now() - {AGE} "
        "AND load NOT IN (SELECT load FROM quillmere.image_here)")]
    for first in range(0, len(loads), MANY):
        some = loads[first:first + MANY]
        delete(shard, "file_here", some)
        delete(shard, "begun_here", some)  # not before their entries are gone
    print(f"{len(loads)} loads cleared")


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except (ShardError, OSError) as error:
        sys.exit(f"clear.py: {error}")
