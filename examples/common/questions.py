"""The questions in a file of SQL: each begins with a line `--- NAME ARGUMENT...: what it answers`.

In its text, an argument PATH goes where the database has its parameter `path`.
"""

import calendar
import datetime
import os
import pathlib
import re
import sys
from typing import NamedTuple

TIMES = {"before", "from", "to"}
NUMBERS = {"count", "depth", "length"}


class Question(NamedTuple):
    usage: str  # its first line
    arguments: list[str]  # names of parameters
    sql: str


def questions_in(path: pathlib.Path) -> dict[str, Question]:
    """The questions by their names."""
    found = {}
    for part in re.split(r"^--- ", path.read_text(encoding="ascii"), flags=re.MULTILINE)[1:]:
        usage, _, sql = part.partition("\n")
        name, *arguments = usage.partition(":")[0].split(" ")
        found[name] = Question(usage, [argument.lower() for argument in arguments], sql.strip())
    return found


def asked(path: pathlib.Path,
          arguments: list[str]) -> tuple[str, dict[str, bytes | int], list[str]]:
    """The SQL that is asked for by the arguments of a command line, the values of its parameters,
    and the arguments that are left over. Ends the program when the question is not complete."""
    found = questions_in(path)
    question = found.get(arguments[0]) if arguments else None
    if question is None or len(arguments) <= len(question.arguments):
        print("the questions:", *(f"  {one.usage}" for one in found.values()), sep="\n",
              file=sys.stderr)
        sys.exit(2)
    texts = arguments[1:1 + len(question.arguments)]
    try:
        values = {name: _value(name, text) for name, text in zip(question.arguments, texts)}
    except ValueError as error:
        print(error, file=sys.stderr)
        sys.exit(2)
    return question.sql, values, arguments[1 + len(texts):]


def _value(name: str, text: str) -> bytes | int:
    if name in NUMBERS and not re.fullmatch("[0-9]{1,18}", text):
        raise ValueError(f"{name.upper()} is no number: {text}")
    if name in NUMBERS:
        return int(text)
    if name not in TIMES:
        return os.fsencode(text)
    try:
        return _seconds(text)
    except ValueError as error:
        raise ValueError(f"{name.upper()} is no time: {text}") from error


def _seconds(text: str) -> int:
    """Of a number of seconds since 1970, a date or a time in RFC 3339; in UTC without a zone."""
    if re.fullmatch("-?[0-9]{1,18}", text):
        return int(text)
    return calendar.timegm(datetime.datetime.fromisoformat(text).utctimetuple())
