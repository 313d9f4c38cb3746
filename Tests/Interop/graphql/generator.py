"""Random queries over any schema, from its introspection: valid ones, and ones that were made invalid."""

import copy
import random


class Types:
    """What introspection tells of a schema."""

    def __init__(self, introspection):
        schema = introspection["__schema"]
        self.named = {kind["name"]: kind for kind in schema["types"]}
        self.query = schema["queryType"]["name"]
        self.objects = [name for name, kind in self.named.items()
                        if kind["kind"] == "OBJECT" and not name.startswith("__")]

    def of(self, reference):
        """The named type inside all wrappers."""
        while reference["ofType"]:
            reference = reference["ofType"]
        return self.named[reference["name"]]

    def fields(self, name):
        return self.named[name]["fields"]


def text_of(reference):
    """A type as it is written."""
    if reference["kind"] == "NON_NULL":
        return text_of(reference["ofType"]) + "!"
    if reference["kind"] == "LIST":
        return "[" + text_of(reference["ofType"]) + "]"
    return reference["name"]


class Document:
    """A query as plain parts, so that they can be changed: a selection is a dictionary with the key "field",
    "spread" or "inline"; a literal is its text, a list, a dictionary or a Variable."""

    def __init__(self):
        self.operations = []
        self.fragments = []
        self.variables = {}

    def selections(self, wanted=("field", "spread", "inline")):
        """Every selection, with the list that it is in."""
        found = []

        def visit(selections):
            for selection in selections:
                if any(kind in selection for kind in wanted):
                    found.append((selection, selections))
                visit(selection.get("selections") or [])

        for definition in self.operations + self.fragments:
            visit(definition["selections"])
        return found

    def fields(self):
        return [selection for selection, _ in self.selections(("field",))]

    def directive_places(self):
        return self.operations + self.fragments + [selection for selection, _ in self.selections()]


class Variable(str):
    """Its name, without "$"."""


SCALARS = {
    "Int": lambda dice: dice.choice(["0", "-1", "5", "2147483647", str(dice.randrange(-1000, 1000))]),
    "Float": lambda dice: dice.choice(["0", "2.5", "-1e3", "1.25E-2", "7"]),
    "String": lambda dice: dice.choice(['""', '"text"', '"\\u2603 \\n"', '"""block\n  text"""', '"\u2603 #{}"']),
    "Boolean": lambda dice: dice.choice(["true", "false"]),
    "ID": lambda dice: dice.choice(['"a1"', "17", '""']),
}
INPUTS = {
    "Int": lambda dice: dice.choice([0, -1, 2147483647, dice.randrange(-1000, 1000), 3.0]),
    "Float": lambda dice: dice.choice([0, 2.5, -1000, 0.0125]),
    "String": lambda dice: dice.choice(["", "text", "\u2603 \n \U0001f3ac", "\"'\\"]),
    "Boolean": lambda dice: dice.choice([True, False]),
    "ID": lambda dice: dice.choice(["a1", 17, ""]),
}


class Generator:
    """Valid queries: executable, though fields may fail."""

    def __init__(self, types, seed):
        self.types = types
        self.dice = random.Random(seed)

    def chance(self, part):
        return self.dice.random() < part

    def document(self):
        """A document, and values for its variables."""
        self.aliases = 0
        self.result = Document()
        self.values = {}
        operation = {"kind": "query", "name": self.dice.choice([None, "A", "query", "Long_Name1"])}
        operation["directives"] = []
        operation["selections"] = self.selection_set(self.types.query, self.dice.randrange(2, 5))
        self.result.operations.append(operation)
        return self.result, self.values

    def selection_set(self, parent, depth):
        return [self.selection(parent, depth) for _ in range(self.dice.randrange(1, 5))]

    def selection(self, parent, depth):
        if self.chance(0.12):
            condition = self.dice.choice([None, parent])
            return {"inline": condition, "directives": self.directives(),
                    "selections": self.selection_set(parent, depth)}
        if self.chance(0.12) and len(self.result.fragments) < 6:
            return {"spread": self.fragment(parent, depth), "directives": self.directives()}
        if self.chance(0.08):
            return {"field": "__typename", "alias": None, "arguments": {}, "directives": self.directives(),
                    "selections": None}
        return self.field(parent, depth)

    def field(self, parent, depth):
        fields = self.types.fields(parent)
        if depth <= 1:
            leafs = [field for field in fields if self.types.of(field["type"])["kind"] != "OBJECT"]
            fields = leafs or fields
        definition = self.dice.choice(fields)
        kind = self.types.of(definition["type"])
        arguments = self.arguments(definition)
        is_object = kind["kind"] == "OBJECT"
        alias = None
        # Fields of one response key must be the same, and so must be what is inside them.
        if definition["args"] or is_object and self.chance(0.7) or self.chance(0.2):
            self.aliases += 1
            alias = f"a{self.aliases}"
        selections = self.selection_set(kind["name"], depth - 1) if is_object else None
        return {"field": definition["name"], "alias": alias, "arguments": arguments, "type": parent,
                "directives": self.directives(), "selections": selections}

    def fragment(self, parent, depth):
        """A new one, or one that was finished before."""
        known = [fragment["name"] for fragment in self.result.fragments if fragment["on"] == parent]
        if known and self.chance(0.4):
            return self.dice.choice(known)
        self.aliases += 1
        name = f"F{self.aliases}"
        selections = self.selection_set(parent, depth)
        self.result.fragments.append({"name": name, "on": parent, "directives": [], "selections": selections})
        return name

    def directives(self):
        found = []
        for name in ("skip", "include"):
            if self.chance(0.06):
                boolean = {"kind": "NON_NULL", "name": None,
                           "ofType": {"kind": "SCALAR", "name": "Boolean", "ofType": None}}
                found.append((name, {"if": self.value(boolean, False)}))
        return found

    def arguments(self, definition):
        arguments = {}
        for argument in definition["args"]:
            is_required = argument["type"]["kind"] == "NON_NULL" and argument["defaultValue"] is None
            few = 0.75 if len(definition["args"]) < 4 else 0.2
            if is_required or self.chance(few):
                arguments[argument["name"]] = self.value(argument["type"], argument["defaultValue"] is not None)
        return arguments

    def value(self, reference, has_default, nesting=0):
        if self.chance(0.25):
            return self.variable(reference, has_default)
        if reference["kind"] == "NON_NULL":
            return self.value_that_is(reference["ofType"], nesting)
        return "null" if self.chance(0.1) else self.value_that_is(reference, nesting)

    def value_that_is(self, reference, nesting):
        """A literal that is not null."""
        if reference["kind"] == "LIST":
            if self.chance(0.2):
                # One value stands for the list of it.
                item = reference["ofType"]
                return self.value_that_is(item["ofType"] if item["kind"] == "NON_NULL" else item, nesting)
            return [self.value(reference["ofType"], False, nesting + 1) for _ in range(self.dice.randrange(0, 3))]
        kind = self.types.named[reference["name"]]
        if kind["kind"] == "ENUM":
            return self.dice.choice(kind["enumValues"])["name"]
        if kind["kind"] == "INPUT_OBJECT":
            return self.input_object(kind, nesting)
        return SCALARS.get(kind["name"], self.custom)(self.dice)

    @staticmethod
    def custom(dice):
        return dice.choice(["5", '"x"', "ENUM", "true", "2.5"])

    def input_object(self, kind, nesting):
        value = {}
        for field in self.dice.sample(kind["inputFields"], len(kind["inputFields"])):
            has_default = field["defaultValue"] is not None
            is_required = field["type"]["kind"] == "NON_NULL" and not has_default
            if is_required or self.chance(0.4 if nesting < 2 else 0):
                value[field["name"]] = self.value(field["type"], has_default, nesting + 1)
        return value

    def variable(self, reference, has_default):
        """A new variable of a type that fits, with or without a default, with or without a value."""
        name = f"v{len(self.result.variables)}"
        text, default = text_of(reference), None
        is_required = reference["kind"] == "NON_NULL"
        if is_required and self.chance(0.3):
            # A variable that may be null fits where a default stands in for it.
            default = self.constant(reference)
            text = text[:-1]
        elif is_required and has_default and self.chance(0.3):
            text = text[:-1]
        elif not is_required and self.chance(0.3):
            default = self.constant(reference)
        elif not is_required and self.chance(0.2):
            text += "!"
        self.result.variables[name] = (text, default)
        if default is None or self.chance(0.4):
            if text.endswith("!") or self.chance(0.8):
                self.values[name] = self.input_value(reference)
        if self.chance(0.03):
            self.values[name] = self.dice.choice([None, "x", 1.5, True, [1]])
        return Variable(name)

    def constant(self, reference):
        """A literal without variables."""
        document, values = self.result, self.values
        while True:
            self.result, self.values = Document(), {}
            value = self.value_that_is(reference["ofType"] if reference["kind"] == "NON_NULL" else reference, 1)
            if not self.result.variables:
                self.result, self.values = document, values
                return value

    def input_value(self, reference, nesting=0):
        """A variable's value as JSON."""
        if reference["kind"] == "NON_NULL":
            reference = reference["ofType"]
        elif self.chance(0.1):
            return None
        if reference["kind"] == "LIST":
            if self.chance(0.15) and reference["ofType"]["kind"] != "LIST":
                return self.input_value({"kind": "NON_NULL", "ofType": reference["ofType"]}, nesting) \
                    if reference["ofType"]["kind"] != "NON_NULL" else self.input_value(reference["ofType"], nesting)
            return [self.input_value(reference["ofType"], nesting + 1) for _ in range(self.dice.randrange(0, 3))]
        kind = self.types.named[reference["name"]]
        if kind["kind"] == "ENUM":
            return self.dice.choice(kind["enumValues"])["name"]
        if kind["kind"] == "INPUT_OBJECT":
            return {field["name"]: self.input_value(field["type"], nesting + 1) for field in kind["inputFields"]
                    if field["type"]["kind"] == "NON_NULL" and field["defaultValue"] is None
                    or self.chance(0.3 if nesting < 2 else 0)}
        return INPUTS.get(kind["name"], lambda dice: dice.choice([5, "x", True, 2.5]))(self.dice)


class Printer:
    """A document as text, with white space, commas and comments wherever they may stand."""

    def __init__(self, dice):
        self.dice = dice

    def space(self):
        return self.dice.choice([" "] * 12 + ["  ", "\n", ", ", "\n    ", "\t", " # a \u2603 comment\n", "\r\n", ",,"])

    def text(self, document):
        definitions = [self.definition(self.operation(operation, document), operation)
                       for operation in document.operations]
        definitions += [self.definition(f"fragment {fragment['name']} on {fragment['on']}", fragment)
                        for fragment in document.fragments]
        self.dice.shuffle(definitions)
        return self.space().join(definitions)

    def operation(self, operation, document):
        variables = self.space().join(self.variable(name, *rest) for name, rest in document.variables.items())
        text = operation["kind"] + (" " + operation["name"] if operation["name"] else "")
        return text + (f"({variables})" if variables else "")

    def variable(self, name, kind, default):
        return f"${name}:{self.space()}{kind}" + (f" = {self.value(default)}" if default is not None else "")

    def definition(self, text, definition):
        text += self.directives(definition["directives"]) + self.space()
        if text.strip(" ,\n\r\t") == "query" and self.dice.random() < 0.5:
            text = ""
        return text + self.selections(definition["selections"])

    def selections(self, selections):
        if selections is None:
            return ""
        return "{" + self.space() + self.space().join(self.selection(one) for one in selections) + self.space() + "}"

    def selection(self, selection):
        if "spread" in selection:
            return "..." + selection["spread"] + self.directives(selection["directives"])
        if "inline" in selection:
            condition = f"... on {selection['inline']}" if selection["inline"] else "..."
            text = condition + self.directives(selection["directives"])
        else:
            alias = selection["alias"] + ":" + self.space() if selection["alias"] else ""
            text = alias + selection["field"] + self.arguments(selection["arguments"])
            text += self.directives(selection["directives"])
        return text + self.space() + self.selections(selection["selections"])

    def directives(self, directives):
        return "".join(self.space() + "@" + name + self.arguments(arguments) for name, arguments in directives)

    def arguments(self, arguments):
        pairs = arguments.items() if isinstance(arguments, dict) else arguments
        texts = [name + ":" + self.space() + self.value(value) for name, value in pairs]
        return "(" + self.space().join(texts) + ")" if texts else ""

    def value(self, value):
        if isinstance(value, Variable):
            return "$" + value
        if isinstance(value, list):
            return "[" + self.space().join(self.value(item) for item in value) + "]"
        if isinstance(value, dict):
            return "{" + self.space().join(name + ":" + self.value(one) for name, one in value.items()) + "}"
        return value


class Spoiler:
    """Changes a valid document so that it is, most likely, invalid."""

    def __init__(self, types, dice):
        self.types = types
        self.dice = dice

    def spoil(self, document):
        document = copy.deepcopy(document)
        ways = [getattr(self, name) for name in sorted(dir(self)) if name.startswith("spoil_")]
        self.dice.choice(ways)(document)
        return document

    def spoil_field_name(self, document):
        self.dice.choice(document.fields())["field"] = "nothing"

    def spoil_field_of_other_type(self, document):
        other = self.types.fields(self.dice.choice(self.types.objects))
        field = self.dice.choice(document.fields())
        field["field"], field["alias"] = self.dice.choice(other)["name"], "other"

    def spoil_missing_selections(self, document):
        self.dice.choice(document.fields())["selections"] = None

    def spoil_selections_of_leaf(self, document):
        field = self.dice.choice(document.fields())
        field["selections"] = field["selections"] or [self.plain("x")]

    @staticmethod
    def plain(name, alias=None):
        return {"field": name, "alias": alias, "arguments": {}, "directives": [], "selections": None}

    def with_arguments(self, document):
        return [field for field in document.fields() if field["arguments"]] or document.fields()

    def spoil_argument_name(self, document):
        field = self.dice.choice(document.fields())
        field["arguments"]["unknown"], field["alias"] = "5", "other"

    def spoil_argument_twice(self, document):
        field = self.dice.choice(self.with_arguments(document))
        field["alias"] = field["alias"] or "other"
        pairs = list(field["arguments"].items()) or [("x", "1")]
        field["arguments"] = pairs + [self.dice.choice(pairs) for _ in range(self.dice.randrange(1, 3))]

    def spoil_missing_arguments(self, document):
        for field in document.fields():
            field["arguments"] = {}

    def spoil_value(self, document):
        arguments = self.dice.choice(self.with_arguments(document))["arguments"]
        if arguments:
            self.change_value(arguments, self.dice.choice(sorted(arguments)))

    def change_value(self, holder, key):
        """The value itself, or something inside it."""
        value = holder[key]
        if isinstance(value, (list, dict)) and value and self.dice.random() < 0.7:
            inner = self.dice.randrange(len(value)) if isinstance(value, list) else self.dice.choice(sorted(value))
            self.change_value(value, inner)
            return
        holder[key] = self.dice.choice(["null", "1.5", '"text"', "PINK", "true", ["1", '"a"'], {"x": '"1"', "q": "2"},
                                        [["null"]], "99999999999", Variable("unknown")])

    def spoil_variable_types(self, document):
        for name, (_, default) in document.variables.items():
            document.variables[name] = (self.dice.choice(["Int", "String!", "[Float]", "Nothing", "Any"]), default)

    def spoil_variable_type(self, document):
        if document.variables:
            name = self.dice.choice(sorted(document.variables))
            kind = self.dice.choice(["Int", "[Int!]!", "String", "Float", "Boolean", "Nothing", self.types.query])
            document.variables[name] = (kind, self.dice.choice([None, "null", "5", "[PINK]"]))

    def spoil_unused_variable(self, document):
        document.variables["unused"] = (self.dice.choice(["Int", "[Boolean!]!", self.types.query]), None)

    def spoil_missing_variable(self, document):
        if document.variables:
            del document.variables[self.dice.choice(sorted(document.variables))]

    def spoil_spread(self, document):
        _, siblings = self.dice.choice(document.selections())
        siblings.append({"spread": "Missing", "directives": []})

    def spoil_type_condition(self, document):
        _, siblings = self.dice.choice(document.selections())
        condition = self.dice.choice(["Nothing", "Int", *self.types.objects])
        siblings.append({"inline": condition, "directives": [], "selections": [self.plain("__typename")]})

    def spoil_unused_fragment(self, document):
        document.fragments.append({"name": "Unused", "on": self.dice.choice(self.types.objects), "directives": [],
                                   "selections": [self.plain("__typename")]})

    def spoil_fragment_cycle(self, document):
        for fragment in document.fragments:
            fragment["selections"].append({"spread": self.dice.choice(document.fragments)["name"], "directives": []})

    def spoil_fragment_name(self, document):
        for fragment in document.fragments[:2]:
            fragment["name"] = "Same"

    def spoil_fragment_type(self, document):
        if document.fragments:
            self.dice.choice(document.fragments)["on"] = self.dice.choice(["Nothing", "Int", *self.types.objects])

    def spoil_directive(self, document):
        place = self.dice.choice(document.directive_places())
        place["directives"] += self.dice.choice([
            [("nothing", {})], [("skip", {})], [("skip", {"if": "1"})], [("deprecated", {})],
            [("include", {"if": "true"}), ("include", {"if": "true"})], [("skip", {"if": "true", "other": "1"})],
            [("skip", {"if": Variable("unknown")})], [("skip", [("if", "true"), ("if", "false")])]])

    def spoil_operation_names(self, document):
        more = copy.deepcopy(document.operations[0])
        more["name"] = self.dice.choice([more["name"], "Other"])
        document.operations.append(more)

    def spoil_operation_kind(self, document):
        document.operations[0]["kind"] = self.dice.choice(["mutation", "subscription"])

    def spoil_merging(self, document):
        """Two fields of one response key, side by side."""
        sets = [document.operations[0]["selections"]]
        sets += [field["selections"] for field in document.fields() if field["selections"]]
        fields = self.dice.choice(sets)
        fields.insert(0, self.plain("__typename", "same"))
        fields.append(self.plain(self.dice.choice(["id", "name", "int", "missing"]), "same"))


def spoil_text(text, dice):
    """One small change of the letters."""
    position = dice.randrange(len(text))
    end = min(len(text), position + dice.randrange(0, 4))
    inserted = dice.choice(["", "", "{", "}", "(", ")", "[", "]", "$", "@", "...", ":", "=", "!", '"', '"""', "1", "-",
                            "a", "?", "\u2603", "\n", "#", "null", " on ", "query", "0.5", "\\", "|", "&"])
    return text[:position] + inserted + text[end:]
