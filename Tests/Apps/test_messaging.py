"""Nodes on loopback that connect and send each other notifications, driven as other programs would drive them."""

import json
import os
import pty
import signal
import subprocess
import time
import unittest
import uuid

from command_process import COMMAND, Node, run

HERE = ("--interface", "lo", "--discovery", "embedded")


def named(name, **members):
    """Matches notifications by name and by further members of the event."""
    return lambda event: event["name"] == name and all(event[key] == value for key, value in members.items())


def connect(first, second):
    """Both ways, as each of the two says."""
    for node, other in ((first, second), (second, first)):
        service = node.wait("peerDiscovered", node.about(other))["service"]["serviceId"]
        node.wait("connected", lambda event, service=service: event["userInfo"]["frxId"] == service)


class Messaging(unittest.TestCase):
    """Two nodes that are connected, made once: connecting takes longer than most cases."""

    @classmethod
    def setUpClass(cls):
        cls.first, cls.second = Node(name="First"), Node("--observe", "GIVEN", "--observe", "ONLY=f", name="Second")
        cls.addClassCleanup(cls.first.__exit__)
        cls.addClassCleanup(cls.second.__exit__)
        connect(cls.first, cls.second)

    def expect_only(self, name, *payloads):
        """What the second node saw of that name: exactly these, up to what is posted now."""
        end = {"end": str(uuid.uuid4())}
        self.assertTrue(self.first.ask("post", name="GIVEN", userInfo=end)["ok"])
        self.second.wait("notification", named("GIVEN", userInfo=end))
        seen = [event["userInfo"] for event in self.second.seen
                if event["event"] == "notification" and event["name"] == name]
        self.assertEqual(seen, list(payloads))

    def test_connected_names_the_peer_by_its_record(self):
        record = self.first.wait("peerDiscovered", self.first.about(self.second))["service"]
        event = self.first.wait("connected", lambda event: event["userInfo"]["frxId"] == record["serviceId"])
        self.assertEqual(event["userInfo"], {"frxId": record["serviceId"], "frxURL": record["serviceId"]})

    def test_a_notification_arrives_with_all_that_belongs_to_it(self):
        payload = {"text": "naïve \n \u202e ☃", "sender": "overwritten", "number": 2 ** 53, "half": 0.5, "none": None,
                   "list": [True, {"deep": []}]}
        self.second.ask("observe", name="WHOLE")
        posted = self.first.ask("post", name="WHOLE", filter=" f ", userInfo=payload)
        self.assertEqual((posted["ok"], posted["sentTo"]), (True, 1))
        event = self.second.wait("notification", named("WHOLE"))
        del payload["sender"]  # the real sender takes its place, and is told beside the payload
        self.assertEqual(event["userInfo"], payload)
        self.assertEqual((event["filter"], event["sender"]), (" f ", self.first.started()["serviceName"]))
        self.assertLess(abs(event["timestamp"] - event["time"]), 5000)
        self.assertNotIn("local", event)

    def test_sender_and_receiver_are_told_of_the_message_too(self):
        self.first.ask("post", name="UNOBSERVED")
        received = self.second.wait("messageReceived", lambda event: event["name"] == "UNOBSERVED")
        self.assertEqual(received["service"]["name"], self.first.started()["serviceName"])
        self.assertIsInstance(received["sessionId"], str)
        sent = self.first.wait("messageSent", lambda event: event["subject"] == "UNOBSERVED")
        self.assertEqual((sent["type"], sent["service"]["name"]), (0, self.second.started()["serviceName"]))
        self.assertRegex(sent["id"], r"^[0-9A-F-]{36}$")
        self.expect_only("UNOBSERVED")

    def test_a_filter_lets_only_its_own_through(self):
        for number, members in enumerate(({"filter": "f"}, {"filter": "F"}, {}, {"filter": "f "}, {"filter": "f"})):
            self.first.ask("post", name="ONLY", userInfo={"number": number}, **members)
        self.expect_only("ONLY", {"number": 0}, {"number": 4})

    def test_observing_starts_and_ends_when_asked(self):
        self.assertFalse(self.second.ask("unobserve", name="SOME")["ok"])
        for number, command in enumerate(("observe", "observe", "unobserve")):
            self.assertTrue(self.second.ask(command, name="SOME")["ok"])
            self.first.ask("post", name="SOME", userInfo={"after": number})
            self.expect_only("SOME", *[{"after": earlier} for earlier in range(min(number + 1, 2))])
        self.assertIn("not observed", self.second.ask("unobserve", name="SOME")["error"])

    def test_observed_with_and_without_a_filter_it_is_told_once(self):
        for members in ({"filter": "f"}, {}):
            self.second.ask("observe", name="TWICE", **members)
        self.first.ask("post", name="TWICE", filter="f", userInfo={"a": 1})
        self.expect_only("TWICE", {"a": 1})
        self.second.ask("unobserve", name="TWICE")
        self.first.ask("post", name="TWICE", userInfo={"a": 2})
        self.first.ask("post", name="TWICE", filter="f", userInfo={"a": 3})
        self.expect_only("TWICE", {"a": 1}, {"a": 3})

    def test_what_is_posted_locally_stays_here(self):
        self.second.ask("observe", name="LOCAL")
        self.second.ask("postLocal", name="LOCAL", userInfo={"timestamp": 7, "sender": "me"})
        event = self.second.wait("notification", named("LOCAL"))
        self.assertEqual((event["local"], event["filter"], event["userInfo"]),
                         (True, None, {"timestamp": 7, "sender": "me"}))
        self.assertEqual(event["sender"], self.second.started()["serviceName"])
        self.second.ask("postLocal", name="LOCAL", filter="f")
        self.second.wait("notification", named("LOCAL", filter="f", local=True, userInfo={}))
        self.second.ask("post", name="LOCAL")
        self.first.ask("postLocal", name="LOCAL", userInfo={"elsewhere": True})
        self.expect_only("LOCAL", {"timestamp": 7, "sender": "me"}, {})

    def test_order_is_kept_in_a_burst(self):
        self.second.ask("observe", name="BURST")
        for number in range(300):
            self.first.send({"cmd": "post", "name": "BURST", "userInfo": {"number": number}})
        self.expect_only("BURST", *[{"number": number} for number in range(300)])

    def test_commands_with_wrong_members_fail_and_change_nothing(self):
        bad = [({}, "name"), ({"name": 7}, "name"), ({"name": None}, "name"), ({"name": ""}, "blank"),
               ({"name": " \t"}, "blank"), ({"name": ["X"]}, "name"), ({"name": "X", "filter": 7}, "filter"),
               ({"name": "X", "filter": ""}, "filter"), ({"name": "X", "filter": {}}, "filter")]
        payloads = [({"name": "X", "userInfo": value}, "userInfo") for value in ([], 7, "x", True)]
        flags = [({"name": "X", "repost": value}, "repost") for value in ("yes", 1, 0, [])]
        for cmd, cases in (("post", bad + payloads + flags), ("postLocal", bad + payloads), ("observe", bad),
                           ("unobserve", bad)):
            for members, complaint in cases:
                with self.subTest(cmd=cmd, members=members):
                    result = self.first.ask(cmd, **members)
                    self.assertFalse(result["ok"])
                    self.assertIn(complaint, result["error"])
        self.assertFalse([event for event in self.first.seen if event.get("subject") == "X"])

    def test_null_stands_for_a_member_that_is_left_out(self):
        self.second.ask("observe", name="NULLS", filter=None)
        self.assertTrue(self.first.ask("post", name="NULLS", filter=None, userInfo=None, repost=None)["ok"])
        self.assertEqual(self.second.wait("notification", named("NULLS"))["filter"], None)


class Apart(unittest.TestCase):
    """Cases that need nodes of their own."""

    def node(self, *options, **settings):
        node = Node(*options, **settings)
        self.addCleanup(node.__exit__)
        return node

    def test_a_late_joiner_is_told_the_latest_of_what_was_kept_unchanged(self):
        first = self.node(name="First")
        first.started()
        self.assertEqual(first.ask("post", name="KEPT", userInfo={"n": 1}, repost=True)["sentTo"], 0)
        first.ask("post", name="KEPT", filter="f", userInfo={"n": 2}, repost=True)
        first.ask("post", name="KEPT", userInfo={"n": 3})
        first.ask("post", name="PASSING", userInfo={"n": 4})
        before = time.time() * 1000
        late = self.node("--observe", "KEPT", "--observe", "PASSING", "--observe", "END", name="Late")
        event = late.wait("notification", named("KEPT"))
        self.assertLess(event["timestamp"], before)
        connect(first, late)
        first.ask("post", name="END")
        late.wait("notification", named("END"))
        told = {(event["name"], event["filter"], event["userInfo"].get("n"), event["timestamp"])
                for event in late.seen if event["event"] == "notification" and event["name"] != "END"}
        self.assertEqual(told, {("KEPT", "f", 2, event["timestamp"])})

    def test_what_was_posted_just_before_the_end_arrives(self):
        first, second = self.node(name="First"), self.node("--observe", "LAST", name="Second")
        connect(first, second)
        for number in range(50):
            first.send({"cmd": "post", "name": "LAST", "userInfo": {"number": number, "bulk": "x" * 100000}})
        first.send({"cmd": "quit"})
        second.wait("notification", lambda event: event["userInfo"]["number"] == 49)
        self.assertEqual(first.exit_status(), 0)
        first.wait("disconnected", lambda event: event["userInfo"]["wasClean"] == "YES")
        left = second.wait("disconnected")["userInfo"]
        self.assertEqual((left["code"], left["wasClean"]), (1001, "YES"), "the other side says that it goes")

    def test_a_peer_that_is_killed_is_missed_at_once(self):
        first, second = self.node(name="First"), self.node(name="Second")
        connect(first, second)
        second.process.kill()
        failed = first.wait("connectionFailed", timeout=5)
        self.assertNotEqual(failed["userInfo"]["error"], "")
        self.assertEqual(first.ask("post", name="X")["sentTo"], 0)


class PostAndWatch(unittest.TestCase):
    def node(self, *options, **settings):
        node = Node(*options, **settings)
        self.addCleanup(node.__exit__)
        return node

    def watch(self, *arguments, **options):
        # The watchers see each other go, which is worth a warning.
        process = subprocess.Popen([COMMAND, "watch", *HERE, "--log-level", "error", *arguments],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   **options)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def test_post_reaches_a_node_of_the_same_machine(self):
        node = self.node("--observe", "TAKE", name="Suite")
        node.wait("localServiceStarted")
        done = run("post", "TAKE", "--user-info", '{"a": 1}', *HERE)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "sent to 1 peer: SUITE\n", ""))
        self.assertEqual(node.wait("notification", named("TAKE"))["userInfo"], {"a": 1})
        begun = time.monotonic()
        done = run("post", "TAKE", "--filter", "f", "--json", "--wait", "20", *HERE)
        self.assertLess(time.monotonic() - begun, 10, "it does not wait once everybody is connected")
        result = json.loads(done.stdout)
        self.assertEqual((result["event"], result["cmd"], result["ok"], result["sentTo"]), ("result", "post", True, 1))
        self.assertEqual(result["services"][0]["name"], node.started()["serviceName"])
        self.assertEqual(node.wait("notification", named("TAKE", filter="f"))["userInfo"], {})

    def test_much_is_sent_whole_before_the_process_ends(self):
        node = self.node("--observe", "BULK", name="Suite")
        node.wait("localServiceStarted")
        self.assertEqual(run("post", "BULK", "--user-info", json.dumps({"bulk": "x" * 100000}), *HERE).returncode, 0)
        self.assertEqual(len(node.wait("notification", named("BULK"))["userInfo"]["bulk"]), 100000)

    def test_post_to_nobody_exits_1(self):
        for options in (["--wait", "0"], ["--wait", "0.2", "--json"]):
            done = run("post", "X", "--discovery", "off", *options)
            self.assertEqual(done.returncode, 1)
            self.assertIn("nobody was found within", done.stderr)
            if "--json" in options:
                self.assertEqual(json.loads(done.stdout.splitlines()[-1])["event"], "error")

    def test_post_that_is_interrupted_exits_130(self):
        process = subprocess.Popen([COMMAND, "post", "X", "--discovery", "off", "--wait", "60"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        time.sleep(0.5)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.communicate(timeout=10), (b"", b""))
        self.assertEqual(process.returncode, 130)

    def test_post_finds_a_peer_by_address_alone(self):
        node = self.node("--observe", "TAKE", name="Suite", discovery="off")
        port = node.started()["port"]
        done = run("post", "TAKE", "--discovery", "off", "--peer", f"127.0.0.1:{port}", "--wait", "10")
        self.assertEqual(done.returncode, 0, done.stderr)
        node.wait("notification", named("TAKE"))

    def test_watch_tells_people_and_programs(self):
        people = self.watch("TAKE", "CUT=a b")
        programs = self.watch("TAKE", "--json")
        node = self.node(name="Suite")
        self.wait_for_connections(node, 2)
        node.ask("post", name="TAKE", userInfo={"a": "\x1b[2J"})
        node.ask("post", name="CUT", filter="other")
        node.ask("post", name="CUT", filter="a b")
        clock = r"^\d\d:\d\d:\d\d\.\d{3}  "
        self.assertRegex(people.stdout.readline(), clock + r'TAKE from SUITE: \{"a":"\\u001[bB]\[2J"\}\n$')
        self.assertRegex(people.stdout.readline(), clock + r"CUT \[a b\] from SUITE\n$")
        event = json.loads(programs.stdout.readline())
        self.assertEqual((event["event"], event["name"], event["userInfo"]), ("notification", "TAKE", {"a": "\x1b[2J"}))
        for process, number in ((people, signal.SIGINT), (programs, signal.SIGTERM)):
            process.send_signal(number)
            self.assertEqual(process.wait(timeout=15), 0)
            self.assertEqual(process.communicate(), ("", ""))

    def wait_for_connections(self, node, count):
        deadline = time.monotonic() + 20
        while sum(service["connected"] for service in node.ask("peers")["services"]) < count:
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def test_watch_ends_when_nobody_reads(self):
        process = self.watch("FRXConnectedNotification")
        time.sleep(0.5)
        process.stdout.close()
        self.assertEqual(process.wait(timeout=15), 0)
        process.stdout = None

    def test_watch_cannot_take_a_port_that_is_taken(self):
        node = self.node(discovery="off")
        done = run("watch", "X", "--port", str(node.started()["port"]), "--discovery", "off", "--json")
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot start", done.stderr)
        self.assertIn("cannot start", json.loads(done.stdout.splitlines()[-1])["message"])


class Terminal(unittest.TestCase):
    """The live table of a node that is talked to."""

    def test_the_table_shows_connections_and_notifications(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process = subprocess.Popen([COMMAND, "run", "--port", "0", "--computer-name", "Table", "--observe", "TAKE",
                                    "--device-uuid", "00000000-0000-4000-8000-000000000001", *HERE],
                                   stdin=slave, stdout=slave, stderr=slave, env={**os.environ, "TERM": "xterm",
                                                                                 "NO_COLOR": "1"})
        os.close(slave)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        output = self.read_until(master, b"", b"visible to others")
        node = Node(name="Suite")
        self.addCleanup(node.__exit__)
        output = self.read_until(master, output, b"connected to SUITE")
        self.assertRegex(self.read_until(master, output, b"  connected  "), rb"SUITE +\S+:\d+ +connected +\d\d:\d\d:\d\d")
        node.wait("connected")
        node.ask("post", name="TAKE", filter="f", userInfo={"reel": 3})
        output = self.read_until(master, output, b'TAKE [f] from SUITE: {"reel":3}')
        node.wait("localServiceStarted")
        node.terminate()
        self.read_until(master, output, b"gone: SUITE")
        process.send_signal(signal.SIGINT)
        self.read_until(master, b"", b"\x1b[?1049l")
        self.assertEqual(process.wait(timeout=15), 0)

    def read_until(self, master, output, text):
        deadline = time.monotonic() + 20
        while text not in output:
            self.assertLess(time.monotonic(), deadline, (text, output[-2000:]))
            output += os.read(master, 65536)
        return output


if __name__ == "__main__":
    unittest.main()
