"""The documents, their fenced blocks, and what stands in the comment above a block.

A comment directly above a block, `<!-- KEY -->` or `<!-- KEY: VALUE -->`, says how the block is to be checked.
"""

import dataclasses
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [ROOT / name for name in ("README.md", "ARCHITECTURE.md", "CONTRIBUTING.md")]
DOCUMENTS += sorted((ROOT / "docs").glob("*.md"))
MARKER = re.compile(r"<!-- ([\w ]+?)(?:: ((?:(?!-->).)*))? -->\n\Z", re.DOTALL)
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


@dataclasses.dataclass(frozen=True)
class Block:
    document: pathlib.Path
    line: int
    language: str
    key: str
    value: str
    text: str

    def __str__(self):
        return f"{self.document.name}:{self.line}"


def blocks_of(document):
    text = document.read_text()
    for found in FENCE.finditer(text):
        marker = MARKER.search(text[: found.start()])
        key, value = (marker[1], marker[2] or "") if marker else ("", "")
        line = text.count("\n", 0, found.start()) + 1
        yield Block(document, line, found[1], key, " ".join(value.split()), found[2])


def all_blocks(language=None):
    blocks = [block for document in DOCUMENTS for block in blocks_of(document)]
    return [block for block in blocks if language is None or block.language == language]


def documented(language, marker):
    """The text of the one block that is marked so: how something of this kind is built."""
    found = [block for block in all_blocks(language) if block.key == marker]
    if len(found) != 1:
        raise AssertionError(f"{len(found)} blocks of {language} are marked as \"{marker}\"")
    return found[0].text


def table_rows(document, header):
    """The rows of every table whose first line is `header`, as lists of cells without back quotes."""
    rows, inside = [], False
    for line in document.read_text().splitlines():
        if not line.startswith("|"):
            inside = False
        elif line == header:
            inside = True
        elif inside and not re.fullmatch(r"[|\- ]+", line):
            rows.append([cell.strip().strip("`") for cell in re.split(r"(?<!\\)\|", line)[1:-1]])
    return rows
