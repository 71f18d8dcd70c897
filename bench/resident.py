#!/usr/bin/python3
"""resident.py BUILD ROUNDS [RATES] - measures the resident program beside the CGI program and prints a Markdown table.

BUILD holds switching_v2.cgi, lib/ and resident_floor. OPENCLT_SOCKET names a virtual switch, HTTP_SESSION an
administrator's session.
RATES is a directory with rates.plain and rates.resident (requests a second, one line for each round). In each round every
case runs in turn, so that a change of the machine's load affects all of them alike; the numbers are medians.
"""
import os
import random
import statistics
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tools"))
from arguments import build_with, parser  # noqa: E402
from switch import Resident, scgi  # noqa: E402

PATH = "/api/v2/switching/bridge/"
READ = {"REQUEST_METHOD": "GET", "REQUEST_URI": PATH + "dot1d-stp-priority", "QUERY_STRING": ""}
WRITE = {"REQUEST_METHOD": "PUT", "REQUEST_URI": PATH + "db-dot1d-tp-aging-time", "QUERY_STRING": ""}
BODY = b'{"agingTime": 300}'
BATCH = 100
CGI_PROCESSES = 64  # at once, for their memory


def spawn(program, environment, source):
    null = (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)
    return os.posix_spawn(program, [program], environment, file_actions=[
        (os.POSIX_SPAWN_OPEN, 0, source, os.O_RDONLY, 0), null])


def cgi_cpu(program, environment, source):
    """Microseconds of CPU of one process."""
    _, status, usage = os.wait4(spawn(program, environment, source), 0)
    if status:
        sys.exit(f"resident.py: the program ended with status {status}")
    return (usage.ru_utime + usage.ru_stime) * 1e6


def resident_cpu(pid, resident, request, success):
    """Microseconds of CPU for a request, from a batch to one worker."""
    def used():
        with open(f"/proc/{pid}/schedstat", encoding="ascii") as file:
            return int(file.read().split()[0]) / 1000
    before = used()
    for _ in range(BATCH):
        if success not in resident.exchange(request):
            sys.exit("resident.py: a wrong answer")
    return (used() - before) / BATCH


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return list(map(int, file.read().split()))


def memory(pids):
    """The proportional set size of the processes together, in KiB."""
    total = 0
    for pid in pids:
        with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
            total += next(int(line.split()[1]) for line in file if line.startswith("Pss:"))
    return total


def measure_memory(program, directory, environment, request):
    resident = Resident(program, directory + "/eight", environment, 8)
    while len(children(resident.process.pid)) < 8:
        time.sleep(0.01)
    time.sleep(0.2)
    family = [resident.process.pid, *children(resident.process.pid)]
    idle = memory(family)
    for _ in range(10000):
        resident.exchange(request)
    busy = memory([resident.process.pid, *children(resident.process.pid)])
    resident.stop()
    return idle, busy


def measure_cgi_memory(program, environment):
    """Their bodies come through pipes that stay empty, so all wait."""
    pids, ends = [], []
    for _ in range(CGI_PROCESSES):
        reader, writer = os.pipe()
        ends += [reader, writer]
        pids.append(os.posix_spawn(program, [program], {**environment, **WRITE, "CONTENT_LENGTH": "9"}, file_actions=[
            (os.POSIX_SPAWN_DUP2, reader, 0), (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)]))
    time.sleep(1)
    total = memory(pids)
    for end in ends:
        os.close(end)
    for pid in pids:
        os.waitpid(pid, 0)
    return total


def rates(directory, name):
    with open(f"{directory}/rates.{name}", encoding="ascii") as file:
        return [float(line) for line in file]


def judged(value, limit):
    met = value <= float(limit[2:]) if limit[0] == "≤" else value >= float(limit[2:])
    return f"{value:.3f}, aim {limit}: {'met' if met else '**missed**'}"


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with("switching_v2.cgi", "resident_floor"))
    arguments.add_argument("rounds", metavar="ROUNDS", type=int)
    arguments.add_argument("rates", metavar="RATES", nargs="?")
    options = arguments.parse_args()
    build, rounds = options.build, options.rounds
    environment = {"OPENCLT_SOCKET": os.environ["OPENCLT_SOCKET"], "LD_LIBRARY_PATH": build + "/lib"}
    program = build + "/switching_v2.cgi"
    session = {"HTTP_SESSION": os.environ["HTTP_SESSION"]}
    costs = {name: [] for name in ("read", "write", "resident read", "resident write", "resident floor")}
    with tempfile.TemporaryDirectory() as directory:
        with open(directory + "/body", "wb") as file:
            file.write(BODY)
        resident = Resident(program, directory + "/one", environment, 1)
        floor = Resident(build + "/resident_floor", directory + "/floor", environment, 1)
        read, write = scgi({**READ, **session}), scgi({**WRITE, **session}, BODY)
        resident.exchange(read)
        (worker,) = children(resident.process.pid)
        success = b'"status":\t"success"'
        cases = [lambda: costs["read"].append(cgi_cpu(program, {**environment, **READ, **session}, "/dev/null")),
                 lambda: costs["write"].append(cgi_cpu(program, {**environment, **WRITE, **session, "CONTENT_LENGTH": str(len(BODY))}, directory + "/body")),
                 lambda: costs["resident read"].append(resident_cpu(worker, resident, read, success)),
                 lambda: costs["resident write"].append(resident_cpu(worker, resident, write, success)),
                 lambda: costs["resident floor"].append(resident_cpu(floor.process.pid, floor, read, success))]
        for i in range(rounds):
            if i % 40 == 39:  # before the worker ends after 10,000 requests
                resident.stop()
                resident = Resident(program, f"{directory}/one{i}", environment, 1)
                resident.exchange(read)
                (worker,) = children(resident.process.pid)
            for case in random.sample(cases, len(cases)):
                case()
        resident.stop()
        floor.stop()
        idle, busy = measure_memory(program, directory, environment, read)
        cgi = measure_cgi_memory(program, {**environment, **session})
    median = {name: statistics.median(values) for name, values in costs.items()}
    print("\n| One request | CGI, CPU µs | Resident, CPU µs | Resident / CGI | Resident / its floor |\n|---|---:|---:|---|---|")
    for kind in ("read", "write"):
        one = median["resident " + kind]
        print(f"| {kind} | {median[kind]:.0f} | {one:.1f} | {judged(one / median[kind], '≤ 0.08')} |",
              f"{judged(one / median['resident floor'], '≤ 1.5')} |" if kind == "read" else "|")
    print(f"\nThe resident floor: {median['resident floor']:.1f} µs. Medians of {rounds} rounds; a resident value is the mean of {BATCH}.")
    print(f"Memory (PSS): a parent and 8 workers {idle} KiB idle, {busy} KiB after 10,000 requests;",
          f"{CGI_PROCESSES} CGI processes {cgi} KiB.")
    if options.rates:
        plain, stays = rates(options.rates, "plain"), rates(options.rates, "resident")
        ratio = statistics.median(one / other for one, other in zip(stays, plain))
        print(f"Requests/s through lighttpd: CGI {statistics.median(plain):.0f}, resident {statistics.median(stays):.0f};",
              f"ratio {judged(ratio, '≥ 8')}.")


if __name__ == "__main__":
    main()
