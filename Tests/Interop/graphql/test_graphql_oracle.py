"""The GraphQL engine against the reference implementation: the same answers to the same queries."""

import json
import os
import random
import re
import subprocess
import sys
import tempfile
import unittest

import cases
import generator

HERE = os.path.dirname(os.path.abspath(__file__))
PROBE = os.environ["GRAPHQL_PROBE"]
REFERENCE = ("env", "NODE_PATH=/usr/share/nodejs", "node", os.path.join(HERE, "reference.js"))
SCHEMAS = {"library": os.path.join(HERE, "library.graphql"),
           "capabilities": os.path.join(HERE, "../../../Resources/GraphQL.bundle/Schema.graphql")}
INTROSPECTION = {"descriptions": True, "specifiedByUrl": True, "directiveIsRepeatable": True,
                 "schemaDescription": True, "inputValueDeprecation": True}
SEED = 20210


def ask(command, schema, requests):
    """One answer for each request."""
    lines = "".join(json.dumps(request) + "\n" for request in requests)
    arguments = (*command, SCHEMAS[schema], os.path.join(HERE, f"{schema}.json"))
    with tempfile.TemporaryFile("w+") as given:
        given.write(lines)
        given.seek(0)
        done = subprocess.run(arguments, stdin=given, stdout=subprocess.PIPE, text=True, timeout=250, check=True)
    answers = [json.loads(line) for line in done.stdout.split("\n") if line]
    assert len(answers) == len(requests), (len(answers), len(requests))
    return answers


def introspect(schema):
    """The reference's query for all there is to know, and its answer."""
    answer = ask(REFERENCE, schema, [{"introspect": INTROSPECTION}])[0]
    return answer["query"], answer["response"]["data"]


class Ordered(list):
    """The members of a JSON object, whose order matters."""


def comparable(value):
    """Data in which the order of members counts, but for arguments that came back as JSON text."""
    if isinstance(value, dict):
        return Ordered([(key, comparable(one)) for key, one in value.items()])
    if isinstance(value, list):
        return [comparable(one) for one in value]
    if isinstance(value, str) and value.startswith('{"$arguments":'):
        return json.loads(value)
    # 1 and 1.0 are one number in JSON, true is not.
    return ("boolean", value) if isinstance(value, bool) else value


def places(errors):
    """Where errors are, not what they say."""
    return sorted((sorted((at["line"], at["column"]) for at in error.get("locations", [])),
                   [str(segment) for segment in error.get("path", [])]) for error in errors)


def outcome(answer):
    """What both engines must agree on."""
    response = answer["response"]
    return {"stage": answer["stage"], "has data": "data" in response, "data": comparable(response.get("data")),
            "errors": places(response.get("errors", []))}


def request_of(case):
    query, variables, operation = (*case, None, None)[:3] if isinstance(case, tuple) else (case, None, None)
    return {"query": query, "variables": variables, "operationName": operation}


def listed(kind):
    """The entries of DIFFERENCES.md of one kind: the words that describe it, and its text."""
    with open(os.path.join(HERE, "DIFFERENCES.md"), encoding="utf-8") as file:
        blocks = re.findall(r"^```(\w+) ([^\n]*)\n(.*?)\n```$", file.read(), re.M | re.S)
    return [(tuple(words.split()), text.replace("\u2407", "\x07")) for name, words, text in blocks if name == kind]


class Oracle(unittest.TestCase):
    """Both engines answer; whoever differs is told of."""

    def compare(self, schema, requests):
        """The reference's answers, after ours were found to be the same."""
        expected, actual = ask(REFERENCE, schema, requests), ask((PROBE,), schema, requests)
        differing = [one for one in zip(requests, expected, actual) if outcome(one[1]) != outcome(one[2])]
        for request, reference, ours in differing[:int(os.environ.get("SHOWN_DIFFERENCES", "5"))]:
            shown = {key: value for key, value in request.items() if value}
            print(f"\n--- {json.dumps(shown)}\nreference: {json.dumps(reference)}\nours:      {json.dumps(ours)}",
                  file=sys.stderr)
        self.assertEqual(len(differing), 0, f"of {len(requests)} queries")
        return expected


class HandMade(Oracle):
    def test_each_broken_rule(self):
        queries = [query for broken in cases.BROKEN_RULES.values() for query in broken]
        requests = [{"query": query, "tellsRules": True} for query in queries]
        broken = set()
        for query, answer in zip(queries, self.compare("library", requests)):
            with self.subTest(query):
                self.assertEqual(len(answer["rules"]), 1)
                broken.update(answer["rules"])
        # Types are refused by the parser, and of subscriptions there are none.
        of_no_concern = {"ExecutableDefinitionsRule", "SingleFieldSubscriptionsRule"}
        all_rules = ask(REFERENCE, "library", [{"list": "rules"}])[0]["rules"]
        self.assertEqual(broken, set(all_rules) - of_no_concern)

    def test_validation(self):
        self.compare("library", [request_of(query) for query in cases.VALIDATION])

    def test_execution(self):
        answers = self.compare("library", [request_of(case) for case in cases.EXECUTION])
        self.assertEqual({answer["stage"] for answer in answers}, {"execution"})

    def test_syntax(self):
        self.compare("library", [request_of(query) for query in cases.SYNTAX])

    def test_capabilities(self):
        self.compare("capabilities", [request_of(case) for case in cases.CAPABILITIES])


class Generated(Oracle):
    """The same queries in each run."""

    def requests(self, schema, count, seed, spoiled):
        types = generator.Types(introspect(schema)[1])
        source = generator.Generator(types, seed)
        dice = random.Random(seed + 1)
        spoiler, printer = generator.Spoiler(types, dice), generator.Printer(dice)
        while count > 0:
            document, values = source.document()
            if spoiled:
                document = spoiler.spoil(document)
            text = printer.text(document)
            # What is longer may have more tokens than our engine takes.
            if len(text) < 4000:
                count -= 1
                yield {"query": text, "variables": values}

    def test_valid_queries(self):
        for schema, count in ("library", 400), ("capabilities", 60):
            answers = self.compare(schema, list(self.requests(schema, count, SEED, False)))
            executed = sum("data" in answer["response"] for answer in answers)
            self.assertGreater(executed, count * 0.8)

    def test_invalid_queries(self):
        for schema, count in ("library", 500), ("capabilities", 100):
            answers = self.compare(schema, list(self.requests(schema, count, SEED + 2, True)))
            refused = sum(answer["stage"] == "validation" for answer in answers)
            self.assertGreater(refused, count * 0.5)

    def test_syntax_errors(self):
        dice = random.Random(SEED + 4)
        requests = list(self.requests("library", 400, SEED + 5, False))
        for request in requests:
            request["query"] = generator.spoil_text(request["query"], dice)
        answers = self.compare("library", requests)
        self.assertGreater(sum(answer["stage"] == "syntax" for answer in answers), 150)


class Introspection(Oracle):
    def test_answers_the_standard_query(self):
        for schema in SCHEMAS:
            query, expected = introspect(schema)
            answer = ask((PROBE,), schema, [request_of(query)])[0]["response"]
            self.assertNotIn("errors", answer)
            actual, expected = self.known(answer["data"]), self.known(expected)
            for (of_schema,), path in listed("introspection"):
                if of_schema == schema:
                    self.assertNotEqual(taken_out(actual, path), taken_out(expected, path), path)
            self.maxDiff = None
            self.assertEqual(actual, expected)

    @staticmethod
    def known(introspection):
        """By name where no order is laid down, and without what built-in types and directives say of themselves."""
        schema = json.loads(json.dumps(introspection["__schema"]))
        for kind in schema["types"]:
            if kind["name"].startswith("__") or kind["name"] in generator.SCALARS:
                without_descriptions(kind)
        for directive in schema["directives"]:
            if directive["name"] in ("skip", "include", "deprecated", "specifiedBy"):
                without_descriptions(directive)
            directive["locations"].sort()
        for member in "types", "directives":
            schema[member] = {one["name"]: one for one in schema[member]}
        return schema


def taken_out(value, path):
    """What is found there, by member, index or name; it is gone afterwards."""
    *way, last = path.split(".")
    for step in way:
        value = value[step] if isinstance(value, dict) else next(one for one in value if one["name"] == step)
    return value.pop(last)


def without_descriptions(value):
    if isinstance(value, dict):
        value.pop("description", None)
        value = list(value.values())
    if isinstance(value, list):
        for one in value:
            without_descriptions(one)


class Differences(Oracle):
    """DIFFERENCES.md lists what differs on purpose; what no longer differs has to leave it."""

    def test_each_of_the_list_differs(self):
        for schema in SCHEMAS:
            entries = [(verdict, query) for (of_schema, verdict), query in listed("graphql") if of_schema == schema]
            requests = [self.request_with_variables(query) for _, query in entries]
            answers = zip(ask(REFERENCE, schema, requests), ask((PROBE,), schema, requests))
            for (verdict, query), pair in zip(entries, answers):
                with self.subTest(query):
                    expected, actual = map(outcome, pair)
                    self.assertNotEqual(expected, actual)
                    refused = [one["stage"] != "execution" for one in (expected, actual)]
                    self.assertEqual(refused[0] == refused[1], verdict == "same", (expected, actual))

    @staticmethod
    def request_with_variables(query):
        variables = re.match(r"# variables: (.*)", query)
        return {"query": query, "variables": json.loads(variables[1]) if variables else None}


if __name__ == "__main__":
    unittest.main()
