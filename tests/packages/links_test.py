#!/usr/bin/env python3
"""Each relative link in the Markdown files below a folder leads to something that is there, and to a
heading of it where it names one: links_test.py FOLDER"""

import pathlib
import re
import sys

LEFT_OUT = {"build", "__pycache__"}  # as is what begins with a point


def documents(folder):
    """The Markdown files below a folder."""
    for path in sorted(folder.iterdir()):
        if path.name in LEFT_OUT or path.name.startswith(".") or path.is_symlink():
            continue
        if path.is_dir():
            yield from documents(path)
        elif path.suffix == ".md":
            yield path


def prose(document):
    """The text of a document without its code."""
    text = re.sub(r"^ *```.*?^ *```$", "", document.read_text(encoding="utf-8"),
                  flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r"^ {4}.*$", "", text, flags=re.MULTILINE)
    return re.sub(r"`[^`]*`", "x", text)


def anchors(document):
    """The names under which its headings can be linked to."""
    headings = re.findall(r"^#+ (.*)$", prose(document), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-") for heading in headings}


def dead_links(document):
    for link in re.findall(r"\]\(([^)\s]*)\)", prose(document)):
        if re.match(r"\w+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = document.parent / path if path else document
        if not target.exists() or (anchor and anchor not in anchors(target)):
            yield link


def main():
    folder = pathlib.Path(sys.argv[1])
    checked = list(documents(folder))
    dead = [f"{document.relative_to(folder)}: {link}"
            for document in checked for link in dead_links(document)]
    if not checked:
        dead = [f"{folder}: no documents"]
    sys.exit("\n".join(dead) or 0)


if __name__ == "__main__":
    main()
