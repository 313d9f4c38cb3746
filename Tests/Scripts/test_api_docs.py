"""The reference of the public headers is made without a warning, and what lacks a comment is found."""

import html
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def api_docs(root, folder):
    return subprocess.run([root / "scripts/api-docs", folder], capture_output=True, text=True, timeout=60)


class Reference(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_it_holds_and_its_first_page_leads_to_what_it_names(self):
        made = api_docs(ROOT, self.folder)
        self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
        pages = self.folder / "html"
        first = (pages / "index.html").read_text()
        named = set(re.findall(r"ferrox::(\w+)", (ROOT / "docs/api.md").read_text()))
        self.assertGreater(len(named), 15)
        for name in named:
            link = re.search(rf'<a class="el" href="([^"#]+)[^"]*"[^>]*>ferrox::{name}</a>', first)
            self.assertIsNotNone(link, f"{name} is no link")
            self.assertTrue((pages / html.unescape(link[1])).exists(), link[1])

    def test_a_class_a_function_and_a_link_that_lack_something_are_named(self):
        copy = self.folder / "copy"
        for part in ("Classes", "Platform", "docs", "scripts"):
            shutil.copytree(ROOT / part, copy / part)
        shutil.copy(ROOT / "CMakeLists.txt", copy)
        header = copy / "Classes/HTTPServer/FRXServer.h"
        header.write_text(header.read_text() + "\nnamespace ferrox {\nstruct Mute { int depth; };\nvoid mutter();\n"
                          "/// See #nowhere for more.\nvoid speak();\n}\n")
        made = api_docs(copy, self.folder / "reference")
        self.assertNotEqual(made.returncode, 0)
        for defect in ("Compound ferrox::Mute", "Member mutter()", "'nowhere'"):
            self.assertIn(defect, made.stdout)
        self.assertNotIn("depth", made.stdout, "its name says all")


if __name__ == "__main__":
    unittest.main()
