"""switch.py - the client: requests to a switch's REST interface, in front of a real switch or of a virtual one."""
import contextlib
import http.client
import itertools
import json
import os
import select
import shutil
import subprocess
import tempfile
import threading
import time
import warnings
from urllib.parse import urlsplit

from . import description
from .virtual import PREFIX, CommandFailed, Control, Port, Trace, quoted

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKOUT = os.path.normpath(os.path.join(HERE, "../../.."))
NOT_ADMITTED = 403
UNSUPPORTED = 17002
IDLE = 4  # seconds after which a connection is made anew: web servers close them after 5, and that may cross a request


class Refused(Exception):
    """The switch refuses a request. `code` is resp.respCode, or 403 when the session does not admit the request."""

    def __init__(self, code, message, request="", calls=None):
        self.code, self.message, self.request, self.calls = code, message, request, calls
        asked = f"; the switch was asked: {', '.join(map(str, calls)) or 'nothing'}" if calls is not None else ""
        super().__init__((f"{request}: " if request else "") + f"{code} {message}{asked}")

    def __eq__(self, other):
        return isinstance(other, Refused) and (self.code, self.message) == (other.code, other.message)

    __hash__ = Exception.__hash__


class NoAnswer(Exception):
    """What answered is not the interface, or it did not answer."""


class Switch:
    """A switch. Keys of requests are placed and checked as the description says; several threads may use one Switch.

    `context` is the ssl.SSLContext for an https URL. Without it, the switch's certificate must be signed by one of the
    system's authorities, or by one in the file that SSL_CERT_FILE in the environment names."""

    def __init__(self, url, session=None, *, context=None, socket=None, trace=None, description_file=None, timeout=40):
        self.url = url.rstrip("/")
        self.session, self.context, self.timeout = session, context, timeout
        self.description = description.load(description_file)
        self.control = Control(socket) if socket else None
        self.trace = Trace(trace) if trace else None
        self.served, self.server = {}, None
        self.kept = threading.local()  # a connection for each thread
        self.recordings, self.recording, self.ports = [], threading.Lock(), {}

    @classmethod
    def of(cls, served, role="admin"):
        """The virtual switch that `serve.sh --json` describes: its line, or what was read from it. `role` is the user:
        admin, writer or reader."""
        served = json.loads(served) if isinstance(served, str) else served
        switch = cls(served["base"], served["tokens"][role], socket=served["socket"], trace=served["trace"])
        switch.served = served
        return switch

    @classmethod
    def serve(cls, build=None, role="admin", **options):
        """Serves a virtual switch until close(), or the end of the `with`. `build` is the directory of a build in a
        checkout (or SWITCHING_BUILD in the environment); without it, what is installed. The options are those of
        serve.sh: ports=28, sockets=2, ..."""
        command = [*serve_command(build or os.environ.get("SWITCHING_BUILD")), "--json", "--own-files"]
        for name, value in {"port": 0, **options}.items():
            if value is not None and value is not False:
                command += [f"--{name.replace('_', '-')}", *([] if value is True else [str(value)])]
        with tempfile.TemporaryFile() as errors:
            # It ends with its standard input: also when this process is killed.
            server = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors)
            line = server.stdout.readline()
            if not line:
                server.wait()
                errors.seek(0)
                raise NoAnswer(errors.read().decode(errors="replace").strip() or f"{command[0]} did not start")
        switch = cls.of(line.decode(), role)
        switch.server = server
        return switch

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.disconnect()
        self.end_hosts()
        for one in [self.control, self.trace and self.trace.file]:
            if one:
                one.close()
        if self.server:
            self.server.stdin.close()
            self.server.terminate()
            self.server.wait()
            self.server.stdout.close()
        self.server = self.control = self.trace = None

    def as_user(self, role):
        """Another client of the same virtual switch, as admin, writer or reader."""
        return Switch.of(self.served, role)

    # Requests

    def get(self, path, /, **keys):
        """The data of the answer, a dict. Raises Refused."""
        return self.call("GET", path, keys)

    def post(self, path, /, **keys):
        return self.call("POST", path, keys)

    def put(self, path, /, **keys):
        return self.call("PUT", path, keys)

    def delete(self, path, /, **keys):
        return self.call("DELETE", path, keys)

    def call(self, method, path, keys):
        operation = self.description.operation(method, path)
        target, body = operation.request(keys)
        start = self.trace.end() if self.trace else 0
        status, text = self.send(method, target, body)
        shown = f"{operation}" + "".join(f" {name}={value!r}" for name, value in keys.items())
        asked = lambda: self.trace.calls(start) if self.trace else None
        if status == NOT_ADMITTED:
            raise Refused(status, "the session has ended, does not exist, or may not do this", shown, asked())
        try:
            answer = json.loads(text)
            resp = answer.pop("resp")
        except (ValueError, KeyError):
            raise NoAnswer(f"{shown}: status {status}, and no answer of the interface: {text[:200]!r}") from None
        if resp["status"] != "success":
            raise Refused(resp["respCode"], resp["respMsg"], shown, asked())
        return next(iter(answer.values()), {})

    def send(self, method, target, body=""):
        """Sends a request raw: path and query as they stand, the body as text or bytes. Returns the status of HTTP and the
        text of the answer."""
        url = urlsplit(self.url)
        path = f"{url.path}/{target}".encode("utf-8").decode("latin-1")
        body = body.encode() if isinstance(body, str) else body
        headers = {"Session": self.session} if self.session else {}
        connection = self.connection(url)
        try:
            connection.request(method, path, body if method in ("POST", "PUT") else None, headers)
            response = connection.getresponse()
            status, text = response.status, response.read()
        except (OSError, http.client.HTTPException) as error:
            self.disconnect()
            raise NoAnswer(f"{method} {target}: {self.url} does not answer: {error or type(error).__name__}") from None
        with self.recording:
            for recording in self.recordings:
                calls, recording.end = self.trace.since(recording.end)
                recording.extend(calls)
        return status, text.decode("utf-8", "replace")

    def connection(self, url):
        """The thread's connection. It is made anew when the server has closed it meanwhile."""
        connection, now = getattr(self.kept, "connection", None), time.monotonic()
        idle, self.kept.used = now - getattr(self.kept, "used", now), now
        if connection and connection.sock and (idle > IDLE or select.select([connection.sock], [], [], 0)[0]):
            connection.close()
        if not connection:
            if url.scheme == "https":
                connection = HttpsConnection(url.hostname, url.port, timeout=self.timeout, context=self.context)
            else:
                connection = HttpConnection(url.hostname, url.port, timeout=self.timeout)
            self.kept.connection = connection
        return connection

    def disconnect(self):
        if connection := getattr(self.kept, "connection", None):
            connection.close()

    def walk(self, path, /, **keys):
        """Yields the answers of a "next" endpoint, each fed into the following request, until the switch refuses one or
        does not move on. Keys that the answers do not name stay as they are given. Without any of the others the walk
        begins with the "first" endpoint, if there is one; its members get the names that they have in the others."""
        walk = self.description.walk(path)
        values = {key.name: value for key, value in walk.operation.values(keys, complete=False).items()}
        first = walk.first if not set(walk.cursor) & set(values) else None
        seen = set()
        for step in itertools.count():
            try:
                data = self.call(walk.operation.method, first if first and step == 0 else path, values)
            except Refused as error:
                if error.code in (NOT_ADMITTED, UNSUPPORTED):
                    raise
                return
            if first and step == 0:
                data = walk.renamed(data)
            values.update({key: data[member] for key, member in walk.cursor.items()})
            place = tuple(values.items())
            if place in seen:
                return
            seen.add(place)
            yield data

    # The state

    def snapshot(self, jobs=4):
        """Everything that is set: {table: {entry: {setting: value}}}. `jobs` requests are sent at a time."""
        from .snapshot import snapshot
        found, unread = snapshot(self, jobs)
        if unread:
            warnings.warn(f"not in the snapshot: {dict(unread)}", stacklevel=2)
        return found

    def apply(self, state, exact=False, jobs=4):
        """Sets what differs from a state: a dict as snapshot() returns, or a part of one, or the path of a file. `exact`
        also removes what the state does not have. Returns the Outcome; raises Incomplete."""
        from .apply import Apply, Incomplete
        outcome = Apply(self, state, exact, jobs).run()
        if not outcome.complete:
            raise Incomplete(outcome)
        return outcome

    # The virtual switch

    def command(self, *words, **conditions):
        """Sends a command of the virtual switch: command("link", 3, "down"). Returns its answer."""
        if not self.control:
            raise CommandFailed("commands need a virtual switch: this Switch was made without its socket")
        pairs = [f"{name}={shown(value)}" for name, value in conditions.items()]
        return self.control.command(*map(quoted, [*words, *pairs]))

    @contextlib.contextmanager
    def traced(self):
        """Records what the switch is asked: `with sw.traced() as calls` makes a list of Call."""
        if not self.trace:
            raise CommandFailed("there is no trace: this Switch was made without one")
        calls = Recording()
        calls.end = self.trace.end()
        self.recordings.append(calls)
        try:
            yield calls
        finally:
            self.recordings = [one for one in self.recordings if one is not calls]

    def port(self, number):
        """The host on this port, one of those that serve(sockets=N) made."""
        if number not in range(1, self.served.get("sockets", 0) + 1):
            raise CommandFailed(f"port {number} is no socket: Switch.serve(sockets=N) makes ports 1 to N sockets")
        if number not in self.ports:
            path = os.path.join(os.path.dirname(self.served["socket"]), f"port{number}")
            self.ports[number] = Port(path, lambda: self.command("settle"))
        return self.ports[number]


    def end_hosts(self):
        """Ends all hosts of port()."""
        for port in self.ports.values():
            port.close()
        self.ports = {}


class Recording(list):
    """The calls that traced() records, until `end` in the trace."""


COMMANDS = ("advance", "capture", "clear", "errors", "fault", "faults", "hold", "learn", "link", "loop", "neighbour", "plug",
            "reset", "settle", "silence", "storm", "stp", "unplug")


def method_of_command(name):
    def command(self, *words, **conditions):
        if name in ("fault", "clear") and words and words[0] != "*" and not words[0].startswith("rpcclt_"):
            words = (PREFIX + words[0], *words[1:])
        return self.command(name, *words, **conditions)
    command.__name__, command.__doc__ = name, f'The command "{name}" of the virtual switch (vswitch --help).'
    return command


for _name in COMMANDS:
    setattr(Switch, _name, method_of_command(_name))


def shown(value):
    return ",".join(map(str, value)) if isinstance(value, (list, tuple)) else value


class RawTargets:
    """http.client checks and encodes targets; the description has checked them already, and queries go raw."""

    def _validate_path(self, url):
        if any(character in url for character in " \r\n"):
            raise description.Wrong(f"a request line cannot hold spaces or line ends: {url!r}")

    def _encode_request(self, request):
        return request.encode("latin-1")

    def __del__(self):
        self.close()  # each thread has one, that ends with it


class HttpConnection(RawTargets, http.client.HTTPConnection):
    pass


class HttpsConnection(RawTargets, http.client.HTTPSConnection):
    pass


def serve_command(build):
    """The command that serves: of the checkout in which the build or this file is, else the installed one."""
    if build:
        directory = os.path.abspath(build)
        for checkout in (CHECKOUT, os.path.dirname(directory)):
            if os.path.exists(os.path.join(checkout, "serve.sh")):
                return [os.path.join(checkout, "serve.sh"), "--build", directory]
    installed = shutil.which("switching-serve")
    if installed and not build:
        return [installed]
    if os.path.exists(os.path.join(CHECKOUT, "serve.sh")):
        return [os.path.join(CHECKOUT, "serve.sh")]
    raise NoAnswer("there is no virtual switch: install switching-vswitch, or name the build of a checkout (build=DIR)")
