"""The demonstration succeeds, says so truthfully, and can be interrupted."""

import json
import os
import signal
import subprocess
import unittest

from command_process import COMMAND, run

STEPS = ["published", "found", "resolved", "responsive", "connected", "fetched", "notified", "heartbeat", "offered",
         "listed", "segmentFetched", "joined",
         "caughtUp", "killed", "connectionLost", "unresponsive", "removed", "restarted", "foundAgain", "reconnected",
         "caughtUpAgain", "copied", "compared", "left", "ended"]



def children_of(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


class Demo(unittest.TestCase):
    def test_every_step_happens(self):
        done = run("demo", "--json", timeout=150)
        events = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual([event["step"] for event in events[:-1]], STEPS)
        self.assertTrue(all(event["ok"] for event in events))
        self.assertEqual(events[-1]["event"], "demo")
        by_step = {event["step"]: event for event in events[:-1]}
        self.assertGreater(by_step["unresponsive"]["milliseconds"], 1000)
        self.assertLess(by_step["connectionLost"]["milliseconds"], by_step["unresponsive"]["milliseconds"])
        self.assertGreater(by_step["notified"]["milliseconds"], 0)
        self.assertGreaterEqual(by_step["caughtUp"]["milliseconds"], 1)
        self.assertGreaterEqual(by_step["removed"]["milliseconds"], by_step["unresponsive"]["milliseconds"])

    def test_a_step_that_does_not_happen_fails_the_whole(self):
        done = run("demo", "--nodes", "3", "--interface", "nosuch0", timeout=120)
        self.assertEqual(done.returncode, 1)
        self.assertIn("✗", done.stdout)
        self.assertIn("Failed.", done.stdout)

    def test_an_interrupt_ends_it_and_its_nodes(self):
        process = subprocess.Popen([COMMAND, "demo"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertIn("nodes on this machine", b"".join(process.stdout.readline() for _ in range(2)).decode())
        process.stdout.readline()
        process.stdout.readline()  # the first step is done, so the nodes run
        nodes = children_of(process.pid)
        self.assertEqual(len(nodes), 3)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=20)
        self.assertEqual(process.returncode, 130)
        for node in nodes:
            self.assertFalse(os.path.exists(f"/proc/{node}"))


if __name__ == "__main__":
    unittest.main()
