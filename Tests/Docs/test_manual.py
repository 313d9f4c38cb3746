"""The man page and the completions tell of every subcommand and option, in step with the command's help."""

import functools
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from blocks import ROOT
from sandbox import COMMAND

sys.path.insert(0, str(ROOT / "scripts" / "lib"))
import command_help  # noqa: E402

PAGE = ROOT / "docs" / "ferrox.1"
COMPLETIONS = ROOT / "Resources" / "completions"
PATIENCE = 60
# Asks the function of bash for what it offers for each line, with the cursor at its end. Words are cut as bash cuts
# them for completion.
BASH_CALLER = r"""
source "$1"
complete -p ferrox >/dev/null || exit
function=$(complete -p ferrox | sed -E 's/.*-F ([^ ]+).*/\1/')
for COMP_LINE in "${@:2}"; do
  COMP_POINT=${#COMP_LINE}
  mapfile -t COMP_WORDS < <(printf '%s' "$COMP_LINE" | sed -E 's/([=:])/ \1 /g; s/ +/\n/g')
  [[ $COMP_LINE != *[[:space:]] ]] || COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  "$function"
  printf '%s\n' "${COMPREPLY[@]}" ---
done
"""
# The same of zsh, on a terminal of its own: what the completion adds is told of.
ZSH_CALLER = r"""
zmodload zsh/zpty
zpty asked env TERM=dumb zsh -f -i
zpty -w asked "PROMPT= RPROMPT="
zpty -w asked "fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w asked 'compadd() { local -a offered; builtin compadd -A offered "$@"
print -rl -- "OFFERED:"$^offered:; builtin compadd "$@" }'
zpty -w asked 'zle -C ask complete-word _generic; tell() { zle ask; print DONE; }; zle -N tell; bindkey "^I" tell'
zpty -w asked 'print REA''DY'
zpty -r asked line '*READY*'
for typed in "${@:2}"; do
  zpty -n -w asked "$typed"$'\t'
  while zpty -r asked line; do print -r -- "$line"; [[ $line == *DONE* ]] && break; done
  print -r -- ---
  zpty -n -w asked $'\x15'  # the line is deleted
done
zpty -d asked
"""


@functools.cache
def commands():
    return command_help.read(COMMAND)


def every():
    """(subcommand or "", option or "") of all there are."""
    whole, subcommands = commands()
    for command in (whole, *subcommands):
        name = "" if command is whole else command.name
        yield name, ""
        for option in command.options:
            yield from ((name, spelling) for spelling in option.names)


def run(*command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=PATIENCE,
                          check=False, env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "100"}, **options)


class InStep(unittest.TestCase):
    def test_the_help_was_read_whole(self):
        whole, subcommands = commands()
        self.assertGreaterEqual(len(subcommands), 13)
        for command in (whole, *subcommands):
            help_text = command_help.ask(COMMAND, *([] if command is whole else [command.name]), "--help")
            self.assertEqual(set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", help_text, flags=re.MULTILINE)),
                             {option.name for option in command.options})
            for option in command.options:
                self.assertTrue(option.description, f"{command.name} {option.name}")

    def test_what_scripts_manual_makes_is_what_is_there(self):
        done = subprocess.run([ROOT / "scripts" / "manual", "--check"], capture_output=True, text=True,
                              timeout=PATIENCE, check=False, env={**os.environ, "FERROX_COMMAND": str(COMMAND)})
        self.assertEqual(done.returncode, 0, done.stderr)


class Page(unittest.TestCase):
    def rendered(self):
        if shutil.which("groff") is None:
            self.skipTest("groff is not installed: the page is not rendered here")
        done = run("groff", "-ww", "-man", "-Tascii", "-P-cbou", "-rLL=200n", PAGE)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_man_and_groff_have_nothing_to_warn_of(self):
        self.assertGreater(len(self.rendered()), 5000)
        if shutil.which("man") is None:
            self.skipTest("man is not installed: groff alone read the page")
        done = run("man", "--warnings", "-l", PAGE)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_every_subcommand_has_a_section_with_each_of_its_options(self):
        text = self.rendered()
        sections = dict(re.findall(r"^   (\S+)\n(.*?)(?=^ {0,3}\S)", text, flags=re.MULTILINE | re.DOTALL))
        common = text[text.index("\nOPTIONS OF EVERY NODE"):]
        for name, option in every():
            if name == "":
                self.assertIn(option, text)
                continue
            self.assertIn(name, sections)
            place = common if option in ("-h", "--help") else sections[name]
            self.assertRegex(place, rf"(?<![\w-]){re.escape(option)}(?![\w-])", f"{name} {option}")

    def test_every_example_of_the_help_is_there(self):
        text = self.rendered()
        for command in commands()[1]:
            self.assertTrue(command.examples, command.name)
            for example in command.examples:
                self.assertIn(example, text)


class Bash(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.place = pathlib.Path(folder.name)

    def offered(self, *lines):
        """For each line, by the completion function, in a shell that runs it."""
        done = run("bash", "--norc", "-c", BASH_CALLER, "bash", COMPLETIONS / "ferrox.bash", *lines, cwd=self.place)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = done.stdout.split("---\n")[:-1]
        self.assertEqual(len(answers), len(lines))
        return [set(answer.split("\n")) - {""} for answer in answers]

    def offers(self, line, *words):
        self.assertEqual(self.offered(line)[0], set(words), line)

    def test_every_subcommand_and_option_is_offered(self):
        whole, subcommands = commands()
        self.offers("ferrox ", *whole.subcommands, "-h", "--help", "--version")
        for command in subcommands:
            names = [name for option in command.options for name in option.names]
            self.offers(f"ferrox {command.name} -", *names)
            lines = [f"ferrox {command.name} {name[:-1]}" for name in names]
            for name, offered in zip(names, self.offered(*lines)):
                self.assertIn(name, offered, command.name)

    def test_only_what_begins_so_is_offered(self):
        self.offers("ferrox f", "fetch", "follow")
        self.offers("ferrox copy --re", "--resume", "--replace")
        self.offers("ferrox nothing --")

    def test_values_are_offered_where_they_are_known(self):
        self.offers("ferrox run --discovery ", "auto", "embedded", "avahi", "off")
        self.offers("ferrox peers --log-level  w", "warn")
        self.offers("ferrox copy --on-low-storage a", "abort")
        self.offers("ferrox peers --discovery=a", "auto", "avahi")
        self.offers("ferrox peers --wait ")
        self.assertIn("lo", self.offered("ferrox peers --interface ")[0])

    def test_folders_and_files_are_offered(self):
        for name in ("rushes", "rush two"):
            (self.place / name).mkdir()
        (self.place / "rush.mov").touch()
        self.offers("ferrox run --share film:Rushes=ru", "rushes", "rush two")
        self.offers("ferrox run --stream cam=", "rushes", "rush two")
        self.offers("ferrox run --stream=cam=ru", "rushes", "rush two")
        self.offers("ferrox run --stream cam")
        self.offers("ferrox copy peer/film ru", "rushes", "rush two")
        self.offers("ferrox fetch --timeout 3 http://h/x rush.", "rush.mov")


class Zsh(unittest.TestCase):
    def setUp(self):
        if shutil.which("zsh") is None:
            self.skipTest("zsh is not installed: its completions are not read here")

    def test_it_can_be_read(self):
        done = run("zsh", "-n", COMPLETIONS / "_ferrox")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def offered(self, *lines):
        done = run("zsh", "-f", "-c", ZSH_CALLER, "zsh", COMPLETIONS, *lines)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = done.stdout.split("\n---\n")[:-1]
        self.assertEqual(len(answers), len(lines))
        return [set(re.findall(r"OFFERED:(\S+?):", answer)) for answer in answers]

    def test_every_subcommand_and_option_is_offered(self):
        whole, subcommands = commands()
        names, options, *each = self.offered("ferrox ", "ferrox -", *(f"ferrox {one.name} --" for one in subcommands))
        self.assertEqual(names, set(whole.subcommands))
        self.assertEqual(options, {name for option in whole.options for name in option.names})
        for command, offered in zip(subcommands, each):
            self.assertEqual(offered, {option.name for option in command.options}, command.name)

    def test_values_are_offered_where_they_are_known(self):
        self.assertEqual(self.offered("ferrox run --discovery ", "ferrox peers --port 1 --log-level w",
                                      "ferrox peers --wait "), [{"auto", "embedded", "avahi", "off"}, {"warn"}, set()])


class Mentioned(unittest.TestCase):
    def test_zsh_and_fish_know_every_option_of_every_subcommand(self):
        subcommands = commands()[1]
        zsh = (COMPLETIONS / "_ferrox").read_text(encoding="utf-8")
        fish = (COMPLETIONS / "ferrox.fish").read_text(encoding="utf-8")
        for command in subcommands:
            self.assertRegex(zsh, rf"(?m)^    '{command.name}:")
            self.assertRegex(fish, rf"(?m)^complete -c ferrox -n __ferrox_begins -a {command.name} ")
            part = re.search(rf"(?ms)^        {command.name}\)$(.*?)^          ;;$", zsh)[1]
            for option in command.options:
                self.assertRegex(part, rf"(?m)^ +'(\*|\([^)]*\)'\{{[^}}]*)?{option.name}(=?\[|\}})")
                runs = f"complete -c ferrox -n '__ferrox_runs {command.name}'"
                self.assertRegex(fish, rf"(?m)^{runs} .*-l {option.name[2:]} ")


class Fish(unittest.TestCase):
    def setUp(self):
        if shutil.which("fish") is None:
            self.skipTest("fish is not installed: its completions are not read here")
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.place = pathlib.Path(folder.name)

    def offered(self, *lines):
        """For each line, by a shell of fish that was told nothing else."""
        asking = f"source {COMPLETIONS / 'ferrox.fish'}\n"
        asking += "".join(f"complete -C '{line}'; echo ---\n" for line in lines)
        done = run("fish", "--no-config", "-c", asking, cwd=self.place)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = done.stdout.split("---\n")[:-1]
        self.assertEqual(len(answers), len(lines))
        return [{line.split("\t")[0] for line in answer.splitlines()} for answer in answers]

    def test_every_subcommand_and_option_is_offered(self):
        whole, subcommands = commands()
        self.assertEqual(self.offered("ferrox ")[0], set(whole.subcommands))
        lines = [f"ferrox {command.name} --" for command in subcommands]
        for command, offered in zip(subcommands, self.offered(*lines)):
            self.assertEqual(offered, {option.name for option in command.options}, command.name)

    def test_values_are_offered_where_they_are_known(self):
        for name in ("rushes", "rush two"):
            (self.place / name).mkdir()
        (self.place / "rush.mov").touch()
        words, folders, files, hosts = self.offered("ferrox run --discovery ", "ferrox run --share film:Rushes=ru",
                                                    "ferrox fetch http://h/x rush.", "ferrox demo --interface l")
        self.assertEqual(words, {"auto", "embedded", "avahi", "off"})
        self.assertEqual(folders, {"film:Rushes=rushes/", "film:Rushes=rush two/"})
        self.assertEqual(files, {"rush.mov"})
        self.assertIn("lo", hosts)


if __name__ == "__main__":
    unittest.main()
