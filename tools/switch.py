"""switch.py - a virtual switch of its own, and the program in front of it, one process a request as a web server does."""
import os
import re
import shutil
import socket
import struct
import subprocess
import tempfile
from collections import namedtuple

# The trace: a line an operation, what it was sent, its code, what it returned; values stay as the trace shows them. (And
# lines on frames that were discarded.)
VALUE = r'(?:\[\d+\]"(?:[^"\\]|\\.)*"|\d+\([\d ]*\)|[^ "(]+)'
LINE = re.compile(rf"(?:\[\d+\] )?(\w+)((?: \w+={VALUE})*) -> (-?\d+)((?: \w+={VALUE})*)")
OPERAND = re.compile(rf" (\w+)=({VALUE})")

Call = namedtuple("Call", "name sent code returned")


class Refused(Exception):
    """The virtual switch does not take the command."""


class Switch:
    """Started in a `with`; everything it makes lies in a directory of its own, /tmp of the program included."""

    def __init__(self, build, *options, program=None):
        self.build = os.path.abspath(build)
        self.program = program or self.build + "/switching_v2.cgi"
        self.options = options

    def __enter__(self):
        self.directory = tempfile.mkdtemp()
        path, trace = self.directory + "/socket", self.directory + "/trace"
        os.makedirs(self.directory + "/tmp/session")
        with open(self.directory + "/tmp/session/token", "w", encoding="ascii") as session:
            session.write("admin\n0\ntoken")
        preload = self.directory + "/libsandbox.so"  # by a path without a space: the loader takes several there
        os.symlink(self.build + "/lib/libsandbox.so", preload)
        self.environment = {"OPENCLT_SOCKET": path, "SANDBOX_TMP": self.directory + "/tmp", "LD_PRELOAD": preload,
                            "LD_LIBRARY_PATH": self.build + "/lib"}
        self.server = subprocess.Popen([self.build + "/vswitch", "--socket", path, "--trace", trace,
                                        "--trace-no-start", *self.options], stdout=subprocess.PIPE)
        if not self.server.stdout.readline():  # it says when it serves
            self.__exit__()
            raise SystemExit("The virtual switch did not start.")
        self.control = socket.socket(socket.AF_UNIX)
        self.control.connect(path)
        self.trace = open(trace, encoding="latin-1")
        self.output = os.open(self.directory + "/output", os.O_RDWR | os.O_CREAT)
        return self

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()
        self.server.stdout.close()
        if hasattr(self, "output"):
            os.close(self.output)
            self.trace.close()
            self.control.close()
        shutil.rmtree(self.directory)

    def tell(self, *command):
        """A command to the running switch, as `vswitch` sends it: "reset", or "pass", "60" and so on."""
        text = " ".join(map(str, command)).encode()
        name = b"vswitch.control"
        content = struct.pack("BB", 1, len(name)) + name + b"T" + struct.pack("II", len(text) + 1, len(text)) + text
        self.control.sendall(struct.pack("I", len(content)) + content)
        reply = self.receive(*struct.unpack("I", self.receive(4)))
        if struct.unpack("i", reply[:4]) != (0,):
            raise Refused(f"{text.decode()}: {reply[13:].decode()}")

    def receive(self, size):
        received = b""
        while len(received) < size:
            more = self.control.recv(size - len(received))
            if not more:
                raise Refused("the virtual switch hung up")
            received += more
        return received

    def ask(self, method, path, query="", body="", session="token"):
        """Sends one request. Everything that is printed, and what the switch was asked for it."""
        environment = dict(self.environment, REQUEST_METHOD=method, QUERY_STRING=query,
                           REQUEST_URI=path + ("?" + query if query else ""))
        if session:
            environment["HTTP_SESSION"] = session
        source = "/dev/null"
        if body:
            source = self.directory + "/input"
            with open(source, "wb") as file:
                environment["CONTENT_LENGTH"] = str(file.write(body.encode()))
        os.ftruncate(self.output, 0)
        os.lseek(self.output, 0, os.SEEK_SET)
        pid = os.posix_spawn(self.program, [self.program], environment, file_actions=[
            (os.POSIX_SPAWN_OPEN, 0, source, os.O_RDONLY, 0), (os.POSIX_SPAWN_DUP2, self.output, 1)])
        status = os.waitpid(pid, 0)[1]
        output = os.pread(self.output, 1 << 20, 0)
        if status != 0:
            output = b"(ended with status %d) " % status + output
        calls = (LINE.fullmatch(line).groups() for line in self.trace.read().splitlines() if not line.startswith("port "))
        return output, [Call(name, dict(OPERAND.findall(sent)), int(code), dict(OPERAND.findall(returned)))
                        for name, sent, code, returned in calls]

    def request(self, method, target, body=""):
        """The body of the answer, as bytes. `target` is a path with its query, raw."""
        path, _, query = target.partition("?")
        return self.ask(method, path, query, body)[0].partition(b"\r\n\r\n")[2]
