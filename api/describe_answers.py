"""describe_answers.py - describes the answers of an operation: the data of a success, and the failures."""
import json
import re

from facts import MAPPED, OPEN_CODES
from meanings import INT32, UINT16, UINT32, UINT64, VLAN_IDS, add_meaning, identity, with_meaning
from words import Wrong

# Groups of failures that occur together: name of their schema, codes.
FAILURES = {"Failure": sorted({*MAPPED.values(), 10000} - {0}), "OpenFailure": list(OPEN_CODES)}


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
