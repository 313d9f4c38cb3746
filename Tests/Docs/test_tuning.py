"""The defaults of docs/tuning.md are those of the sources, and no limit of the files it names is left out."""

import re
import unittest

from blocks import ROOT

DOCUMENT = ROOT / "docs" / "tuning.md"
UNITS = {"KiB": 1 << 10, "MiB": 1 << 20, "GiB": 1 << 30, "ms": 1, "s": 1000, "min": 60_000}
TIMES = {"milliseconds": 1, "ms": 1, "seconds": 1000, "s": 1000, "minutes": 60_000, "min": 60_000}
NONE = ("-1", "noTimeout", "std::numeric_limits<double>::max()")
DECLARATION = re.compile(
    r"^ *(?:inline |static )*(?:constexpr |const )*"
    r"(?P<type>std::optional<std::chrono::\w+>|std::chrono::\w+|Clock::Duration|std::size_t|std::u?int(?:16|32|64)_t|"
    r"unsigned|int|long|double|auto) "
    r"(?P<name>\w+)(?: =\s*(?P<value>[^;]+)|\{(?P<inner>[^}]*)\});", re.MULTILINE)
# Numbers that limit nothing: codes of errors.
NO_LIMIT = re.compile(r"Error[A-Z]\w*$")


def shown_value(text):
    """Milliseconds for a time, else the number."""
    if text == "none":
        return None
    number, _, unit = text.partition(" ")
    return int(number) * UNITS.get(unit, 1)


def source_value(kind, text):
    text = " ".join(text.split()).replace("'", "")
    if text in NONE:
        return None
    text = re.sub(r"std::(?:size_t|uint64_t)\{(\d+)\}", r"\1", text)
    if shift := re.fullmatch(r"(\d+)L? << (\d+)", text):
        return int(shift[1]) << int(shift[2])
    if time := re.fullmatch(r"std::chrono::(\w+)\((\d+)\)", text):
        return int(time[2]) * TIMES[time[1]]
    if time := re.fullmatch(r"(\d+)(ms|s|min)", text):
        return int(time[1]) * TIMES[time[2]]
    number = re.fullmatch(r"(\d+)(?:\.0)?U?", text)
    if number is None:
        return text
    named = re.search(r"std::chrono::(\w+)", kind)
    # Seconds as a fraction carry their unit in what is said of them.
    factor = TIMES[named[1]] if named else 1000 if kind == "double" else 1
    return int(number[1]) * factor


def declarations(path):
    """The numbers and times that a file declares, by name; of a repeated name all."""
    found = {}
    for match in DECLARATION.finditer((ROOT / path).read_text()):
        text = match["value"] if match["value"] is not None else match["inner"]
        found.setdefault(match["name"], set()).add(source_value(match["type"], text))
    return found


def sections():
    """Of each section its file and rows."""
    for section in re.split(r"^## ", DOCUMENT.read_text(), flags=re.MULTILINE)[1:]:
        rows = re.findall(r"^\| `(\w+)` \| ([^|]+) \| [^|]+ \|$", section, flags=re.MULTILINE)
        yield re.search(r"`(.+)`", section.splitlines()[0])[1], rows


class Tuning(unittest.TestCase):
    def test_defaults_are_those_of_the_sources(self):
        checked = 0
        for path, rows in sections():
            self.assertTrue(rows, path)
            present = declarations(path)
            for name, shown in rows:
                self.assertIn(name, present, path)
                self.assertIn(shown_value(shown), present[name], f"{name} of {path}")
                checked += 1
        self.assertGreater(checked, 90)

    def test_no_number_of_the_headers_is_left_out(self):
        for path, rows in sections():
            listed = {name for name, _ in rows}
            for name, values in declarations(path).items():
                counts = any(isinstance(value, int) and value > 0 for value in values)
                if path.endswith(".h") and counts and not NO_LIMIT.search(name):
                    self.assertIn(name, listed, path)

    def test_the_reading_of_sources_tells_units_apart(self):
        self.assertEqual(source_value("std::size_t", "std::size_t{8} << 10"), 8192)
        self.assertEqual(source_value("std::chrono::milliseconds", "std::chrono::minutes(5)"), shown_value("5 min"))
        self.assertEqual(source_value("std::chrono::seconds", "3"), shown_value("3 s"))
        self.assertEqual(source_value("auto", "2000ms"), shown_value("2000 ms"))
        self.assertNotEqual(source_value("std::chrono::seconds", "3"), shown_value("3 ms"))


if __name__ == "__main__":
    unittest.main()
