"""state_commands.py - the commands snapshot, diff and apply.

  python3 -m switching snapshot [--jobs N]                     prints everything that is set
  python3 -m switching diff [--jobs N] FILE [FILE]             a line for each difference to the switch, or of two files
  python3 -m switching apply [--jobs N] [--exact] [--plan] FILE      sets what differs, and reads it back
"""
import argparse
import os
import sys

from . import state
from .apply import Apply
from .description import Wrong
from .snapshot import Reader, pool, snapshot
from .switch import NOT_ADMITTED, NoAnswer, Refused

COMMANDS = ("snapshot", "diff", "apply")
OPTIONS = {"snapshot": ("--jobs",), "diff": ("--jobs",), "apply": ("--exact", "--jobs", "--plan")}


def parser():
    made = argparse.ArgumentParser(prog="switching")
    verbs = made.add_subparsers(dest="verb", required=True)
    helps = ("prints everything that is set on the switch",
             "compares a state with the switch, or with another; status 1: they differ",
             "sets what differs from a state; status 1: not all is as the state says")
    for verb, text in zip(COMMANDS, helps):
        one = verbs.add_parser(verb, description=text)
        one.add_argument("--jobs", type=jobs, default=4, metavar="N", help="requests at a time (4)")
        if verb == "apply":
            one.add_argument("--exact", action="store_true", help="also remove what the state does not have")
            one.add_argument("--plan", action="store_true", help="only print the requests, as curl lines")
        if verb != "snapshot":
            one.add_argument("files", nargs="+" if verb == "diff" else 1, metavar="FILE",
                             help="what snapshot printed, or a part of it")
    return made


def jobs(text):
    if not text.isdigit() or not 1 <= int(text) <= 64:
        raise argparse.ArgumentTypeError(f"a number from 1 to 64, not {text!r}")
    return int(text)


def progress(done, total):
    if done % 16 == 0 or done == total:
        sys.stderr.write(f"\r{done} of {total}" if done < total else "\r\x1b[K")


def watched():
    """Where a person looks on, a count."""
    return progress if sys.stderr.isatty() else None


def report_unread(unread):
    """Reports what could not be read. Returns the exit status."""
    for (what, reason), count in unread.items():
        times = f" ({count} times)" if count > 1 else ""
        print(f"switching: {what}: {reason}{times}; left out", file=sys.stderr)
    return 1 if unread else 0


def take_snapshot(options, switch):
    found, unread = snapshot(switch(), options.jobs, watched())
    sys.stdout.write(state.dump(found))
    return report_unread(unread)


def compare(options, switch):
    if len(options.files) > 2:
        raise Wrong("diff takes one or two files")
    states, names = [state.State.of(file) for file in options.files], [f"in {file}" for file in options.files]
    unread = {}
    if len(states) == 1:
        with pool(options.jobs, watched()) as threads:
            reader = Reader(switch(), threads)
            states.append(reader.read(states[0]))
            unread = reader.unread
        names.append("on the switch")
    differences = state.diff(*states)
    for one in differences:
        print(one.text(*names))
    return report_unread(unread) or (1 if differences else 0)


def apply(options, switch):
    wanted = state.State.of(options.files[0])  # before anything is sent
    applied = Apply(switch(), wanted, options.exact, options.jobs, watched(), lambda text: print(text, flush=True))
    if options.plan:
        return show_plan(applied)
    try:
        outcome = applied.run()
    except (NoAnswer, Refused, KeyboardInterrupt) as error:
        if applied.outcome.done:
            print(f"switching: ended early, after {len(applied.outcome.done)} requests that set something; "
                  "run it again to go on", file=sys.stderr)
        if isinstance(error, KeyboardInterrupt):
            return 130
        raise
    for line in outcome.lines(f"in {options.files[0]}", "on the switch"):
        print(line, file=sys.stderr)
    if outcome.extra:
        print(f"switching: the switch keeps {len(outcome.extra)} entries or settings that {options.files[0]} does not "
              "have; --exact removes them", file=sys.stderr)
    kept = outcome.wanted - sum(one.first is not None for one in outcome.missing)
    print(f"{kept} of {outcome.wanted} values are as in {options.files[0]}; {len(outcome.done)} requests set them"
          + (f", {len(outcome.refused)} were refused" if outcome.refused else ""))
    return report_unread(outcome.unread) or (0 if outcome.complete else 1)


def show_plan(applied):
    steps, later = applied.plan()
    print(f"base={applied.switch.url}  # and session='Session: TOKEN'")
    for step in steps:
        target, body = step.operation.request(step.keys)
        data = f" -d {quoted(body)}" if step.operation.method in ("POST", "PUT") else ""
        print(f'curl -H "$session" -g -X {step.operation.method}{data} "$base"/{quoted(target)}')
    if later:
        print(f"# then {len(later)} settings that can change with these are read again, and set if they differ")
    return 0


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def run(words, switch):
    """Runs a command; `switch` makes the Switch. Returns the exit status."""
    options = parser().parse_args(words)
    try:
        return {"snapshot": take_snapshot, "diff": compare, "apply": apply}[options.verb](options, switch)
    except Refused as error:
        if error.code != NOT_ADMITTED:
            raise
        raise NoAnswer(error) from None
