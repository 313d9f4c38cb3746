"""`ferrox run --json` driven as another program would drive it."""

import os
import re
import signal
import socket
import subprocess
import tempfile
import time
import unittest
import urllib.error
import urllib.request

from command_process import COMMAND, Node, run


class Run(unittest.TestCase):
    def node(self, *options, **settings):
        node = Node(*options, **settings)
        self.addCleanup(node.__exit__)
        return node

    def test_started_tells_who_the_node_is(self):
        node = self.node(name="Edit Suite")
        started = node.started()
        prefix = node.device.replace("-", "") + "-"
        self.assertTrue(started["serviceName"].startswith(prefix))
        self.assertTrue(started["serviceName"].endswith("/EDIT SUITE"))
        self.assertEqual(started["computerName"], "Edit Suite")
        self.assertEqual(started["deviceId"], node.device)
        self.assertEqual(started["discovery"], "embedded")
        self.assertRegex(started["version"], r"^\d+\.\d+\.\d+$")
        self.assertLess(abs(started["time"] / 1000 - time.time()), 60)
        with socket.create_connection(("127.0.0.1", started["port"]), timeout=5):
            pass
        self.assertRegex(node.wait("localServiceStarted")["sessionId"], r"^[0-9A-F-]{36}$")

    def test_quit_ends_with_a_result_and_status_0(self):
        node = self.node()
        node.started()
        self.assertTrue(node.ask("quit")["ok"])
        self.assertEqual(node.exit_status(), 0)

    def test_a_clean_end_tells_of_the_end_of_the_announcement_last_and_once(self):
        for end in (lambda node: node.ask("quit"), lambda node: node.process.send_signal(signal.SIGTERM)):
            node = self.node()
            session = node.wait("localServiceStarted")["sessionId"]
            end(node)
            self.assertEqual(node.wait("localServiceEnded")["sessionId"], session)
            self.assertEqual(node.exit_status(), 0)
            node.drain()
            self.assertEqual(node.seen[-1]["event"], "localServiceEnded")
            self.assertEqual(sum(event["event"] == "localServiceEnded" for event in node.seen), 1)

    def test_what_was_never_announced_does_not_end(self):
        node = self.node(discovery="off")
        node.started()
        self.assertEqual(node.terminate(), 0)
        node.drain()
        self.assertEqual([event["event"] for event in node.seen], ["started"])

    def test_signals_end_it_with_status_0(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number=number):
                node = self.node()
                node.started()
                self.assertEqual(node.terminate(number), 0)

    def test_a_signal_at_any_moment_of_the_start_ends_it(self):
        for delay in (0, 0.005, 0.01, 0.02, 0.04, 0.08, 0.16):
            with self.subTest(delay=delay):
                node = self.node()
                time.sleep(delay)
                # Before the program has taken signals over, the system's way of ending it applies.
                self.assertIn(node.terminate(), (0, -signal.SIGTERM))

    def test_end_of_input_does_not_stop_it(self):
        node = self.node()
        node.started()
        node.process.stdin.close()
        node.process.stdin = None
        node.wait("localServiceStarted")
        self.assertIsNone(node.process.poll())
        self.assertEqual(node.terminate(), 0)

    def test_closed_output_ends_it_cleanly(self):
        process = subprocess.Popen([COMMAND, "run", "--json", "--port", "0", "--discovery", "off"],
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertIn(b'"started"', process.stdout.readline())
        process.stdout.close()
        self.assertEqual(process.wait(timeout=10), 0)
        self.assertEqual(process.stderr.read(), b"")
        process.stdin.close()
        process.stderr.close()

    def test_bad_lines_are_answered_and_the_node_goes_on(self):
        node = self.node()
        node.started()
        bad = [b"no json", b"[]", b"7", b"null", b'"quit"', b"{", b'{"cmd": 7}', b"{}", b'{"cmd": "quit"',
               b"\xff\xfe", b"\x00", b'{"cmd": "\xff"}', b"[" * 100000, b'{"a":' * 5000]
        for line in bad:
            node.forget()
            node.send(line)
            self.assertIn("message", node.wait("error"), line)
        self.assertTrue(node.ask("peers")["ok"])

    def test_an_endless_line_is_refused_once_and_skipped(self):
        node = self.node()
        node.started()
        for _ in range(64):
            node.process.stdin.write(b"x" * 65536)
        node.process.stdin.write(b"\n")
        node.process.stdin.flush()
        self.assertIn("longer than 1048576 bytes", node.wait("error")["message"])
        self.assertTrue(node.ask("peers")["ok"])
        self.assertEqual(sum(event["event"] == "error" for event in node.seen), 1)

    def test_a_line_of_exactly_the_limit_is_read(self):
        node = self.node()
        node.started()
        head, tail = b'{"cmd": "peers", "ref": "', b'"}'
        node.send(head + b"r" * (1048576 - len(head) - len(tail)) + tail)
        self.assertTrue(node.wait("result")["ok"])

    def test_unknown_commands_fail_and_echo_their_ref(self):
        node = self.node()
        node.started()
        for cmd in ("Copy", "cancelcopy", "addstream", "", "QUIT", "postlocal"):
            result = node.ask(cmd)
            self.assertFalse(result["ok"])
            self.assertIn("unknown command", result["error"])
        for ref in (None, 7, [1, {"a": None}], {"x": "y"}):
            node.forget()
            node.send({"cmd": "nothing", "ref": ref})
            self.assertEqual(node.wait("result")["ref"], ref)
        node.forget()
        node.send({"cmd": "peers"})
        self.assertNotIn("ref", node.wait("result"))

    def test_commands_with_wrong_members_fail(self):
        node = self.node()
        node.started()
        for cmd, members in (("search", {}), ("search", {"address": 7}), ("search", {"address": "a b"}),
                             ("search", {"address": "x:99999"}), ("status", {}), ("status", {"text": None}),
                             ("status", {"text": "x" * 249})):
            with self.subTest(cmd=cmd, members=members):
                result = node.ask(cmd, **members)
                self.assertFalse(result["ok"])
                self.assertNotEqual(result["error"], "")

    def test_stats_tell_what_the_node_has_done(self):
        node = self.node(discovery="off")
        port = node.started()["port"]
        before = node.ask("stats")["stats"]
        self.assertEqual(before["peers"]["known"], 0)
        self.assertEqual(before["http"]["requests"]["succeeded"], 0)
        self.assertTrue(node.ask("post", name="N", repost=True)["ok"])
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/service", timeout=10) as answer:
            self.assertEqual(answer.status, 200)
        with self.assertRaises(urllib.error.HTTPError):
            urllib.request.urlopen(f"http://127.0.0.1:{port}/none", timeout=10)
        after = node.ask("stats")["stats"]
        self.assertEqual(after["http"]["requests"], {"upgraded": 0, "succeeded": 1, "clientErrors": 1,
                                                     "serverErrors": 0})
        self.assertGreater(after["http"]["bytesSent"], 100)
        self.assertEqual(after["notifications"]["posted"], before["notifications"]["posted"] + 1)
        self.assertEqual(after["messages"]["notSent"]["notConnected"],
                         before["messages"]["notSent"]["notConnected"] + 1)
        self.assertEqual(after["queues"]["notificationsKept"], before["queues"]["notificationsKept"] + 1)

    def test_stats_ignore_members_they_do_not_know(self):
        node = self.node(discovery="off")
        node.started()
        for members in ({"x": 1}, {"stats": None}, {"ok": False, "peers": [[]]}):
            result = node.ask("stats", **members)
            self.assertTrue(result["ok"], result)
            self.assertEqual(result["stats"]["peers"]["known"], 0)

    def test_search_asks_an_address(self):
        node = self.node(name="Asked")
        started = node.started()
        result = node.ask("search", address=f"127.0.0.1:{started['port']}")
        self.assertTrue(result["ok"], result)
        self.assertEqual(result["service"]["name"], started["serviceName"])
        self.assertEqual(result["service"]["port"], started["port"])
        refused = node.ask("search", address="127.0.0.1:1")
        self.assertFalse(refused["ok"])

    def test_rename_publishes_under_a_new_name(self):
        node = self.node()
        first = node.started()["serviceName"]
        node.wait("localServiceStarted")
        time.sleep(1.1)  # a name carries the second in which it was made
        result = node.ask("rename")
        self.assertTrue(result["ok"])
        self.assertNotEqual(result["serviceName"], first)
        port = node.started()["port"]
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/", timeout=5) as answer:
            self.assertEqual(answer.status, 200)

    def test_a_taken_port_fails_with_status_1(self):
        with socket.create_server(("", 0)) as taken:
            done = run("run", "--json", "--port", str(taken.getsockname()[1]), "--discovery", "off")
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot start", done.stderr)
        self.assertIn('"event":"error"', done.stdout.splitlines()[-1])

    def test_offers_are_served_over_http(self):
        with tempfile.TemporaryDirectory(prefix="ferrox test % ") as directory:
            with open(os.path.join(directory, "take 1.mov"), "wb") as file:
                file.write(b"0123456789")
            node = self.node("--share", f"film:Film rushes={directory}", "--stream", f"angle={directory}",
                             "--moments", f"moments={directory}")
            base = f"http://127.0.0.1:{node.started()['port']}"

            def get(path):
                with urllib.request.urlopen(base + path, timeout=5) as answer:
                    return answer.read()

            capabilities = get("/capabilities").decode()
            self.assertIn('"Film rushes"', capabilities)
            self.assertIn("video-angle", capabilities)
            self.assertIn("moments-data", capabilities)
            self.assertIn("take 1.mov", get("/projects/film").decode())
            self.assertEqual(get("/projects/film/files/take%201.mov"), b"0123456789")
            self.assertEqual(get("/streams/angle/take%201.mov"), b"0123456789")
            self.assertEqual(node.terminate(), 0)

    def test_plain_lines_without_a_terminal(self):
        process = subprocess.Popen([COMMAND, "run", "--port", "0", "--discovery", "off", "--computer-name", "Plain"],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = process.stdout.readline()
        process.terminate()
        rest, errors = process.communicate(timeout=15)
        self.assertTrue(re.match(r"\d\d:\d\d:\d\d  Plain runs on port \d+ as .* \(off discovery\)\n$", line), line)
        self.assertEqual((process.returncode, rest, errors), (0, "", ""))


if __name__ == "__main__":
    unittest.main()
