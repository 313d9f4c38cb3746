"""What `cmake --install` puts beside the command, and that the command runs from there."""

import os
import pathlib
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ.get("FERROX_BUILD", "build/release")).resolve()
FILES = {
    "bin/ferrox", "share/man/man1/ferrox.1", "share/bash-completion/completions/ferrox",
    "share/fish/vendor_completions.d/ferrox.fish", "lib/systemd/user/ferrox.service",
}
# Which of them depends on the prefix that the build is meant for.
ZSH = {"share/zsh/site-functions/_ferrox", "share/zsh/vendor-completions/_ferrox"}


class Installed(unittest.TestCase):
    def test_everything_is_in_its_place_and_the_command_runs(self):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(["cmake", "--install", BUILD, "--component", "command", "--prefix", folder],
                                  capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual(done.returncode, 0, done.stderr)
            there = {str(path.relative_to(folder)) for path in pathlib.Path(folder).rglob("*") if path.is_file()}
            self.assertEqual(there - ZSH, FILES)
            self.assertEqual(len(there & ZSH), 1)
            ran = subprocess.run([f"{folder}/bin/ferrox", "run", "--json", "--port", "0", "--discovery", "off"],
                                 cwd=folder, input='{"cmd": "quit"}\n', capture_output=True, text=True, timeout=60,
                                 check=False)
            self.assertEqual(ran.returncode, 0, ran.stderr)
            self.assertIn('"ok":true', ran.stdout)


if __name__ == "__main__":
    unittest.main()
