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
import tempfile
import time
import unittest

import own_network
from blocks import DOCUMENTS, ROOT, all_blocks, blocks_of
from sandbox import COMMAND, PATIENCE, Sandbox, Terminal, stays

SUITE_1 = "ferrox run --computer-name 'Suite 1' --device-uuid 11111111-1111-4111-8111-111111111111"
LANGUAGES = {"sh", "text", "cpp", "cmake", "json", "http", "graphql"}


def setUpModule():
    own_network.enter()


def lines_of(block):
    joined = block.text.replace("\\\n", " ")
    return [line for line in joined.splitlines() if line.strip() and not line.startswith("#")]


def until_it_succeeds(sandbox, line):
    """What looks for peers is asked again on a machine that is too busy for the few seconds it looks."""
    deadline = time.monotonic() + PATIENCE
    while True:
        status, output = sandbox.run(line)
        if status == 0:
            return output
        if time.monotonic() > deadline:
            raise AssertionError(f"{line}: exit status {status}\n{output}")


def run_terminals(sandbox, block):
    terminals = []
    try:
        for line in lines_of(block):
            if not stays(line):
                until_it_succeeds(sandbox, line)
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


class Programs(unittest.TestCase):
    def test_blocks_of_programs_are_the_sources_that_are_compiled(self):
        blocks = all_blocks("cpp")
        for block in blocks:
            self.assertIn(block.key, ("file", "part of"), f"{block}: where does it stand?")
            source = [line.strip() for line in (ROOT / block.value).read_text().splitlines()]
            shown = [line.strip() for line in block.text.splitlines()]
            if block.key == "file":
                self.assertEqual(shown, source, f"{block}")
            else:
                starts = range(len(source) - len(shown) + 1)
                self.assertTrue(any(source[at:at + len(shown)] == shown for at in starts), f"{block}")
        self.assertGreater(len(blocks), 0)

    def test_the_first_program_meets_a_peer(self):
        with Sandbox() as sandbox:
            node = Terminal(sandbox, SUITE_1 + " --observe Hello")
            program = Terminal(sandbox, "build/release/Examples/meet")
            try:
                program.wait_for("met 11111111111141118111111111111111-")
                node.wait_for("Hello from")
                until_it_succeeds(sandbox, "ferrox post Hello")
                program.wait_for("hello from")
            finally:
                program.close()
                node.close()

    def test_the_program_with_a_loop_of_its_own_sends_and_receives(self):
        with Sandbox() as sandbox:
            node = Terminal(sandbox, SUITE_1 + " --observe Line")
            program = Terminal(sandbox, "build/release/Examples/own_loop", stdin=subprocess.PIPE)
            try:
                program.wait_for("ready")
                program.wait_for("connected")
                # Two in one piece, and one that comes in two.
                program.process.stdin.write("scene 1\nscene 2\nsce")
                program.process.stdin.flush()
                node.wait_for('"scene 2"')
                program.process.stdin.write("ne 3\n")
                program.process.stdin.flush()
                node.wait_for('"scene 3"')
                self.assertTrue(any('"scene 1"' in line for line in node.seen))
                until_it_succeeds(sandbox, """ferrox post Line --user-info '{"text": "cut"}'""")
                program.wait_for("cut")
                program.process.stdin.close()
                self.assertEqual(program.process.wait(timeout=PATIENCE), 0)
            finally:
                program.close()
                node.close()

    def test_blocks_of_cmake_configure(self):
        for block in all_blocks("cmake"):
            with tempfile.TemporaryDirectory() as folder:
                os.symlink(ROOT, f"{folder}/ferrox")
                with open(f"{folder}/main.cpp", "w", encoding="ascii") as file:
                    file.write("int main() {}\n")
                with open(f"{folder}/CMakeLists.txt", "w", encoding="ascii") as file:
                    file.write(block.text)
                done = subprocess.run(["cmake", "-S", folder, "-B", f"{folder}/build"], capture_output=True, text=True,
                                      timeout=PATIENCE, check=False)
                self.assertEqual(done.returncode, 0, f"{block}:\n{done.stderr}")


if __name__ == "__main__":
    unittest.main()
