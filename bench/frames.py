#!/usr/bin/python3
"""frames.py BUILD [FRAMES] - measures what a frame costs through two ports of the virtual switch, and of Open vSwitch's
datapath in user space, in one run: CPU time for each frame, and frames per second. Measures also the virtual switch's
CPU time when it is idle, and for a REST request with no port plugged in. Prints a Markdown table.

Open vSwitch's dummy ports are made for tests, not for speed: keep that in mind when you read the ratio. Needs Debian's
openvswitch-switch, but no root. BUILD is a release build.
"""
import os, struct, sys, tempfile, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "outside"))
from frames_referee import PROGRAM, build_with, parser, OpenVSwitch, Switch, VirtualSwitch

ROUNDS, BATCH, REQUESTS = 5, 32, 200


def cpu(pid):
    """CPU time of all threads in microseconds."""
    return sum(int(open(f"/proc/{pid}/task/{task}/schedstat").read().split()[0]) for task in os.listdir(f"/proc/{pid}/task")) / 1000


def context_switches(pid):
    return sum(int(line.split()[1]) for line in open(f"/proc/{pid}/status") if "ctxt_switches" in line)


def frame(source, destination, size):
    return bytes.fromhex(f"0200000000{destination:02x}0200000000{source:02x}88b5").ljust(size, b"\xa5")


def measure(hosts, pid, frames, size):
    """Sends frames from port 1 to port 2, in batches. Returns the CPU time of a frame, and frames per second."""
    sender, receiver = hosts.sockets[1], hosts.sockets[2]
    one = struct.pack(hosts.length, size) + frame(1, 2, size)
    for port, source, destination in ((2, 2, 1), (1, 1, 2)):  # the switch learns both addresses
        hosts.send(port, frame(source, destination, size))
        time.sleep(0.3)
    hosts.collect()
    started, spent, received = time.time(), cpu(pid), 0
    for sent in range(0, frames, BATCH):
        sender.setblocking(True)
        sender.sendall(one * BATCH)
        sender.setblocking(False)
        while received < (sent + BATCH) * len(one):  # the queues are short: wait for each batch
            if time.time() - started > 30 + frames / 100:
                sys.exit(f"only {received // len(one)} of {frames} frames came through")
            try:
                received += len(receiver.recv(1 << 20))
            except BlockingIOError:
                time.sleep(0.0002)
    return (cpu(pid) - spent) / frames, frames / (time.time() - started)


def median(values):
    return sorted(values)[len(values) // 2]


def idle(pid):
    """What two idle seconds cost, as a text."""
    spent, woken = cpu(pid), context_switches(pid)
    time.sleep(2)
    return f"{(cpu(pid) - spent) / 2:.0f} µs of CPU a second, {(context_switches(pid) - woken) / 2:.0f} times awake"


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("frames", metavar="FRAMES", nargs="?", type=int, default=20000)
    options = arguments.parse_args()
    frames = options.frames - options.frames % BATCH
    with tempfile.TemporaryDirectory() as run, VirtualSwitch(options.build, run) as ours, OpenVSwitch(run) as theirs:
        print("| Frame | Switch | CPU a frame, µs | Frames/s | Aim |\n|---|---|---:|---:|---|")
        for size in (60, 1514):
            results = {name: [] for name in ("virtual switch", "Open vSwitch")}
            for _ in range(ROUNDS):
                results["virtual switch"].append(measure(ours.hosts, ours.server.pid, frames, size))
                results["Open vSwitch"].append(measure(theirs.hosts, theirs.processes[-1].pid, frames, size))
            medians = {name: [median(column) for column in zip(*rows)] for name, rows in results.items()}
            ratio = medians["virtual switch"][0] / medians["Open vSwitch"][0]
            for name, (micros, rate) in medians.items():
                aim = f"{ratio:.2f} of Open vSwitch's CPU, aim ≤ 1: {'met' if ratio <= 1 else '**missed**'}"
                print(f"| {size} bytes | {name} | {micros:.2f} | {rate:.0f} | {aim if name[0] == 'v' else ''} |")
        print(f"\nPlugged and idle: {idle(ours.server.pid)}. Medians of {ROUNDS} rounds of {frames} frames.")
    with Switch(options.build) as unplugged:
        costs = []
        for _ in range(ROUNDS):
            spent = cpu(unplugged.server.pid)
            for _ in range(REQUESTS):
                unplugged.request("GET", "/api/v2/switching/bridge/dot1d-stp-port-state?port=3")
            costs.append((cpu(unplugged.server.pid) - spent) / REQUESTS)
        print(f"Unplugged: {median(costs):.0f} µs of the switch's CPU a REST request; and idle: {idle(unplugged.server.pid)}.")


main()
