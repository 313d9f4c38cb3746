"""Every example does what it is there to show, beside a node on loopback."""

import filecmp
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import unittest

import own_network
from blocks import ROOT
from sandbox import COMMAND, EXAMPLES, PATIENCE, Sandbox, Terminal

sys.path.insert(0, str(ROOT / "Tests" / "Apps"))
os.environ.setdefault("FERROX_COMMAND", str(COMMAND))
from command_process import Node  # noqa: E402

# Tested beside the document that shows them.
ELSEWHERE = {"meet", "own_loop"}
# What is there only where somebody else's library is.
OPTIONAL = {"glib_loop": "glib-2.0", "qt_loop": "Qt5Widgets"}


def setUpModule():
    own_network.enter()


def make_folder(path, sizes):
    """Files of those sizes, whose contents differ."""
    values = random.Random(7)
    for name, size in sizes.items():
        file = path / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(values.randbytes(size))


class Examples(unittest.TestCase):
    def setUp(self):
        self.sandbox = Sandbox()
        self.addCleanup(self.sandbox.__exit__)
        self.sandbox.__enter__()
        self.place = self.sandbox.place

    def node(self, *options):
        node = Node(*options, name="Suite 1")
        self.addCleanup(node.__exit__)
        node.started()
        return node

    def example(self, line, stdin=subprocess.DEVNULL):
        program = Terminal(self.sandbox, line, stdin)
        self.addCleanup(program.close)
        return program

    def type_into(self, program, text):
        program.process.stdin.write(text)
        program.process.stdin.flush()

    def end_of_input(self, program):
        program.process.stdin.close()
        self.assertEqual(program.process.wait(timeout=PATIENCE), 0)

    def connected(self, node):
        return node.wait("connected", timeout=PATIENCE)

    def heard(self, node, name, text):
        return node.wait("notification", lambda event: event["name"] == name and event["userInfo"].get("text") == text,
                         timeout=PATIENCE)

    def test_none_is_left_out(self):
        tested = " ".join(name for name in dir(self) if name.startswith("test_"))
        told = (ROOT / "README.md").read_text(encoding="utf-8")
        for folder in (ROOT / "Examples").iterdir():
            if not folder.is_dir():
                continue
            self.assertIn(f"`Examples/{folder.name}`", told)
            if folder.name not in ELSEWHERE:
                self.assertIn(f"test_{folder.name}", tested)

    def test_chat(self):
        node = self.node("--observe", "ChatLine")
        program = self.example("build/release/Examples/chat", subprocess.PIPE)
        program.wait_for("* SUITE 1 is here")
        self.connected(node)
        # Kept for those that come later: it arrives whether or not the chat is connected already.
        self.type_into(program, "Rolling\n")
        self.heard(node, "ChatLine", "Rolling")
        node.ask("post", name="ChatLine", userInfo={"text": "Cut\x1b[2J\u009b2J!"})
        program.wait_for("SUITE 1: Cut [2J  2J!\n")
        node.ask("post", name="ChatLine", userInfo={"text": 7})
        node.ask("post", name="ChatLine", userInfo={"text": "Again"})
        program.wait_for("SUITE 1: Again\n")
        self.assertEqual(node.terminate(), 0)
        program.wait_for("* SUITE 1 is gone")
        self.end_of_input(program)

    def test_stream_serve(self):
        live = self.place / "live"
        make_folder(live, {"index.m3u8": 100, "one.ts": 100_000})
        node = self.node()
        program = self.example("build/release/Examples/stream serve live")
        program.wait_for("serving on port")
        self.connected(node)
        url = node.ask("list", timeout=PATIENCE)["result"]["streaming"].popitem()[1][0]
        self.assertEqual(url["name"], "Camera")
        port = re.search(r":(\d+)/streams/camera$", url["url"])[1]
        status, output = self.sandbox.run(f"curl -sSf http://127.0.0.1:{port}/streams/camera/one.ts -o one.ts")
        self.assertEqual(status, 0, output)
        self.assertTrue(filecmp.cmp(live / "one.ts", self.place / "one.ts", shallow=False))
        self.assertEqual(program.interrupt(), 0)

    def test_stream_fetch(self):
        live, fetched = self.place / "live", self.place / "fetched"
        fetched.mkdir()
        names = [f"take-{number}.ts" for number in range(1, 6)]
        make_folder(live, {name: 50_000 for name in names})
        playlist = ["#EXTM3U", "#EXT-X-TARGETDURATION:2"]
        # What does not stay in the folder, or is no plain name, is passed over.
        for name in ["../outside.ts", ".hidden", "a b", *names]:
            playlist += ["#EXTINF:2,", name]
        (live / "index.m3u8").write_text("\r\n".join(playlist) + "\r\n")
        self.node("--stream", f"cam A:Camera A={live}")
        program = self.example("build/release/Examples/stream fetch fetched")
        program.wait_for("/streams/cam%20A/index.m3u8")
        program.wait_for("take-3.ts: 50000 bytes")
        self.assertEqual(program.process.wait(timeout=PATIENCE), 0)
        there = ["index.m3u8", *names[:3]]
        self.assertEqual(sorted(path.name for path in fetched.iterdir()), there)
        self.assertEqual(filecmp.cmpfiles(live, fetched, there, shallow=False), (there, [], []))

    def test_stream_fetch_without_a_playlist(self):
        (self.place / "live").mkdir()
        self.node("--stream", f"cam={self.place / 'live'}")
        program = self.example("build/release/Examples/stream fetch tmp")
        program.wait_for("status 404")
        self.assertEqual(program.process.wait(timeout=PATIENCE), 1)

    def test_project_share(self):
        reel, copied = self.place / "reel", self.place / "copied"
        make_folder(reel, {"a/b/take.mov": 300_000, "notes.txt": 10})
        node = self.node()
        program = self.example("build/release/Examples/project share reel")
        program.wait_for("sharing on port")
        self.connected(node)
        project = node.ask("list", timeout=PATIENCE)["result"]["projectsharing"].popitem()[1][0]
        self.assertEqual(project["name"], "reel")
        started = node.ask("copy", url=project["url"], dest=str(copied))
        self.assertTrue(started["ok"], started)
        self.assertTrue(node.wait("copyCompleted", timeout=PATIENCE)["success"])
        self.assert_same(reel, copied)
        self.assertEqual(program.interrupt(), 0)

    def test_project_copy(self):
        reel, copied = self.place / "reel", self.place / "copied"
        make_folder(reel, {"a/b/take.mov": 3_000_000, "ä b/c%20d.txt": 10, "nothing": 0, **{
            f"many/{number}.dpx": 1000 * number for number in range(1, 20)}})
        self.node("--share", f"reel1:Reel 1={reel}")
        program = self.example("build/release/Examples/project copy copied")
        program.wait_for("copying http://")
        program.wait_for("22 files copied")
        self.assertEqual(program.process.wait(timeout=PATIENCE), 0)
        bars = re.findall(r"\[(#*)(-*)\] (\d+) %, file (\d+) of (\d+)", "".join(program.seen))
        self.assertTrue(all(len(done) + len(left) == 40 for done, left, *_ in bars))
        self.assertEqual(bars[-1], ("#" * 40, "", "100", "22", "22"))
        self.assert_same(reel, copied)

    def test_project_copy_through_a_link(self):
        make_folder(self.place / "reel", {"notes.txt": 10})
        (self.place / "elsewhere").mkdir()
        (self.place / "copied").symlink_to("elsewhere")
        self.node("--share", f"reel1={self.place / 'reel'}")
        program = self.example("build/release/Examples/project copy copied")
        program.wait_for("copying http://")
        self.assertEqual(program.process.wait(timeout=PATIENCE), 1)
        program.read_to_the_end()
        self.assertNotIn("files copied", "".join(program.seen))
        self.assertGreater(len(program.seen[-1].strip()), 0)
        self.assertEqual(list((self.place / "elsewhere").iterdir()), [])

    def assert_same(self, one, other):
        names = [sorted(path.relative_to(folder) for path in folder.rglob("*")) for folder in (one, other)]
        self.assertEqual(*names)
        files = [name for name in names[0] if (one / name).is_file()]
        self.assertEqual(filecmp.cmpfiles(one, other, files, shallow=False), (files, [], []))

    def foreign_loop(self, name):
        if not (EXAMPLES / name).exists():
            found = subprocess.run(["pkg-config", "--exists", OPTIONAL[name]], check=False).returncode == 0
            self.assertFalse(found, f"{OPTIONAL[name]} is installed, and {name} was not built")
            self.skipTest(f"{OPTIONAL[name]} is not installed, so {name} is not built")
        node = self.node("--observe", "Line")
        self.sandbox.environment["QT_QPA_PLATFORM"] = "offscreen"
        program = self.example(f"build/release/Examples/{name}", subprocess.PIPE)
        program.wait_for("ready")
        program.wait_for("connected")
        self.connected(node)
        # Two in one piece, and one that comes in two.
        self.type_into(program, "scene 1\nscene 2\nsce")
        for text in ("scene 1", "scene 2"):
            self.heard(node, "Line", text)
        self.type_into(program, "ne 3\n")
        self.heard(node, "Line", "scene 3")
        node.ask("post", name="Line", userInfo={"text": "Schnitt \u2602"})
        program.wait_for("Schnitt \u2602\n")
        self.end_of_input(program)

    def test_glib_loop(self):
        self.foreign_loop("glib_loop")

    def test_qt_loop(self):
        self.foreign_loop("qt_loop")

    def script(self, interpreter, script, language):
        live = self.place / "live"
        make_folder(live, {"index.m3u8": 100})
        node = self.node("--observe", "Hello", "--stream", f"cam A:Camera \u2602={live}", "--share", f"reel={live}")
        program = self.example(f"{interpreter} {ROOT / 'Examples' / script} {COMMAND} --port 0 --discovery embedded "
                               "--interface lo --computer-name Script "
                               "--device-uuid 22222222-2222-4222-8222-222222222222")
        program.wait_for("connected to")
        # Whoever connects gets it, also when that is a moment later.
        self.assertTrue(node.ask("post", name="Hello", userInfo={"text": "hi"}, repost=True)["ok"])
        program.wait_for('/SUITE 1: "hi"')
        hello = self.heard(node, "Hello", f"Hello from {language}")
        self.assertTrue(hello["sender"].endswith("/SCRIPT"), hello)
        self.assertEqual(program.process.wait(timeout=PATIENCE), 0)
        program.read_to_the_end()
        output = "".join(program.seen)
        port = node.started()["port"]
        self.assertRegex(output, rf'streaming: "Camera (\\u2602|\u2602)" http://\S+:{port}/streams/cam%20A\n')
        self.assertRegex(output, rf'projectsharing: "reel" http://\S+:{port}/projects/reel\n')

    def test_command_python(self):
        self.script(sys.executable, "command_python/drive.py", "Python")

    def test_command_node(self):
        if shutil.which("node") is None:
            self.skipTest("node is not installed")
        self.script("node", "command_node/drive.js", "JavaScript")

    def test_scripts_whose_node_does_not_start_end_with_a_failure(self):
        for line in ("command_python/drive.py", "command_node/drive.js"):
            if line.endswith(".js") and shutil.which("node") is None:
                continue
            for arguments in ("", "/no/such/command", f"{COMMAND} --no-such-option"):
                with self.subTest(line=line, arguments=arguments):
                    status, output = self.sandbox.run(f"{ROOT / 'Examples' / line} {arguments}")
                    self.assertIn(status, (1, 2), output)
                    self.assertNotEqual(output.strip(), "")
                    self.assertNotIn("Traceback", output)

    def test_programs_with_folders_say_how_they_are_used(self):
        for line in ("stream", "stream serve /no/such/folder", "stream play .", "project", "project share /no/such",
                     "project copy"):
            with self.subTest(line=line):
                status, output = self.sandbox.run(f"build/release/Examples/{line}")
                self.assertEqual(status, 2)
                self.assertIn("usage:", output)


if __name__ == "__main__":
    unittest.main()
