#!/usr/bin/python3
"""frames_referee.py BUILD [SEED...] [--frames N] - compares the virtual switch with Open vSwitch's datapath in user space.

Makes random access, trunk and native settings through the REST interface and in Open vSwitch, sends random frames through
both, and compares every delivery: port, tag and content. Needs Debian's openvswitch-switch, but no root, and leaves
nothing behind. BUILD is a directory in which everything is built.
"""
import json, os, random, shutil, socket, struct, subprocess, sys, tempfile, time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from arguments import PROGRAM, build_with, parser
from switch import Switch

PORTS, VLANS = range(1, 6), (1, 10, 20, 30)


class Hosts:
    """The hosts of one switch: a socket for each port. Before each frame comes its length, in struct's format `length`."""

    def __init__(self, path_of, length):
        self.length, self.prefix = length, struct.calcsize(length)
        self.sockets = {}
        for port in PORTS:
            self.sockets[port] = socket.socket(socket.AF_UNIX)
            self.sockets[port].connect(path_of(port))
            self.sockets[port].setblocking(False)
        self.buffers = {port: b"" for port in PORTS}

    def send(self, port, frame):
        self.sockets[port].sendall(struct.pack(self.length, len(frame)) + frame)

    def collect(self):
        frames = []
        for port, host in self.sockets.items():
            try:
                while data := host.recv(65536):
                    self.buffers[port] += data
            except BlockingIOError:
                pass
            while len(self.buffers[port]) >= self.prefix:
                end = self.prefix + struct.unpack(self.length, self.buffers[port][:self.prefix])[0]
                if len(self.buffers[port]) < end:
                    break
                frames.append((port, self.buffers[port][self.prefix:end].hex()))
                self.buffers[port] = self.buffers[port][end:]
        return sorted(frames)


class VirtualSwitch(Switch):
    """Runs inside a `with`; its sockets are in the directory `run`."""

    def __init__(self, build, run):
        super().__init__(build, *(argument for port in PORTS for argument in ("--plug", f"{port}=unix:{run}/v{port}")))
        self.sockets = run

    def __enter__(self):
        super().__enter__()
        self.hosts = Hosts(lambda port: f"{self.sockets}/v{port}", ">I")
        return self

    def settle(self):
        self.command("settle")

    def set(self, method, target, body=None):
        answer = self.request(method, "/api/v2/switching/" + target, json.dumps(body) if body else "")
        if b'"success"' not in answer:
            sys.exit(f"{method} {target} {body} is answered {answer.decode()}")

    def configure(self, settings):
        self.set("POST", "fdb/flush")
        for port, (mode, vlan, allowed) in settings.items():
            self.set("PUT", "vlan/dot1q-sw-port-mode", {"intf": port, "mode": mode})
            if mode == 1:
                self.set("PUT", f"vlan/dot1q-sw-port-access-vlan?intf={port}", {"vlanId": vlan})
            else:
                self.set("PUT", f"vlan/dot1q-sw-port-trunk-native-vlan?intf={port}", {"vlanId": vlan})
                self.set("PUT", "vlan/dot1q-sw-port-trunk-allowed-vlan-list", {"intf": port, "vidList": allowed})


class OpenVSwitch:
    """Runs inside a `with`; all its files are in the directory `run`. Its ports are sockets, or TAP interfaces with the
    names `taps`."""

    def __init__(self, run, settings="", taps=()):
        self.run, self.settings, self.taps, self.processes = run, settings, taps, []

    def __enter__(self):
        try:
            self.begin(self.run, self.settings)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.terminate()
            process.wait()

    def begin(self, run, settings):
        self.environment = {**os.environ, "OVS_RUNDIR": run, "OVS_LOGDIR": run, "OVS_DBDIR": run, "OVS_SYSCONFDIR": run,
                            "PATH": os.environ["PATH"] + ":/usr/sbin:/sbin"}
        database = f"unix:{run}/db"
        self.call("ovsdb-tool", "create", run + "/conf.db", "/usr/share/openvswitch/vswitch.ovsschema")
        self.start("ovsdb-server", run + "/conf.db", f"--remote=punix:{run}/db", f"--unixctl={run}/dbctl", wait=run + "/db")
        self.vsctl = ["ovs-vsctl", f"--db={database}"]
        self.call(*self.vsctl, "--no-wait", "init")
        self.start("ovs-vswitchd", database, *([] if self.taps else ["--enable-dummy=override"]), "--disable-system",
                   f"--unixctl={run}/ctl", wait=run + "/ctl")
        words = ["add-br", "br0", "--", "set", "Bridge", "br0", "fail_mode=standalone",
                 "datapath_type=" + ("netdev" if self.taps else "dummy")]
        words += ["--", "set", "Open_vSwitch", ".", settings] if settings else []
        for tap in self.taps:
            words += ["--", "add-port", "br0", tap, "--", "set", "Interface", tap, "type=tap"]
        for port in () if self.taps else PORTS:
            words += ["--", "add-port", "br0", f"p{port}", "--", "set", "Interface", f"p{port}", "type=dummy",
                      f"options:pstream=punix:{run}/o{port}"]
        self.call(*self.vsctl, *words)
        if self.taps:
            return
        self.hosts = Hosts(lambda port: f"{run}/o{port}", ">H")
        self.control = socket.socket(socket.AF_UNIX)
        self.control.connect(run + "/ctl")

    def call(self, *words):
        subprocess.run(words, env=self.environment, check=True, stdout=subprocess.DEVNULL)

    def start(self, *words, wait):
        log = open(f"{self.run}/{words[0]}.err", "w")
        self.processes.append(subprocess.Popen([words[0], *words[1:]], env=self.environment, stderr=log))
        for _ in range(200):
            if os.path.exists(wait):
                return
            time.sleep(0.05)
        sys.exit(open(log.name).read())

    def settle(self):
        """Waits until frames are forwarded: some rounds of its main loop. (It does not say how many it needs.)"""
        for turn in range(10):
            self.control.sendall(json.dumps({"method": "version", "params": [], "id": turn}).encode())
            while not self.control.recv(4096).count(b'"id":'):
                pass
            time.sleep(0.0005)

    def configure(self, settings):
        words = []
        for port, (mode, vlan, allowed) in settings.items():
            words += ["--", "clear", "Port", f"p{port}", "tag", "--", "clear", "Port", f"p{port}", "trunks", "--", "set",
                      "Port", f"p{port}"]
            if mode == 1:
                words += [f"tag={vlan}", "vlan_mode=access"]
            elif vlan in allowed:
                words += [f"tag={vlan}", "trunks=" + ",".join(map(str, allowed)), "vlan_mode=native-untagged"]
            else:
                words += ["trunks=" + ",".join(map(str, allowed)), "vlan_mode=trunk"]
        self.call(*self.vsctl, *words[1:])
        self.control.sendall(b'{"method":"fdb/flush","params":["br0"],"id":0}')
        self.control.recv(4096)


def settings_of(chance):
    return {port: (chance.choice((1, 2)), chance.choice(VLANS), sorted(chance.sample(VLANS, chance.randint(1, 4))))
            for port in PORTS}


def frame_of(chance, number):
    """A random frame to a station or a group, and its port. A station mostly sends from the same port."""
    station = chance.randint(0, 7)
    port = chance.choice(PORTS) if chance.random() < 0.2 else 1 + station % len(PORTS)
    to = chance.choice([f"0200000000{chance.randint(0, 7):02x}"] * 4 + ["ffffffffffff", "01005e000001", "0180c2000000"])
    tag = b""
    if chance.random() < 0.6:
        tag = struct.pack(">HH", 0x8100, chance.choice((0, 40) + VLANS * 2) | chance.randint(0, 7) << 13)
    frame = bytes.fromhex(to + f"0200000000{station:02x}") + tag + struct.pack(">HI", 0x88B5, number)
    return port, frame.ljust(60 + len(tag), b"\xa5")


def judge(seed, frames, ours, theirs):
    """Compares the deliveries of random frames; ends the process at the first difference."""
    chance = random.Random(seed)
    settings, delivered = settings_of(chance), 0
    for number in range(frames):
        if number % 20 == 0:
            settings = settings_of(chance)
            for switch in (ours, theirs):
                switch.configure(settings)
        port, frame = frame_of(chance, number)
        for switch in (ours, theirs):
            switch.hosts.send(port, frame)
            switch.settle()
        results, deadline = [switch.hosts.collect() for switch in (ours, theirs)], time.time() + 2
        while results[0] != results[1] and time.time() < deadline:
            results[1] = sorted(results[1] + theirs.hosts.collect())
        if results[0] != results[1]:
            print(f"seed {seed}, frame {number}: {frame.hex()} into port {port}; settings (mode, VLAN, allowed): {settings}")
            print("the virtual switch delivers", *results[0], "Open vSwitch delivers", *results[1], sep="\n  ")
            sys.exit(1)
        delivered += len(results[0])
    print(f"seed {seed}: {frames} frames, {delivered} deliveries, all alike")


def main():
    options = parser(__doc__)
    options.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    options.add_argument("seeds", nargs="*", type=int, default=[1, 2])
    options.add_argument("--frames", type=int, default=60)
    arguments = options.parse_args()
    if not shutil.which("ovs-vswitchd", path=os.environ["PATH"] + ":/usr/sbin"):
        print("skipped: this needs Debian's openvswitch-switch")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as run, VirtualSwitch(arguments.build, run) as ours, \
            OpenVSwitch(run, "other_config:flow-limit=0") as theirs:  # no cached decisions
        for vlan in VLANS[1:]:
            ours.set("POST", f"vlan/create?vlanNum={vlan}")
        for seed in arguments.seeds:
            judge(seed, arguments.frames, ours, theirs)


if __name__ == "__main__":
    main()
