"""The capabilities query between a node and foreign peers, both ways."""

import json
import os
import subprocess
import tempfile
import unittest

from foreign_process import MEMBERS, Foreign, LoggedNode, message

QUERY = "{ capabilities { streaming { name path contentType port } projectsharing { name id port } } }"
SUBJECT = "capabilities request"


def capabilities(streaming=(), projectsharing=()):
    return {"data": {"capabilities": {"streaming": streaming, "projectsharing": projectsharing}}}


class ForeignAsking:
    """A foreign peer asks a whole node what it offers."""

    language = ""

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.node = cls.enterClassContext(LoggedNode(
            "--stream", f"cam A:Camera \u00e9={folder}", "--moments", f"goals={folder}", "--share", f"P1:Film={folder}"))
        cls.foreign = cls.enterClassContext(Foreign(cls.language))
        cls.port = cls.node.started()["port"]
        cls.socket = cls.foreign.dial(f"ws://127.0.0.1:{cls.port}/frxsocket?id=FOREIGN-1%2FCLIENT")

    def answer_to(self, query):
        request = message(2, subject=SUBJECT, message=query)
        self.socket.send(request)
        answer = self.socket.next_message()
        self.assertEqual(set(answer), MEMBERS)
        self.assertEqual((answer["id"], answer["type"], answer["subject"]), (request["id"], 2, SUBJECT))
        return json.loads(answer["message"])

    def test_the_standard_query_is_answered_under_its_id(self):
        document = self.answer_to(QUERY)
        self.assertEqual(set(document), {"data"})
        offers = document["data"]["capabilities"]
        self.assertCountEqual(offers["streaming"], [
            {"name": "Camera \u00e9", "path": "/streams/cam%20A", "contentType": "VIDEO_ANGLE", "port": self.port},
            {"name": "goals", "path": "/streams/goals", "contentType": "MOMENTS_DATA", "port": self.port}])
        self.assertEqual(offers["projectsharing"], [{"name": "Film", "id": "P1", "port": self.port}])

    def test_other_queries_are_answered_as_they_ask(self):
        self.assertEqual(self.answer_to("{ kind: __typename capabilities { projectsharing { id } } }"),
                         {"data": {"kind": "Query", "capabilities": {"projectsharing": [{"id": "P1"}]}}})

    def test_queries_that_cannot_be_answered_get_their_errors(self):
        for query in ("", "garbage", "{ capabilities }", "{ secrets }", "mutation { stop }", "{" * 20_000):
            with self.subTest(query=query[:40]):
                self.assertTrue(self.answer_to(query)["errors"][0]["message"])
        self.assertIn("data", self.answer_to(QUERY))


class ForeignAsked:
    """The library lists the offers of foreign peers, which answer well, badly, late and never."""

    language = ""
    TIMEOUT = 2

    def setUp(self):
        self.foreign = self.enterContext(Foreign(self.language))
        self.peers = {}

    def start(self, *names, times=1):
        """Serves peers of these names, and lists them."""
        for name in names:
            self.peers[name] = self.foreign.serve(name)
        command = [os.environ["LISTING_PROBE"], str(self.TIMEOUT), str(times)]
        probe = subprocess.Popen(command + [server.address for server in self.peers.values()],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(probe.communicate)
        self.addCleanup(probe.kill)
        return probe

    def list(self, **answers):
        """Each peer answers with what its function makes of the request; the result, and the log."""
        probe = self.start(*answers)
        for name, answer in answers.items():
            socket, _ = self.peers[name].accepted()
            request = socket.next_message()
            self.assertEqual((request["type"], request["subject"], request["message"], request["userInfo"]),
                             (2, SUBJECT, QUERY, {}))
            answer(socket, request)
        output, log = probe.communicate(timeout=60)
        self.assertEqual(probe.returncode, 0, log)
        return json.loads(output), log

    @staticmethod
    def replying(document):
        text = document if isinstance(document, str) else json.dumps(document)
        return lambda socket, request: socket.send(message(2, id=request["id"], subject=SUBJECT, message=text))

    def test_good_answers_become_urls(self):
        result, _ = self.list(
            A=self.replying(capabilities([{"name": "Camera", "path": "/streams/cam%20A", "contentType": "VIDEO_ANGLE",
                                           "port": 16654}])),
            B=self.replying(capabilities([], [{"name": "Film", "id": "P1", "port": 80}])))
        a, b = (self.peers[name].address for name in "AB")
        self.assertEqual(result, {
            "streaming": {a: [{"name": "Camera", "url": "http://127.0.0.1:16654/streams/cam%20A"}], b: []},
            "projectsharing": {a: [], b: [{"name": "Film", "url": "http://127.0.0.1:80/projects/P1"}]}})

    def test_bad_answers_leave_their_peers_out(self):
        def raw(text):
            return lambda socket, request: socket.send(text.replace("ID", request["id"]))

        result, log = self.list(
            GOOD=self.replying(capabilities()),
            GARBAGE=self.replying("garbage"),
            DATALESS=self.replying({"errors": [{"message": "no"}]}),
            TEXTLESS=raw('{"id": "ID", "type": 2}'),
            WRONG=self.replying({"data": {"capabilities": "all"}}))
        good = self.peers["GOOD"].address
        self.assertEqual(result, {"streaming": {good: []}, "projectsharing": {good: []}})
        self.assertIn("Error parsing message json: ", log)
        self.assertIn("Unable to create FRXWebsocketMessage from json: nil", log)
        self.assertNotIn("Error retrieving", log)

    def test_offers_without_their_members_are_skipped(self):
        result, _ = self.list(A=self.replying(capabilities(
            [{"name": "no port", "path": "/streams/a"}, {"name": "S", "path": "/streams/s", "port": 1}, None, 7],
            [{"name": "P", "id": "p"}, {"id": "nameless", "port": 1}, {"name": "a b", "id": "a b", "port": 1},
             {"name": "bell", "id": "\u0007", "port": 1}])))
        a = self.peers["A"].address
        self.assertEqual(result, {"streaming": {a: [{"name": "S", "url": "http://127.0.0.1:1/streams/s"}]},
                                  "projectsharing": {a: [{"name": "P", "url": "http://127.0.0.1:(null)/projects/p"},
                                                         {"name": "a b", "url": "http://127.0.0.1:1/projects/a%20b"}]}})

    def test_peers_that_never_answer_are_left_out_in_time(self):
        result, log = self.list(GOOD=self.replying(capabilities()), SILENT=lambda socket, request: None,
                                ANOTHER_ID=lambda socket, request: socket.send(
                                    message(2, subject=SUBJECT, message=json.dumps(capabilities()))))
        good = self.peers["GOOD"].address
        self.assertEqual(result, {"streaming": {good: []}, "projectsharing": {good: []}})
        for name in ("SILENT", "ANOTHER_ID"):
            self.assertIn(f"Error retrieving capabilities from {self.peers[name].address} - The request timed out.", log)


    def test_an_answer_that_comes_late_is_not_taken_for_the_next(self):
        probe = self.start("LATE", times=2)
        socket, _ = self.peers["LATE"].accepted()
        late = socket.next_message()
        self.assertEqual(json.loads(probe.stdout.readline()), {})
        self.replying(capabilities([{"name": "late", "path": "/streams/late", "port": 1}]))(socket, late)
        self.replying(capabilities([{"name": "now", "path": "/streams/now", "port": 1}]))(socket, socket.next_message())
        result = json.loads(probe.stdout.readline())
        self.assertEqual([offer["name"] for offer in result["streaming"][self.peers["LATE"].address]], ["now"])


class PythonAsking(ForeignAsking, unittest.TestCase):
    language = "Python"


class NodeAsking(ForeignAsking, unittest.TestCase):
    language = "Node"


class PythonAsked(ForeignAsked, unittest.TestCase):
    language = "Python"


class NodeAsked(ForeignAsked, unittest.TestCase):
    language = "Node"


if __name__ == "__main__":
    unittest.main()
