"""Eight hosts, each connected to every other: what arrives, what survives loss, partitions and deaths."""

import time
import unittest

from netns import Network
from node import Node, uuid_of

HOSTS = 8
CONNECT_WITHIN = 40
HEAL_WITHIN = 20  # one interval of the connection monitor, and a little


def eventually(what, holds, timeout):
    deadline = time.monotonic() + timeout
    while not holds():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {timeout} s: {what}")
        time.sleep(0.1)


class MeshNode(Node):
    def __init__(self, host, *options):
        super().__init__(host, "--observe", "NEWS", "--observe", "LATEST", *options)

    def services(self):
        return self.ask("peers")["services"]

    def connections(self):
        """The peers this node's own sockets are open to, by service id."""
        return {service["serviceId"] for service in self.services() if service["connected"]}

    def received(self, name, marks_from=0):
        """The marks of all notifications of that name, from the event of that number on."""
        return [event["userInfo"]["mark"] for event in self.seen()[marks_from:]
                if event["event"] == "notification" and event["name"] == name]

    def post(self, name, mark, **members):
        answer = self.ask("post", name=name, userInfo={"mark": mark}, **members)
        assert answer["ok"], answer


class Mesh(unittest.TestCase):
    """One network for all cases: making it takes longer than most of them. They run in the order of their names."""

    @classmethod
    def setUpClass(cls):
        cls.network = Network(HOSTS)
        try:
            cls.nodes = [MeshNode(host) for host in cls.network.hosts]
            for node in cls.nodes:
                node.wait_started(30)
            cls.wait_for_mesh(CONNECT_WITHIN)
        except BaseException:
            cls.network.close()
            raise

    @classmethod
    def tearDownClass(cls):
        try:
            statuses = [node.terminate() for node in cls.nodes]
            reports = [line for node in cls.nodes for line in node.errors if "Sanitizer" in line]
            assert statuses == [0] * HOSTS and not reports, (statuses, reports)
        finally:
            cls.network.close()

    @classmethod
    def wait_for_mesh(cls, timeout):
        try:
            eventually("every node connected to every other",
                       lambda: all(len(node.connections()) == HOSTS - 1 for node in cls.nodes), timeout)
        except AssertionError as failure:
            raise AssertionError(f"{failure}; " + "; ".join(
                f"{node.computer_name} sees {[(s['serviceId'], s['state'], s['connected']) for s in node.services()]}"
                for node in cls.nodes)) from None

    def expect_once_everywhere(self, sender, name, mark, timeout, marks_from):
        others = [node for node in self.nodes if node is not sender]
        eventually(f"{name} {mark} everywhere",
                   lambda: all(mark in node.received(name, marks_from[node]) for node in others), timeout)
        for node in others:
            self.assertEqual(node.received(name, marks_from[node]).count(mark), 1, node.computer_name)
        self.assertNotIn(mark, sender.received(name, marks_from[sender]))

    def event_counts(self):
        return {node: len(node.seen()) for node in self.nodes}

    def test_1_a_notification_reaches_all_others_exactly_once(self):
        before = self.event_counts()
        for number, sender in enumerate(self.nodes):
            sender.post("NEWS", f"round {number}")
        for number, sender in enumerate(self.nodes):
            self.expect_once_everywhere(sender, "NEWS", f"round {number}", 5, before)

    def test_2_a_fifth_of_all_packets_lost_delays_and_loses_nothing(self):
        before = self.event_counts()
        for host in self.network.hosts:
            host.lose_packets(0.2)
        try:
            for number in range(10):
                self.nodes[number % HOSTS].post("NEWS", f"lossy {number}")
            connected = [node.connections() for node in self.nodes]
            # A connection that broke under the loss may take what was on its way along; none else may.
            for number in range(10):
                sender = self.nodes[number % HOSTS]
                for node, peers in zip(self.nodes, connected):
                    if node is sender or len(peers) < HOSTS - 1:
                        continue
                    eventually(f"lossy {number} on {node.computer_name}",
                               lambda node=node: f"lossy {number}" in node.received("NEWS", before[node])
                               or len(sender.connections()) < HOSTS - 1, 30)
        finally:
            for host in self.network.hosts:
                host.lose_packets(0)
        self.wait_for_mesh(60)
        for node in self.nodes:
            marks = node.received("NEWS", before[node])
            self.assertEqual(len(marks), len(set(marks)), "nothing twice")

    def test_3_a_partition_heals_and_late_values_arrive(self):
        few, many = self.nodes[:3], self.nodes[3:]
        self.network.split([node.host for node in few])
        try:
            split_at = time.monotonic()
            few[0].post("LATEST", "of the few, early", repost=True)
            many[0].post("LATEST", "of the many", repost=True)
            few[0].post("LATEST", "of the few", repost=True)
            eventually("either side on its own",
                       lambda: all(len(node.connections()) == len(side) - 1
                                   for side in (few, many) for node in side), 60)
            time.sleep(max(0.0, 30 - (time.monotonic() - split_at)))  # the length of the partition is the point
        finally:
            self.network.join()
        healed_at = time.monotonic()
        self.wait_for_mesh(HEAL_WITHIN)
        eventually("the latest of the few with the many",
                   lambda: all("of the few" in node.received("LATEST") for node in many), 5)
        eventually("the latest of the many with the few",
                   lambda: all("of the many" in node.received("LATEST") for node in few), 5)
        for node in many:
            self.assertNotIn("of the few, early", node.received("LATEST"), "only the latest is kept")
        self.assertLess(time.monotonic() - healed_at, HEAL_WITHIN + 5)

    def test_4_two_that_are_killed_and_restarted_are_connected_again(self):
        self.nodes[2].post("LATEST", "before the death", repost=True)
        for index in (5, 6):
            self.nodes[index].kill()
        survivors = [node for node in self.nodes if self.nodes.index(node) not in (5, 6)]
        eventually("the dead are noticed",
                   lambda: all(len(node.connections()) == HOSTS - 3 for node in survivors), 30)
        for index in (5, 6):
            self.nodes[index] = MeshNode(self.network.hosts[index])
        self.wait_for_mesh(CONNECT_WITHIN)
        for index in (5, 6):
            eventually("the returned get the latest",
                       lambda: "before the death" in self.nodes[index].received("LATEST"), 5)

    def test_5_all_peers_are_known_under_their_identities(self):
        for node in self.nodes:
            services = node.ask("peers")["services"]
            self.assertEqual({service["name"].split("-")[0] for service in services},
                             {uuid_of(other.index).replace("-", "") for other in self.nodes if other is not node})
            self.assertTrue(all(service["connected"] for service in services))


if __name__ == "__main__":
    unittest.main()
