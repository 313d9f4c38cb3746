"""Every example of docs/protocol.md is what a node really sends, or is understood by one."""

import json
import pathlib
import re
import shutil
import socket
import sys
import tempfile
import time
import unittest

import own_network
from blocks import ROOT, blocks_of, table_rows
from foreign_node import PATIENCE, Announcement, ForeignNode

sys.path.insert(0, str(ROOT / "Tests" / "Apps"))
from command_process import Node  # noqa: E402

DOCUMENT = ROOT / "docs" / "protocol.md"
HOST, PORT = "suite-1.local", 16654
DEVICE = "11111111-1111-4111-8111-111111111111"
PEER = "22222222222242228222222222222222-MQ==/CAMERA 7"
RECORD = {"serviceId": "CAMERA-7.LOCAL.:16655", "hostName": "CAMERA-7.LOCAL.", "port": 16655, "name": PEER}
DIAL = "/frxsocket?id=22222222222242228222222222222222-MQ%3D%3D%2FCAMERA%207&hostname=CAMERA-7.LOCAL.&port=16655"

# What differs from run to run, by its form. The identifiers of the examples that a peer sends stay as they are.
VARIABLE = [
    (r"-[A-Z0-9+/]{4,8}(=|%3D)*(/|%2F)SUITE", r"-VERSION\2SUITE"),
    (r"(?!00000000-|" + DEVICE + r")[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}", "UUID"),
    (r'("timestamp": ?)\d{13}\b', r"\g<1>TIME"),
    (r"\w{3}, \d\d \w{3} \d{4} \d\d:\d\d:\d\d GMT", "DATE"),
    (r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\+0000", "DATE"),
    (r'("RegisteredAt": ?)"\d{9,10}"', r"\g<1>SECONDS"),
]


def setUpModule():
    own_network.enter()


def settled(text):
    for pattern, instead in VARIABLE:
        text = re.sub(pattern, instead, text)
    return text


def settled_json(text):
    """As an object, so that blanks do not count; what varies has been replaced in a way that stays JSON."""
    value = json.loads(text)
    return json.loads(re.sub(r'("timestamp": )TIME', r'\1"TIME"', settled(json.dumps(value)).replace("SECONDS", '"S"')))


def examples(language, key):
    found = [block for block in blocks_of(DOCUMENT) if block.language == language and block.key == key]
    return {block.value or str(block): block.text for block in found}


def ask(text, patience=PATIENCE):
    """Sends the head of a request; returns status line, header lines and body of the answer."""
    with socket.create_connection(("127.0.0.1", PORT), timeout=patience) as connection:
        connection.sendall(text.replace("\n", "\r\n").encode())
        stream = connection.makefile("rb")
        lines = []
        while (line := stream.readline().decode().rstrip("\r\n")) != "":
            lines.append(line)
        length = next((int(line.split(":")[1]) for line in lines if line.startswith("Content-Length:")), 0)
        body = b"" if text.startswith("HEAD ") else stream.read(length)
        return lines[0], lines[1:], body.decode()


def status_of(line):
    return int(line.split()[1])


class Protocol(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="ferrox-docs-")
        project = pathlib.Path(cls.folder, "reel1")
        stream = pathlib.Path(cls.folder, "live")
        (project / "notes").mkdir(parents=True)
        stream.mkdir()
        (project / "clip.mov").write_text("0123456789")
        (project / "notes" / "log.txt").write_text("take 7")
        (stream / "index.m3u8").write_text("#EXTM3U\n")
        (stream / "ten.ts").write_text("0123456789")
        (stream.parent / "secret").write_text("secret")
        (stream / "link.ts").symlink_to("../secret")
        cls.announcement = Announcement(PEER, "camera-7.local.", RECORD["port"]).__enter__()
        cls.peer = ForeignNode(RECORD).__enter__()
        cls.node = Node("--port", str(PORT), "--host-name", "suite-1", "--stream", f"cam={stream}", "--share",
                        f"reel1={project}", "--observe", "TakeReady", name="Suite 1", device=DEVICE).__enter__()
        try:
            cls.node.wait("localServiceStarted", timeout=PATIENCE)
            # The socket that the node opens to the peer.
            cls.node.wait("connected", timeout=PATIENCE)
        except BaseException:
            cls.tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        cls.node.__exit__()
        cls.peer.__exit__()
        cls.announcement.__exit__()
        shutil.rmtree(cls.folder)

    def assert_same_json(self, shown, real):
        self.assertEqual(settled_json(shown), settled_json(real))

    # DNS-SD

    def next_record(self, **wanted):
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            record = self.announcement.records.get(timeout=PATIENCE)
            if record["name"].startswith(DEVICE.replace("-", "")) and wanted.items() <= record["txt"].items():
                return record
        self.fail(f"no record with {wanted}")
        return None

    def test_records_that_a_node_publishes(self):
        shown = examples("json", "node publishes")
        self.assertEqual(set(shown), {"heartbeat", "status"})
        record = self.next_record(App="Alpha")
        self.assertEqual((record["host"].lower(), record["port"]), (HOST + ".", PORT))
        self.assert_same_json(shown["heartbeat"], json.dumps(record["txt"]))
        self.node.ask("status", text="grading")
        record = self.next_record(App="Vantle", Status="grading")
        self.assert_same_json(shown["status"], json.dumps(record["txt"]))

    # HTTP

    def test_requests_are_answered_as_shown(self):
        shown = examples("http", "request")
        self.assertGreater(len(shown), 6)
        for where, text in shown.items():
            with self.subTest(where):
                request, answer = re.split(r"(?=^HTTP/1\.1 \d)", text, flags=re.MULTILINE)
                head, body = answer.split("\n\n", 1)
                status, headers, real = ask(request)
                self.assertEqual([settled(line) for line in [status, *headers]], settled(head).splitlines())
                if body.startswith("{") and "/projects/" in request:
                    # In no particular order.
                    self.assertEqual(*({key: sorted(value) for key, value in json.loads(text).items()}
                                       for text in (body, real)))
                else:
                    self.assertEqual(settled(body).rstrip("\n"), settled(real).rstrip("\n"))

    def test_ranges(self):
        rows = table_rows(DOCUMENT, "| Range | Project: status | Project: body | Stream: status | Stream: body |")
        self.assertGreater(len(rows), 7)
        for given, *expected in rows:
            answers = []
            for path in ("/projects/reel1/files/clip.mov", "/streams/cam/ten.ts"):
                status, headers, body = ask(f"GET {path} HTTP/1.1\nHost: {HOST}\nRange: {given}\n\n")
                self.assertEqual(status_of(status) == 206, any(line.startswith("Content-Range") for line in headers))
                answers += [str(status_of(status)), body]
            self.assertEqual(answers, expected, given)

    def test_refusals_and_what_is_not_refused(self):
        for document, least in ((DOCUMENT, 10), (ROOT / "docs" / "security.md", 3)):
            rows = table_rows(document, "| Request | Header | Status | Why |")
            self.assertGreaterEqual(len(rows), least)
            for request, header, expected, _why in rows:
                fields = {"Host": HOST, **dict([header.split(": ", 1)] if header else [])}
                head = "".join(f"{name}: {value}\n" for name, value in fields.items())
                status, headers, _body = ask(f"{request} HTTP/1.1\n{head}\n")
                self.assertEqual(status_of(status), int(expected), request)
                self.assertFalse([line for line in headers if line.startswith("Access-Control")], request)
                if expected == "405":
                    allowed = [line.split(":")[1].strip() for line in headers if line.startswith("Allow:")]
                    self.assertEqual(allowed, ["" if request == "GET /nothing" else "GET"], request)

    def test_refused_upgrades(self):
        rows = table_rows(DOCUMENT, "| Upgrade to | Header | Status | Why |")
        self.assertGreater(len(rows), 5)
        usual = {"Host": HOST, "Upgrade": "websocket", "Connection": "Upgrade", "Sec-WebSocket-Version": "13",
                 "Sec-WebSocket-Key": "dGhlIHNhbXBsZSBub25jZQ=="}
        for path, header, expected, _why in rows:
            fields = {**usual, **dict([header.split(": ", 1)] if header else [])}
            head = "".join(f"{name}: {value}\n" for name, value in fields.items())
            self.assertEqual(status_of(ask(f"GET {path} HTTP/1.1\n{head}\n")[0]), int(expected), (path, header))

    # WebSockets

    def test_a_node_dials_as_shown(self):
        (shown,) = examples("http", "node dials").values()
        path, headers = None, None
        while path is None or not path.startswith("/frxsocket"):
            path, headers = self.peer.requests.get(timeout=PATIENCE)
        real = [f"GET {path} HTTP/1.1"] + [f"{name}: {value}" for name, value in headers]
        key = r"(Sec-WebSocket-Key: )[\w+/]{22}=="
        shown, real = (re.sub(key, r"\1KEY", settled(text)).strip() for text in (shown, "\n".join(real)))
        self.assertEqual(shown, real)

    def test_messages(self):
        nodes, peers = examples("json", "node sends"), examples("json", "peer sends")
        self.assertEqual(set(nodes), {"notification", "streams", "projects", "heartbeat", "query", "answer",
                                      "bad answer"})
        self.assertEqual(set(peers), {"notification", "heartbeat", "answer", "query", "bad query"})

        for name, subject in (("streams", "FRXStreamingCapabilityNotif"),
                              ("projects", "FRXProjectSharingCapabilityNotif")):
            text = self.peer.wait_for(lambda message, wanted=subject: message["subject"] == wanted)
            self.assert_same_json(nodes[name], text)
        self.node.ask("post", name="TakeReady", filter="edit suite 3", userInfo={"take": 7})
        text = self.peer.wait_for(lambda message: message["subject"] == "TakeReady")
        self.assert_same_json(nodes["notification"], text)

        answered = [("heartbeat", "heartbeat"), ("query", "answer"), ("bad query", "bad answer")]
        texts = [(peers[sent], True) for sent, _ in answered] + [(peers["notification"], False)]
        answers = self.peer.exchange(f"ws://127.0.0.1:{PORT}{DIAL}", texts)
        for (_sent, name), answer in zip(answered, answers):
            self.assert_same_json(nodes[name], answer)
        sent = json.loads(peers["notification"])
        event = self.node.wait("notification", lambda value: value["name"] == "TakeReady", timeout=PATIENCE)
        self.assertEqual((event["filter"], event["sender"]), (None, sent["from"]))
        self.assertEqual(event["timestamp"], sent["timestamp"])
        self.assertEqual(event["userInfo"], sent["userInfo"])

    def test_what_is_no_message_is_dropped_and_the_rest_is_read_leniently(self):
        dropped = ["no JSON", "[]", "[" * 33 + "]" * 33, '{"type": 9, "subject": "Lenient", "from": "X"}',
                   '{"type": 0, "subject": "Lenient", "timestamp": "today", "from": "X"}',
                   '{"type": 2, "message": "{ capabilities { __typename } }"}']
        lenient = {"type": "3", "subject": "Lenient", "message": " ", "userInfo": {"take": 9, "sender": "forged"},
                   "from": PEER, "unknown": []}
        self.node.ask("observe", name="Lenient")
        # Over both sockets; what comes last proves that the socket is still there.
        texts = [(text, False) for text in [*dropped, json.dumps(lenient)]]
        heartbeat = json.dumps({"id": "00000000-0000-4000-8000-000000000005", "type": 1})
        (answer,) = self.peer.exchange(f"ws://127.0.0.1:{PORT}{DIAL}", [*texts, (heartbeat, True)])[-1:]
        self.assertEqual(json.loads(answer)["type"], 1)
        for text in [*dropped, json.dumps({**lenient, "userInfo": {"take": 10}})]:
            self.peer.send(text)
        self.node.wait("notification", lambda value: value["userInfo"].get("take") == 10, timeout=PATIENCE)
        events = [event for event in self.node.seen
                  if event["event"] == "notification" and event["name"] == "Lenient"]
        self.assertEqual(sorted(event["userInfo"]["take"] for event in events), [9, 10])
        self.assertEqual({(event["filter"], event["sender"]) for event in events}, {(None, PEER)})

    def test_a_node_asks_as_shown_and_understands_the_answer(self):
        shown = examples("json", "node sends")["query"]
        answer = json.loads(examples("json", "peer sends")["answer"])
        self.assertEqual(answer["id"], json.loads(shown)["id"])
        self.node.send({"cmd": "list", "ref": "asked"})
        query = self.peer.wait_for(lambda message: message["type"] == 2)
        self.assert_same_json(shown, query)
        self.peer.send(json.dumps({**answer, "id": json.loads(query)["id"]}))
        self.node.wait("result", lambda value: value.get("ref") == "asked", timeout=PATIENCE)
        result = self.node.wait("capabilities", timeout=PATIENCE)["result"]
        self.assertEqual(result["streaming"][RECORD["serviceId"]],
                         [{"name": "wide", "url": "http://CAMERA-7.LOCAL.:16655/streams/wide"}])

    def test_the_record_of_a_peer_is_understood(self):
        (shown,) = [text for text in examples("http", "request").values() if text.startswith("GET /service")]
        self.assertEqual(set(json.loads(shown.rsplit("\n\n", 1)[1])), set(RECORD))
        found = self.node.ask("search", address="127.0.0.1:16655", timeout=PATIENCE)
        self.assertTrue(found["ok"], found)

    # What needs no node

    def test_the_schema_is_the_one_that_is_served(self):
        (block,) = [block for block in blocks_of(DOCUMENT) if block.language == "graphql"]
        source = (ROOT / block.value).read_text()
        source = re.sub(r'""".*?"""|"(\\.|[^"\\])*"', "", source, flags=re.DOTALL)
        self.assertEqual(block.text.split(), source.split())

    def test_every_example_is_checked_by_one_of_these(self):
        for block in blocks_of(DOCUMENT):
            known = {"http": ("request", "node dials"), "graphql": ("schema",),
                     "json": ("node sends", "peer sends", "node publishes")}
            self.assertIn(block.key, known[block.language], str(block))


if __name__ == "__main__":
    unittest.main()
