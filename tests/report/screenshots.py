"""Pictures of a page of quillmere-report, light and dark: screenshots.py PAGE FOLDER"""

import pathlib
import sys

from browser import Browser


def main():
    page, folder = map(pathlib.Path, sys.argv[1:])
    with Browser() as browser:
        browser.size(1280, 1180)
        for scheme in ("light", "dark"):
            browser.scheme(scheme)
            browser.open(page.resolve())
            browser.driver.save_screenshot(str(folder / f"report-{scheme}.png"))


if __name__ == "__main__":
    main()
