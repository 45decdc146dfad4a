"""axe-core, which looks for what keeps people from reading a page: of npm, kept in the build folder."""

import pathlib
import shutil
import subprocess

VERSION = "4.10.2"


def axe_script(folder):
    """The script, installed where it is not there yet; None where it can't be had, after saying why."""
    script = pathlib.Path(folder) / "node_modules/axe-core/axe.min.js"
    if not script.exists():
        if shutil.which("npm") is None:
            print("skipped: there is no npm")
            return None
        pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        run = subprocess.run(["npm", "install", "--prefix", str(folder), "--no-save", "--no-audit",
                              "--no-fund", "--ignore-scripts", f"axe-core@{VERSION}"], check=False)
        if run.returncode != 0:
            print("skipped: npm can't install axe-core")
            return None
    return script.read_text(encoding="utf-8")


def violations(browser, script):
    """What axe finds: each rule with the first elements that break it."""
    browser.script(script)
    return browser.driver.execute_async_script("""
        const done = arguments[0];
        axe.run(document).then((result) => done(result.violations.map((one) =>
          [one.id, one.nodes.slice(0, 5).map((node) => [node.target.join(" "), node.any[0]?.message])])));
    """)
