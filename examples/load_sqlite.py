#!/usr/bin/env python3
"""Loads exported backup sets into an SQLite database: load_sqlite.py DATABASE EXPORTS

EXPORTS holds a directory for each set, named by its creation time, with the documents of its images
and the set list, as export_newest_set.sh makes them. Sets that the database has are skipped, and
each other one comes in whole or not at all. questions.sql asks the database.
"""

import json
import os
import pathlib
import re
import sqlite3
import sys

from stream_image import stream_entries

# Ids and paths are BLOBs, because a TEXT has to be UTF-8.
SCHEMA = """
CREATE TABLE IF NOT EXISTS backup_set (create_time INTEGER PRIMARY KEY, size INTEGER);
CREATE TABLE IF NOT EXISTS image (
    image INTEGER PRIMARY KEY,
    create_time INTEGER NOT NULL REFERENCES backup_set,
    backup_id BLOB NOT NULL);
CREATE TABLE IF NOT EXISTS file (
    image INTEGER NOT NULL REFERENCES image,
    path BLOB NOT NULL,
    length INTEGER NOT NULL);
"""
SET_LIST = "backup_sets.json"


def listed_size(directory):
    """The size of the set in the set list; none where sets of the same second differ in size."""
    sets = json.loads((directory / SET_LIST).read_bytes())["backup_sets"]
    sizes = {one["BackupSize"] for one in sets if one["BackupCreateTime"] == directory.name}
    return sizes.pop() if len(sizes) == 1 else None


def load_set(database, directory):
    create_time = int(directory.name)
    database.execute("INSERT INTO backup_set VALUES (?, ?)", (create_time, listed_size(directory)))
    for document in sorted(directory.glob("*.json")):
        if document.name != SET_LIST:
            load_image(database, create_time, document)


def load_image(database, create_time, document):
    backup_id = os.fsencode(document.stem)
    image = database.execute("INSERT INTO image (create_time, backup_id) VALUES (?, ?)",
                             (create_time, backup_id)).lastrowid
    with document.open("rb") as opened:
        rows = ((image, entry["path"].encode("utf-8", "surrogateescape"), entry["length"])
                for entry in stream_entries(opened))
        try:
            database.executemany("INSERT INTO file VALUES (?, ?, ?)", rows)
        except ValueError as error:
            raise ValueError(f"{document}: {error}") from error


def main(database_path, exports):
    directories = [one for one in exports.iterdir() if re.fullmatch("-?[0-9]+", one.name)]
    if not directories:
        raise ValueError(f"{exports}: there is no backup set")
    database = sqlite3.connect(database_path)
    database.executescript(SCHEMA)
    known = {str(time) for (time,) in database.execute("SELECT create_time FROM backup_set")}
    for directory in sorted(directories, key=lambda one: int(one.name)):
        if directory.name not in known:
            with database:  # a transaction
                load_set(database, directory)
            print(f"loaded {directory}")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        print("usage: load_sqlite.py DATABASE EXPORTS", file=sys.stderr)
        sys.exit(2)
    try:
        main(sys.argv[1], pathlib.Path(sys.argv[2]))
    except (OSError, ValueError, sqlite3.Error) as error:
        sys.exit(f"load_sqlite.py: {error}")
