"""A page in headless Chromium: what it shows, and what it did."""

import contextlib
import json
import pathlib
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

CHROMIUM = pathlib.Path("/usr/bin/chromium")
DRIVER = pathlib.Path("/usr/bin/chromedriver")

# No sandbox for root, as in a container; the rest keeps Chromium from calling home.
SWITCHES = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-dev-shm-usage"
            " disable-background-networking disable-component-update disable-sync"
            " window-size=1400,900").split()

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

# Each tile of the treemap: its label, its place in the map, and whether its text fits.
TILES = """
const map = document.getElementById("treemap").getBoundingClientRect();
return [...document.querySelectorAll(".tile")].map((tile) => {
  const place = tile.getBoundingClientRect();
  return {label: tile.getAttribute("aria-label"), kind: tile.className, tab: tile.tabIndex,
    left: place.left - map.left, top: place.top - map.top, width: place.width,
    height: place.height, right: map.right - place.right, bottom: map.bottom - place.bottom,
    fits: tile.scrollWidth <= tile.clientWidth && tile.scrollHeight <= tile.clientHeight,
    focused: tile === document.activeElement};
});
"""

# Each lane, from the first to the last, with the labels of its stops; all are drawn one after the other.
LANES = """
const done = arguments[0], box = document.getElementById("nights"), lanes = new Map();
const painted = () => new Promise((go) => requestAnimationFrame(() => requestAnimationFrame(go)));
(async () => {
  const [left, top] = [box.scrollLeft, box.scrollTop];
  for (let y = 0; ; y += 200) {
    for (let x = 0; ; x += 300) {
      box.scrollTo({left: x, top: y, behavior: "instant"});
      await painted();
      for (const lane of box.querySelectorAll(".lane")) {
        const name = lane.querySelector(".lane-name").title;
        if (!lanes.has(name)) lanes.set(name, new Map());
        for (const cell of lane.querySelectorAll(".night")) {
          lanes.get(name).set(cell.id, [Number(cell.id.split("-")[2]), cell.ariaLabel]);
        }
      }
      if (x + box.clientWidth >= box.scrollWidth) break;
    }
    if (y + box.clientHeight >= box.scrollHeight) break;
  }
  box.scrollTo({left, top, behavior: "instant"});
  await painted();
  done([...lanes].map(([name, cells]) =>
    [name, [...cells.values()].sort((a, b) => a[0] - b[0]).map(([, label]) => label)]));
})();
"""

# The active set, as a screen reader hears it, and whether it and its details are in the window.
ACTIVE = """
const box = document.getElementById("nights");
const cell = document.getElementById(box.getAttribute("aria-activedescendant"));
const inside = (element) => {
  const {top, bottom} = element.getBoundingClientRect();
  return top >= 0 && bottom <= innerHeight;
};
return {lane: cell.closest(".lane").querySelector(".lane-name").title, label: cell.ariaLabel,
  selected: document.querySelectorAll('.night[aria-selected="true"]').length === 1
    && cell.ariaSelected === "true",
  in_view: inside(cell), details_in_view: inside(document.getElementById("set-details")),
  details: document.getElementById("set-details").textContent};
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
        """Each lane of the nights, with the labels of its stops in their order."""
        return [tuple(lane) for lane in self.driver.execute_async_script(LANES)]

    def active(self):
        return self.script(ACTIVE)

    def bring_and_click(self, selector, block):
        """Scrolls an element to where `block` says, and clicks on what is there once all is drawn anew."""
        self.driver.execute_async_script("""
            const [selector, block, done] = arguments;
            const painted = () => new Promise((go) =>
              requestAnimationFrame(() => requestAnimationFrame(go)));
            (async () => {
              await painted();
              document.querySelector(selector).scrollIntoView({block});
              await painted();
              done();
            })();
        """, selector, block)
        self.find(selector).click()

    def press(self, *keys):
        """Types keys where the focus is."""
        self.driver.switch_to.active_element.send_keys(*keys)

    def size(self, width, height):
        """Makes the page's window so large."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def scheme(self, name):
        """Prefers "light" or "dark"."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": name}]})

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
