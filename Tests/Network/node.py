"""Child processes that speak one JSON object a line: `ferrox run --json`, and the foreign peers beside it."""

import json
import os
import queue
import signal
import subprocess
import threading
import time

COMMAND = os.environ.get("FERROX_COMMAND", "build/bin/ferrox")
PYTHON = "/usr/bin/python3"
HERE = os.path.dirname(os.path.abspath(__file__))


class JsonProcess:
    """A process on a host; its output lines are parsed by a thread and waited for by events."""

    def __init__(self, host, argv):
        self.process = host.popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, text=True)
        self.events = []
        self._waiting = queue.Queue()
        self.errors = []
        for stream, take in ((self.process.stdout, self._take_event), (self.process.stderr, self._take_error)):
            threading.Thread(target=self._read, args=(stream, take), daemon=True).start()

    @staticmethod
    def _read(stream, take):
        try:
            for line in stream:
                take(line)
        except ValueError:  # closed under the reader when the host goes
            pass

    def _take_event(self, line):
        event = json.loads(line)
        event["_at"] = time.monotonic()
        self._waiting.put(event)

    def _take_error(self, line):
        self.errors.append(line)

    def wait(self, what, matches, timeout):
        """The first event, from now on or not yet looked at, that `matches`; all passed ones stay in `events`."""
        deadline = time.monotonic() + timeout
        while True:
            try:
                event = self._waiting.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                seen = [{k: v for k, v in event.items() if k != "_at"} for event in self.events[-8:]]
                raise AssertionError(f"no {what} within {timeout} s; last events: {seen}; "
                                     f"stderr: {''.join(self.errors[-8:])}") from None
            self.events.append(event)
            if matches(event):
                return event

    def ever(self, what, matches, timeout):
        """Like `wait`, but an event that was passed on the way to another one counts as well."""
        for event in self.events:
            if matches(event):
                return event
        return self.wait(what, matches, timeout)

    def never(self, what, matches, seconds):
        """Fails if a matching event arrives within `seconds`."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            try:
                event = self._waiting.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                return
            self.events.append(event)
            if matches(event):
                raise AssertionError(f"{what} although it must not: {event}")

    def seen(self):
        """Every event so far."""
        while True:
            try:
                self.events.append(self._waiting.get_nowait())
            except queue.Empty:
                return self.events

    def kill(self):
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait(timeout=10)
        return time.monotonic()

    def terminate(self, timeout=10):
        """SIGTERM, and the exit status."""
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout=timeout)


def uuid_of(index):
    return "%08d-0000-4000-8000-%012d" % (index, index)


def on_bus(bus):
    """What goes before a command line for it to find the system's daemons on the message bus at that path."""
    return ["env", f"DBUS_SYSTEM_BUS_ADDRESS=unix:path={bus}"] if bus else []


class Node(JsonProcess):
    """A whole node: `ferrox run --json`."""

    def __init__(self, host, *options, index=None, name=None, port=16654, discovery="embedded", bus=None):
        self.host = host
        self.index = index if index is not None else host.index
        self.computer_name = name or f"Suite {self.index}"
        self._refs = 0
        super().__init__(host, [*on_bus(bus), COMMAND, "run", "--json", "--port", port,
                                "--device-uuid", uuid_of(self.index), "--computer-name", self.computer_name,
                                "--discovery", discovery, *options])

    def wait_started(self, timeout=10):
        started = self.wait("started", lambda event: event["event"] == "started", timeout)
        self.service_name = started["serviceName"]
        self.port = started["port"]
        return started

    def wait_published(self, timeout=15):
        return self.wait("localServiceStarted", lambda event: event["event"] == "localServiceStarted", timeout)

    def _about(self, kind, peer):
        prefix = uuid_of(peer.index).replace("-", "") + "-"
        return lambda event: event["event"] == kind and event["service"]["name"].startswith(prefix)

    def wait_peer(self, kind, peer, timeout):
        return self.wait(f"{kind} of {peer.computer_name}", self._about(kind, peer), timeout)

    def never_peer(self, kind, peer, seconds):
        self.never(f"{kind} of {peer.computer_name}", self._about(kind, peer), seconds)

    def ask(self, cmd, timeout=10, **members):
        self._refs += 1
        ref = self._refs
        self.process.stdin.write(json.dumps({"cmd": cmd, "ref": ref, **members}) + "\n")
        self.process.stdin.flush()
        return self.wait(f"result of {cmd}",
                         lambda event: event["event"] == "result" and event.get("ref") == ref, timeout)


class ForeignPeer(JsonProcess):
    """A peer that is not ours: python3-zeroconf, see foreign_peer.py."""

    def __init__(self, host, *argv):
        super().__init__(host, [PYTHON, os.path.join(HERE, "foreign_peer.py"), *argv])
