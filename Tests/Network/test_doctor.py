"""`ferrox doctor` on networks that work and on such as do not: what it finds, and what it advises."""

import json
import os
import pathlib
import re
import time
import unittest

from netns import Network, sh
from node import COMMAND, HERE, PYTHON, ForeignPeer, JsonProcess, Node, uuid_of

PORT = 16654
ROOT = pathlib.Path(__file__).resolve().parents[2]


def members_in_table(head):
    """{first column: names in the last} of the table that begins so."""
    document = (ROOT / "docs" / "troubleshooting.md").read_text(encoding="utf-8")
    rows = document.split(head, 1)[1].split("\n\n", 1)[0].splitlines()[2:]
    cells = [row.strip("| ").split(" | ") for row in rows]
    return {row[0]: set(re.findall("`(\\w+)`", row[-1])) for row in cells}


def documented(finding):
    """The members that the document tells of for findings of that kind."""
    names = {"check", "verdict", "text", "advice"}
    names |= members_in_table("| Check | A finding for | Members |")[finding["check"]]
    if "method" in finding:
        methods = members_in_table("| Method | Members |")
        names |= {"method"} | methods[finding["method"]]
        if finding["method"] in ("http", "websocket"):
            names |= methods["tcp"]
    return names


class DoctorCase(unittest.TestCase):
    """The doctor runs on the first host; who it meets, on the second."""

    ipv4 = True
    ipv6 = True

    def setUp(self):
        self.network = Network(2, ipv4=self.ipv4, ipv6=self.ipv6)
        self.addCleanup(self.network.close)
        self.here, self.there = self.network.hosts

    def node_there(self, *options, **more):
        node = Node(self.there, *options, **more)
        node.wait_started()
        node.wait_published()
        return node

    def scripted_there(self, mode, *more):
        peer = JsonProcess(self.there, [PYTHON, os.path.join(HERE, "scripted_peer.py"), mode, PORT, *more])
        peer.wait("listening", lambda event: event["event"] == "listening", 30)
        return peer

    def run_doctor(self, *options):
        begun = time.monotonic()
        done = self.here.run([COMMAND, "doctor", "--device-uuid", uuid_of(1), *options], timeout=90)
        self.seconds = time.monotonic() - begun
        self.assertEqual(done.stderr, "")
        return done

    def doctor(self, *options):
        """The report of `doctor --json`."""
        done = self.run_doctor("--json", *options)
        report = json.loads(done.stdout)
        self.assertEqual(done.returncode, 0 if report["ok"] else 1)
        self.assertEqual(report["ok"], not self.of(report, verdict="bad"))
        for finding in report["findings"]:
            self.assertLessEqual(finding.keys(), documented(finding), finding)
        return report

    @staticmethod
    def of(report, **members):
        """The findings with these members."""
        return [finding for finding in report["findings"]
                if all(finding.get(key) == value for key, value in members.items())]

    def the(self, report, **members):
        found = self.of(report, **members)
        self.assertEqual(len(found), 1, f"{members} in {json.dumps(report, indent=1)}")
        return found[0]


class Healthy(DoctorCase):
    def test_a_peer_is_found_by_multicast_and_tried_in_every_way(self):
        node = self.node_there()
        report = self.doctor()
        self.assertTrue(report["ok"], report)
        self.assertIn("Nothing was found", report["conclusion"])

        used = self.the(report, check="interfaces", interface="eth0")
        self.assertEqual((used["used"], used["hasIPv4"], used["hasIPv6"]), (True, True, True))
        self.assertFalse(self.the(report, check="interfaces", interface="lo")["used"])
        for family in ("IPv4", "IPv6"):
            heard = self.the(report, check="multicast", interface="eth0", family=family)
            self.assertEqual((heard["sent"], heard["heardBack"], heard["answers"], heard["hostsWithNodes"]),
                             (True, True, 1, 1))

        announced = self.the(report, check="announcements")
        self.assertEqual(announced["serviceName"], node.service_name)
        self.assertEqual(announced["interfaces"], ["eth0"])
        self.assertIn("10.77.0.2", announced["addresses"])
        self.assertIn(announced["txtBytes"], range(20, 1201))

        address = f"10.77.0.2:{PORT}"
        for method in ("tcp", "http", "websocket"):
            tried = self.the(report, check="peers", method=method, address=address)
            self.assertEqual((tried["ok"], tried["verdict"], tried["given"]), (True, "good", False))
            self.assertGreaterEqual(tried["milliseconds"], 0)
        self.assertTrue(self.the(report, method="websocket", address=address)["heartbeatAnswered"])
        self.assertEqual(self.the(report, method="http", address=address)["service"]["name"], node.service_name)

    def test_the_clock_of_a_node_is_told_within_milliseconds(self):
        self.node_there()
        clock = self.the(self.doctor("--peer", "10.77.0.2"), method="clock", address=f"10.77.0.2:{PORT}")
        self.assertEqual((clock["by"], clock["verdict"]), ("heartbeat", "good"))
        self.assertLessEqual(abs(clock["aheadMilliseconds"]), clock["uncertaintyMilliseconds"] + 1)
        self.assertLess(clock["uncertaintyMilliseconds"], 1000)

    def test_a_name_stands_for_all_its_addresses(self):
        self.node_there()
        name = f"{self.there.name}.local"
        report = self.doctor("--peer", name)
        tried = {finding["address"] for finding in self.of(report, peer=f"{name}:{PORT}", method="websocket", ok=True)}
        self.assertIn(f"10.77.0.2:{PORT}", tried)
        self.assertTrue(any(address.startswith("[fe80::") for address in tried), tried)

    def test_a_peer_is_not_disturbed(self):
        node = self.node_there()
        self.assertTrue(self.doctor("--peer", "10.77.0.2")["ok"])
        node.never("anything about the doctor", lambda event: event["event"].startswith(("peer", "connect")), 2)

    def test_it_tells_all_of_it_to_people_too(self):
        self.node_there()
        done = self.run_doctor()
        self.assertEqual(done.returncode, 0)
        for text in ("eth0 is used: up and able to carry multicast; IPv4 and IPv6", '"SUITE 2" is announced on eth0',
                     f'"SUITE 2" at 10.77.0.2:{PORT} accepts TCP connections', "answers a heartbeat",
                     "its clock agrees with this machine's within"):
            self.assertIn(text, done.stdout)

    def test_a_node_of_this_machine_is_known_for_one(self):
        node = Node(self.here, index=1)
        node.wait_started()
        node.wait_published()
        report = self.doctor("--peer", "10.77.0.1")
        self.assertTrue(report["ok"], report)
        port = self.the(report, check="port")
        self.assertEqual((port["free"], port["verdict"]), (False, "note"))
        self.assertRegex(" ".join(port["programs"]), r"^ferrox \(\d+\)$")
        programs = [finding.get("program", "") for finding in self.of(report, check="responders")]
        self.assertIn("ferrox (", " ".join(programs))
        self.assertTrue(self.the(report, check="announcements")["onThisMachine"])
        self.assertTrue(self.the(report, method="websocket", address=f"10.77.0.1:{PORT}")["heartbeatAnswered"])

    def test_a_machine_with_the_same_identity_is_a_problem(self):
        self.node_there(index=1)
        report = self.doctor()
        self.assertIn("identity of this one", self.the(report, check="announcements")["text"])
        self.assertIn("--device-uuid", report["conclusion"])


class IPv6Only(DoctorCase):
    ipv4 = False

    def test_link_local_addresses_are_tried(self):
        self.node_there()
        report = self.doctor()
        self.assertTrue(report["ok"], report)
        sockets = self.of(report, check="peers", method="websocket")
        self.assertEqual([finding["ok"] for finding in sockets], [True])
        self.assertRegex(sockets[0]["address"], r"^\[fe80::.*%eth0\]:16654$")


class Multicast(DoctorCase):
    def drop(self, host, chain, families=("iptables", "ip6tables")):
        for family in families:
            sh("ip", "netns", "exec", host.namespace, family, "-w", "5", "-A", chain, "-p", "udp", "--dport", "5353",
               "-j", "DROP")

    def test_a_firewall_here_that_lets_nothing_in_is_named_with_the_interface(self):
        self.drop(self.here, "INPUT")
        self.node_there()
        report = self.doctor()
        for family in ("IPv4", "IPv6"):
            finding = self.the(report, check="multicast", family=family)
            self.assertEqual((finding["verdict"], finding["sent"], finding["heardBack"]), ("bad", True, False))
        self.assertIn("eth0 over IPv4: sent, but not heard back", report["conclusion"])
        self.assertIn("allow UDP port 5353 in and out on eth0", report["conclusion"])

    def test_a_firewall_here_that_lets_nothing_out_is_told_from_it(self):
        self.drop(self.here, "OUTPUT")
        report = self.doctor()
        finding = self.the(report, check="multicast", family="IPv4")
        self.assertEqual((finding["verdict"], finding["sent"]), ("bad", False))
        self.assertIn("a firewall on this machine forbids it", finding["advice"])

    def test_one_family_is_enough(self):
        self.drop(self.here, "INPUT", ["iptables"])
        self.node_there()
        report = self.doctor()
        self.assertTrue(report["ok"], report)
        self.assertEqual(self.the(report, check="multicast", family="IPv4")["verdict"], "note")
        self.assertEqual(self.the(report, check="multicast", family="IPv6")["hostsWithNodes"], 1)

    def test_a_network_that_keeps_multicast_back_is_told_by_a_peer_that_answers_by_address(self):
        self.there.block_multicast()
        Node(self.there).wait_started()
        report = self.doctor("--peer", "10.77.0.2")
        self.assertTrue(report["ok"], report)
        self.assertEqual(self.the(report, check="announcements")["text"], "no node is announced")
        self.assertIn("keeps multicast back", self.the(report, check="multicast", family="IPv4")["text"])
        unheard = self.the(report, check="peers", method="multicast")
        self.assertEqual(unheard["verdict"], "note")
        self.assertIn("go on with --peer", unheard["advice"])

    def test_others_that_are_heard_but_do_not_answer_are_told(self):
        self.drop(self.there, "INPUT")
        Node(self.there).wait_started()  # asks, and never hears anybody
        deadline = time.monotonic() + 60
        while True:
            heard = self.the(self.doctor(), check="multicast", family="IPv4")
            if heard["hostsHeard"] == 1 and heard["answers"] == 0:
                return self.assertIn("other hosts are heard", heard["text"])
            self.assertLess(time.monotonic(), deadline, heard)

    def test_without_discovery_only_named_peers_are_tried(self):
        self.node_there()
        report = self.doctor("--discovery", "off", "--peer", "10.77.0.2")
        self.assertTrue(report["ok"], report)
        self.assertEqual({finding["check"] for finding in report["findings"]},
                         {"identity", "interfaces", "responders", "port", "peers"})


class BadPeers(DoctorCase):
    def tried(self, **members):
        """By method, what was found of the peer on the second host."""
        return {finding["method"]: finding for finding in self.of(self.report, check="peers", **members)}

    def meet(self, mode, *more):
        self.scripted_there(mode, *more)
        self.report = self.doctor("--peer", "10.77.0.2")
        self.assertLess(self.seconds, 45)  # it takes six, on a machine that has the time
        self.assertFalse(self.report["ok"])
        return self.tried(address=f"10.77.0.2:{PORT}")

    def test_one_that_accepts_and_says_nothing(self):
        tried = self.meet("silent")
        self.assertEqual([tried[method]["ok"] for method in ("tcp", "http", "websocket")], [True, False, False])
        self.assertIn("accepts TCP, but gives no service record", self.report["conclusion"])
        self.assertIn(f"see what listens on port {PORT} there", self.report["conclusion"])

    def test_one_that_refuses_the_socket_and_has_a_wrong_clock(self):
        tried = self.meet("record", "37")
        self.assertEqual([tried[method]["ok"] for method in ("tcp", "http", "websocket")], [True, True, False])
        self.assertIn("opens no WebSocket", self.report["conclusion"])
        self.assertIn("404", tried["websocket"]["error"])
        clock = tried["clock"]
        self.assertEqual((clock["by"], clock["verdict"]), ("Date", "note"))
        self.assertLessEqual(abs(clock["aheadMilliseconds"] - 37000), clock["uncertaintyMilliseconds"])
        self.assertGreaterEqual(clock["uncertaintyMilliseconds"], 500)
        self.assertRegex(clock["text"], r"is 3\d\.\d s ahead of this machine's \(give or take")

    def test_one_that_opens_a_socket_and_says_nothing_on_it(self):
        peer = self.scripted_there("mute")
        report = self.doctor("--peer", "10.77.0.2")
        self.assertTrue(report["ok"], report)
        self.report = report
        tried = self.tried(address=f"10.77.0.2:{PORT}")
        self.assertEqual((tried["websocket"]["verdict"], tried["websocket"]["heartbeatAnswered"]), ("note", False))
        self.assertEqual((tried["clock"]["by"], tried["clock"]["verdict"]), ("Date", "good"))
        asked = peer.wait("a message", lambda event: event["event"] == "frame", 30)
        self.assertEqual(json.loads(asked["data"])["type"], 1)
        left = peer.wait("its leave", lambda event: event["event"] == "frame", 30)
        self.assertEqual((left["opcode"], left["data"]), (8, "\x03\xe8"))  # close code 1000

    def test_text_from_the_network_does_not_reach_the_terminal_as_it_is(self):
        self.scripted_there("record", "0")
        foreign = ForeignPeer(self.there, "publish", "10.77.0.2", "F0F1-B/\u202eGREEN", "7777")
        foreign.wait("published", lambda event: event["event"] == "published", 30)
        shown = self.run_doctor("--peer", "10.77.0.2").stdout
        self.assertIn("RED SUITE", shown)
        self.assertIn("GREEN", shown)
        self.assertNotRegex(shown, "[\x1b\u202e]")

    def test_one_that_answers_garbage(self):
        tried = self.meet("garbage")
        self.assertEqual([tried[method]["ok"] for method in ("tcp", "http", "websocket")], [True, False, False])

    def test_one_whose_header_never_ends(self):
        tried = self.meet("endless")
        self.assertEqual(tried["http"]["error"], "no complete answer within 3 s")
        self.assertFalse(tried["websocket"]["ok"])

    def test_one_whose_answer_is_huge(self):
        tried = self.meet("huge")
        self.assertFalse(tried["http"]["ok"])

    def test_one_that_is_announced_and_accepts_but_is_no_node(self):
        foreign = ForeignPeer(self.there, "publish", "10.77.0.2", "F0F1-B/FOREIGN", "7777")
        foreign.wait("published", lambda event: event["event"] == "published", 30)
        self.report = self.doctor()
        tried = self.tried(address="10.77.0.2:7777")
        self.assertEqual([tried[method]["ok"] for method in ("tcp", "http", "websocket")], [True, False, False])
        self.assertEqual(tried["tcp"]["announced"], True)

    def test_one_that_is_not_there(self):
        self.report = self.doctor("--peer", "10.77.0.2", "--peer", "10.77.0.99", "--peer", "nosuch.local")
        self.assertLess(self.seconds, 45)
        advice = {finding["peer"]: finding["advice"] for finding in self.of(self.report, method="tcp", ok=False)}
        self.assertIn("nothing listens", advice[f"10.77.0.2:{PORT}"])
        self.assertIn("that machine is off", advice[f"10.77.0.99:{PORT}"])
        self.assertIn("look at the name", advice[f"nosuch.local:{PORT}"])


if __name__ == "__main__":
    unittest.main()
