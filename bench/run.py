"""Runs the cases of the benchmark and prints one table. To be started by scripts/bench.sh.

Every case is a pair of shell commands, the subject and what it is measured against, that run in
turn: base, subject, base, subject ... hyperfine takes the times and /usr/bin/time the memory.
"""

import argparse
import functools
import json
import os
import pathlib
import shlex
import shutil
import statistics
import subprocess
import sys
import time

from cases import (FULL, HUGE_DISK, HUGE_ENTRIES, QUICK, RIVALS, TO_FILE, UNFOLD, cases, image)

HERE = pathlib.Path(__file__).resolve().parent
DOCUMENT = TO_FILE + " && mv {out}/{first_id}.json {document}"
# The product prints for printf, so a percent sign stands doubled.
ARCHIVE = ("rm -rf {archive} && {archiver} init {archive} && "
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
            values_file.write_text(json.dumps(values))
        values |= {"tool": self.build / "bench/quillmere_bench", "out": self.out, "here": HERE,
                   "build": self.work, "root": root, "admincmd": root / "bin/admincmd",
                   "unfold": root / "bin/rec_unfold", "document": root / "document.json",
                   "archiver": self.build / "quillmere_archive_bench", "archive": root / "archive",
                   "archive_is_whole": root / "archive-is-whole",
                   "metadata": root / "metadata.json", "images": root / "images.txt"}
        files = sorted(root.glob("db/images/**/*.f"))
        if files:
            values["entries"] = files[0]
            values["images"].write_text("".join(
                f"{file.parts[-3]}_{file.name.split('_')[-2]} {file}\n" for file in files))
        return {name: shlex.quote(str(value)) for name, value in values.items()}

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

    def shell(self, command, data):
        """Runs `command` once on `data`, untimed."""
        text = command.format_map(self.values(data))
        subprocess.run(["bash", "-o", "pipefail", "-c", f"{self.prepare(data)}; {text}"],
                       check=True, stdin=subprocess.DEVNULL)

    def bytes_out(self, command):
        """What `command` writes, to files or to the pipe at its end."""
        self.shell(command.shell.replace("| cat > /dev/null", "> {out}/printed"), command.data)
        return sum(file.stat().st_size for file in self.out.rglob("*") if file.is_file())

    def measure(self, command, repeat):
        """One sample of `command`: wall, user and system time in seconds, peak memory in bytes.
        Programs that end at once are repeated, without a shell between them and the clock."""
        text = command.shell.format_map(self.values(command.data))
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


def check_rivals(bench):
    """Ends the program unless every rival makes the tool's document of a small image."""
    data, marker = image(2_000), b'    "fentries": '
    bench.shell(DOCUMENT, data)
    bench.shell(METADATA, data)
    expected = (bench.root(data) / "document.json").read_bytes()
    for rival in RIVALS:
        bench.shell(f"{UNFOLD} | {rival.shell} > {{out}}/rival", data)
        written = (bench.out / "rival").read_bytes()
        if rival.equal == "content":
            texts = (text.decode(errors="replace") for text in (expected, written))
            is_equal = len(set(json.dumps(json.loads(text)["fentries"]) for text in texts)) == 1
        elif rival.equal == "entries":
            is_equal = written[written.index(marker):] == expected[expected.index(marker):]
        else:
            is_equal = written == expected
        if not is_equal:
            sys.exit(f"The rival \"{rival.name}\" does not make the tool's document.")


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


def run_case(bench, case, runs):
    prepare_case(bench, case)
    is_counted = case.repeat == 1 and not case.title.startswith("rival")
    pairs = []
    for number in range(runs):
        progress(f"{case.title}, {case.subject.data.size:,}: run {number + 1} of {runs}")
        pairs.append([bench.measure(command, case.repeat)
                      for command in (case.base, case.subject)])
    row = {"case": case.title, "size": case.subject.data.size, "runs": runs,
           "against": case.base.name,
           "bytes_in": bench.bytes_in(case.subject.data) if case.repeat == 1 else None,
           "bytes_out": bench.bytes_out(case.subject) if is_counted else None}
    for figure in ("wall", "user", "system", "memory"):
        row[figure] = statistics.median(subject[figure] for _, subject in pairs)
        row[f"base_{figure}"] = statistics.median(base[figure] for base, _ in pairs)
    for figure in ("wall", "memory"):
        row[figure + "_ratio"] = statistics.median(subject[figure] / base[figure]
                                                   for base, subject in pairs)
    row["targets"] = {target.describe(): target.is_met(row) for target in case.targets}
    return row


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def run_cases(bench, scale, only):
    huge = image(HUGE_ENTRIES)
    for case in cases(scale):
        if only not in case.title:
            continue
        if case.subject.data == huge and shutil.disk_usage(bench.work).free < HUGE_DISK:
            print(f"Left out for lack of disk: {case.title}, {huge.size:,}", file=sys.stderr)
            continue
        yield run_case(bench, case, case.runs or scale.runs)
        if case.subject.data != huge:
            shutil.rmtree(bench.root(huge), ignore_errors=True)
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
    memory = f"{row['memory_ratio']:.2f} x" if row["against"].startswith(("it", "the")) else ""
    targets = "; ".join(f"{text}: {'met' if is_met else 'NOT MET'}"
                        for text, is_met in row["targets"].items())
    return [row["case"], "" if row["bytes_in"] is None else f"{row['size']:,}", *seconds, *megabytes, row["against"],
            f"{row['base_wall']:.{digits}f}", f"{row['wall_ratio']:.2f} x", memory, targets]


def as_text(rows):
    table = [COLUMNS, *map(cells, rows)]
    widths = [max(map(len, column)) for column in zip(*table)]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in table)


def as_markdown(rows, heading):
    table = [COLUMNS, ["---"] * len(COLUMNS), *map(cells, rows)]
    return heading + "\n\n" + "\n".join(f"| {' | '.join(line)} |" for line in table) + "\n"


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


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="build folder with everything built")
    parser.add_argument("--full", action="store_true", help="full sizes, for bench/README.md")
    parser.add_argument("--only", default="", metavar="TEXT",
                        help="only the cases with this text in their title; the table goes nowhere")
    arguments = parser.parse_args()
    os.environ["LC_ALL"] = "C"
    os.environ.pop("PYTHONUNBUFFERED", None)  # the Python rivals would write each piece by itself
    bench = Bench(arguments.build.resolve())
    bench.out.mkdir(exist_ok=True)
    bench.kept.mkdir(exist_ok=True)
    mode, scale = ("full", FULL) if arguments.full else ("quick", QUICK)
    if not arguments.only:
        check_rivals(bench)
    rows = list(run_cases(bench, scale, arguments.only))
    heading = describe_run(mode)
    if not arguments.full:
        heading += ". Targets are for the full sizes: here, what every run costs weighs more"
    markdown = as_markdown(rows, heading)
    (bench.work / f"{mode}.md").write_text(markdown)
    (bench.work / f"{mode}.json").write_text(json.dumps({"run": heading, "rows": rows}, indent=1))
    if arguments.full and not arguments.only:
        put_into_readme(markdown)
    print(f"{heading}\n\n{as_text(rows)}")
    not_met = sum(not is_met for row in rows for is_met in row["targets"].values())
    print(f"\n{not_met} targets not met. Also in {bench.work}/{mode}.md and .json")


if __name__ == "__main__":
    main()
