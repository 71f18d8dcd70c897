"""description.py - what openapi.json says about a request: where each key goes, its values, how a walk goes on."""
import difflib
import functools
import itertools
import json
import os
import re
from urllib.parse import quote

HERE = os.path.dirname(os.path.abspath(__file__))
PLACES = (os.path.join(HERE, "openapi.json"),                          # installed
          os.path.join(HERE, "../../../api/openapi.json"))             # in a checkout
QUERY_BYTES = 8192                                                     # the switch cuts off what is longer
UNSENDABLE = re.compile(r"[\x00-\x20#\x7f]")                           # in a request line that is sent raw


class Wrong(ValueError):
    """The request does not fit the description. Nothing has been sent."""


def listed(words):
    return ", ".join(words) or "none"


class Key:
    """A key of a request. `place` is "query", "json" (body), "form" (body) or "json-query" (JSON in place of a query)."""

    def __init__(self, place, name, schema, required, lookup=None):
        self.place, self.name, self.schema, self.required, self.lookup = place, name, schema, required, lookup
        self.names = {word: int(code) for code, word in schema.get("x-names", {}).items()}
        self.means = schema.get("x-means")

    def value(self, value):
        """The value as it is sent: words become their numbers, texts what the key's type needs."""
        read = {"integer": self.integer, "string": self.text, "boolean": self.boolean, "array": self.array}
        return read[self.schema["type"]](value)

    def wrong(self, value, wanted):
        return Wrong(f"{self.name} takes {wanted}, not {value!r}")

    def integer(self, value):
        if value in self.names:
            return self.names[value]
        low, high = self.schema["minimum"], self.schema["maximum"]
        words = f", or one of {listed(self.names)}" if self.names else ""
        if isinstance(value, str) and re.fullmatch(r"-?\d+", value):
            value = int(value)
        if not isinstance(value, int) or isinstance(value, bool) or not low <= value <= high:
            raise self.wrong(value, f"a number from {low} to {high}{words}")
        return value

    def text(self, value):
        words = self.schema.get("enum")
        if words:
            number = self.schema.get("x-number-too") and str(value).isdigit()
            if number or value in self.schema.get("x-codes", words):
                return str(value)
            raise self.wrong(value, f"one of {listed(words)}")
        value = str(value)
        if len(value.encode()) > self.schema.get("maxLength", QUERY_BYTES):
            raise self.wrong(value, f"at most {self.schema['maxLength']} bytes")
        if not re.fullmatch(self.schema.get("pattern", ".*"), value, re.DOTALL):
            raise self.wrong(value, f"text that is sent raw and matches {self.schema['pattern']}")
        return value

    def boolean(self, value):
        words = {"true": True, "false": False}
        if value in (True, False) or value in words:
            return words.get(value, value)
        raise self.wrong(value, "true or false")

    def array(self, value):
        if isinstance(value, str):
            value = [int(item) if item.strip().isdigit() else item for item in value.split(",") if item]
        high = self.schema["items"]["maximum"]
        if not all(isinstance(item, int) and 0 <= item <= high for item in value):
            raise self.wrong(value, f"a list of numbers from 0 to {high}")
        return list(value)

    def piece(self, value):
        """The key's piece of a query or a form."""
        text = json.dumps(value) if isinstance(value, bool) else str(value)
        return f"{self.name}={quote(text, safe='') if self.lookup == 'decoded' else text}"


class Operation:
    """A method of a path: `path` is relative to the server's, without a slash in front."""

    def __init__(self, method, path, entry):
        self.method, self.path, self.entry = method, path, entry
        self.keys = [Key("query", one["name"], one["schema"], one["required"], one["x-lookup"])
                     for one in entry.get("parameters", [])]
        self.json_required = False
        for media, content in entry.get("requestBody", {"content": {}})["content"].items():
            self.add_body("json" if media == "application/json" else "form", content["schema"])
            self.json_required = media == "application/json"
        if "x-query-string" in entry:
            self.add_body("json-query", entry["x-query-string"]["schema"])
            self.json_required = entry["x-query-string"]["required"]
        self.members = members_of(entry)
        self.success = {name: part.get("x-source", {}).get("operand") for name, part in self.members.items()}

    def add_body(self, place, schema):
        for name, one in schema["properties"].items():
            self.keys.append(Key(place, name, one, name in schema.get("required", [])))

    def __str__(self):
        return f"{self.method} {self.path}"

    def names(self):
        return [key.name + "=" for key in self.keys]

    def has(self, name):
        """Whether a key has this name or this meaning."""
        return any(name in (key.name, key.means) for key in self.keys)

    def names_of(self, member):
        """{number as text: its name} of a member of the answer."""
        return self.members[member].get("x-names", {})

    def key_for(self, name, given):
        """The key with this name, or the one key with this meaning ("interface") that is not given by its name."""
        for key in self.keys:
            if key.name == name:
                return key
        meant = [key for key in self.keys if key.means == name and key.name not in given]
        if len(meant) == 1:
            return meant[0]
        if meant:
            raise Wrong(f'{self}: "{name}" can be {" or ".join(key.name for key in meant)}')
        raise Wrong(f'{self} has no key "{name}"; its keys are {listed(key.name for key in self.keys)}')

    def values(self, given, complete=True):
        """{key: value} of the {name: value}, each checked; and, if complete, that no key is missing."""
        values = {}
        for name, value in given.items():
            key = self.key_for(name, given)
            try:
                values[key] = key.value(value)
            except Wrong as error:
                raise Wrong(f"{self}: {error}") from None
        missing = [key.name for key in self.keys if key.required and key not in values]
        if missing and complete:
            raise Wrong(f"{self}: {listed(missing)} is missing; its keys are {listed(key.name for key in self.keys)}")
        return values

    def request(self, given):
        """The target (path and raw query) and the body for the {name: value}."""
        values = self.values(given)
        at = lambda *places: {key: values[key] for key in self.keys if key.place in places and key in values}
        named = lambda found: {key.name: value for key, value in found.items()}
        pieces = self.readable([key for key in self.keys if key.place == "query"], at("query"))
        if at("json-query") or self.json_required and any(key.place == "json-query" for key in self.keys):
            pieces.insert(0, sendable_json(named(at("json-query"))))
        query = "&".join(pieces)
        if len(query.encode()) > QUERY_BYTES:
            raise Wrong(f"{self}: the query has {len(query.encode())} bytes; the switch reads {QUERY_BYTES}")
        if found := UNSENDABLE.search(query):
            raise Wrong(f"{self}: a query is sent raw and cannot hold {found[0]!r}: {query}")
        body = "&".join(self.readable([key for key in self.keys if key.place == "form"], at("form")))
        if self.json_required and not query.startswith("{"):
            body = json.dumps(named(at("json")))
        return self.path + ("?" + query if query else ""), body

    def readable(self, keys, values):
        """The pieces of the keys in an order in which the program finds each key's own piece: a loose lookup takes the
        first piece that contains the key anywhere. A key without a value gets its default if it would find another's."""
        pieces = {key: key.piece(value) for key, value in values.items()}
        for key in keys:
            if is_loose(key) and key not in pieces and any(key.name in piece for piece in pieces.values()):
                pieces[key] = key.piece(key.schema.get("default", ""))
        for order in itertools.permutations(key for key in keys if key in pieces):
            found = [pieces[key] for key in order]
            if all(next(one for one in found if key.name in one) == pieces[key] for key in order if is_loose(key)):
                return found
        raise Wrong(f"{self}: a value contains another key's name, and the switch would misread it: {listed(pieces.values())}")


def members_of(entry):
    """{member: its schema} of the data of a success."""
    schema = entry["responses"]["200"]["content"]["application/json"]["schema"]
    for one in [schema, *schema.get("oneOf", [])]:
        for name, data in one.get("properties", {}).items():
            if name != "resp":
                return data["properties"]
    return {}


def is_loose(key):
    return key.lookup == "loose" or key.place == "form"


def sendable_json(value):
    """JSON for a query: what a raw request line cannot carry is escaped."""
    text = json.dumps(value, separators=(",", ":"))
    return re.sub(r"[\x00-\x20#&/\x7f]", lambda found: f"\\u{ord(found[0]):04x}", text)


def next_name(name):
    return "next" + name[:1].upper() + name[1:]


class Walk:
    """How the answer of a "next" endpoint leads to the following request: {key: member}."""

    def __init__(self, operation, first):
        self.operation, self.first = operation, first
        members = operation.success
        self.cursor = {}
        for key in operation.keys:
            operand = key.schema["x-operand"][0]
            for member, source in members.items():
                if member in (next_name(key.name), key.name) or source in (next_name(operand), operand):
                    self.cursor.setdefault(key.name, member)
        if not self.cursor and "next" in members.values() and operation.keys:
            self.cursor[operation.keys[0].name] = next(member for member, source in members.items() if source == "next")
        if not self.cursor:
            raise Wrong(f"{operation} does not walk a table")

    def renamed(self, data):
        """The data of the first step, its members named as in the other steps."""
        members = self.operation.success
        return {next_name(name) if next_name(name) in members else name: value for name, value in data.items()}


class Description:
    def __init__(self, path=None):
        self.path = path or next((place for place in PLACES if os.path.exists(place)), PLACES[0])
        with open(self.path, encoding="utf-8") as file:
            self.json = json.load(file)
        self.operations = {(method.upper(), path.strip("/")): entry for path, methods in self.json["paths"].items()
                           for method, entry in methods.items()}

    def paths(self, method=None):
        return sorted({path for one, path in self.operations if method in (None, one)})

    @functools.lru_cache(maxsize=None)
    def operation(self, method, path):
        path = path.strip("/")
        if (method, path) in self.operations:
            return Operation(method, path, self.operations[method, path])
        methods = [one for one, name in self.operations if name == path]
        if methods:
            raise Wrong(f"there is no {method} {path}, but {' and '.join(methods)}")
        close = difflib.get_close_matches(path, self.paths(method), 3, 0.5)
        raise Wrong(f"there is no {method} {path}" + (f"; close to it: {', '.join(close)}" if close else ""))

    def walk(self, path):
        method = "POST" if ("POST", path.strip("/")) in self.operations else "GET"  # there are POSTs that only read
        operation = self.operation(method, path)
        first = operation.path.replace("next", "first")
        return Walk(operation, first if first != operation.path and (method, first) in self.operations else None)


@functools.lru_cache(maxsize=None)
def load(path=None):
    """The description in this file, by default the one that came with the client. It is read once."""
    return Description(path)
