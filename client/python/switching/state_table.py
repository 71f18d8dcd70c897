"""state_table.py - state.toml together with the description: the tables and settings that are the state of a switch,
how each is read, set and removed, and in which order."""
import functools
import graphlib
import ipaddress
import os
import re
import tomllib

from . import description
from .description import Wrong

HERE = os.path.dirname(os.path.abspath(__file__))
PLACES = (os.path.join(HERE, "state.toml"),                            # installed
          os.path.join(HERE, "../../../api/state.toml"))               # in a checkout


def numbers_of(text):
    """The numbers of a list as text: "1,3-5". None: it is no such list."""
    pieces = [re.fullmatch(r"(\d{1,5})(?:-(\d{1,5}))?", piece) for piece in text.split(",")] if text else []
    if not all(pieces):
        return None
    return sorted({number for piece in pieces for number in range(int(piece[1]), int(piece[2] or piece[1]) + 1)})


def text_of(numbers):
    """The list as the switch writes it: ascending, three or more in a row as a range."""
    pieces = []
    for number in sorted(numbers):
        if pieces and pieces[-1][-1] == number - 1:
            pieces[-1].append(number)
        else:
            pieces.append([number])
    return ",".join(f"{run[0]}-{run[-1]}" if len(run) > 2 else ",".join(map(str, run)) for run in pieces)


def canonical(key, value):
    """The value of a key in the one form that states use: names for numbers that have one, lists as text."""
    if key.means in ("interfaces", "vlans"):
        numbers = numbers_of(value) if isinstance(value, str) else value
        return value if numbers is None else text_of(numbers)
    if key.means in ("macAddress", "oui") and isinstance(value, str):
        return value.upper().replace("-", ":")
    if key.names:
        return next((name for name, code in key.names.items() if value in (name, code, str(code))), value)
    return value


def sendable(key, value):
    """The value as a request takes it."""
    if key.schema["type"] != "array" or isinstance(value, list):
        return value
    numbers = [value] if isinstance(value, int) else numbers_of(value)
    return value if numbers is None else numbers


def checked(key, value):
    """The value of a state's file in its one form. Raises Wrong: a switch would take some wrong values for others."""
    kind = key.schema["type"]
    wanted = {"integer": (int, str), "string": str, "boolean": bool, "array": (list, str)}[kind]
    if not isinstance(value, wanted) or isinstance(value, bool) and kind != "boolean":
        words = {"integer": "a number", "string": "text", "boolean": "true or false", "array": "a list of numbers"}
        raise key.wrong(value, words[kind])
    if kind == "array" and sendable(key, value) == value and isinstance(value, str):
        raise key.wrong(value, 'a list of numbers, as "1,3-5"')
    if key.means == "ipv4Address" and not is_ipv4(value):
        raise key.wrong(value, "an IPv4 address")
    sent = key.value(sendable(key, value))
    return canonical(key, sent if kind == "integer" else value)


def is_ipv4(text):
    try:
        return bool(ipaddress.IPv4Address(text))
    except ValueError:
        return False


def fitting(operation, keys):
    """Those of the {name or meaning: value} that the operation has."""
    return {name: value for name, value in keys.items() if operation.has(name)}


class Setting:
    """A setting of each entry of a table."""

    def __init__(self, table, name, row, known):
        self.table, self.name, path = table, name, name.split()[0]
        self.after, self.needs, self.follows = (row.get(word, []) for word in ("after", "needs", "follows"))
        self.needed_tables = {name for name in self.needs if name in known.toml["table"]}
        self.when, self.sent = row.get("when", {}), row.get("sent", {})
        self.new, self.optional, self.per = row.get("new"), row.get("optional", False), row.get("per")
        self.elements, self.walk = row.get("elements"), row.get("walk")
        self.set = known.operation_of(row.get("set"), ("PUT", "POST"), path)
        self.remove = known.operation_of(row.get("remove"), ("DELETE",), path, "remove" in row or bool(self.elements))
        self.get = None if self.walk else known.operation_of(row.get("get"), ("GET",), path)
        self.parts = self.parts_of(row.get("parts"), known.each)
        taken = [*table.keys, *self.sent, *(["interface"] if self.per else []), *self.part_keys()]
        self.keys = [key for key in self.set.keys if key.name not in taken and key.means not in taken]
        if self.elements:
            self.keys = [self.set.key_for(self.elements, {})]
        self.members = self.members_of(row.get("members", {}))

    def parts_of(self, parts, each):
        """{part: the keys that choose it, and perhaps `member`}. Without parts the only one is None."""
        for key in self.set.keys:
            if key.name in each:
                return {word: {key.name: word} for word in each[key.name]}
        return parts or {None: {}}

    def part_keys(self):
        return {name for keys in self.parts.values() for name in keys if name != "member"}

    def members_of(self, named):
        """{key: member}: as stated, else of the same name, else the only one."""
        if self.walk:
            return {}
        answered = list(self.get.success)
        names = {key.name: named.get(key.name, key.name) for key in self.keys}
        return {key: name if name in answered else answered[0] for key, name in names.items()}

    def value(self, data, part):
        """The value in the data of an answer, in the form of states."""
        member = self.parts.get(part, {}).get("member")
        values = {key.name: canonical(key, data[member or self.members[key.name]]) for key in self.keys}
        return self.plain(values)

    def is_of(self, tables):
        """Whether a state with these tables speaks of the setting also where it does not name it."""
        return not self.needed_tables or not self.needed_tables.isdisjoint(tables)

    def plain(self, values):
        return values[self.keys[0].name] if len(self.keys) == 1 else values

    def given(self, value):
        """{key: value} of a value of a state."""
        return {self.keys[0].name: value} if len(self.keys) == 1 else value

    def request(self, operation, entity, part, value):
        """The keys with which the operation sets or removes this value."""
        keys = {**self.table.entity_keys(entity), **{name: word for name, word in self.parts.get(part, {}).items()
                                                     if name != "member"}}
        if self.per:
            keys["interface"] = part
        keys.update({name: sendable(self.set.key_for(name, {}), one) for name, one in self.given(value).items()})
        return fitting(operation, keys)


class Table:
    """Entries with the same keys, and settings of each."""

    def __init__(self, name, row, known):
        self.name, self.row = name, row
        self.keys = row.get("keys", [])
        self.walk, self.kind, self.of = row.get("walk"), row.get("kind"), row.get("of")
        self.removed_last = row.get("removed") == "last"
        self.make = self.remove = None
        self.values = []  # keys of the value of an entry
        if self.keys and name != "interfaces" and "count" not in row:
            self.make = known.operation_of(row.get("make"), ("POST",), name)
            self.remove = known.operation_of(row.get("remove"), ("DELETE",), name)
            self.values = [key for key in self.make.keys if key.name not in self.keys and key.means not in self.keys]
        self.ports = row.get("ports", {})
        self.port_settings = set(self.ports.get("settings", []))
        names = [*row.get("settings", []), *self.port_settings]
        self.settings = {one: Setting(self, one, known.rows.get(one, {}), known) for one in sorted(names)}

    def entity_keys(self, entity):
        return dict(zip(self.keys, entity))

    def value(self, data):
        """The value of an entry in the data of a step of a walk."""
        values = {key.name: canonical(key, member_of(data, key.name)) for key in self.values}
        return self.plain(values)

    def plain(self, values):
        return {} if not values else next(iter(values.values())) if len(values) == 1 else values

    def given(self, value):
        return {} if not self.values else {self.values[0].name: value} if len(self.values) == 1 else value

    def request(self, operation, entity, value):
        """The keys with which the operation makes or removes this entry."""
        return fitting(operation, {**self.entity_keys(entity), **self.given(value)})

    def key(self, number):
        """The description of an entry's key."""
        return (self.make or next(iter(self.settings.values())).set).key_for(self.keys[number], {})

    def entity(self, texts):
        """The keys of an entry, of the texts under which a file has it."""
        return tuple(canonical(self.key(number), self.key(number).value(text)) for number, text in enumerate(texts))


def member_of(data, key):
    """The member of a step of a walk that stands for a key; the first one, if none has its name."""
    return next((data[name] for name in (key, description.next_name(key)) if name in data), next(iter(data.values())))


class StateTable:
    def __init__(self, known, path=None):
        with open(path or next((place for place in PLACES if os.path.exists(place)), PLACES[0]), "rb") as file:
            self.toml = tomllib.load(file)
        self.known = known
        self.version, self.each, self.rows = self.toml["version"], self.toml["each"], self.toml["setting"]
        self.tables = {name: Table(name, row, self) for name, row in self.toml["table"].items()}
        self.settings = {name: setting for table in self.tables.values() for name, setting in table.settings.items()}
        self.ranks = self.ranked()

    def operation_of(self, stated, methods, path, wanted=True):
        """The operation that is stated ("PUT PATH"), else the first of the methods that the path has. None: not
        `wanted`."""
        if not wanted:
            return None
        if not stated:
            method = next((one for one in methods if (one, path) in self.known.operations), methods[0])
            return self.known.operation(method, path)
        return self.known.operation(*stated.split())

    def before(self, setting):
        """The tables and settings that come before this setting."""
        yield setting.table.name
        yield from [*setting.after, *setting.needs, *setting.follows]
        for name in [*setting.needs]:
            yield from self.tables[name].settings if name in self.tables else ()
        if any(key.means in ("vlan", "vlans") for key in setting.keys):
            yield "vlans"

    def ranked(self):
        """{table or setting: its place in the order}. What is independent has the same place."""
        graph = {name: set(self.before(setting)) - {name} for name, setting in self.settings.items()}
        for table in self.tables.values():
            graph.setdefault(table.name, set()).update([table.of] if table.of else [])
            if table.name != "vlans" and any(key.means in ("vlan", "vlans") for key in [
                    *(table.make.keys if table.make else [])]):
                graph[table.name].add("vlans")
        ranks = {}
        for name in graphlib.TopologicalSorter(graph).static_order():
            ranks[name] = 1 + max((ranks[one] for one in graph.get(name, ())), default=-1)
        return ranks

    def writing(self):
        """The operations with which tables and settings are set and removed."""
        tables, settings = self.tables.values(), self.settings.values()
        return {str(operation) for operation in [*(one.make for one in tables), *(one.set for one in settings),
                                                 *(one.remove for one in [*tables, *settings])] if operation}


@functools.lru_cache(maxsize=None)
def load():
    return StateTable(description.load())
