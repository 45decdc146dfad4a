#!/usr/bin/env python3
"""Asks all shards one of questions.sql: ask.py QUESTION [ARGUMENT...] [OPTION_OF_CLICKHOUSE_CLIENT...]

Prints the names of the columns and the rows, with tabs between, and the escapes of TabSeparated.
"""

import pathlib
import sys

from shard import Shard, ShardError
from questions import asked

HERE = pathlib.Path(__file__).resolve().parent


def main(arguments):
    sql, values, options = asked(HERE / "questions.sql", arguments)
    answer = Shard(options).run(sql.rstrip(";") + "\nFORMAT TabSeparatedWithNames", **values)
    sys.stdout.buffer.write(answer)


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except (ShardError, OSError) as error:
        sys.exit(f"ask.py: {error}")
