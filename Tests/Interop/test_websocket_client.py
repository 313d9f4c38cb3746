"""The WebSocket client against foreign servers over the real wire."""

import os
import queue
import subprocess
import threading
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
PROBE = os.environ["WEBSOCKET_PROBE"]


class Lines:
    """A child process that speaks in lines."""

    def __init__(self, *command, **options):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **options)
        self._lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self._lines.put(line.rstrip("\n"))

    def next(self, timeout=20):
        return self._lines.get(timeout=timeout)

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self):
        self.process.kill()
        self.process.wait(timeout=10)
        self.process.stdin.close()
        self.process.stdout.close()


class ForeignServer:
    """What every server must agree on; the subclasses name one."""

    command = ()
    environment = {}

    @classmethod
    def setUpClass(cls):
        cls.server = Lines(*cls.command, env={**os.environ, **cls.environment})
        cls.port = int(cls.server.next())

    @classmethod
    def tearDownClass(cls):
        cls.server.end()

    def open(self, path):
        probe = Lines(PROBE, f"ws://127.0.0.1:{self.port}{path}")
        self.addCleanup(probe.end)
        self.assertEqual(probe.next(), "open")
        return probe

    def test_echoes_texts_of_every_length(self):
        probe = self.open("/echo")
        probe.say("send \u20ac and \U0001f600")
        self.assertEqual(probe.next(), "text 12 \u20ac and \U0001f600")
        for size in (0, 1, 125, 126, 65535, 65536, 1 << 20):
            probe.say(f"fill {size}")
            self.assertTrue(probe.next().startswith(f"text {size} "), size)

    def test_joins_fragments(self):
        self.assertEqual(self.open("/fragments").next(), "text 14 one two thr\u00e9e")

    def test_answers_pings(self):
        self.assertEqual(self.open("/ping").next(), "text 13 pong received")

    def test_reports_the_servers_close(self):
        self.assertEqual(self.open("/close").next(), "close 4321 clean enough \u2713")

    def test_closes_with_a_code_and_a_reason(self):
        probe = self.open("/told")
        probe.say("close 3210 done \u2713")
        self.assertEqual(probe.next().rsplit(" clean")[0], "close 3210")
        self.assertEqual(self.server.next(), "ended 3210 done \u2713")

    def test_refuses_binary_messages(self):
        probe = self.open("/binary")
        self.assertEqual(probe.next().rstrip(), "close 1003 unclean")
        self.assertEqual(self.server.next(), "ended 1003")

    def test_refuses_oversized_messages(self):
        probe = self.open("/oversize")
        self.assertEqual(probe.next().rstrip(), "close 1009 unclean")
        self.assertEqual(self.server.next(), "ended 1009")

    def test_takes_no_extension(self):
        self.assertEqual(self.open("/extensions").next(), "text 2 []")

    def test_keeps_the_order_of_a_burst(self):
        probe = self.open("/count")
        probe.say("burst 1000")
        self.assertEqual(probe.next(), "text 9 all there")


class WebsocketsForPython(ForeignServer, unittest.TestCase):
    command = ("/usr/bin/python3", os.path.join(HERE, "websockets_server.py"))


class WsForNode(ForeignServer, unittest.TestCase):
    command = ("node", os.path.join(HERE, "ws_server.js"))
    # Where Debian puts its modules, for a node that did not come from Debian.
    environment = {"NODE_PATH": "/usr/share/nodejs"}

    def test_notices_a_cut_connection(self):
        probe = self.open("/cut")
        self.assertEqual(probe.next(), "text 3 now")
        self.assertTrue(probe.next().startswith("fail 4 "))


if __name__ == "__main__":
    unittest.main()
