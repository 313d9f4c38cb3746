"""What leaves the shared library is what the public headers declare: nothing else, and nothing less."""

import os
import re
import subprocess
import unittest

from installed import HEADERS, SHARED, STATIC, declared_words, must

KINDS = re.compile(r"^(?:typeinfo name for|typeinfo for|vtable for|VTT for|non-virtual thunk to|virtual thunk to) ")


def symbols(file, *options):
    """Names as the linker sees them, each with the one that people read."""
    lines = [line.split() for line in must("nm", "-P", *options, file).splitlines()]
    names = sorted({words[0] for words in lines if len(words) > 1})
    read = subprocess.run(["c++filt"], input="\n".join(names), text=True, check=True, stdout=subprocess.PIPE).stdout
    return dict(zip(names, read.splitlines(), strict=True))


def parts(name):
    """The words of `a::B::c` in `a::B::c(std::string) const`, without template arguments."""
    name = KINDS.sub("", name)
    while re.search(r"<[^<>]*>", name):
        name = re.sub(r"<[^<>]*>", "", name)
    return re.findall(r"\w+", re.sub(r"\[abi:\w+\]", "", name.split("(")[0]))


def strong(file):
    """The names of what is defined once, not of what each translation unit may bring."""
    lines = [line.split() for line in must("nm", "-P", "-g", "--defined-only", file).splitlines()]
    return {words[0] for words in lines if len(words) > 2 and words[1] in "TDBR"}


def declarations():
    """Namespaces and classes with a body in public headers, and their functions outside of classes."""
    namespaces, classes, functions = {"ferrox"}, set(), set()
    for header in HEADERS.rglob("*.h"):
        text = re.sub(r"//.*", "", header.read_text(encoding="utf-8"))
        namespaces.update(re.findall(r"^namespace (?:ferrox::)?(\w+) \{", text, re.MULTILINE))
        classes.update(re.findall(r"^ *(?:class|struct) (?:FRX_EXPORT )?(\w+)\b[^;{]*\{", text, re.MULTILINE))
        functions.update(re.findall(r"^[A-Za-z\[][^#;{}()=]*\b(\w+)\(", text, re.MULTILINE))
    return namespaces, classes, functions


class Symbols(unittest.TestCase):
    def setUp(self):
        self.leaving = symbols(SHARED, "-D", "--defined-only")
        self.assertGreater(len(self.leaving), 500)

    def test_nothing_leaves_that_no_public_header_declares(self):
        declared = declared_words()
        for name in self.leaving.values():
            words = parts(name)
            self.assertEqual(words[0], "ferrox", name)
            self.assertLessEqual(set(words), declared, name)

    def test_all_that_public_headers_declare_leaves(self):
        namespaces, classes, functions = declarations()
        once = strong(STATIC)
        unmarked, checked = [], 0
        for name, read in symbols(STATIC, "-g", "--defined-only").items():
            *around, last = parts(read) or [""]
            if name not in once or around[:1] != ["ferrox"] or not set(around) <= namespaces | classes:
                continue
            if set(around) <= namespaces and last not in functions:
                continue
            if name not in self.leaving:
                unmarked.append(read)
            checked += 1
        self.assertEqual(unmarked, [], "FRX_EXPORT is missing where these are declared")
        self.assertGreater(checked, 500)

    def test_the_command_could_be_linked_with_it(self):
        command = os.environ["FERROX_COMMAND_OBJECTS"]
        own = symbols(command, "--defined-only")
        needed = {name: read for name, read in symbols(command, "--undefined-only").items()
                  if name not in own and parts(read)[:1] == ["ferrox"]}
        self.assertGreater(len(needed), 100)
        self.assertEqual([read for name, read in needed.items() if name not in self.leaving], [])


if __name__ == "__main__":
    unittest.main()
