"""The man page: a frame, and what the command's help says of subcommands and options."""

import collections

# So many subcommands share an option in the same words before it is told of only once.
COMMON = 6


def roff(text):
    """As it stands, in whatever place of a line."""
    for plain, escaped in (("\\", "\\e"), ("-", "\\-"), ("'", "\\(aq"), ("`", "\\(ga"), ("^", "\\(ha"), ("~", "\\(ti")):
        text = text.replace(plain, escaped)
    return "\\&" + text if text.startswith(".") else text


def quoted(text):
    """One argument of a macro."""
    return '"' + roff(text).replace('"', "\\(dq") + '"'


def sentence(text):
    return roff(text[0].upper() + text[1:]) + ("" if text.endswith(".") else ".")


def tag(argument):
    """A line of the kind "--name VALUE"; of a positional argument its name, or its form where that says more."""
    if not argument.name.startswith("-"):
        name = argument.name if argument.value.isalpha() else argument.value
        return f"\\fI{roff(name)}\\fR" + (" ..." if argument.repeated else "")
    names = ", ".join(f"\\fB{roff(name)}\\fR" for name in argument.names)
    value = f" \\fI{roff(argument.value)}\\fR" if argument.value else ""
    return names + value + (" ..." if argument.repeated else "")


def described(arguments):
    for argument in arguments:
        yield ".TP"
        yield tag(argument)
        must = argument.required and argument.name.startswith("-")
        yield sentence(argument.description) + (" Required." if must else "")


def common_options(subcommands):
    """Those that many have, in the same words."""
    counts = collections.Counter(option for command in subcommands for option in command.options)
    return [option for option, count in counts.items() if count >= COMMON]


def synopsis(command):
    positionals = []
    for argument in command.positionals:
        positionals.append(f"\\fI{roff(argument.name)}\\fR" + (" ..." if argument.repeated else ""))
    return " ".join([f"\\fBferrox {roff(command.name)}\\fR", "[\\fIoption\\fR ...]", *positionals])


def notes(lines):
    """Paragraphs; what is indented keeps its lines."""
    literal = False
    for line in lines:
        indented = line.startswith(" ")
        if indented != literal:
            yield from ([".PP", ".nf", ".RS"] if indented else [".RE", ".fi"])
            literal = indented
        if not line.strip():
            yield ".PP"
        else:
            yield roff(line)
    if literal:
        yield from (".RE", ".fi")


def subcommand(command, common):
    yield f".SS {quoted(command.name)}"
    yield synopsis(command)
    yield ".PP"
    yield sentence(command.description)
    yield from described(command.positionals)
    yield from described([option for option in command.options if option not in common])
    taken = [roff(option.name) for option in command.options if option in common and option.name != "--help"]
    if taken:
        yield ".PP"
        yield "Options of every node that it takes:"
        yield ",\n".join(f"\\fB{name}\\fR" for name in taken) + "."
    if command.notes:
        yield ".PP"
        yield from notes(command.notes)
    if command.examples:
        yield from (".PP", "For example:", ".PP", ".nf", ".RS")
        yield from (roff(line) for line in command.examples)
        yield from (".RE", ".fi")


def write(frame, version, whole, subcommands):
    common = common_options(subcommands)
    parts = {
        "@VERSION@": roff(version),
        "@SYNOPSIS@": "\n.br\n".join(["\\fBferrox\\fR [\\fB\\-h\\fR|\\fB\\-\\-help\\fR] [\\fB\\-\\-version\\fR]",
                                      *(synopsis(command) for command in subcommands)]),
        "@SUBCOMMANDS@": "\n".join(line for command in subcommands for line in subcommand(command, common)),
        "@NODE_OPTIONS@": "\n".join(described(common)),
    }
    for name, text in parts.items():
        frame = frame.replace(name, text)
    return frame
