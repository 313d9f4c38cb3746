#!/usr/bin/python3
"""Writes what Debian wants beside a program: copyright, changelog.Debian.gz, and the man page compressed.

  debian_documents.py VERSION MAINTAINER FOLDER LICENSE CHANGELOG PAGE

VERSION is the package's, with its revision. The first change of CHANGELOG has to be of that version; where it has no
date yet it is dated by SOURCE_DATE_EPOCH, else by the present.
"""

import datetime
import gzip
import os
import pathlib
import re
import sys
import textwrap
import time

WIDTH = 78
RELEASE = re.compile(r"^## \[(\d[^\]]*)\] - (\S+)$", re.MULTILINE)


def copyright_of(text):
    """LICENSE as debian/copyright: its title, who holds the rights, and the words that grant them."""
    title, _, rest = text.partition("\n\n")
    holder, _, granted = rest.partition("\n\n")
    if title != "MIT License" or not holder.startswith("Copyright (c) "):
        sys.exit("debian_documents: LICENSE is no longer what is written here as Expat")
    lines = [f" {line}" if line else " ." for line in granted.strip().splitlines()]
    return "\n".join(["Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/",
                      "Upstream-Name: Ferrox", "", "Files: *",
                      "Copyright: " + holder.removeprefix("Copyright (c) "), "License: Expat", *lines, ""])


def items(text):
    """(heading, text) of each item of a version, unwrapped."""
    for section in re.split(r"^### ", text, flags=re.MULTILINE)[1:]:
        heading, _, body = section.partition("\n")
        for item in re.split(r"^- ", body, flags=re.MULTILINE)[1:]:
            yield heading.strip(), " ".join(item.split())


def changes_of(text, version, maintainer):
    """CHANGELOG.md as debian/changelog."""
    found = list(RELEASE.finditer(text))
    upstream, _, revision = version.rpartition("-")
    if not found or found[0][1] != upstream:
        sys.exit(f"debian_documents: the changelog does not begin with {upstream}")
    entries = []
    for release, following in zip(found, [*found[1:], None]):
        released = release[2] != "unreleased"
        stamp = int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))
        date = datetime.datetime.fromtimestamp(stamp, datetime.timezone.utc)
        if released:
            date = datetime.datetime.fromisoformat(release[2]).replace(tzinfo=datetime.timezone.utc)
        # Earlier versions were packaged too, how often is not known here.
        name = f"{release[1]}-{revision if release is found[0] else 1}"
        lines = [f"ferrox ({name}) {'unstable' if released else 'UNRELEASED'}; urgency=medium", ""]
        body = text[release.end():following.start() if following else None]
        for heading, item in items(body):
            lines += textwrap.wrap(f"{heading}: {item}", WIDTH, initial_indent="  * ", subsequent_indent="    ",
                                   break_on_hyphens=False)
        lines += ["", f" -- {maintainer}  {date:%a, %d %b %Y %H:%M:%S} +0000", ""]
        entries.append("\n".join(lines))
    return "\n".join(entries)


def main():
    version, maintainer, folder, license_file, changelog, page = sys.argv[1:]
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "copyright").write_text(copyright_of(pathlib.Path(license_file).read_text(encoding="utf-8")),
                                      encoding="utf-8")
    changes = changes_of(pathlib.Path(changelog).read_text(encoding="utf-8"), version, maintainer)
    for name, content in (("changelog.Debian.gz", changes.encode()), ("ferrox.1.gz", pathlib.Path(page).read_bytes())):
        # Without a time, so that the same text is the same file.
        (folder / name).write_bytes(gzip.compress(content, 9, mtime=0))


if __name__ == "__main__":
    main()
