"""The installed prefix, and how an outside consumer is built from it."""

import os
import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
PREFIX = pathlib.Path(os.environ["FERROX_PREFIX"])
LIBRARIES = PREFIX / os.environ["FERROX_LIBDIR"]
HEADERS = PREFIX / "include/ferrox"
SHARED, STATIC = LIBRARIES / "libferrox.so", LIBRARIES / "libferrox.a"
VERSION = os.environ["FERROX_VERSION"]
WORK = pathlib.Path(os.environ["FERROX_WORK"])
PATIENCE = 2000


def empty_folder(name):
    folder = WORK / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def environment():
    """Of somebody who has nothing of this project but the prefix."""
    kept = {key: value for key, value in os.environ.items() if not key.startswith("FERROX_")}
    return {**kept, "PKG_CONFIG_PATH": str(LIBRARIES / "pkgconfig")}


def run(*command, folder=None, patience=PATIENCE):
    """Exit status and all output."""
    done = subprocess.run([str(word) for word in command], cwd=folder, env=environment(), text=True, check=False,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=patience)
    return done.returncode, done.stdout


def must(*command, folder=None):
    status, output = run(*command, folder=folder)
    if status != 0:
        raise AssertionError(f"{' '.join(map(str, command))}: exit status {status}\n{output[-20000:]}")
    return output


def configure(folder, *options):
    return run("cmake", "-S", folder, "-B", folder / "build", *options)


def public_headers():
    return must(ROOT / "scripts/check-layers", "--public-headers").split()


def declared_words():
    """Every word of the installed headers that stands outside of comments."""
    words = set()
    for header in HEADERS.rglob("*.h"):
        words.update(re.findall(r"\w+", re.sub(r"//.*", "", header.read_text(encoding="utf-8"))))
    return words
