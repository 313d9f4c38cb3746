"""Whole nodes on several hosts: they find each other, notice when one goes, and recover."""

import json
import time
import unittest

from netns import Network
from node import COMMAND, ForeignPeer, JsonProcess, Node
from probe import Daemon


class NetworkCase(unittest.TestCase):
    hosts = 2
    ipv4 = True
    ipv6 = True

    def setUp(self):
        self.network = Network(self.hosts, ipv4=self.ipv4, ipv6=self.ipv6)
        self.addCleanup(self.network.close)

    def node(self, number, *options, **more):
        node = Node(self.network.hosts[number - 1], *options, **more)
        node.wait_started()
        return node

    def meeting(self, count=2, **more):
        """That many nodes, one a host, each of which has found all others."""
        nodes = [self.node(number, **more) for number in range(1, count + 1)]
        for node in nodes:
            for peer in nodes:
                if peer is not node:
                    self.discovered(node, peer, 10)
        return nodes

    def discovered(self, node, peer, timeout):
        """The record of `peer` once `node` knows it, whether or not that was reported already."""
        for event in reversed(node.events):
            if event["event"] in ("peerDiscovered", "peerRemoved") and node._about(event["event"], peer)(event):
                if event["event"] == "peerDiscovered":
                    return event
                break
        return node.wait_peer("peerDiscovered", peer, timeout)


class Discovery(NetworkCase):
    hosts = 3

    def test_every_node_finds_every_other(self):
        nodes = self.meeting(3)
        for node in nodes:
            names = {service["name"] for service in node.ask("peers")["services"]}
            self.assertEqual(names, {peer.service_name for peer in nodes if peer is not node})

    def test_record_of_a_peer_is_served_over_http(self):
        first, second = self.meeting()
        host = self.network.hosts[0]
        record = json.loads(host.run(["curl", "-sS", "http://10.77.0.2:16654/service"]).stdout)
        self.assertEqual(record["name"], second.service_name)
        self.assertEqual(record["port"], 16654)
        self.assertEqual(record, {key: first.ask("peers")["services"][0][key] for key in record})

    def test_two_nodes_on_one_host_and_one_on_another(self):
        first = self.node(1)
        neighbour = Node(self.network.hosts[0], index=21, port=0)
        neighbour.wait_started()
        other = self.node(2)
        for node in (first, neighbour, other):
            for peer in (first, neighbour, other):
                if node is not peer:
                    self.discovered(node, peer, 12)

    def test_peers_lists_who_is_there_and_ends(self):
        self.node(1), self.node(2)
        done = self.network.hosts[2].run([COMMAND, "peers", "--json", "--wait", "4", "--discovery", "embedded"])
        self.assertEqual(done.returncode, 0, done.stderr)
        peers = [json.loads(line) for line in done.stdout.splitlines()]
        services = [event for event in peers if event["event"] == "peers"][-1]["services"]
        self.assertEqual(len(services), 2, services)

    def test_newcomer_is_found_through_a_network_that_loses_packets(self):
        for host in self.network.hosts:
            host.firewall("INPUT", "-p", "udp", "-m", "statistic", "--mode", "random",
                          "--probability", "0.1", "-j", "DROP")
        nodes = [self.node(1), self.node(2)]
        self.discovered(nodes[0], nodes[1], 30)
        self.discovered(nodes[1], nodes[0], 30)


class Departure(NetworkCase):
    def test_clean_exit_is_announced(self):
        first, second = self.meeting()
        self.assertEqual(second.terminate(), 0)
        first.wait_peer("peerRemoved", second, 5)

    def test_killed_node_is_noticed_removed_and_found_again(self):
        first, second = self.meeting()
        first.wait_peer("peerResponsive", second, 5)
        died = second.kill()
        unresponsive = first.wait_peer("peerUnresponsive", second, 12)
        removed = first.wait_peer("peerRemoved", second, 15)
        self.assertLess(unresponsive["_at"] - died, 10)
        self.assertLess(removed["_at"] - died, 15)

        again = Node(self.network.hosts[1])
        again.wait_started()
        back = time.monotonic()
        found = first.wait_peer("peerDiscovered", again, 10)
        self.assertLess(found["_at"] - back, 5)
        self.assertEqual(found["service"]["name"], again.service_name)

    def test_partition_is_noticed_and_healed(self):
        first, second = self.meeting()
        first.wait_peer("peerResponsive", second, 5)
        self.network.hosts[1].partition()
        first.wait_peer("peerUnresponsive", second, 12)
        first.wait_peer("peerRemoved", second, 12)
        self.network.hosts[1].heal()
        first.wait_peer("peerDiscovered", second, 30)
        first.wait_peer("peerResponsive", second, 10)

    def test_link_goes_down_and_comes_up(self):
        first, second = self.meeting()
        first.wait_peer("peerResponsive", second, 5)
        self.network.hosts[0].link_down()
        first.wait_peer("peerRemoved", second, 15)
        self.network.hosts[0].link_up()
        first.wait_peer("peerDiscovered", second, 15)
        first.wait_peer("peerResponsive", second, 10)

    def test_renamed_node_is_heard_under_its_new_name(self):
        first, second = self.meeting()
        renamed = second.ask("rename")
        self.assertTrue(renamed["ok"], renamed)
        first.wait("the new name", lambda event: event["event"] == "rejoined"
                   and event["frxId"] not in ("", second.service_name) and "SUITE 2" in event["frxId"], 15)


class Foreigners(NetworkCase):
    def test_heartbeat_reaches_a_foreign_peer(self):
        foreign = ForeignPeer(self.network.hosts[1], "browse", "10.77.0.2")
        foreign.wait("browsing", lambda event: event["event"] == "browsing", 10)
        node = self.node(1)
        seen = foreign.wait("our instance", lambda event: event.get("txt", {}).get("App") == "Vantle", 10)
        self.assertEqual((seen["name"], seen["port"]), (node.service_name, 16654))

        beats = [foreign.wait("heartbeat", lambda event: event.get("txt", {}).get("App") == "Alpha", 10)
                 for _ in range(2)]
        for beat in beats:
            self.assertEqual(beat["txt"]["DeviceId"], "00000001-0000-4000-8000-000000000001")
            self.assertEqual(beat["txt"]["FriendlyName"], "Suite 1")
            self.assertRegex(beat["txt"]["Heartbeat"], r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d[+-]\d{4}$")
        self.assertLess(int(beats[0]["txt"]["RegisteredAt"]), int(beats[1]["txt"]["RegisteredAt"]))

        self.assertEqual(node.terminate(), 0)
        foreign.wait("goodbye", lambda event: event["event"] == "removed", 5)

    def test_status_stays_visible_over_heartbeats(self):
        foreign = ForeignPeer(self.network.hosts[1], "browse", "10.77.0.2")
        node = self.node(1, "--status", "grading")
        first = foreign.wait("status", lambda event: event.get("txt", {}).get("Status") == "grading", 10)
        foreign.wait("status of a later record", lambda event: event.get("txt", {}).get("Status") == "grading"
                     and event["txt"]["RegisteredAt"] > first["txt"]["RegisteredAt"], 15)
        self.assertTrue(node.ask("status", text="mixing")["ok"])
        foreign.wait("new status", lambda event: event.get("txt", {}).get("Status") == "mixing", 10)

    def test_foreign_publisher_is_found_checked_and_lost(self):
        node = self.node(1)
        foreign = ForeignPeer(self.network.hosts[1], "publish", "10.77.0.2", "F0F0-AAAA/FOREIGN SUITE", "7777")
        foreign.wait("published", lambda event: event["event"] == "published", 10)
        found = node.wait("the foreigner", lambda event: event["event"] == "peerDiscovered", 10)
        self.assertEqual(found["service"]["name"], "F0F0-AAAA/FOREIGN SUITE")
        self.assertEqual(found["service"]["serviceId"], "FOREIGN.LOCAL.:7777")
        node.wait("its answer", lambda event: event["event"] == "peerResponsive", 10)
        foreign.process.stdin.write("unpublish\n")
        foreign.process.stdin.flush()
        node.wait("its goodbye", lambda event: event["event"] == "peerRemoved", 10)


class ThroughTheDaemon(NetworkCase):
    def setUp(self):
        super().setUp()
        self.daemon = Daemon(self.network.hosts[0])
        self.daemon.start()

    def test_a_node_on_the_system_daemon_and_one_of_its_own_meet_and_part(self):
        first, second = self.node(1, discovery="avahi", bus=self.daemon.bus), self.node(2)
        self.assertEqual([node.events[0]["discovery"] for node in (first, second)], ["avahi", "embedded"])
        session = first.wait_published()["sessionId"]
        self.discovered(first, second, 10)
        self.discovered(second, first, 10)
        self.assertEqual(first.terminate(), 0)
        first.ever("the end of its announcement", lambda event: event["event"] == "localServiceEnded"
                   and event["sessionId"] == session, 5)
        second.wait_peer("peerRemoved", first, 5)

    def test_automatic_choice_takes_the_running_daemon(self):
        node = Node(self.network.hosts[0], discovery="auto", bus=self.daemon.bus)
        self.assertEqual(node.wait_started()["discovery"], "avahi")
        node.wait_published()
        self.assertEqual(node.terminate(), 0)


class ByAddress(NetworkCase):
    def setUp(self):
        super().setUp()
        for host in self.network.hosts:
            host.block_multicast()

    def test_peer_by_address_is_found_without_multicast(self):
        self.node(2)
        first = self.node(1, "--peer", "10.77.0.2")
        found = first.wait("the peer", lambda event: event["event"] == "peerDiscovered", 10)
        self.assertIn("SUITE 2", found["service"]["name"])
        first.wait("its answer", lambda event: event["event"] == "peerResponsive", 10)

    def test_peer_by_address_and_port_that_comes_late_is_found(self):
        first = self.node(1, "--peer", "10.77.0.2:7000")
        self.node(2, port=7000)
        first.wait("the peer", lambda event: event["event"] == "peerDiscovered", 15)

    def test_search_answers_with_the_record_or_the_reason(self):
        second = self.node(2)
        host = self.network.hosts[0]
        done = host.run([COMMAND, "search", "10.77.0.2", "--json"])
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(second.service_name, done.stdout)
        self.assertEqual(second.terminate(), 0)
        self.assertEqual(host.run([COMMAND, "search", "10.77.0.2", "--json"]).returncode, 1)


class IPv6Only(NetworkCase):
    ipv4 = False

    def test_nodes_meet_over_link_local_addresses(self):
        first, second = self.meeting()
        first.wait_peer("peerResponsive", second, 10)
        self.assertEqual(second.terminate(), 0)
        first.wait_peer("peerRemoved", second, 5)


if __name__ == "__main__":
    unittest.main()
