"""The include graph of the project's C++ files, read from the #include lines alone, and which headers are public."""

import pathlib
import re

FOLDERS = ("Platform", "Classes", "Apps", "Examples", "Tests", "Fuzz", "Benchmarks")
SUFFIXES = {".h", ".cpp"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
THIRD_PARTY = re.compile(
    r"^(boost|curl|avahi-(core|client|common)|unicode|openssl|CLI|spdlog|fmt|gtest|gmock|benchmark)/"
)
PUBLIC_LIST = re.compile(r"^ferrox_public_headers\(([^)]*)\)", re.MULTILINE)


class IncludeGraph:
    """Files by their path relative to the root; `quoted` and `angled` are what each includes itself, `marked` those
    that say what leaves the shared library."""

    def __init__(self, root):
        self.root = pathlib.Path(root).resolve()
        self.quoted = {}
        self.angled = {}
        self.marked = set()
        for folder in FOLDERS:
            for path in sorted((self.root / folder).rglob("*")):
                if path.suffix in SUFFIXES and path.is_file():
                    self._read(path)

    def _read(self, path):
        name = path.relative_to(self.root).as_posix()
        text = path.read_text(encoding="utf-8")
        found = INCLUDE.findall(text)
        if re.search(r"\bFRX_EXPORT\b", text):
            self.marked.add(name)
        self.quoted[name] = [quoted for quoted, _ in found if quoted]
        self.angled[name] = [angled for _, angled in found if angled]

    def headers(self, folder):
        return [name for name in self.quoted if name.startswith(folder + "/") and name.endswith(".h")]

    def third_party(self, name):
        """Headers of other projects that this file itself includes, in either spelling."""
        return [h for h in self.angled[name] + self.quoted[name] if THIRD_PARTY.match(h)]

    def chains(self, name):
        """Every project file reached from this one, with a shortest chain of includes that leads there."""
        reached = {name: [name]}
        waiting = [name]
        for current in waiting:
            for included in self.quoted.get(current, []):
                if included in self.quoted and included not in reached:
                    reached[included] = reached[current] + [included]
                    waiting.append(included)
        return reached

    def third_party_chain(self, name):
        """A chain from the file to a header of another project, or None."""
        for reached, chain in self.chains(name).items():
            for header in self.third_party(reached):
                return chain + [header]
        return None

    def public_headers(self):
        """What an application may include, as the CMakeLists.txt of each folder names it."""
        named = []
        for folder in ("Classes", "Platform"):
            for path in (self.root / folder).rglob("CMakeLists.txt"):
                place = path.parent.relative_to(self.root).as_posix()
                for listed in PUBLIC_LIST.findall(path.read_text(encoding="utf-8")):
                    named += [f"{place}/{header}" for header in listed.split()]
        return sorted(named)

    def plain_headers(self):
        """The headers of the library that show no other project, public or not."""
        return sorted(h for f in ("Classes", "Platform") for h in self.headers(f) if self.third_party_chain(h) is None)

    def cycles(self):
        """Groups of files that include each other, each as a chain that ends where it began."""
        found, state, stack = [], {}, []

        def visit(name):
            state[name] = "open"
            stack.append(name)
            for included in self.quoted[name]:
                if state.get(included) == "open":
                    found.append(stack[stack.index(included):] + [included])
                elif included in self.quoted and included not in state:
                    visit(included)
            stack.pop()
            state[name] = "done"

        for name in self.quoted:
            if name not in state:
                visit(name)
        return found
