"""Every command that the documents show runs as it is shown.

A block of shell runs from its first line to its last and must succeed. Markers above it say otherwise:

    <!-- terminals: TEXT | ... -->  each line in a terminal of its own, all at the same time; what goes on until it
                                    is stopped is interrupted in the end, after the first of these showed the
                                    first text, and so on
    <!-- named only: REASON -->     takes too long for a test, or is the test: only what it names is looked for
"""

import json
import os
import re
import shlex
import subprocess
import unittest

import own_network
from blocks import DOCUMENTS, ROOT, all_blocks, blocks_of
from sandbox import COMMAND, PATIENCE, Sandbox, Terminal, stays

LANGUAGES = {"sh", "text", "cpp", "cmake", "make", "json", "http", "graphql"}


def setUpModule():
    own_network.enter()


def lines_of(block):
    joined = block.text.replace("\\\n", " ")
    return [line for line in joined.splitlines() if line.strip() and not line.startswith("#")]


def run_terminals(sandbox, block):
    terminals = []
    try:
        for line in lines_of(block):
            if not stays(line):
                sandbox.until_it_succeeds(line)
                continue
            terminals.append(Terminal(sandbox, line))
            if "ferrox run" in line:
                terminals[-1].wait_for("runs on port" if "--discovery off" in line else "visible to others")
        for terminal, text in zip(terminals, filter(None, block.value.split(" | "))):
            terminal.wait_for(text)
        for terminal in reversed(terminals):
            status = terminal.interrupt()
            if "ferrox run" in terminal.line and status != 0:
                raise AssertionError(f"{terminal.line}: exit status {status}\n{''.join(terminal.seen)}")
    finally:
        for terminal in terminals:
            terminal.close()


def presets(kind):
    return {preset["name"] for preset in json.loads((ROOT / "CMakePresets.json").read_text())[kind]}


class Commands(unittest.TestCase):
    def check_named(self, block):
        self.assertTrue(block.value, f"{block}: a reason why it is not run")
        commands = [part.strip() for line in lines_of(block) for part in re.split("&&|;|\\|", line)]
        for command in commands:
            words = [word for word in shlex.split(command) if not re.fullmatch(r"\w+=.*", word)]
            if words[0].startswith("scripts/") or words[0].startswith(".ci/"):
                self.assertTrue(os.access(ROOT / words[0], os.X_OK), f"{block}: {words[0]}")
            elif words[:2] == ["cmake", "--preset"]:
                self.assertIn(words[2], presets("configurePresets"), f"{block}")
            elif words[:2] == ["cmake", "--build"]:
                self.assertIn(words[2].removeprefix("build/"), presets("buildPresets"), f"{block}")
            elif words[:2] == ["cmake", "--install"]:
                self.assertIn(words[2].removeprefix("build/"), presets("buildPresets"), f"{block}")
            elif words[:2] == ["ctest", "--preset"]:
                self.assertIn(words[2], presets("testPresets"), f"{block}")
            else:
                self.fail(f"{block}: {command} can be run, so it has to be")

    def test_every_block_of_shell_runs(self):
        ran = 0
        for block in all_blocks("sh"):
            with self.subTest(block=str(block)):
                if block.key == "named only":
                    self.check_named(block)
                    continue
                self.assertIn(block.key, ("", "terminals"), f"{block}: unknown marker")
                with Sandbox() as sandbox:
                    if block.key == "terminals":
                        run_terminals(sandbox, block)
                    else:
                        status, output = sandbox.run(block.text)
                        self.assertEqual(status, 0, f"{block}:\n{output}")
                ran += 1
        self.assertGreater(ran, 5)

    def test_no_block_is_of_a_kind_that_nobody_checks(self):
        for block in all_blocks():
            self.assertIn(block.language, LANGUAGES, f"{block}: give it a language")
        for document in DOCUMENTS:
            fences = re.findall(r"^ *```", document.read_text(), flags=re.MULTILINE)
            found = len(list(blocks_of(document)))
            self.assertEqual(len(fences), 2 * found, f"{document.name}: a fence that is indented or left open")

    def test_commands_in_running_text_have_the_subcommands_and_options_they_are_shown_with(self):
        helps = {}
        checked = 0
        for document in DOCUMENTS:
            for span in re.findall(r"`((?:build/bin/)?ferrox [a-z][^`]*)`", document.read_text()):
                words = re.split(r"[ =]", span)[1:]
                if words[0] not in helps:
                    helps[words[0]] = subprocess.run([COMMAND, words[0], "--help"], capture_output=True, text=True,
                                                     timeout=PATIENCE, check=False)
                self.assertEqual(helps[words[0]].returncode, 0, f"{document.name}: {span}")
                for option in [word for word in words if word.startswith("--")]:
                    self.assertRegex(helps[words[0]].stdout, rf"{option}\b", f"{document.name}: {span}")
                checked += 1
        self.assertGreater(checked, 20)

    def test_scripts_in_running_text_exist(self):
        for document in DOCUMENTS:
            for name in re.findall(r"`((?:scripts|\.ci)/[\w-]+)", document.read_text()):
                self.assertTrue((ROOT / name).exists(), f"{document.name}: {name}")


if __name__ == "__main__":
    unittest.main()
