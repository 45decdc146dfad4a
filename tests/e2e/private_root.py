#!/usr/bin/env python3
"""Runs a command where the directory ROOT is there and empty, without making it on this system.

    private_root.py ROOT COMMAND [ARGUMENT...]

The command runs in the private mount namespace of the golden cases. Ends with the status of the
command, or with 77 where the system allows no such namespace.
"""

import pathlib
import subprocess
import sys
import tempfile
import types

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "golden"))
from run_case import in_private_namespace


def main(root, *command):
    with tempfile.TemporaryDirectory() as run:
        place = types.SimpleNamespace(run=pathlib.Path(run), root=root)
        content = place.run / "root"
        content.mkdir()
        inside = in_private_namespace(place, content, list(command))
        return subprocess.run(inside, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
