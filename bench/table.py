#!/usr/bin/python3
"""table.py RUN LOAD - prints run.sh's Markdown table of what it measured, with the aims. LOAD is a text.

The directory RUN holds `times` (what measure prints), NAME.valgrind (callgrind's messages), plain.annotated
(callgrind_annotate), rates.floor and rates.plain (requests a second, one line for each round).
"""
import glob
import os
import re
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tools"))
from arguments import parser  # noqa: E402

LENGTHS = (1024, 2048, 4096)


def read_times(path):
    """{name: (CPU, wall)} in microseconds, and the number of rounds."""
    rows = [line.rstrip("\n").split("\t") for line in open(path, encoding="ascii")]
    return {name: (float(cpu), float(wall)) for name, cpu, wall, _ in rows}, rows[0][3]


def read_instructions(run):
    found = {}
    for path in glob.glob(run + "/*.valgrind"):
        name = os.path.basename(path).removesuffix(".valgrind")
        found[name] = int(re.search(r"Collected *: (\d+)", open(path).read())[1])
    registration = re.search(r"^ *([\d,]+) .*:registerEndpoints\(", open(run + "/plain.annotated").read(), re.MULTILINE)
    if not registration:
        sys.exit("table.py: callgrind_annotate does not show registerEndpoints")
    found["registerEndpoints"] = int(registration[1].replace(",", ""))
    return found


def read_rates(run):
    """{name: median of the rounds}. A ratio of two rounds in a row is more exact than that of the medians."""
    plain, floor = ([float(line) for line in open(f"{run}/rates.{name}")] for name in ("plain", "floor"))
    return {"plain": statistics.median(plain), "floor": statistics.median(floor),
            "ratio": statistics.median(one / other for one, other in zip(plain, floor))}


def judged(what, value, limit, more=""):
    """The value, and whether it meets the limit: as many digits count as are printed."""
    sign, bound = limit.split()
    met = round(value, 2) <= float(bound) if sign == "≤" else round(value, 2) >= float(bound)
    return f"{what} {value:.2f}, aim {limit}{more}: {'met' if met else '**missed**'}"


def growth(values, kind):
    """Cost of the step from 2,048 to 4,096 ids by that from 1,024 to 2,048: 2 when linear, 4 when quadratic."""
    costs = [values[f"{kind}{length}"] for length in LENGTHS]
    return (costs[2] - costs[1]) / (costs[1] - costs[0])


def row(title, cells, aim=""):
    """A line of the table. `cells`: (value, ratio to the floor) or None, for each measured quantity."""
    texts = [" | " if cell is None else f"{cell[0]:.0f} | {cell[1]:.2f}" for cell in cells]
    print(f"| {title} | {' | '.join(texts)} | {aim} |")


def main():
    arguments = parser(__doc__)
    for name in "run", "load":
        arguments.add_argument(name, metavar=name.upper())
    run, load = vars(arguments.parse_args()).values()
    times, rounds = read_times(run + "/times")
    instructions, rates = read_instructions(run), read_rates(run)
    cpu, wall = ({name: pair[i] for name, pair in times.items()} for i in (0, 1))

    def request_row(title, name, aim="", rate=None):
        counted = instructions[name]
        row(title, [(cpu[name], cpu[name] / cpu["floor"]), (wall[name], wall[name] / wall["floor"]),
                    (counted / 1000, counted / instructions["floor"]), rate], aim)

    print("| Request | CPU, µs | × floor | Wall, µs | × floor | Instructions, 1000 | × floor | Requests/s | × floor | Aim |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---:|---|")
    request_row("Floor", "floor", rate=(rates["floor"], 1))
    request_row("Plain reader", "plain", "; ".join([
        judged("CPU", cpu["plain"] / cpu["floor"], "≤ 1.2"),
        judged("instructions", instructions["plain"] / instructions["floor"], "≤ 2"),
        judged("rate", rates["ratio"], "≥ 0.9")]), (rates["plain"], rates["ratio"]))
    registration = instructions["registerEndpoints"]
    row("of it, registerEndpoints", [None, None, (registration / 1000, registration / instructions["floor"]), None],
        judged("share", registration / instructions["plain"], "≤ 0.20"))
    for kind in ("read", "write"):
        for length in LENGTHS:
            linear = judged("growth", growth(instructions, kind), "≤ 2.1", " (linear)")
            request_row(f"List {kind}, {length} ids", f"{kind}{length}",
                        f"{linear} (CPU {growth(cpu, kind):.2f})" if length == LENGTHS[-1] else "")
    print(f"""
The floor makes the platform calls of the plain reader and prints a ready-made answer. Times are medians of {rounds} rounds.
Rates are with 4 connections, medians of runs of 1 s; their ratio is the median of the ratios. Load: {load}.
The floor against itself: CPU {cpu['floorAgain'] / cpu['floor']:.2f}, wall {wall['floorAgain'] / wall['floor']:.2f}: \
smaller differences are noise. Growth: what the second 2,048 ids
cost by what the second 1,024 cost. Wall includes the switch.""")


main()
