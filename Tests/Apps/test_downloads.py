"""`ferrox fetch` and `ferrox follow`, against a node of our own and against servers that misbehave."""

import http.server
import json
import pathlib
import signal
import socket
import subprocess
import tempfile
import threading
import unittest

from command_process import COMMAND, Child, Node, run

REMOTE = bytes(range(256)) * 40
DEADLINE = 60


def atom(kind, payload):
    return (len(payload) + 8).to_bytes(4, "big") + kind + payload


def events(done):
    return [json.loads(line) for line in done.stdout.splitlines()]


class Answers(http.server.BaseHTTPRequestHandler):
    """Whatever the test's function says."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        status, headers, body = self.server.answer(self.headers.get("Range"))
        self.send_response(status)
        for name, value in {"Content-Length": str(len(body)), **headers}.items():
            self.send_header(name, value)
        self.end_headers()
        try:
            self.wfile.write(body)
        except OSError:
            pass

    def log_message(self, *unused):
        pass


class Downloads(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.source = pathlib.Path(folder.name)
        (cls.source / "take.bin").write_bytes(REMOTE)
        cls.node = cls.enterClassContext(Node("--share", f"reel={folder.name}", "--stream", f"cam={folder.name}",
                                              discovery="off"))
        base = f"http://127.0.0.1:{cls.node.started()['port']}"
        cls.stream, cls.project = base + "/streams/cam", base + "/projects/reel/files"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.file = self.folder / "local"

    def serve(self, answer):
        """The URL of a server that answers each request with `answer(range)`: status, headers and body."""
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Answers)
        server.daemon_threads = True
        server.answer = answer
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_address[1]}/take.mov"

    def assertFails(self, done, reason):
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn(reason, done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)


class Fetch(Downloads):
    def fetch(self, url, *segments, more=()):
        options = [option for segment in segments for option in ("--segment", segment)]
        return run("fetch", url, self.file, *options, "--discovery", "off", *more, timeout=DEADLINE)

    def test_segments_stand_where_they_stand_remotely(self):
        self.file.write_bytes(b"#" * 500)
        for server in (self.stream, self.project):
            with self.subTest(server=server):
                done = self.fetch(server + "/take.bin", "100:50", "300:1", "1000:24")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertRegex(done.stdout, r"^75 B fetched in \d+ ms; .*/local has 1024 bytes now\n$")
                expected = bytearray(b"#" * 500 + bytes(524))
                for start, length in ((100, 50), (300, 1), (1000, 24)):
                    expected[start:start + length] = REMOTE[start:start + length]
                # The byte behind a segment may come with it.
                local = bytearray(self.file.read_bytes())
                for behind in (150, 301):
                    self.assertIn(local[behind], (expected[behind], REMOTE[behind]))
                    local[behind] = expected[behind]
                self.assertEqual(local, expected)

    def test_a_whole_file_can_be_put_together(self):
        done = self.fetch(self.project + "/take.bin", "5000:5240", "0:5000", more=["--json"])
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.file.read_bytes(), REMOTE)
        told = events(done)
        self.assertEqual([(event["start"], event["length"]) for event in told if event["event"] == "segment"],
                         [(5000, 5240), (0, 5000)])
        self.assertEqual((told[-1]["event"], told[-1]["cmd"], told[-1]["ok"], told[-1]["bytes"],
                          told[-1]["sizeInBytes"]), ("result", "fetch", True, len(REMOTE), len(REMOTE)))

    def test_failures_exit_1_with_the_reason(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            port = closed.getsockname()[1]
        for url, segment, reason in (
                (self.stream + "/none", "0:5", "http call failed with status code 404"),
                (self.stream + "/take.bin", f"{len(REMOTE) - 5}:10", "the server sent 5 of 10 bytes"),
                (self.stream + "/take.bin", f"{len(REMOTE)}:10", "the server sent 0 of 10 bytes"),
                (self.project + "/take.bin", "0:1", "the server sent more than the 1 bytes"),
                (f"http://127.0.0.1:{port}/x", "0:5", "")):
            with self.subTest(url=url, segment=segment):
                done = self.fetch(url, segment, more=["--json"])
                self.assertFails(done, reason)
                self.assertEqual(events(done)[-1]["event"], "error")

    def test_a_server_that_ignores_ranges_spoils_nothing(self):
        self.file.write_bytes(b"#" * 100)
        done = self.fetch(self.serve(lambda wanted: (200, {}, REMOTE)), "50:10")
        self.assertFails(done, "the server sent more than the 10 bytes from byte 50 on")
        self.assertEqual(self.file.read_bytes(), b"#" * 100)

    def test_a_file_that_cannot_be_written_is_told(self):
        self.file = self.folder / "none" / "local"
        self.assertFails(self.fetch(self.stream + "/take.bin", "0:5"), "Could not create a file")
        self.file = pathlib.Path("/dev/full")
        self.assertFails(self.fetch(self.stream + "/take.bin", "0:5"), "No space left on device")

    def test_a_silent_server_is_given_up(self):
        with socket.create_server(("127.0.0.1", 0)) as silent:
            url = f"http://127.0.0.1:{silent.getsockname()[1]}/x"
            self.assertFails(self.fetch(url, "0:5", more=["--timeout", "0.2"]), "timed out")

    def test_an_interrupt_ends_it_with_130(self):
        with socket.create_server(("127.0.0.1", 0)) as silent:
            url = f"http://127.0.0.1:{silent.getsockname()[1]}/x"
            child = subprocess.Popen([COMMAND, "fetch", url, self.file, "--segment", "0:5", "--discovery", "off"],
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            connection, _ = silent.accept()
            child.send_signal(signal.SIGINT)
            child.communicate(timeout=DEADLINE)
            connection.close()
            self.assertEqual(child.returncode, 130)


class Follow(Downloads):
    def follow(self, url, *options):
        return run("follow", url, self.file, "--discovery", "off", "--interval", "0.05", *options, timeout=DEADLINE)

    def following(self, url, *options):
        child = Child([COMMAND, "follow", url, self.file, "--discovery", "off", "--interval", "0.05", "--json",
                       *options])
        self.addCleanup(child.__exit__)
        return child

    def test_a_complete_file_ends_with_an_atom(self):
        remote = atom(b"ftyp", b"qt  ") + atom(b"mdat", REMOTE * 20) + atom(b"moov", b"x" * 99)
        (self.source / "take.mov").write_bytes(remote)
        for server in (self.stream, self.project):
            with self.subTest(server=server):
                self.file.unlink(missing_ok=True)
                done = self.follow(server + "/take.mov", "--until-idle", "0")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertEqual(self.file.read_bytes(), remote)
                self.assertIn(f"has {len(remote)} bytes and ends with an atom", done.stdout)

    def test_growth_is_told_as_it_comes(self):
        remote = self.source / "growing.mov"
        remote.write_bytes(atom(b"ftyp", b"qt  "))
        child = self.following(self.stream + "/growing.mov", "--until-idle", "1000")
        child.wait("followProgress", lambda event: event["bytes"] == 12)
        with remote.open("ab", buffering=0) as file:
            file.write((1008).to_bytes(4, "big") + b"mdat" + b"y" * 400)
            child.wait("followProgress", lambda event: event["bytes"] == 420)
            file.write(b"y" * 600)
            child.wait("followProgress", lambda event: event["bytes"] == 1020)
            file.write((0).to_bytes(4, "big") + b"mdat" + b"z" * 5000)
        child.process.send_signal(signal.SIGINT)
        self.assertEqual(child.exit_status(), 130)
        child.drain()
        self.assertIn("interrupted", child.seen[-1]["message"])
        self.assertEqual(self.file.read_bytes(), remote.read_bytes()[:1020])

    def test_a_file_that_ends_within_an_atom_is_told(self):
        (self.source / "cut.mov").write_bytes(
            atom(b"ftyp", b"qt  ") + (1).to_bytes(4, "big") + b"mdat" + (5 << 30).to_bytes(8, "big") + REMOTE)
        done = self.follow(self.stream + "/cut.mov", "--until-idle", "0.1", "--json")
        self.assertEqual(done.returncode, 0, done.stderr)
        result = events(done)[-1]
        self.assertEqual((result["event"], result["cmd"], result["sizeInBytes"], result["endsAtAtom"]),
                         ("result", "follow", 28 + len(REMOTE), False))

    def test_what_is_refused_exits_1_with_the_reason(self):
        done = self.follow(self.stream + "/none.mov", "--json")
        self.assertFails(done, "http call failed with status code 404")
        self.assertEqual(events(done)[-1]["event"], "error")
        self.assertFalse(self.file.exists())
        self.assertFails(self.follow(self.serve(lambda wanted: (500, {}, b"no"))), "status code 500")

    def test_a_file_that_holds_something_is_left_alone(self):
        self.file.write_bytes(b"mine")
        self.assertFails(self.follow(self.stream + "/take.bin"), "holds something already")
        self.assertEqual(self.file.read_bytes(), b"mine")

    def test_a_server_that_ignores_ranges_is_found_out(self):
        remote = [atom(b"ftyp", b"qt  "), atom(b"mdat", REMOTE)]
        asked = []

        def answer(wanted):
            asked.append(wanted)
            return 200, {}, b"".join(remote[:len(asked)])

        self.assertFails(self.follow(self.serve(answer), "--until-idle", "1000"), "does not honour ranges")
        self.assertEqual(asked, [None, "bytes=12-"])
        self.assertEqual(self.file.read_bytes(), remote[0])

    def test_a_lost_connection_is_made_up_for(self):
        remote = atom(b"ftyp", b"qt  ") + atom(b"mdat", REMOTE)
        asked = []

        def answer(wanted):
            asked.append(wanted)
            start = int(wanted[6:-1]) if wanted else 0
            if len(asked) <= 3:  # Less than announced, then the connection ends.
                return 206, {"Content-Length": str(len(remote) - start), "Connection": "close"}, \
                    remote[start:start + 1000]
            return (206, {}, remote[start:]) if start < len(remote) else (416, {}, b"")

        done = self.follow(self.serve(answer), "--until-idle", "0.2")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.file.read_bytes(), remote)

    def test_a_peer_that_is_gone_for_good_is_a_failure(self):
        remote = atom(b"ftyp", b"qt  ") + atom(b"mdat", REMOTE)
        asked = []

        def answer(wanted):
            asked.append(wanted)
            return 206, {"Content-Length": "99999", "Connection": "close"}, remote if len(asked) == 1 else b""

        done = self.follow(self.serve(answer), "--until-idle", "0.3")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(self.file.read_bytes(), remote)

    def test_a_full_disk_is_told(self):
        (self.source / "small.mov").write_bytes(atom(b"ftyp", b"qt  "))
        self.file = pathlib.Path("/dev/full")
        self.assertFails(self.follow(self.stream + "/small.mov"), "No space left on device")


if __name__ == "__main__":
    unittest.main()
