"""Requests from the command line, to a switch or to the virtual switch.

  python3 -m switching get PATH [KEY=VALUE...]      the data of the answer as JSON; post, put, delete likewise
  python3 -m switching walk PATH [KEY=VALUE...]     one line of JSON for each step
  python3 -m switching snapshot                     everything that is set on the switch, as JSON
  python3 -m switching diff FILE [FILE]             compares a snapshot with the switch or another; status 1: different
  python3 -m switching apply [--exact] [--plan] FILE  sets what differs from a snapshot; each of the three has --help
  python3 -m switching trace METHOD PATH [...]      what the virtual switch is asked for a request
  python3 -m switching COMMAND [ARG...]             a command of the virtual switch: reset, link, fault...
  python3 -m switching paths [BEGINNING]            the paths that begin so
  python3 -m switching completion                   completion for bash: source <(python3 -m switching completion)

Which switch: --served FILE (or SWITCHING_SERVED), what "serve.sh --json" printed; or --url URL (or SWITCHING_URL) with the
session's token in SWITCHING_SESSION. Exit status: 0 success, 1 refused or different, 2 wrong arguments, 3 no answer.
"""
import argparse
import json
import os
import sys

from . import description, state_commands
from .switch import COMMANDS, NoAnswer, Refused, Switch
from .virtual import CommandFailed

METHODS = ("get", "post", "put", "delete")
COMPLETION = """_switching()
{
    local cur=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[@]:0:COMP_CWORD}")
    mapfile -t COMPREPLY < <(compgen -W "$(python3 -m switching complete "${words[@]:1}")" -- "$cur")
    [[ ${COMPREPLY[0]} != *= ]] || compopt -o nospace
}
switching() { python3 -m switching "$@"; }
complete -F _switching switching
"""


def complete(words):
    """The words that can follow these."""
    known = description.load()
    if not words:
        return [*METHODS, "walk", "trace", "paths", *state_commands.COMMANDS, *COMMANDS]
    if words[0] in state_commands.COMMANDS:
        return state_commands.OPTIONS[words[0]]
    if words[0] == "trace":
        words = words[1:]
    if not words:
        return METHODS
    if words[0] == "walk":
        return known.walk(words[1]).operation.names() if words[1:] else [path for path in known.paths() if "next" in path]
    if words[0] not in METHODS:
        return []
    return known.operation(words[0].upper(), words[1]).names() if words[1:] else known.paths(words[0].upper())


def the_switch(options):
    if options.served:
        with open(options.served, encoding="utf-8") as file:
            return Switch.of(file.readline())
    if not options.url:
        raise description.Wrong("which switch? Give --served FILE or --url URL (python3 -m switching --help)")
    return Switch(options.url, os.environ.get("SWITCHING_SESSION"))


def keys_of(words):
    pairs = [word.partition("=") for word in words]
    if wrong := [name for name, equals, _ in pairs if not equals]:
        raise description.Wrong(f'"{wrong[0]}" is no KEY=VALUE')
    return {name: value for name, _, value in pairs}


def run(options):
    verb, words = options.verb, options.words
    if verb in state_commands.COMMANDS:
        sys.exit(state_commands.run([verb, *words], lambda: the_switch(options)))
    if verb == "completion":
        return print(COMPLETION, end="")
    if verb == "complete":
        return print("\n".join(complete(words)))
    if verb == "paths":
        return print("\n".join(path for path in description.load().paths() if path.startswith("".join(words))))
    if verb in (*METHODS, "walk", "trace") and len(words) < 1 + (verb == "trace"):
        raise description.Wrong(f"{verb} takes {'METHOD ' if verb == 'trace' else ''}PATH [KEY=VALUE...]")
    with the_switch(options) as switch:
        if verb in METHODS:
            print(json.dumps(switch.call(verb.upper(), words[0], keys_of(words[1:]))))
        elif verb == "walk":
            for data in switch.walk(words[0], **keys_of(words[1:])):
                print(json.dumps(data))
        elif verb == "trace":
            with switch.traced() as calls:
                try:
                    switch.call(words[0].upper(), words[1], keys_of(words[2:]))
                finally:
                    print("\n".join(map(str, calls)))
        elif verb in COMMANDS:
            print(getattr(switch, verb)(*words), end="")
        else:
            raise description.Wrong(f'there is no "{verb}" (python3 -m switching --help)')


def main():
    parser = argparse.ArgumentParser(prog="switching", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter, usage=argparse.SUPPRESS)
    parser.add_argument("--served", default=os.environ.get("SWITCHING_SERVED"), help=argparse.SUPPRESS)
    parser.add_argument("--url", default=os.environ.get("SWITCHING_URL"), help=argparse.SUPPRESS)
    parser.add_argument("verb", help=argparse.SUPPRESS)
    parser.add_argument("words", nargs=argparse.REMAINDER, help=argparse.SUPPRESS)
    try:
        run(parser.parse_args())
    except Refused as error:
        sys.exit(report(error, 1))
    except (description.Wrong, CommandFailed) as error:
        sys.exit(report(error, 2))
    except (NoAnswer, OSError) as error:
        sys.exit(report(error, 3))
    except KeyboardInterrupt:
        sys.exit(130)


def report(error, status):
    print(f"switching: {error}", file=sys.stderr)
    return status


if __name__ == "__main__":
    main()
