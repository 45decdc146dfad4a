#!/usr/bin/env python3
"""Brings an SQLite database up to date with an archive: load.py DATABASE ARCHIVE

It makes the database if need be. Each image is loaded once, in a transaction of its own. What the
archive does not hold any more goes, and the backup sets become those that it has now.
"""

import contextlib
import itertools
import os
import pathlib
import sqlite3
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "common"), str(HERE.parent / "python")]
from quillmere_archive import Archive  # noqa: E402
from tsv import LoadError, all_numbers, lines_of, unescaped, whole_lines  # noqa: E402

LONGEST_WAIT = 86400  # seconds, for another load into the same database
CACHE_SIZE = 256 * 1024  # KiB; the index on paths is written to all over


@contextlib.contextmanager
def transaction(database):
    database.execute("BEGIN IMMEDIATE")
    try:
        yield
    except BaseException:
        database.execute("ROLLBACK")
        raise
    database.execute("COMMIT")


def id_of(database, table, name):
    """The number of a name, which gets one if it is new."""
    database.execute(f"INSERT OR IGNORE INTO {table} (name) VALUES (?)", (name,))
    return database.execute(f"SELECT {table} FROM {table} WHERE name = ?", (name,)).fetchone()[0]


def ids_of_series(database, server, one):
    """Of an image or a set."""
    return (id_of(database, "server", server), id_of(database, "client", one.client),
            id_of(database, "policy", one.policy), id_of(database, "schedule", one.schedule))


def loaded_images(database, server):
    """Number and checksum of each image that the database has of the server, by backup id."""
    return {backup_id: (image, sha256) for backup_id, image, sha256 in database.execute(
        "SELECT backup_id, image, sha256 FROM image JOIN server USING (server) WHERE name = ?",
        (server,))}


def rows(image, number, columns, stream):
    """The entries for the table of files, piece by piece; the first of their columns is the length."""
    places = itertools.count(1)
    for lines in whole_lines(stream):
        cells = lines.replace(b"\n", b"\t").split(b"\t")
        lengths, *others = (cells[column::columns] for column in range(columns))
        if not all_numbers(lengths):
            raise LoadError(f"{image.document.parent}: the length of an entry is no number")
        if b"\\" in lines:
            others = [map(unescaped, values) for values in others]
        yield zip(itertools.repeat(number), places, map(int, lengths), *others)


def load_image(database, server, image):
    columns = [name for (name,) in database.execute("SELECT name FROM pragma_table_info('file')")][2:]
    insert = f"INSERT INTO file VALUES (?, ?{', ?' * len(columns)})"
    with transaction(database):
        remove_image(database, server, image.backup_id)
        number = database.execute(
            "INSERT INTO image VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, 0)",
            (*ids_of_series(database, server, image), image.backup_id, image.backup_time,
             image.sha256, image.entry_count)).lastrowid
        with lines_of(image.document.parent, columns) as stream:
            for piece in rows(image, number, len(columns), stream):
                database.executemany(insert, piece)
        database.execute("UPDATE image SET bytes = (SELECT ifnull(sum(length), 0) FROM file "
                         "WHERE file.image = image.image) WHERE image = ?", (number,))


def remove_image(database, server, backup_id):
    """With the sets that it is a member of; those that still are come back with the next sets."""
    images = database.execute(
        "SELECT image FROM image JOIN server USING (server) WHERE name = ? AND backup_id = ?",
        (server, backup_id)).fetchall()
    for image in images:  # one or none
        sets = database.execute("SELECT backup_set FROM member WHERE image = ?", image).fetchall()
        database.executemany("DELETE FROM member WHERE backup_set = ?", sets)
        database.executemany("DELETE FROM backup_set WHERE backup_set = ?", sets)
        database.execute("DELETE FROM file WHERE image = ?", image)
        database.execute("DELETE FROM image WHERE image = ?", image)


def replace_sets(database, server, sets):
    """Returns how many there are now. A set whose images are not all there is none."""
    with transaction(database):
        number = id_of(database, "server", server)
        database.execute("DELETE FROM member WHERE backup_set IN "
                         "(SELECT backup_set FROM backup_set WHERE server = ?)", (number,))
        database.execute("DELETE FROM backup_set WHERE server = ?", (number,))
        images = loaded_images(database, server)
        whole = [one for one in sets if all(member in images for member in one.image_ids)]
        for one in whole:
            backup_set = database.execute(
                "INSERT INTO backup_set VALUES (NULL, ?, ?, ?, ?, ?, ?, ?)",
                (*ids_of_series(database, server, one), one.backup_id, one.create_time,
                 str(one.size_bytes))).lastrowid
            database.executemany("INSERT OR IGNORE INTO member VALUES (?, ?)",
                                 [(backup_set, images[member][0]) for member in one.image_ids])
    return len(whole)


def load(database, archive):
    """Returns the numbers of images that were loaded, removed, and could not be loaded, and of sets."""
    server = archive.server
    sets = list(archive.sets())  # before the images: those of a set are there before it is
    images = sorted(archive.images(), key=lambda image: -image.backup_time)
    known = loaded_images(database, server)
    loaded = removed = failed = 0
    for image in images:
        if known.get(image.backup_id, (None, None))[1] == image.sha256:
            continue
        try:
            load_image(database, server, image)
            loaded += 1
        except LoadError as error:
            if image.document.parent.exists():  # it was not pruned just now
                print(error, file=sys.stderr)
                failed += 1
    number_of_sets = replace_sets(database, server, sets)
    for backup_id in known.keys() - {image.backup_id for image in images}:
        with transaction(database):
            remove_image(database, server, backup_id)
        removed += 1
    return loaded, removed, failed, number_of_sets


def main(database_path, archive):
    os.umask(0o077)  # like the archive, it names the files of all clients
    with contextlib.closing(sqlite3.connect(database_path, timeout=LONGEST_WAIT,
                                            isolation_level=None)) as database:
        database.execute(f"PRAGMA cache_size = -{CACHE_SIZE}")
        database.executescript((HERE / "schema.sql").read_text(encoding="ascii"))
        loaded, removed, failed, sets = load(database, Archive(archive))
    print(f"{loaded} images loaded, {removed} removed, {failed} failed; {sets} sets")
    return 1 if failed else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        print("usage: load.py DATABASE ARCHIVE", file=sys.stderr)
        sys.exit(2)
    try:
        sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2]).absolute()))
    except (LoadError, OSError, ValueError, KeyError, sqlite3.Error) as error:
        sys.exit(f"load.py: {error}")
