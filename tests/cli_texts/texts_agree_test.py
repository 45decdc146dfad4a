#!/usr/bin/env python3
"""Holds all that is written about the command line against each other: the manual page, the usage
text, the completions, and what the program accepts and reports.
"""

import argparse
import pathlib
import re
import string
import subprocess
import sys
import unittest

from shells import bash_offers

OPTIONS = argparse.Namespace()

# Options that the program accepts and the usage text leaves out, and why.
LEFT_OUT_OF_THE_USAGE = {
    "--verbose": "the text is a summary of what each action takes, and every action takes this",
    "--help": "as --verbose; who reads the text has found it",
    "-h": "as --help",
}
# Of these, the synopsis of the manual page has the one that goes together with an action.
SYNOPSIS_BESIDE_THE_USAGE = {"--verbose"}

OPTION = re.compile(r"(?<![\w-])--?[a-z][a-z_]*")


def run(*arguments):
    command = [OPTIONS.program, *arguments]
    result = subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)
    return result.returncode, result.stdout, result.stderr


# --- The program -------------------------------------------------------------------------------


def sources():
    return {path: path.read_text() for path in sorted(OPTIONS.source.rglob("*.cpp"))}


def quoted_words():
    """Each word that stands in quotation marks in the sources, without dashes in front of it."""
    return {word for text in sources().values() for word in re.findall(r'"-{0,2}(\w+)"', text)}


def accepts(option):
    """Whether the program takes `option`, as its only argument, for an option."""
    status, stdout, stderr = run(option)
    if stderr == f"unrecognized parameter: {option}\n":
        return False
    if stderr not in ("", f"missing value for <{option[2:]}> parameter.\n"):
        raise AssertionError(f"{option}: status {status}, {stdout!r}, {stderr!r}")
    return True


def is_action(name):
    # Behind the action, --help keeps it from being run.
    status, _, stderr = run("--action", name, "--help")
    if (status, stderr) not in ((0, ""), (1, f"unknown action value: {name}\n")):
        raise AssertionError(f"{name}: status {status}, {stderr!r}")
    return status == 0


def accepted_options(candidates):
    """The options that the program accepts, among the candidates, all single letters, and all
    words that its sources quote."""
    words = {f"--{word}" for word in quoted_words()}
    letters = {f"-{letter}" for letter in string.ascii_letters + string.digits}
    return {option for option in candidates | words | letters if accepts(option)}


def accepted_actions(candidates):
    return {name for name in candidates | quoted_words() if is_action(name)}


def reported_messages():
    """A pattern for each message that the sources write to standard error."""
    texts = []
    for source in sources().values():
        for statement in re.findall(r"std::cerr((?:\s*<<\s*(?:\"(?:\\.|[^\"])*\"|'[^']*'|[^;\"'<]+))+);",
                                    source):
            parts = re.findall(r"<<\s*(\"(?:\\.|[^\"])*\"|'[^']*'|[^;\"'<]+)", statement)
            texts.append([unquoted(part) for part in parts])
        # The one message that is made in a function of its own.
        for parameter in re.findall(r'MissingParameter\("([^"]*)"\)', source):
            texts.append([f'missing " {parameter} " parameter.'])
    return {"".join(text).rstrip("\n") for text in texts} - {'missing " * " parameter.'}


def unquoted(part):
    """The text of a literal; an asterisk for a value."""
    if part[0] not in "\"'":
        return "*"
    return part[1:-1].encode().decode("unicode_escape")


def thrown_messages():
    return {text for source in sources().values()
            for text in re.findall(r'json_parser_error\("([^"]+)"', source)}


# --- The usage text ----------------------------------------------------------------------------


def usage_summaries():
    """For each action, its options with whether it can do without them."""
    summaries = {}
    for line in run("--help")[1].splitlines()[1:]:
        name, summary = re.fullmatch(r"quillmere --action (\w+)(.*)", line).groups()
        summaries[name] = {option: f"[{option} " in summary for option in OPTION.findall(summary)}
    return summaries


# --- The manual page ---------------------------------------------------------------------------


def page_section(name, of="Sh"):
    """The lines of a section of the page, or of a subsection."""
    ends = r"\.Sh" if of == "Sh" else r"\.S[hs]"
    found = re.search(rf"^\.{of} {name}\n(.*?)(?=^{ends}|\Z)", OPTIONS.man_page.read_text(),
                      re.DOTALL | re.MULTILINE)
    return found[1].splitlines()


def page_options(lines):
    """The options that are named in lines of the page."""
    return {"-" + name for line in lines if line.startswith(".")
            for name in re.findall(r"(?<= |\.)Fl (\S+)", line)}


def page_items(lines, macro=""):
    """The items of a list: the rest of the line that begins each, and the lines below it."""
    items = []
    for line in lines:
        if line.startswith(f".It {macro}"):
            items.append((line.removeprefix(f".It {macro}").strip(), []))
        elif items:
            items[-1][1].append(line)
    return items


def synopsis():
    """For each action, its options with whether it can do without them."""
    summaries = {}
    for block in "\n".join(page_section("SYNOPSIS")).split(".Nm\n")[1:]:
        lines = block.splitlines()
        if found := re.fullmatch(r"\.Fl -action Cm (\w+)", lines[0]):
            summaries[found[1]] = {option: line.startswith(".Op") for line in lines[1:]
                                   for option in page_options([line])}
    return summaries


def plain(mdoc):
    """The text of a line of the page, with an asterisk for each argument."""
    text = re.sub(r"\bAr \S+", "*", mdoc)
    text = re.sub(r" ?\bNs ", "", text)
    return text.replace(r"\(dq", '"').replace(r"\&", "")


def page_messages():
    lines = page_section("DIAGNOSTICS")
    return [plain(head) for head, _ in page_items(lines[:lines.index(".Ss Exceptions")])]


# --- The completions ---------------------------------------------------------------------------


def bash_options(*words):
    return set(bash_offers(OPTIONS.bash, *words, "")[0])


def zsh_table(name):
    """An associative array of the completion for zsh."""
    found = re.search(rf"^  local -A {name}=\(\n(.*?)^  \)$", OPTIONS.zsh.read_text(),
                      re.DOTALL | re.MULTILINE)
    return dict(re.findall(r"^ +(\S+) +'(.*)'$", found[1], re.MULTILINE))


def zsh_list(name):
    found = re.search(rf"^  local -a {name}=\(\n(.*?)^  \)$", OPTIONS.zsh.read_text(),
                      re.DOTALL | re.MULTILINE)
    return set(re.findall(r"(?:^ +| )['\"]([\w-]+):", found[1], re.MULTILINE))


class Options(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.of_usage = {option for taken in usage_summaries().values() for option in taken}
        cls.of_usage |= set(OPTION.findall(run("--help")[1]))
        cls.of_page = page_options(page_section("DESCRIPTION"))
        cls.of_page_s_list = {option for head, _ in page_items(page_section("Options", "Ss"), "Fl")
                              for option in page_options([f".Fl {head}"])}
        cls.of_bash = bash_options()
        cls.of_zsh = zsh_list("options") | set(zsh_table("meaning_of"))
        cls.accepted = accepted_options(
            cls.of_usage | cls.of_page | cls.of_page_s_list | cls.of_bash | cls.of_zsh
            | LEFT_OUT_OF_THE_USAGE.keys())

    def test_the_usage_names_all_but_those_that_it_leaves_out(self):
        self.assertEqual(self.of_usage | LEFT_OUT_OF_THE_USAGE.keys(), self.accepted)
        self.assertEqual(self.of_usage & LEFT_OUT_OF_THE_USAGE.keys(), set())

    def test_the_manual_page_describes_all(self):
        self.assertEqual(self.of_page_s_list, self.accepted)

    def test_the_manual_page_names_no_other(self):
        named = page_options(OPTIONS.man_page.read_text().splitlines())
        self.assertEqual(named, self.accepted)
        for line in OPTIONS.man_page.read_text().splitlines():
            for option in re.findall(r"--[a-z][a-z_]*", line):
                self.assertIn(option, self.accepted, line)

    def test_bash_offers_all(self):
        self.assertEqual(self.of_bash, self.accepted)

    def test_zsh_offers_all(self):
        self.assertEqual(self.of_zsh, self.accepted)


class Actions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.of_usage = set(usage_summaries())
        cls.of_synopsis = set(synopsis())
        cls.of_page_s_list = {head for head, _ in page_items(page_section("Actions", "Ss"), "Cm")}
        cls.of_bash = bash_options("--action")
        cls.of_zsh = zsh_list("actions")
        cls.accepted = accepted_actions(
            cls.of_usage | cls.of_synopsis | cls.of_page_s_list | cls.of_bash | cls.of_zsh)

    def test_the_usage_names_all(self):
        self.assertEqual(self.of_usage, self.accepted)

    def test_the_manual_page_names_all(self):
        self.assertEqual(self.of_synopsis, self.accepted)
        self.assertEqual(self.of_page_s_list, self.accepted)

    def test_the_manual_page_names_no_other(self):
        for name in re.findall(r"\bCm (\S+)", OPTIONS.man_page.read_text()):
            self.assertIn(name, self.accepted)

    def test_bash_offers_all(self):
        self.assertEqual(self.of_bash, self.accepted)

    def test_zsh_offers_all(self):
        self.assertEqual(self.of_zsh, self.accepted)
        self.assertEqual(set(zsh_table("taken_by")), self.accepted)


class OptionsOfEachAction(unittest.TestCase):
    """The usage says which options an action takes, and which it cannot do without."""

    @classmethod
    def setUpClass(cls):
        cls.summaries = usage_summaries()
        cls.always = LEFT_OUT_OF_THE_USAGE.keys() | {"--action"}

    def test_they_are_those_of_the_synopsis(self):
        beside = {option: True for option in SYNOPSIS_BESIDE_THE_USAGE}
        self.assertEqual(synopsis(), {action: taken | beside
                                      for action, taken in self.summaries.items()})

    def test_they_are_those_of_the_manual_page_s_description(self):
        described = {action: page_options(lines) for action, lines
                     in page_items(page_section("Actions", "Ss"), "Cm")}
        self.assertEqual(described, {action: set(taken)
                                     for action, taken in self.summaries.items()})

    def test_they_are_those_that_bash_offers(self):
        for action, taken in self.summaries.items():
            self.assertEqual(bash_options("--action", action), self.always | set(taken))

    def test_they_are_those_that_zsh_offers(self):
        self.assertEqual({action: set(options.split())
                          for action, options in zsh_table("taken_by").items()},
                         {action: set(taken) for action, taken in self.summaries.items()})

    def test_an_action_reports_what_it_cannot_do_without(self):
        for action, taken in self.summaries.items():
            needed = [option for option, without in taken.items() if not without]
            if needed:
                message = f'missing " {needed[0]} <{needed[0][2:]}> " parameter.\n'
                self.assertEqual(run("--action", action), (1, "", message))


class Messages(unittest.TestCase):
    """The diagnostics that the sources hold and those of the manual page."""

    def test_the_manual_page_explains_each(self):
        self.assertGreater(len(reported_messages()), 10)
        self.assertEqual(set(page_messages()), reported_messages())

    def test_no_diagnostic_is_explained_twice(self):
        self.assertEqual(len(page_messages()), len(set(page_messages())))

    def test_the_manual_page_explains_each_exception_of_the_tool_s_own(self):
        explained = {head for head, _ in page_items(page_section("Exceptions", "Ss"))}
        self.assertEqual(thrown_messages() - explained, set())
        self.assertNotEqual(thrown_messages(), set())


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the tool")
    parser.add_argument("--source", required=True, type=pathlib.Path, help="its sources")
    parser.add_argument("--man-page", required=True, type=pathlib.Path)
    parser.add_argument("--bash", required=True, type=pathlib.Path, help="the completion for bash")
    parser.add_argument("--zsh", required=True, type=pathlib.Path, help="the completion for zsh")
    parser.parse_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1])
