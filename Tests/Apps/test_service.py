"""A node as a service: what it tells the service manager that started it."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest

from command_process import COMMAND

PATIENCE = 30
UNIT = pathlib.Path(os.environ.get("FERROX_BUILD", "build/release")) / "packaging" / "ferrox.service"
HIGHEST_EXPOSURE = 3.0


class Manager:
    """The socket that a service manager listens on, and the node that it starts."""

    def __init__(self, test, *options):
        directory = tempfile.TemporaryDirectory()
        test.addCleanup(directory.cleanup)
        path = pathlib.Path(directory.name) / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        test.addCleanup(self.socket.close)
        self.socket.bind(str(path))
        self.socket.settimeout(PATIENCE)
        self.process = subprocess.Popen(
            [COMMAND, "run", "--discovery", "off", *options], env={**os.environ, "NOTIFY_SOCKET": str(path)},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        test.addCleanup(self.end)

    def next(self):
        """One notification, as {variable: value}."""
        return dict(line.split("=", 1) for line in self.socket.recv(4096).decode().splitlines())

    def nothing_more(self):
        self.socket.setblocking(False)
        try:
            return not self.socket.recv(4096)
        except BlockingIOError:
            return True

    def end(self):
        self.process.kill()
        self.process.communicate()


class Service(unittest.TestCase):
    def test_it_is_ready_when_it_can_be_reached_and_tells_of_its_end(self):
        manager = Manager(self, "--port", "0", "--computer-name", "Suite 3")
        told = manager.next()
        self.assertEqual(told["READY"], "1")
        self.assertRegex(told["STATUS"], r"^\S+/(?i:suite 3) on port \d+$")
        socket.create_connection(("127.0.0.1", int(told["STATUS"].rpartition(" ")[2])), timeout=PATIENCE).close()
        self.assertIsNone(manager.process.poll())
        manager.process.send_signal(signal.SIGTERM)
        self.assertEqual(manager.next(), {"STOPPING": "1"})
        self.assertEqual(manager.process.wait(timeout=PATIENCE), 0)
        self.assertTrue(manager.nothing_more())

    def test_it_is_never_ready_when_it_cannot_start(self):
        with socket.create_server(("", 0)) as taken:
            manager = Manager(self, "--port", str(taken.getsockname()[1]))
            self.assertEqual(manager.next(), {"STOPPING": "1"})
            self.assertEqual(manager.process.wait(timeout=PATIENCE), 1)
        self.assertTrue(manager.nothing_more())

    def test_a_manager_that_is_gone_is_told_of_and_the_node_goes_on(self):
        process = subprocess.Popen([COMMAND, "run", "--json", "--discovery", "off", "--port", "0"],
                                   env={**os.environ, "NOTIFY_SOCKET": "/no/such/socket"}, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        self.assertIn('"started"', process.stdout.readline())
        output, errors = process.communicate('{"cmd": "quit"}\n', timeout=PATIENCE)
        self.assertIn('"ok":true', output)
        self.assertEqual(process.returncode, 0)
        self.assertIn("the service manager was not told", errors.lower())


class Unit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = UNIT.read_text(encoding="utf-8")
        cls.settings = [line.split("=", 1) for line in cls.text.splitlines() if re.match(r"\w+=", line)]

    def values(self, name):
        return [value for key, value in self.settings if key == name]

    def analyze(self, *arguments):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("systemd-analyze is not installed: the unit is not judged here")
        runtime = tempfile.TemporaryDirectory()
        self.addCleanup(runtime.cleanup)
        return subprocess.run(["systemd-analyze", "--user", *arguments, str(UNIT)], capture_output=True, text=True,
                              env={**os.environ, "XDG_RUNTIME_DIR": runtime.name, "LC_ALL": "C.UTF-8"},
                              timeout=PATIENCE, check=False)

    def test_it_is_little_exposed(self):
        done = self.analyze("security", "--offline=yes", "--no-pager")
        exposure = re.search(r"Overall exposure level for ferrox\.service: ([\d.]+)", done.stdout)
        self.assertIsNotNone(exposure, done.stdout + done.stderr)
        self.assertLess(float(exposure[1]), HIGHEST_EXPOSURE, done.stdout)

    def test_its_settings_are_understood(self):
        done = self.analyze("verify", "--man=no")
        # The command and other units need not be installed here.
        complaints = [line for line in done.stderr.splitlines() if "ferrox.service" in line and
                      "is not executable: No such file" not in line]
        self.assertEqual(complaints, [], done.stderr)

    def test_it_may_write_nothing_but_its_own_temporary_files(self):
        self.assertEqual(self.values("ProtectSystem"), ["strict"])
        self.assertEqual(self.values("ProtectHome"), ["read-only"])
        self.assertEqual(self.values("PrivateTmp"), ["yes"])
        self.assertEqual(self.values("ReadWritePaths"), [])

    def test_it_leaves_discovery_what_it_needs(self):
        self.assertEqual(set(self.values("RestrictAddressFamilies")[0].split()),
                         {"AF_INET", "AF_INET6", "AF_NETLINK", "AF_UNIX"})
        for refused in ("PrivateNetwork", "IPAddressDeny", "ProcSubset", "RestrictNetworkInterfaces"):
            self.assertEqual(self.values(refused), [], refused)

    def test_it_runs_a_node_and_waits_until_that_is_ready(self):
        self.assertEqual(self.values("Type"), ["notify"])
        self.assertRegex(self.values("ExecStart")[0], r"^/\S+/bin/ferrox run \$FERROX_OPTIONS$")
        self.assertNotIn("@", re.sub(r"@(system-service|privileged|resources)", "", self.text))


if __name__ == "__main__":
    unittest.main()
