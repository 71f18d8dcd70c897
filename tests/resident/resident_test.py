#!/usr/bin/python3
"""resident_test.py BUILD [TEST...] - the resident program: bad input, what a request must not leave behind, and ends.

That it answers as the CGI program does is shown by proof.py --resident and differential.py.
"""
import os
import resource
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from arguments import PROGRAM, build_with, parser  # noqa: E402
from switch import Switch, scgi  # noqa: E402

PATH = "/api/v2/switching/bridge/dot1d-stp-priority"
PLAIN = {"REQUEST_METHOD": "GET", "REQUEST_URI": PATH, "HTTP_SESSION": "token"}
FORM = "/api/v2/switching/macal/rule-is-service-port"
REFUSED = b"Status: 400\r\n\r\n"
build = ""


def wait_until(holds, seconds=10):
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise AssertionError(f"not after {seconds} s")
        time.sleep(0.01)


def field(pid, name):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(line.split()[1] for line in file if line.startswith(name + ":"))


def lives(pid):
    return os.path.exists(f"/proc/{pid}") and field(pid, "State") != "Z"


def memory(pid):
    """The private memory of a process, in KiB, and how many files it has open."""
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        return sum(int(line.split()[1]) for line in file if line.startswith("Private_")), len(os.listdir(f"/proc/{pid}/fd"))


class ResidentTest(unittest.TestCase):
    def start(self, workers=1, **environment):
        self.switch = self.enterContext(Switch(build, workers=workers, variables=environment))
        self.parent = self.switch.resident.process.pid
        wait_until(lambda: len(self.workers()) == workers)
        self.assertEqual(self.switch.send(PLAIN)[0][:6], b"Conten")

    def workers(self):
        with open(f"/proc/{self.parent}/task/{self.parent}/children", encoding="ascii") as file:
            return [pid for pid in map(int, file.read().split()) if lives(pid)]

    def tmp(self, name):
        return self.switch.directory + "/tmp/" + name

    def log(self):
        with open(self.tmp("zt731.log"), encoding="latin-1") as file:
            return file.read()

    def served(self):
        self.assertIn(b'"priority":\t32768', self.switch.send(PLAIN)[0])

    def open_request(self, request):
        """Sends a request and does not wait for the answer."""
        connection = self.switch.resident.connect()
        self.addCleanup(connection.close)
        connection.sendall(request)
        return connection

    def test_bad_input(self):
        """Bytes that are no request get an answer, and the next request is served, all by one worker."""
        self.start()
        pids = self.workers()
        variables = b"CONTENT_LENGTH\0000\0REQUEST_METHOD\0GET\0"
        wrong = [b"x", b":", b"0:,", b"-1:,", b"0000000:,", b"999999:" + variables, b"4294967297:,", b"%d:%s;" % (len(variables), variables),
                 b"1:\0,", b"%d:%s," % (len(variables) - 1, variables), b"%d:%sA\0," % (len(variables) + 2, variables),
                 b"%d:%s\0X\0," % (len(variables) + 3, variables), b"%d:%s%s," % (2 * len(variables), variables, variables),
                 b"17:REQUEST_METHOD\0G\0,", *(scgi({"CONTENT_LENGTH": length}, b"x" * 100000)
                                              for length in ("2147483648", "-1", "1e3", "18446744073709551617", "1048577"))]
        for request in wrong:
            self.assertEqual(self.switch.resident.exchange(request), REFUSED, request[:80])
            self.served()
        for request in (b"", b"20", b"20:CONTENT"):
            connection = self.open_request(request)
            connection.shutdown(socket.SHUT_WR)
            self.assertEqual(connection.recv(100), REFUSED if request else b"")
            self.served()
        post = {"REQUEST_METHOD": "PUT", "REQUEST_URI": PATH.replace("dot1d-stp-priority", "db-dot1d-tp-aging-time"), "HTTP_SESSION": "token"}
        short = self.open_request(scgi({**post, "CONTENT_LENGTH": "30"}, b'{"agingTime":40'))
        short.shutdown(socket.SHUT_WR)
        self.assertIn(b'"respCode":\t10003', short.recv(1000))
        late = scgi({**post, "CONTENT_LENGTH": "17"}, b'{"agingTime":300}' + b"x" * 100000)  # more than it said
        self.assertIn(b'"respCode":\t0', self.switch.resident.exchange(late))
        self.open_request(scgi(PLAIN)).close()  # hangs up
        self.served()
        self.assertEqual(self.workers(), pids)
        self.assertEqual(self.log().count("No SCGI request: "), len(wrong) + 2)

    def test_waiting(self):
        """A slow client has ten seconds; a request that takes longer than half a minute ends its worker."""
        self.start(3, OPENCLT_TIMEOUT_MS="90000")
        start = time.monotonic()
        self.switch.command("fault", "rpcclt_openapiDot1dStpBridgeMaxAgeGet", "delay=60000")
        stuck = self.open_request(scgi({**PLAIN, "REQUEST_URI": PATH.replace("priority", "bridge-max-age")}))
        slow, silent = self.open_request(b""), self.open_request(b"")
        slow.settimeout(1)
        with self.assertRaises(ConnectionError):
            for byte in scgi(PLAIN) + bytes(100):
                slow.send(bytes([byte]))
                try:
                    self.assertEqual(slow.recv(100), b"")
                    break
                except TimeoutError:
                    pass
            slow.send(b"x")
        self.assertTrue(9 < time.monotonic() - start < 13)
        self.assertEqual(silent.recv(1), b"")
        self.served()
        self.assertEqual(stuck.recv(1000), b"")
        self.assertTrue(29 < time.monotonic() - start < 35)
        wait_until(lambda: "was ended: its request took too long" in self.log())
        self.served()

    def test_leaves_nothing_behind(self):
        """Memory, descriptors, variables and the log: nothing comes from an earlier request, and nothing grows."""
        self.start()
        (worker,) = self.workers()
        large = {**PLAIN, "REQUEST_METHOD": "POST"}
        for i in range(4800):
            if i == 1500:
                before = memory(worker)
            self.switch.send({**PLAIN, "REQUEST_URI": f"/api/{i}/{'x' * (i % 900)}", "HTTP_LD_PRELOAD": "x"})
            if i % 100 == 0:
                self.switch.send(large, b"x" * 1000000)
                self.switch.resident.exchange(b"x" * 70000)
            self.switch.send({"REQUEST_URI": "x" * 1100, "HTTP_REFRESH": "1"})
        after = memory(worker)
        self.assertEqual(self.workers(), [worker])
        self.assertLess(after[0], before[0] + 50)
        self.assertEqual(after[1], before[1])
        with open(f"/proc/{worker}/environ", "rb") as file:
            self.assertNotIn(b"HTTP_", file.read())
        with open(self.tmp("session/token"), "w", encoding="ascii") as file:
            file.write("admin\n0\ntoken")
        self.served()  # without the HTTP_REFRESH of the requests before
        with open(self.tmp("session/token"), encoding="ascii") as file:
            self.assertNotEqual(file.read().split()[1], "0")

    def test_log_is_current(self):
        self.start()
        level, log = self.tmp("devmgr_log_level"), self.tmp("zt731.log")
        unknown = {**PLAIN, "REQUEST_URI": "/unknown"}
        self.switch.send(unknown)
        os.rename(log, log + ".1")  # as logrotate does
        self.switch.send(unknown)
        self.assertEqual(self.log().count("method not found"), 1)
        os.unlink(level)
        self.switch.send(unknown)
        with open(level, "rb") as file:
            self.assertEqual(file.read(), b"6\0\0\0")
        os.unlink(level)
        with open(level, "w", encoding="ascii") as file:
            file.write("2")
        self.switch.send(unknown)
        self.assertEqual(self.log().count("method not found"), 2)

    def test_ends_of_workers(self):
        """After 10,000 requests, or by a signal: the others serve on, and it is replaced."""
        self.start()
        (first,) = self.workers()
        for _ in range(10050):
            self.switch.send({"REQUEST_URI": "/"})
        self.served()
        (second,) = self.workers()
        self.assertNotEqual(first, second)
        self.assertNotIn("Worker", self.log())
        os.kill(second, signal.SIGSEGV)
        wait_until(lambda: self.workers() not in ([], [second]))
        self.served()
        self.assertIn(f"Worker {second} was ended by signal 11 (Segmentation fault) after", self.log())
        with open(self.tmp("crashlog.txt"), encoding="ascii") as file:
            self.assertIn(f"({second}) died of signal 11", file.read())

    def test_out_of_memory(self):
        """The client gets no answer, as from a process that died; the next request is served by another worker."""
        self.start()
        (worker,) = self.workers()
        size = 1024 * int(field(worker, "VmSize"))
        resource.prlimit(worker, resource.RLIMIT_AS, (size, size))
        self.assertEqual(self.switch.send({**PLAIN, "REQUEST_METHOD": "PUT", "REQUEST_URI": FORM}, b"x" * 1000000)[0], b"")
        self.served()
        self.assertNotEqual(self.workers(), [worker])
        self.assertRegex(self.log(), rf"\[MEM\] Failed to .*\n.*Worker {worker} ended with status 1 after")

    def test_workers_that_die_at_once(self):
        self.start(2)
        for pid in self.workers():
            os.kill(pid, signal.SIGKILL)
        seen = set()
        end = time.monotonic() + 4
        while time.monotonic() < end:
            for pid in self.workers():
                seen.add(pid)
                os.kill(pid, signal.SIGKILL)
            time.sleep(0.01)
        self.assertLessEqual(len(seen), 8)
        self.assertRegex(self.log(), r"ERROR.*Worker \d+ was ended by signal 9 \(Killed\) after 0 s")
        wait_until(lambda: len(self.workers()) == 2, 20)
        self.served()

    def test_switch_restarts(self):
        """Another virtual switch on the socket is found at the next request; without one there is no answer."""
        self.start(SANDBOX_SLEEP_MS="1")
        socket_path = self.switch.environment["OPENCLT_SOCKET"]
        self.switch.server.terminate()
        self.switch.server.wait()
        self.assertEqual(self.switch.resident.exchange(scgi(PLAIN)), b"")
        with open(self.tmp("slept"), encoding="ascii") as file:
            self.assertEqual(file.read(), "3 " * 6)
        command = [build + "/vswitch", "--socket", socket_path]
        for _ in range(2):
            with subprocess.Popen(command, stdout=subprocess.PIPE) as server:
                server.stdout.readline()
                wait_until(self.workers)
                self.assertIn(b'"priority":\t32768', self.switch.resident.exchange(scgi(PLAIN)))
                server.terminate()

    def test_stop(self):
        """SIGTERM lets the request at hand finish; without its parent a worker does the same."""
        for killed in (signal.SIGTERM, signal.SIGKILL):
            self.start(4)
            pids = self.workers()
            self.switch.command("fault", "rpcclt_openapiDot1dStpPriorityGet", "delay=500")
            request = self.open_request(scgi(PLAIN))
            wait_until(lambda: "StpPriority" in self.switch.trace.read())
            os.kill(self.parent, killed)
            self.assertIn(b'"priority":\t32768', request.recv(10000))
            self.assertEqual(self.switch.resident.process.wait(10), 0 if killed == signal.SIGTERM else -killed)
            wait_until(lambda: not any(map(lives, pids)))
            if killed == signal.SIGTERM:
                self.assertEqual(self.log(), "")

    def test_web_server_is_killed(self):
        """Parent and workers end by themselves."""
        self.switch = self.enterContext(Switch(build))
        path = self.switch.directory + "/scgi"
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(path)
            listening.listen()
            server = subprocess.Popen(["sh", "-c", 'exec 3<&0; "$0" <&3 3<&- & echo $!; wait', self.switch.program],
                                      stdin=listening, stdout=subprocess.PIPE, env=self.switch.environment)
        self.parent = int(server.stdout.readline())
        wait_until(lambda: len(self.workers()) == 8)
        family = [self.parent, *self.workers()]
        time.sleep(6)  # the parent looks every five seconds
        self.assertTrue(all(map(lives, family)))
        server.stdout.close()
        server.kill()
        server.wait()
        wait_until(lambda: not any(map(lives, family)), 10)
        self.assertIn("The web server has ended: ending, too", self.log())

    def test_program_is_replaced(self):
        program = self.enterContext(Switch(build)).directory + "/program.cgi"
        subprocess.run(["cp", build + "/switching_v2.cgi", program], check=True)
        self.switch = self.enterContext(Switch(build, program=program, workers=2))
        self.served()
        os.unlink(program)
        self.assertEqual(self.switch.resident.process.wait(20), 0)
        self.assertIn(f"{program} was replaced or removed: ending when no request is left", self.log())

    def test_passed_by_systemd(self):
        self.start()
        path = self.switch.directory + "/passed"
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(path)
            listening.listen()
            starter = 'exec 3<&0 </dev/null; LISTEN_FDS=1 LISTEN_PID=$$ exec "$0"'
            process = subprocess.Popen(["sh", "-c", starter, self.switch.program], stdin=listening,
                                       env={**self.switch.environment, "SWITCHING_WORKERS": "none"})
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(path)
            connection.sendall(scgi(PLAIN))
            self.assertIn(b"Content-Type", connection.recv(1000))
        process.terminate()
        self.assertEqual(process.wait(10), 0)
        self.assertIn('SWITCHING_WORKERS is "none", not a number from 1 to 256: starting 8 workers', self.log())


if __name__ == "__main__":
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("tests", metavar="TEST", nargs="*")
    options = arguments.parse_args()
    build = options.build
    unittest.main(argv=[sys.argv[0], *options.tests])
