"""Projects copied by the command, from nodes on this machine: alone, by a running node, and interrupted."""

import hashlib
import http.server
import json
import os
import pathlib
import pty
import random
import select
import signal
import subprocess
import tempfile
import threading
import time
import unittest

from command_process import COMMAND, Node, run

HERE = ("--interface", "lo", "--discovery", "embedded")
NOWHERE = ("--discovery", "off")


def make_project(path):
    """A few folders, names of all kinds, and one file worth splitting."""
    values = random.Random(7)
    for name, size in (("plain.txt", 10), ("a b/c%20d/\u00e4\u2603.xml", 5000), (".hidden/.file", 1),
                       ("Media/take.mov", 300_000)):
        file = path / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(values.randbytes(size))
    (path / "empty folder").mkdir()


def contents(path):
    """{relative path: digest}; folders have none."""
    return {str(entry.relative_to(path)): hashlib.sha256(entry.read_bytes()).hexdigest() if entry.is_file() else None
            for entry in path.rglob("*")}


class SlowPeer(http.server.ThreadingHTTPServer):
    """Has one project, of a file that never comes to its end."""

    def __init__(self):
        super().__init__(("127.0.0.1", 0), SlowPeer.Handler)
        self.began, self.ends = threading.Event(), threading.Event()
        threading.Thread(target=self.serve_forever, daemon=True).start()
        self.url = f"http://127.0.0.1:{self.server_port}/projects/P"

    def end(self):
        self.ends.set()
        self.shutdown()
        self.server_close()

    class Handler(http.server.BaseHTTPRequestHandler):
        def log_message(self, *unused):
            pass

        def answer(self, body, length=None):
            self.send_response(200)
            self.send_header("Content-Length", str(length or len(body)))
            self.end_headers()
            if self.command != "HEAD":
                self.wfile.write(body)
                self.wfile.flush()

        def do_HEAD(self):
            self.answer(b"", 1000)

        def do_GET(self):
            if not self.path.startswith("/projects/P"):
                return self.send_error(404)
            if "/files/" not in self.path:
                return self.answer(json.dumps({"directories": [], "files": ["endless"]}).encode())
            self.answer(b"x" * 100, 1000)
            self.server.began.set()
            self.server.ends.wait(60)


class Copy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.directory.cleanup)
        cls.path = pathlib.Path(cls.directory.name)
        cls.project = cls.path / "project"
        make_project(cls.project)
        (cls.path / "with empty").mkdir()
        (cls.path / "with empty" / "nothing").touch()
        cls.offering = Node("--share", f"my film={cls.project}", "--share", f"E={cls.path / 'with empty'}",
                            name=f"Offering {os.getpid()}")
        cls.addClassCleanup(cls.offering.__exit__)
        cls.base = f"http://127.0.0.1:{cls.offering.started()['port']}/projects"
        cls.url = cls.base + "/my%20film"

    def setUp(self):
        self.dest = self.path / self.id().rpartition(".")[2]

    def assert_copied(self):
        self.assertEqual(contents(self.dest), contents(self.project))

    def copy(self, *options, url=None):
        return run("copy", url or self.url, str(self.dest), *NOWHERE, *options)

    def test_a_project_by_its_url(self):
        done = self.copy("--max-content-length", "100000")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertRegex(done.stdout, r"^4 files, 305 kB in \d+\.\d s \(.*/s\), to /")
        self.assert_copied()

    def test_a_project_by_a_part_of_its_peers_name(self):
        done = run("copy", f"ring{os.getpid()}/my film", str(self.dest), *HERE, "--wait", "20", timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_copied()
        done = run("copy", f"ring{os.getpid()}/nothing", str(self.dest), *HERE, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn("no peer whose name has", done.stderr)
        self.assert_copied()

    def test_what_stood_there_is_replaced(self):
        self.dest.mkdir()
        (self.dest / "old").write_text("old", encoding="ascii")
        self.assertEqual(self.copy().returncode, 0)
        self.assert_copied()

    def test_as_json(self):
        done = self.copy("--json", "--jobs", "1")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        events = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual([event["event"] for event in events], ["copyProgress"] * 4 + ["copyCompleted"])
        self.assertEqual(len({event["operationId"] for event in events}), 1)
        sizes = [event["bytes"] for event in events[:-1]]
        self.assertEqual(sizes, sorted(sizes))
        self.assertEqual((sizes[-1], events[0]["totalBytes"]), (305_011, 305_011))
        self.assertEqual((events[-1]["success"], events[-1]["error"]), (True, None))

    def test_a_failure_is_told_and_ends_in_1(self):
        peer = SlowPeer()
        self.addCleanup(peer.end)
        for url, reason in ((peer.url.replace("/P", "/Q"), "http call failed with status code 404"),
                            (self.base + "/E", "unexpected nil value for content length")):
            with self.subTest(url=url):
                done = self.copy(url=url)
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn(reason, done.stderr)
                done = self.copy("--json", url=url)
                events = [json.loads(line) for line in done.stdout.splitlines()]
                self.assertEqual([event["event"] for event in events], ["copyCompleted", "error"])
                self.assertEqual((events[0]["success"], events[0]["error"]), (False, reason))
                self.assertEqual(events[1]["message"], reason)

    def test_a_project_without_files_is_told_of(self):
        done = self.copy(url=self.base + "/nothing")
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^0 files, 0 B ")
        self.assertIn("the project is empty, or there is none of that name", done.stderr)

    def test_empty_files_on_demand(self):
        self.assertEqual(self.copy("--allow-empty-files", url=self.base + "/E").returncode, 0)
        self.assertEqual(contents(self.dest), contents(self.path / "with empty"))

    def test_only_the_rest_is_fetched_on_demand(self):
        self.assertEqual(self.copy("--preserve-times").returncode, 0)
        self.assertEqual((self.dest / "plain.txt").stat().st_mtime, int((self.project / "plain.txt").stat().st_mtime))
        kept = self.dest / "plain.txt"
        before = kept.stat().st_ino
        (self.dest / "Media/take.mov").unlink()
        (self.dest / "my own").write_text("stays", encoding="ascii")
        self.assertEqual(self.copy("--resume", "--verify-sizes").returncode, 0)
        self.assertEqual(kept.stat().st_ino, before)
        self.assertEqual((self.dest / "my own").read_text(encoding="ascii"), "stays")
        (self.dest / "my own").unlink()
        self.assert_copied()

    def test_folders_that_nobody_can_mean_are_refused(self):
        for destination in ("/", ".", "..", os.path.expanduser("~")):
            with self.subTest(destination=destination):
                done = run("copy", self.url, destination, *NOWHERE)
                self.assertEqual(done.returncode, 1)
                self.assertIn("would be replaced", done.stderr)

    def test_an_interrupt_ends_it_soon(self):
        peer = SlowPeer()
        self.addCleanup(peer.end)
        process = subprocess.Popen([COMMAND, "copy", peer.url, self.dest, *NOWHERE], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.assertTrue(peer.began.wait(20))
        began = time.monotonic()
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=20)
        self.assertEqual(process.returncode, 130)
        self.assertLess(time.monotonic() - began, 10)
        self.assertEqual(contents(self.dest), {})

    def test_a_silent_peer_is_given_up(self):
        peer = SlowPeer()
        self.addCleanup(peer.end)
        done = self.copy("--timeout", "0.5", url=peer.url)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(contents(self.dest), {})

    def test_a_running_node_copies(self):
        with Node(name="Copying") as node:
            started = node.ask("copy", url=self.url, dest=str(self.dest), maxContentLength=100_000)
            self.assertTrue(started["ok"], started)
            ended = node.wait("copyCompleted", lambda event: event["operationId"] == started["operationId"])
            self.assertEqual((ended["success"], ended["error"]), (True, None))
            self.assert_copied()
            last = [event for event in node.seen if event["event"] == "copyProgress"][-1]
            self.assertEqual((last["bytes"], last["totalBytes"]), (305_011, 305_011))
            self.assertFalse(node.ask("cancelCopy", operationId=started["operationId"])["ok"])

    def test_a_running_node_is_told_of_failures_and_mistakes(self):
        with Node(name="Failing") as node:
            peer = SlowPeer()
            self.addCleanup(peer.end)
            started = node.ask("copy", url=peer.url.replace("/P", "/Q"), dest=str(self.dest))
            ended = node.wait("copyCompleted", lambda event: event["operationId"] == started["operationId"])
            self.assertEqual((ended["success"], ended["error"]), (False, "http call failed with status code 404"))
            for members in ({"url": self.url}, {"dest": "/tmp/x"}, {"url": self.url, "dest": "/"},
                            {"url": self.url, "dest": str(self.dest), "maxContentLength": "1"}):
                self.assertFalse(node.ask("copy", **members)["ok"], members)
            for members in ({"maxContentLength": 0}, {"maxConcurrentDownloads": 0}, {"maxConcurrentDownloads": -2}):
                started = node.ask("copy", url=self.url, dest=str(self.dest), **members)
                ended = node.wait("copyCompleted", lambda event: event["operationId"] == started["operationId"])
                self.assertFalse(ended["success"], members)
            self.assertFalse(node.ask("cancelCopy", operationId="x")["ok"])
        self.assertFalse(self.dest.exists())

    def test_a_running_node_cancels(self):
        peer = SlowPeer()
        self.addCleanup(peer.end)
        with Node(name="Cancelling") as node:
            started = node.ask("copy", url=peer.url, dest=str(self.dest))
            self.assertTrue(peer.began.wait(20))
            self.assertTrue(node.ask("cancelCopy", operationId=started["operationId"])["ok"])
            node.wait("copyCancelled")
            ended = node.wait("copyCompleted")
            self.assertTrue(ended["cancelled"])
        self.assertEqual(contents(self.dest), {})

    def test_a_node_that_ends_does_not_wait_for_its_copies(self):
        peer = SlowPeer()
        self.addCleanup(peer.end)
        with Node(name="Ending") as node:
            node.ask("copy", url=peer.url, dest=str(self.dest))
            self.assertTrue(peer.began.wait(20))
            node.process.send_signal(signal.SIGTERM)
            self.assertEqual(node.process.wait(timeout=20), 0)
            node.drain()
            self.assertEqual([event["event"] for event in node.seen].count("copyCompleted"), 1)


class Terminal(unittest.TestCase):
    """The same with a person who looks and answers."""

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.dest = pathlib.Path(self.directory.name) / "dest"
        self.peer = SlowPeer()
        self.addCleanup(self.peer.end)
        controller, terminal = pty.openpty()
        self.addCleanup(os.close, controller)
        self.controller = controller
        self.shown = b""
        self.terminal = terminal

    def start(self, kind="xterm"):
        process = subprocess.Popen([COMMAND, "copy", self.peer.url, self.dest, *NOWHERE], stdin=self.terminal,
                                   stdout=subprocess.PIPE, stderr=self.terminal, env={**os.environ, "TERM": kind})
        os.close(self.terminal)
        self.addCleanup(process.stdout.close)
        return process

    def wait_for(self, text, timeout=20):
        deadline = time.monotonic() + timeout
        while text not in self.shown:
            readable, _, _ = select.select([self.controller], [], [], max(0, deadline - time.monotonic()))
            self.assertTrue(readable, self.shown)
            self.shown += os.read(self.controller, 65536)

    def test_progress_is_shown(self):
        process = self.start()
        self.wait_for(b"100 B of 1.0 kB")
        self.wait_for(b"0 of 1 files")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=20), 130)

    def test_a_dumb_terminal_gets_no_line_that_is_redrawn(self):
        process = self.start("dumb")
        self.assertTrue(self.peer.began.wait(20))
        # In a second a line would have been drawn some times.
        readable, _, _ = select.select([self.controller], [], [], 1)
        self.assertFalse(readable)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=20), 130)

    def test_somebody_is_asked_before_a_folder_is_replaced(self):
        self.dest.mkdir()
        (self.dest / "mine").touch()
        process = self.start()
        self.wait_for(b"is not empty and will be replaced. Go on? [y/N]")
        os.write(self.controller, b"n\n")
        self.assertEqual(process.wait(timeout=20), 1)
        self.assertTrue((self.dest / "mine").exists())

    def test_who_agrees_has_it_replaced(self):
        self.dest.mkdir()
        (self.dest / "mine").touch()
        process = self.start()
        self.wait_for(b"[y/N]")
        os.write(self.controller, b"y\n")
        self.assertTrue(self.peer.began.wait(20))
        self.assertFalse((self.dest / "mine").exists())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=20), 130)

    def test_an_interrupt_is_an_answer_too(self):
        self.dest.mkdir()
        (self.dest / "mine").touch()
        process = self.start()
        self.wait_for(b"[y/N]")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=20), 130)
        self.assertTrue((self.dest / "mine").exists())


if __name__ == "__main__":
    unittest.main()
