"""Completions for bash, zsh and fish, of what the command's help says of subcommands and options."""

MADE = "# Made by scripts/manual of the command's help: change scripts/lib/completions.py.\n"

# What is offered for a value, by what stands for it in the help, or by the option; nothing for all others.
VALUES = {"ID[:NAME]=DIR": "offer", "HOST[:PORT]": "host", "--interface": "interface"}
# The same for positional arguments.
POSITIONALS = {"DEST": "folder", "FILE": "file", "ADDRESS": "host", "HOST": "host"}


def kind_of(argument):
    """What is offered: "words", "offer", "host", ..., "none"; "flag" where there is no value."""
    if not argument.name.startswith("-"):
        return POSITIONALS.get(argument.name, "none")
    if not argument.value:
        return "flag"
    if argument.words:
        return "words"
    return VALUES.get(argument.name) or VALUES.get(argument.value, "none")


def options_by_name(whole, subcommands):
    """Options of the same name take the same kind of value everywhere, so that a shell need not tell them apart."""
    found = {}
    for command in [whole, *subcommands]:
        for option in command.options:
            known = found.setdefault(option.name, option)
            if kind_of(known) != kind_of(option) or known.words != option.words:
                raise ValueError(f"{option.name} of {command.name} is unlike that of others")
    return found


def names_of(command):
    return [name for option in command.options for name in option.names]


# bash

BASH = """# bash completion of the ferrox command
{made}
_ferrox() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} subcommand=${{COMP_WORDS[1]}} options arguments="none"
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "{subcommands} {options}" -- "$current")
    return
  fi
  case $subcommand in
{cases}
    *) return ;;
  esac

  # bash cuts a line at "=" and ":" too; what it is about are whole words.
  local line=${{COMP_LINE:0:COMP_POINT}}
  local word=${{line##*[[:space:]]}}
  local before=${{line%"$word"}}
  before=${{before%"${{before##*[![:space:]]}}"}}
  local option=${{before##*[[:space:]]}}
  if [[ $word == --*=* ]]; then
    option=${{word%%=*}}
    word=${{word#*=}}
  fi
  case $option in
{values}
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  _ferrox_values "$arguments" "$word"
}}

# Kind of the values, and what of one is there.
_ferrox_values() {{
  local kind=$1 word=$2
  case $kind in
    offer)
      [[ $word == *=* ]] || return
      word=${{word#*=}}
      kind=folder
      ;;
    host)
      [[ $word != *:* ]] || return
      ;;
  esac
  case $kind in
    folder) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    file) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    host) mapfile -t COMPREPLY < <(compgen -A hostname -- "$word") ;;
    interface) mapfile -t COMPREPLY < <(compgen -W "$(command ls /sys/class/net 2>/dev/null)" -- "$word") ;;
  esac
  # Names of files are shown and quoted as such; outside of a completion bash refuses that.
  [[ $kind != folder && $kind != file ]] || compopt -o filenames 2>/dev/null
}}

complete -F _ferrox ferrox
"""


def bash_value(name, option):
    kind = kind_of(option)
    if kind == "flag":
        return None
    if kind == "none":
        return f"    {name}) return ;;"
    if kind == "words":
        offer = f'mapfile -t COMPREPLY < <(compgen -W "{" ".join(option.words)}" -- "$word")'
    else:
        offer = f'_ferrox_values {kind} "$word"'
    return f"    {name})\n      {offer}\n      return\n      ;;"


def positional_kind(command):
    """One for all of a subcommand's arguments: which of them it is does not show without reading all before it."""
    kinds = [kind_of(argument) for argument in command.positionals]
    return next((kind for kind in kinds if kind != "none"), "none")


def bash(whole, subcommands):
    cases = []
    for command in subcommands:
        kind = positional_kind(command)
        also = f'\n      arguments="{kind}"' if kind != "none" else ""
        cases.append(f"    {command.name})\n      options=\"{' '.join(names_of(command))}\"{also}\n      ;;")
    values = [bash_value(*item) for item in options_by_name(whole, subcommands).items()]
    return BASH.format(made=MADE, subcommands=" ".join(whole.subcommands), options=" ".join(names_of(whole)),
                       cases="\n".join(cases), values="\n".join(value for value in values if value))


# zsh

ZSH = """#compdef ferrox
# zsh completion of the ferrox command
{made}
_ferrox_offer() {{
  if compset -P '*='; then _files -/; else _message 'ID[:NAME]=DIR'; fi
}}

_ferrox() {{
  local context state state_descr line
  typeset -A opt_args
  local -a subcommands=(
{subcommands}
  )
  _arguments -C \\
{options}
    '1:subcommand:->subcommand' \\
    '*::argument:->arguments'
  case $state in
    subcommand) _describe -t subcommands subcommand subcommands ;;
    arguments)
      case $words[1] in
{cases}
      esac
      ;;
  esac
}}

_ferrox "$@"
"""
ZSH_ACTIONS = {"offer": "_ferrox_offer", "host": "_hosts", "interface": "_net_interfaces", "folder": "_files -/",
               "file": "_files", "none": " "}


def zsh_text(text):
    """Within an apostrophed specification, where brackets and colons mean something."""
    for plain in "\\[]:":
        text = text.replace(plain, "\\" + plain)
    return text.replace("'", "'\\''")


def zsh_action(argument):
    kind = kind_of(argument)
    return f"({' '.join(argument.words)})" if kind == "words" else ZSH_ACTIONS[kind]


def zsh_option(option):
    value = "" if kind_of(option) == "flag" else f":{zsh_text(option.value)}:{zsh_action(option)}"
    text = f"[{zsh_text(option.description)}]{value}"
    if len(option.names) > 1:
        return f"'({' '.join(option.names)})'{{{','.join(option.names)}}}'{text}'"
    # With "=" the value may follow it as well as a blank.
    return f"'{'*' if option.repeated else ''}{option.name}{'=' if value else ''}{text}'"


def zsh_positional(place, argument):
    where = "*" if argument.repeated else place
    return f"'{where}:{zsh_text(argument.name)}:{zsh_action(argument)}'"


def zsh(whole, subcommands):
    cases = []
    for command in subcommands:
        specifications = [zsh_option(option) for option in command.options]
        specifications += [zsh_positional(place, argument) for place, argument in enumerate(command.positionals, 1)]
        joined = " \\\n            ".join(specifications)
        cases.append(f"        {command.name})\n          _arguments \\\n            {joined}\n          ;;")
    return ZSH.format(made=MADE,
                      subcommands="\n".join(f"    '{command.name}:{zsh_text(command.description)}'"
                                            for command in subcommands),
                      options="\n".join(f"    {zsh_option(option)} \\" for option in whole.options),
                      cases="\n".join(cases))


# fish

FISH = """# fish completion of the ferrox command
{made}
function __ferrox_runs --description 'Whether the subcommand is one of these'
    set -l words (commandline -opc)
    test (count $words) -ge 2; and contains -- $words[2] $argv
end

function __ferrox_begins --description 'Whether there is no subcommand yet'
    test (count (commandline -opc)) -eq 1
end

function __ferrox_folders --description 'Folders after ID[:NAME]='
    set -l word (commandline -ct)
    string match -q '*=*' -- $word; or return
    set -l parts (string split -m 1 = -- $word)
    for folder in (__fish_complete_directories $parts[2])
        echo $parts[1]=$folder
    end
end

complete -c ferrox -f
{lines}
"""
FISH_ACTIONS = {"offer": "(__ferrox_folders)", "host": "(__fish_print_hostnames)",
                "interface": "(string replace -r '.*/' '' /sys/class/net/*)",
                "folder": "(__fish_complete_directories)"}


def fish_text(text):
    """Within apostrophes."""
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish_values(argument):
    kind = kind_of(argument)
    if kind == "words":
        return "-a " + fish_text(" ".join(argument.words))
    if kind == "file":
        return "-F"
    return "-a " + fish_text(FISH_ACTIONS[kind]) if kind in FISH_ACTIONS else ""


def fish_option(condition, option):
    names = " ".join(f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}" for name in option.names)
    words = ["complete -c ferrox", "-n", fish_text(condition), names]
    if kind_of(option) != "flag":
        words += ["-x", fish_values(option)]
    return " ".join(filter(None, [*words, "-d", fish_text(option.description)]))


def fish(whole, subcommands):
    begins = "__ferrox_begins"
    lines = [fish_option(begins, option) for option in whole.options]
    for command in subcommands:
        runs = f"__ferrox_runs {command.name}"
        lines.append("")
        lines.append(f"complete -c ferrox -n {begins} -a {command.name} -d {fish_text(command.description)}")
        lines += [fish_option(runs, option) for option in command.options]
        lines += [f"complete -c ferrox -n {fish_text(runs)} {values}"
                  for values in dict.fromkeys(fish_values(argument) for argument in command.positionals) if values]
    return FISH.format(made=MADE, lines="\n".join(lines))
