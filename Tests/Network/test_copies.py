"""Whole projects copied from one host to another, byte for byte, and what becomes of copies that cannot succeed."""

import contextlib
import filecmp
import pathlib
import random
import signal
import subprocess
import tempfile
import time
import unittest

from netns import Network, sh
from node import COMMAND, Node

GIB = 1 << 30
# What a program may take beside the size of the files: its libraries, its buffers.
MODEST_MIB = 64


def write(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


class Copies(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(dir="/var/tmp")
        cls.addClassCleanup(folder.cleanup)
        cls.path = pathlib.Path(folder.name)
        cls.make_projects()
        cls.network = Network(2)
        cls.addClassCleanup(cls.network.close)
        cls.server, cls.client = cls.network.hosts
        cls.node = cls.start_node()
        cls.base = cls.projects_of(cls.node)

    @classmethod
    def start_node(cls, **options):
        shares = [part for name in ("names", "sizes", "many", "huge")
                  for part in ("--share", f"{name}={cls.path / name}")]
        return Node(cls.server, *shares, **options)

    @classmethod
    def projects_of(cls, node):
        return f"http://{cls.server.address}:{node.wait_started(20)['port']}/projects"

    @classmethod
    def make_projects(cls):
        values = random.Random(5)
        for name in ("plain", "with blanks/a b  c", "100%/50%25", "Größe/☃/日本", ".hidden/..twice/...", "a'b\"c",
                     "#x?y=z&", "deep/" + "/".join("abcdefghij")):
            write(cls.path / "names" / name / "file 1.bin", values.randbytes(3000))
        (cls.path / "names/empty folder/inside").mkdir(parents=True)
        for size in (1, 999, 1000, 1001, 1999, 2000, 2001, 10_000):
            write(cls.path / f"sizes/{size}", values.randbytes(size))
        for number in range(5000):
            write(cls.path / f"many/{number % 40}/{number}", values.randbytes(values.randint(1, 4000)))
        (cls.path / "huge").mkdir()
        with (cls.path / "huge/take.mov").open("wb") as file:
            file.truncate(8 * GIB)
            for place in (0, 4 * GIB - 3, 8 * GIB - 6):
                file.seek(place)
                file.write(b"marker")

    def setUp(self):
        self.dest = self.path / "copies" / self.id().rpartition(".")[2]

    def command(self, url, *options):
        return [COMMAND, "copy", url, str(self.dest), "--discovery", "off", "--on-low-storage", "continue", *options]

    def copy(self, url, *options, timeout=60):
        return self.client.run(self.command(url, *options), timeout=timeout)

    def begin(self, url, *options):
        return self.client.popen(self.command(url, *options), stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def assert_same(self, source):
        def listed(root):
            return sorted((str(path.relative_to(root)), path.is_dir()) for path in root.rglob("*"))

        self.assertEqual(listed(self.dest), listed(source))
        for path, is_directory in listed(source):
            if not is_directory:
                self.assertTrue(filecmp.cmp(source / path, self.dest / path, shallow=False), path)

    def assert_nothing_half(self):
        """No file stands in the destination under a name of the project unless it is whole."""
        for path in self.dest.rglob("*"):
            source = self.path / "huge" / path.relative_to(self.dest)
            if path.is_file() and source.exists():
                self.assertEqual(path.stat().st_size, source.stat().st_size, path)

    def test_names_of_all_kinds(self):
        done = self.copy(self.base + "/names")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_same(self.path / "names")

    def test_sizes_around_the_length_of_a_piece(self):
        done = self.copy(self.base + "/sizes", "--max-content-length", "1000", "--verify-sizes")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_same(self.path / "sizes")

    def test_thousands_of_small_files(self):
        done = self.copy(self.base + "/many", timeout=120)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_same(self.path / "many")

    def test_a_file_larger_than_the_memory_one_wants_to_spend(self):
        process = self.begin(self.base + "/huge")
        peak = 0
        while process.poll() is None:
            with contextlib.suppress(OSError, StopIteration):
                told = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii").splitlines()
                peak = max(peak, next(int(line.split()[1]) / 1024 for line in told if line.startswith("VmHWM:")))
            time.sleep(0.02)
        _, told = process.communicate()
        self.assertEqual(process.returncode, 0, told)
        self.assertGreater(peak, 1)
        self.assertLess(peak, MODEST_MIB)
        self.assertTrue(filecmp.cmp(self.path / "huge/take.mov", self.dest / "take.mov", shallow=False))
        (self.dest / "take.mov").unlink()

    def test_a_peer_that_dies_in_the_middle(self):
        node = self.start_node(index=50, port=0)
        process = self.begin(self.projects_of(node) + "/huge")
        self.wait_for_bytes()
        node.process.send_signal(signal.SIGKILL)
        _, told = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1, told)
        self.assert_nothing_half()

    def test_a_peer_whose_network_goes(self):
        process = self.begin(self.base + "/huge", "--timeout", "2")
        self.wait_for_bytes()
        self.server.partition()
        try:
            _, told = process.communicate(timeout=60)
        finally:
            self.server.heal()
        self.assertEqual(process.returncode, 1, told)
        self.assert_nothing_half()

    def wait_for_bytes(self):
        deadline = time.monotonic() + 30
        while not any(path.stat().st_blocks for path in self.dest.rglob("*") if path.is_file()):
            self.assertLess(time.monotonic(), deadline, "nothing arrives")
            time.sleep(0.002)

    def test_a_copy_that_was_interrupted_is_finished_later(self):
        process = self.begin(self.base + "/many", "--resume", "--jobs", "1")
        deadline = time.monotonic() + 30
        while sum(path.is_file() for path in self.dest.rglob("*")) < 50:
            self.assertLess(time.monotonic(), deadline)
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=30)
        kept = {path: path.stat().st_ino for path in self.dest.rglob("*")
                if path.is_file() and (self.path / "many" / path.relative_to(self.dest)).exists()}
        self.assertGreater(len(kept), 10)
        done = self.copy(self.base + "/many", "--resume", "--verify-sizes", timeout=120)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_same(self.path / "many")
        self.assertEqual({path: path.stat().st_ino for path in kept}, kept)

    def test_a_disk_that_fills(self):
        disk = self.path / "small disk"
        disk.mkdir()
        sh("mount", "-t", "tmpfs", "-o", "size=4m", "none", str(disk))
        try:
            self.dest = disk / "copy"
            done = self.copy(self.base + "/huge")
            self.assertEqual(done.returncode, 1)
            self.assertIn("No space left on device", done.stderr)
            self.assert_nothing_half()
        finally:
            sh("umount", str(disk))

    def test_a_foreign_server_without_ranges_of_our_kind(self):
        """nginx answers a range with 206, which ends the copy; whole files come over."""
        with self.nginx() as url:
            done = self.copy(url + "/sizes", "--max-content-length", "1000")
            self.assertEqual(done.returncode, 1)
            self.assertIn("http call failed with status code 206", done.stderr)
            done = self.copy(url + "/sizes")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assert_same(self.path / "sizes")
            done = self.copy(url + "/missing")
            self.assertEqual(done.returncode, 1)
            self.assertIn("http call failed with status code 404", done.stderr)

    @contextlib.contextmanager
    def nginx(self):
        root = self.path / "nginx"
        (root / "html/sizes").mkdir(parents=True)
        (root / "html/sizes/files").symlink_to(self.path / "sizes")
        files = ", ".join(f'"{path.name}"' for path in (self.path / "sizes").iterdir())
        write(root / "html/sizes.json", f'{{"directories": [], "files": [{files}]}}'.encode())
        root.chmod(0o755)
        (root / "nginx.conf").write_text(f"""user root; daemon off; pid {root}/pid; error_log /dev/null;
events {{}}
http {{ access_log off;
  server {{ listen {self.server.address}:8080; root {root}/html;
            location = /sizes {{ try_files /sizes.json =404; }} }} }}
""", encoding="ascii")
        server = self.server.popen(["nginx", "-c", str(root / "nginx.conf"), "-p", str(root)])
        url = f"http://{self.server.address}:8080"
        try:
            deadline = time.monotonic() + 20
            while self.client.run(["curl", "-s", "-o", "/dev/null", url]).returncode != 0:
                self.assertLess(time.monotonic(), deadline, "nginx does not answer")
            yield url
        finally:
            server.terminate()
            server.wait(timeout=20)


if __name__ == "__main__":
    unittest.main()
