"""snapshot.py - reads the state of a switch: everything, or what another state speaks of."""
import collections
import contextlib
from concurrent.futures import ThreadPoolExecutor

from . import state_table
from .description import Wrong
from .state import PORTS, Place, State, natural
from .state_table import canonical, fitting, member_of
from .switch import NOT_ADMITTED, Refused

GENERAL_FAILED = 10000  # what is not set is refused with this


class Pool:
    """Runs requests in several threads; `progress`, if given, is called with the number done and the number of all."""

    def __init__(self, jobs, progress=None):
        self.executor, self.progress = ThreadPoolExecutor(jobs), progress

    def map(self, function, items):
        """The results in the order of the items."""
        items, results = list(items), []
        for result in self.executor.map(function, items):
            results.append(result)
            if self.progress:
                self.progress(len(results), len(items))
        return results

    def close(self):
        self.executor.shutdown(cancel_futures=True)


@contextlib.contextmanager
def pool(jobs, progress=None):
    made = Pool(jobs, progress)
    try:
        yield made
    finally:
        made.close()


class Reader:
    """Reads states. `unread` counts what the switch refused: {(setting or table, reason): how often}."""

    def __init__(self, switch, pool):
        self.switch, self.pool, self.table = switch, pool, state_table.load()
        self.unread = collections.Counter()
        self.answers = {}

    def read(self, wanted=None, only=None):
        """The state. `wanted` is a State: only what it speaks of is read, and which entries its tables have. `only`
        limits the settings to these."""
        self.answers, self.unread = {}, collections.Counter()
        self.wanted = wanted
        self.named = {}  # the parts of each setting of which `wanted` speaks
        for place in sorted(wanted.facts, key=natural) if wanted else ():
            self.named.setdefault(tuple(place[:3]), []).append(place.part)
        self.entities_named = {named[:2] for named in self.named}
        state = State(tables=wanted.tables if wanted else self.table.tables)
        if wanted is None or wanted.ports or "interfaces" in wanted.tables or any(map(self.is_per, wanted.facts)):
            self.ports = self.walked(self.table.tables["interfaces"].ports["walk"])
            self.interfaces = self.all_interfaces() or self.ports
            state.interfaces = {number: number in self.ports for number in self.interfaces}
            state.ports = len(self.ports)
            if wanted and wanted.ports not in (None, state.ports):
                raise Wrong(f"the state is of a switch with {wanted.ports} ports, but this one has {state.ports}; "
                            f'remove "{PORTS}" from it if the numbers of the interfaces are meant')
        names = sorted(state.tables)
        for name, entries in zip(names, self.pool.map(self.entries, [self.table.tables[name] for name in names])):
            if entries is None:
                state.tables.remove(name)  # of an empty table --exact would remove the entries
            else:
                state.facts.update(entries[0])
                state.fixed |= entries[1]
        self.rules(state)
        tasks = [task for task in self.tasks(state) if only is None or task[1].name in only]
        for facts in self.pool.map(self.setting, tasks):
            state.facts.update(facts)
        return state

    def is_per(self, place):
        return place.setting and self.table.settings[place.setting].per

    def walk(self, path, **keys):
        """The steps of a walk. Its end is asked for twice: a request that failed once is no end."""
        steps = list(self.switch.walk(path, **keys))
        cursor = self.table.known.walk(path).cursor
        last = {key: steps[-1][member] for key, member in cursor.items()} if steps else {}
        return steps + [data for data in self.switch.walk(path, **{**keys, **last}) if data not in steps]

    def walked(self, path):
        return [next(iter(data.values())) for data in self.walk(path)]

    def all_interfaces(self):
        try:
            return self.walked(self.table.tables["interfaces"].walk)
        except Refused as error:
            self.report("interfaces that are no ports", error)
            return []

    # Entries

    def entries(self, table):
        """The entries of a table with their values, and those of them that cannot be removed."""
        if table.name == "switch" or table.name == "interfaces" or table.of:
            return {}, set()
        facts = self.facts_of(table)
        if facts is None:
            return None
        fixed = set()
        if table.kind:
            for place in list(facts):
                kind = self.answer(table.kind["get"], table.entity_keys(place.entity), missing=None)
                if kind is None:
                    self.unread[f"{place} {table.kind['get']}", "refused"] += 1
                elif kind not in table.kind["shown"]:
                    del facts[place]
                elif kind not in table.kind["removable"]:
                    fixed.add(place)
        return facts if table.make else dict.fromkeys(facts), fixed

    def facts_of(self, table):
        """The entries; None, after a report, if they cannot be asked for."""
        try:
            return {Place(table.name, entity): value for entity, value in self.listed(table)}
        except Refused as error:
            self.report(table.name, error)
            return None

    def report(self, what, error):
        """Counts what cannot be read. A session that may not even GET has ended."""
        if isinstance(error, Refused) and error.code == NOT_ADMITTED and error.request.startswith("GET"):
            raise error
        self.unread[what, f"{error.code} {error.message}" if isinstance(error, Refused) else str(error)] += 1

    def listed(self, table):
        """The entries and values that a walk, a count or questions show."""
        if table.walk:
            return [(self.entity(table, data), table.value(data)) for data in self.walk(table.walk)]
        if "count" in table.row:
            return [((number,), {}) for number in range(1, self.answer(table.row["count"], {}, missing=0) + 1)]
        names = {self.answer(path, {}, missing=None) for path in table.row["seen"]}
        asked = {place.entity[0] for place in (self.wanted.facts if self.wanted else ())
                 if place.table in (table.name, table.row["rules"])}
        names |= {name for name in asked - names if self.exists(table, name)}
        return [((name,), {}) for name in sorted(names - {None})]

    def entity(self, table, data, given=()):
        return (*given, *(canonical(table.key(number), member_of(data, key))
                          for number, key in enumerate(table.keys) if number >= len(given)))

    def exists(self, table, name):
        probe = dict(table.row["probe"])
        operation = probe.pop("operation")
        return self.answer(operation, {table.keys[0]: name, **probe}, missing=None) is not None

    def rules(self, state):
        """The entries of tables that belong to an entry of another table."""
        for table in self.table.tables.values():
            if table.of and table.name in state.tables:
                parents = sorted({place.entity for place in state.facts if place.table == table.of}
                                 or (entity for entity, _ in self.listed(self.table.tables[table.of])))
                for parent, steps in zip(parents, self.pool.map(lambda entity: self.steps_in(table, entity), parents)):
                    state.facts.update({Place(table.name, self.entity(table, data, parent)): {} for data in steps})

    def steps_in(self, table, parent):
        try:
            return self.walk(table.walk, **table.entity_keys(parent))
        except Wrong as error:  # a name that no query can carry
            self.report(table.name, error)
            return []

    # Settings

    def tasks(self, state):
        """(entry, setting) of all that is to be read."""
        for name in sorted(state.tables):
            table = self.table.tables[name]
            for entity in self.entities(table, state):
                for setting in table.settings.values():
                    if self.is_wanted(table, entity, setting):
                        yield entity, setting

    def entities(self, table, state):
        if not table.keys:
            return [()]
        if table.name == "interfaces":
            every = [(number,) for number in self.interfaces]
            return [entity for entity in every if not self.wanted or (table.name, entity) in self.entities_named]
        entities = sorted(place.entity for place in state.facts if place.table == table.name and not place.setting)
        if not table.make:
            for entity in entities:
                del state.facts[Place(table.name, entity)]
        return entities

    def is_wanted(self, table, entity, setting):
        if table.name == "interfaces" and setting.name in table.port_settings and entity[0] not in self.ports:
            return False
        if self.wanted is None or (table.name, entity, setting.name) in self.named:
            return True
        can_be_absent = (setting.remove or setting.optional) and setting.is_of(self.wanted.tables)
        return can_be_absent and (not table.keys or table.removed_last or (table.name, entity) in self.entities_named)

    def setting(self, task):
        """{place: value} of a setting of an entry, empty if it is not set."""
        entity, setting = task
        place, keys = Place(setting.table.name, entity, setting.name), setting.table.entity_keys(entity)
        try:
            if not all(self.answer(f"GET {path}", keys) in values for path, values in setting.when.items()):
                return {}
            if setting.walk:
                return {place: sorted(next(iter(data.values())) for data in self.walk(setting.walk, **keys))}
        except Refused as error:
            self.report(setting.name, error)
            return {}
        every = self.interfaces if setting.per else setting.parts
        named = self.named.get(tuple(place[:3]), every)  # the parts of which the wanted state speaks
        values = {place._replace(part=part): self.part(setting, keys, part) for part in named if part in every}
        return {place: value for place, value in values.items() if value is not None}

    def part(self, setting, keys, part):
        """The value of a part of a setting. None: it is not set, or, after a report, cannot be read."""
        chosen = {"interface": part} if setting.per else setting.parts[part]
        try:
            return setting.value(self.ask(setting.get, fitting(setting.get, {**keys, **chosen})), part)
        except Refused as error:
            if not setting.optional or error.code != GENERAL_FAILED:
                self.report(setting.name, error)
            return None

    # Questions

    def ask(self, operation, keys):
        """The data of an answer. What was answered is not asked again; what was refused is, once: a fault can pass."""
        question = (str(operation), *sorted(keys.items()))
        if question not in self.answers:
            try:
                data = self.switch.call(operation.method, operation.path, keys)
            except Refused as error:
                if error.code == NOT_ADMITTED:
                    raise
                data = self.switch.call(operation.method, operation.path, keys)
            self.answers[question] = data
        return self.answers[question]

    def answer(self, text, keys, **missing):
        """The only member of the answer to "GET PATH", by its name if it has one. `missing` is for a refusal."""
        operation = self.table.known.operation(*(text if " " in text else f"GET {text}").split())
        try:
            data = self.ask(operation, fitting(operation, keys))
        except Refused as error:
            if error.code == NOT_ADMITTED or "missing" not in missing:
                raise
            return missing["missing"]
        member, value = next(iter(data.items()))
        return operation.names_of(member).get(str(value), value)


def snapshot(switch, jobs=4, progress=None):
    """Everything that is set, as a dict, and what could not be read: {(setting, reason): how often}."""
    with pool(jobs, progress) as threads:
        reader = Reader(switch, threads)
        return reader.read().dict(), reader.unread
