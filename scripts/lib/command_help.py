"""What the command says of itself, read from its --help."""

import dataclasses
import re
import subprocess

# Where descriptions begin; what is longer has its description on the next line.
COLUMN = 34


@dataclasses.dataclass(frozen=True)
class Argument:
    """An option or a positional argument."""

    names: tuple  # of an option all, the long one last
    value: str  # what stands for it, or "" for a flag
    repeated: bool
    required: bool
    description: str

    @property
    def name(self):
        return self.names[-1]

    @property
    def words(self):
        """The values that it takes, where it takes no others."""
        return self.value.split("|") if re.fullmatch(r"[a-z]+(\|[a-z]+)+", self.value) else []


@dataclasses.dataclass(frozen=True)
class Command:
    name: str
    description: str
    positionals: list
    options: list
    subcommands: list  # their names
    notes: list  # lines between the options and the example
    examples: list


def _entries(lines):
    """(left, description) of each line of a section."""
    at = 0
    while at < len(lines):
        line = lines[at]
        if at + 1 < len(lines) and lines[at + 1].startswith(" " * COLUMN):
            yield line.strip(), lines[at + 1].strip()
            at += 1
        else:
            yield line[:COLUMN].strip(), line[COLUMN:].strip()
        at += 1


def _argument(left, description):
    words = left.split()
    required = "REQUIRED" in words
    repeated = "..." in words
    value = " ".join(word for word in words[1:] if word not in ("REQUIRED", "..."))
    return Argument(tuple(words[0].split(",")), value, repeated, required, description)


def parse(name, text):
    description, rest = text.split("\nUsage:", 1)
    lines = rest.splitlines()[1:]
    sections = {"Positionals:": [], "Options:": [], "Subcommands:": []}
    at = 0
    while at < len(lines):
        if lines[at] in sections:
            section = sections[lines[at]]
            at += 1
            while at < len(lines) and lines[at].startswith("  "):
                section.append(lines[at])
                at += 1
        elif lines[at].strip():
            break
        else:
            at += 1
    notes, _, examples = "\n".join(lines[at:]).partition("Example:\n")
    return Command(
        name,
        description.strip(),
        [_argument(*entry) for entry in _entries(sections["Positionals:"])],
        [_argument(*entry) for entry in _entries(sections["Options:"])],
        [left for left, _ in _entries(sections["Subcommands:"])],
        notes.rstrip().splitlines(),
        [line.strip() for line in examples.splitlines() if line.strip()],
    )


def ask(ferrox, *arguments):
    return subprocess.run([ferrox, *arguments], check=True, capture_output=True, text=True, timeout=60).stdout


def read(ferrox):
    """The command itself and its subcommands."""
    whole = parse("ferrox", ask(ferrox, "--help"))
    return whole, [parse(name, ask(ferrox, name, "--help")) for name in whole.subcommands]
