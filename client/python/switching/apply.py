"""apply.py - sets on a switch what differs from a state: a plan, its requests, and what the switch then has."""
from . import state_table
from .description import Wrong
from .plan import Planner
from .snapshot import Reader, pool
from .state import State, diff
from .switch import NOT_ADMITTED, NoAnswer, Refused


class Outcome:
    """What apply did.

    done: the Steps that succeeded; refused: the (Step, error) that did not. wanted: how many values the state has.
    missing: the Differences that remain; absent: the places of those whose interface does not exist. extra: what the
    switch has beyond the state, and keeps. unread: what could not be read, {(setting, reason): how often}.
    """

    def __init__(self):
        self.done, self.refused, self.missing, self.extra = [], [], [], []
        self.absent, self.wanted, self.unread = set(), 0, {}

    @property
    def complete(self):
        return not self.missing

    def reason(self, difference):
        """Why it remains, as the switch said."""
        place = difference.place
        for step, error in self.refused:
            if step.place == place or step.place.setting == place.setting and step.place[:2] == place[:2]:
                return why(error)
        if any(step.place == place for step in self.done):
            return "set, but " + ("it cannot be read" if difference.second is None else "the switch has another value")
        return ""

    def lines(self, state, switch):
        """What remains and why, as text; `state` and `switch` are where the values are."""
        for one in self.missing:
            if one.place not in self.absent:
                reason = self.reason(one)
                yield one.text(state, switch) + (f" ({reason})" if reason else "")
        numbers = {place.entity[0] if place.table == "interfaces" else place.part for place in self.absent}
        if numbers:
            yield f"interfaces {state_table.text_of(numbers)}: the switch does not have them, or they are no ports"


class Incomplete(Exception):
    """The switch is not as the state says. `outcome` has what was done."""

    def __init__(self, outcome):
        self.outcome = outcome
        super().__init__("\n".join(outcome.lines("in the state", "on the switch")))


OPEN_CODES = {-22: "invalid argument", -24: "it exists", -28: "not supported"}


def why(error):
    if not isinstance(error, Refused):
        return str(error)
    return f"{error.code} " + (OPEN_CODES.get(error.code, "failed") if error.code < 0 else error.message)


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
        planner = Planner(current, self.wanted, self.exact)
        for difference in diff(self.wanted, current):
            if difference.first is not None or planner.goes(difference.place):
                self.outcome.missing.append(difference)
                if planner.is_missing(difference.place):
                    self.outcome.absent.add(difference.place)
            else:
                self.outcome.extra.append(difference)
