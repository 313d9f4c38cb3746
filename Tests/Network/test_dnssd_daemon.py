"""Discovery through the system's daemon, and through its losses."""

import time
import unittest

from probe import Daemon, Probe, ProbeCase


class DaemonCase(ProbeCase):
    def setUp(self):
        super().setUp()
        self.daemon = Daemon(self.host(1))

    def daemon_probe(self, *options, backend="daemon"):
        probe = Probe(self.host(1), *options, backend=backend, bus=self.daemon.bus)
        self.started = probe.wait_for("started")
        return probe


class WithDaemon(DaemonCase):
    def setUp(self):
        super().setUp()
        self.daemon.start()

    def test_automatic_choice_takes_the_running_daemon(self):
        self.daemon_probe(backend="auto")
        self.assertEqual(self.started["backEnd"], "avahi")

    def test_both_stacks_find_each_other_and_say_goodbye(self):
        one, two = self.daemon_probe(), self.probe(2)
        one.publish("FIRST", 4001, "Heartbeat=0")
        two.publish("SECOND", 4002, "Heartbeat=0")
        host = one.wait_for("resolved", "SECOND")["host"]
        self.assertIn(self.host(2).address, one.addresses_of(host)["addresses"])
        two.wait_for("txt", "FIRST", txt={"Heartbeat": "0"})
        one.send("txt Heartbeat=1")
        two.wait_for("txt", "FIRST", txt={"Heartbeat": "1"})
        self.assertEqual(one.quit(), 0)
        two.wait_for("removed", "FIRST", timeout=4)

    def test_a_killed_peer_is_removed(self):
        one, two = self.daemon_probe(), self.probe(2)
        two.publish("PEER", 4002)
        one.wait_for("resolved", "PEER")
        two.kill()
        one.send("reconfirm PEER")
        one.wait_for("removed", "PEER", timeout=5)
        back = self.probe(2)
        back.publish("PEER", 5002)
        self.assertEqual(one.wait_for("resolved", "PEER", timeout=5)["port"], 5002)

    def test_a_taken_name_is_replaced(self):
        two = self.probe(2)
        two.publish("SAME", 4002)
        two.wait_for("published", "SAME")
        one = self.daemon_probe()
        one.publish("SAME", 4001)
        names = self.settled_names(one, two)
        self.assertIn("SAME", names)
        newcomer = self.probe(2)
        found = {event["name"]: event["port"] for event in (newcomer.wait_for("resolved") for _ in range(2))}
        self.assertEqual(found, {names[0]: 4001, names[1]: 4002})

    def test_a_restart_shows_only_what_changed_meanwhile(self):
        for end in (self.daemon.stop, self.daemon.kill):
            with self.subTest(end.__name__):
                one, stays, leaves = self.daemon_probe(), self.probe(2), self.probe(2)
                one.publish("OURS", 4001)
                stays.publish("STAYS", 4002)
                leaves.publish("LEAVES", 4003)
                one.wait_for("resolved", "STAYS")
                one.wait_for("resolved", "LEAVES")
                stays.wait_for("resolved", "OURS")
                looked_at = len(one.events)
                end()
                leaves.quit()
                self.daemon.start()
                one.wait_for("removed", "LEAVES", timeout=10)
                stays.publish("STAYS2", 4004)
                one.wait_for("resolved", "STAYS2", timeout=10)
                again = [event for event in one.events[looked_at:]
                         if event.get("name") == "STAYS" and event["event"] == "added"]
                self.assertEqual(again, [])
                newcomer = self.probe(2)
                newcomer.wait_for("resolved", "OURS", timeout=10)
                for probe in (one, stays, newcomer):
                    probe.quit()

    def test_a_denied_interface_is_filtered_out(self):
        one, two = self.daemon_probe("--deny", "eth*"), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        two.wait_for("published", "SECOND")
        one.never_about("added", "SECOND", 2.5)
        self.assertFalse(any(event.get("name") == "FIRST" for event in two.events))

    def test_a_hung_daemon_does_not_stop_the_end(self):
        one = self.daemon_probe()
        one.publish("PEER", 4001)
        one.wait_for("published")
        self.daemon.freeze()
        self.addCleanup(self.daemon.thaw)
        begun = time.monotonic()
        self.assertEqual(one.quit(), 0)
        self.assertLess(time.monotonic() - begun, 6)


class WithoutDaemon(DaemonCase):
    def test_automatic_choice_falls_back_to_the_embedded_stack(self):
        self.daemon_probe(backend="auto")
        self.assertEqual(self.started["backEnd"], "embedded")

    def test_a_daemon_that_comes_later_is_used_when_it_was_asked_for(self):
        one, two = self.daemon_probe(), self.probe(2)
        one.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        one.never_about("added", "SECOND", 1)
        self.daemon.start()
        one.wait_for("resolved", "SECOND", timeout=10)
        two.wait_for("resolved", "FIRST", timeout=10)

    def test_switched_off_nothing_is_found_published_or_resolved(self):
        off, two = self.daemon_probe(backend="off"), self.probe(2)
        self.assertEqual(self.started["backEnd"], "off")
        off.publish("FIRST", 4001)
        two.publish("SECOND", 4002)
        two.wait_for("published")
        self.assertEqual(off.addresses_of(self.host(2).name + ".local")["addresses"], [])
        off.never_about("added", "SECOND", 1)
        self.assertFalse(any(event.get("name") == "FIRST" for event in two.events))


if __name__ == "__main__":
    unittest.main()
