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

    def test_the_changelog_begins_with_the_present_version(self):
        version = re.search(r"project\(ferrox VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
        changes = re.findall(r"^## \[(.+?)\]", (ROOT / "CHANGELOG.md").read_text(), flags=re.MULTILINE)
        self.assertEqual([change for change in changes if change != "Unreleased"][0], version)

    def test_links_lead_to_files(self):
        documents = [ROOT / name for name in ("README.md", "ARCHITECTURE.md", "CONTRIBUTING.md", "CHANGELOG.md")]
        for document in documents + sorted((ROOT / "docs").glob("*.md")):
            prose = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)
            for target in re.findall(r"\]\(([^)#:]+)\)", prose):
                self.assertTrue((document.parent / target).exists(), f"{document.name} links to {target}")

    def test_names_of_the_sources_are_names_of_the_sources(self):
        sources = {path: path.read_text() for folder in ("Classes", "Platform", "Apps", "Examples")
                   for path in (ROOT / folder).rglob("*") if path.suffix in (".h", ".cpp")}
        words = set(re.findall(r"\w+", " ".join(sources.values()))) | {path.stem for path in sources}
        checked = 0
        for name in ("threads.md", "security.md", "troubleshooting.md", "tuning.md", "protocol.md"):
            for span in re.findall(r"`([A-Za-z][\w:]*)`", (ROOT / "docs" / name).read_text()):
                owner, _, member = span.rpartition("::")
                if not re.search(r"[a-z][A-Z]|::", span) or span.startswith("std::"):
                    continue
                self.assertTrue(member in words, f"{name}: {span}")
                owner = owner.rpartition("::")[2]
                if owner:
                    homes = [text for text in sources.values()
                             if re.search(rf"\b(?:class|struct)\s+(?:FRX_EXPORT\s+)?{owner}\b[^;]*\{{", text)
                             or re.search(rf"\benum class {owner}\b", text)]
                    self.assertTrue(any(re.search(rf"\b{member}\b", home) for home in homes), f"{name}: {span}")
                checked += 1
        self.assertGreater(checked, 100)

    def test_what_the_doctor_is_said_to_say_it_says(self):
        doctor = "".join(path.read_text() for path in sorted((ROOT / "Apps/ferrox/Doctor").glob("*.cpp")))
        doctor = re.sub(r'"\s*\n\s*"', "", doctor)
        document = (ROOT / "docs" / "troubleshooting.md").read_text()
        table = document.split("| It says |", 1)[1].split("\n\n", 1)[0]
        sayings = re.findall(r"^\| `(.+?)` \|", table, flags=re.MULTILINE)
        self.assertGreater(len(sayings), 12)
        for saying in sayings:
            for piece in re.split(r"\.\.\.|:", saying):
                self.assertTrue(piece.strip() in doctor, saying)


if __name__ == "__main__":
    unittest.main()
