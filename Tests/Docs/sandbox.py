"""Runs what the documents tell to run, in a folder that looks like a built source tree."""

import os
import pathlib
import queue
import re
import shlex
import signal
import subprocess
import tempfile
import threading
import time

from blocks import ROOT

COMMAND = pathlib.Path(os.environ.get("FERROX_COMMAND", ROOT / "build/bin/ferrox")).resolve()
EXAMPLES = pathlib.Path(os.environ.get("FERROX_EXAMPLES", ROOT / "build/release/Examples")).resolve()
PATIENCE = 60
# A node, and what the documents' first program tells when it met it.
SUITE_1 = "ferrox run --computer-name 'Suite 1' --device-uuid 11111111-1111-4111-8111-111111111111"
MET_SUITE_1 = "met 11111111111141118111111111111111-"


class Sandbox:
    def __enter__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="ferrox-docs-")
        self.place = pathlib.Path(self._folder.name)
        for folder in ("build/bin", "build/release", "media/live", "media/reel 1", "tmp"):
            (self.place / folder).mkdir(parents=True)
        (self.place / "build/bin/ferrox").symlink_to(COMMAND)
        (self.place / "build/release/Examples").symlink_to(EXAMPLES)
        (self.place / "scripts").symlink_to(ROOT / "scripts")
        (self.place / "media/live/index.m3u8").write_text("#EXTM3U\n")
        (self.place / "media/live/take.mov").write_bytes(b"\x00\x00\x00\x08ftyp" + b"\x00\x00\x00\x10mdat01234567")
        (self.place / "media/reel 1/clip.mov").write_bytes(b"0123456789")
        self.environment = {**os.environ, "PATH": f"{self.place}/build/bin:{os.environ['PATH']}"}
        return self

    def __exit__(self, *unused):
        self._folder.cleanup()

    def here(self, text):
        """Folders of a machine become folders of the sandbox."""
        # The sources may lie below such a folder too.
        there = rf"(?!{re.escape(str(ROOT))}/)(?!{re.escape(str(self.place))}/)"
        return re.sub(rf"(?<![\w/.:]){there}/(media|tmp)/", lambda found: f"{self.place}/{found[1]}/", text)

    def popen(self, text, stdin=subprocess.DEVNULL):
        return subprocess.Popen(["sh", "-euc", self.here(text)], cwd=self.place, env=self.environment, stdin=stdin,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True)

    def run(self, text, timeout=PATIENCE):
        """Runs a text to its end; returns exit status and output."""
        process = self.popen(text)
        try:
            output = process.communicate(timeout=timeout)[0]
            return process.returncode, output
        finally:
            end_group(process)

    def until_it_succeeds(self, line):
        """What looks for peers is asked again on a machine that is too busy for the few seconds it looks."""
        deadline = time.monotonic() + PATIENCE
        while True:
            status, output = self.run(line)
            if status == 0:
                return
            if time.monotonic() > deadline:
                raise AssertionError(f"{line}: exit status {status}\n{output}")


def end_group(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


class Terminal:
    """One line of a document that goes on until it is stopped."""

    def __init__(self, sandbox, line, stdin=subprocess.DEVNULL):
        self.line = line
        # In place of the shell, so that it gets the signals itself.
        self.process = sandbox.popen("exec " + line, stdin)
        self.lines = queue.Queue()
        self.seen = []
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def wait_for(self, text, patience=PATIENCE):
        deadline = time.monotonic() + patience
        while not any(text in line for line in self.seen):
            try:
                line = self.lines.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                line = None
            if line is None:
                raise AssertionError(f"{self.line}: no \"{text}\"; seen: {''.join(self.seen)}")
            self.seen.append(line)

    def read_to_the_end(self):
        while (line := self.lines.get(timeout=PATIENCE)) is not None:
            self.seen.append(line)

    def interrupt(self):
        """As Control-C does; returns the exit status."""
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(timeout=PATIENCE)

    def close(self):
        end_group(self.process)
        self._reader.join(timeout=PATIENCE)
        self.process.stdout.close()
        if self.process.stdin:
            self.process.stdin.close()


def meet(node, program):
    """Waits until SUITE_1, which observes "Hello", and the documents' first program met; then both are ended."""
    try:
        program.wait_for(MET_SUITE_1)
        node.wait_for("Hello from")
    finally:
        program.close()
        node.close()


def stays(line):
    """Whether a command goes on until it is stopped."""
    words = shlex.split(line)
    return words[0].endswith("ferrox") and words[1] in ("run", "watch") or "/Examples/" in words[0]
