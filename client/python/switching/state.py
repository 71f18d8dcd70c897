"""state.py - the state of a switch as a dict and as a file. The file says once what many interfaces have in common; the
dict says everything of each."""
import collections
import difflib
import json
import re
from typing import NamedTuple

from . import state_table
from .description import Wrong
from .state_table import numbers_of, text_of

HEAD = "switching state"  # the member with the version
PORTS = "ports"  # how many ports the switch has: interface numbers mean something else on a switch with more or fewer


class Place(NamedTuple):
    """Where a value stands: an entry of a table (setting is ""), or a setting of one, or a part of a setting."""
    table: str
    entity: tuple = ()
    setting: str = ""
    part: object = None

    def __str__(self):
        part = () if self.part is None else (self.part,)
        return " ".join(map(str, [self.table, *self.entity, *([self.setting] if self.setting else []), *part]))


def natural(value):
    """A key to sort by: numbers in texts as numbers."""
    pieces = [piece for piece in re.split(r"(\d+)", str(value)) if piece]
    return [(0, int(piece), "") if piece.isdigit() else (1, 0, piece) for piece in pieces]


class State:
    """The values of a state by their places. `tables` are those of which it speaks, also without an entry."""

    def __init__(self, facts=None, tables=()):
        self.facts, self.tables = dict(facts or {}), set(tables)
        self.ports = None                        # how many the switch has; None: unknown
        self.fixed, self.interfaces = set(), {}  # when read from a switch: entries that stay; {interface: is it a port?}

    @classmethod
    def of(cls, found, name="the state"):
        """The State of a dict, or of a file's path. Raises Wrong where it does not fit the description."""
        if isinstance(found, State):
            return found
        if not isinstance(found, dict):
            found, name = parsed(found), str(found)
        return Reading(name).state(found)

    def dict(self):
        """As a dict: {table: {entry: {setting: value}}}."""
        table = state_table.load()
        found = {HEAD: table.version, **({PORTS: self.ports} if self.ports else {}),
                 **{name: {} for name in sorted(self.tables)}}
        for place in sorted(self.facts, key=natural):
            value = self.facts[place]
            at = found[place.table]
            path = [*map(str, place.entity), *([place.setting] if place.setting else []),
                    *([str(place.part)] if place.part is not None else [])]
            if not place.setting and isinstance(value, dict):
                value = dict(value)
            for key in path[:-1]:
                at = at.setdefault(key, {})
            at.setdefault(path[-1], value)
        return found

    def entries(self, table):
        """The entries of a table: those that are there themselves, and those of which a setting is."""
        return {place.entity for place in self.facts if place.table == table}


def parsed(path):
    def once(pairs):
        for name, count in collections.Counter(name for name, _ in pairs).items():
            if count > 1:
                raise Wrong(f'{path}: "{name}" is there twice in one object')
        return dict(pairs)

    try:
        with open(path, encoding="utf-8-sig") as file:
            return json.load(file, object_pairs_hook=once)
    except OSError as error:
        raise Wrong(f"{path}: {error.strerror}") from None
    except UnicodeDecodeError:
        raise Wrong(f"{path}: this is not a text file") from None
    except json.JSONDecodeError as error:
        raise Wrong(f"{path}:{error.lineno}: this is not JSON: {error.msg}") from None


class Reading:
    """Reads a dict, checking each value. `where` says what is wrong where."""

    def __init__(self, name):
        self.name, self.table = name, state_table.load()

    def wrong(self, place, text):
        return Wrong(f"{self.name}: {place}: {text}" if place else f"{self.name}: {text}")

    def object(self, place, value):
        if not isinstance(value, dict):
            raise self.wrong(place, f"this must be an object ({{...}}), not {json.dumps(value)}")
        return value

    def unknown(self, place, what, name, names):
        close = difflib.get_close_matches(name, names, 3, 0.5)
        close = f"; close to it: {', '.join(close)}" if close else ""
        return self.wrong(place, f'there is no {what} "{name}"{close}')

    def state(self, found):
        if not isinstance(found, dict) or HEAD not in found:
            raise self.wrong("", f'this is not a state of a switch: it has no "{HEAD}"')
        if found[HEAD] != self.table.version:
            version = json.dumps(found[HEAD])
            raise self.wrong(HEAD, f"version {version}, but this program reads version {self.table.version}")
        state = State(tables=[name for name in found if name not in (HEAD, PORTS)])
        state.ports = found.get(PORTS)
        if not isinstance(state.ports, int | None) or isinstance(state.ports, bool):
            raise self.wrong(PORTS, f"this must be a number, not {json.dumps(state.ports)}")
        for name in sorted(state.tables):
            if name not in self.table.tables:
                raise self.unknown("", "section", name, list(self.table.tables))
            table = self.table.tables[name]
            if name == "interfaces":
                self.interfaces(table, found[name], state)
            else:
                self.entries(table, (), self.object(name, found[name]), state)
        return state

    def entries(self, table, entity, found, state):
        place = " ".join([table.name, *entity])
        if len(entity) < len(table.keys):
            for key, inner in found.items():
                if not table.values or len(entity) + 1 < len(table.keys):
                    self.object(f"{place} {key}", inner)
                self.entries(table, (*entity, key), inner, state)
            return
        try:
            entity = table.entity(entity)
        except Wrong as error:
            raise self.wrong(place, error) from None
        if table.values:
            state.facts[Place(table.name, entity)] = self.value(place, table.values, found)
        else:
            if table.make:
                state.facts[Place(table.name, entity)] = {}
            if table.of:  # a rule implies its list
                state.tables.add(table.of)
                state.facts[Place(table.of, entity[:1])] = {}
            self.settings(table, entity, found, state)

    def settings(self, table, entity, found, state):
        for name, value in found.items():
            if name not in table.settings:
                raise self.unknown(" ".join(map(str, [table.name, *entity])), "setting", name, list(table.settings))
            setting, place = table.settings[name], Place(table.name, entity, name)
            if setting.per:
                for number, one in self.spread(place, self.object(place, value)).items():
                    self.keep(state, setting, place._replace(part=number), one)
            elif None in setting.parts:
                self.keep(state, setting, place, value)
            else:
                for part, one in self.object(place, value).items():
                    if part not in setting.parts:
                        raise self.unknown(place, "part", part, list(setting.parts))
                    self.keep(state, setting, place._replace(part=part), one)

    def keep(self, state, setting, place, value):
        if setting.elements and setting.keys[0].means not in ("vlans", "interfaces"):
            values = value if isinstance(value, list) else [value]
            state.facts[place] = sorted({self.value(place, setting.keys, one) for one in values})
        else:
            state.facts[place] = self.value(place, setting.keys, value)

    def value(self, place, keys, value):
        """The value, checked and in its one form."""
        given = value if len(keys) > 1 else {keys[0].name: value}
        if not isinstance(given, dict) or set(given) != {key.name for key in keys}:
            raise self.wrong(place, f"this must be an object with {', '.join(key.name for key in keys)}")
        try:
            values = {key.name: state_table.checked(key, given[key.name]) for key in keys}
        except Wrong as error:
            raise self.wrong(place, error) from None
        return values if len(keys) > 1 else values[keys[0].name]

    def interfaces(self, table, found, state):
        """Of the blocks that name an interface, the one with the fewest interfaces has its setting."""
        blocks = self.object(table.name, found)
        by_setting = collections.defaultdict(dict)
        for text, block in blocks.items():
            for name, value in self.object(f"{table.name} {text}", block).items():
                by_setting[name][text] = value
        for name, values in by_setting.items():
            for number, value in self.spread(Place(table.name, (), name), values).items():
                self.settings(table, (number,), {name: value}, state)

    def spread(self, place, values):
        """{interface: value} of {interfaces as text: value}; of a smaller list where two have the interface."""
        numbers = {text: numbers_of(text) for text in values}
        spread = {}  # interface: its text
        for text in sorted(values, key=lambda text: -len(numbers[text] or ())):
            if not numbers[text]:
                raise self.wrong(place, f'"{text}" is not a list of interfaces, as "1,3-5" is')
            for number in numbers[text]:
                other = spread.get(number)
                if other and len(numbers[other]) == len(numbers[text]) and values[other] != values[text]:
                    raise self.wrong(place, f"interface {number} has two values")
                spread[number] = text
        return {number: values[text] for number, text in spread.items()}


# Writing

def dump(state):
    """The text of a state's file: sorted, a value on a line."""
    found = State.of(state).dict()
    for name, table in state_table.load().tables.items():
        for one in found.get(name, {}).values():
            for setting in table.settings.values():
                if setting.per and setting.name in one:
                    one[setting.name] = common(one[setting.name])
    if "interfaces" in found:
        found["interfaces"] = blocks(found["interfaces"])
    return written(found, 0) + "\n"


def grouped(values):
    """{interfaces as text: value} of {interface: value}, those with the same value together."""
    groups = collections.defaultdict(list)
    for number, value in values.items():
        groups[json.dumps(value, sort_keys=True)].append(int(number))
    return {text_of(numbers): json.loads(value) for value, numbers in groups.items()}


def common(values):
    """As grouped. A value that half of them have is said of all; the others follow."""
    groups = grouped(values)
    widest = max(groups, key=lambda text: len(numbers_of(text)))
    if len(numbers_of(widest)) * 2 >= len(values) and len(groups) > 1:
        value = groups.pop(widest)
        groups = {text_of(map(int, values)): value, **groups}
    return groups


def blocks(interfaces):
    """The interfaces of a state, with blocks for what many have in common."""
    optional = {name for name, one in state_table.load().settings.items() if one.remove}
    alone, together = collections.defaultdict(dict), collections.defaultdict(dict)
    for name in sorted({name for one in interfaces.values() for name in one}):
        values = {number: one[name] for number, one in interfaces.items() if name in one}
        groups, whole = grouped(values) if name in optional else common(values), text_of(map(int, values))
        if whole in groups and name not in optional:
            together[whole][name] = groups.pop(whole)
        for text, value in groups.items():
            for number in numbers_of(text):
                alone[number][name] = value
    for text, block in grouped(alone).items():
        together[text].update(block)
    return together


def written(value, depth):
    """JSON, an object of plain values on one line if it fits."""
    plain = isinstance(value, dict) and not any(isinstance(one, dict) or "/" in key for key, one in value.items())
    line = json.dumps(value, ensure_ascii=False, sort_keys=False) if not isinstance(value, dict) else "{" + ", ".join(
        f"{json.dumps(key, ensure_ascii=False)}: {json.dumps(value[key], ensure_ascii=False)}"
        for key in sorted(value, key=natural)) + "}"
    if not isinstance(value, dict) or plain and len(line) < 90 or not value:
        return line
    order = sorted(value, key=lambda key: (depth > 0 or key not in (HEAD, PORTS), key != HEAD, natural(key)))
    if all(numbers_of(key) for key in value):
        order.sort(key=lambda key: (numbers_of(key)[0], -len(numbers_of(key))))
    pad = "    " * (depth + 1)
    lines = [f"{pad}{json.dumps(key, ensure_ascii=False)}: {written(value[key], depth + 1)}" for key in order]
    return "{\n" + ",\n".join(lines) + "\n" + "    " * depth + "}"


# Differences

class Difference(NamedTuple):
    """A place at which two states differ; None: it is not there."""
    place: Place
    first: object
    second: object

    def text(self, first, second):
        if self.second is None or self.first is None:
            there, value = (second, self.second) if self.first is None else (first, self.first)
            return f"{self.place}: only {there}" + (f": {shown(value)}" if value != {} else "")
        return f"{self.place}: {shown(self.first)} {first}, {shown(self.second)} {second}"

    def __str__(self):
        return self.text("in the first", "in the second")


def shown(value):
    return value if isinstance(value, str) and value else json.dumps(value, ensure_ascii=False)


def value_of(state, place):
    """The value, or None. An empty list is as none."""
    setting, value = state_table.load().settings.get(place.setting), state.facts.get(place)
    return None if setting and setting.elements and not value else value


def diff(first, second):
    """The differences of two states, in order. Of an entry that only one has, its settings are not listed. An entry
    that a switch always has is no difference."""
    first, second = State.of(first, "the first state"), State.of(second, "the second state")
    found = []
    for place in sorted({*first.facts, *second.facts}, key=natural):
        values = [value_of(state, place) for state in (first, second)]
        entry = Place(place.table, place.entity)
        missing = (entry in first.facts) != (entry in second.facts)
        if values[0] != values[1] and not (missing and (place.setting or place in first.fixed | second.fixed)):
            found.append(Difference(place, *values))
    return found
