"""A program finds its schema in the build tree, below an installation prefix, and moved elsewhere has one inside."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

PROBE = pathlib.Path(os.environ["RESOURCE_PROBE"])
BUILD = pathlib.Path(os.environ["BUILD_FOLDER"])
SCHEMA = pathlib.Path(__file__).resolve().parents[3] / "Resources" / "GraphQL.bundle" / "Schema.graphql"
BUNDLE = pathlib.Path("share", "ferrox", "GraphQL.bundle")
EMPTY = {"data": {"capabilities": {"streaming": None, "projectsharing": None}}}


class Resources(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())).resolve()

    def copy_probe(self, *below):
        target = self.folder.joinpath(*below, "probe")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(PROBE, target)
        return target

    def plant(self, parent, text="type Query { stranger: Int }"):
        bundle = parent / BUNDLE
        bundle.mkdir(parents=True)
        (bundle / "Schema.graphql").write_text(text)
        return bundle

    def run_probe(self, *command, cwd=None, executable=None, stderr=subprocess.DEVNULL):
        """The bundle that was found, and what stderr said; the query has to be answered whatever that holds."""
        done = subprocess.run([str(part) for part in command], cwd=cwd or self.folder, executable=executable,
                              stdout=subprocess.PIPE, stderr=stderr, text=True, timeout=30, check=True)
        found, answer = done.stdout.splitlines()
        self.assertEqual(json.loads(answer), EMPTY)
        return found, done.stderr

    def test_in_the_build_tree(self):
        found, _ = self.run_probe(PROBE)
        self.assertEqual(pathlib.Path(found).resolve(), (BUILD / BUNDLE).resolve())
        self.assertEqual((BUILD / BUNDLE / "Schema.graphql").read_text(), SCHEMA.read_text())

    def test_after_installation(self):
        subprocess.run([os.environ["CMAKE_COMMAND"], "--install", BUILD, "--prefix", self.folder / "prefix",
                        "--component", "resources"], check=True, stdout=subprocess.DEVNULL, timeout=30)
        installed = self.folder / "prefix" / BUNDLE
        self.assertEqual((installed / "Schema.graphql").read_text(), SCHEMA.read_text())
        for below in (("bin",), ("lib", "some-machine"), ()):
            with self.subTest(below=below):
                self.assertEqual(self.run_probe(self.copy_probe("prefix", *below))[0], str(installed))

    def test_by_a_relative_path_a_link_and_a_false_name(self):
        bundle = str(self.plant(self.folder / "app", SCHEMA.read_text()))
        probe = self.copy_probe("app", "bin")
        (self.folder / "link").symlink_to(probe)
        self.assertEqual(self.run_probe("./probe", cwd=probe.parent)[0], bundle)
        self.assertEqual(self.run_probe(self.folder / "link")[0], bundle)
        self.assertEqual(self.run_probe("/elsewhere/bin/probe", executable=probe)[0], bundle)

    def test_the_current_directory_plays_no_part(self):
        planted = self.plant(self.folder / "here")
        alone = self.copy_probe("a", "b", "c", "d", "e")
        found, _ = self.run_probe(alone, cwd=self.folder / "here")
        self.assertNotEqual(found, str(planted))
        found, _ = self.run_probe("../a/b/c/d/e/probe", cwd=self.folder / "here")
        self.assertNotEqual(found, str(planted))

    def test_an_unusable_file_is_told_once_and_replaced(self):
        for text in ("", "no schema {", "type Query { stranger: Int }", "\0", "x" * (2 << 20)):
            with self.subTest(text=text[:20]):
                shutil.rmtree(self.folder / "app", ignore_errors=True)
                bundle = self.plant(self.folder / "app", text)
                found, log = self.run_probe(self.copy_probe("app", "bin"), stderr=subprocess.PIPE)
                self.assertEqual(found, str(bundle))
                self.assertEqual(log.count("cannot be used"), 1, log)


if __name__ == "__main__":
    unittest.main()
