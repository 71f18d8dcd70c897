#!/usr/bin/python3
"""differential.py BUILD [SECONDS [SEED]] - sends the same random requests to the CGI program and to one worker of the
resident one, before two virtual switches. Answers, calls to the switch, session files and log must be the same.
"""
import os
import random
import re
import sys
import time

sys.path[:0] = [os.path.join(os.path.dirname(os.path.abspath(__file__)), "../" + path) for path in ("proof", "../tools")]
from arguments import PROGRAM, build_with, parser  # noqa: E402
from described import described_operations  # noqa: E402
from description import load, set_scene  # noqa: E402
from switch import Refused, Switch  # noqa: E402

SESSIONS = {"token": "admin\n0\ntoken", "writer": "joe\n7000\nrw\nwriter", "reader": "eve\n7000\nro\nreader",
            "expired": "eve\n50\nro\nexpired", "odd": "eve\n50\nxx", "empty": ""}
HOSTILE = ("", "/", "x", "//api/v2/switching/bridge/dot1d-stp-priority", "/api/v2/switching/a/b/c", "/a\x1b[2J/\x7f?x=/", "/" * 1100)
WORDS = ("", "=", "&", "&&", "%", "%2541", "+", "intf=7", "vlan=1&", '{"', "[", "null", "1e99", "-1", "4294967297", "x" * 9000)


def changed(text):
    """The text with one piece removed, doubled or replaced."""
    begin = random.randrange(len(text) + 1)
    end = min(len(text), begin + random.randrange(8))
    return text[:begin] + random.choice((text[begin:end] * 2, *WORDS)) + text[end:]


def random_request(operations):
    operation = random.choice(operations)
    values = {key: random.choice(key.samples()) for key in operation.keys if random.random() < 0.9}
    query, body = operation.request(values)
    if random.random() < 0.2:
        query, body = changed(query), changed(body)
    variables = {"REQUEST_METHOD": operation.method, "QUERY_STRING": query, "REQUEST_URI": f"{operation.path}?{query}",
                 "HTTP_SESSION": random.choice(("token", "token", "token", "writer", "reader"))}
    if random.random() < 0.2:
        name, value = random.choice((
            ("REQUEST_METHOD", random.choice(("get", "PUT", "DELETE", "POST", "HEAD", ""))), ("HTTP_REFRESH", "1"),
            ("REQUEST_URI", random.choice((*HOSTILE, changed(operation.path)))), ("HTTP_SESSION", random.choice(
                (*SESSIONS, "none", "../x", "x" * 600))), ("CONTENT_LENGTH", str(random.randrange(3 + 2 * len(body))))))
        variables[name] = value
    if random.random() < 0.05:
        del variables[random.choice(list(variables))]
    return {name: value.replace("\0", "") for name, value in variables.items()}, body.encode()


def random_command(operations):
    call = random.choice([call for operation in operations for call in operation.calls])
    return random.choice((("fault", call, f"code={-random.randrange(30)}", "times=3"), ("pass", random.randrange(1, 100)), ("clear",)))


def log_of(switch):
    """The log without times, the lines of the start-up, and those of the rotation's moment."""
    with open(switch.directory + "/tmp/zt731.log", encoding="latin-1") as file:
        return [line for line in re.split(r"(?m)^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ", file.read()) if "[initHandler:" not in line]


def files_of(switch):
    directory = switch.directory + "/tmp/session/"
    return {name: open(directory + name, "rb").read() for name in sorted(os.listdir(directory))}


def prepare(switch, scene):
    set_scene(switch, scene)
    for name, content in SESSIONS.items():
        with open(f"{switch.directory}/tmp/session/{name}", "w", encoding="ascii") as file:
            file.write(content)
    with open(switch.directory + "/tmp/devmgr_log_level", "w", encoding="ascii") as file:
        file.write("7")
    for name in ("zt731.log", "zt731.log.old"):
        if os.path.exists(switch.directory + "/tmp/" + name):
            os.unlink(switch.directory + "/tmp/" + name)


def same(what, request, results):
    if results[0] != results[1]:
        sys.exit(f"{what} differ for {request}\nCGI:      {results[0]!r:.3000}\nresident: {results[1]!r:.3000}")


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("seconds", metavar="SECONDS", nargs="?", type=float, default=60)
    arguments.add_argument("seed", metavar="SEED", nargs="?", type=int, default=random.randrange(1 << 32))
    options = arguments.parse_args()
    random.seed(options.seed)
    description = load()
    operations = described_operations(description)
    end, sent = time.monotonic() + options.seconds, 0
    uptime = {"SANDBOX_UPTIME": "7300"}
    with Switch(options.build, variables=uptime) as cgi, Switch(options.build, variables=uptime, workers=1) as resident:
        while time.monotonic() < end:
            for switch in cgi, resident:
                prepare(switch, description["x-scene"])
            for _ in range(300):
                if random.random() < 0.03:
                    command = random_command(operations)
                    for switch in cgi, resident:
                        try:
                            switch.command(*command)
                        except Refused:
                            pass
                variables, body = random_request(operations)
                same("Answers or calls", (variables, body), [switch.send(variables, body) for switch in (cgi, resident)])
                sent += 1
            same("Session files", f"seed {options.seed}", [files_of(switch) for switch in (cgi, resident)])
            same("Logs", f"seed {options.seed}", [log_of(switch) for switch in (cgi, resident)])
    print(f"{sent} requests, all the same (seed {options.seed})")


if __name__ == "__main__":
    main()
