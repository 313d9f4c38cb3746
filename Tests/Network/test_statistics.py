"""What two hosts count of each other agrees: sent here is received there, and served there is copied here."""

import pathlib
import random
import tempfile
import time
import unittest

from netns import Network
from node import Node

PATIENCE = 60
POSTS = 25
SIZES = (0, 1, 1000, 70_000, 300_000, 1_000_001)


class Statistics(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name)
        (self.path / "film").mkdir()
        values = random.Random(7)
        for size in SIZES:
            (self.path / "film" / f"{size}.bin").write_bytes(values.randbytes(size))
        self.network = Network(2)
        self.addCleanup(self.network.close)
        hosts = self.network.hosts
        self.serving = Node(hosts[0], "--share", f"film={self.path / 'film'}")
        self.other = Node(hosts[1])
        self.nodes = (self.serving, self.other)
        for node in self.nodes:
            node.wait_started(PATIENCE)

    @staticmethod
    def stats(node):
        answer = node.ask("stats", timeout=PATIENCE)
        assert answer["ok"], answer
        return answer["stats"]

    def both(self, what, hold):
        """The statistics of both nodes, as soon as they are so. Whatever moves comes to rest meanwhile."""
        deadline = time.monotonic() + PATIENCE
        while True:
            first, second = self.stats(self.serving), self.stats(self.other)
            if hold(first, second):
                return first, second
            self.assertLess(time.monotonic(), deadline, f"{what}: {first} {second}")
            time.sleep(0.1)

    def meeting(self):
        def met(stats):
            peers = stats["peers"]
            return (peers["known"], peers["responsive"], peers["connectedOutbound"],
                    peers["connectedInbound"]) == (1, 1, 1, 1)

        return self.both("connected both ways", lambda first, second: met(first) and met(second))

    def test_what_one_sends_the_other_receives(self):
        before, _ = self.meeting()
        for number in range(POSTS):
            self.assertEqual(self.serving.ask("post", name="N", userInfo={"number": number})["sentTo"], 1)

        def agree(first, second):
            return (second["notifications"]["received"] >= POSTS
                    and all(a["messages"]["sent"] == b["messages"]["received"]
                            and a["messages"]["sentBytes"] == b["messages"]["receivedBytes"]
                            for a, b in ((first, second), (second, first))))

        first, second = self.both("sent and received", agree)
        self.assertGreaterEqual(first["messages"]["sent"] - before["messages"]["sent"], POSTS)
        self.assertEqual(first["notifications"]["posted"] - before["notifications"]["posted"], POSTS)
        for stats in (first, second):
            self.assertEqual(set(stats["messages"]["refused"].values()), {0})
            self.assertEqual(stats["messages"]["notSent"]["overfullQueues"], 0)
            self.assertEqual(stats["messages"]["dropped"]["malformed"], 0)

    def test_what_one_serves_the_other_copies(self):
        url = f"http://{self.network.hosts[0].address}:{self.serving.port}/projects/film"
        copied = self.other.ask("copy", url=url, dest=str(self.path / "copy"), maxContentLength=100_000,
                                allowsEmptyFiles=True, onLowStorage="continue")
        self.assertTrue(copied["ok"], copied)
        done = self.other.wait("the end of the copy", lambda event: event["event"] == "copyCompleted", PATIENCE)
        self.assertTrue(done["success"], done)
        copies = self.stats(self.other)["copies"]
        self.assertEqual(copies, {"started": 1, "running": 0, "succeeded": 1, "failed": 0, "cancelled": 0,
                                  "files": len(SIZES), "bytes": sum(SIZES)})
        served = self.stats(self.serving)["http"]
        self.assertEqual(served["fileBytesServed"], copies["bytes"])
        self.assertGreater(served["bytesSent"], served["fileBytesServed"])
        self.assertGreaterEqual(served["requests"]["succeeded"], 2 * len(SIZES))
        self.assertEqual(served["requests"]["serverErrors"], 0)

        failing = self.other.ask("copy", url=url.replace("projects", "nothing"), dest=str(self.path / "none"))
        self.assertTrue(failing["ok"], failing)
        self.other.wait("the end of the failing copy",
                        lambda event: event["event"] == "copyCompleted"
                        and event["operationId"] == failing["operationId"], PATIENCE)
        self.assertEqual(self.stats(self.other)["copies"]["failed"], 1)
        self.assertGreaterEqual(self.stats(self.serving)["http"]["requests"]["clientErrors"], 1)

    def test_a_peer_that_dies_and_returns_is_a_connection_lost_and_reopened(self):
        before = self.meeting()[0]["connections"]
        self.other.kill()
        self.serving_until(lambda stats: stats["connections"]["lost"] == before["lost"] + 1)
        again = Node(self.network.hosts[1])
        again.wait_started(PATIENCE)
        after = self.serving_until(lambda stats: stats["connections"]["reopened"] > before["reopened"])["connections"]
        self.assertGreater(after["opened"], before["opened"])
        self.assertGreaterEqual(after["attempts"], after["opened"])

    def serving_until(self, holds):
        deadline = time.monotonic() + PATIENCE
        while not holds(stats := self.stats(self.serving)):
            self.assertLess(time.monotonic(), deadline, stats)
            time.sleep(0.1)
        return stats


if __name__ == "__main__":
    unittest.main()
