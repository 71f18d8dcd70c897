"""apply.py - sets on a switch what differs from a state: first the plan, then its requests, then what the switch has."""
import collections
from typing import NamedTuple

from . import state_table
from .description import Wrong
from .snapshot import Reader, pool
from .state import Place, State, diff, natural, shown
from .switch import NOT_ADMITTED, NoAnswer, Refused

REMOVE, SET, REMOVE_LAST = 0, 1, 2  # the phases of a plan


class Step(NamedTuple):
    """A request of a plan. Steps with the same `order` are independent of each other."""
    order: tuple
    place: Place
    operation: object
    keys: dict
    value: object = None  # that is set; None: it is removed

    def request(self):
        return self.operation.request(self.keys)

    def __str__(self):
        return f"{self.operation}" + "".join(f" {name}={shown(value)}" for name, value in self.keys.items())

    def text(self, before):
        if not self.place.setting or before is True or self.value == self.place.part:
            return f"{self.place}: {'removed' if self.value is None else 'made'}" + (
                f", {shown(self.value)}" if self.value and not self.place.setting else "")
        if self.value is None:
            return f"{self.place}: {shown(before)} removed"
        return f"{self.place}: " + (f"{shown(before)} -> " if before is not None else "") + shown(self.value)


class Planner:
    """Plans the steps from a current state to a wanted one. Both have their lists in single elements: Place -> value."""

    def __init__(self, current, wanted, exact):
        self.table = state_table.load()
        self.exact, self.spoken = exact, wanted
        self.fixed = getattr(current, "fixed", set())
        self.current, self.wanted = elements(current), elements(wanted)
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
        made = {place for place, value in self.target().items()
                if place in self.removed or self.known(place) != value}
        changed = made | self.removed
        later = {place for place in made | set(self.wanted) if waits and place.setting and self.follows(place, changed)}
        steps = [self.removal(place) for place in self.removed if not self.gone_with_entry(place)]
        steps += [self.making(place, self.target()[place]) for place in made - later]
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
        if not self.exact or place.table not in self.spoken.tables or entry in self.fixed and not place.setting:
            return False
        return not place.setting or bool(self.setting(place).remove or self.setting(place).optional)

    def can_stay(self, place):
        """Whether a setting that was removed for a while can be set again: what it depends on may have another value."""
        for path, values in self.setting(place).when.items() if place.setting else ():
            name = next((name for name, one in self.table.settings.items() if one.get and one.get.path == path), None)
            if name and self.wanted.get(Place(place.table, place.entity, name), values[0]) not in values:
                return False
        return Place(place.table, place.entity) not in self.removed or not place.setting

    def value_changes(self, place):
        return self.table.tables[place.table].values and place in self.wanted and self.wanted[place] != self.current[place]

    def known(self, place):
        """The value that a place has before it is set: in an entry that is new, the one that it has then."""
        entry = Place(place.table, place.entity)
        if place.setting and (entry in self.removed or entry in self.wanted and entry not in self.current):
            return self.setting(place).new if place.setting and not self.setting(place).elements else None
        return self.current.get(place)

    def remake_entries(self):
        """An entry with a setting that cannot be removed alone is removed, and made again."""
        for place in list(self.removed):
            if place.setting and not self.setting(place).remove:
                self.removed.add(Place(place.table, place.entity))
                self.removed.discard(place)
        for table in self.table.tables.values():  # what one request removes
            if table.remove and not all(table.remove.has(key) for key in table.keys):
                values = {self.current[place] for place in self.removed if place.table == table.name and not place.setting}
                self.removed |= {place for place, value in self.current.items() if place.table == table.name and value in values}

    # Dependencies

    def context(self, place, value):
        """{meaning or key: the values} by which places refer to each other."""
        found = collections.defaultdict(set)
        table = self.table.tables[place.table]
        for key, one in zip(table.keys, place.entity):
            found[key].add(one)
        keys, given = table.values, table.given(value) if table.values and not place.setting else {}
        if place.setting:
            setting = self.setting(place)
            keys = setting.keys
            given = {keys[0].name: place.part} if setting.elements else setting.given(value) if value is not None else {}
            if place.part is not None and not setting.elements:
                names = setting.part_keys() or {"interface"}
                found[next(iter(names))].add(place.part)
        for key in keys:
            if key.means in ("vlan", "vlans") and key.name in given:
                one = given[key.name]
                found["vlan"] |= set(state_table.numbers_of(one) or ()) if isinstance(one, str) else {one}
            elif key.name in given and not isinstance(given[key.name], dict):
                found[key.name].add(given[key.name])
        return found

    def refers(self, place, value, to, its_value):
        """Whether a place refers to another: all that both name is the same."""
        mine, its = self.context(place, value), self.context(to, its_value)
        return all(its[name] <= mine[name] for name in set(mine) & set(its))

    def withdraw(self):
        """What needs something that changes is removed first, and so on."""
        changes = {place for place, value in self.current.items()
                   if place in self.removed or place in self.wanted and self.wanted[place] != value}
        changes |= {place for place in self.wanted if place not in self.current}
        queue = list(changes)
        needing = [(place, value) for place, value in self.current.items() if place.setting and self.setting(place).needs]
        while queue:
            change = queue.pop()
            for place, value in needing:
                if place not in self.removed and self.needs(place, value, change):
                    self.removed.add(place)
                    queue.append(place)

    def needs(self, place, value, change):
        names = self.setting(place).needs
        if change.setting not in names and change.table not in names:
            return False
        added = change not in self.current and change.setting in names and self.setting(change).elements
        its = self.current.get(change, self.wanted.get(change))
        return not added and self.refers(place, value, change, its)

    def follows(self, place, changed):
        """Whether the value of a place can change when others are set."""
        names = self.setting(place).follows
        return names and any(self.refers(place, None, one, None) for one in changed if one.setting in names)

    # Steps

    def gone_with_entry(self, place):
        """Whether a place goes with its entry, or with the entry of another table to which that belongs."""
        table = self.table.tables[place.table]
        above = [Place(place.table, place.entity)] if place.setting else []
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

    def making(self, place, value):
        table, rank = self.table.tables[place.table], self.table.ranks[place.setting or place.table]
        if not place.setting:
            if not table.make or place in self.current and place not in self.removed:
                return None
            return Step((SET, rank), place, table.make, table.request(table.make, place.entity, value), value)
        setting = self.setting(place)
        if setting.elements:
            return Step((SET, rank), place, setting.set, setting.request(setting.set, place.entity, None, place.part), place.part)
        keys = setting.request(setting.set, place.entity, place.part, value)
        for key, words in setting.sent.items():
            other = Place(place.table, place.entity, words.get(value, ""))
            if value in words:
                keys[key] = self.wanted.get(other, self.current.get(other, 0))
        return Step((SET, rank), place, setting.set, keys, value)


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


class Outcome:
    """What apply did. done: the Steps that succeeded. refused: the (Step, error) that did not. wanted: how many values the
    state has. missing: the Differences that remain. extra: what the switch has beyond the state, and keeps. unread: what
    could not be read, {(setting, reason): how often}."""

    def __init__(self):
        self.done, self.refused, self.missing, self.extra = [], [], [], []
        self.wanted, self.unread = 0, {}

    @property
    def complete(self):
        return not self.missing

    def reason(self, difference):
        """Why it remains, as the switch said."""
        place = difference.place
        for step, error in self.refused:
            if step.place == place or step.place.setting == place.setting and step.place[:2] == place[:2]:
                return why(error)
        return "set, but the switch has another value" if any(step.place == place for step in self.done) else ""


class Incomplete(Exception):
    """The switch is not as the state says. `outcome` has what was done."""

    def __init__(self, outcome):
        self.outcome = outcome
        super().__init__("\n".join(f"{one.text('in the state', 'on the switch')} ({outcome.reason(one)})" for one in outcome.missing))


def why(error):
    return f"{error.code} {error.message}" if isinstance(error, Refused) else str(error)


class Apply:
    def __init__(self, switch, state, exact=False, jobs=4, progress=None, report=lambda text: None):
        self.switch, self.wanted, self.exact, self.report = switch, State.of(state), exact, report
        self.jobs, self.progress = jobs, progress
        self.outcome, self.tried, self.ended = Outcome(), set(), None

    def run(self):
        """Reads, sets what differs, and reads back: again while a change led to others, each request once."""
        with pool(self.jobs, self.progress) as threads:
            reader = Reader(self.switch, threads)
            current = reader.read(self.wanted)
            self.outcome.wanted = len(self.wanted.facts)
            while steps := self.round(reader, threads, current):
                current = reader.read(self.wanted)
            self.outcome.unread = reader.unread
            self.compare(current)
        return self.outcome

    def plan(self):
        """The steps that run() would begin with, and the places that it would read again before it sets them."""
        with pool(self.jobs, self.progress) as threads:
            return Planner(Reader(self.switch, threads).read(self.wanted), self.wanted, self.exact).steps()

    def round(self, reader, threads, current):
        """One plan: its steps, then those of what follows from them. Returns whether anything was sent."""
        steps, later = Planner(current, self.wanted, self.exact).steps()
        steps = [step for step in steps if str(step) not in self.tried]
        self.send(steps, current, threads)
        if later and steps:
            names = {place.setting for place in later}
            again = reader.read(self.wanted, names)
            current.facts.update({place: value for place, value in again.facts.items() if place.setting})
            more = [step for step in Planner(current, self.wanted, self.exact).steps(waits=False)[0]
                    if step.place in later and str(step) not in self.tried]
            self.send(more, current, threads)
            steps += more
        return steps

    def send(self, steps, current, threads):
        for order in sorted({step.order for step in steps}):
            together = [step for step in steps if step.order == order]
            self.tried |= {str(step) for step in together}
            futures = [threads.executor.submit(self.request, step) for step in together]
            for step, future in zip(together, futures):
                self.keep(step, self.result(future), current)
            if self.ended:
                raise self.ended

    def result(self, future):
        """What became of a request. After Ctrl-C, and when the switch answers no more, no further one is sent."""
        try:
            return future.result()
        except KeyboardInterrupt as error:
            self.ended = error
            return future.result()

    def request(self, step):
        """Sends the request. Returns None, or why it is not done."""
        if self.ended:
            return self.ended
        try:
            self.switch.call(step.operation.method, step.operation.path, step.keys)
        except (Refused, Wrong, NoAnswer) as error:
            if isinstance(error, NoAnswer) or isinstance(error, Refused) and error.code == NOT_ADMITTED:
                self.ended = error
            return error
        return None

    def keep(self, step, error, current):
        if error is None:
            self.outcome.done.append(step)
            self.report(step.text(current.facts.get(step.place)))
        elif error is not self.ended:
            self.outcome.refused.append((step, error))
            self.report(f"{step.place}: {why(error)} ({step})")

    def compare(self, current):
        for difference in diff(self.wanted, current):
            place = difference.place
            extra = difference.first is None
            listed = place.setting and self.wanted.facts.get(place) is not None
            if extra and not self.exact and not listed:
                self.outcome.extra.append(difference)
            elif not (extra and Place(place.table, place.entity) in current.fixed):
                self.outcome.missing.append(difference)
