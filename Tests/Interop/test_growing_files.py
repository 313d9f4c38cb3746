"""Files that grow while `ferrox follow` runs, made by ffmpeg and served by our own node and by nginx."""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "Apps"))

from command_process import COMMAND, Child, Node  # noqa: E402

RECORDING_SECONDS = 3
DEADLINE = 120
LOOK_INTERVAL = 0.02
SYNTHETIC_MEDIA = 3_000_000

# All are written as a camera would, in real time. The last atom's size is known only at the end, at once, or
# for each fragment.
RECORDERS = {
    "movie": ["-flush_packets", "1"],
    "fragments": ["-movflags", "frag_keyframe+empty_moov", "-flush_packets", "1"],
    "fragments of a moment": ["-movflags", "frag_every_frame+empty_moov+default_base_moof", "-flush_packets", "1"],
}


def atoms(data):
    """Where top-level atoms begin, and where the last of them ends or will end: nothing while its size is unknown.
    A size with which the data ends counts as unknown."""
    position, starts = 0, []
    while position < len(data):
        starts.append(position)
        size, needed = int.from_bytes(data[position:position + 4], "big"), 4
        if size == 1:
            size, needed = int.from_bytes(data[position + 8:position + 16], "big"), 16
        if len(data) - position <= needed or size == 0:
            return starts, None
        position += size
    return starts, position


class Nginx:
    """Serves one directory, with ranges as HTTP has them."""

    def __init__(self, directory):
        self._scratch = tempfile.TemporaryDirectory()
        scratch = pathlib.Path(self._scratch.name)
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        paths = " ".join(f"{kind}_temp_path {scratch}/{kind};"
                         for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        user = "user root;" if os.geteuid() == 0 else ""
        (scratch / "nginx.conf").write_text(
            f"{user} daemon off; master_process off; pid {scratch}/pid; error_log {scratch}/error.log;"
            "events {} http {" + f"access_log off; {paths} server {{ listen 127.0.0.1:{self.port};"
            f" root {directory}; }} }}")
        self.process = subprocess.Popen(["nginx", "-p", scratch, "-e", scratch / "error.log",
                                         "-c", scratch / "nginx.conf"], stderr=subprocess.DEVNULL)
        self._wait_until_it_listens()

    def _wait_until_it_listens(self):
        deadline = time.monotonic() + DEADLINE
        while True:
            try:
                return socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
            except OSError:
                if self.process.poll() is not None or time.monotonic() > deadline:
                    raise
                time.sleep(0.02)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.process.terminate()
        self.process.wait(timeout=10)
        self._scratch.cleanup()


class Recording:
    """A camera. It stands still from its first bytes on until a part of them has been followed."""

    def __init__(self, path, options):
        self.path = path
        self.process = subprocess.Popen(
            ["ffmpeg", "-loglevel", "error", "-nostdin", "-re", "-f", "lavfi",
             "-i", f"testsrc2=size=320x180:rate=25:duration={RECORDING_SECONDS}", "-c:v", "mpeg2video", "-g", "25",
             "-f", "mov", *options, path], stderr=subprocess.PIPE)
        self._is_held = False

    def hold_at_first_bytes(self):
        deadline = time.monotonic() + DEADLINE
        while not (self.path.exists() and self.path.stat().st_size > 0):
            assert time.monotonic() < deadline, "nothing is recorded"
            time.sleep(LOOK_INTERVAL)
        self.process.send_signal(signal.SIGSTOP)
        self._is_held = True
        assert not self.is_done(), "over before it was followed"

    def advance(self, local):
        if self._is_held and local:
            self._is_held = False
            self.process.send_signal(signal.SIGCONT)

    def is_done(self):
        return self.process.poll() is not None

    def close(self):
        if not self.is_done():
            self.process.kill()
        errors = self.process.communicate(timeout=10)[1]
        return self.process.returncode, errors.decode()


class LargeHeader:
    """Grows in steps of any size: media whose 64-bit size is known from the beginning, then the rest. Each step
    is made when all that can be followed of the last one was."""

    def __init__(self, path):
        self.path = path
        content = (20).to_bytes(4, "big") + b"ftypqt  " + bytes(8)
        content += (1).to_bytes(4, "big") + b"mdat" + (SYNTHETIC_MEDIA + 16).to_bytes(8, "big")
        content += (b"media" * SYNTHETIC_MEDIA)[:SYNTHETIC_MEDIA]
        content += (1008).to_bytes(4, "big") + b"moov" + b"m" * 1000
        self._content = content
        media_end = 20 + 16 + SYNTHETIC_MEDIA
        self._steps = [22, 30, 36, 37, 1000, 400_000, media_end - 1, media_end, media_end + 4, media_end + 5,
                       len(content)]
        path.touch()

    def hold_at_first_bytes(self):
        pass

    def advance(self, local):
        written = self._content[:self.path.stat().st_size]
        starts, end = atoms(written)
        if not self.is_done() and len(local) == (starts[-1] if end is None else len(written)):
            with self.path.open("ab") as file:
                file.write(self._content[len(written):self._steps.pop(0)])

    def is_done(self):
        return not self._steps

    def close(self):
        return 0, ""


class Following:
    """`ferrox follow` beside the recording, watched at every moment."""

    def __init__(self, test, recording, url):
        self.test, self.recording = test, recording
        self.local = recording.path.with_suffix(".local")
        self.child = Child([COMMAND, "follow", url, self.local, "--interval", "0.05", "--until-idle", "3600",
                            "--discovery", "off", "--json"])
        self.sizes = set()

    def look(self):
        """The local file is a beginning of the remote one, and the sizes of all its atoms are known."""
        local = self.local.read_bytes() if self.local.exists() else b""
        remote = self.recording.path.read_bytes()
        self.sizes.add(len(local))
        self.test.assertEqual(local, remote[:len(local)])
        starts, end = atoms(local)
        self.test.assertTrue(end is not None, f"ends within a header: {len(local)} bytes, atoms at {starts}")
        self.recording.advance(local)
        return len(local) == len(remote)

    def was_followed(self):
        return any(0 < size < max(self.sizes) for size in self.sizes)

    def finish(self):
        self.child.process.send_signal(signal.SIGINT)
        self.test.assertEqual(self.child.exit_status(timeout=DEADLINE), 130)
        return self.local


class Growing:
    """The tests, once for each server."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def record(self):
        recordings = {name: Recording(self.folder / (name.replace(" ", "-") + ".mov"), options)
                      for name, options in RECORDERS.items()}
        recordings["large header"] = LargeHeader(self.folder / "large.mov")
        for recording in recordings.values():
            self.addCleanup(recording.close)
        return recordings

    def follow(self, base, recordings):
        followers = {}
        for name, recording in recordings.items():
            recording.hold_at_first_bytes()
            followers[name] = Following(self, recording, f"{base}/{recording.path.name}")
            self.addCleanup(followers[name].child.__exit__)
        return followers

    def test_local_files_are_beginnings_at_every_moment_and_equal_and_playable_in_the_end(self):
        with self.server() as base:
            recordings = self.record()
            followers = self.follow(base, recordings)
            deadline = time.monotonic() + DEADLINE
            equal = set()
            while len(equal) < len(followers):
                self.assertLess(time.monotonic(), deadline, f"equal: {equal}")
                for name, follower in followers.items():
                    # Asked before the look, so that nothing is written between the two.
                    done = recordings[name].is_done()
                    if follower.look() and done:
                        equal.add(name)
                time.sleep(LOOK_INTERVAL)
            for name, follower in followers.items():
                with self.subTest(recording=name):
                    local = follower.finish()
                    self.assertEqual(recordings[name].close(), (0, ""))
                    self.assertTrue(follower.was_followed(), f"fetched at once: {follower.sizes}")
                    self.check_playable(name, local)

    def check_playable(self, name, local):
        if name == "large header":  # There is nothing to see in it.
            return
        done = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-show_entries", "stream=nb_read_frames",
                               "-of", "csv=p=0", local], capture_output=True, text=True, timeout=DEADLINE)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(done.stdout.strip().strip(","), str(25 * RECORDING_SECONDS))


class OwnServer:
    def __init__(self, folder, path):
        self._node = Node("--share", f"reel={folder}", "--stream", f"cam={folder}", discovery="off")
        self._path = path

    def __enter__(self):
        return f"http://127.0.0.1:{self._node.started()['port']}/{self._path}"

    def __exit__(self, *unused):
        self._node.__exit__()


class SharedProject(Growing, unittest.TestCase):
    def server(self):
        return OwnServer(self.folder, "projects/reel/files")


class Stream(Growing, unittest.TestCase):
    def server(self):
        return OwnServer(self.folder, "streams/cam")


class ForeignServer(Growing, unittest.TestCase):
    def server(self):
        nginx = Nginx(self.folder)

        class Base:
            def __enter__(self):
                return f"http://127.0.0.1:{nginx.port}"

            def __exit__(self, *unused):
                nginx.__exit__()

        return Base()


class Fetching(unittest.TestCase):
    def test_segments_of_a_foreign_server_arrive_exactly(self):
        with tempfile.TemporaryDirectory() as folder:
            remote, local = pathlib.Path(folder, "remote"), pathlib.Path(folder, "local")
            remote.write_bytes(os.urandom(100_000))
            local.write_bytes(bytes(100_000))
            with Nginx(folder) as nginx:
                url = f"http://127.0.0.1:{nginx.port}/remote"
                fetched = subprocess.run([COMMAND, "fetch", url, local, "--segment", "0:1", "--segment", "10:50000",
                                          "--segment", "99990:10", "--discovery", "off"],
                                         capture_output=True, text=True, timeout=DEADLINE)
                beyond = subprocess.run([COMMAND, "fetch", url, local, "--segment", "100000:5", "--discovery", "off"],
                                        capture_output=True, text=True, timeout=DEADLINE)
            self.assertEqual((fetched.returncode, fetched.stderr), (0, ""))
            expected = bytearray(100_000)
            for begin, end in ((0, 1), (10, 50_010), (99_990, 100_000)):
                expected[begin:end] = remote.read_bytes()[begin:end]
            self.assertEqual(local.read_bytes(), expected)
            self.assertEqual(beyond.returncode, 1)
            self.assertIn("http call failed with status code 416", beyond.stderr)


if __name__ == "__main__":
    unittest.main()
