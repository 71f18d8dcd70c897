"""virtual.py - talks to a virtual switch: its commands, its trace, and its ports that are sockets."""
import os
import re
import socket
import struct
import threading
import time
from dataclasses import dataclass, field

PREFIX = "rpcclt_openapi"  # of every operation's name

# A line of the trace: the operation, what it was sent, its code, what it returned.
VALUE = r'(?:\[\d+\]"(?:[^"\\]|\\.)*"|\d+\([\d ]*\)|[^ "(]+)'
LINE = re.compile(rf"(?:\[\d+\] )?(\w+)((?: \w+={VALUE})*) -> (-?\d+)((?: \w+={VALUE})*)")
OPERAND = re.compile(rf" (\w+)=({VALUE})")
OTHER = re.compile(r"port \d+\b.*|and \d+ more frames")  # lines about frames
AT_START = ("ConnectivityCheck", "NetworkOSVersionGet", "ApiVersionGet")  # what every start of the program calls


class CommandFailed(Exception):
    """The virtual switch refuses a command, or is not there."""


@dataclass
class Call:
    """A call of an operation: its name, what it was sent, its code, what it returned."""
    name: str
    sent: dict
    code: int
    returned: dict = field(default_factory=dict)

    def __str__(self):
        shown = lambda values: "".join(f" {name}={value}" for name, value in values.items())
        return f"{self.name}{shown(self.sent)} -> {self.code}{shown(self.returned)}"


def parse(line):
    """The call in a line of the trace, its values as the trace shows them. None: a line about frames."""
    match = LINE.fullmatch(line)
    if match:
        name, sent, code, returned = match.groups()
        return Call(name, dict(OPERAND.findall(sent)), int(code), dict(OPERAND.findall(returned)))
    if OTHER.fullmatch(line):
        return None
    raise ValueError(f"this line of the trace is unknown: {line}")


def plain(text):
    """A value of the trace as a number, a text, or a list of numbers. An IPv4 address stays text."""
    if text.startswith("["):
        return re.sub(r"\\(x..|.)", lambda found: chr(int(found[1][1:], 16)) if found[1][0] == "x" else found[1],
                      text[text.index('"') + 1:-1])
    if text.endswith(")"):
        return [int(number) for number in text[text.index("(") + 1:-1].split()]
    return int(text) if re.fullmatch(r"-?\d+", text) else text


class Trace:
    """The trace of a virtual switch, a file that grows."""

    def __init__(self, path):
        self.file = open(path, "rb")

    def end(self):
        return os.fstat(self.file.fileno()).st_size

    def calls(self, start):
        """The calls in the trace from a former end on, but not those with which the program starts."""
        return self.since(start)[0]

    def since(self, start):
        """The same, and the end of the last whole line. A line that began before `start` is left out."""
        begin = max(start - 1, 0)
        text = os.pread(self.file.fileno(), self.end() - begin, begin).decode("latin-1")
        lines = text[text.find("\n") + 1 if start else 0:text.rfind("\n") + 1]
        calls = [parse(line) for line in lines.splitlines()]
        return [Call(call.name.removeprefix(PREFIX), {name: plain(value) for name, value in call.sent.items()}, call.code,
                     {name: plain(value) for name, value in call.returned.items()})
                for call in calls if call and call.name.removeprefix(PREFIX) not in AT_START], begin + text.rfind("\n") + 1


class Control:
    """A connection for commands, as `vswitch COMMAND` makes one. Threads may share it."""

    def __init__(self, path):
        self.lock = threading.Lock()
        self.connection = socket.socket(socket.AF_UNIX)
        self.connection.settimeout(30)  # some commands wait for something
        try:
            self.connection.connect(path)
        except OSError as error:
            raise CommandFailed(f"no virtual switch serves on {path}: {error.strerror}") from None

    def command(self, *words):
        """Sends a command: command("reset"), command("advance", 60). Returns its answer."""
        text = " ".join(map(str, words)).encode()
        name = b"vswitch.control"
        content = struct.pack("BB", 1, len(name)) + name + b"T" + struct.pack("II", len(text) + 1, len(text)) + text
        with self.lock:
            self.connection.sendall(struct.pack("I", len(content)) + content)
            reply = receive(self.connection, *struct.unpack("I", receive(self.connection, 4)))
        answer = reply[13:].decode()
        if struct.unpack("i", reply[:4]) != (0,):
            raise CommandFailed(f"{text.decode()}: {answer.strip()}")
        return answer

    def close(self):
        self.connection.close()


def receive(connection, size):
    received = b""
    while len(received) < size:
        more = connection.recv(size - len(received))
        if not more:
            raise CommandFailed("the virtual switch closed the connection")
        received += more
    return received


def quoted(word):
    """A word of a command, as the command's line needs it."""
    text = str(word)
    return text if re.fullmatch(r"[\w.:,/=*+-]+", text) else "'" + text.replace("'", "'\\''") + "'"


class Port:
    """A host on a port of the virtual switch. `settle` returns when the switch has dealt with the frames sent to it."""

    def __init__(self, path, settle):
        self.settle = settle
        self.connection = socket.socket(socket.AF_UNIX)
        self.connection.connect(path)
        settle()

    def send(self, frame):
        """Sends an Ethernet frame: bytes from the destination address on, without checksum."""
        self.connection.sendall(struct.pack(">I", len(frame)) + frame)

    def receive(self, timeout=1):
        """The next frame from the switch. None: none has come within so many seconds."""
        deadline = time.monotonic() + timeout
        self.connection.settimeout(max(timeout, 0.001))
        try:
            first = self.connection.recv(4, socket.MSG_PEEK)
        except (TimeoutError, BlockingIOError):
            return None
        if not first:
            raise ConnectionError("the virtual switch closed the port")
        self.connection.settimeout(max(deadline - time.monotonic(), 1))
        return receive(self.connection, *struct.unpack(">I", receive(self.connection, 4)))

    def received(self):
        """All frames that the port has got so far, from all that was sent before."""
        self.settle()
        frames = []
        while (frame := self.receive(0)) is not None:
            frames.append(frame)
        return frames

    def close(self):
        self.connection.close()
