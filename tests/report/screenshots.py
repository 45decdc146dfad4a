"""Pictures of a page of quillmere-report: its nights in light, the folders and files of an image in dark.
screenshots.py PAGE FOLDER"""

import pathlib
import sys

from browser import Browser


def main():
    page, folder = map(pathlib.Path, sys.argv[1:])
    with Browser() as browser:
        browser.size(1280, 900)
        for scheme, section in (("light", "main"), ("dark", "#image")):
            browser.scheme(scheme)
            browser.open(page.resolve())
            browser.script("document.querySelector(arguments[0]).scrollIntoView()", section)
            browser.driver.save_screenshot(str(folder / f"report-{scheme}.png"))


if __name__ == "__main__":
    main()
