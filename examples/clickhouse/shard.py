"""A shard, reached through clickhouse-client. To be imported before what is in ../common."""

import contextlib
import pathlib
import re
import subprocess
import sys

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(EXAMPLES / "common"), str(EXAMPLES / "python")]
from tsv import unescaped  # noqa: E402


class ShardError(Exception):
    """What clickhouse-client complained about."""


def literal(value):
    """A value in the text of a query."""
    if isinstance(value, bytes):
        return b"'" + value.replace(b"\\", b"\\\\").replace(b"'", b"\\'") + b"'"
    if isinstance(value, (list, tuple)):
        return b"[" + b", ".join(map(literal, value)) + b"]"
    return str(value).encode()


def filled(sql, values):
    """The text of a query in which values stand where it has parameters, such as {path:String}."""
    return re.sub(rb"\{(\w+):\w+\}", lambda match: literal(values[match[1].decode()]), sql.encode())


class Shard:
    def __init__(self, options):
        self.command = ["clickhouse-client", *options]  # --host, --port, --user, ...

    def run(self, sql, data=None, **values):
        """Runs a query, into which `data` goes; returns what it prints."""
        result = subprocess.run([*self.command, "--query", filled(sql, values)], input=data,
                                stdin=subprocess.DEVNULL if data is None else None,
                                capture_output=True, check=False)
        if result.returncode != 0:
            raise ShardError(message_in(result.stderr))
        return result.stdout

    def rows(self, sql, **values):
        """The rows that a query answers, as lists of bytes."""
        return [[unescaped(cell) for cell in line.split(b"\t")]
                for line in self.run(sql, **values).splitlines()]

    def insert(self, table, columns, rows):
        """Adds rows: all or none of them, if they are of one partition."""
        self.run(f"INSERT INTO {table} ({columns}) VALUES",
                 b",".join(b"(" + b", ".join(map(literal, row)) + b")" for row in rows))

    @contextlib.contextmanager
    def inserting(self, table, columns):
        """A function that adds lines of rows. They are in the table when the context has ended."""
        processes = []  # one or, as clickhouse-client takes it for an error to get no rows, none

        def write(lines):
            if not processes:
                processes.append(subprocess.Popen(
                    [*self.command, "--query", f"INSERT INTO {table} ({columns}) FORMAT TabSeparated"],
                    stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE))
            try:
                processes[0].stdin.write(lines)
            except BrokenPipeError:
                self.end(processes[0])
                raise

        yield write
        for process in processes:
            self.end(process)

    @staticmethod
    def end(process):
        with contextlib.suppress(BrokenPipeError):
            process.stdin.close()
        complaint = process.stderr.read()
        if process.wait() != 0:
            raise ShardError(message_in(complaint))


def message_in(complaint):
    """What clickhouse-client complained about, without its stack traces."""
    lines = complaint.decode("utf-8", "backslashreplace").splitlines()
    return next((line for line in lines if line.startswith("Code: ")),
                lines[0] if lines else "clickhouse-client failed")
