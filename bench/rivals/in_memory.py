"""in_memory.py METADATA <ENTRIES >DOCUMENT: the whole document as one value, written with json."""

import json
import sys

from entries import ENCODING, KEYS, entry_fields, read_metadata


class SlashEscaper:
    """A file that escapes "/", which the json module does not."""

    def __init__(self, file):
        self._file = file

    def write(self, text):
        self._file.write(text.replace("/", "\\/"))


sys.stdin.reconfigure(**ENCODING)
sys.stdout.reconfigure(**ENCODING)
document = read_metadata(sys.argv[1])
document["fentries"] = [dict(zip(KEYS, fields)) for fields in entry_fields(sys.stdin)] or ""
json.dump(document, SlashEscaper(sys.stdout), indent=4, ensure_ascii=False)
sys.stdout.write("\n")
