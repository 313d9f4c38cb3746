"""A live stream made by ffmpeg on one host, played by ffmpeg on another from the URL that was listed."""

import json
import pathlib
import subprocess
import tempfile
import time
import unittest

from netns import Network
from node import COMMAND, Node

SEGMENT_SECONDS = 1
STREAM_SECONDS = 12


class Streams(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.path = pathlib.Path(cls.folder.name)
        (cls.path / "take 1.mov").write_bytes(bytes(range(256)) * 40)
        (cls.path / "notes.txt").write_bytes(b"0123456789")
        cls.network = Network(2)
        cls.addClassCleanup(cls.network.close)
        cls.server, cls.viewer = cls.network.hosts
        for name in ("still.m3u8", "still.ts"):
            (cls.path / name).write_bytes(b"x")
        cls.node = Node(cls.server, "--stream", f"cam A:Camera A={cls.path}", "--share", f"Reel 1:Rushes={cls.path}")
        cls.node.wait_published()
        cls.urls = cls.listed()

    @classmethod
    def listed(cls):
        done = cls.viewer.run([COMMAND, "list", "--json", "--addresses", "--wait", "20", "--discovery", "embedded"],
                              timeout=60)
        assert done.returncode == 0, done.stderr
        result = json.loads(done.stdout)["result"]
        offers = [offer for capability in result.values() for offers in capability.values() for offer in offers]
        return {offer["name"]: offer["url"] for offer in offers}

    def curl(self, path, *options):
        """Status, content type, and what was received, from the viewer's host."""
        url = self.urls["Camera A"].removesuffix("/streams/cam%20A") + path
        done = self.viewer.run(["curl", "-sS", "--max-time", "20", "-o", "-", "-w", "\n%{http_code} %{content_type}",
                                *options, url])
        self.assertEqual(done.returncode, 0, done.stderr)
        body, _, told = done.stdout.rpartition("\n")
        status, _, kind = told.partition(" ")
        return int(status), kind, body

    def test_the_live_stream_is_played_while_it_grows(self):
        camera = self.server.popen(
            ["ffmpeg", "-loglevel", "error", "-nostdin", "-re", "-f", "lavfi",
             "-i", f"testsrc2=size=320x180:rate=25:duration={STREAM_SECONDS}", "-c:v", "mpeg2video", "-g", "25",
             "-f", "hls", "-hls_time", SEGMENT_SECONDS, "-hls_list_size", "0",
             "-hls_segment_filename", self.path / "%05d.ts", self.path / "index.m3u8"], stderr=subprocess.PIPE)
        self.wait_for_segments(2)
        self.assertIsNone(camera.poll(), "the camera still runs")
        done = self.viewer.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name,width,height",
                                "-of", "json", self.urls["Camera A"] + "/index.m3u8"], timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        stream = json.loads(done.stdout)["streams"][0]
        self.assertEqual((stream["codec_name"], stream["width"], stream["height"]), ("mpeg2video", 320, 180))
        # To its end, which comes while it is played: the playlist is read again and again.
        done = self.viewer.run(["ffmpeg", "-v", "error", "-nostdin", "-live_start_index", "0", "-i",
                                self.urls["Camera A"] + "/index.m3u8", "-f", "framehash", "-"], timeout=90)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        frames = [line for line in done.stdout.splitlines() if line and not line.startswith("#")]
        self.assertEqual(len(frames), 25 * STREAM_SECONDS)

    def wait_for_segments(self, count):
        deadline = time.monotonic() + 60
        while not (self.path / "index.m3u8").exists() or len(list(self.path.glob("0*.ts"))) < count:
            self.assertLess(time.monotonic(), deadline, "no segments")
            time.sleep(0.05)

    def test_files_have_the_types_that_players_expect(self):
        for name, kind in (("still.m3u8", "application/x-mpegURL"), ("still.ts", "video/MP2T"),
                           ("take%201.mov", "video/quicktime"), ("notes.txt", "application/octet-stream")):
            with self.subTest(name=name):
                status, told, _ = self.curl(f"/streams/cam%20A/{name}", "--head")
                self.assertEqual((status, told), (200, kind))

    def test_ranges_and_heads_are_answered(self):
        self.assertEqual(self.curl("/streams/cam%20A/notes.txt", "--range", "2-4")[::2], (206, "234"))
        self.assertEqual(self.curl("/streams/cam%20A/notes.txt")[::2], (200, "0123456789"))
        status, _, head = self.curl("/streams/cam%20A/notes.txt", "--head")
        self.assertEqual(status, 200)
        self.assertRegex(head.lower(), r"content-length: 10\b")

    def test_a_range_past_the_end_has_nothing_yet(self):
        self.assertEqual(self.curl("/streams/cam%20A/notes.txt", "--range", "10-20")[::2], (204, ""))

    def test_what_is_not_streamed_is_not_found(self):
        for path in ("/streams/cam%20B/index.m3u8", "/streams/cam%20A/none.ts", "/streams/cam%20A/..%2f..%2fetc%2fpasswd"):
            with self.subTest(path=path):
                self.assertEqual(self.curl(path)[0], 404)

    def test_a_listed_project_has_its_structure_at_its_url(self):
        self.assertTrue(self.urls["Rushes"].endswith("/projects/Reel%201"), self.urls)
        done = self.viewer.run(["curl", "-sS", "--max-time", "20", self.urls["Rushes"]])
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("take 1.mov", done.stdout)


if __name__ == "__main__":
    unittest.main()
