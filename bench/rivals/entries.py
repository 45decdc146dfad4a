"""What both Python rivals share: the metadata as strings, and the entries cut from their lines."""

import json

KEYS = ("filenum", "length", "plength", "dlength", "blknum", "in_image", "raw_partition_sz",
        "gigabytes", "device_num", "path", "data")

# Bytes that are no UTF-8 pass through text unchanged.
ENCODING = {"encoding": "utf-8", "errors": "surrogateescape", "newline": "\n"}


def as_strings(value):
    """The value as the document holds it: strings only, and an empty one for what holds nothing."""
    if isinstance(value, dict):
        return {key: as_strings(item) for key, item in value.items()} or ""
    if isinstance(value, list):
        return [as_strings(item) for item in value] or ""
    if isinstance(value, str):
        return value
    return {True: "true", False: "false", None: "null"}[value]


def read_metadata(path):
    with open(path, **ENCODING) as file:
        return as_strings(json.load(file, parse_int=str, parse_float=str))


def entry_fields(lines):
    """The eleven fields of each entry."""
    header_seen = False
    for line in lines:
        if line.startswith("0"):
            continue
        line = line.rstrip("\n")
        if not header_seen and line.startswith("num\t"):
            header_seen = True
            continue
        if not line:
            continue
        fields = line.split("\t")
        if "" in fields:
            fields = [field for field in fields if field]
        if len(fields) != len(KEYS):
            raise ValueError("token size mismatch")
        yield fields
