"""described.py - reads an operation's description as predictions: which calls the switch gets, and what is answered.

It repeats on purpose what api/describe.py and the program know, such as OpEN's codes and how JSON is printed: what is
to be proved must not prove itself. (Only the harness is shared: tools/description.py and tools/switch.py.)
"""
import json
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from description import operations_of  # noqa: E402

OPEN_RESULTS = {0: 0, -22: 10003, -24: 10011, -28: 17002, -29: 10023}  # the rule "mapped"; any other code is 10000
UNKNOWN_WORD = "no-word-of-any"


class Wrong(Exception):
    """The program does not do what the description says."""


def same(what, found, described):
    if found != described:
        raise Wrong(f"{what}: {found!r:.600} where the description says {described!r:.600}")


class Key:
    """A key of a request: its place in the request, and what it becomes for the switch."""

    def __init__(self, place, name, schema, required, index):
        self.place, self.name, self.schema, self.required = place, name, schema, required
        self.number = 11 * (index + 1)  # its values are made from this; each key has another
        self.words = schema.get("x-codes")
        self.kind = "word" if self.words else schema.get("x-conversion", schema["type"])
        self.lookup = schema["x-lookup"] if place == "query" else {"form": "loose"}.get(place, "json")
        assert self.kind in ("word", "ipv4", "string", "boolean", "array", "integer")
        assert self.lookup in ("exact", "loose", "decoded", "json")
        assert self.words or ("default" in schema) == (not required)
        if self.kind == "integer" and place != "json":
            assert (schema["minimum"], schema["maximum"]) == (int(required), (1 << schema.get("x-bits", 32)) - 1)
        if self.words:  # of several words for one code, "enum" lists the first
            usual = [word for word, code in self.words.items() if code == schema["x-default"]]
            assert schema["type"] == "string"
            assert schema.get("default") == (usual[0] if usual and not required else None)
            assert schema["enum"] == list({code: word for word, code in reversed(self.words.items())}.values())[::-1]

    def understood(self, value):
        """The value; for a JSON value of another type, what it counts as. None: the key is missing."""
        json_type = {"integer": int, "boolean": bool, "array": list}.get(self.kind, str)
        if value is None or self.lookup != "json" or type(value) is json_type:
            return value
        otherwise = self.schema.get("x-other-type")
        return self.schema.get("x-true", otherwise) if value is True else otherwise

    def reached(self, value):
        """What the operand is when the key has this value."""
        value = self.understood(value)
        if self.kind == "word":
            if self.schema.get("x-number-too") and str(value).isdigit():
                return int(value)
            return self.words.get(value, self.schema["x-default"])
        if value is None:
            value = self.schema.get("default", {"integer": 0, "string": "", "boolean": False}.get(self.kind))
        if self.kind == "boolean":
            return int(value is True)
        if self.kind == "ipv4":
            return int.from_bytes(map(int, value.split(".") if value[-1:].isdigit() else [0]), sys.byteorder)
        if self.kind == "string":
            return value[:self.schema.get("maxLength")]
        if self.kind == "array":
            return [item % (self.schema["items"]["maximum"] + 1) for item in value or []][:self.schema["maxItems"]]
        if self.place in ("json", "json-query"):
            value = max(self.schema["minimum"], min(self.schema["maximum"], value))
        return value % (1 << self.schema.get("x-bits", 32))

    def samples(self):
        """Values that together show what the key does; of a JSON key, some have another type."""
        others = ["7", True] if self.kind == "integer" else [7]
        return self.values() + (others if self.lookup == "json" else [])

    def values(self):
        number, high = self.number, self.schema.get("maximum")
        if self.kind == "word":
            return [*self.schema["enum"], *self.words, UNKNOWN_WORD, *(["7"] if self.place == "query" else [])]
        if self.kind == "boolean":
            return [True, False]
        if self.kind == "ipv4":
            return [f"192.0.2.{number}", f"{number}.1.2.3", "255.255.255.255", "no address"]
        if self.kind == "string":
            longest = self.schema.get("maxLength", 5000)
            return [f"t{number}", f"u{number}", "x" * longest, "y" * (longest + 1)]
        if self.kind == "array":
            longest = list(range(1, self.schema["maxItems"] + 2))
            return [[number, number + 1], [number + 2], [], [self.schema["items"]["maximum"] + number],
                    *([longest] if self.place == "json" else [])]  # too long for a query
        low = [self.schema["minimum"], self.schema["minimum"] - (self.place != "query")]
        return [number, number + 1, high, high + 1, *low]

    def is_refused(self, value):
        """Whether the request is refused because this key is missing or empty."""
        least = self.schema.get("minimum", self.schema.get("minLength"))
        return self.required and (self.understood(value) is None or (least == 1 and not self.reached(value)))


def ipv4(number):
    return ".".join(map(str, number.to_bytes(4, sys.byteorder)))


def inlined(description, node):
    """The node, with each reference replaced by what it refers to."""
    if isinstance(node, list):
        return [inlined(description, item) for item in node]
    if not isinstance(node, dict):
        return node
    if "$ref" in node:
        target = description
        for step in node["$ref"].removeprefix("#/").split("/"):
            target = target[step]
        return inlined(description, target)
    return {name: inlined(description, item) for name, item in node.items()}


def alternatives(schema):
    """The schemas of which exactly one holds."""
    return [one for part in schema["oneOf"] for one in alternatives(part)] if "oneOf" in schema else [schema]


class Operation:
    def __init__(self, path, method, entry):
        self.path, self.method, self.entry = path, method.upper(), entry
        self.name = f"{self.method} {path}"
        self.calls = entry["x-operations"]
        self.rule, self.constants = entry["x-open-codes"], entry.get("x-constants", {})
        self.keys = []
        for parameter in entry.get("parameters", []):
            assert parameter["in"] == "query"
            schema = {**parameter, **parameter["schema"]}
            self.add_key("query", parameter["name"], schema, parameter["required"])
        self.json_place, self.bodies = None, []
        for content, media in entry.get("requestBody", {"content": {}})["content"].items():
            kind = "json" if content == "application/json" else "form"
            assert entry["requestBody"]["required"] == (kind == "json")  # an empty form has the defaults
            self.add_body(kind, media["schema"])
        if "x-query-string" in entry:
            self.add_body("json-query", entry["x-query-string"]["schema"])
        self.needs_json = self.json_place == "json" or entry.get("x-query-string", {}).get("required")
        self.schema = entry["responses"]["200"]["content"]["application/json"]["schema"]
        self.success, self.messages, self.statuses = None, {}, {}
        for outcome in alternatives(self.schema):
            resp = outcome["properties"]["resp"]["properties"]
            codes = resp["respCode"].get("enum") or [resp["respCode"]["const"]]
            self.messages.update(dict.fromkeys(codes, resp["respMsg"]["const"]))
            self.statuses.update(dict.fromkeys(codes, resp["status"]["const"]))
            if codes == [0]:
                self.success = outcome
        self.members = list(self.members_in(self.success or {"properties": {}}, ()))

    def add_key(self, place, name, schema, required):
        self.keys.append(Key(place, name, schema, required, len(self.keys)))

    def add_body(self, place, schema):
        self.bodies.append(schema)
        if place != "form":
            self.json_place = place
        for name, one in schema["properties"].items():
            self.add_key(place, name, one, name in schema.get("required", []))

    def members_in(self, schema, path):
        """(path, schema) of every member of the data of a success."""
        for name, one in schema["properties"].items():
            if one["type"] == "object" and name != "resp":
                yield from self.members_in(one, (*path, name))
            elif name != "resp":
                yield ".".join((*path, name)), one

    def request(self, values, rename=lambda key: key.name, extra=()):
        """Query and body with the {key: value}. Further (name, value) pairs stand wherever the program could look."""
        pairs = [f"{name}={value}" for name, value in extra]
        place = {where: [(rename(key), values[key]) for key in self.keys if key.place == where and key in values]
                 for where in ("query", "form", "json", "json-query")}
        query = "&".join([f"{name}={value}" for name, value in place["query"]] + pairs)
        known = {key.name.lower() for key in self.keys if key.place == self.json_place}
        more = {name: value for name, value in extra if name.lower() not in known}
        if self.json_place == "json-query":
            query = json.dumps({**dict(place["json-query"]), **more}) + "&" + query
        if self.json_place == "json":
            return query, json.dumps({**dict(place["json"]), **more})
        if place["form"]:
            return query, "&".join([f"{name}={value}" for name, value in place["form"]] + pairs)
        return query, json.dumps(more) if more and self.method in ("PUT", "POST") else ""

    def example_values(self):
        """The example's values, by key (without those of JSON in a query)."""
        values = {key: key.schema["example"] for key in self.keys if key.place == "query"}
        bodies = [media["example"] for media in self.entry.get("requestBody", {"content": {}})["content"].values()]
        values.update((key, bodies[0][key.name]) for key in self.keys if bodies and key.name in bodies[0] and
                      key.place in ("json", "form"))
        return values

    def sent(self, index, call, values, outputs):
        """The operands that the call must get, as the trace shows them. `outputs` is what each call returns."""
        expected = {}
        for name, found in call.sent.items():
            value = self.constants.get(name)
            value = value[index] if isinstance(value, list) else value
            for key in self.keys:
                if name in key.schema["x-operand"]:
                    value = key.reached(values.get(key))
            if found.startswith("["):
                expected[name] = f'[{self.size(name, value or "", outputs)}]"{value or ""}"'
            elif found.endswith(")"):
                expected[name] = f"{len(value or [])}({' '.join(map(str, value or []))})"
            else:
                expected[name] = ipv4(value or 0) if "." in found else str(value or 0)
        return expected

    def size(self, name, text, outputs):
        """The size that a text's descriptor must state."""
        size = self.entry["x-text-sizes"][name]
        if isinstance(size, dict):
            return max(size["least"], outputs[0][size["operand"]] * size["each"] + size["plus"])
        return {"length": len(text), "length+1": len(text) + 1}.get(size, size)

    def counted(self):
        """Operands whose value determines the size of a text."""
        return [size["operand"] for size in self.entry.get("x-text-sizes", {}).values() if isinstance(size, dict)]

    def operands_reached(self):
        return {name for key in self.keys for name in key.schema["x-operand"]}

    def outcome(self, code):
        """The result code for OpEN's code."""
        sources = [schema["x-source"] for _, schema in self.members]
        reported = {one for source in sources for codes in source.get("code", {}).values() for one in codes}
        mapped, invalid = OPEN_RESULTS.get(code, 10000), 10003 if code else 0
        own = 0 if code in reported else mapped
        return {"mapped": mapped, "own": own, "invalid": invalid, "raw": code, "never": 0}[self.rule]

    def answer(self, outcome, situation, values, outputs, code):
        """The whole text of an answer. `outputs` has {operand: value} for each call."""
        answer = {}
        if outcome == 0:
            answer = {name: self.data(schema, values, outputs, code)
                      for name, schema in self.success["properties"].items() if name != "resp"}
        answer["resp"] = {"respCode": outcome, "respMsg": self.messages[outcome], "status": self.statuses[outcome]}
        return printed(answer) + "\n" * self.entry["x-line-end"][situation]

    def data(self, schema, values, outputs, code):
        if schema["type"] == "object":
            return {name: self.data(one, values, outputs, code) for name, one in schema["properties"].items()}
        source = schema["x-source"]
        if "key" in source:
            key = next(key for key in self.keys if key.name == source["key"])
            value = key.reached(values.get(key))
        else:
            value = outputs[source.get("call", 0)][source["operand"]] if "operand" in source else code
        if source.get("count"):
            value = len(value)
        if source.get("conversion") == "ipv4":
            value = ipv4(value)
        if "otherwise" in source:
            words = source.get("words") or source.get("code")
            value = next((word for word, codes in words.items() if value in codes), source["otherwise"])
        if schema["type"] == "boolean":
            return value == "true"
        if schema["type"] == "string":
            return value[:schema.get("maxLength")]
        if schema["type"] == "integer" and schema["minimum"] < 0:
            value = (value + (1 << 31)) % (1 << 32) - (1 << 31)
        return value


def described_operations(description):
    return [Operation(*row) for row in operations_of(inlined(description, description))]


def printed(value, depth=1):
    """JSON as the program prints it: one member a line, tabs, arrays on one line, large numbers as doubles."""
    if isinstance(value, dict):
        rows = ",\n".join("\t" * depth + f'"{key}":\t' + printed(item, depth + 1) for key, item in value.items())
        return "{\n" + rows + "\n" + "\t" * (depth - 1) + "}"
    if isinstance(value, list):
        return "[" + ", ".join(printed(item, depth) for item in value) + "]"
    if isinstance(value, int) and not isinstance(value, bool) and abs(value) >= 1 << 31:
        return short if float(short := f"{float(value):.15g}") == float(value) else f"{float(value):.17g}"
    return json.dumps(value)
