"""The packages on clean systems: installed with what they depend on, used, built upon, and gone without a trace."""

import os
import pathlib
import re
import subprocess
import unittest

from blocks import ROOT, all_blocks, documented
from clean_root import Root, base, must, with_tools
from netns import Network
from sandbox import SUITE_1, Sandbox, Terminal, meet

FOLDER = pathlib.Path(os.environ["FERROX_PACKAGES"])
VERSION = re.search(r"project\(ferrox VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
RUNTIME, DEVELOPMENT, COMMAND = "libferrox1", "libferrox-dev", "ferrox"
ALL = (RUNTIME, DEVELOPMENT, COMMAND)
PROGRAM = "Examples/meet/main.cpp"
NODE = SUITE_1 + " --observe Hello"


def package(name):
    (found,) = FOLDER.glob(f"{name}_*.deb")
    return found


def field(name, which):
    return must("dpkg-deb", "--field", package(name), which).strip()


def names(relations):
    """The packages of a field such as Depends."""
    return [re.match(r"[\w.+-]+", relation.strip())[0] for relation in relations.split(",")]


class Machine(Sandbox):
    """A system on a host of a network of its own; what a sandbox runs, it runs there."""

    def __init__(self, host, root):
        self.host, self.root = host, root

    def popen(self, text, stdin=subprocess.DEVNULL):
        return self.host.popen(self.root.command("bash", "-euo", "pipefail", "-c", text), stdin=stdin,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


class Packages(unittest.TestCase):
    def test_lintian_finds_neither_errors_nor_warnings(self):
        done = subprocess.run(["lintian", "--fail-on", "error,warning", *map(package, ALL)], text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300)
        self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)

    def test_each_is_of_the_present_version_and_says_so_in_its_changes(self):
        self.assertEqual(sorted(path.name.split("_")[0] for path in FOLDER.glob("*.deb")), sorted(ALL))
        for name in ALL:
            version = field(name, "Version")
            self.assertRegex(version, rf"^{re.escape(VERSION)}-\d+$")
            changes = must("sh", "-c", 'dpkg-deb --fsys-tarfile "$0" | tar -xO "./usr/share/doc/$1/changelog.Debian.gz"'
                           " | gzip -d | dpkg-parsechangelog -l - --all", package(name), name)
            self.assertIn(f"\nVersion: {version}\n", changes)
            self.assertIn("* Added:", changes)


class CommandAlone(unittest.TestCase):
    """Who only wants the command needs the library, and nothing that is made to build with."""

    @classmethod
    def setUpClass(cls):
        cls.root = Root(base())
        cls.addClassCleanup(cls.root.forget)
        before = cls.root.packages()
        cls.root.install(package(RUNTIME), package(COMMAND))
        cls.brought = cls.root.packages() - before
        cls.root.apt("install", "man-db", "bash-completion")

    def test_dependencies_come_along_and_nothing_to_build_with(self):
        self.root.run("apt-get", "check")
        self.assertLessEqual({RUNTIME, COMMAND, "libavahi-core7", "libspdlog1.10"}, self.brought)
        self.assertEqual([name for name in self.brought if name.endswith("-dev")], [])

    def test_the_command_uses_the_shared_library_where_the_loader_finds_it(self):
        self.assertEqual(self.root.run("ferrox", "--version").split()[1], VERSION)
        loaded = self.root.run("ldd", "/usr/bin/ferrox")
        self.assertRegex(loaded, r"libferrox\.so\.1 => \S*/lib/\w+-linux-gnu/libferrox\.so\.1 ")
        self.assertNotIn("not found", loaded)

    def test_the_man_page_is_found(self):
        self.assertEqual(self.root.run("man", "-w", "ferrox").strip(), "/usr/share/man/man1/ferrox.1.gz")
        self.assertRegex(self.root.run("man", "-P", "cat", "ferrox"), r"ferrox\s+[-‐]\s+applications on one network")

    def test_bash_loads_the_completions(self):
        offered = self.root.shell(
            "set +eu; source /usr/share/bash-completion/bash_completion; _completion_loader ferrox\n"
            "function=$(complete -p ferrox | sed -E 's/.*-F ([^ ]+).*/\\1/')\n"
            "COMP_WORDS=(ferrox pee) COMP_CWORD=1 COMP_LINE='ferrox pee' COMP_POINT=10\n"
            '"$function"; printf "%s\\n" "${COMPREPLY[@]}"')
        self.assertEqual(offered.split(), ["peers"])

    def is_looked_for(self, file, *asked):
        """Whether this machine's own program of that kind looks in the folder of a file that was installed."""
        environment = {"PATH": "/usr/bin:/bin", "HOME": "/nonexistent", "XDG_RUNTIME_DIR": "/nonexistent"}
        self.assertIn(os.path.dirname(file), must(*asked, env=environment).split())
        self.belongs_to_the_command(file)

    def belongs_to_the_command(self, file):
        self.assertEqual(self.root.run("dpkg", "--search", file).split()[0], f"{COMMAND}:")

    def test_zsh_and_fish_look_where_their_completions_are(self):
        self.is_looked_for("/usr/share/zsh/vendor-completions/_ferrox", "zsh", "-fc", "print -l $fpath")
        self.is_looked_for("/usr/share/fish/vendor_completions.d/ferrox.fish", "fish", "-c", "echo $fish_complete_path")

    def test_the_user_s_service_manager_finds_the_unit_and_that_the_command(self):
        unit = "/usr/lib/systemd/user/ferrox.service"
        self.is_looked_for(unit, "systemd-analyze", "--user", "unit-paths")
        self.belongs_to_the_command(re.search(r"^ExecStart=(\S+) run ", self.root.run("cat", unit), re.MULTILINE)[1])

    def test_nodes_meet_and_one_lists_and_copies_what_the_other_shares(self):
        self.root.write("/media/reel 1/clip.mov", "0123456789")
        with Network(2) as network:
            first, second = (Machine(host, self.root) for host in network.hosts)
            node = Terminal(first, NODE + " --share reel1='/media/reel 1'")
            try:
                node.wait_for("visible to others")
                second.until_it_succeeds("ferrox post Hello")
                node.wait_for("Hello from")
                second.until_it_succeeds("ferrox list --addresses | grep -F reel1")
                second.until_it_succeeds(
                    f"rm -rf /tmp/reel1; ferrox copy http://{first.host.address}:16654/projects/reel1 /tmp/reel1")
            finally:
                node.close()
            # Queries are answered without the schema's file, which libferrox1 leaves out.
            self.assertNotIn("WARN", "".join(node.seen))
        self.assertEqual(self.root.run("find", "/tmp/reel1", "-name", "clip.mov", "-exec", "cat", "{}", ";"),
                         "0123456789")


class Applications(unittest.TestCase):
    """The README's program is built from nothing but the packages, in each way that it tells, and meets a node."""

    def setUp(self):
        self.root = Root(with_tools())
        self.addCleanup(self.root.forget)
        self.root.install(*map(package, ALL))
        (self.program,) = [block.text for block in all_blocks("cpp") if block.value == PROGRAM]

    def made(self, folder, files, *commands):
        for name, text in files.items():
            self.root.write(f"{folder}/{name}", text)
        for command in commands:
            self.root.shell(f"cd {folder} && {command}")

    def by_cmake(self, folder, text):
        self.made(folder, {"CMakeLists.txt": text, "main.cpp": self.program}, "cmake -S . -B build",
                  "cmake --build build")
        return f"{folder}/build/app"

    def by_make(self, folder, marker):
        self.made(folder, {"Makefile": documented("make", marker), "app.cpp": self.program}, "make")
        return f"{folder}/app"

    def meets_a_node(self, app):
        with Network(2) as network:
            first, second = (Machine(host, self.root) for host in network.hosts)
            meet(Terminal(first, NODE), Terminal(second, app))

    def test_with_the_shared_library_no_further_package_is_needed(self):
        self.assertNotIn("libboost-json1.81-dev", self.root.packages())
        apps = [self.by_cmake("/root/cmake", documented("cmake", "installed")), self.by_make("/root/make", "installed")]
        for app in apps:
            self.assertIn("libferrox.so.1", self.root.run("ldd", app))
            self.meets_a_node(app)
        self.assertEqual(self.root.run("cat", "/usr/share/doc/libferrox-dev/examples/meet/main.cpp"), self.program)

    def test_with_the_static_library_what_is_recommended_is_enough(self):
        self.root.apt("install", *names(field(DEVELOPMENT, "Recommends")))
        shared = "find_package(Ferrox 0.1 REQUIRED)"
        text = documented("cmake", "installed")
        self.assertIn(shared, text)
        apps = [self.by_cmake("/root/cmake", text.replace(shared, shared.replace(")", " COMPONENTS static)"))),
                self.by_make("/root/make", "installed static")]
        for app in apps:
            self.assertNotIn("libferrox", self.root.run("ldd", app))
            self.meets_a_node(app)


class Removal(unittest.TestCase):
    # What dpkg, apt and the loader note for themselves.
    OWN_BOOKS = re.compile(r"var/(log|cache|lib/apt)/|var/lib/dpkg/[\w-]+-old$|etc/ld\.so\.cache$")

    def test_nothing_of_them_is_left_when_they_are_removed(self):
        root = Root(base())
        self.addCleanup(root.forget)
        files, packages = root.files(), root.packages()
        root.install(*map(package, ALL))
        self.assertIn("libferrox.so.1", root.run("ldconfig", "-p"))
        self.assertGreater(len([name for name in root.files() - files if "ferrox" in name]), 100)
        root.apt("purge", *ALL)
        self.assertEqual([name for name in root.files() if "ferrox" in name.lower()], [])
        self.assertNotIn("libferrox", root.run("ldconfig", "-p"))
        root.apt("autoremove", "--purge")
        self.assertEqual(root.packages(), packages)
        left = root.files() ^ files
        self.assertEqual([name for name in left if not self.OWN_BOOKS.match(name)], [])


if __name__ == "__main__":
    unittest.main()
