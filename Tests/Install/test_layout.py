"""Each installed file is in its place, and none knows where it was built or first installed."""

import os
import unittest

from installed import HEADERS, LIBRARIES, PREFIX, ROOT, SHARED, STATIC, VERSION, must, public_headers


class Layout(unittest.TestCase):
    def test_the_public_headers_are_installed_and_no_others(self):
        found = sorted(path.relative_to(HEADERS).as_posix() for path in HEADERS.rglob("*") if path.is_file())
        self.assertEqual(found, public_headers())
        self.assertGreater(len(found), 50)
        self.assertEqual([path.name for path in HEADERS.parent.iterdir()], ["ferrox"])

    def test_both_libraries_are_there(self):
        self.assertTrue(STATIC.is_file())
        self.assertEqual(os.readlink(SHARED), "libferrox.so.1")
        self.assertEqual(os.readlink(LIBRARIES / "libferrox.so.1"), f"libferrox.so.{VERSION}")
        self.assertRegex(must("readelf", "-d", SHARED), r"SONAME.*\[libferrox\.so\.1\]")

    def test_the_schema_is_where_the_library_looks_for_it(self):
        installed = PREFIX / "share/ferrox/GraphQL.bundle/Schema.graphql"
        self.assertEqual(installed.read_bytes(), (ROOT / "Resources/GraphQL.bundle/Schema.graphql").read_bytes())

    def test_the_command_runs_where_it_is(self):
        self.assertIn(VERSION, must(PREFIX / "bin/ferrox", "--version"))

    def test_pkg_config_knows_version_and_places(self):
        self.assertEqual(must("pkg-config", "--modversion", "ferrox").strip(), VERSION)
        included = must("pkg-config", "--cflags-only-I", "ferrox").strip().removeprefix("-I")
        self.assertTrue(os.path.samefile(included, HEADERS))

    def test_no_text_knows_where_it_was_made(self):
        makers = [str(ROOT), os.environ["FERROX_BUILD"]]
        checked = 0
        for path in PREFIX.rglob("*"):
            if not path.is_file() or path.is_symlink():
                continue
            content = path.read_bytes()
            if b"\0" in content:
                continue
            for maker in makers:
                self.assertFalse(maker.encode() in content, f"{path} knows {maker}")
            checked += 1
        self.assertGreater(checked, 50)


if __name__ == "__main__":
    unittest.main()
