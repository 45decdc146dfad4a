"""streaming.py METADATA <ENTRIES >DOCUMENT: each entry is written as soon as it is read."""

import json
import sys

from entries import ENCODING, KEYS, entry_fields, read_metadata

# Without the tab, which no field holds.
ESCAPES = {code: f"\\u{code:04X}" for code in range(0x20) if code != ord("\t")}
ESCAPES |= {ord(char): "\\" + letter for char, letter in zip('"\\/\b\f\n\r', '"\\/bfnr')}
ENTRY = "        {\n" + ",\n".join(f'            "{key}": "%s"' for key in KEYS) + "\n        }"

sys.stdin.reconfigure(**ENCODING)
sys.stdout.reconfigure(**ENCODING)
metadata = json.dumps(read_metadata(sys.argv[1]), indent=4, ensure_ascii=False)
sys.stdout.write(metadata.replace("/", "\\/").removesuffix("\n}") + ',\n    "fentries": ')
between = "[\n"
for entry in entry_fields(sys.stdin):
    sys.stdout.write(between)
    sys.stdout.write(ENTRY % tuple("\t".join(entry).translate(ESCAPES).split("\t")))
    between = ",\n"
sys.stdout.write('""\n}\n' if between == "[\n" else "\n    ]\n}\n")
