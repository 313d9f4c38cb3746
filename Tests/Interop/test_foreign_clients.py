"""Foreign WebSocket clients dial a whole node, and behave well and badly."""

import json
import unittest

from foreign_process import FOREIGN_DEVICE, MEMBERS, Foreign, LoggedNode, message

MAX_MESSAGE = 4 << 20
MIB = 1 << 20

# Texts that are no message, or one without consequence.
NONSENSE = [
    "", " ", "no json", "{", "[]", "[{}]", "7", "null", '"text"', "{} {}", "\ufeff{}", '{"id": "x",}', "{'id': 'x'}",
    '{"timestamp": "2026-01-01"}', '{"timestamp": null, "type": 2, "id": "x"}', '{"timestamp": [1], "type": 1}',
    # A query that nobody could match an answer with.
    '{"type": 2, "message": "{ capabilities }"}', '{"type": 2, "id": null, "message": "{ capabilities }"}',
    '{"type": 2, "id": 7}', '{"type": "2", "id": {"a": 1}, "message": []}',
    # Types that are none.
    '{"type": 7, "id": "x"}', '{"type": -1, "id": "x"}', '{"type": 1e300, "id": "x"}', '{"type": "seven"}',
    '{"type": 4294967303, "id": "x"}',
    # Numbers that nothing holds.
    '{"type": 1e400, "id": "x"}', '{"timestamp": 1e400}', '{"type": 1, "id": "x", "port": -1e999}',
    '{"type": 1, "timestamp": ' + "9" * 5000 + "e}", '{"timestamp": 1e308}', '{"timestamp": -1e308}',
    '{"port": 99999999999999999999999}',
    # Deeper than anybody means.
    "[" * 100_000, '{"userInfo": ' + '{"a":' * 5_000 + "1" + "}" * 5_001,
    # Texts that are hard to hold.
    '{"subject": "\\ud800", "id": "\\udfff"}', '{"subject": "a\\u0000b"}', '{"subject": 7, "message": {}}',
    '{"userInfo": "text"}', '{"userInfo": [1, 2]}', '{"from": 1, "serviceSessionId": []}', "{}",
]


class ForeignClients:
    """One node and one foreign process for all cases; every case dials sockets of its own."""

    language = ""

    @classmethod
    def setUpClass(cls):
        cls.node = cls.enterClassContext(LoggedNode())
        cls.foreign = cls.enterClassContext(Foreign(cls.language))
        cls.started = cls.node.started()
        cls.url = cls.url_of(cls.node)

    @staticmethod
    def url_of(node, query="id=FOREIGN-1%2FCLIENT"):
        return f"ws://127.0.0.1:{node.started()['port']}/frxsocket?{query}"

    def dial(self, **options):
        return self.foreign.dial(self.url, **options)

    def assert_serves(self, socket):
        """Heartbeats are answered, and nothing else is waiting to be read."""
        heartbeat = message(1)
        socket.send(heartbeat)
        answer = socket.next_message()
        self.assertEqual(answer["type"], 1, answer)
        self.assertNotEqual(answer["id"], heartbeat["id"])
        return answer

    def test_heartbeats_are_answered_once_with_an_id_of_their_own(self):
        socket = self.dial()
        answer = self.assert_serves(socket)
        self.assertEqual(set(answer), MEMBERS)
        self.assertEqual((answer["subject"], answer["message"], answer["userInfo"]), ("", "", {}))
        self.assertEqual(answer["port"], self.started["port"])
        # A second answer would arrive before the second heartbeat's.
        self.assertNotEqual(self.assert_serves(socket)["id"], answer["id"])
        query = message(2)
        socket.send(query)
        self.assertEqual(socket.next_message()["id"], query["id"])

    def test_queries_are_answered_under_their_id_with_a_graphql_document(self):
        socket = self.dial()
        queries = [message(2, subject=f"question {n}", message="{ capabilities { streaming { name } } }")
                   for n in range(20)]
        for query in queries:
            socket.send(query)
        answers = {}
        for _ in queries:
            answer = socket.next_message()
            answers[answer["id"]] = answer
        for query in queries:
            answer = answers[query["id"]]
            self.assertEqual(set(answer), MEMBERS)
            self.assertEqual((answer["type"], answer["subject"]), (2, query["subject"]))
            self.assertEqual(answer["port"], self.started["port"])
            self.assertIsInstance(answer["timestamp"], int)
            document = json.loads(answer["message"])
            self.assertTrue({"data", "errors"} & set(document), document)
        self.assert_serves(socket)

    def test_notifications_of_both_types_arrive(self):
        self.node.observe("Arrival")
        socket = self.dial()
        for kind in (0, 3):
            with self.subTest(kind=kind):
                sent = message(kind, subject="Arrival", message=f"filter {kind}",
                               userInfo={"text": "\u00fc \U0001f600", "deep": {"list": [1, 2.5, None, True]}})
                socket.send(sent)
                seen = self.node.notification("Arrival", lambda event: event["filter"] == f"filter {kind}")
                self.assertEqual(seen["sender"], FOREIGN_DEVICE)
                self.assertEqual(seen["timestamp"], sent["timestamp"])
                self.assertEqual(seen["userInfo"], sent["userInfo"])
                self.assertNotIn("local", seen)
        self.assert_serves(socket)

    def test_filters_decide_who_sees_a_notification(self):
        self.node.observe("Filtered", filter="mine")
        socket = self.dial()
        for number, text in enumerate(("other", "", "mine")):
            socket.send(message(0, subject="Filtered", message=text, userInfo={"n": number}))
        # In order: the others would have come before.
        self.assertEqual(self.node.notification("Filtered")["userInfo"], {"n": 2})

    def test_members_of_a_wrong_type_count_as_absent(self):
        self.node.observe("Odd")
        socket = self.dial()
        socket.send('{"subject": "Odd", "message": 5, "userInfo": [1], "from": {}, "port": "x", "reply": 3}')
        seen = self.node.notification("Odd")
        self.assertIsNone(seen["filter"])
        self.assertEqual((seen["userInfo"], seen["timestamp"]), ({}, 0))

    def test_unknown_types_are_ignored(self):
        self.node.observe("Type 7")
        socket = self.dial()
        socket.send(message(7, subject="Type 7"))
        self.assert_serves(socket)
        socket.send(message(0, subject="Type 7", userInfo={"after": True}))
        self.assertEqual(self.node.notification("Type 7")["userInfo"], {"after": True})

    def test_nonsense_is_logged_and_the_connection_stays(self):
        socket = self.dial()
        for text in NONSENSE:
            with self.subTest(text=text[:80]):
                socket.send(text)
                self.assert_serves(socket)
        log = self.node.log()
        address = f"127.0.0.1:{self.started['port']}"
        self.assertIn(f"Unable to create FRXWebsocketMessage from message sent by {address}: ", log)
        self.assertIn(f"Dropped a query without an id from {address}", log)

    def test_binary_messages_are_refused_with_1003(self):
        socket = self.dial()
        socket.do("sendSize", size=10, binary=True)
        self.assertEqual(socket.closed()[0], 1003)

    def test_messages_up_to_the_limit_are_read_and_larger_ones_refused_with_1009(self):
        socket = self.dial()
        socket.do("sendSize", size=MAX_MESSAGE)
        self.assert_serves(socket)
        socket.do("sendSize", size=MAX_MESSAGE + 1)
        self.assertEqual(socket.closed()[0], 1009)

    def test_fragments_with_pings_between_them_are_one_message(self):
        self.node.observe("Fragments")
        socket = self.dial()
        sent = message(0, subject="Fragments", userInfo={"text": "\u00e9\u20ac\U0001f600" * 50})
        text = json.dumps(sent, ensure_ascii=False)
        pieces = [text[at:at + 3] for at in range(0, len(text), 3)]
        socket.do("fragments", texts=pieces)
        self.assertEqual(socket.wait("sent")["pongs"], len(pieces))
        self.assertEqual(self.node.notification("Fragments")["userInfo"], sent["userInfo"])
        self.assert_serves(socket)

    def test_a_close_is_answered_with_its_code(self):
        for code, reason in ((1000, ""), (1001, "going away"), (3456, "\u2713 done"), (4999, "x" * 100)):
            with self.subTest(code=code):
                socket = self.dial()
                socket.do("close", code=code, reason=reason)
                self.assertEqual(socket.closed()[0], code)

    def test_offered_compression_is_not_accepted(self):
        socket = self.dial(deflate=True)
        self.assertEqual(socket.wait("open")["extensions"], [])
        self.assert_serves(socket)
        query = message(2, subject="long " * 10_000)
        socket.send(query)
        self.assertEqual(socket.next_message()["subject"], query["subject"])

    def test_what_a_half_closed_client_asked_before_is_answered(self):
        before = self.node.open_descriptors()
        sockets = [self.dial() for _ in range(20)]
        for socket in sockets:
            query = message(2)
            socket.send(query)
            socket.wait("sent")
            socket.do("halfClose")
            self.assertEqual(socket.next_message()["id"], query["id"])
            socket.closed()
        self.assert_serves(self.dial())
        self.assertLessEqual(self.node.open_descriptors(), before + 10)

    def test_other_origins_and_nameless_clients_are_refused(self):
        port = self.started["port"]
        for origin in ("http://evil.example", f"http://evil.example:{port}", "null", f"http://127.0.0.1:{port + 1}"):
            with self.subTest(origin=origin):
                self.assertEqual(self.foreign.attempt(self.url, "refused", origin=origin)["status"], 403)
        self.assert_serves(self.dial(origin=f"http://127.0.0.1:{port}"))
        nameless = self.url_of(self.node, "hostname=a.local.&port=1")
        self.assertEqual(self.foreign.attempt(nameless, "refused")["status"], 404)

    def test_a_client_that_does_not_read_its_answers_costs_little_and_holds_up_nobody(self):
        count = 600
        reader, other = self.dial(), self.dial()
        before = self.node.resident_bytes()
        reader.do("pause")
        # Answers repeat the subject, so they are as long as the queries.
        query = json.dumps(message(2, id="query {n}", subject="s" * 64 * 1024))
        reader.do("send", text=query, count=count)
        self.node.observe("Beside")
        for number in range(50):
            self.assert_serves(other)
            other.send(message(0, subject="Beside", userInfo={"n": number}))
        self.assertEqual(len(self.node.notifications("Beside", 50)), 50)
        self.node.assert_memory_below(before + 32 * MIB)
        done = [event["socket"] for event in self.foreign.seen if event["event"] == "sent"]
        self.assertNotIn(reader.name, done)
        reader.do("resume")
        for number in range(count):
            self.assertEqual(reader.next_message()["id"], f"query {number}")
        self.assert_serves(reader)
        self.node.assert_memory_below(before + 32 * MIB)

    def test_a_flood_arrives_whole_and_in_bounded_memory(self):
        count = 20_000
        with LoggedNode() as node:
            node.observe("Flood")
            socket = self.foreign.dial(self.url_of(node))
            before = node.resident_bytes()
            flood = json.dumps(message(0, subject="Flood", userInfo={"n": "{n}", "text": "x" * 200}))
            socket.do("send", text=flood, count=count)
            seen = node.notifications("Flood", count)
            self.assertEqual([event["userInfo"]["n"] for event in seen], [str(n) for n in range(count)])
            node.assert_memory_below(before + 64 * MIB)
            self.assert_serves(socket)


class PythonClients(ForeignClients, unittest.TestCase):
    language = "Python"


class NodeClients(ForeignClients, unittest.TestCase):
    language = "Node"


if __name__ == "__main__":
    unittest.main()
