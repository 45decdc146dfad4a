"""What changed most between the two newest full backups of a client and policy."""

import dataclasses
from collections.abc import Iterable

from .archive import Archive, BackupSet, Unreadable
from .entries import lengths_by_path

MOST = 15  # of each kind
NEARLY_ALL = 0.9


@dataclasses.dataclass
class Change:
    """A path that grew, shrank, came (from nothing) or went (to nothing). A folder ends in "/"."""

    path: bytes
    before: int | None
    after: int | None

    @property
    def difference(self) -> int:
        return (self.after or 0) - (self.before or 0)


def pairs_of_fulls(archive: Archive) -> list[tuple[BackupSet, BackupSet]]:
    """The second newest and the newest set of each series whose schedule has "full" in its name, or
    which is the only one of its client and policy."""
    series: dict[tuple[str, str], dict[str, list[BackupSet]]] = {}
    for one in archive.sets:
        of_policy = series.setdefault((one.client, one.policy), {})
        of_policy.setdefault(one.schedule, []).append(one)
    return [(sets[-2], sets[-1]) for schedules in series.values()
            for schedule, sets in schedules.items()
            if len(sets) > 1 and (len(schedules) == 1 or "full" in schedule.lower())]


def folder_sums(lengths: dict[bytes, int]) -> dict[bytes, int]:
    """The bytes below each folder."""
    own: dict[bytes, int] = {}
    for path, length in lengths.items():
        folder = path[:path.rfind(b"/") + 1]
        own[folder] = own.get(folder, 0) + length
    sums = dict(own)
    for folder, length in own.items():
        while folder:
            folder = folder[:folder.rfind(b"/", 0, -1) + 1]
            sums[folder] = sums.get(folder, 0) + length
    return sums


def largest(changes: Iterable[Change]) -> list[Change]:
    changed = [change for change in changes if change.before != change.after]
    return sorted(changed, key=lambda change: (-abs(change.difference), change.path))[:MOST]


def changed_folders(before: dict[bytes, int], after: dict[bytes, int]) -> list[Change]:
    """The folders that changed most. One whose change is nearly all that of one folder in it says
    nothing that this one does not."""
    old, new = folder_sums(before), folder_sums(after)
    changes = {path: Change(path, old.get(path), new.get(path)) for path in old.keys() | new.keys()}
    told_below = set()
    for path, change in changes.items():
        if path:
            parent = path[:path.rfind(b"/", 0, -1) + 1]
            of_parent = changes[parent].difference
            if abs(change.difference) >= NEARLY_ALL * abs(of_parent) and \
                    (change.difference < 0) == (of_parent < 0):
                told_below.add(parent)
    return largest(change for path, change in changes.items()
                   if path and path not in told_below and change.difference != 0)


def lengths_of(one: BackupSet) -> dict[bytes, int]:
    lengths: dict[bytes, int] = {}
    for image in one.images:
        lengths.update(lengths_by_path(image))
    return lengths


@dataclasses.dataclass
class Comparison:
    """Two full backups, and what changed between them."""

    before: BackupSet
    after: BackupSet
    folders: list[Change]
    files: list[Change]


def compare(pair: tuple[BackupSet, BackupSet]) -> Comparison:
    before, after = map(lengths_of, pair)
    files = (Change(path, before.get(path), after.get(path)) for path in before.keys() | after.keys())
    return Comparison(*pair, changed_folders(before, after), largest(files))


def entries_of(pair: tuple[BackupSet, BackupSet]) -> int:
    return sum(image.entries for one in pair for image in one.images)


def comparisons(archive: Archive, most_entries: int) -> tuple[list[Comparison], list[str]]:
    """Of each pair of fulls, as far as they have no more entries than that; and what was not read."""
    compared, left_out = [], []
    for pair in pairs_of_fulls(archive):
        name = " \u00b7 ".join(pair[0].series)
        if entries_of(pair) > 2 * most_entries:
            left_out.append(f"{name}: {entries_of(pair):,} entries of two full backups, which are"
                            " not compared")
            continue
        try:
            compared.append(compare(pair))
        except Unreadable as reason:
            left_out.append(f"{name}: {reason}")
    return compared, left_out
