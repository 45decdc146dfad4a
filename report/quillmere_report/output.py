"""A file that is there whole, or as it was before."""

import contextlib
import os
import stat
import tempfile
from collections.abc import Iterable


def write_whole(path: str, parts: Iterable[bytes]) -> None:
    """Replaces a file in one step, once all of it is on the disk. A new one is for its owner only,
    as the archive is; one that was there keeps its mode. Raises OSError."""
    target = os.path.realpath(path)
    if os.path.isdir(target):
        raise IsADirectoryError(None, "Is a directory")
    folder = os.path.dirname(target)
    descriptor, temporary = tempfile.mkstemp(prefix=".quillmere-report-", dir=folder)
    try:
        with open(descriptor, "wb") as file:
            for part in parts:
                file.write(part)
            file.flush()
            with contextlib.suppress(FileNotFoundError):
                os.fchmod(descriptor, stat.S_IMODE(os.stat(target).st_mode))
            os.fsync(descriptor)
        os.rename(temporary, target)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(temporary)
        raise
    opened = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(opened)
    finally:
        os.close(opened)
