"""A whole node dials foreign WebSocket servers that behave well, and that end their connections in many ways."""

import json
import re
import time
import unittest
import urllib.parse
import uuid

from foreign_process import FOREIGN_DEVICE, MEMBERS, Foreign, LoggedNode, message

MIB = 1 << 20
MONITOR_INTERVAL = 15
CONNECT_TIMEOUT = 10


class ForeignServers:
    """One node connected to two foreign servers for all cases."""

    language = ""

    @classmethod
    def setUpClass(cls):
        cls.foreign = cls.enterClassContext(Foreign(cls.language))
        cls.a, cls.b = cls.foreign.serve("A"), cls.foreign.serve("B")
        cls.node = cls.enterClassContext(LoggedNode(peers=(cls.a, cls.b)))
        cls.started = cls.node.started()
        cls.connected = cls.node.wait_peer("connected", cls.a)
        cls.node.wait_peer("connected", cls.b)
        (cls.to_a, cls.path), (cls.to_b, _) = cls.a.accepted(), cls.b.accepted()

    def setUp(self):
        self.drain(self.to_a, self.to_b)

    def drain(self, *sockets):
        """What each socket has received by now, up to and without a post made for the purpose."""
        name = f"mark {uuid.uuid4()}"
        self.node.post(name)
        received = []
        for socket in sockets:
            received.append([])
            while True:
                text = socket.next_text()
                if json.loads(text)["subject"] == name:
                    break
                received[-1].append(text)
        return received

    def assert_nothing_was_sent_to(self, *sockets):
        for received in self.drain(*sockets):
            self.assertEqual(received, [])

    def test_the_request_names_the_node(self):
        path, query = self.path.split("?")
        self.assertEqual(path, "/frxsocket")
        self.assertRegex(query, r"^id=[^&/ ]+&hostname=[^&/ ]+&port=[0-9]+$")
        members = urllib.parse.parse_qs(query, strict_parsing=True)
        self.assertEqual(members["id"], [self.started["serviceName"]])
        self.assertEqual(members["port"], [str(self.started["port"])])
        self.assertRegex(members["hostname"][0], r"(?i)^[^/]+\.local\.$")

    def test_connections_are_told(self):
        self.assertEqual(self.connected["userInfo"], {"frxId": self.a.service_id, "frxURL": self.a.service_id})
        records = {record["serviceId"]: record for record in self.node.ask("peers")["services"]}
        self.assertTrue(records[self.a.service_id]["connected"])
        self.assertTrue(records[self.b.service_id]["connected"])

    def test_a_post_arrives_with_exactly_the_nine_members(self):
        payload = {"text": "\u00fc \U0001f600", "list": [1, 2.5, None, True, {"deep": {}}]}
        self.assertEqual(self.node.post("Posted", filter="only this", userInfo=payload)["sentTo"], 2)
        texts = [socket.next_text() for socket in (self.to_a, self.to_b)]
        self.assertEqual(texts[0], texts[1])
        received = json.loads(texts[0])
        self.assertEqual(set(received), MEMBERS)
        self.assertEqual((received["type"], received["subject"], received["message"]), (0, "Posted", "only this"))
        self.assertEqual(received["userInfo"], payload)
        self.assertTrue(re.fullmatch(r"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}", received["id"]))
        self.assertIsInstance(received["timestamp"], int)
        self.assertLess(abs(received["timestamp"] / 1000 - time.time()), 60)
        self.assertEqual(received["from"], self.started["serviceName"])
        self.assertEqual(received["port"], self.started["port"])
        self.assertIsInstance(received["serviceSessionId"], str)
        for server in (self.a, self.b):
            self.node.wait("messageSent", lambda event, server=server: (
                event["id"] == received["id"] and event["service"]["serviceId"] == server.service_id))

    def test_a_post_without_filter_and_payload_has_empty_ones(self):
        self.node.post("Bare")
        received = self.to_a.next_message()
        self.assertEqual(set(received), MEMBERS)
        self.assertEqual((received["message"], received["userInfo"]), ("", {}))

    def test_a_servers_notifications_arrive(self):
        self.node.observe("From a server")
        for kind in (0, 3):
            sent = message(kind, subject="From a server", message=f"filter {kind}", userInfo={"kind": kind})
            self.to_a.send(sent)
            seen = self.node.notification("From a server", lambda event: event["filter"] == f"filter {kind}")
            self.assertEqual((seen["sender"], seen["timestamp"]), (FOREIGN_DEVICE, sent["timestamp"]))
            self.assertEqual(seen["userInfo"], sent["userInfo"])
        self.assert_nothing_was_sent_to(self.to_a, self.to_b)

    def test_what_should_be_forwarded_goes_to_the_others_byte_for_byte(self):
        self.node.observe("Relayed")
        text = ('{ "userInfo" : {"shouldForward":true, "a":1.50, "b":1e2, "\\u00e9" : "\u00e9\\/" },\n'
                ' "subject":"Relayed", "extra": [ ],"type":0,"id":"lower-case",'
                ' "timestamp":1234567890123,"from":"SOMEBODY"}')
        self.to_a.send(text)
        seen = self.node.notification("Relayed")
        self.assertEqual((seen["sender"], seen["timestamp"]), ("SOMEBODY", 1234567890123))
        self.assertEqual(self.drain(self.to_a, self.to_b), [[], [text]])

    def test_only_what_is_marked_is_forwarded(self):
        self.node.observe("Kept here")
        marks = (False, None, "true", 0, [True])
        for mark in marks:
            self.to_a.send(message(0, subject="Kept here", userInfo={"shouldForward": mark}))
        self.assertEqual(len(self.node.notifications("Kept here", len(marks))), len(marks))
        self.assert_nothing_was_sent_to(self.to_a, self.to_b)

    def test_what_asks_for_nothing_is_not_answered(self):
        self.node.observe("After all that")
        for text in (message(1), message(2, message='{"data": {}}'), '{"type": 2}', message(7), '{"type": 1e400}',
                     "", "no json", "[]", "[" * 100_000, '{"timestamp": "now"}', '{"id": 7, "type": []}'):
            self.to_a.send(text)
        self.to_a.send(message(0, subject="After all that"))
        self.node.notification("After all that")
        self.assert_nothing_was_sent_to(self.to_a, self.to_b)
        self.assertIn("Unable to create FRXWebsocketMessage from message: ", self.node.log())
        self.assertIn("Received message that was either not a FRXWebsocketMessage, or has an unsupported message "
                      "type: ", self.node.log())

    def test_a_servers_fragments_are_one_message(self):
        self.node.observe("Server's fragments")
        sent = message(0, subject="Server's fragments", userInfo={"text": "\u00e9\u20ac\U0001f600" * 50})
        text = json.dumps(sent, ensure_ascii=False)
        pieces = [text[at:at + 3] for at in range(0, len(text), 3)]
        self.to_a.do("fragments", texts=pieces)
        self.assertEqual(self.node.notification("Server's fragments")["userInfo"], sent["userInfo"])
        self.assertEqual(self.to_a.wait("sent", lambda event: event["pongs"] > 0)["pongs"], len(pieces))

    def test_a_servers_flood_arrives_whole_and_in_bounded_memory(self):
        count = 20_000
        self.node.observe("Server's flood")
        before = self.node.resident_bytes()
        flood = json.dumps(message(0, subject="Server's flood", userInfo={"n": "{n}", "text": "x" * 200}))
        self.to_a.do("send", text=flood, count=count)
        seen = self.node.notifications("Server's flood", count)
        self.assertEqual([event["userInfo"]["n"] for event in seen], [str(n) for n in range(count)])
        self.node.assert_memory_below(before + 64 * MIB)

    def test_a_client_that_names_its_own_server_is_dialled_back(self):
        third = self.foreign.serve("C")
        third.service_id = third.address
        with LoggedNode() as node:
            port = third.address.rpartition(":")[2]
            query = f"id=C0DEVICE-MTI%3D%2FFOREIGN%20C&hostname=127.0.0.1&port={port}"
            self.foreign.dial(f"ws://127.0.0.1:{node.started()['port']}/frxsocket?{query}")
            node.wait_peer("connected", third)
            third.accepted()


class EndingServers:
    """One node whose servers end their connections at the same time, each in its own way."""

    language = ""

    @classmethod
    def setUpClass(cls):
        cls.foreign = cls.enterClassContext(Foreign(cls.language))
        labels = ("LEAVING", "BINARY", "OVERSIZE", "HALF", "STEADY")
        cls.servers = {label: cls.foreign.serve(label) for label in labels}
        cls.mute = cls.foreign.serve("MUTE", upgrade="never")
        cls.refusing = {status: cls.foreign.serve(f"REFUSING-{status}", upgrade=status) for status in (404, 200)}
        cls.node = cls.enterClassContext(LoggedNode(
            peers=(*cls.servers.values(), cls.mute, *cls.refusing.values())))
        cls.node.started()
        for server in cls.servers.values():
            cls.node.wait_peer("connected", server)
        cls.sockets = {label: server.accepted()[0] for label, server in cls.servers.items()}
        cls.node.post("Kept for late joiners", userInfo={"edition": 1}, repost=True)
        cls.node.post("Kept for late joiners", userInfo={"edition": 2}, repost=True)
        cls.node.post("Not kept")
        cls.end_all()

    @classmethod
    def end_all(cls):
        cls.ended = time.monotonic()
        cls.sockets["LEAVING"].do("close", code=1001, reason="going away")
        cls.sockets["BINARY"].do("sendSize", size=10, binary=True)
        cls.sockets["OVERSIZE"].do("sendSize", size=4 * MIB + 1)
        cls.sockets["HALF"].do("halfClose")

    def assert_reconnected(self, label):
        server = self.servers[label]
        left = self.ended + MONITOR_INTERVAL + 5 - time.monotonic()
        socket, _ = server.accepted(number=2, timeout=left)
        connections = 0

        def is_second(_):
            nonlocal connections
            connections += 1
            return connections == 2

        self.node.wait_peer("connected", server, is_second)
        return socket

    def assert_disconnected(self, label, code, was_clean):
        server = self.servers[label]
        seen = self.node.wait_peer("disconnected", server)["userInfo"]
        self.assertEqual(seen, {"code": code, "wasClean": was_clean, "frxId": server.service_id,
                                "frxURL": server.service_id})

    def test_a_server_that_leaves_is_connected_again_and_gets_the_latest_kept_post(self):
        self.assert_disconnected("LEAVING", 1001, "YES")
        first = [self.sockets["LEAVING"].next_text() for _ in range(3)]
        self.assertEqual([json.loads(text)["subject"] for text in first],
                         ["Kept for late joiners", "Kept for late joiners", "Not kept"])
        again = self.assert_reconnected("LEAVING")
        # The same text: the same id and the same time as before.
        self.assertEqual(again.next_text(), first[1])
        self.node.post("After the return")
        self.assertEqual(again.next_post()["subject"], "After the return")

    def test_binary_is_refused_with_1003(self):
        self.assertEqual(self.sockets["BINARY"].closed()[0], 1003)
        self.assert_disconnected("BINARY", 1003, "NO")
        self.assert_reconnected("BINARY")

    def test_oversize_is_refused_with_1009(self):
        self.assertEqual(self.sockets["OVERSIZE"].closed()[0], 1009)
        self.assert_disconnected("OVERSIZE", 1009, "NO")
        self.assert_reconnected("OVERSIZE")

    def test_a_half_closed_connection_has_failed(self):
        self.assertTrue(self.node.wait_peer("connectionFailed", self.servers["HALF"])["userInfo"]["error"])
        self.sockets["HALF"].closed()
        self.assert_reconnected("HALF")

    def test_a_server_that_never_answers_the_handshake_fails_after_10_seconds(self):
        discovered = self.node.wait("peerDiscovered",
                                    lambda event: event["service"]["serviceId"] == self.mute.service_id)
        failed = self.node.wait_peer("connectionFailed", self.mute)
        self.assertTrue(failed["userInfo"]["error"])
        took = (failed["time"] - discovered["time"]) / 1000
        self.assertGreater(took, CONNECT_TIMEOUT - 0.5)
        # The peer was checked first, which takes up to 3 s.
        self.assertLess(took, CONNECT_TIMEOUT + 5)

    def test_a_server_that_refuses_the_upgrade_fails(self):
        for status, server in self.refusing.items():
            with self.subTest(status=status):
                failed = self.node.wait_peer("connectionFailed", server)["userInfo"]
                self.assertIn(str(status), failed["error"])
                self.assertEqual(failed["frxURL"], server.service_id)

    def test_the_steady_one_is_not_disturbed(self):
        self.node.post("Still here", userInfo={"n": 1})
        steady = self.sockets["STEADY"]
        while steady.next_post()["subject"] != "Still here":
            pass
        self.assertEqual(len([event for event in self.node.seen if event["event"] == "connected" and
                              event["userInfo"]["frxId"] == self.servers["STEADY"].service_id]), 1)

    def test_a_server_that_stops_reading_fails_at_the_queue_limit_and_the_others_go_on(self):
        deaf, steady = self.foreign.serve("DEAF"), self.foreign.serve("BESIDE")
        with LoggedNode(peers=(deaf, steady)) as node:
            for server in (deaf, steady):
                node.wait_peer("connected", server)
            before = node.resident_bytes()
            deaf.accepted()[0].do("pause")
            beside = steady.accepted()[0]
            payload = {"text": "x" * (512 * 1024)}
            count = 80
            for number in range(count):
                node.post(f"post {number}", userInfo=payload)
                self.assertEqual(beside.next_post()["subject"], f"post {number}")
            self.assertTrue(node.wait_peer("connectionFailed", deaf)["userInfo"]["error"])
            node.assert_memory_below(before + 32 * MIB)
            node.post("afterwards")
            self.assertEqual(beside.next_post()["subject"], "afterwards")


class PythonServers(ForeignServers, unittest.TestCase):
    language = "Python"


class NodeServers(ForeignServers, unittest.TestCase):
    language = "Node"


class EndingPythonServers(EndingServers, unittest.TestCase):
    language = "Python"


class EndingNodeServers(EndingServers, unittest.TestCase):
    language = "Node"


if __name__ == "__main__":
    unittest.main()
