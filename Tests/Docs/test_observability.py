"""The statistics are told of as a node answers them: every name, no other, and the field of C++ beside it."""

import json
import re
import sys
import unittest

import own_network
from blocks import ROOT, blocks_of, table_rows

sys.path.insert(0, str(ROOT / "Tests" / "Apps"))
from command_process import Node  # noqa: E402

DOCUMENT = ROOT / "docs" / "observability.md"
HEADER = "| Name | C++ | Tells |"
HEADERS = {"peers": "Classes/Statistics/FRXStatistics.h", "queues": "Classes/Statistics/FRXStatistics.h",
           "connections": "Classes/WebSockets/FRXMessagingStatistics.h",
           "messages": "Classes/WebSockets/FRXMessagingStatistics.h",
           "notifications": "Classes/Notifications/FRXNotificationStatistics.h",
           "http": "Platform/HTTP/Server/HTTPServerStatistics.h", "copies": "Classes/Copy/FRXCopyStatistics.h"}
GAUGES = {"peers.known", "peers.responsive", "peers.connectedOutbound", "peers.connectedInbound",
          "http.connectionsOpen", "copies.running"}


def setUpModule():
    own_network.enter()


def flat(value, prefix=""):
    if not isinstance(value, dict):
        return {prefix: value}
    return {name: number for key, member in value.items()
            for name, number in flat(member, f"{prefix}.{key}" if prefix else key).items()}


def documented():
    """{section.name: (field of C++, what it tells)}"""
    rows, section = {}, None
    for line in DOCUMENT.read_text().splitlines():
        if line.startswith("## "):
            section = line[3:]
        if section and (row := re.fullmatch(r"\| `([\w.]+)` \| `([\w.]+)` \| (.+) \|", line)):
            rows[f"{section}.{row[1]}"] = (row[2], row[3])
    return rows


class Observability(unittest.TestCase):
    def test_the_names_are_those_that_a_node_answers(self):
        (block,) = [block for block in blocks_of(DOCUMENT) if block.key == "ask"]
        with Node(discovery="off") as node:
            node.started()
            node.send(json.dumps(json.loads(block.text)))
            result = node.wait("result")
            self.assertEqual(node.terminate(), 0)
        self.assertEqual((result["cmd"], result["ok"], result["ref"]), ("stats", True, "any"))
        answered = flat(result["stats"])
        self.assertEqual(set(documented()), set(answered))
        self.assertEqual(len(table_rows(DOCUMENT, HEADER)), len(answered))
        self.assertTrue(all(type(number) is int for number in answered.values()), answered)

    def test_the_fields_are_those_of_the_headers(self):
        for name, (field, _) in documented().items():
            section, member = field.split(".")
            self.assertEqual(section, name.split(".")[0])
            declared = re.findall(r"^  std::(?:uint64_t|size_t) (\w+) = 0;", (ROOT / HEADERS[section]).read_text(),
                                  flags=re.MULTILINE)
            self.assertIn(member, declared, name)

    def test_gauges_are_marked(self):
        marked = {name for name, (_, tells) in documented().items() if tells.startswith("**now**")}
        self.assertEqual(marked, GAUGES)


if __name__ == "__main__":
    unittest.main()
