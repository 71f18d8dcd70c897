"""switch.py - starts a virtual switch for Python tools, and runs the program in front of it.

As under a web server, each request is a process of the program, or goes by SCGI to the workers of a resident one.
Commands and the trace are those of the Python client.
"""
import os
import shutil
import socket
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../client/python"))
from switching.virtual import CommandFailed, Control, parse  # noqa: E402

Refused = CommandFailed


def scgi(variables, body=b""):
    """The bytes of a request. CONTENT_LENGTH follows from the body, unless it is among the variables."""
    variables = {"CONTENT_LENGTH": str(len(body)), "SCGI": "1", **variables}
    head = b"".join(os.fsencode(name) + b"\0" + os.fsencode(value) + b"\0" for name, value in variables.items())
    return b"%d:%s,%s" % (len(head), head, body)


class Resident:
    """The program, started with a listening socket. `workers`: how many. TEST_LAUNCHER: as in tests/support/driver.h."""

    def __init__(self, program, path, environment, workers):
        self.path = path
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(path)
            listening.listen(64)
            launcher = os.environ.get("TEST_LAUNCHER", "").split()
            self.process = subprocess.Popen([*launcher, program], stdin=listening,
                                            env=dict(environment, SWITCHING_WORKERS=str(workers)))

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(60)
        connection.connect(self.path)
        return connection

    def exchange(self, request):
        """Sends the bytes of a request. Returns all that comes back."""
        with self.connect() as connection:
            connection.sendall(request)
            connection.shutdown(socket.SHUT_WR)
            return b"".join(iter(lambda: connection.recv(1 << 16), b""))

    def stop(self):
        self.process.terminate()
        return self.process.wait(60)


class Switch:
    """Runs inside a `with`. Its files, and the program's /tmp, lie in a temporary directory.

    `workers` 0: each request is a process. Otherwise the program is resident, with so many workers. The program's
    environment also has `variables`.
    """

    def __init__(self, build, *options, program=None, workers=0, variables=()):
        self.build = os.path.abspath(build)
        self.program = program or os.environ.get("TEST_PROGRAM", self.build + "/switching_v2.cgi")
        self.options = options
        self.workers, self.resident, self.variables = workers, None, dict(variables)

    def __enter__(self):
        self.directory = tempfile.mkdtemp()
        path, trace = self.directory + "/socket", self.directory + "/trace"
        os.makedirs(self.directory + "/tmp/session")
        with open(self.directory + "/tmp/session/token", "w", encoding="ascii") as session:
            session.write("admin\n0\ntoken")
        preload = self.directory + "/libsandbox.so"  # LD_PRELOAD is split at spaces: a path without any
        os.symlink(os.environ.get("TEST_SANDBOX", self.build + "/lib/libsandbox.so"), preload)
        self.environment = {"OPENCLT_SOCKET": path, "SANDBOX_TMP": self.directory + "/tmp", "LD_PRELOAD": preload,
                            "LD_LIBRARY_PATH": os.environ.get("TEST_LIBRARIES", self.build + "/lib"), **self.variables}
        self.server = subprocess.Popen([self.build + "/vswitch", "--socket", path, "--trace", trace,
                                        "--trace-no-start", *self.options], stdout=subprocess.PIPE)
        if not self.server.stdout.readline():  # the first line says that it serves
            self.__exit__()
            raise SystemExit("switch.py: the virtual switch did not start: see above")
        self.control = Control(path)
        self.trace = open(trace, encoding="latin-1")
        self.output = os.open(self.directory + "/output", os.O_RDWR | os.O_CREAT)
        if self.workers:
            self.resident = Resident(self.program, self.directory + "/scgi", self.environment, self.workers)
        return self

    def __exit__(self, *_):
        if self.resident:
            self.resident.stop()
        self.server.terminate()
        self.server.wait()
        self.server.stdout.close()
        if hasattr(self, "output"):
            os.close(self.output)
            self.trace.close()
            self.control.close()
        shutil.rmtree(self.directory)

    def command(self, *words):
        """Sends a command, as `vswitch COMMAND` does: command("reset"), command("pass", 60)."""
        return self.control.command(*words)

    def ask(self, method, path, query="", body="", session="token"):
        """Sends the program one request. Returns all that it prints, and the list of its calls to the switch."""
        variables = {"REQUEST_METHOD": method, "QUERY_STRING": query, "REQUEST_URI": path + ("?" + query if query else "")}
        if session:
            variables["HTTP_SESSION"] = session
        return self.send(variables, body.encode())

    def send(self, variables, body=b""):
        """Sends a request with exactly these variables. Returns the same."""
        output = self.resident.exchange(scgi(variables, body)) if self.resident else self.run(variables, body)
        return output, [call for call in map(parse, self.trace.read().splitlines()) if call]

    def run(self, variables, body):
        """Runs the program for one request. Returns all that it prints."""
        environment = {**self.environment, "CONTENT_LENGTH": str(len(body)), **variables}
        source = "/dev/null"
        if body:
            source = self.directory + "/input"
            with open(source, "wb") as file:
                file.write(body)
        os.ftruncate(self.output, 0)
        os.lseek(self.output, 0, os.SEEK_SET)
        pid = os.posix_spawn(self.program, [self.program], environment, file_actions=[
            (os.POSIX_SPAWN_OPEN, 0, source, os.O_RDONLY, 0), (os.POSIX_SPAWN_DUP2, self.output, 1)])
        status = os.waitpid(pid, 0)[1]
        output = os.pread(self.output, 1 << 20, 0)
        return b"(ended with status %d) " % status + output if status else output

    def request(self, method, target, body=""):
        """Sends one request. Returns the body of the answer as bytes. `target`: path and raw query."""
        path, _, query = target.partition("?")
        return self.ask(method, path, query, body)[0].partition(b"\r\n\r\n")[2]
