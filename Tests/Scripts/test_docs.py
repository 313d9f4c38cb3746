"""What the documents name exists: operations in their headers, and the files that are linked to."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Documents(unittest.TestCase):
    def test_every_operation_in_the_selector_table_is_declared_in_its_header(self):
        header, checked = None, 0
        for line in (ROOT / "docs" / "selectors.md").read_text().splitlines():
            heading = re.match(r"## `(.+)`", line)
            if heading:
                header = (ROOT / heading[1]).read_text()
            elif line.startswith("| `"):
                for operation in re.findall(r"(\w+)\(", line.split("|")[2]):
                    self.assertRegex(header, rf"\b{operation}\(", f"{operation} of {line}")
                    checked += 1
        self.assertGreater(checked, 90)

    def test_links_lead_to_files(self):
        documents = [ROOT / name for name in ("README.md", "ARCHITECTURE.md", "CONTRIBUTING.md", "CHANGELOG.md")]
        for document in documents + sorted((ROOT / "docs").glob("*.md")):
            prose = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)
            for target in re.findall(r"\]\(([^)#:]+)\)", prose):
                self.assertTrue((document.parent / target).exists(), f"{document.name} links to {target}")


if __name__ == "__main__":
    unittest.main()
