"""Peers that die without a goodbye, cut networks, and links that come and go."""

import time
import unittest

from netns import sh
from probe import ProbeCase


class Reconfirming(ProbeCase):
    def test_a_living_peer_stays(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        one.send("reconfirm PEER")
        one.wait_for("reconfirming", code=0)
        one.never_about("removed", "PEER", 4)

    def test_an_unknown_name_does_nothing(self):
        one = self.probe(1)
        one.send("reconfirm NOBODY")
        one.wait_for("reconfirming", code=0)
        one.never_about("removed", "NOBODY", 1)

    def test_a_killed_peer_is_removed_and_found_again_on_another_port(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        died = two.kill()
        one.never_about("removed", "PEER", 1)
        one.send("reconfirm PEER")
        asked = time.monotonic()
        removed = one.wait_for("removed", "PEER", timeout=5)
        self.assertLess(removed["_at"] - asked, 4)
        self.assertGreater(removed["_at"], died)
        back = self.probe(2)
        back.publish("PEER", 5002)
        self.assertEqual(one.wait_for("resolved", "PEER", timeout=5)["port"], 5002)

    def test_only_the_host_that_asked_forgets_the_peer(self):
        one, other, two = self.probe(1), self.probe(2), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        other.wait_for("resolved", "PEER")
        two.kill()
        one.send("reconfirm PEER")
        one.wait_for("removed", "PEER", timeout=5)
        other.never_about("removed", "PEER", 2)

    def test_a_peer_killed_on_this_host_is_removed_too(self):
        one, two = self.probe(1), self.probe(1)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        two.kill()
        one.send("reconfirm PEER")
        one.wait_for("removed", "PEER", timeout=5)

    def test_a_peer_that_restarts_under_its_name_is_reported_with_its_new_port(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER", port=4002)
        two.kill()
        back = self.probe(2)
        back.publish("PEER", 5002)
        one.wait_for("resolved", "PEER", timeout=6, port=5002)

    def test_a_living_peer_behind_a_strict_packet_filter_stays(self):
        # Only multicast DNS itself may come in: answers to one-shot queries cannot.
        self.host(1).firewall("INPUT", "-p", "udp", "!", "--dport", "5353", "-j", "DROP")
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        one.send("reconfirm PEER")
        one.never_about("removed", "PEER", 4)


class Partitions(ProbeCase):
    def test_a_healed_partition_is_noticed(self):
        one = self.cut_off()
        self.host(2).heal()
        one.wait_for("resolved", "PEER", timeout=6)

    def test_a_refresh_finds_at_once_what_came_back(self):
        one = self.cut_off()
        one.never_about("added", "PEER", 3)
        self.host(2).heal()
        one.send("refresh")
        one.wait_for("added", "PEER", timeout=2)

    def cut_off(self):
        """A probe that knew PEER on the other host, and lost it when that was cut off."""
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        self.host(2).partition()
        one.send("reconfirm PEER")
        one.wait_for("removed", "PEER", timeout=5)
        return one


class Links(ProbeCase):
    def test_a_link_that_goes_takes_its_peers_along_and_brings_them_back(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        self.host(1).link_down()
        one.wait_for("removed", "PEER", timeout=2)
        self.host(1).link_up()
        one.wait_for("resolved", "PEER", timeout=5)

    def test_a_lost_carrier_counts_as_a_lost_link(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        bridge = self.network.bridge
        sh("ip", "-n", bridge, "link", "set", self.host(1).port, "down")
        one.wait_for("removed", "PEER", timeout=2)
        sh("ip", "-n", bridge, "link", "set", self.host(1).port, "up")
        one.wait_for("resolved", "PEER", timeout=5)

    def test_an_interface_that_appears_later_is_used(self):
        self.host(1).remove_link()
        one, two = self.probe(1), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        one.wait_for("published")
        two.wait_for("published")
        self.host(1).add_link()
        one.wait_for("resolved", "SECOND", timeout=8)
        two.wait_for("resolved", "FIRST", timeout=8)

    def test_without_a_network_two_nodes_meet_over_loopback(self):
        self.host(1).link_down()
        one, two = self.probe(1), self.probe(1)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        host = one.wait_for("resolved", "SECOND")["host"]
        two.wait_for("resolved", "FIRST")
        self.assertEqual(set(one.addresses_of(host)["addresses"]) - {"::1"}, {"127.0.0.1"})

    def test_nodes_that_met_on_a_network_meet_on_loopback_when_it_goes(self):
        one, two = self.probe(1), self.probe(1)
        two.publish("PEER", 4002)
        host = one.wait_for("resolved", "PEER")["host"]
        self.assertIn(self.host(1).address, one.addresses_of(host)["addresses"])
        self.host(1).link_down()
        one.wait_for("resolved", "PEER", timeout=5)
        self.assertEqual(set(one.addresses_of(host)["addresses"]) - {"::1"}, {"127.0.0.1"})

    def test_a_denied_interface_is_not_used(self):
        one, two = self.probe(1, "--deny", "eth*"), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        two.wait_for("published", "SECOND")
        one.never_about("added", "SECOND", 2.5)
        self.assertFalse(any(event.get("name") == "FIRST" for event in two.events))


class IPv6Only(ProbeCase):
    ipv4 = False

    def test_peers_find_each_other_over_ipv6_alone(self):
        one, two = self.probe(1), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        host = one.wait_for("resolved", "SECOND", timeout=10)["host"]
        two.wait_for("resolved", "FIRST", timeout=10)
        addresses = one.addresses_of(host)["addresses"]
        self.assertTrue(addresses and all(address.startswith("fe80:") for address in addresses), addresses)

    def test_a_killed_peer_is_removed(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER", timeout=10)
        two.kill()
        one.send("reconfirm PEER")
        one.wait_for("removed", "PEER", timeout=5)


if __name__ == "__main__":
    unittest.main()
