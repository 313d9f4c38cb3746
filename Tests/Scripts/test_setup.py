"""scripts/setup against package tools that answer from a script: what it asks for, and when it stops."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import textwrap
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class SetupScript(unittest.TestCase):
    def setUp(self):
        self.place = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.place)
        self.calls = self.place / "calls"
        self.calls.touch()

    def tool(self, name, body):
        path = self.place / name
        path.write_text("#!/bin/sh\n" + textwrap.dedent(body))
        path.chmod(0o755)

    def pretend(self, installed, removed=(), user=0):
        cases = "|".join(installed) or "-"
        self.tool("dpkg-query", f'case "$4" in {cases}) printf "install ok installed";; *) exit 1;; esac\n')
        plan = "\n".join(f"echo 'Remv {name} [1.0]'" for name in removed)
        self.tool("apt-get", f'echo "apt-get $*" >>"{self.calls}"\ncase "$1" in -s) :\n{plan}\n;; esac\n')
        self.tool("id", f"echo {user}\n")
        self.tool("sudo", f'echo "sudo" >>"{self.calls}"\nexec "$@"\n')

    def run_setup(self, *groups):
        path = f"{self.place}:/usr/bin:/bin"
        return subprocess.run(
            [ROOT / "scripts" / "setup", *groups],
            env={**os.environ, "PATH": path},
            capture_output=True,
            text=True,
            timeout=30,
        )

    def packages(self, group):
        lines = (ROOT / "scripts" / "packages").read_text().splitlines()
        return [line.split()[1] for line in lines if line.startswith(group + " ")]

    def test_says_and_does_nothing_when_all_is_there(self):
        self.pretend(installed=self.packages("build"))
        done = self.run_setup()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.assertEqual(self.calls.read_text(), "")

    def test_asks_only_for_what_is_missing(self):
        self.pretend(installed=[name for name in self.packages("build") if name not in ("ccache", "libicu-dev")])
        self.assertEqual(self.run_setup().returncode, 0)
        install = self.calls.read_text().splitlines()[-1]
        self.assertTrue(install.endswith("install ccache libicu-dev"), install)

    def test_goes_through_sudo_when_not_root(self):
        self.pretend(installed=[], user=1000)
        self.assertEqual(self.run_setup().returncode, 0)
        self.assertIn("sudo", self.calls.read_text())

    def test_stops_when_something_would_be_removed(self):
        self.pretend(installed=[], removed=["libboost1.74-dev"])
        done = self.run_setup()
        self.assertEqual(done.returncode, 1)
        self.assertIn("would remove: libboost1.74-dev", done.stderr)
        calls = self.calls.read_text().splitlines()
        self.assertFalse([call for call in calls if " -y " in call], calls)

    def test_refuses_a_group_that_does_not_exist(self):
        self.pretend(installed=[])
        self.assertEqual(self.run_setup("nonsense").returncode, 2)


if __name__ == "__main__":
    unittest.main()
