"""A page in headless Chromium: what it shows, and what it did."""

import contextlib
import json
import pathlib
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

CHROMIUM = pathlib.Path("/usr/bin/chromium")
DRIVER = pathlib.Path("/usr/bin/chromedriver")

# No sandbox for root, as in a container; the rest keeps Chromium from calling home.
SWITCHES = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-dev-shm-usage"
            " disable-background-networking disable-component-update disable-sync"
            " window-size=1400,1800").split()

# Each row of the table, by its number, while the table is scrolled from its top to its end.
ALL_ROWS = """
const done = arguments[0], table = document.getElementById("table"), rows = new Map();
const painted = () => new Promise((go) =>
  requestAnimationFrame(() => requestAnimationFrame(go)));
(async () => {
  for (let top = 0; ; top += table.clientHeight - 60) {
    table.scrollTop = top;
    await painted();
    for (const row of table.querySelectorAll("#table-rows .row")) {
      rows.set(row.ariaRowIndex, [...row.children].map((cell) => cell.textContent));
    }
    if (top + table.clientHeight >= table.scrollHeight) break;
  }
  table.scrollTop = 0;
  await painted();
  done([...rows].sort(([a], [b]) => a - b).map(([, row]) => row));
})();
"""

# Each tile, with the names from the outermost tile to it, the number of the element that it lies
# in, and its place there, in pixels.
TILES = """
const boxes = [];
return [...document.querySelectorAll(".tile")].map((tile) => {
  const box = tile.parentElement, names = [];
  for (let one = tile; one; one = one.parentElement.closest(".tile")) {
    names.unshift(one.querySelector(".name").textContent);
  }
  if (!boxes.includes(box)) boxes.push(box);
  const place = tile.getBoundingClientRect(), outer = box.getBoundingClientRect();
  return {names, box: boxes.indexOf(box), area: place.width * place.height,
    left: place.left - outer.left, top: place.top - outer.top, right: place.right - outer.left,
    bottom: place.bottom - outer.top, box_area: outer.width * outer.height,
    label: tile.querySelector(".label").getAttribute("aria-label")};
});
"""

CHOSEN_SET = """
const mark = document.querySelector(".set.chosen"), line = mark.querySelector("line");
return {facts: [...document.querySelectorAll("#set-details .fact")].map((one) => one.textContent),
  x: Number(line.getAttribute("x1")),
  height: Number(line.getAttribute("y1")) - Number(line.getAttribute("y2"))};
"""


class Browser(contextlib.ExitStack):
    """One Chromium, with a profile of its own, until it is closed."""

    def __init__(self):
        super().__init__()
        options = webdriver.ChromeOptions()
        options.binary_location = str(CHROMIUM)
        profile = self.enter_context(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))
        for switch in SWITCHES + ["user-data-dir=" + profile]:
            options.add_argument("--" + switch)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service(str(DRIVER)), options=options)
        self.callback(self.driver.quit)
        self.driver.set_script_timeout(60)

    def open(self, page):
        self.driver.get(page.as_uri())
        self.wait()

    def wait(self, selector='main[aria-busy="false"]'):
        """Until there is such an element; without one, until an image is shown."""
        WebDriverWait(self.driver, 30, 0.02).until(lambda _: self.find_all(selector))

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def find_all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return self.script("return [...document.querySelectorAll(arguments[0])]"
                           ".map((one) => one.textContent)", selector)

    def script(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def table(self, selector):
        """The texts of the cells of an HTML table, row by row."""
        return self.script("return [...document.querySelector(arguments[0]).rows].map((row) =>"
                           " [...row.cells].map((cell) => cell.textContent))", selector)

    def choose_image(self, number):
        Select(self.find("#image-choice")).select_by_value(str(number))
        self.wait()

    def sort_by(self, key):
        self.find(f'#table-head [data-key="{key}"] button').click()

    def rows(self):
        return self.driver.execute_async_script(ALL_ROWS)

    def drawn_rows(self):
        return self.script("return [...document.querySelectorAll('#table-rows .row')]"
                           ".map((row) => [...row.children].map((cell) => cell.textContent))")

    def tiles(self):
        return self.script(TILES)

    def lanes(self):
        """The names of the time line's lanes, with the line below each."""
        return self.script("return [...document.querySelectorAll('.lane')].map((lane) =>"
                           " [lane.firstChild.data, lane.nextSibling.firstChild.data])")

    def chosen_set(self):
        return self.script(CHOSEN_SET)

    def console(self):
        """The messages since the last call."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self, page):
        """The addresses that this page asked for since the last call, and did not refuse itself."""
        events = [json.loads(entry["message"])["message"]
                  for entry in self.driver.get_log("performance")]
        refused = {event["params"]["requestId"] for event in events
                   if event["params"].get("blockedReason") == "csp"}
        return [event["params"]["request"]["url"] for event in events
                if event["method"] == "Network.requestWillBeSent"
                and event["params"]["documentURL"] == page.as_uri()
                and event["params"]["requestId"] not in refused]
