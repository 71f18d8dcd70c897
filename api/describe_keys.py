"""describe_keys.py - describes the request of an operation: its keys, their schemas and examples."""
from meanings import (
    INT32, UINT16, UINT32, VLAN_IDS, add_meaning, identity, meaning_of, with_meaning)
from words import Wrong
from description import example_query  # of tools/, whose path describe.py adds

RAW = {"exact": "^[^&/]*$", "loose": "^[^&/]*$", "form": "^[^&]*$"}  # what a text that is not decoded can hold
SHORT = {"VlanId": "vlan", "VlanOrNone": "vlan", "VlanIds": "vlans"}  # values of x-means that are not the meaning's name


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
