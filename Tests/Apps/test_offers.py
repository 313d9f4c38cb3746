"""Nodes that offer streams and projects and change that while they run, and what others list of it."""

import json
import pathlib
import tempfile
import unittest
import urllib.parse
import urllib.request
import uuid

from command_process import Node, run

HERE = ("--interface", "lo", "--discovery", "embedded")


def offers_of(result, capability, node):
    """{name: url} of what the node offers, as another one listed it; None when it did not answer."""
    for service_id, offers in result[capability].items():
        if service_id.endswith(f":{node.started()['port']}"):
            return {offer["name"]: offer["url"] for offer in offers}
    return None


def fetch(url):
    """From this machine: the URL's host name is for players that can look it up."""
    parts = urllib.parse.urlsplit(url)
    return urllib.request.urlopen(parts._replace(netloc=f"127.0.0.1:{parts.port}").geturl(), timeout=20).read()


class Offers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.directory.cleanup)
        cls.path = pathlib.Path(cls.directory.name)
        (cls.path / "live.m3u8").write_text("#EXTM3U\n", encoding="ascii")
        given = f"GIVEN:Given rushes={cls.path}"
        cls.offering = Node("--share", given, "--stream", f"cam A:Camera A={cls.path}", name="Offering")
        cls.asking = Node(name="Asking")
        cls.addClassCleanup(cls.offering.__exit__)
        cls.addClassCleanup(cls.asking.__exit__)
        service = cls.asking.wait("peerDiscovered", cls.asking.about(cls.offering))["service"]["serviceId"]
        cls.asking.wait("connected", lambda event: event["userInfo"]["frxId"] == service)

    def listed(self, capability):
        result = self.asking.ask("list")
        self.assertTrue(result["ok"], result)
        return offers_of(result["result"], capability, self.offering)

    def test_what_was_given_at_the_start_is_listed_with_urls_that_work(self):
        self.assertIn("Given rushes", self.listed("projectsharing"))
        url = self.listed("streaming")["Camera A"]
        self.assertTrue(url.endswith(f":{self.offering.started()['port']}/streams/cam%20A"), url)
        self.assertEqual(fetch(url + "/live.m3u8"), b"#EXTM3U\n")

    def test_a_listing_is_told_as_an_event_too(self):
        result = self.asking.ask("list")["result"]
        self.assertEqual(self.asking.wait("capabilities")["result"].keys(), result.keys())

    def test_a_stream_comes_and_goes(self):
        added = self.offering.ask("addStream", id="s1", name="Änderung ☃", contentType="moments-data",
                                  path=str(self.path), servedPath="angle 1")
        self.assertEqual((added["ok"], added.get("servedPath")), (True, "/streams/angle 1"))
        url = self.listed("streaming")["Änderung ☃"]
        self.assertIn("/streams/angle%201", url)
        self.assertEqual(fetch(url + "/live.m3u8"), b"#EXTM3U\n")
        refused = self.offering.ask("removeStream", servedPath="/streams/angle%201")
        self.assertEqual((refused["ok"], refused["error"]), (False, "no stream is served there"))
        self.assertTrue(self.offering.ask("removeStream", servedPath="/streams/angle 1")["ok"])
        self.assertNotIn("Änderung ☃", self.listed("streaming"))

    def test_a_project_comes_and_goes(self):
        self.assertTrue(self.offering.ask("addProject", id="P1", name="Reel 1", path=str(self.path))["ok"])
        self.assertTrue(self.listed("projectsharing")["Reel 1"].endswith("/projects/P1"))
        self.assertFalse(self.offering.ask("removeProject", id="p1")["ok"])
        self.assertTrue(self.offering.ask("removeProject", id="P1")["ok"])
        self.assertNotIn("Reel 1", self.listed("projectsharing"))

    def test_a_port_of_its_own_is_listed(self):
        self.assertTrue(self.offering.ask("addProject", id="P7", name="Elsewhere", path=str(self.path), port=7)["ok"])
        self.assertIn(":7/projects/P7", self.listed("projectsharing")["Elsewhere"])
        self.assertTrue(self.offering.ask("removeProject", id="P7")["ok"])

    def test_with_broadcast_peers_are_told_at_once(self):
        name = "FRXStreamingCapabilityNotif"
        self.assertTrue(self.asking.ask("observe", name=name)["ok"])
        identity = str(uuid.uuid4())
        self.assertTrue(self.offering.ask("addStream", id=identity, name="Told", contentType="video-angle",
                                          path=str(self.path), broadcast=True)["ok"])
        path = f"/streams/{identity}"
        told = lambda event: any(stream["path"] == path for stream in event["userInfo"].get("streams", []))
        event = self.asking.wait("notification", lambda event: event["name"] == name and told(event))
        self.assertIn("frxId", event["userInfo"])
        self.asking.forget()
        self.assertTrue(self.offering.ask("removeStream", servedPath=path, broadcast=True)["ok"])
        self.asking.wait("notification", lambda event: event["name"] == name and not told(event))

    def test_what_cannot_be_offered_is_refused_and_changes_nothing(self):
        stream = {"id": "x", "name": "X", "contentType": "video-angle", "path": str(self.path)}
        project = {"id": "x", "name": "X", "path": str(self.path)}
        for cmd, members, problem in (
                ("addStream", {**stream, "contentType": "VIDEO_ANGLE"}, "contentType"),
                ("addStream", {**stream, "path": str(self.path / "missing")}, "no directory"),
                ("addStream", {**stream, "path": str(self.path / "live.m3u8")}, "no directory"),
                ("addStream", {**stream, "port": 65536}, "port"),
                ("addStream", {**stream, "port": "1"}, "port"),
                ("addStream", {**stream, "name": ""}, "name"),
                ("addStream", {**stream, "broadcast": "yes"}, "broadcast"),
                ("addStream", {**stream, "servedPath": "cam A"}, "already"),
                ("addProject", {**project, "id": 7}, "id"),
                ("addProject", {**project, "id": "a/b"}, "slash"),
                ("addProject", {**project, "id": "GIVEN"}, "already"),
                ("addProject", {**project, "name": "a\u0007b"}, "plain"),
                ("addProject", {"id": "x", "name": "X"}, "path"),
                ("removeStream", {}, "servedPath"), ("removeProject", {"id": None}, "id")):
            with self.subTest(cmd=cmd, members=members):
                result = self.offering.ask(cmd, **members)
                self.assertFalse(result["ok"])
                self.assertIn(problem, result["error"])
        self.assertEqual(list(self.listed("projectsharing")), ["Given rushes"])
        self.assertEqual(list(self.listed("streaming")), ["Camera A"])

    def test_list_prints_a_table_for_people(self):
        done = run("list", "--wait", "10", *HERE, timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0].split(), ["PEER", "KIND", "NAME", "URL"])
        rows = [line for line in lines if line.startswith("OFFERING ")]
        self.assertEqual(len(rows), 2, done.stdout)
        self.assertRegex(rows[0], r"^OFFERING +stream +Camera A +http://\S+/streams/cam%20A$")
        self.assertRegex(rows[1], r"^OFFERING +project +Given rushes +http://\S+/projects/GIVEN$")

    def test_list_gives_addresses_where_names_cannot_be_looked_up(self):
        done = run("list", "--json", "--addresses", "--wait", "10", *HERE, timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        event = json.loads(done.stdout)
        self.assertEqual(event["event"], "capabilities")
        url = offers_of(event["result"], "streaming", self.offering)["Camera A"]
        self.assertEqual(urllib.request.urlopen(url + "/live.m3u8", timeout=20).read(), b"#EXTM3U\n")

    def test_list_says_when_nobody_is_there(self):
        done = run("list", "--wait", "0.2", "--discovery", "off", timeout=60)
        self.assertEqual((done.returncode, done.stdout), (0, "nobody is here\n"))


if __name__ == "__main__":
    unittest.main()
