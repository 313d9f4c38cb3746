"""The command as a child process: one JSON object a line out and in, always waited for with a deadline."""

import json
import os
import queue
import signal
import subprocess
import threading
import time
import uuid

COMMAND = os.environ.get("FERROX_COMMAND", "build/bin/ferrox")


def run(*arguments, timeout=30, **options):
    """Runs to the end."""
    return subprocess.run([COMMAND, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=timeout, **options)


class Child:
    """A program that speaks one JSON object a line; every object it writes has an "event"."""

    def __init__(self, arguments, stderr=subprocess.PIPE):
        self.process = subprocess.Popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=stderr)
        self._lines = queue.Queue()
        self.seen = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self._lines.put(json.loads(line))
        self._lines.put(None)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(timeout=10)
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            if stream:
                try:
                    stream.close()
                except BrokenPipeError:
                    pass

    def wait(self, event, matches=lambda value: True, timeout=20):
        """The first event of that name that matches, of those already seen or yet to come."""
        for value in self.seen:
            if value["event"] == event and matches(value):
                return value
        deadline = time.monotonic() + timeout
        while True:
            try:
                value = self._lines.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                value = None
            if value is None:
                raise AssertionError(f"no {event} within {timeout} s; seen: {self.seen[-10:]}")
            self.seen.append(value)
            if value["event"] == event and matches(value):
                return value

    def drain(self, timeout=20):
        """Takes everything up to the end of the output into `seen`."""
        while (value := self._lines.get(timeout=timeout)) is not None:
            self.seen.append(value)

    def forget(self):
        """Later waits look only at what comes from now on."""
        while True:
            try:
                if self._lines.get_nowait() is None:
                    self._lines.put(None)
                    break
            except queue.Empty:
                break
        self.seen.clear()

    def send(self, line):
        if not isinstance(line, (str, bytes)):
            line = json.dumps(line)
        if isinstance(line, str):
            line = line.encode()
        self.process.stdin.write(line + b"\n")
        self.process.stdin.flush()

    def exit_status(self, timeout=15):
        return self.process.wait(timeout=timeout)

    def terminate(self, number=signal.SIGTERM, timeout=15):
        self.process.send_signal(number)
        return self.exit_status(timeout)


class Node(Child):
    """`ferrox run --json` on loopback, with an identity of its own."""

    def __init__(self, *options, name="Test Node", device=None, discovery="embedded", stderr=subprocess.PIPE):
        self.device = device or str(uuid.uuid4()).upper()
        arguments = ["--json", "--computer-name", name, "--device-uuid", self.device, "--discovery", discovery,
                     "--interface", "lo"]
        if "--port" not in options:
            arguments += ["--port", "0"]
        super().__init__([COMMAND, "run", *arguments, *options], stderr)

    def started(self):
        return self.wait("started")

    def ask(self, cmd, timeout=20, **members):
        ref = str(uuid.uuid4())
        self.send({"cmd": cmd, "ref": ref, **members})
        return self.wait("result", lambda value: value.get("ref") == ref, timeout)

    def about(self, other):
        """Matches events about the other node's service."""
        prefix = other.device.replace("-", "") + "-"
        return lambda value: value["service"]["name"].startswith(prefix)
