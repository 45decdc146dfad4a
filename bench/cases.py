"""What is measured against what, on which data, and how good it has to be."""

import functools
from dataclasses import dataclass
from typing import Callable

MIB = 1024 * 1024


@dataclass(frozen=True)
class Scale:
    """How large the cases are and how often they run."""
    entries: int
    rows: int
    set_images: int
    rival_entries: int
    by_copy_entries: tuple  # the first that fits into memory
    runs: int
    rival_runs: int
    gain_runs: int
    huge: bool
    archived: int  # images
    slow_images: int
    searched: tuple  # images and entries of each: some large ones, many small ones


QUICK = Scale(200_000, 200_000, 200, 100_000, (50_000,), runs=3, rival_runs=1, gain_runs=5,
              huge=False, archived=2_000, slow_images=40,
              searched=((4, 100_000), (100, 2_000)))
FULL = Scale(1_000_000, 1_000_000, 1_000, 1_000_000, (1_000_000, 500_000, 250_000, 50_000), runs=5,
             rival_runs=5, gain_runs=9, huge=True, archived=20_000, slow_images=400,
             searched=((20, 1_000_000), (2_000, 20_000)))
HUGE_ENTRIES = 10_000_000
MOST_ENTRIES = 50_000_000
HUGE_DISK = 12 << 30  # bytes: entries and document, and some room
BY_COPY_BYTES = 20_000  # of memory, for each entry


@dataclass(frozen=True)
class Data:
    """A catalogue, kept between runs. `reads` says which of its files the subject gets to see.
    `product`: "" for the stand-in's commands; "paced", with a rec_unfold that takes a microsecond
    for each entry."""
    name: str
    size: int
    options: str
    reads: str
    product: str = ""
    init: str = ""


def image(entries, product=""):
    return Data(f"image-{entries}{product and '-' + product}", entries,
                f"--images 1 --clients 1 --entries {entries}", "images/**/*", product)


def listing(rows, parents=True):
    options = f"--listing-only --clients 6 --policies 4 --schedules 4 --images {rows}"
    return Data(f"{'listing' if parents else 'lone'}-{rows}", rows,
                options if parents else options + " --no-parents", "listing")


def backup_set(images):
    return Data(f"set-{images}", images, f"--set {images} --entries 10", "**/*")


def small_images(images, name="small"):
    return Data(f"{name}-{images}", images,
                f"--clients 6 --policies 3 --images {images} --no-parents --entries 5", "**/*")


def searched(images, entries, product="", init=""):
    return Data(f"searched-{images}-{entries}{init}", images * entries,
                f"--clients 6 --policies 3 --images {images} --no-parents --entries {entries}",
                "**/*", product, init)


@dataclass(frozen=True)
class Command:
    name: str
    shell: str
    data: Data


@dataclass(frozen=True)
class Target:
    """A bound on "wall" or "memory": of the ratio, or of the subject's own figure where `bound` is
    a function of the bytes in and the size."""
    figure: str
    bound: float | Callable
    at_least: bool = False
    text: str = ""

    def describe(self):
        return self.text or f"{self.figure} {'≥' if self.at_least else '≤'} {self.bound:g} x"

    def is_met(self, row):
        if callable(self.bound):
            return row[self.figure] <= self.bound(row["bytes_in"], row["size"])
        ratio = row[self.figure + "_ratio"]
        return ratio >= self.bound if self.at_least else ratio <= self.bound


class SecondsAbove(Target):
    """A bound on how much longer the subject takes than its base."""

    def is_met(self, row):
        return row["wall"] - row["base_wall"] <= self.bound


@dataclass(frozen=True)
class Case:
    title: str
    subject: Command
    base: Command
    targets: tuple = ()
    runs: int = 0  # 0: as the scale says
    repeat: int = 1
    same_document: bool = False  # both write one, and they have to be equal

    @property
    def is_counted(self):
        """Whether what the subject writes is counted, in one more run."""
        return not (self.title.startswith(("rival", "gain")) or "check_entries" in self.subject.shell
                    or self.subject.data.product)


DUMP = "{tool} --action dump_backup --backup_id {first_id}"
TO_FILE = DUMP + " --output_dir {out}"
TO_PIPE = DUMP + " | cat > /dev/null"
TO_CHECK = DUMP + " | {build}/check_entries {size}"
UNFOLD = "{unfold} -dump {entries}"
PIPE_FLOOR = UNFOLD + " | cat > /dev/null; cat {document} | cat > /dev/null"
LIST = "{tool} --action list_backups | cat > /dev/null"
SET_LIST = "{tool} --action dump_backup_set_list --output_dir {out}"
ALL_SETS = SET_LIST + " --count 0"
SET = ("{tool} --action dump_backup_set --client {set_client} --time {set_time} "
       "--output_dir {out}")
LITERAL_SET_LIST = "{build}/literal_set_list {admincmd}/qvroll 100 {out}/backup_sets.json"
LITERAL_ALL_SETS = "{build}/literal_set_list {admincmd}/qvroll 0 {out}/backup_sets.json"
LISTING_FLOOR = "{admincmd}/qvroll | cat | cat > /dev/null"
LOOP = "{here}/shell_loop.sh {admincmd} {unfold} < {images}"
LOOP_OF_SHELLS = "{here}/shell_loop.sh -c {admincmd} {unfold} < {images}"

INTO_NEW_ARCHIVE = "{archiver} init {out}/archive && {archiver} sync --quiet"
SLOWLY = ("printf '%s * slow 50\\n' qvmeta qvroll-id rec_unfold > {root}/faults && "
          + INTO_NEW_ARCHIVE)
BY_HAND = (TO_FILE + " && openssl dgst -sha256 {out}/{first_id}.json > /dev/null"
           " && sync {out}/{first_id}.json")

HELD = Target("memory", lambda bytes_in, _: 1.15 * bytes_in + 16 * MIB,
              text="memory ≤ 1.15 x in + 16 MiB")


THREE_TIMES = (Target("wall", 3, at_least=True),)
FAST_LIST = Target("wall", lambda *_: 1.3, text="wall ≤ 1.3 s")


def bytes_each(limit, what):
    return Target("memory", lambda _, size: limit * size, text=f"memory ≤ {limit:,} bytes a {what}")


@dataclass(frozen=True)
class Rival:
    """What a user would write. `equal` is what has to be equal to the tool's document: all its
    "bytes", those of the "entries", the "content" of the entries, or of those that are "UTF-8"."""
    name: str
    shell: str
    holds: bool  # its data, until the last line is judged
    equal: str = "bytes"


IN_PLACE = Rival("tree in place", "{build}/tree_in_place {metadata}", True)
BY_COPY = Rival("tree by copy", "{build}/tree_by_copy {metadata}", True)
RIVALS = (
    Rival("awk", "mawk -v metadata={metadata} -f {here}/rivals/document.awk", False, "entries"),
    Rival("Miller", "{here}/rivals/miller.sh {metadata}", False, "content"),
    Rival("Python, streaming", "python3 {here}/rivals/streaming.py {metadata}", False),
    Rival("Python, in memory", "python3 {here}/rivals/in_memory.py {metadata}", True),
    Rival("jq", "jq -nR --indent 4 --slurpfile metadata {metadata} -f {here}/rivals/document.jq",
          True, "content"),
    Rival("DuckDB", "NODE_PATH={build}/node/node_modules node {here}/rivals/duckdb.cjs {metadata}",
          False, "UTF-8"),
    IN_PLACE,
    BY_COPY,
)


def archive_cases(scale):
    one, many = image(scale.entries), small_images(scale.archived)
    yield Case("archive: sync of one image",
               Command("", INTO_NEW_ARCHIVE + " {out}/archive", one),
               Command("tool, openssl, sync", BY_HAND, one), (Target("wall", 1.25),))
    slow = small_images(scale.slow_images, "slow")
    yield Case("archive: sync, commands slowed by 50 ms, 8 jobs",
               Command("", SLOWLY + " --jobs 8 {out}/archive", slow),
               Command("itself, 1 job", SLOWLY + " --jobs 1 {out}/archive", slow),
               (Target("wall", 1 / 7, text="wall ≤ 1/7"),), runs=1)
    yield Case("archive: sync, nothing new", Command("", "{archiver} sync --quiet {archive}", many),
               Command("listing", "{admincmd}/qvroll | cat > /dev/null", many),
               (SecondsAbove("wall", 1.5, text="at most 1.5 s above"),))
    yield Case("archive: verify", Command("", "{archiver} verify {archive} > /dev/null", one),
               Command("openssl", "openssl dgst -sha256 {archive}/images/*/*/* > /dev/null", one),
               (Target("wall", 1.25), Target("memory", lambda _in, _size: 32 * MIB,
                                             text="memory ≤ 32 MiB")))


def reader_cases(scale):
    one, ((few, large), (many, small)) = image(scale.entries), scale.searched
    at_most = functools.partial(Target, "wall")
    modest = Target("memory", lambda *_: 32 * MIB, text="memory ≤ 32 MiB")
    for base, shell, targets in (
            ("cat | wc -l", "cat {document} | wc -l > /dev/null", (at_most(4), modest)),
            ("jq, three fields", "jq -r '.fentries[] | [.filenum, .length, .path] | @tsv' {document}"
             " | cat > /dev/null", (at_most(1 / 25, text="wall ≤ 1/25"),)),
            ("stream_image.py", "python3 {here}/rivals/stream_image.py {document}"
             " | cat > /dev/null", (at_most(1 / 10, text="wall ≤ 1/10"),))):
        yield Case("archive: entries", Command("", "{archiver} entries {document} | cat > /dev/null",
                                               one), Command(base, shell, one), targets)
    find = "{archiver} find {archive} '*no-such-name*' > /dev/null || true"
    for title, data, base, shell in (
            ("plain", searched(few, large), "grep -cF",
             "grep -cF no-such-name {archive}/images/*/*/*_*.json > /dev/null || true"),
            ("compressed", searched(few, large, init="--compress=3"), "zstd -dc | grep -cF",
             "zstd -dc {archive}/images/*/*/*.zst | grep -cF no-such-name > /dev/null || true")):
        yield Case(f"archive: find of a glob, {title}", Command("", find, data),
                   Command(base, shell, data), (at_most(1.5), modest), runs=3)
    data = searched(many, small, product="one")
    yield Case("archive: find of a path that one image holds",
               Command("", "{archiver} find {archive} /only/here > /dev/null", data),
               Command("reading all", "cat {archive}/images/*/*/*_*.json > /dev/null", data),
               (at_most(0.1), modest), runs=3)


def rival_cases(scale):
    free = int(next(line for line in open("/proc/meminfo") if "MemAvailable" in line).split()[1])
    for rival in RIVALS:
        entries = scale.rival_entries
        if rival is BY_COPY:
            entries = next((size for size in scale.by_copy_entries
                            if size * BY_COPY_BYTES <= free * 1024), scale.by_copy_entries[-1])
        data = image(entries)
        targets = (Target("wall", 5, at_least=True),)
        if rival.holds:
            targets += (Target("memory", 4, at_least=True),)
        yield Case(f"rival: {rival.name}",
                   Command(rival.name, f"{UNFOLD} | {rival.shell} | cat > /dev/null", data),
                   Command("the tool", TO_PIPE, data), targets, scale.rival_runs)


def gain_cases(scale):
    """What the tool wins with each thing that is less plain for the sake of speed: the subject is
    the tool, and the base the tool without it."""
    rows, entries = listing(scale.rows), image(scale.entries)
    lone = listing(scale.rows, parents=False)
    if scale.huge:
        paced = image(HUGE_ENTRIES, "paced")
        yield Case("gain: pipe_of_commands", Command("dump_backup", TO_PIPE, paced),
                   without("pipe_of_commands", TO_PIPE, paced), (Target("wall", 0.95),), runs=3)
    for name, shell, data in (
            ("buffer_of_commands", LIST, rows), ("buffer_of_commands", SET_LIST, rows),
            ("buffer_of_commands", TO_PIPE, entries),
            ("pipe_of_output", LIST, rows), ("pipe_of_output", TO_PIPE, entries),
            ("buffer_of_output", LIST, rows), ("sorted_items", SET_LIST, rows),
            ("number_texts", ALL_SETS, lone),
            ("steps_for_records", SET_LIST, rows), ("whole_numbers", SET_LIST, rows),
            ("sizes", SET_LIST, rows), ("series_images", SET_LIST, rows),
            ("hashed_tags", SET_LIST, rows), ("groups_of_bytes", TO_PIPE, entries)):
        action = shell.split("--action ")[1].split()[0]
        yield Case(f"gain: {name}", Command(action, shell, data), without(name, shell, data),
                   (Target("wall", 0.95),), scale.gain_runs)


def without(name, shell, data):
    """The command with a tool to which the patch bench/plain/NAME.patch was applied."""
    return Command(f"without {name}", shell.replace("{tool}", "{plain}/" + name), data)


def packing_cases():
    """Entries beyond the size from which they are packed."""
    huge, most, paced = (image(HUGE_ENTRIES), image(MOST_ENTRIES), image(HUGE_ENTRIES, "paced"))
    at_most = functools.partial(Target, "wall")
    yield Case("dump_backup to a pipe", Command("", TO_PIPE, huge),
               without("packing", TO_PIPE, huge),
               (at_most(2.1), Target("memory", lambda *_: 1.1e9, text="memory ≤ 1.1 GB")), runs=3)
    yield Case("dump_backup, a microsecond an entry", Command("", TO_PIPE, paced),
               Command("floor", PIPE_FLOOR, paced), (at_most(1.1),), runs=3)
    yield Case("dump_backup, each entry checked", Command("", TO_CHECK, most),
               Command(f"itself, {HUGE_ENTRIES:,}", TO_CHECK, huge),
               (at_most(6.3), Target("memory", lambda *_: 4e9, text="memory ≤ 4 GB")), runs=1)


def cases(scale):
    one, rows, members = image(scale.entries), listing(scale.rows), backup_set(scale.set_images)
    at_most = functools.partial(Target, "wall")
    file_floor = UNFOLD + " | cat > /dev/null; {build}/write_floor {piece} {document} {out}/copy"
    yield Case("dump_backup to a file", Command("", TO_FILE, one),
               Command("floor, written", file_floor, one), (at_most(1.25), HELD))
    yield Case("dump_backup to a file", Command("", TO_FILE, one),
               Command("floor, copied", UNFOLD + " | cat > /dev/null; cat {document} > {out}/copy",
                       one))
    yield Case("dump_backup to a pipe", Command("", TO_PIPE, one),
               Command("floor", PIPE_FLOOR, one), (at_most(1.3), HELD))
    yield Case("dump_backup to a pipe", Command("", TO_PIPE, one),
               without("packing", TO_PIPE, one), (at_most(1.03),))
    if scale.huge:
        huge = image(HUGE_ENTRIES)
        yield Case("dump_backup to a file", Command("", TO_FILE, huge),
                   Command("floor, written", file_floor, huge))
        yield from packing_cases()
    floor = Command("floor", LISTING_FLOOR, rows)
    yield Case("list_backups", Command("", LIST, rows), floor, (at_most(2.5),))
    yield Case("rival: plain fgets loop",
               Command("", "{build}/fgets_copy {admincmd}/qvroll | cat > /dev/null", rows),
               Command("the tool", LIST, rows))
    yield Case("dump_backup_set_list", Command("", SET_LIST, rows), floor,
               (at_most(8), bytes_each(450, "row")))
    yield Case("rival: literal set list", Command("", LITERAL_SET_LIST, rows),
               Command("the tool", SET_LIST, rows), THREE_TIMES, scale.rival_runs,
               same_document=True)
    lone = [listing(scale.rows // part, parents=False) for part in (4, 2, 1)]
    yield Case("dump_backup_set_list, all", Command("", ALL_SETS, lone[0]),
               Command("floor", LISTING_FLOOR, lone[0]), (bytes_each(700, "set"),))
    for half, whole in zip(lone, lone[1:]):
        yield Case("dump_backup_set_list, all", Command("", ALL_SETS, whole),
                   Command(f"itself, {half.size:,}", ALL_SETS, half),
                   (at_most(2.2), bytes_each(700, "set"), FAST_LIST))
    yield Case("rival: literal set list, all", Command("", LITERAL_ALL_SETS, lone[-1]),
               Command("the tool", ALL_SETS, lone[-1]), THREE_TIMES, scale.rival_runs,
               same_document=True)
    for base, shell in (("loop of commands", LOOP), ("loop of sh -c", LOOP_OF_SHELLS)):
        yield Case("dump_backup_set", Command("", SET, members), Command(base, shell, members),
                   (at_most(1.15),))
    for base, targets in (("do_nothing", (at_most(1.5),)), ("do_nothing_static", ())):
        yield Case("--help", Command("", "{tool} --help", image(1)),
                   Command(base, "{build}/" + base, image(1)), targets, repeat=300)
    yield from archive_cases(scale)
    yield from reader_cases(scale)
    yield from rival_cases(scale)
    yield from gain_cases(scale)
