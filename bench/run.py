"""Runs the cases of the benchmark and prints one table. To be started by scripts/bench.sh.

Every case is a pair of shell commands, the subject and what it is measured against, that run in
turn: base, subject, base, subject ... hyperfine takes the times and /usr/bin/time the memory.
"""

import argparse
import functools
import json
import os
import pathlib
import re
import shlex
import shutil
import statistics
import subprocess
import sys
import time

from cases import (FULL, HUGE_DISK, HUGE_ENTRIES, QUICK, RIVALS, TO_FILE, UNFOLD, Command, cases,
                   image)
from plain import PlainVersions

HERE = pathlib.Path(__file__).resolve().parent
DOCUMENT = TO_FILE + " && mv {out}/{first_id}.json {document}"
# The product prints for printf, so a percent sign stands doubled.
SLOW = 10  # seconds: a rival that takes longer runs once
PIECES = [size << 10 for size in (64, 128, 256, 512, 1024, 4096)]  # bytes
ARCHIVE = ("rm -rf {archive} && {archiver} init {init} {archive} && "
           "{archiver} sync --quiet {archive} && touch {archive_is_whole}")
METADATA = "{admincmd}/qvmeta -json -backupid {first_id} | sed 's/%%/%/g' > {metadata}"


class Bench:
    """The build folder, and in it the catalogues and the tool that is measured."""

    def __init__(self, build):
        self.build = build
        self.work = build / "bench"
        self.out = self.work / "out"
        self.kept = self.work / "kept"  # what runs on sets have written
        self.peak = self.work / "peak"  # of the last command, in KiB
        self.plain = self.work / "plain"  # where the plain versions are
        self.piece = 0  # bytes, in which the floor of a file is written

    def root(self, data):
        return self.work / "data" / data.name

    @functools.cache
    def values(self, data):
        """What stands in the place of the names in commands. Makes the catalogue if need be."""
        root, make = self.root(data), self.build / "standin/make_catalogue"
        values_file = root / "values.json"
        made_by = f"{make.stat().st_mtime_ns} {data.options}"
        values = json.loads(values_file.read_text()) if values_file.exists() else {}
        if values.get("made_by") != made_by:
            shutil.rmtree(root, ignore_errors=True)
            printed = subprocess.run([make, "--root", root, *data.options.split()], check=True,
                                     capture_output=True, text=True).stdout
            values = dict(line.split("=", 1) for line in printed.splitlines())
            values["made_by"] = made_by
            self.replace_product(data)
            values_file.write_text(json.dumps(values))
        values |= {"tool": self.build / "bench/quillmere_bench", "out": self.out, "here": HERE,
                   "build": self.work, "root": root, "size": data.size, "plain": self.plain,
                   "admincmd": root / "bin/admincmd", "unfold": root / "bin/rec_unfold",
                   "document": root / "document.json",
                   "archiver": self.build / "quillmere_archive_bench", "archive": root / "archive",
                   "archive_is_whole": root / "archive-is-whole",
                   "metadata": root / "metadata.json", "images": root / "images.txt"}
        files = sorted(root.glob("db/images/**/*.f"))
        if files:
            values["entries"] = files[0]
            values["images"].write_text("".join(
                f"{file.parts[-3]}_{file.name.split('_')[-2]} {file}\n" for file in files))
        return {name: shlex.quote(str(value)) for name, value in values.items()}

    def replace_product(self, data):
        commands = self.root(data) / "bin"
        if data.product == "paced":
            shutil.copy(self.work / "paced_unfold", commands / "rec_unfold")
        elif data.product == "one":
            files = sorted(self.root(data).glob("db/images/**/*.f"))
            chosen = files[len(files) // 2]
            *first, last = chosen.read_bytes().splitlines(keepends=True)
            fields = last.split(b"\t")
            fields[9] = b"/only/here"
            chosen.write_bytes(b"".join(first) + b"\t".join(fields))

    def bytes_in(self, data):
        return sum(file.stat().st_size for file in self.root(data).glob("db/" + data.reads)
                   if file.is_file())

    def prepare(self, data, is_settled=True):
        """The shell command that stands, untimed, before each run on `data`. With `is_settled`, the
        disk is done with what was written before."""
        link = shlex.quote(str(self.work / "root"))
        out = shlex.quote(str(self.out))
        # ext4 searches past inodes that were removed in the last minutes whenever a file is created.
        # So the many files of sets stay until the end.
        put_away = (f'mv {out} "$(mktemp -d {shlex.quote(str(self.kept))}/XXXXXX)"'
                    if data.name.startswith(("set-", "slow-")) else f"rm -rf {out}")
        return (f"ln -sfn {shlex.quote(str(self.root(data)))} {link} && {put_away} && "
                f"mkdir -p {out}" + (" && sync" if is_settled else ""))

    def text_of(self, shell, data):
        return shell.format_map(self.values(data) | {"piece": self.piece, "init": data.init})

    def shell(self, command, data):
        """Runs `command` once on `data`, untimed."""
        text = self.text_of(command, data)
        subprocess.run(["bash", "-o", "pipefail", "-c", f"{self.prepare(data)}; {text}"],
                       check=True, stdin=subprocess.DEVNULL)

    def bytes_out(self, command):
        """What `command` writes, to files or to the pipe at its end."""
        self.shell(command.shell.replace("| cat > /dev/null", "> {out}/printed"), command.data)
        return sum(file.stat().st_size for file in self.out.rglob("*") if file.is_file())

    def measure(self, command, repeat):
        """One sample of `command`: wall, user and system time in seconds, peak memory in bytes.
        Programs that end at once are repeated, without a shell between them and the clock."""
        text = self.text_of(command.shell, command.data)
        with_peak = (f"/usr/bin/time -q -f %M -o {shlex.quote(str(self.peak))} "
                     f"bash -o pipefail -c {shlex.quote(text)}")
        prepare = self.prepare(command.data, is_settled=repeat == 1)
        report = self.work / "hyperfine.json"
        run = subprocess.run(["hyperfine", "-N", "--style", "none", "--export-json", report,
                              "--prepare", f"sh -c {shlex.quote(prepare)}",
                              "--runs", str(repeat), with_peak if repeat == 1 else text],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if run.returncode != 0:
            sys.exit(run.stderr)
        if repeat > 1:
            subprocess.run(shlex.split(with_peak), check=True, stdout=subprocess.DEVNULL)
        result = json.loads(report.read_text())["results"][0]
        return {"wall": result["median"], "user": result["user"], "system": result["system"],
                "memory": int(self.peak.read_text()) * 1024}


def check_rivals(bench, chosen):
    """Ends the program unless every chosen rival makes the tool's document of a small image."""
    rivals = [rival for rival in RIVALS if any(case.subject.name == rival.name for case in chosen)]
    if not rivals:
        return
    data, marker = image(2_000), b'    "fentries": '
    bench.shell(DOCUMENT, data)
    bench.shell(METADATA, data)
    expected = (bench.root(data) / "document.json").read_bytes()
    for rival in rivals:
        bench.shell(f"{UNFOLD} | {rival.shell} | cat > {{out}}/rival", data)
        written = (bench.out / "rival").read_bytes()
        if rival.equal in ("content", "UTF-8"):
            of_tool, of_rival = (json.loads(text.decode(errors="replace"))["fentries"]
                                 for text in (expected, written))
            if rival.equal == "UTF-8":
                of_tool = [entry for entry in of_tool if "\uFFFD" not in entry["path"]]
            is_equal = of_rival == of_tool
        elif rival.equal == "entries":
            is_equal = written[written.index(marker):] == expected[expected.index(marker):]
        else:
            is_equal = written == expected
        if not is_equal:
            sys.exit(f"The rival \"{rival.name}\" does not make the tool's document.")


def check_documents(bench, case):
    """Ends the program unless both sides of a case about set lists write the same bytes."""
    documents = []
    for command in (case.base, case.subject):
        bench.shell(command.shell, command.data)
        documents.append((bench.out / "backup_sets.json").read_bytes())
    if documents[0] != documents[1]:
        sys.exit(f"{case.title}: its document is not the tool's.")
    times = re.findall(rb'"BackupCreateTime": (.*),', documents[0])
    if "--count 0" in case.base.shell and len(set(times)) == len(times):
        sys.exit(f"{case.title}: no two sets share their second, so the order proves little.")


def choose_piece(bench, data):
    """The size of the pieces, in bytes, that write a document of `data` the fastest."""
    def best_wall(size):
        bench.piece = size
        command = Command("", "{build}/write_floor {piece} {document} {out}/copy", data)
        return min(bench.measure(command, 1)["wall"] for _ in range(3))
    bench.shell(DOCUMENT, data)
    progress("the floor of a file: sizes of its pieces")
    walls = {size: best_wall(size) for size in PIECES}
    bench.piece = min(walls, key=walls.get)
    return ", ".join(f"{size >> 10} KiB {wall:.3f} s" for size, wall in walls.items())


def prepare_case(bench, case):
    for command in (case.base, case.subject):
        bench.values(command.data)
        if "{document}" in command.shell:
            bench.shell(DOCUMENT, command.data)
        if "{metadata}" in command.shell:
            bench.shell(METADATA, command.data)
        if "{archive}" in command.shell and not (bench.root(command.data)
                                                 / "archive-is-whole").exists():
            bench.shell(ARCHIVE, command.data)
    if case.same_document:
        check_documents(bench, case)


def run_case(bench, case, runs):
    prepare_case(bench, case)
    is_rival = case.title.startswith("rival")
    is_counted = case.repeat == 1 and case.is_counted
    pairs = []
    for number in range(runs):
        progress(f"{case.title}, {case.subject.data.size:,}: run {number + 1} of {runs}")
        pairs.append([bench.measure(command, case.repeat)
                      for command in (case.base, case.subject)])
        if is_rival and pairs[0][1]["wall"] > SLOW:
            break
    row = {"case": case.title, "size": case.subject.data.size, "runs": len(pairs),
           "command": case.subject.name, "against": case.base.name,
           "bytes_in": bench.bytes_in(case.subject.data) if case.repeat == 1 else None,
           "bytes_out": bench.bytes_out(case.subject) if is_counted else None}
    for figure in ("wall", "user", "system", "memory"):
        row[figure] = statistics.median(subject[figure] for _, subject in pairs)
        row[f"base_{figure}"] = statistics.median(base[figure] for base, _ in pairs)
    for sample in (sample for pair in pairs for sample in pair):
        sample["cpu"] = sample["user"] + sample["system"]
    for figure in ("wall", "memory", "cpu"):
        row[figure + "_ratio"] = statistics.median(subject[figure] / base[figure]
                                                   for base, subject in pairs)
    row["targets"] = {target.describe(): target.is_met(row) for target in case.targets}
    return row


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def run_cases(bench, chosen, scale):
    left = {}  # data that take much room go when no more cases follow
    for case in chosen:
        for command in (case.base, case.subject):
            left[command.data] = left.get(command.data, 0) + 1
    for case in chosen:
        needed = HUGE_DISK if case.subject.data.size >= HUGE_ENTRIES else 0
        if shutil.disk_usage(bench.work).free < needed:
            print(f"Left out for lack of disk: {describe(case)}", file=sys.stderr)
        else:
            yield run_case(bench, case, case.runs or scale.runs)
        for command in (case.base, case.subject):
            left[command.data] -= 1
            if left[command.data] == 0 and command.data.size >= HUGE_ENTRIES:
                shutil.rmtree(bench.root(command.data), ignore_errors=True)
    shutil.rmtree(bench.out)
    shutil.rmtree(bench.kept)
    progress("")


# --- the table ------------------------------------------------------------------------------------

COLUMNS = ("case", "size", "wall s", "user s", "system s", "peak MB", "in MB", "out MB", "against",
           "its wall s", "wall", "memory", "targets")


def cells(row):
    """What stands in the columns. The memory of a floor is that of cat and says nothing."""
    megabytes = ["" if row[name] is None else f"{row[name] / 1e6:,.1f}"
                 for name in ("memory", "bytes_in", "bytes_out")]
    digits = 5 if row["wall"] < 0.01 else 3
    seconds = [f"{row[name]:.{digits}f}" for name in ("wall", "user", "system")]
    is_floor = not row["against"].startswith(("itself", "the tool", "without"))
    memory = "" if is_floor else f"{row['memory_ratio']:.2f} x"
    targets = "; ".join(f"{text}: {'met' if is_met else 'NOT MET'}"
                        for text, is_met in row["targets"].items())
    size = "" if row["bytes_in"] is None else f"{row['size']:,}"
    return [row["case"], size, *seconds, *megabytes, row["against"],
            f"{row['base_wall']:.{digits}f}", f"{row['wall_ratio']:.2f} x", memory, targets]


GAIN_COLUMNS = ("gain", "action", "size", "wall s", "user + system s", "without it: wall s",
                "user + system s", "wall", "user + system", "wins a twentieth")


def gain_cells(row):
    times = [f"{row[wall]:.3f}" if system is None else f"{row[wall] + row[system]:.3f}"
             for wall, system in (("wall", None), ("user", "system"),
                                  ("base_wall", None), ("base_user", "base_system"))]
    return [row["case"].removeprefix("gain: "), row["command"], f"{row['size']:,}", *times,
            f"{row['wall_ratio']:.2f} x", f"{row['cpu_ratio']:.2f} x",
            "yes" if row["wall_ratio"] <= 0.95 else "NO"]


def tables(rows):
    """The figures and the gains, each as lines of cells, without those that are empty."""
    gains = [row for row in rows if row["case"].startswith("gain: ")]
    figures = [row for row in rows if row not in gains]
    return [[names, *map(make_cells, some)]
            for names, make_cells, some in ((COLUMNS, cells, figures),
                                            (GAIN_COLUMNS, gain_cells, gains)) if some]


def as_text(rows):
    def text_of(table):
        widths = [max(map(len, column)) for column in zip(*table)]
        return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                         for line in table)
    return "\n\n".join(map(text_of, tables(rows)))


def as_markdown(rows, heading):
    def row(cells):
        return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n"
    return "\n".join([heading + "\n"] + [
        "".join(row(line) for line in (names, ["---"] * len(names), *lines))
        for names, *lines in tables(rows)])


def describe_run(mode):
    def first(path, key):
        return next(line.split(":")[1].strip() for line in open(path) if line.startswith(key))
    git = ["git", "-c", f"safe.directory={HERE.parent}", "-C", HERE, "describe", "--always",
           "--dirty"]
    commit = subprocess.run(git, capture_output=True, text=True).stdout.strip() or "unknown"
    memory = int(first("/proc/meminfo", "MemTotal").split()[0]) / (1 << 20)
    return (f"Mode {mode}, {time.strftime('%Y-%m-%d')}, commit {commit}, "
            f"{first('/proc/cpuinfo', 'model name')}, {os.cpu_count()} cores, {memory:.0f} GiB")


def put_into_readme(markdown):
    readme = HERE / "README.md"
    begin, end = "<!-- table -->\n", "<!-- end of table -->\n"
    before, rest = readme.read_text().split(begin)
    readme.write_text(before + begin + markdown + end + rest.split(end)[1])


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="build folder with everything built")
    parser.add_argument("--full", action="store_true", help="full sizes, for bench/README.md")
    parser.add_argument("--only", type=re.compile, metavar="REGEX",
                        help="only the cases in whose \"CASE, SIZE against BASE\" it is found; "
                             "nothing is kept")
    return parser.parse_args()


def describe(case):
    return f"{case.title}, {case.subject.data.size:,} against {case.base.name}"


def choose_cases(bench, scale, only):
    chosen = [case for case in cases(scale) if only is None or only.search(describe(case))]
    if not (bench.work / "node/node_modules").is_dir():
        print("Left out, as it is not installed: DuckDB", file=sys.stderr)
        chosen = [case for case in chosen if case.subject.name != "DuckDB"]
    if not chosen:
        sys.exit("\n".join(["No case has that in its name. They are:", *map(describe, cases(scale))]))
    return chosen


def main():
    arguments = parse_arguments()
    os.environ["LC_ALL"] = "C"
    os.environ.pop("PYTHONUNBUFFERED", None)  # the Python rivals would write each piece by itself
    bench = Bench(arguments.build.resolve())
    bench.out.mkdir(exist_ok=True)
    bench.kept.mkdir(exist_ok=True)
    mode, scale = ("full", FULL) if arguments.full else ("quick", QUICK)
    chosen = choose_cases(bench, scale, arguments.only)
    check_rivals(bench, chosen)
    heading = describe_run(mode)
    plain = {case.base.name.removeprefix("without ") for case in chosen
             if case.base.name.startswith("without ")}
    if plain:
        progress("building the plain versions")
        PlainVersions(bench.plain, bench.work / "root").make(sorted(plain))
    if any("{piece}" in case.base.shell for case in chosen):
        heading += f". Floor of a file, by its pieces: {choose_piece(bench, image(scale.entries))}"
    if not arguments.full:
        heading += ". Targets are for the full sizes: here, what every run costs weighs more"
    rows = list(run_cases(bench, chosen, scale))
    print(f"{heading}\n\n{as_text(rows)}")
    not_met = sum(not is_met for row in rows for is_met in row["targets"].values()
                  if not row["case"].startswith("gain"))
    print(f"\n{not_met} targets not met.")
    if arguments.only is None:
        keep(bench, mode, heading, rows)


def keep(bench, mode, heading, rows):
    markdown = as_markdown(rows, heading)
    (bench.work / f"{mode}.md").write_text(markdown)
    (bench.work / f"{mode}.json").write_text(json.dumps({"run": heading, "rows": rows}, indent=1))
    if mode == "full":
        put_into_readme(markdown)
    print(f"Also in {bench.work}/{mode}.md and .json")


if __name__ == "__main__":
    main()
