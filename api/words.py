"""words.py - reads the texts about the endpoints in words/: a file for each directory, and a glossary of keys. The format:

    METHOD name: text              an endpoint
        key: text                  one of its keys or members
        key = example              the key's value in this endpoint's example, as JSON; ": text" may follow
    key = example : text           in the glossary: a key of requests, wherever it occurs
    member : text                  in the glossary: a member of answers, wherever it occurs

A line that begins with "#" is a comment. The comment at the head of a file describes its directory.
"""
import json
import os
import re


class Wrong(Exception):
    """A text is missing, or describes something that does not exist."""


def split_value(text, where):
    """The JSON value at the start of a text, and the text after its colon."""
    try:
        value, end = json.JSONDecoder().raw_decode(text)
    except ValueError:
        raise Wrong(f"{where}: this is not a JSON value: {text}") from None
    rest = text[end:].strip()
    if rest and not rest.startswith(":"):
        raise Wrong(f"{where}: a colon is missing after the value: {text}")
    return value, rest[1:].strip() or None


class Words:
    def __init__(self, directory):
        self.heads = {}     # directory: its description
        self.lines = {}     # (directory, method, name): text
        self.keys = {}      # (directory, method, name, key): (example or None, text or None)
        self.glossary = {}  # key: (example or None, text)
        self.used = set()
        for name in sorted(os.listdir(directory)):
            if name == "glossary.txt":
                self.read_glossary(os.path.join(directory, name))
            elif name.endswith(".txt"):
                self.read_family(os.path.join(directory, name), name[:-4])

    def read_glossary(self, path):
        for number, line in enumerate(open(path, encoding="utf-8"), 1):
            if line.strip() and not line.startswith("#"):
                match = re.fullmatch(r"(\w+) (= (.*)|: (.*))\n", line)
                if not match or match[1] in self.glossary:
                    raise Wrong(f"{path}:{number}: a line that is not valid, or is there twice: {line}")
                self.glossary[match[1]] = split_value(match[3], f"{path}:{number}") if match[3] else (None, match[4])

    def read_family(self, path, family):
        endpoint = None
        head = []
        for number, line in enumerate(open(path, encoding="utf-8"), 1):
            where = f"{path}:{number}"
            if line.startswith("#"):
                if not endpoint:
                    head.append(line[1:].strip())
                continue
            inner = re.fullmatch(r"    (\w+)( = (.*)|: (.*))\n", line)
            outer = re.fullmatch(r"([A-Z]+) ([a-z0-9-]+): (.+)\n", line)
            if inner and endpoint:
                place, value = endpoint + (inner[1],), (None, inner[4])
                if inner[3]:
                    value = split_value(inner[3], where)
                table = self.keys
            elif outer:
                place = endpoint = (family, outer[1], outer[2])
                value, table = outer[3], self.lines
            elif line.strip():
                raise Wrong(f"{where}: a line that is not valid: {line}")
            else:
                continue
            if place in table:
                raise Wrong(f"{where}: there twice: {line}")
            table[place] = value
        self.heads[family] = " ".join(head)

    def line(self, endpoint):
        self.used.add(endpoint)
        if endpoint not in self.lines:
            raise Wrong(f"There is no text for {endpoint[1]} {endpoint[0]}/{endpoint[2]}")
        return self.lines[endpoint]

    def find(self, endpoint, key):
        """The example and the text of a key or member: the endpoint's, else the glossary's, else None."""
        example, text = self.keys.get(endpoint + (key,), (None, None))
        common_example, common_text = self.glossary.get(key, (None, None))
        self.used.add(endpoint + (key,))
        self.used.add(key)
        return (common_example if example is None else example), text or common_text

    def check_all_used(self):
        unused = [place for table in (self.lines, self.keys, self.glossary) for place in table if place not in self.used]
        if unused:
            raise Wrong(f"There are texts for what does not exist: {unused}")
