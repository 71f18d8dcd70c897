"""plan.py - the requests that lead from one state of a switch to another, in their order.

A plan has three phases. First what goes is removed, in the reverse order: what needs something before that. Then
everything is made and set. At last those entries are removed to which settings could still refer (VLANs).
"""
import collections
from typing import NamedTuple

from . import state_table
from .state import Place, natural, shown

REMOVE, SET, REMOVE_LAST = 0, 1, 2  # the phases of a plan


class Step(NamedTuple):
    """A request of a plan. Steps with the same `order` are independent of each other."""
    order: tuple
    place: Place
    operation: object
    keys: dict
    value: object = None  # that is set; None: it is removed

    def request(self):
        """The target and the body."""
        return self.operation.request(self.keys)

    def __str__(self):
        return f"{self.operation}" + "".join(f" {name}={shown(value)}" for name, value in self.keys.items())

    def text(self, before):
        """What was done, for a person; `before` is the value that was there."""
        if not self.place.setting or before is True or self.value == self.place.part:
            return f"{self.place}: {'removed' if self.value is None else 'made'}" + (
                f", {shown(self.value)}" if self.value and not self.place.setting else "")
        if self.value is None:
            return f"{self.place}: {shown(before)} removed"
        return f"{self.place}: " + (f"{shown(before)} -> " if before is not None else "") + shown(self.value)


class Planner:
    """Plans the steps from a current state, as a Reader reads it, to a wanted one."""

    def __init__(self, current, wanted, exact):
        self.table = state_table.load()
        self.exact, self.tables = exact, wanted.tables
        self.fixed, self.interfaces = current.fixed, current.interfaces
        self.current, self.wanted = elements(current), elements(wanted)  # {place: value}
        self.wanted_lists = {place for place in wanted.facts if place.setting and self.setting(place).elements}

    def setting(self, place):
        return self.table.settings[place.setting]

    def steps(self, waits=True):
        """The steps in their order, and the places that are to be read again before they are set; none, if nothing
        `waits`."""
        self.removed = {place for place in self.current if place not in self.wanted and self.goes(place)}
        self.removed |= {place for place in self.current if not place.setting and self.value_changes(place)}
        self.remake_entries()
        self.withdraw()
        target = self.target()
        made = {place for place, value in target.items() if place in self.removed or self.known(place) != value}
        changed = made | self.removed
        later = {place for place in target if waits and place.setting and self.follows(place, changed)}
        steps = [self.removal(place) for place in self.removed if not self.gone_with_entry(place)]
        steps += [self.making(place, target[place]) for place in made - later]
        return merged(sorted(filter(None, steps), key=lambda step: (step.order, natural(step.place)))), later

    def target(self):
        """What is to be in the end: what is wanted, and what is removed only for a while."""
        kept = {place: self.current[place] for place in self.removed
                if place not in self.wanted and not self.goes(place) and self.can_stay(place)}
        return {**self.wanted, **kept}

    def goes(self, place):
        """Whether what is not wanted is to be removed for good."""
        entry = Place(place.table, place.entity)
        if place.setting and place._replace(part=None) in self.wanted_lists:
            return True
        if not self.exact or place.table not in self.tables or entry in self.fixed and not place.setting:
            return False
        if not place.setting:
            return True
        setting = self.setting(place)
        return bool(setting.remove or setting.optional) and setting.is_of(self.tables)

    def can_stay(self, place):
        """Whether what was removed for a while can be set again: not if its entry goes, or its condition ends."""
        if not place.setting:
            return True
        for path, values in self.setting(place).when.items():
            name = next((name for name, one in self.table.settings.items() if one.get and one.get.path == path), None)
            if name and self.wanted.get(Place(place.table, place.entity, name), values[0]) not in values:
                return False
        return Place(place.table, place.entity) not in self.removed

    def value_changes(self, place):
        """Whether the value of an entry changes, for which it is removed and made."""
        has_value = self.table.tables[place.table].values and place in self.wanted
        return has_value and self.wanted[place] != self.current[place]

    def known(self, place):
        """The value that a place has before it is set: in an entry that is new, the one that it has then."""
        entry = Place(place.table, place.entity)
        if place.setting and (entry in self.removed or entry in self.wanted and entry not in self.current):
            return self.setting(place).new
        return self.current.get(place)

    def remake_entries(self):
        """Adds entries that are removed and made again: for a setting that cannot be removed alone, and those that one
        request removes together."""
        for place in list(self.removed):
            if place.setting and not self.setting(place).remove:
                self.removed.add(Place(place.table, place.entity))
                self.removed.discard(place)
        for table in self.table.tables.values():
            if table.remove and not all(table.remove.has(key) for key in table.keys):
                values = {self.current[place] for place in self.removed if place.table == table.name}
                self.removed |= {place for place, value in self.current.items()
                                 if place.table == table.name and value in values}

    # Dependencies

    def context(self, place, value):
        """{meaning or key: the values} by which places refer to each other: {"interface": {3}, "vlan": {10, 20}}."""
        found = collections.defaultdict(set)
        table = self.table.tables[place.table]
        for key, one in zip(table.keys, place.entity):
            found[key].add(one)
        if not place.setting:
            keys, given = table.values, table.given(value) if table.values else {}
        else:
            setting = self.setting(place)
            keys, given = setting.keys, setting.given(value) if value is not None else {}
            if setting.elements:
                given = {keys[0].name: place.part}
            elif place.part is not None:
                found[next(iter(setting.part_keys() or ["interface"]))].add(place.part)
        for key in keys:
            if key.name in given:
                found["vlan" if key.means in ("vlan", "vlans") else key.name] |= set(all_of(key, given[key.name]))
        return found

    def refers(self, place, value, to, its_value):
        """Whether a place refers to another: each key that both have (VLAN, list...) has the other's values."""
        mine, its = self.context(place, value), self.context(to, its_value)
        return all(its[name] <= mine[name] for name in set(mine) & set(its))

    def withdraw(self):
        """What needs something that changes is removed first, and so on."""
        queue = [place for place, value in self.current.items()
                 if place in self.removed or self.wanted.get(place, value) != value]
        queue += [place for place in self.wanted if place not in self.current]
        needing = [(place, value) for place, value in self.current.items()
                   if place.setting and self.setting(place).needs]
        while queue:
            change = queue.pop()
            for place, value in needing:
                if place not in self.removed and self.needs(place, value, change):
                    self.removed.add(place)
                    queue.append(place)

    def needs(self, place, value, change):
        """Whether a place cannot stay while another one changes. An element that is added to a list changes nothing."""
        names = self.setting(place).needs
        if change.setting not in names and change.table not in names:
            return False
        added = change not in self.current and change.setting in names and self.setting(change).elements
        its = self.current.get(change, self.wanted.get(change))
        return not added and self.refers(place, value, change, its)

    def follows(self, place, changed):
        """Whether the value of a place can change when others are set."""
        names = self.setting(place).follows
        return any(self.refers(place, None, one, None) for one in changed if one.setting in names) if names else False

    # Steps

    def gone_with_entry(self, place):
        """Whether a place goes with its entry, or with the entry of another table to which that belongs."""
        table = self.table.tables[place.table]
        above = [Place(place.table, place.entity)] if place.setting and not table.removed_last else []
        if table.of:
            above.append(Place(table.of, place.entity[:1]))
        return any(one in self.removed for one in above)

    def removal(self, place):
        table = self.table.tables[place.table]
        value = self.current[place]
        rank = self.table.ranks[place.setting or place.table]
        if not place.setting:
            phase = REMOVE_LAST if table.removed_last else REMOVE
            return Step((phase, -rank), place, table.remove, table.request(table.remove, place.entity, value))
        setting = self.setting(place)
        part = None if setting.elements else place.part
        value = place.part if setting.elements else value
        return Step((REMOVE, -rank), place, setting.remove, setting.request(setting.remove, place.entity, part, value))

    def is_missing(self, place):
        """Whether the switch does not have the interface of a place, or it is no port and the setting is of ports."""
        if place.table == "interfaces":
            is_port = self.interfaces.get(place.entity[0])
            return is_port is None or not is_port and place.setting in self.table.tables["interfaces"].port_settings
        return bool(place.setting and self.setting(place).per and place.part not in self.interfaces)

    def making(self, place, value):
        if self.is_missing(place):
            return None
        table, rank = self.table.tables[place.table], self.table.ranks[place.setting or place.table]
        if not place.setting:
            if not table.make or place in self.current and place not in self.removed:
                return None
            return Step((SET, rank), place, table.make, table.request(table.make, place.entity, value), value)
        setting = self.setting(place)
        if setting.elements:
            keys = setting.request(setting.set, place.entity, None, place.part)
            return Step((SET, rank), place, setting.set, keys, place.part)
        keys = setting.request(setting.set, place.entity, place.part, value)
        for key, words in setting.sent.items():
            other = Place(place.table, place.entity, words.get(value, ""))
            if value in words:
                keys[key] = self.wanted.get(other, self.current.get(other, 0))
        return Step((SET, rank), place, setting.set, keys, value)


def all_of(key, value):
    """The values of a list; what is no list is the only one."""
    is_list = key.means in ("vlans", "interfaces") and isinstance(value, str)
    return state_table.numbers_of(value) or () if is_list else [value]


def elements(state):
    """The facts, each element of a list at a place of its own."""
    settings, facts = state_table.load().settings, {}
    for place, value in state.facts.items():
        if place.setting and settings[place.setting].elements:
            numbers = state_table.numbers_of(value) if isinstance(value, str) else value
            facts.update({place._replace(part=one): True for one in numbers or ()})
        else:
            facts[place] = value
    return facts


def merged(steps):
    """Without the steps whose request is there already, at the same place in the order."""
    found = {}
    for step in steps:
        found.setdefault((step.order, str(step)), step)
    return list(found.values())
