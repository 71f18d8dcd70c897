#!/usr/bin/python3
"""describe.py - makes openapi.json from what the recorder saw (facts.py) and the texts in words/, scene.txt, info.md.

    describe.py BUILD            makes it, and fails unless the openapi.json that is there is the same
    describe.py BUILD --write    writes it, and keeps the answers of the examples
    describe.py BUILD --play     writes it, and takes the answers from the program and the virtual switch in BUILD

BUILD is a directory in which everything is built.
"""
import json
import os
import re
import subprocess
import sys

from facts import MAPPED, OPEN_CODES, Unclear, record
from words import Words, Wrong

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../tools"))
from description import (  # noqa: E402
    DESCRIPTION, SceneFailed, example_answer, example_query, example_request, load, operations_of, set_scene)
from arguments import PROGRAM, build_with, parser  # noqa: E402
from switch import Switch  # noqa: E402

BASE = "/api/v2/switching"
INT32 = {"type": "integer", "format": "int32", "minimum": -2**31, "maximum": 2**31 - 1}
UINT32 = {"type": "integer", "minimum": 0, "maximum": 2**32 - 1}
UINT16 = {"type": "integer", "minimum": 0, "maximum": 65535}
UINT64 = {"type": "integer", "minimum": 0, "maximum": 2**64}  # as JSON numbers are doubles, the largest rounds up
# Groups of failures that occur together: name of their schema, codes.
FAILURES = {"Failure": sorted({*MAPPED.values(), 10000} - {0}), "OpenFailure": list(OPEN_CODES)}
RAW = {"exact": "^[^&/]*$", "loose": "^[^&/]*$", "form": "^[^&]*$"}  # what a text that is not decoded can hold
SUCCESS = {"resp": {"respCode": 0, "respMsg": "Success", "status": "success"}}
SHORT = {"VlanId": "vlan", "VlanOrNone": "vlan", "VlanIds": "vlans"}  # values of x-means that are not the meaning's name
VLAN_IDS = {"type": "array", "maxItems": 4096, "items": UINT16}


meanings = {}  # of operands: (operation, operand): (name of the meaning, meaning)


def directory(endpoint):
    return endpoint["path"].removeprefix(BASE + "/")


def identity(endpoint):
    return directory(endpoint).replace("/", "-"), endpoint["method"], endpoint["name"]


# What numbers mean

def read_meanings(build):
    """What numbers and texts mean to the virtual switch, by operation and operand."""
    output = subprocess.run([build + "/vswitch", "operations", "--json"], check=True, capture_output=True, text=True).stdout
    table = json.loads(output)
    return {(operation["name"], row["name"]): (row["meaning"], table["meanings"][row["meaning"]])
            for operation in table["operations"] for row in operation["parameters"] if "meaning" in row}


def meaning_of(endpoint, operands):
    """The name of the meaning of the first of these operands that has one, and the meaning. None: none has."""
    found = [meanings[call, operand] for operand in operands for call in endpoint["calls"] if (call, operand) in meanings]
    return found[0] if found else None


def with_meaning(endpoint, operand, text, kind):
    """The text; after "OpEN's code", "unit", "encoding" or "range" stands what the number means to the virtual switch."""
    found = re.search(r"OpEN's (code|unit|encoding|range)(?! \()", text)
    if not found or kind != "number":
        return text
    _name, meaning = meaning_of(endpoint, [operand]) or (None, None)
    if not meaning:
        raise Wrong(f"{identity(endpoint)}: the virtual switch does not say what {operand} means")
    says = ", ".join(f"{row['value']} {row['word']}" for row in meaning["numbers"]) or meaning["about"]
    return f"{text[:found.end()]} (virtual switch: {says}){text[found.end():]}"


def add_meaning(endpoint, operands, schema, kind):
    """Adds x-names or x-range to the schema of a number, or to that of the numbers in a list."""
    _name, meaning = meaning_of(endpoint, operands) or (None, {})
    if kind == "number" and meaning.get("numbers"):
        schema["x-names"] = {str(row["value"]): row["word"] for row in meaning["numbers"]}
    elif kind == "number" and "lowest" in meaning:
        schema["x-range"] = [meaning["lowest"], meaning["highest"]]


# Keys

def other_word(endpoint, key, endpoints):
    """The word that a member with the key's name reports for the key's default code; None if no member does."""
    for other in endpoints:
        member = other["members"].get(key["name"], {})
        if other["path"] == endpoint["path"] and member.get("type") == "words":
            if set(member["codes"]) <= set(key["codes"]) and key["default"] not in sum(member["codes"].values(), []):
                return member["otherwise"]
    return None


def words_schema(endpoint, key, endpoints):
    """The schema of a key with words. Of several words for one code it lists the first; the text names the others."""
    codes, more = dict(key["codes"]), []
    if key["default"] is not None and key["default"] not in codes.values():
        word = other_word(endpoint, key, endpoints)
        codes.update({word: key["default"]} if word else {})
    offered = {code: word for word, code in reversed(codes.items())}
    for word, code in codes.items():
        if offered[code] != word:
            more.append(f'"{word}" is the same as "{offered[code]}".')
    schema = {"type": "string", "enum": [word for word in codes if word in offered.values()], "x-codes": codes}
    if key["number_too"]:
        more.append("A decimal number is taken as OpEN's code.")
        schema["x-number-too"] = True
    if key["default"] is not None:
        schema["x-default"] = key["default"]
        if key["default"] in offered:
            schema["default"] = offered[key["default"]]
    return schema, more


def key_schema(endpoint, key, endpoints):
    """The schema of a key, and sentences for its text."""
    more = []
    kind = key["type"]
    if kind == "words":
        schema, more = words_schema(endpoint, key, endpoints)
    elif kind == "ids":
        schema = dict(VLAN_IDS, default=[])
    elif kind == "boolean":
        schema = {"type": "boolean", "default": False}
    elif kind == "number":
        schema = dict(UINT16 if key["bits"] == 16 else INT32 if key["rule"].startswith("int32") else UINT32)
        if key["bits"] == 16:
            schema["x-bits"] = 16
        if key["nothing_refused"]:
            schema["minimum"] = 1
        schema["default"] = key["default"]
        if key["rule"].endswith("copy"):
            schema["x-other-type"] = 0  # instead of the default
        if key["rule"] == "int32 copy":
            schema["x-true"] = 1  # the JSON library turns true into 1
    else:
        schema = {"type": "string", "default": ""}
        if key["rule"] == "text":
            schema["maxLength"] = key["size"] - 1
        if kind == "ipv4":
            schema.update({"format": "ipv4", "default": "0.0.0.0", "x-conversion": "ipv4"})
        if key["source"] in RAW:
            schema["pattern"] = RAW[key["source"]]
        if key["nothing_refused"]:
            schema["minLength"] = 1
    if key["required"]:
        schema.pop("default", None)
    schema["x-operand"] = key["operands"]
    add_meaning(endpoint, key["operands"], schema, kind)
    if found := meaning_of(endpoint, key["operands"]):
        schema["x-means"] = SHORT.get(found[0], found[0][0].lower() + found[0][1:])
    return schema, more


def check_example(where, schema, value):
    types = {"integer": int, "string": str, "boolean": bool, "array": list}
    fits = isinstance(value, types[schema["type"]]) and value in schema.get("enum", [value])
    if fits and schema["type"] == "integer":
        fits = schema["minimum"] <= value <= schema["maximum"]
    if not fits or len(str(value)) > schema.get("maxLength", 10**6):
        raise Wrong(f"{where}: the example {value!r} does not fit {schema}")


def describe_key(endpoint, key, endpoints, words):
    schema, more = key_schema(endpoint, key, endpoints)
    example, text = words.find(identity(endpoint), key["name"])
    if text is None or example is None:
        raise Wrong(f"{identity(endpoint)}: the key {key['name']} lacks a text or an example")
    check_example(f"{identity(endpoint)} {key['name']}", schema, example)
    return " ".join([with_meaning(endpoint, key["operands"][0], text, key["type"]), *more]), schema, example


def object_of(described):
    """The schema of a JSON or form body."""
    schema = {"type": "object", "additionalProperties": False, "properties": {}}
    required = [key["name"] for key, _text, _schema, _example in described if key["required"]]
    if required:
        schema["required"] = required
    for key, text, key_schema_, _example in described:
        schema["properties"][key["name"]] = {"description": text, **key_schema_}
    return schema


def describe_request(endpoint, operation, endpoints, words):
    described = [(key, *describe_key(endpoint, key, endpoints, words)) for key in endpoint["keys"]]
    of = lambda *sources: [row for row in described if row[0]["source"] in sources]
    examples = lambda rows: {key["name"]: example for key, _text, _schema, example in rows}
    for key, text, schema, example in of("exact", "loose", "decoded"):
        parameter = {"name": key["name"], "in": "query", "description": text, "required": key["required"]}
        if schema["type"] == "string" and key["source"] != "decoded":
            parameter["allowReserved"] = True
        parameter.update({"schema": schema, "example": example, "x-lookup": key["source"]})
        operation.setdefault("parameters", []).append(parameter)
    for source, media in (("json", "application/json"), ("form", "application/x-www-form-urlencoded")):
        if rows := of(source):
            content = {"schema": object_of(rows), "example": examples(rows)}
            if source == "form":
                content["encoding"] = {key["name"]: {"allowReserved": True} for key, *_ in rows}
            operation["requestBody"] = {"required": endpoint["needs_body"], "content": {media: content}}
    if rows := of("query-json"):
        operation["x-query-string"] = {"required": endpoint["needs_body"], "schema": object_of(rows),
                                       "example": example_query(operation, examples(rows))}
    check_lookups([key for key, *_ in of("exact", "loose", "decoded")], operation)


def check_lookups(keys, operation):
    """The loose lookup finds a key's name anywhere in a piece: in the example's order it must find the right piece."""
    pieces = example_query(operation).split("&")
    for index, key in enumerate(keys):
        if key["source"] == "loose" and any(key["name"] in piece for piece in pieces[:index]):
            raise Wrong(f"{operation['operationId']}: {key['name']} is found in another piece of {pieces}")


# Answers

def source_of(endpoint, fact):
    code = "code" in fact
    source = {} if code else {"key": fact["key"]} if "key" in fact else {"operand": fact["operand"]}
    if "operand" in fact and len(endpoint["calls"]) > 1:
        source["call"] = fact["place"][0]
    if "codes" in fact:
        word = lambda value: value if isinstance(value, str) else json.dumps(value)
        source["code" if code else "words"] = {word(value): codes for value, codes in fact["codes"].items()}
        source["otherwise"] = word(fact["otherwise"])
    if fact["type"] == "ipv4":
        source["conversion"] = "ipv4"
    return source


def number_schema(values):
    if min(values) < 0:
        return INT32
    return {65535: UINT16, 2**32 - 1: UINT32}.get(max(values), UINT64)


def member_schema(endpoint, fact, words):
    kind = fact["type"]
    if kind == "object":
        return object_schema({name: described_member(endpoint, name, part, words) for name, part in fact["members"].items()})
    if kind == "count":
        return {**number_schema(fact["values"]), "x-source": {"operand": fact["operand"], "count": True}}
    if kind == "number":
        schema = dict(number_schema(fact["values"]))
    elif kind == "ids":
        schema = dict(VLAN_IDS)
    elif kind == "boolean":
        schema = {"type": "boolean"}
    elif kind == "words":
        schema = {"type": "string", "enum": [*fact["codes"], fact["otherwise"]]}
    elif kind == "ipv4":
        schema = {"type": "string", "format": "ipv4"}
    else:
        schema = {"type": "string"}
        if "key" in fact:
            schema["maxLength"] = next(key["size"] - 1 for key in endpoint["keys"] if key["name"] == fact["key"])
        elif isinstance(endpoint["text_sizes"][fact["operand"]], int):
            schema["maxLength"] = fact["longest"]
    schema["x-source"] = source_of(endpoint, fact)
    add_meaning(endpoint, [fact.get("operand")], schema, kind)
    return schema


def summary(line):
    """The first sentence, without its full stop."""
    return line.split(". ")[0].rstrip(".")


def described_member(endpoint, name, fact, words):
    _example, text = words.find(identity(endpoint), name)
    if text is None and len(endpoint["members"]) > 1:
        raise Wrong(f"{identity(endpoint)}: the member {name} lacks a text")
    text = with_meaning(endpoint, fact.get("operand"), text or summary(words.line(identity(endpoint))) + ".", fact["type"])
    return {"description": text, **member_schema(endpoint, fact, words)}


def object_schema(members):
    """An object that has exactly these members."""
    return {"type": "object", "additionalProperties": False, "required": list(members), "properties": members}


def resp_schema(codes, message):
    code = {"type": "integer", **({"const": codes[0]} if len(codes) == 1 else {"enum": codes})}
    text = lambda const: {"type": "string", "const": const}
    return object_schema({"respCode": code, "respMsg": text(message), "status": text("success" if codes == [0] else "fail")})


def component_name(message):
    return "".join(word[0].upper() + word[1:] for word in re.findall(r"\w+", message))


def add_component(schemas, codes, message):
    name = component_name(message)
    schema = object_schema({"resp": resp_schema(codes, message)})
    if schemas.setdefault(name, schema) != schema:
        raise Wrong(f'"{message}" stands for different codes in different endpoints')
    return {"$ref": f"#/components/schemas/{name}"}


def success_schema(endpoint, words, schemas):
    if not endpoint["members"]:
        return add_component(schemas, [0], endpoint["results"][0])
    members = {name: described_member(endpoint, name, fact, words) for name, fact in endpoint["members"].items()}
    return object_schema({endpoint["data"]: object_schema(members), "resp": {"$ref": "#/components/schemas/SuccessResp"}})


def add_failures(components, failures):
    """References to the failures; codes with the same message share one."""
    by_message = {}
    for code, message in failures.items():
        by_message.setdefault(message, []).append(code)
    return [add_component(components, codes, message) for message, codes in by_message.items()]


def describe_answer(endpoint, words, components):
    """Status 200: the success, or one of the endpoint's failures. Failures with the same message share a schema."""
    schemas = []
    if 0 in endpoint["results"]:
        schemas.append(success_schema(endpoint, words, components))
    failures = {code: message for code, message in endpoint["results"].items() if code != 0}
    for name, codes in FAILURES.items():
        if set(codes) <= set(failures):
            group = add_failures(components, {code: failures.pop(code) for code in codes})
            components[name] = {"oneOf": group}
            schemas.append({"$ref": f"#/components/schemas/{name}"})
    schemas += add_failures(components, failures)
    return {"description": "The outcome, and the data of a success. Failures come with status 200 as well.",
            "content": {"application/json": {"schema": schemas[0] if len(schemas) == 1 else {"oneOf": schemas}}}}


# Operations

def describe_endpoint(endpoint, endpoints, words, components):
    line = words.line(identity(endpoint))
    operation = {"operationId": f"{endpoint['method'].lower()}-{directory(endpoint).replace('/', '-')}-{endpoint['name']}",
                 "tags": [directory(endpoint)], "summary": summary(line)}
    if ". " in line:
        operation["description"] = line
    if not endpoint["calls"]:
        operation["deprecated"] = True
    describe_request(endpoint, operation, endpoints, words)
    if "x-query-string" in operation:
        target = f"$base/{directory(endpoint)}/{endpoint['name']}?{operation['x-query-string']['example']}"
        operation["description"] = f"{line} `curl -g -X {endpoint['method']} -H \"$session\" '{target}'`"
    operation["responses"] = {"200": describe_answer(endpoint, words, components),
                              "403": {"$ref": "#/components/responses/Refused"}}
    operation["x-operations"] = endpoint["calls"]
    for name in ("constants", "text_sizes"):
        if endpoint[name]:
            operation["x-" + name.replace("_", "-")] = endpoint[name]
    operation["x-open-codes"] = endpoint["open_codes"]
    operation["x-line-end"] = endpoint["line_ends"]
    return operation


def read_scene():
    for line in open(os.path.join(HERE, "scene.txt"), encoding="utf-8"):
        if not line.startswith("#"):
            method, target, body = re.fullmatch(r"(\S+) (\S+) ?(.*)\n", line).groups()
            yield {"method": method, "target": f"{BASE}/{target}", "body": body}


def describe(endpoints, words):
    paths, schemas = {}, {}
    for endpoint in endpoints:
        methods = paths.setdefault(f"/{directory(endpoint)}/{endpoint['name']}", {})
        methods[endpoint["method"].lower()] = describe_endpoint(endpoint, endpoints, words, schemas)
    words.check_all_used()
    schemas["SuccessResp"] = resp_schema([0], "Success")
    tags = dict.fromkeys(directory(endpoint) for endpoint in endpoints)
    return {
        "openapi": "3.1.0",
        "info": {"title": "Switching", "version": "2",
                 "description": open(os.path.join(HERE, "info.md"), encoding="utf-8").read()},
        "servers": [{"url": BASE, "description": "At the switch's own web server"}],
        "security": [{"session": []}],
        "tags": [{"name": tag, "description": words.heads[tag.replace("/", "-")]} for tag in tags],
        "paths": paths,
        "components": {
            "securitySchemes": {"session": {"type": "apiKey", "in": "header", "name": "Session",
                                            "description": "The token that the web login hands out."}},
            "responses": {"Refused": {"description": "No good session, or a role that may not do this. The body is empty."}},
            "schemas": dict(sorted(schemas.items()))},
        "x-scene": list(read_scene())}


# Examples

def play(description, build):
    """
    Takes the answers of the examples from a switch in the state of the scene. Reads come first, as they change nothing.
    A write that fails after other writes is sent again in a new scene. (The proof sets the scene before every write.)
    """
    failures = []
    with Switch(build) as switch:
        set_scene(switch, description["x-scene"])
        for path, method, operation in sorted(operations_of(description), key=lambda row: row[1] != "GET"):
            request = (method, *example_request(path, operation))
            answer = json.loads(switch.request(*request))
            if method != "GET" and operation["x-operations"] and answer != SUCCESS:
                set_scene(switch, description["x-scene"])
                answer = json.loads(switch.request(*request))
            if answer["resp"]["respCode"] != 0 and operation["x-operations"]:
                failures.append(f"{request}: {answer['resp']}")
            example_answer(operation)["example"] = answer
    if failures:
        raise Wrong("Examples fail:\n" + "\n".join(failures))


def keep_answers(description, old):
    """Keeps the answer of every example whose request has not changed."""
    answers = {(method, example_request(path, operation)): example_answer(operation)
               for path, method, operation in operations_of(old)}
    for path, method, operation in operations_of(description):
        content = answers.get((method, example_request(path, operation)), {})
        if "example" not in content:
            raise Wrong(f"The example of {method} {path} has no answer yet: run describe.py BUILD --play")
        example_answer(operation)["example"] = content["example"]


def pretty(value, indent="", before=0):
    """JSON; a value that fits into the rest of its line stands there. `before`: characters already in the line."""
    line = json.dumps(value, ensure_ascii=False)
    if len(indent) + before + len(line) <= 119 or not value or not isinstance(value, (dict, list)):
        return line
    inner = indent + "  "
    if isinstance(value, list):
        rows = [pretty(item, inner) for item in value]
    else:
        rows = [f"{json.dumps(key)}: {pretty(item, inner, len(key) + 4)}" for key, item in value.items()]
    begin, end = "[]" if isinstance(value, list) else "{}"
    return begin + "\n" + ",\n".join(inner + row for row in rows) + "\n" + indent + end


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with("api_recorder", *PROGRAM))
    mode = arguments.add_mutually_exclusive_group()
    for name in "--write", "--play":
        mode.add_argument(name, dest="mode", action="store_const", const=name)
    arguments.set_defaults(mode="--check")
    options = arguments.parse_args()
    build, mode = options.build, options.mode
    meanings.update(read_meanings(build))
    try:
        description = describe(record(os.path.join(build, "api_recorder")), Words(os.path.join(HERE, "words")))
        if mode == "--play":
            play(description, build)
        else:
            keep_answers(description, load())
    except (Unclear, Wrong, SceneFailed) as wrong:
        sys.exit(f"describe.py: {wrong}")
    text = pretty(description) + "\n"
    if mode != "--check":
        open(DESCRIPTION, "w", encoding="utf-8").write(text)
    elif text != open(DESCRIPTION, encoding="utf-8").read():
        sys.exit("api/openapi.json does not fit the handlers and the texts: run api/describe.py BUILD --write, and read the "
                 "difference.")


if __name__ == "__main__":
    main()
