#!/usr/bin/env python3
"""What `sync --metrics` writes is what Prometheus takes, and the alerts that are shipped fire for what
became of real runs."""

import json
import pathlib
import re
import shutil
import subprocess
import sys

import archive
from archive import FIRST, LAST, THIRD, lines

RULES = (pathlib.Path(__file__).resolve().parents[2]
         / "packaging/prometheus/quillmere-archive.rules.yml")
HOUR = 3600


class MetricsTest(archive.ArchiveTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.file = self.folder / "archive.prom"

    def samples(self):
        """The samples of the file, by what precedes their numbers."""
        text = self.file.read_text(encoding="utf-8")
        return dict(re.findall(r"^(quillmere_archive_\w+\{.*\}) (\S+)$", text, re.MULTILINE))

    def value(self, name):
        return float(self.samples()[f'quillmere_archive_{name}{{archive="{self.archive}"}}'])

    def newest_sets(self):
        """The times of the newest sets, by client, policy and schedule."""
        return {found[1]: int(number) for head, number in self.samples().items()
                if (found := re.search(r"_newest_set_\w+\{archive=\"[^\"]*\",(.*)\}", head))}

    def check_format(self):
        """Prometheus takes the file and has nothing to say about it."""
        with self.file.open("rb") as text:
            result = subprocess.run(["promtool", "check", "metrics"], stdin=text, check=False,
                                    capture_output=True)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))

    def check_alerts(self, time, expected):
        """These alerts fire, and no others, when the file is looked at at that time: each is a name
        and the labels behind that of the archive."""
        names = {"QuillmereArchiveNoSuccess": "critical"}
        firing = [{"labels": f'ALERTS{{alertname="{name}",alertstate="firing",archive="{self.archive}"'
                             f'{labels},severity="{names.get(name, "warning")}"}}', "value": 1}
                  for name, labels in expected]
        # Its clock begins at 0, where nothing is known yet, and has one step.
        step = f"{int(time)}s"
        test = {"rule_files": [str(RULES)], "evaluation_interval": step, "tests": [{
            "interval": step,
            "input_series": [{"series": head, "values": f"_ {float(number)}"}
                             for head, number in self.samples().items()],
            "promql_expr_test": [{"expr": "ALERTS", "eval_time": step, "exp_samples": firing}]}]}
        path = self.folder / "test.yml"
        path.write_text(json.dumps(test))
        result = subprocess.run(["promtool", "test", "rules", path], check=False, capture_output=True,
                                text=True)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


class OfNights(MetricsTest):
    """The catalogue's nights were years ago, so the clock of an alert is one or the other: that of
    the runs, or that of the nights."""

    def check_alerts_about_runs(self, hours, names):
        stale = [("QuillmereArchiveStaleSeries", "," + labels) for labels in self.newest_sets()]
        policies = {re.sub(',schedule="[^"]*"', "", labels) for _, labels in stale}
        self.check_alerts(self.value("last_run_timestamp_seconds") + hours * HOUR, [
            *((name, "") for name in names), *stale,
            *(("QuillmereArchiveStalePolicy", labels) for labels in policies)])

    def test_a_good_run_is_fresh_for_a_night(self):
        self.check_sync("--metrics", self.file)
        self.check_format()
        self.assertEqual((self.value("images"), self.value("last_run_exported_images")), (4, 4))
        self.check_alerts_about_runs(25, [])
        self.check_alerts_about_runs(27, ["QuillmereArchiveMissedNight"])
        self.check_alerts_about_runs(51, ["QuillmereArchiveMissedNight", "QuillmereArchiveNoSuccess"])

    def test_an_image_that_fails_is_told_and_the_last_success_kept(self):
        self.check_sync("--metrics", self.file, "--skip", THIRD)
        success = self.value("last_run_timestamp_seconds")
        self.faults(f"qvmeta {THIRD} fail")
        self.check_sync("--metrics", self.file, status=1,
                        stderr=lines(f"{THIRD}: failed: qvmeta ended with status 1"))
        self.check_format()
        self.assertEqual(self.value("last_success_timestamp_seconds"), success)
        self.assertEqual((self.value("last_run_failed_images"), self.value("last_run_waiting_sets"),
                          self.value("images")), (1, 1, 3))
        self.check_alerts_about_runs(1, ["QuillmereArchiveFailedImages"])

    def test_a_listing_that_fails_is_told(self):
        self.faults("qvroll * fail")
        self.check_sync("--metrics", self.file, status=3, stdout=b"",
                        stderr=lines("the listing failed: qvroll ended with status 1"))
        self.check_format()
        self.check_alerts_about_runs(1, ["QuillmereArchiveRunFailed", "QuillmereArchiveNoSuccess"])

    def test_an_archive_that_is_not_mounted_is_told(self):
        self.check_sync("--metrics", self.file)
        shutil.rmtree(self.archive)
        self.archive.mkdir()
        self.check_sync("--metrics", self.file, status=4, stdout=b"", stderr=lines(
            f"{self.archive}/archive.json: no such file; quillmere-archive init makes an archive"))
        self.check_format()
        self.check_alerts_about_runs(1, ["QuillmereArchiveRunFailed"])

    def test_a_series_without_a_new_set_is_stale(self):
        self.check_sync("--metrics", self.file)
        # The first night's backup is a full one, those of the others are incremental.
        full, incremental = (int(backup_id.partition("_")[2]) for backup_id in (FIRST, LAST))
        policy = ',client="alpha",policy="Daily"'
        self.assertEqual(self.newest_sets(), {
            f'{policy[1:]},schedule="full"': full, f'{policy[1:]},schedule="incr"': incremental})
        stale = [("QuillmereArchiveStalePolicy", policy)]
        self.check_alerts(incremental + 25 * HOUR, [])
        self.check_alerts(incremental + 27 * HOUR, stale)
        stale.append(("QuillmereArchiveStaleSeries", f'{policy},schedule="full"'))
        self.check_alerts(full + 193 * HOUR, stale)
        stale.append(("QuillmereArchiveStaleSeries", f'{policy},schedule="incr"'))
        self.check_alerts(incremental + 193 * HOUR, stale)


class OfOddNames(MetricsTest):
    CATALOGUE = {"seed": 4, "clients": 25, "policies": 5, "nights": 1, "odd_names": True,
                 "entries": 2}

    def test_are_taken(self):
        self.check_sync("--quiet", "--metrics", self.file)
        self.check_format()
        series = {(image.client, image.policy, image.schedule)
                  for image in self.model.product().images()}
        self.assertGreater(len(series), 100)
        self.assertEqual(len(self.newest_sets()), len({tuple(
            name.encode("utf-8", "surrogateescape").decode("utf-8", "replace") for name in names)
            for names in series}))


if __name__ == "__main__":
    if shutil.which("promtool") is None:
        print("skipped: there is no promtool")
        sys.exit(77)
    archive.main(__doc__)
