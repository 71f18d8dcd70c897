"""meanings.py - what describe_keys.py and describe_answers.py share: the types of numbers, the names of endpoints, and what
numbers mean to the virtual switch.
"""
import json
import re
import subprocess

from words import Wrong

BASE = "/api/v2/switching"
INT32 = {"type": "integer", "format": "int32", "minimum": -2**31, "maximum": 2**31 - 1}
UINT32 = {"type": "integer", "minimum": 0, "maximum": 2**32 - 1}
UINT16 = {"type": "integer", "minimum": 0, "maximum": 65535}
UINT64 = {"type": "integer", "minimum": 0, "maximum": 2**64}  # as JSON numbers are doubles, the largest rounds up
VLAN_IDS = {"type": "array", "maxItems": 4096, "items": UINT16}

meanings = {}  # of operands: (operation, operand): (name of the meaning, meaning)


def directory(endpoint):
    return endpoint["path"].removeprefix(BASE + "/")


def identity(endpoint):
    return directory(endpoint).replace("/", "-"), endpoint["method"], endpoint["name"]


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
