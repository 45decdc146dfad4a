#!/usr/bin/env python3
"""Stands in for systemctl and journalctl where no systemd is at work: it knows the units that there
are, and starts the service as its unit and its default file say.

    systemctl.py UNITS DIRECTORY VERB [OPTION...] [UNIT...]
    systemctl.py UNITS DIRECTORY --unit UNIT [OPTION...]
"""

import pathlib
import re
import subprocess
import sys

SERVICE = "quillmere-archive.service"
OTHERS = {"prometheus.service"}
VERBS = {"daemon-reload", "enable", "list-timers", "reload", "start", "status", "stop"}


def environment(units, directory):
    """What the service finds, with the archive below the directory."""
    unit = (units / SERVICE).read_text(encoding="ascii")
    pairs = re.findall(r"^Environment=(.*)$", unit, re.MULTILINE)[0].split(" ")
    values = dict(pair.split("=") for pair in pairs)
    values["ARCHIVE"] = f"{directory}{values['ARCHIVE']}"
    defaults = (directory / "etc/default/quillmere-archive").read_text(encoding="utf-8")
    return values | dict(re.findall(r"^(\w+)=(.*)$", defaults, re.MULTILINE))


def start(units, directory, journal):
    values = environment(units, directory)
    unit = (units / SERVICE).read_text(encoding="ascii")
    command = []
    for word in re.findall(r"^ExecStart=(.*)$", unit, re.MULTILINE)[0].split(" "):
        named = re.fullmatch(r"\$\{?(\w+)\}?", word)
        if named is None:
            command.append(word.removeprefix("/usr/bin/"))
        else:  # without braces, it is several words
            value = values[named[1]]
            command += [value] if word.startswith("${") else value.split()
    with journal.open("ab") as output:
        return subprocess.run(command, stdout=output, stderr=output, check=False).returncode


def main(units, directory, *arguments):
    units, directory = pathlib.Path(units), pathlib.Path(directory)
    journal = directory / "journal"
    names = [word for word in arguments if "." in word]
    unknown = [name for name in names if not (units / name).exists() and name not in OTHERS]
    if unknown or not arguments or arguments[0] not in VERBS | {"--unit"}:
        sys.exit(f"not known: {unknown or arguments}")
    if arguments[0] == "--unit":
        print(journal.read_text(encoding="utf-8", errors="replace"), end="")
    elif arguments[0] == "start" and SERVICE in names:
        return start(units, directory, journal)
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
