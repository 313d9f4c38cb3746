"""Command lines, right and wrong, and subcommands that need no peer."""

import base64
import json
import os
import pty
import signal
import socket
import subprocess
import threading
import time
import unittest

from command_process import COMMAND, run

SUBCOMMANDS = ("run", "peers", "list", "copy", "post", "watch", "search", "check", "fetch", "follow", "object-id",
               "doctor", "demo")


class Usage(unittest.TestCase):
    def test_wrong_usage_exits_2_and_says_why_on_stderr(self):
        for arguments in ([], ["bogus"], ["run", "--bogus"], ["run", "--port", "65536"], ["run", "--port", "x"],
                          ["run", "--device-uuid", "12"], ["run", "--host-name", "a.local"],
                          ["run", "--discovery", "bonjour"], ["run", "--peer", "a b"],
                          ["run", "--share", "film"], ["run", "--share", "film=/no/such/directory"],
                          ["run", "--share", "=/tmp"], ["run", "--share", "a=/tmp", "--share", "a=/tmp"],
                          ["run", "--stream", "a/b=/tmp"], ["run", "--status", "x" * 249],
                          ["run", "--observe"], ["run", "--observe", ""], ["run", "--observe", "=f"],
                          ["run", "--observe", "X="], ["run", "--observe", "X= "], ["run", "--observe", b"\xff"],
                          ["watch"], ["watch", ""], ["watch", "X", "Y="], ["watch", "X", "--filter", "f"],
                          ["post"], ["post", " "], ["post", "X", "Y"], ["post", b"\xff"],
                          ["post", "X", "--filter", ""], ["post", "X", "--user-info", "{"],
                          ["post", "X", "--user-info", "[]"], ["post", "X", "--user-info", "7"],
                          ["post", "X", "--user-info", '{"a": 1e999}'], ["post", "X", "--wait", "-1"],
                          ["post", "X", "--wait", "soon"],
                          ["peers", "--wait", "-1"], ["peers", "extra"], ["search"], ["search", "a b"],
                          ["check"], ["check", "localhost"], ["check", "localhost", "0"],
                          ["check", "localhost", "70000"], ["copy"], ["copy", "http://x/projects/p"],
                          ["copy", "film", "/tmp/x"], ["copy", "a/b", "/tmp/x", "--jobs", "0"],
                          ["copy", "a/b", "/tmp/x", "--jobs", "65"],
                          ["copy", "a/b", "/tmp/x", "--max-content-length", "0"],
                          ["copy", "a/b", "/tmp/x", "--timeout", "-1"],
                          ["copy", "a/b", "/tmp/x", "--on-low-storage", "ask"],
                          ["object-id"], ["object-id", "p", "--count", "0"],
                          ["object-id", b"\xff"],
                          ["fetch"], ["fetch", "http://h/x", "f"], ["fetch", "ftp://h/x", "f", "--segment", "0:1"],
                          ["fetch", "http://h/x", "f", "--segment", "0:0"],
                          ["fetch", "http://h/x", "f", "--segment", "18446744073709551615:2"],
                          ["fetch", "http://h/x", "f", "--segment", "0:1", "--timeout", "0"],
                          ["follow"], ["follow", "http://h/x"], ["follow", "h/x", "f"],
                          ["follow", "http://h/x", "f", "--interval", "0"],
                          ["follow", "http://h/x", "f", "--until-idle", "-1"],
                          ["follow", "http://h/x", ""], ["demo", "--nodes", "2"], ["demo", "--nodes", "9"]):
            with self.subTest(arguments=arguments):
                done = run(*arguments)
                self.assertEqual(done.returncode, 2)
                self.assertNotEqual(done.stderr.strip(), "")
                self.assertEqual(done.stdout, "")

    def test_every_subcommand_has_help_with_an_example(self):
        for subcommand in SUBCOMMANDS:
            with self.subTest(subcommand=subcommand):
                done = run(subcommand, "--help")
                self.assertEqual(done.returncode, 0)
                self.assertIn("Example:\n  ferrox " + subcommand, done.stdout)
                self.assertNotIn("\x1b", done.stdout)

    def test_version_is_told(self):
        done = run("--version")
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^ferrox \d+\.\d+\.\d+\n$")


class ObjectId(unittest.TestCase):
    def test_identifiers_hold_prefix_time_and_a_counter(self):
        before = int(time.time())
        done = run("object-id", "clip", "--count", "3")
        self.assertEqual(done.returncode, 0)
        texts = [base64.b64decode(line, validate=True).decode() for line in done.stdout.splitlines()]
        self.assertEqual(len(texts), 3)
        counters = []
        for text in texts:
            self.assertRegex(text, r"^clip:[0-9a-f]{24}$")
            self.assertLessEqual(before, int(text[5:13], 16))
            self.assertLessEqual(int(text[5:13], 16), int(time.time()))
            self.assertEqual(text[13:23], texts[0][13:23])
            counters.append(int(text[23:], 16))
        self.assertEqual(counters, [(counters[0] + i) % 2**24 for i in range(3)])

    def test_as_json(self):
        done = run("object-id", "a:b", "--json")
        event = json.loads(done.stdout)
        self.assertEqual((event["event"], event["cmd"], event["ok"]), ("result", "object-id", True))
        self.assertTrue(base64.b64decode(event["id"]).startswith(b"a:b:"))


class Check(unittest.TestCase):
    def setUp(self):
        self.server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.server.close)
        self.port = str(self.server.getsockname()[1])

    def test_a_listening_port_exits_0(self):
        done = run("check", "127.0.0.1", self.port)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("responded", done.stdout)
        self.assertEqual(done.stderr, "")

    def test_json_tells_the_result(self):
        result = json.loads(run("check", "127.0.0.1", self.port, "--json").stdout)
        self.assertEqual((result["event"], result["ok"], result["method"]), ("result", True, "tcp"))

    def test_a_closed_port_exits_1_with_the_reason(self):
        self.server.close()
        for method in ([], ["--http"]):
            with self.subTest(method=method):
                done = run("check", "127.0.0.1", self.port, "--json", *method)
                self.assertEqual(done.returncode, 1)
                self.assertIn("no response", done.stderr)
                self.assertEqual(json.loads(done.stdout.splitlines()[-1])["event"], "error")

    def test_any_http_answer_counts(self):
        def answer():
            connection, _ = self.server.accept()
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 500 Oh\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
            connection.close()

        threading.Thread(target=answer, daemon=True).start()
        self.assertEqual(run("check", "127.0.0.1", self.port, "--http").returncode, 0)

    def test_an_open_port_that_says_nothing_is_no_http_response(self):
        begun = time.monotonic()
        self.assertEqual(run("check", "127.0.0.1", self.port, "--http").returncode, 1)
        self.assertLess(time.monotonic() - begun, 8)


class Search(unittest.TestCase):
    def serve(self, answer):
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)

        def work():
            connection, _ = server.accept()
            connection.recv(4096)
            connection.sendall(answer)
            connection.close()

        threading.Thread(target=work, daemon=True).start()
        return f"127.0.0.1:{server.getsockname()[1]}"

    def test_bad_answers_exit_1_with_the_reason(self):
        def body(text):
            return b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s" % (len(text), text)

        for answer, reason in ((b"HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n", "404"),
                               (body(b"no json"), "no service record"),
                               (body(b"{}"), "incomplete"),
                               (body(b'{"hostName": "a", "port": 70000, "name": "x"}'), "incomplete"),
                               (b"garbage\r\n\r\n", "")):
            with self.subTest(answer=answer):
                done = run("search", self.serve(answer), "--json")
                self.assertEqual(done.returncode, 1)
                self.assertIn(reason, done.stderr)
                self.assertEqual(json.loads(done.stdout.splitlines()[-1])["event"], "error")

    def test_text_of_a_hostile_peer_does_not_reach_the_terminal(self):
        record = json.dumps({"hostName": "a\x1b[2J.local.", "port": 80, "name": "A-B/\x1b]0;OWNED\x07"}).encode()
        answer = b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s" % (len(record), record)
        done = run("search", self.serve(answer))
        self.assertNotIn("\x1b", done.stdout + done.stderr)
        self.assertNotIn("\x07", done.stdout + done.stderr)


class Doctor(unittest.TestCase):
    def test_a_peer_that_does_not_answer_is_a_problem(self):
        done = run("doctor", "--json", "--interface", "lo", "--peer", "127.0.0.1:1")
        self.assertEqual(done.returncode, 1, done.stderr)
        report = json.loads(done.stdout)
        self.assertEqual((report["event"], report["ok"]), ("doctor", False))
        checks = {finding["check"] for finding in report["findings"]}
        self.assertEqual(checks, {"identity", "interfaces", "responders", "multicast", "announcements", "port", "peers"})

    def test_a_healthy_loopback_exits_0(self):
        done = run("doctor", "--interface", "lo", "--port", "0")
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("lo is used", done.stdout)
        self.assertIn("Nothing was found", done.stdout)

    def test_a_missing_interface_is_named(self):
        done = run("doctor", "--interface", "nosuch0")
        self.assertEqual(done.returncode, 1)
        self.assertIn("there is no interface nosuch0", done.stdout)


class Terminal(unittest.TestCase):
    """The live table, on a terminal of our own."""

    def on_terminal(self, environment, end):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process = subprocess.Popen([COMMAND, "run", "--port", "0", "--discovery", "off", "--computer-name", "Suite"],
                                   stdin=slave, stdout=slave, stderr=slave,
                                   env={**os.environ, "TERM": "xterm", **environment})
        os.close(slave)
        output = b""
        while b"runs on port" not in output:
            output += os.read(master, 65536)
        end(process)
        self.assertEqual(process.wait(timeout=15), 0)
        while True:
            try:
                piece = os.read(master, 65536)
            except OSError:
                return output
            if not piece:
                return output
            output += piece

    def test_the_table_takes_the_screen_and_gives_it_back(self):
        output = self.on_terminal({}, lambda process: process.send_signal(signal.SIGINT))
        self.assertIn(b"\x1b[?1049h", output)
        self.assertIn(b"nobody else is here yet", output)
        self.assertGreater(output.rindex(b"\x1b[?1049l"), output.rindex(b"nobody else is here yet"))
        self.assertIn(b"\x1b[?25h", output)

    def test_no_color_means_no_colour(self):
        output = self.on_terminal({"NO_COLOR": "1"}, lambda process: process.terminate())
        self.assertNotRegex(output, rb"\x1b\[[0-9;]*m")

    def test_a_dumb_terminal_gets_plain_lines(self):
        output = self.on_terminal({"TERM": "dumb"}, lambda process: process.terminate())
        self.assertNotIn(b"\x1b", output)


if __name__ == "__main__":
    unittest.main()
