"""facts.py - finds out from the recorder's runs what an endpoint does: its keys, its operations, its answers.

Nothing here knows a particular endpoint. A key reaches the operands that change when the key changes. A member of an
answer follows the one thing that it changes with. What remains unclear is an error, never a guess.
"""
import ipaddress
import json
import subprocess

MAPPED = {0: 0, -22: 10003, -24: 10011, -28: 17002, -29: 10023}
OPEN_CODES = range(-29, 0)


class Unclear(Exception):
    """The runs do not show something that the description needs."""


def record(recorder):
    """The recorder's endpoints, each with its keys and runs."""
    output = subprocess.run([recorder], check=True, capture_output=True, text=True).stdout
    return [read_endpoint(json.loads(line)) for line in output.splitlines()]


def read_endpoint(raw):
    endpoint = {"path": raw["path"], "name": raw["name"], "method": raw["method"], "keys": raw["keys"]}
    where = f"{raw['method']} {raw['path']}/{raw['name']}"
    runs = raw["runs"]
    try:
        facts = Runs(runs)
        endpoint["calls"] = [call[0] for call in facts.base["calls"]]
        endpoint["members"], endpoint["data"] = facts.members(raw["keys"])
        for key in endpoint["keys"]:
            facts.describe_key(key)
        endpoint["keys"].sort(key=lambda key: key["place"])  # the compiler chooses the order of the look-ups
        endpoint["constants"] = facts.constants(endpoint["keys"])
        endpoint["text_sizes"] = facts.text_sizes()
        endpoint["open_codes"] = facts.open_codes()
        endpoint["results"] = facts.results()
        endpoint["line_ends"] = facts.line_ends()
        endpoint["needs_body"] = not facts.asked(facts.named["no body"]) and bool(endpoint["calls"])
    except Unclear as unclear:
        raise Unclear(f"{where}: {unclear}") from None
    return endpoint


def operands(run):
    """The operands of a run, by (call, operand): (name, kind, value, size, marker)."""
    return {(c, o): tuple(operand) for c, call in enumerate(run["calls"]) for o, operand in enumerate(call[1])}


def ipv4(number):
    return str(ipaddress.IPv4Address(number.to_bytes(4, "little")))


class Runs:
    def __init__(self, runs):
        self.runs = runs
        self.named = {run["what"]: run for run in runs}
        self.base = runs[0]
        self.sent = operands(self.base)

    @staticmethod
    def asked(run):
        return bool(run["calls"])

    def of_key(self, key, what):
        return self.named[f"{what} {key['name']}"]

    # Keys

    def describe_key(self, key):
        """Adds to a key which operands it reaches, its default, and what its values become."""
        other = operands(self.of_key(key, "other"))
        places = [place for place in self.sent if other.get(place, self.sent[place])[2] != self.sent[place][2]]
        if not places:
            raise Unclear(f"the key {key['name']} reaches no operand")
        key["operands"] = list(dict.fromkeys(self.sent[place][0] for place in places))
        if len(places) != sum(row[0] in key["operands"] for row in self.sent.values()):
            raise Unclear(f"the key {key['name']} reaches an operand of one operation, but not of another")
        key["place"] = places[0]
        value = lambda run: operands(run).get(places[0], (None,) * 3)[2]
        absent = self.of_key(key, "absent")
        key["required"] = not self.asked(absent)
        key["nothing_refused"] = not self.asked(self.of_key(key, "nothing"))
        key["default"] = None if key["required"] else value(absent)
        reached = value(self.base)
        kinds = {"uint": "number", "uint copy": "number", "int32": "number", "int32 copy": "number",
                 "true": "boolean", "ids": "ids", "ipv4": "ipv4", "text": "text", "long text": "text",
                 "name": "words", "name or number": "words"}
        key["type"] = kinds[key["rule"]]
        if key["type"] == "words":
            self.describe_words(key, value)
        elif key["type"] == "text" and reached != key["textMarker"]:
            raise Unclear(f"the text of {key['name']} arrives as {reached}")
        elif key["type"] in ("number", "ipv4"):
            largest = value(self.of_key(key, "largest"))
            if reached != key["numberMarker"] or largest not in (65535, 2**32 - 1):
                raise Unclear(f"the number of {key['name']} arrives as {reached}, the largest as {largest}")
            key["bits"] = 16 if largest == 65535 else 32

    def describe_words(self, key, value):
        """Adds the codes of the words, and whether the key takes a number as well."""
        key["codes"] = {}
        for row, (code, word) in enumerate(key["names"]):
            if value(self.of_key(key, f"name{row}")) != code:
                raise Unclear(f"the word {word} of {key['name']} does not arrive as its code")
            key["codes"][word] = code
        unknown = value(self.of_key(key, f"name{len(key['names'])}"))
        if not key["required"] and unknown != key["default"]:
            raise Unclear(f"an unknown word for {key['name']} is not what a missing one is")
        key["number_too"] = key["rule"] == "name or number"

    # Operations

    def constants(self, keys):
        """The values of operands that no key reaches: a number, or one for each operation. Preset outputs are among them."""
        reached = {name for key in keys for name in key["operands"]}
        constants = {}
        for (name, kind, value, *_) in self.sent.values():
            if name not in reached and (kind in ("in", "list") or kind.startswith("out") and value):
                constants.setdefault(name, []).append(value)
        return {name: values[0] if len(values) == 1 else values for name, values in constants.items()}

    def text_sizes(self):
        """The size each text's descriptor states: a number, the length of the text ("length") or one more ("length+1")."""
        sizes = {}
        for place, (name, kind, *_) in self.sent.items():
            if kind != "text":
                continue
            seen = {(row[place][3], len(row[place][2])) for row in map(operands, self.runs) if place in row}
            stated = {size for size, _length in seen}
            if len(stated) == 1:
                sizes[name] = stated.pop()
            elif all(size == length for size, length in seen):
                sizes[name] = "length"
            elif all(size == length + 1 for size, length in seen):
                sizes[name] = "length+1"
            else:
                sizes[name] = self.size_by_count(place, name, stated)
        return sizes

    def size_by_count(self, place, name, stated):
        """A size that follows the last output of the first call: `each` bytes for one, and one byte more."""
        count, *_, marker = self.base["calls"][0][1][-1]
        each, rest = divmod(self.sent[place][3] - 1, marker)
        if rest or place[0] == 0:
            raise Unclear(f"the size of {name} follows nothing known")
        return {"operand": count, "each": each, "plus": 1, "least": min(stated)}

    # Results

    def failures(self):
        """The runs in which an operation failed, with its code."""
        for run in self.runs:
            if run["what"].startswith("code "):
                yield int(run["what"].split()[1]), run

    def open_codes(self):
        if not self.asked(self.base):
            return "none"
        pairs = [(code, run["code"]) for code, run in self.failures()]
        if all(result == 0 for _code, result in pairs):
            return "never"
        if all(result == code for code, result in pairs):
            return "raw"
        if all(result == (0 if code == 0 else 10003) for code, result in pairs):
            return "invalid"
        if all(result == MAPPED.get(code, 10000) for code, result in pairs):
            return "mapped"
        return "own"

    def results(self):
        """Every result code that the endpoint answers to OpEN's codes (-29 to 0), with its message."""
        seen = {}
        for run in self.runs:
            if not (run["what"].startswith("code ") and int(run["what"].split()[1]) not in range(-29, 1)):
                seen[run["code"]] = run["message"]
        return dict(sorted(seen.items(), key=lambda row: (row[0] != 0, row[0])))

    def line_ends(self):
        ends = {}
        for run in self.runs:
            refused = self.asked(self.base) and not self.asked(run)
            when = "success" if run["code"] == 0 else "refused" if refused else "failure"
            if ends.setdefault(when, run["lineEnd"]) != run["lineEnd"]:
                raise Unclear(f"the line end of {when} is not always the same")
        return {when: ends[when] for when in ("success", "failure", "refused") if when in ends}

    # Members of answers

    def members(self, keys):
        """The members of the data object in their order, and its name; ({}, "") without data."""
        answers = [run for run in self.runs if run["code"] == 0]
        named = {(run["name"], tuple(run.get("data", {}))) for run in answers}
        if not named:
            return {}, ""
        if len(named) != 1:
            raise Unclear("the answers have different members")
        name, members = named.pop()
        return {member: self.member(member, keys) for member in members}, name

    def member(self, member, keys):
        base = self.base["data"][member]
        if isinstance(base, dict):
            operand = self.follows(member, keys)
            return {"type": "object", "members": {
                "numEntries": {"type": "count", "values": self.values(member, "numEntries"), **operand},
                "ids": {"type": "ids", **operand}}}
        fact = self.follows(member, keys)
        values = self.values(member)
        marker = self.sent[fact["place"]][4] if "operand" in fact else None
        if isinstance(base, list):
            fact["type"] = "ids"
        elif isinstance(base, (int, float)) and not isinstance(base, bool):
            fact.update(type="number", values=values)
        elif "operand" in fact and base == marker:
            fact.update(type="text", longest=max(map(len, values)))
        elif "key" in fact and base in [key["textMarker"] for key in keys]:
            fact["type"] = "text"
        elif "operand" in fact and isinstance(marker, int) and base == ipv4(marker):
            fact["type"] = "ipv4"
        else:
            fact.update(self.words(member, fact, base))
        if fact["type"] == "number" and "operand" in fact and base != marker:
            raise Unclear(f"the member {member} is not the number of the switch")
        return fact

    def values(self, member, part=None):
        data = [run["data"][member] for run in self.runs if run["code"] == 0]
        return [value[part] for value in data] if part else data

    def follows(self, member, keys):
        """The one thing that the member changes with: an output, a key, or the operation's code."""
        base = self.base["data"][member]
        differs = lambda run: run["code"] == 0 and run["data"][member] != base
        found = []
        for place, (name, *_) in self.sent.items():
            if any(differs(run) for run in self.runs if run["what"].startswith("output %d %d " % place)):
                found.append({"operand": name, "place": place})
        for key in keys:
            if differs(self.of_key(key, "other")):
                found.append({"key": key["name"]})
        if any(differs(run) for _code, run in self.failures()):
            found.append({"code": True})
        if len(found) != 1:
            raise Unclear(f"the member {member} follows {found or 'nothing'}")
        return found[0]

    def words(self, member, fact, base):
        """The codes of each word (or boolean) of a member; `otherwise` is the word for every other code."""
        codes = {}
        if "operand" in fact:
            otherwise = base
            rows = [(run["what"].split()[3], run) for run in self.runs
                    if run["what"].startswith("output %d %d " % fact["place"])]
            pairs = [(int(number), run) for number, run in rows if number != "largest"]
        elif "code" in fact:
            pairs = list(self.failures())
            otherwise = self.named["code 1"]["data"][member] if self.named["code 1"]["code"] == 0 else \
                next(run["data"][member] for code, run in pairs if code == 0)
        else:
            key = {"name": fact["key"]}
            runs = [run for run in self.runs if run["what"].split()[-1] == key["name"] and run["calls"]]
            place = next(p for p, row in self.sent.items() if operands(self.of_key(key, "other"))[p] != row)
            pairs = [(operands(run)[place][2], run) for run in runs + [self.base]]
            otherwise = self.of_key(key, "nothing")["data"][member]
        for code, run in sorted(pairs, key=lambda pair: pair[0]):
            if run["code"] != 0:
                continue
            word = run["data"][member]
            if word != otherwise and code not in codes.setdefault(word, []):
                codes[word].append(code)
        kind = "boolean" if isinstance(base, bool) else "words"
        return {"type": kind, "codes": codes, "otherwise": otherwise}
