#!/usr/bin/env python3
"""The example report in a browser: what it shows is what the documents say, whatever they hold."""

import argparse
import itertools
import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

try:
    from browser import CHROMIUM, DRIVER, Browser
    from selenium.webdriver.common.keys import Keys
except ImportError:
    sys.exit(77)
if not (CHROMIUM.exists() and DRIVER.exists()):
    sys.exit(77)

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
from host_product import ENTRY_KEYS, HostProduct, make_catalogue, members, text  # noqa: E402

OPTIONS = argparse.Namespace()
TABLE_KEYS = ("filenum", "path", "length", "data")


def seen(value):
    """A text of the stand-in as the page shows it: Latin-1 bytes and newlines are escaped."""
    return re.sub("[\udc80-\udcff]", lambda byte: f"\\x{ord(byte[0]) - 0xDC00:02X}",
                  value.replace("\n", "\\u000A"))


def entries_of(document):
    """The entries of an image document, as dictionaries."""
    return json.loads(text(document.read_bytes()))["fentries"]


def shown_rows(entries):
    return [[seen(entry[key]) for key in TABLE_KEYS] for entry in entries]


def flat(name, value):
    """The texts in metadata, each with the way to it."""
    if isinstance(value, str):
        return [[seen(name), seen(value)]]
    inner = (((f"{name}.{key}", one) for key, one in value) if isinstance(value, tuple)
             else ((f"{name}[{at}]", one) for at, one in enumerate(value)))
    return [row for key, one in inner for row in flat(key, one)]


class PageCase(unittest.TestCase):
    """A case on one report, which the class makes once."""

    OUTPUT_DIR = "exported"

    @classmethod
    def setUpClass(cls):
        scratch = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.directory = scratch / cls.OUTPUT_DIR
        cls.directory.mkdir()
        cls.make_documents()
        cls.page = scratch / "report.html"
        cls.make_report(cls.page)
        cls.browser = cls.enterClassContext(Browser())

    @classmethod
    def make_report(cls, page):
        subprocess.run([sys.executable, OPTIONS.report, cls.directory, "-o", page], check=True)

    @classmethod
    def export(cls, action, output_dir, **options):
        command = [OPTIONS.program, "--action", action, "--output_dir", output_dir]
        for option, value in options.items():
            command += ["--" + option, str(value)]
        subprocess.run(command, check=True)

    def setUp(self):
        self.browser.open(self.page)

    def tearDown(self):
        self.assertEqual(self.browser.console(), [])
        self.assertLessEqual(set(self.browser.requests(self.page)), {self.page.as_uri()})


class Catalogue(PageCase):
    """For each client and policy a directory with their set list, and the images of half of it."""

    @classmethod
    def make_documents(cls):
        make_catalogue(OPTIONS.generator, OPTIONS.root, seed=5, clients=3, policies=2, schedules=2,
                       images=52, entries=66)
        series = sorted({(one.client, one.policy) for one in HostProduct(OPTIONS.root).images()})
        cls.lists = {}
        cls.images = []
        for client, policy in series:
            where = f"{client}/{policy}"
            directory = cls.directory / where
            directory.mkdir(parents=True)
            cls.export("dump_backup_set_list", directory, client=client, policy=policy, count=0)
            ((_, sets),) = members(text((directory / "backup_sets.json").read_bytes()))
            cls.lists[where] = [(dict(one)["BackupCreateTime"], dict(one)["BackupSize"])
                                for one in sets]
            for time, _ in cls.lists[where][::2]:
                (directory / time).mkdir()
                cls.export("dump_backup_set", directory / time, client=client, policy=policy,
                           time=time)
        cls.images = sorted(cls.directory.glob("*/*/*/*.json"), key=os.fsencode)

    def test_the_catalogue_has_something_to_show(self):
        self.assertEqual(len(self.lists), 6)
        self.assertGreater(sum(map(len, self.lists.values())), 15)
        self.assertGreater(len(self.images), 15)

    def test_the_heading_counts_what_there_is(self):
        sets, entries = sum(map(len, self.lists.values())), 66 * len(self.images)
        self.assertEqual(self.browser.texts("#summary"),
                         [f"{sets} backup sets · {len(self.images)} images"
                          f" · {entries:,} file entries"])
        self.assertEqual(self.browser.texts("#title"), ["exported"])
        self.assertEqual(self.browser.texts("#skipped-list li"), [])

    def test_the_table_holds_every_set_with_what_its_images_tell(self):
        self.browser.find("#set-table summary").click()
        self.browser.wait("#set-table tbody tr")
        expected = []
        for where, sets in self.lists.items():
            for at, (time, size) in enumerate(sets):
                documents = sorted((self.directory / where / time).glob("*.json"))
                told = dict(members(text(documents[0].read_bytes()))) if documents else {}
                self.assertEqual(bool(told), at % 2 == 0)
                policy = dict(told["policy"])["name"] if told else ""
                expected.append([where, time, size, told.get("client", ""), policy,
                                 told.get("schedule", ""), str(len(documents))])
        shown = self.browser.table("#set-table table")[1:]
        self.assertEqual([[row[0], *row[2:3], *row[4:]] for row in shown], expected)

    def test_each_client_and_policy_has_a_lane(self):
        self.assertEqual(self.browser.lanes(), [
            [where.split("/")[0], f"{len(sets)} sets · {where.split('/')[1]}"]
            for where, sets in self.lists.items()])

    def test_the_time_line_is_true_to_times_and_sizes(self):
        every = sorted(((int(time), int(size)) for sets in self.lists.values()
                        for time, size in sets), reverse=True)
        self.assertEqual(len(self.browser.texts(".set")), len(every))
        line = self.browser.find("#timeline")
        line.send_keys(*[Keys.ARROW_RIGHT] * len(every))
        marks = [self.browser.chosen_set()]
        for _ in every[1:]:
            line.send_keys(Keys.ARROW_LEFT)
            marks.append(self.browser.chosen_set())
        # Sets of one second stand in any order.
        told = [(int(mark["facts"][1].removeprefix("time ")),
                 int(mark["facts"][2].removesuffix(" bytes").replace(",", ""))) for mark in marks]
        self.assertEqual([time for time, _ in told], [time for time, _ in every])
        self.assertEqual(sorted(told, reverse=True), every)

        newest, oldest = told[0][0], told[-1][0]
        width = marks[0]["x"] - marks[-1]["x"]
        self.assertGreater(width, 500)
        largest = max(size for _, size in told)
        smallest = min(size for _, size in told)
        heights = {size: mark["height"] for (_, size), mark in zip(told, marks)}
        rise = heights[largest] - heights[smallest]
        self.assertGreater(rise, 15)
        for (time, size), mark in zip(told, marks):
            self.assertAlmostEqual((mark["x"] - marks[-1]["x"]) / width,
                                   (time - oldest) / (newest - oldest), places=6)
            self.assertAlmostEqual((mark["height"] - heights[smallest]) / rise,
                                   math.log(size / smallest) / math.log(largest / smallest),
                                   places=6)

    def test_a_set_leads_to_its_images(self):
        where = next(iter(self.lists))
        time = self.lists[where][0][0]
        ids = sorted(path.stem for path in (self.directory / where / time).iterdir())
        line = self.browser.find("#timeline")
        line.send_keys(*[Keys.ARROW_RIGHT] * 100)
        while f"time {time}" not in self.browser.chosen_set()["facts"]:
            line.send_keys(Keys.ARROW_LEFT)
        self.assertEqual(self.browser.texts("#set-details button"), ids)
        self.browser.find("#set-details button").click()
        self.browser.wait()
        chosen = self.browser.script(
            "return document.getElementById('image-choice').selectedOptions[0].text")
        self.assertEqual(chosen.split(" · ")[0], ids[0])

    def test_each_image_shows_its_metadata_and_all_entries(self):
        self.browser.sort_by("filenum")
        for number, document in list(enumerate(self.images))[::3]:
            with self.subTest(document=document.name):
                self.browser.choose_image(number)
                entries = entries_of(document)
                self.assertEqual(self.browser.rows(), shown_rows(entries))
                metadata = members(text(document.read_bytes()))[:-1]
                self.assertEqual(self.browser.table("#metadata table"),
                                 [row for key, value in metadata for row in flat(key, value)])
                total = sum(int(entry["length"]) for entry in entries)
                self.assertEqual(self.browser.texts("#image-total"),
                                 [f"{len(entries)} entries, {total:,} bytes"])

    def check_tiles(self, entries, measure):
        """The tiles hold the right numbers, and each box of tiles is cut in proportion to them."""
        crumbs = "".join(self.browser.texts("#crumbs button"))
        folder = "" if crumbs == "All entries" else crumbs
        tiles = self.browser.tiles()
        for tile in tiles:
            *outer, name = tile["names"]
            prefix = folder + "".join(outer)
            paths = [(seen(entry["path"]), int(entry["length"])) for entry in entries]
            if name == "entries here":
                found = [size for path, size in paths if path.rpartition("/")[0] + "/" == prefix]
            else:
                found = [size for path, size in paths if path.startswith(prefix + name)]
            tile["bytes"], tile["entries"] = sum(found), len(found)
            noun = "entry" if len(found) == 1 else "entries"
            self.assertEqual(tile["label"],
                             f"{name}: {sum(found):,} bytes, {len(found)} {noun}")
        for _, box in itertools.groupby(sorted(tiles, key=lambda tile: tile["box"]),
                                        key=lambda tile: tile["box"]):
            box = list(box)
            whole = sum(tile[measure] for tile in box)
            for tile in box:
                self.assertAlmostEqual(tile["area"] / tile["box_area"], tile[measure] / whole,
                                       delta=0.002)
            for one, other in itertools.combinations(box, 2):
                overlap = [min(one[end], other[end]) - max(one[start], other[start])
                           for start, end in (("left", "right"), ("top", "bottom"))]
                self.assertLess(min(overlap), 0.1, (one, other))
        inside = [entry for entry in entries if seen(entry["path"]).startswith(folder)]
        outermost = [tile for tile in tiles if len(tile["names"]) == 1]
        self.assertEqual(sum(tile["entries"] for tile in outermost), len(inside))
        self.assertEqual(self.browser.texts("#found"), [f"{len(inside)} of {len(entries)} entries"])
        return tiles

    def test_the_treemap_adds_up_at_every_depth(self):
        depths = set()
        for number in (0, len(self.images) // 2, len(self.images) - 1):
            self.browser.choose_image(number)
            entries = entries_of(self.images[number])
            depth = 0
            while self.check_tiles(entries, "bytes"):
                folders = self.browser.find_all("#treemap > .tile > button")
                if not folders:
                    break
                folders[0].send_keys(Keys.ENTER)
                depth += 1
            depths.add(depth)
            for left in range(depth, 0, -1):
                crumbs = self.browser.find_all("#crumbs button")
                self.assertEqual(len(crumbs), left + 1)
                crumbs[-2].send_keys(Keys.ENTER)
            self.check_tiles(entries, "bytes")
        self.assertGreater(max(depths), 1)

    def test_areas_can_show_numbers_of_entries(self):
        self.browser.choose_image(0)
        self.browser.find('input[value="count"]').send_keys(Keys.SPACE)
        self.assertGreater(len(self.check_tiles(entries_of(self.images[0]), "entries")), 1)
        self.browser.find('input[value="bytes"]').send_keys(Keys.SPACE)
        self.check_tiles(entries_of(self.images[0]), "bytes")

    def test_the_page_refuses_to_load_and_to_run_anything(self):
        refused = self.browser.driver.execute_async_script("""
            const done = arguments[0], refused = [];
            document.addEventListener("securitypolicyviolation", (event) => {
              refused.push(event.effectiveDirective);
              if (refused.length === 3) done(refused.sort());
            });
            const add = (tag, properties) =>
              document.body.append(Object.assign(document.createElement(tag), properties));
            add("img", {src: "https://host.invalid/"});
            add("script", {textContent: "window.harmed = 1"});
            fetch("https://host.invalid/").catch(() => {});
        """)
        self.assertEqual(refused, ["connect-src", "img-src", "script-src-elem"])
        self.assertIsNone(self.browser.script("return window.harmed"))
        for message in self.browser.console():
            self.assertIn("Content Security Policy", message)

    def test_the_same_documents_give_the_same_page(self):
        again = self.page.with_name("again.html")
        self.make_report(again)
        self.assertEqual(again.read_bytes(), self.page.read_bytes())


def image_document(entries, before=b""):
    """An image document. The entries are paths or (path, length), as bytes as they stand in it."""
    rows = []
    for number, entry in enumerate(entries, start=1):
        path, length = entry if isinstance(entry, tuple) else (entry, b"1")
        fields = [b"%d" % number, length, *[b"0"] * 7, path, b"owner"]
        rows.append(b"{" + b", ".join(b'"%s": "%s"' % (key.encode(), field)
                                      for key, field in zip(ENTRY_KEYS, fields)) + b"}")
    array = b"[" + b", ".join(rows) + b"]" if rows else b'""'
    return b"{" + before + b'"fentries": ' + array + b"}\n"


def set_list(*sets):
    return json.dumps({"backup_sets": [{"BackupCreateTime": time, "BackupSize": size}
                                       for time, size in sets] or ""}).encode()


class NastyDocuments(PageCase):
    OUTPUT_DIR = "<b>out ${policy}"

    # Each path as it stands in the document, and as the page shows it.
    PATHS = [
        (rb"\/<\/script><script>window.harmed=1<\/script>",
         "/</script><script>window.harmed=1</script>"),
        (rb"\/<img src=x onerror=window.harmed=2>", "/<img src=x onerror=window.harmed=2>"),
        (rb"\/<!--<script>\/' onclick='alert(1)", "/<!--<script>/' onclick='alert(1)"),
        (rb"\/\"quotes\" & &lt;entities&gt; ${data} $style", '/"quotes" & &lt;entities&gt; '
         "${data} $style"),
        (b"\\/caf\xe9\\/\xff\xc3", "/caf\\xE9/\\xFF\\xC3"),
        (rb"\/caf\\xE9", "/caf\\xE9"),
        ("\\/caf\u00e9 \U0001f5c4".encode(), "/caf\u00e9 \U0001f5c4"),
        ("\\/two\u2028lines".encode(), "/two\\u2028lines"),
        ("\\/\u202egpj.exe".encode(), "/\\u202Egpj.exe"),
        (rb"\/tab\tnewline\n\u0000\u001B", "/tab\\u0009newline\\u000A\\u0000\\u001B"),
        (rb"\/__proto__\/constructor\/toString", "/__proto__/constructor/toString"),
        (rb"\/\/double\/\/", "//double//"),
        (rb"\/  blanks  ", "/  blanks  "),
        (rb"relative", "relative"),
        (b"", ""),
        (b"\\/" + b"long" * 5000, "/" + "long" * 5000),
    ]
    METADATA = (rb'"client": "<b>c<\/b>", "client": "second", "policy": {"name": "<i>p<\/i>"},'
                rb' "fentries": "of the product", "<u>key<\/u>": ["\u0007", {"x": ""}],'
                b' "raw": "\xe9", ')

    @classmethod
    def make_documents(cls):
        here = os.fsencode(cls.directory)
        documents = {
            b"backup_sets.json": set_list(
                ("9223372036854775807", "18446744073709551615"), ("1600086400", "9007199254740993"),
                ("1600000000", "0"), ("0", "512"), ("-5", "1"), ("-9223372036854775808", "2")),
            b"1600086400/evil_1.json": image_document([path for path, _ in cls.PATHS],
                                                      cls.METADATA),
            b"both/backup_sets.json": set_list(("1600000300", "10"), ("1600000200", "20"),
                                               ("1600000100", "30")),
            b"both/1600000300/a_1.json": image_document([b"x"], b'"policy": "P", '),
            b"both/1600000200/b_1.json": image_document([b"x"]),
            b"empty_2.json": image_document([]),
            b"large_3.json": image_document([(rb"\/a\/x", b"18446744073709551615"),
                                             (rb"\/a\/y", b"18446744073709551614"),
                                             (rb"\/b\/z", b"-1"), (rb"\/b\/z", b"many")]),
            b"lists/none/backup_sets.json": set_list(),
            b"lists/numbers/backup_sets.json": set_list(("1e3", "0")),
            b"lists/text/backup_sets.json": b'{"backup_sets": "text"}',
            b"lists/cut/backup_sets.json": set_list(("1600000000", "1"))[:-9],
            b"broken/<img src=x onerror=window.harmed=3>.json": image_document([b"x"])[:-20],
            b"broken/name\xe9.json": b"",
            b"broken/array.json": b"[]",
            b"broken/deep.json": b'{"a":' * 100000,
            b"broken/no-entries.json": b'{"backup_id": "a_1"}',
            b"broken/short.json": b'{"fentries": [{"path": "x"}]}',
        }
        for name, content in documents.items():
            path = os.path.join(here, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(content)

    def choose(self, image_id):
        ids = [option.split(" ")[0] for option in self.browser.texts("#image-choice option")]
        self.browser.choose_image(ids.index(image_id))

    def tearDown(self):
        self.assertIsNone(self.browser.script("return window.harmed"))
        self.assertEqual(self.browser.script(
            "return document.querySelectorAll('img, i, u, main script, [onclick]').length"), 0)
        super().tearDown()

    def test_what_cannot_be_read_is_told(self):
        self.assertTrue(self.browser.find("#skipped").is_displayed())
        self.assertEqual(self.browser.texts("#skipped-list li"), [
            "broken/<img src=x onerror=window.harmed=3>.json not JSON, or cut off, at line 1",
            "broken/array.json not an object",
            "broken/deep.json nested too deeply",
            "broken/name\\xE9.json not JSON, or cut off, at line 1",
            'broken/no-entries.json not an image: there is no "fentries"',
            'broken/short.json not an image: its "fentries" are no file entries',
            "lists/cut/backup_sets.json not JSON, or cut off, at line 1",
            "lists/numbers/backup_sets.json not a list of backup sets",
            "lists/text/backup_sets.json not a list of backup sets",
        ])

    def test_the_rest_is_shown(self):
        self.assertEqual(self.browser.texts("#title"), [self.OUTPUT_DIR])
        self.assertEqual(self.browser.driver.title, f"{self.OUTPUT_DIR} – backup report")
        self.assertEqual(self.browser.texts("#summary"),
                         ["9 backup sets · 5 images · 22 file entries"])

    def test_every_path_is_shown_as_text(self):
        self.choose("evil_1")
        self.browser.sort_by("filenum")
        self.assertEqual([row[1] for row in self.browser.rows()],
                         [shown for _, shown in self.PATHS])

    def test_every_path_is_in_its_folder(self):
        self.choose("evil_1")
        self.assertEqual([tile["label"] for tile in self.browser.tiles()
                          if len(tile["names"]) == 1],
                         ["/: 14 bytes, 14 entries", "entries here: 2 bytes, 2 entries"])

    def test_a_byte_that_is_no_utf_8_is_told_from_its_escape(self):
        self.choose("evil_1")
        search = self.browser.find("#search")
        search.send_keys("\\xe9")
        rows = self.browser.script("""return [...document.querySelectorAll(".cell.path")].slice(1)
            .map((cell) => [cell.textContent, [...cell.children].map((one) => one.textContent)])""")
        self.assertCountEqual(rows, [["/caf\\xE9/\\xFF\\xC3", ["\\xE9", "\\xFF", "\\xC3"]],
                                     ["/caf\\xE9", []]])

    def test_a_chosen_entry_shows_its_eleven_fields(self):
        self.choose("evil_1")
        self.browser.find("#search").send_keys("longlong")
        self.browser.find("#table").send_keys(Keys.ARROW_DOWN)
        self.assertEqual(self.browser.texts("#entry-details dt"), ENTRY_KEYS)
        self.assertEqual(self.browser.texts("#entry-details dd"),
                         ["16", "1", *["0"] * 7, "/" + "long" * 5000, "owner"])

    def test_metadata_keep_keys_that_come_twice(self):
        self.choose("evil_1")
        self.assertEqual(self.browser.table("#metadata table"), [
            ["client", "<b>c</b>"], ["client", "second"], ["policy.name", "<i>p</i>"],
            ["fentries", "of the product"], ["<u>key</u>[0]", "\\u0007"],
            ["<u>key</u>[1].x", ""], ["raw", "\\xE9"]])

    def test_sets_keep_every_digit_and_times_that_are_no_dates(self):
        self.browser.find("#set-table summary").click()
        self.browser.wait("#set-table tbody tr")
        self.assertEqual(self.browser.table("#set-table table")[1:], [
            [".", "", "9223372036854775807", "16.0 EiB", "18446744073709551615", "", "", "", "0"],
            [".", "2020-09-14 12:26:40 UTC", "1600086400", "8.0 PiB", "9007199254740993", "second",
             "<i>p</i>", "", "1"],
            [".", "2020-09-13 12:26:40 UTC", "1600000000", "0 B", "0", "", "", "", "0"],
            [".", "", "0", "512 B", "512", "", "", "", "0"],
            [".", "", "-5", "1 B", "1", "", "", "", "0"],
            [".", "", "-9223372036854775808", "2 B", "2", "", "", "", "0"],
            ["both", "2020-09-13 12:31:40 UTC", "1600000300", "10 B", "10", "a", "P", "", "1"],
            ["both", "2020-09-13 12:30:00 UTC", "1600000200", "20 B", "20", "b", "", "", "1"],
            ["both", "2020-09-13 12:28:20 UTC", "1600000100", "30 B", "30", "", "", "", "0"]])
        self.assertEqual(len(self.browser.texts(".set")), 9)
        self.assertIn("no date", self.browser.texts("#timeline text"))

    def test_a_list_of_several_series_has_several_lanes(self):
        self.assertEqual(self.browser.lanes(), [
            ["second", "6 sets · <i>p</i>"], ["a", "1 set · P"], ["b", "1 set"], ["both", "1 set"]])

    def test_an_image_without_entries(self):
        self.choose("empty_2")
        self.assertEqual(self.browser.texts("#image-total"), ["0 entries, 0 bytes"])
        self.assertEqual(self.browser.texts("#treemap"), ["This image has no entries."])
        self.assertEqual(self.browser.rows(), [])

    def test_lengths_keep_every_digit(self):
        self.choose("large_3")
        # 2 * 2^64 - 3 below /a, and -1 + 0 below /b: what is no number counts 0.
        self.assertEqual(self.browser.texts("#image-total"),
                         ["4 entries, 36,893,488,147,419,103,228 bytes"])
        self.assertEqual([tile["label"] for tile in self.browser.tiles()],
                         ["a/: 36,893,488,147,419,103,229 bytes, 2 entries"])
        self.assertEqual([row[2] for row in self.browser.rows()],
                         ["18446744073709551615", "18446744073709551614", "many", "-1"])

    def test_a_directory_that_is_not_there(self):
        result = subprocess.run([sys.executable, OPTIONS.report, "/no/such/directory"],
                                stderr=subprocess.PIPE, check=False)
        self.assertEqual((result.returncode, result.stderr),
                         (1, b"/no/such/directory is not a directory.\n"))


class LargeImage(PageCase):
    MOST_ROWS = 40

    @classmethod
    def make_documents(cls):
        make_catalogue(OPTIONS.generator, OPTIONS.root, seed=9, set=1, entries=100000)
        image = next(one for one in HostProduct(OPTIONS.root).images() if one.files)
        cls.export("dump_backup", cls.directory, backup_id=image.backup_id)
        cls.entries = entries_of(cls.directory / f"{image.backup_id}.json")

    def check_rows(self, entries):
        """The table says how many rows there are, and shows the first few of these entries."""
        self.assertEqual(self.browser.texts("#found"),
                         [f"{len(entries):,} of {len(self.entries):,} entries"])
        drawn = self.browser.drawn_rows()
        self.assertEqual(drawn, shown_rows(entries[:len(drawn)]))
        self.assertGreaterEqual(len(drawn), min(len(entries), 10))
        self.assertLess(len(drawn), self.MOST_ROWS)

    def test_searching_and_sorting(self):
        self.assertEqual(len(self.entries), 100000)
        by_length = sorted(self.entries, key=lambda entry: -int(entry["length"]))
        self.check_rows(by_length)
        search = self.browser.find("#search")
        typed = ""
        for key in "FILE-4242":
            search.send_keys(key)
            typed += key.lower()
            self.check_rows([entry for entry in by_length if typed in entry["path"].lower()])
        self.browser.sort_by("path")
        found = [entry for entry in self.entries if typed in entry["path"].lower()]
        self.assertEqual(len(found), 11)
        by_path = sorted(found, key=lambda entry: entry["path"])
        self.check_rows(by_path)
        self.browser.sort_by("path")
        self.check_rows(by_path[::-1])
        search.clear()
        self.browser.sort_by("length")
        self.check_rows(by_length)
        self.browser.sort_by("length")
        self.check_rows(sorted(self.entries, key=lambda entry: int(entry["length"])))
        self.browser.sort_by("filenum")
        self.check_rows(self.entries)

        table = self.browser.find("#table")
        table.send_keys(Keys.END)
        self.assertEqual(self.browser.drawn_rows()[-1], shown_rows(self.entries[-1:])[0])
        self.assertLess(len(self.browser.drawn_rows()), self.MOST_ROWS)
        self.assertEqual(self.browser.texts("#entry-details dd"),
                         [seen(self.entries[-1][key]) for key in ENTRY_KEYS])
        self.browser.script("const table = document.getElementById('table');"
                            "table.scrollTop = 50000 * 30")
        self.browser.wait('.row[aria-rowindex="50002"]')
        self.assertIn(shown_rows(self.entries[50000:50001])[0], self.browser.drawn_rows())
        self.assertLess(len(self.browser.drawn_rows()), self.MOST_ROWS)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--root", required=True, help="the install root that it was built for")
    parser.add_argument("--generator", required=True, help="make_catalogue of the stand-in")
    parser.add_argument("--report", required=True, help="make_report.py")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])
