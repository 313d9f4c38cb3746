"""Nodes on loopback that meet, part, and are missed."""

import json
import signal
import time
import unittest

from command_process import COMMAND, Node, run


class Peers(unittest.TestCase):
    def node(self, *options, **settings):
        node = Node(*options, **settings)
        self.addCleanup(node.__exit__)
        return node

    def pair(self):
        first, second = self.node(name="First"), self.node(name="Second")
        for node, other in ((first, second), (second, first)):
            node.started()
            node.wait("peerDiscovered", node.about(other))
            node.wait("peerResponsive", node.about(other))
        return first, second

    def test_two_nodes_find_each_other_and_know_the_right_records(self):
        first, second = self.pair()
        record = first.wait("peerDiscovered", first.about(second))["service"]
        self.assertEqual(record["port"], second.started()["port"])
        self.assertEqual(record["name"], second.started()["serviceName"])
        self.assertEqual(record["serviceId"], f"{record['hostName']}:{record['port']}")
        first.wait("connected", lambda event: event["userInfo"]["frxId"] == record["serviceId"])
        listed = [service for service in first.ask("peers")["services"] if service["name"] == record["name"]]
        self.assertEqual(len(listed), 1)
        self.assertEqual({key: listed[0][key] for key in record}, record)
        self.assertEqual((listed[0]["state"], listed[0]["connected"]), ("responsive", True))
        reported = [event for event in first.seen
                    if event["event"] == "peerDiscovered" and first.about(second)(event)]
        self.assertEqual(len(reported), 1)

    def test_a_polite_end_is_heard_at_once(self):
        first, second = self.pair()
        name = second.started()["serviceName"]
        # Its second heartbeat comes when the packets of its announcement are some seconds old.
        for _ in range(2):
            first.forget()
            first.wait("rejoined", lambda event: event["frxId"] == name)
        first.forget()
        self.assertEqual(second.terminate(), 0)
        first.wait("peerRemoved", first.about(second), timeout=4)
        self.assertNotIn("peerUnresponsive", [event["event"] for event in first.seen])

    def test_a_killed_node_is_missed_removed_and_found_again(self):
        first, second = self.pair()
        second.process.kill()
        second.exit_status()
        first.wait("peerUnresponsive", first.about(second), timeout=15)
        first.wait("peerRemoved", first.about(second), timeout=15)
        first.forget()
        again = self.node(name="Second", device=second.device)
        again.started()
        found = first.wait("peerDiscovered", first.about(again), timeout=10)
        self.assertEqual(found["service"]["port"], again.started()["port"])
        first.wait("peerResponsive", first.about(again), timeout=10)

    def test_a_renamed_node_is_known_by_its_new_name(self):
        first, second = self.pair()
        time.sleep(1.1)  # a name carries the second in which it was made
        name = second.ask("rename")["serviceName"]
        first.wait("rejoined", lambda event: event["frxId"] == name, timeout=15)

    def test_heartbeats_are_reported(self):
        first, second = self.pair()
        first.forget()
        name = second.started()["serviceName"]
        first.wait("rejoined", lambda event: event["frxId"] == name, timeout=12)

    def test_a_peer_named_by_address_is_found_without_discovery(self):
        second = self.node(name="Second")
        port = second.started()["port"]
        first = self.node("--peer", f"127.0.0.1:{port}", name="First", discovery="off")
        first.wait("peerDiscovered", first.about(second))
        first.wait("peerResponsive", first.about(second))

    def test_two_nodes_without_any_discovery_meet_by_address(self):
        second = self.node(name="SecondRoom", discovery="off")
        port = second.started()["port"]
        first = self.node("--peer", f"127.0.0.1:{port}", name="FirstRoom", discovery="off")
        first.wait("peerDiscovered", first.about(second))
        first.wait("peerResponsive", first.about(second))

    def test_a_peer_named_by_address_that_comes_late_is_found(self):
        second = self.node(name="Second")
        port = second.started()["port"]
        second.terminate(signal.SIGTERM)
        first = self.node("--peer", f"127.0.0.1:{port}", name="First", discovery="off")
        first.started()
        time.sleep(1.5)
        late = self.node("--port", str(port), name="Second", device=second.device)
        late.started()
        first.wait("peerDiscovered", first.about(late), timeout=25)

    def test_two_nodes_of_one_device_ignore_each_other(self):
        first = self.node(name="One")
        second = self.node(name="Two", device=first.device)
        for node in (first, second):
            node.wait("localServiceStarted")
        witness = self.node(name="Witness")
        first.wait("peerDiscovered", first.about(witness))
        second.wait("peerDiscovered", second.about(witness))
        for node in (first, second):
            names = [service["name"] for service in node.ask("peers")["services"]]
            self.assertFalse([name for name in names if name.startswith(first.device.replace("-", ""))], names)

    def test_peers_lists_who_is_there(self):
        first, second = self.pair()
        done = run("peers", "--json", "--wait", "4", "--interface", "lo", "--discovery", "embedded")
        self.assertEqual(done.returncode, 0, done.stderr)
        listed = json.loads(done.stdout.splitlines()[-1])
        names = {service["name"] for service in listed["services"]}
        self.assertLessEqual({first.started()["serviceName"], second.started()["serviceName"]}, names)
        table = run("peers", "--wait", "4", "--interface", "lo").stdout
        self.assertRegex(table.splitlines()[0], r"^NAME +ADDRESS +STATE +SINCE +STREAMS +PROJECTS$")
        self.assertRegex(table, r"(?m)^FIRST +\S+\.local:\d+ +responsive")

    def test_peers_without_anybody(self):
        done = run("peers", "--wait", "0", "--discovery", "off")
        self.assertEqual((done.returncode, done.stdout), (0, "nobody is here\n"))
        done = run("peers", "--wait", "0", "--discovery", "off", "--json")
        self.assertEqual(json.loads(done.stdout)["services"], [])


if __name__ == "__main__":
    unittest.main()
