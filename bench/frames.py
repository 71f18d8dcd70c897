#!/usr/bin/python3
"""frames.py BUILD [FRAMES] - measures what a frame costs through two ports of the virtual switch: CPU time for each frame,
and frames per second. Measures also the virtual switch's CPU time when it is idle, and for a REST request with no port
plugged in. Prints a Markdown table.

As root it compares the switch with Open vSwitch's datapath in user space, in one run: both forward between two TAP
interfaces, in a network namespace of this process. Needs Debian's openvswitch-switch and iproute2. Otherwise it measures
the virtual switch with hosts on sockets, and compares nothing. BUILD is a release build.
"""
import ctypes, os, shutil, socket, struct, subprocess, sys, tempfile, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "outside"))
from frames_referee import PROGRAM, build_with, parser, OpenVSwitch, Switch, VirtualSwitch

ROUNDS, BATCH, REQUESTS = 5, 32, 200
CLONE_NEWNET, ETH_P_ALL = 0x40000000, 3


def cpu(pid):
    """CPU time of all threads in microseconds."""
    return sum(int(open(f"/proc/{pid}/task/{task}/schedstat").read().split()[0]) for task in os.listdir(f"/proc/{pid}/task")) / 1000


def context_switches(pid):
    return sum(int(line.split()[1]) for line in open(f"/proc/{pid}/status") if "ctxt_switches" in line)


def frame(source, destination, size):
    return bytes.fromhex(f"0200000000{destination:02x}0200000000{source:02x}88b5").ljust(size, b"\xa5")


class SocketEnds:
    """Hosts on the virtual switch's sockets: what each sends and receives."""

    def __init__(self, hosts):
        self.hosts = hosts

    def send(self, port, frames):
        host = self.hosts.sockets[port]
        host.setblocking(True)
        host.sendall(b"".join(struct.pack(self.hosts.length, len(each)) + each for each in frames))
        host.setblocking(False)

    def receive(self):
        """How many frames have come out."""
        return len(self.hosts.collect())


class TapEnds:
    """Hosts on the TAP interfaces of ports 1 and 2, as programs on this machine would be."""

    def __init__(self, names):
        self.sockets = {}
        for port, name in enumerate(names, 1):
            subprocess.run(["ip", "link", "set", name, "up"], check=True)
            self.sockets[port] = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            self.sockets[port].bind((name, 0))
            self.sockets[port].setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
            self.sockets[port].setblocking(False)

    def send(self, port, frames):
        for each in frames:
            self.sockets[port].send(each)

    def receive(self):
        count = 0
        for host in self.sockets.values():
            try:
                while True:
                    bytes_, address = host.recvfrom(2048)
                    count += address[2] != socket.PACKET_OUTGOING and bytes_[12:14] == b"\x88\xb5"
            except BlockingIOError:
                pass
        return count


def measure(ends, pid, frames, size):
    """Sends frames from port 1 to port 2, in batches. Returns the CPU time of a frame, and frames per second."""
    batch = [frame(1, 2, size)] * BATCH
    for port, source, destination in ((2, 2, 1), (1, 1, 2)):  # the switch learns both addresses
        ends.send(port, [frame(source, destination, size)])
        time.sleep(0.3)
    ends.receive()
    started, spent, received = time.time(), cpu(pid), 0
    for sent in range(BATCH, frames + BATCH, BATCH):
        ends.send(1, batch)
        while received < sent:  # the queues are short: wait for each batch
            if time.time() - started > 30 + frames / 100:
                sys.exit(f"only {received} of {frames} frames came through")
            got = ends.receive()
            received += got
            if not got:
                time.sleep(0.0002)
    return (cpu(pid) - spent) / frames, frames / (time.time() - started)


def median(values):
    return sorted(values)[len(values) // 2]


def idle(pid):
    """What two idle seconds cost, as a text."""
    spent, woken = cpu(pid), context_switches(pid)
    time.sleep(2)
    return f"{(cpu(pid) - spent) / 2:.0f} µs of CPU a second, {(context_switches(pid) - woken) / 2:.0f} times awake"


def cannot_compare():
    """Why Open vSwitch cannot be compared here; empty when it can."""
    if os.geteuid() != 0:
        return "only root may make TAP interfaces and network namespaces"
    if not shutil.which("ovs-vswitchd", path=os.environ["PATH"] + ":/usr/sbin"):
        return "Debian's openvswitch-switch is missing"
    if not os.access("/dev/net/tun", os.R_OK | os.W_OK):
        return "/dev/net/tun is missing or closed"
    if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNET) != 0:
        return "network namespaces cannot be made here"
    return ""


def print_rows(switches, frames):
    """Measures the switches in turns: (name, ends, process). With two of them, the first is compared with the second."""
    print("| Frame | Switch | CPU a frame, µs | Frames/s | Aim |\n|---|---|---:|---:|---|")
    for size in (60, 1514):
        results = {name: [] for name, _, _ in switches}
        for _ in range(ROUNDS):
            for name, ends, pid in switches:
                results[name].append(measure(ends, pid, frames, size))
        medians = {name: [median(column) for column in zip(*rows)] for name, rows in results.items()}
        (ours, _), (others, _) = list(medians.values())[0], list(medians.values())[-1]
        for name, (micros, rate) in medians.items():
            compared = len(switches) > 1 and name == switches[0][0]
            aim = f"{ours / others:.2f} of Open vSwitch's CPU, aim ≤ 1: {'met' if ours <= others else '**missed**'}"
            print(f"| {size} bytes | {name} | {micros:.2f} | {rate:.0f} | {aim if compared else ''} |")


def compare(build, run, frames):
    with Switch(build, "--plug", "1=tap:ours1", "--plug", "2=tap:ours2") as ours, \
            OpenVSwitch(run, taps=("theirs1", "theirs2")) as theirs:
        print_rows([("virtual switch, TAP", TapEnds(("ours1", "ours2")), ours.server.pid),
                    ("Open vSwitch, TAP", TapEnds(("theirs1", "theirs2")), theirs.processes[-1].pid)], frames)


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("frames", metavar="FRAMES", nargs="?", type=int, default=20000)
    options = arguments.parse_args()
    frames = options.frames - options.frames % BATCH
    why = cannot_compare()
    with tempfile.TemporaryDirectory() as run:
        if why:
            print(f"This compares nothing: {why}.\n")
        else:
            compare(options.build, run, frames)
    with tempfile.TemporaryDirectory() as run, VirtualSwitch(options.build, run) as ours:
        print_rows([("virtual switch, sockets", SocketEnds(ours.hosts), ours.server.pid)], frames)
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
