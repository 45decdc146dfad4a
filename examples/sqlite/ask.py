#!/usr/bin/env python3
"""Asks a database that load.py made one of questions.sql: ask.py DATABASE QUESTION [ARGUMENT...]

Prints the names of the columns and the rows, with tabs between, and the escapes of `entries`.
"""

import contextlib
import pathlib
import sqlite3
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "common"))
from questions import asked  # noqa: E402
from tsv import escaped  # noqa: E402


def folder(path, depth):
    """The folder that a path is in, cut to so many names; what precedes the first slash is one."""
    return b"/".join(path.split(b"/")[:-1][:depth + 1])


def printed(value):
    return escaped(value) if isinstance(value, bytes) else str(value).encode()


def main(database_path, arguments):
    sql, values, rest = asked(HERE / "questions.sql", arguments)
    if rest:
        print(f"ask.py: too many arguments: {rest[0]}", file=sys.stderr)
        sys.exit(2)
    url = pathlib.Path(database_path).absolute().as_uri() + "?mode=ro"
    with contextlib.closing(sqlite3.connect(url, uri=True)) as database:
        database.create_function("folder", 2, folder, deterministic=True)
        answer = database.execute(sql, values)
        sys.stdout.buffer.write("\t".join(column[0] for column in answer.description).encode()
                                + b"\n")
        for row in answer:
            sys.stdout.buffer.write(b"\t".join(map(printed, row)) + b"\n")


if __name__ == "__main__":
    try:
        main(sys.argv[1] if len(sys.argv) > 1 else "", sys.argv[2:])
    except (OSError, sqlite3.Error) as error:
        sys.exit(f"ask.py: {error}")
