"""switch.py - a virtual switch of its own, and the program in front of it, one process a request as a web server does."""
import os
import shutil
import subprocess
import tempfile
import time


class Switch:
    """Started in a `with`; everything it makes lies in a directory of its own, /tmp of the program included."""

    def __init__(self, build, *options):
        self.build = os.path.abspath(build)
        self.options = options

    def __enter__(self):
        self.directory = tempfile.mkdtemp()
        self.trace = os.path.join(self.directory, "trace")
        os.makedirs(os.path.join(self.directory, "tmp/session"))
        with open(os.path.join(self.directory, "tmp/session/token"), "w", encoding="ascii") as session:
            session.write("admin\n0\ntoken")
        self.environment = {
            "OPENCLT_SOCKET": os.path.join(self.directory, "socket"), "SANDBOX_TMP": os.path.join(self.directory, "tmp"),
            "LD_PRELOAD": os.path.join(self.build, "lib/libsandbox.so"), "HTTP_SESSION": "token"}
        self.server = subprocess.Popen(
            [self.build + "/vswitch", "--socket", self.environment["OPENCLT_SOCKET"], "--trace", self.trace, *self.options])
        for _ in range(200):
            if os.path.exists(self.environment["OPENCLT_SOCKET"]):
                return self
            time.sleep(0.02)
        self.__exit__()
        raise SystemExit("The virtual switch did not start.")

    def __exit__(self, *_):
        self.server.terminate()
        self.server.wait()
        shutil.rmtree(self.directory)

    def tell(self, *command):
        """A command to the running switch: "reset", "pass", "60" and so on."""
        subprocess.run([self.build + "/vswitch", *command], check=True, stdout=subprocess.DEVNULL,
                       env={"OPENCLT_SOCKET": self.environment["OPENCLT_SOCKET"]})

    def request(self, method, target, body=""):
        """The body of the answer, as bytes. `target` is a path with its query, raw."""
        environment = dict(self.environment, REQUEST_METHOD=method, REQUEST_URI=target,
                           QUERY_STRING=target.partition("?")[2], CONTENT_LENGTH=str(len(body.encode())))
        output = subprocess.run([self.build + "/switching_v2.cgi"], env=environment, input=body.encode(), check=True,
                                stdout=subprocess.PIPE).stdout
        return output.partition(b"\r\n\r\n")[2]
