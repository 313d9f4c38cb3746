"""scripts/lib/debian_documents.py: what the packages say of rights and changes is what the sources say."""

import gzip
import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
WHO = "Somebody <somebody@ferrox.invalid>"
CHANGES = """# Changelog

## [Unreleased]

- not of any version

## [0.2.0] - unreleased

### Added

- A thing that is told of at such length that it does not fit
  into one line of eighty characters.

### Fixed

- Another.

## [0.1.0] - 2026-02-01

### Added

- The first.
"""
WRITTEN = f"""ferrox (0.2.0-3) UNRELEASED; urgency=medium

  * Added: A thing that is told of at such length that it does not fit into
    one line of eighty characters.
  * Fixed: Another.

 -- {WHO}  Fri, 13 Feb 2009 23:31:30 +0000

ferrox (0.1.0-1) unstable; urgency=medium

  * Added: The first.

 -- {WHO}  Sun, 01 Feb 2026 00:00:00 +0000
"""


class DebianDocuments(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.place = pathlib.Path(folder.name)
        (self.place / "LICENSE").write_text((ROOT / "LICENSE").read_text())
        (self.place / "CHANGELOG.md").write_text(CHANGES)

    def write(self, version="0.2.0-3"):
        return subprocess.run(
            ["/usr/bin/python3", ROOT / "scripts/lib/debian_documents.py", version, WHO, self.place / "made",
             self.place / "LICENSE", self.place / "CHANGELOG.md", ROOT / "docs/ferrox.1"],
            env={**os.environ, "SOURCE_DATE_EPOCH": "1234567890"}, capture_output=True, text=True, timeout=30,
            check=False)

    def made(self, name):
        content = (self.place / "made" / name).read_bytes()
        return (gzip.decompress(content) if name.endswith(".gz") else content).decode()

    def test_every_version_is_told_with_its_changes_and_its_date(self):
        done = self.write()
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.made("changelog.Debian.gz"), WRITTEN)

    def test_the_whole_license_is_told(self):
        self.assertEqual(self.write().returncode, 0)
        text = self.made("copyright")
        self.assertIn("\nCopyright: 2026 The Ferrox authors\nLicense: Expat\n", text)
        told = " ".join(text.partition("License: Expat\n")[2].replace("\n .\n", "\n").split())
        granted = (ROOT / "LICENSE").read_text().partition("authors\n")[2]
        self.assertEqual(told, " ".join(granted.split()))

    def test_the_man_page_is_the_one_of_the_documents(self):
        self.assertEqual(self.write().returncode, 0)
        self.assertEqual(self.made("ferrox.1.gz"), (ROOT / "docs/ferrox.1").read_text())

    def test_the_same_text_is_the_same_file(self):
        self.assertEqual(self.write().returncode, 0)
        first = {path.name: path.read_bytes() for path in (self.place / "made").iterdir()}
        self.assertEqual(self.write().returncode, 0)
        self.assertEqual(first, {path.name: path.read_bytes() for path in (self.place / "made").iterdir()})

    def test_a_version_that_the_changelog_does_not_begin_with_is_refused(self):
        done = self.write("0.3.0-1")
        self.assertEqual(done.returncode, 1)
        self.assertIn("does not begin with 0.3.0", done.stderr)

    def test_another_license_is_refused(self):
        (self.place / "LICENSE").write_text("Some License\n\nCopyright (c) 2026 Somebody\n\nNothing is granted.\n")
        done = self.write()
        self.assertEqual(done.returncode, 1)
        self.assertIn("LICENSE", done.stderr)


if __name__ == "__main__":
    unittest.main()
