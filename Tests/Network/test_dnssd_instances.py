"""Instances appear, change, collide and go, as the embedded stack sees and shows them."""

import time
import unittest

from probe import ProbeCase


class Appearing(ProbeCase):
    def test_two_hosts_find_each_other_and_themselves(self):
        one, two = self.probe(1), self.probe(2)
        one.publish("FIRST/1", 4001, "A=1")
        two.publish("SECOND-Ü/2", 4002, "B=2")
        for probe in (one, two):
            seen = {probe.wait_for("resolved")["name"] for _ in range(2)}
            self.assertEqual(seen, {"FIRST/1", "SECOND-Ü/2"})
        located = [event for event in one.events
                   if event["event"] == "resolved" and event["name"] == "SECOND-Ü/2"]
        self.assertEqual(located[-1]["host"], self.host(2).name + ".local.")
        self.assertEqual(located[-1]["port"], 4002)

    def test_a_dual_stack_peer_is_found_and_removed_once(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        one.never_about("added", "PEER", 1.0)
        two.send("unpublish")
        one.wait_for("removed", "PEER", timeout=4)
        one.never_about("removed", "PEER", 1.0)

    def test_a_newcomer_finds_what_is_there_in_one_batch(self):
        one, two = self.probe(1), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        one.wait_for("published")
        two.wait_for("published")
        newcomer = self.probe(1)
        found = [newcomer.wait_for("added", timeout=3) for _ in range(2)]
        self.assertEqual({event["name"] for event in found}, {"FIRST", "SECOND"})
        self.assertFalse(found[-1]["moreComing"])

    def test_two_nodes_on_one_host_find_each_other(self):
        one, two = self.probe(1), self.probe(1)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        self.assertEqual(one.wait_for("resolved", "SECOND")["port"], 4002)
        self.assertEqual(two.wait_for("resolved", "FIRST")["port"], 4001)

    def test_a_clean_exit_says_goodbye(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        left = time.monotonic()
        self.assertEqual(two.quit(), 0)
        self.assertLess(one.wait_for("removed", "PEER", timeout=4)["_at"] - left, 2.5)

    def test_a_stopped_browser_is_silent_and_may_search_again(self):
        one, two = self.probe(1), self.probe(2)
        one.send("stop")
        two.publish("PEER", 4002)
        two.wait_for("published")
        one.never_about("added", "PEER", 1.5)
        one.send("browse")
        one.wait_for("resolved", "PEER")


class Records(ProbeCase):
    def test_rewritten_txt_is_reported(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002, "Heartbeat=0")
        one.wait_for("txt", "PEER", txt={"Heartbeat": "0"})
        for beat in ("1", "2", "3"):
            two.send(f"txt Heartbeat={beat}")
            one.wait_for("txt", "PEER", timeout=3, txt={"Heartbeat": beat})

    def test_a_txt_record_that_fits_no_packet_is_refused_and_the_old_one_stays(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002, "Heartbeat=0")
        one.wait_for("txt", "PEER", txt={"Heartbeat": "0"})
        two.send("txt " + " ".join(f"K{i}={'x' * 200}" for i in range(7)))
        one.never_about("txt", "PEER", 1.5)
        two.send("txt Heartbeat=1")
        one.wait_for("txt", "PEER", timeout=3, txt={"Heartbeat": "1"})

    def test_a_foreign_peer_sees_our_txt_beating(self):
        foreign = self.foreign(2, "browse")
        foreign.wait("browsing", lambda event: event["event"] == "browsing", 5)
        one = self.probe(1)
        one.publish("OURS", 4001, "DeviceId=D", "Heartbeat=0")
        seen = foreign.wait("our service", lambda event: event["event"] == "added", 8)
        self.assertEqual((seen["name"], seen["port"]), ("OURS", 4001))
        self.assertEqual(seen["txt"], {"DeviceId": "D", "Heartbeat": "0"})
        self.assertIn(self.host(1).address, seen["addresses"])
        for beat in ("1", "2"):
            one.send(f"txt DeviceId=D Heartbeat={beat}")
            foreign.wait("the heartbeat", lambda event: event["event"] == "updated"
                         and event["txt"]["Heartbeat"] == beat, 4)
        one.quit()
        foreign.wait("our goodbye", lambda event: event["event"] == "removed", 4)

    def test_a_foreign_peer_is_found_resolved_and_removed(self):
        one = self.probe(1)
        foreign = self.foreign(2, "publish", "STRANGER", "5555")
        foreign.wait("published", lambda event: event["event"] == "published", 8)
        found = one.wait_for("resolved", "STRANGER")
        self.assertEqual((found["host"], found["port"]), ("foreign.local.", 5555))
        self.assertEqual(one.wait_for("txt", "STRANGER")["txt"]["App"], "Foreign")
        self.assertEqual(one.addresses_of("foreign.local")["addresses"], [self.host(2).address])
        foreign.process.stdin.write("unpublish\n")
        foreign.process.stdin.flush()
        one.wait_for("removed", "STRANGER", timeout=4)


class Conflicts(ProbeCase):
    hosts = 3

    def test_a_taken_name_is_replaced_and_the_final_one_told(self):
        one, two = self.probe(1), self.probe(2)
        one.publish("SAME", 4001)
        one.wait_for("published", "SAME")
        two.publish("SAME", 4002)
        names = self.settled_names(one, two)
        self.assertIn("SAME", names)
        two.send("txt A=1")
        newcomer = self.probe(3)
        found = {event["name"]: event["port"] for event in (newcomer.wait_for("resolved") for _ in range(2))}
        self.assertEqual(found, {names[0]: 4001, names[1]: 4002})
        newcomer.ever("its record", lambda event: event["event"] == "txt" and event["name"] == names[1]
                      and event["txt"] == {"A": "1"}, 8)

    def test_a_name_of_63_bytes_is_replaced_within_63_bytes(self):
        name = "N" * 63
        one, two = self.probe(1), self.probe(2)
        one.publish(name, 4001)
        one.wait_for("published", name)
        two.publish(name, 4002)
        names = self.settled_names(one, two)
        self.assertLessEqual(max(map(len, names)), 63)

    def test_a_name_beyond_63_bytes_is_cut_between_characters(self):
        one = self.probe(1)
        one.publish("N" * 62 + "Ü", 4001)
        self.assertEqual(one.wait_for("published")["name"], "N" * 62)

    def test_one_host_name_on_two_machines_is_cured(self):
        one = self.probe(1, "--host-name", "twin")
        one.publish("FIRST", 4001)
        one.wait_for("published")
        two = self.probe(2, "--host-name", "twin")
        two.publish("SECOND", 4002)
        two.wait_for("published", timeout=12)
        three = self.probe(3)
        hosts = {three.wait_for("resolved")["host"] for _ in range(2)}
        self.assertEqual(len(hosts), 2)
        self.assertIn("twin.local.", hosts)


class HostNames(ProbeCase):
    def test_addresses_of_both_families_arrive_soon_and_then_at_once(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        name = one.wait_for("resolved", "PEER")["host"]
        first = one.addresses_of(name)
        self.assertIn(self.host(2).address, first["addresses"])
        self.assertTrue(any(address.startswith("fe80:") and address.endswith("%eth0")
                            for address in first["addresses"]), first)
        self.assertLess(first["ms"], 1000)
        self.assertLess(one.addresses_of(name)["ms"], 50)
        self.assertLess(one.addresses_of(name.upper().rstrip("."))["ms"], 50)

    def test_an_unknown_or_unusable_name_yields_nothing_in_time(self):
        one = self.probe(1)
        answer = one.addresses_of("nobody.local", timeout_ms=500)
        self.assertEqual(answer["addresses"], [])
        self.assertTrue(450 <= answer["ms"] < 1000, answer)
        self.assertEqual(one.addresses_of("bad/name.local")["addresses"], [])
        self.assertEqual(one.addresses_of("..")["addresses"], [])

    def test_a_host_that_returns_under_its_name_is_found_again(self):
        one, two = self.probe(1), self.probe(2)
        two.publish("PEER", 4002)
        name = one.wait_for("resolved", "PEER")["host"]
        self.assertNotEqual(one.addresses_of(name)["addresses"], [])
        two.quit()
        one.wait_for("removed", "PEER")
        two = self.probe(2)
        two.publish("PEER", 4003)
        one.wait_for("resolved", "PEER", port=4003)
        self.assertIn(self.host(2).address, one.addresses_of(name)["addresses"])


if __name__ == "__main__":
    unittest.main()
