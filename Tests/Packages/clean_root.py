"""Clean systems of this machine's own Debian release, to install the packages on.

They are made by mmdebstrap from where this machine's apt takes Debian, and kept. What is used is a copy. Where that
stands, scripts/test-packages decides: in memory, and what is mounted there is gone with the process that asked for it.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

KEPT = pathlib.Path(os.environ["FERROX_CLEAN_ROOTS"])
# A mirror forgets what was replaced; what was made from it is of use for about as long.
FRESH = 7 * 24 * 3600
PATIENCE = 900
TOOLS = ("g++", "cmake", "make", "pkg-config")
# How this machine reaches its mirror, and nothing else of what its apt is told.
REACHING = re.compile(r'^(Acquire::(?:https?::|Retries|ForceIPv|Check-)[\w:.-]* ".*");$', re.MULTILINE)
CERTIFICATES = "etc/ssl/certs/ca-certificates.crt"


def must(*command, **options):
    """All output of a command that has to succeed."""
    done = subprocess.run([str(word) for word in command], text=True, check=False, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout[-8000:]}")
    return done.stdout


def release():
    return re.search(r"^VERSION_CODENAME=(\w+)$", pathlib.Path("/etc/os-release").read_text(), re.MULTILINE)[1]


def known_sources():
    """Lines of a sources.list: the parts of this release that this machine's apt takes from Debian."""
    told = must("apt-get", "indextargets", "--format", "$(ORIGIN) $(CODENAME) $(REPO_URI) $(COMPONENT)",
                "Created-By: Packages")
    found = set()
    for line in told.splitlines():
        origin, codename, *where = line.split()
        if origin == "Debian" and codename.split("-")[0] == release():
            found.add(f"deb {where[0]} {codename} {where[1]}")
    return sorted(found)


def sources():
    """The same, also on a machine whose apt has never looked what there is."""
    found = known_sources()
    if not found:
        must("apt-get", "-q", "update")
        found = known_sources()
    if not found:
        raise AssertionError(f"this machine's apt takes nothing of {release()} from Debian")
    return "".join(f"{line}\n" for line in found)


def kept(name, make):
    """The archive of that name; made when it is not there, or no longer fresh."""
    archive = KEPT / f"{release()}-{name}.tar"
    if not archive.exists() or archive.stat().st_mtime < time.time() - FRESH:
        unfinished = archive.with_suffix(".unfinished.tar")
        make(unfinished)
        unfinished.rename(archive)
    return archive


def base():
    """What is on every Debian system, and apt."""
    def make(archive):
        options = [f"--aptopt={option}" for option in REACHING.findall(must("apt-config", "dump"))]
        listed = KEPT / "sources.list"
        listed.write_text(sources())
        # The lists of what there is are kept too: otherwise each copy would fetch them again.
        must("mmdebstrap", "--variant=minbase", "--skip=cleanup/apt/lists", *options, release(), archive, listed)
    return kept("base", make)


def with_tools():
    """The same with what any application is built with, and none of the libraries that this one is built with."""
    def make(archive):
        root = Root(base())
        root.apt("install", *TOOLS)
        root.run("apt-get", "clean")
        root.leave_proc()
        must("tar", "-cf", archive, "-C", root.place, ".")
        root.forget()
    return kept("tools", make)


class Root:
    """A system of one's own, which does not run but in which commands do."""

    def __init__(self, archive):
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="root-"))
        must("tar", "-xf", archive, "-C", self.place)
        self.place.chmod(0o755)
        must("mount", "-t", "proc", "proc", self.place / "proc")
        for name in ("etc/resolv.conf", CERTIFICATES):
            if pathlib.Path("/", name).exists():
                (self.place / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(pathlib.Path("/", name), self.place / name)

    def forget(self):
        self.leave_proc()
        shutil.rmtree(self.place)

    def leave_proc(self):
        if os.path.ismount(self.place / "proc"):
            must("umount", self.place / "proc")

    def command(self, *words):
        """The command line that runs these words there, with nothing of this machine's environment."""
        return ["chroot", self.place, "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "TERM=dumb",
                "LC_ALL=C.UTF-8", "DEBIAN_FRONTEND=noninteractive", *words]

    def run(self, *words):
        return must(*self.command(*words))

    def shell(self, text):
        return self.run("bash", "-euc", text)

    def apt(self, action, *names):
        return self.run("apt-get", "-q", "-y", "--no-install-recommends", action, *names)

    def install(self, *packages):
        """Installs packages from their files; what they depend on comes from where the system gets its own."""
        for package in packages:
            shutil.copy(package, self.place / "tmp")
        self.apt("install", *(f"/tmp/{package.name}" for package in packages))

    def write(self, name, text):
        path = self.place / name.lstrip("/")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def packages(self):
        """The names of all that is installed, or left some configuration behind."""
        return set(self.run("dpkg-query", "-W", "-f", "${Package}\n").split())

    def files(self):
        found = set()
        for folder, folders, names in os.walk(self.place):
            here = pathlib.Path(folder).relative_to(self.place)
            if str(here) == ".":
                folders[:] = [name for name in folders if name not in ("proc", "tmp")]
            found.update(str(here / name) for name in (*folders, *names))
        return found
