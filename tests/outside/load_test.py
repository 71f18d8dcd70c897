#!/usr/bin/python3
"""load_test.py PORT SECONDS TMP PROGRAM SOCKET - the clients of load_test.sh, which starts the servers and then this.

PORT is lighttpd's, TMP the program's /tmp, PROGRAM the path of the program, SOCKET that of the virtual switch.
"""
import collections
import glob
import http.client
import json
import os
import re
import socket
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from arguments import parser  # noqa: E402


def resp(code, message):
    return {"respCode": code, "respMsg": message, "status": "fail" if code else "success"}


def data(name, *values):
    return [{name: value, "resp": resp(0, "Success")} for value in values]


def outcome(code, message):
    return [{"resp": resp(code, message)}]


DONE = outcome(0, "Success")
# Method, path, body, the right answers. None: the program prints nothing, and the web server answers with status 500.
REQUESTS = [
    ("GET", "bridge/dot1d-stp-priority", None, data("bridge", {"priority": 32768})),
    ("GET", "bridge/dot1d-base-num-ports", None, data("bridge", {"numPorts": 28})),
    ("GET", "bridge/db-dot1d-tp-aging-time", None, data("bridge", *({"agingTime": time} for time in (300, 400, 500)))),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime": 400}', DONE),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime": 500}', DONE),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime"', outcome(10003, "Invalid argument")),
    ("GET", "bridge/dot1d-stp-port-state?port=99", None, outcome(10003, "Invalid argument")),
    ("POST", "bridge/dot1d-is-valid-intf?intIfNum=3", "", DONE),
    ("GET", "vlan/vid-list?intfNum=1", None, data("vlan", {"numOfElements": 500, "vidList": list(range(1, 501))})),
    ("POST", "vlan/create?vlanNum=10", "", DONE),
    ("GET", "dot1ad/service-name", None, outcome(17002, "Unsupported Feature")),
    # The web server must not change the query.
    ("GET", 'bridge/dot1d-tp-fdb-entry?address={"%41+', None, data("bridge", {"address": '{"%41+', "exists": False})),
    ("GET", "no-such/endpoint", None, None),
    ("POST", "fdb/flush", "", outcome(10000, "General Failed")),
]

arguments = parser(__doc__)
for name, kind in ("port", int), ("seconds", float), ("tmp", str), ("program", str), ("socket", str):
    arguments.add_argument(name, metavar=name.upper(), type=kind)
port, seconds, tmp, program, switch = vars(arguments.parse_args()).values()
faults = []
counts = collections.Counter()  # requests by status


def expected_status(session, method, right):
    if right is None:
        return 500
    allowed = session in ("admin", "rw") or session == "ro" and method == "GET"
    return 200 if allowed else 403


def fault_of(answer, text, status, right):
    """What is wrong with an answer; None if nothing is."""
    if answer.status != status or status == 403 and text:
        return f"status {answer.status} instead of {status}: {text[:200]}"
    if status == 200 and (answer.getheader("Content-Type") != "application/json" or json.loads(text) not in right):
        return f"{answer.getheader('Content-Type')}, {text[:400]}"
    return None


def send_requests(number, session, until):
    """A client: sends the requests one after the other until that time. `number` says with which one it starts."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    headers = {"Session": session} if session else {}
    step = number * 5
    while time.monotonic() < until and len(faults) < 10:
        method, path, body, right = REQUESTS[step % len(REQUESTS)]
        step += 1
        what, status = f"{method} {path} as {session}", expected_status(session, method, right)
        try:
            connection.request(method, "/api/v2/switching/" + path, body, headers)
            answer = connection.getresponse()
            fault = fault_of(answer, answer.read(), status, right)
        except Exception as error:
            return faults.append(f"{what}: {error!r}")
        counts[status] += 1
        if fault:
            faults.append(f"{what}: {fault}")


def run_clients():
    start = time.monotonic()
    threads = [threading.Thread(target=send_requests, args=(number, session, start + seconds))
               for number, session in enumerate(["admin", "rw", "ro", None] * 3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(f"{sum(counts.values())} requests in {time.monotonic() - start:.1f} s by {len(threads)} clients: "
          + ", ".join(f"{counts[status]} of status {status}" for status in sorted(counts)))
    if len(counts) < 3:
        faults.append(f"only statuses {sorted(counts)}")


def processes():
    """The program's processes that this test has caused, as directories of /proc."""
    for directory in glob.glob("/proc/[0-9]*"):
        try:
            if os.readlink(directory + "/exe") == program:
                with open(directory + "/environ", "rb") as file:
                    if switch.encode() in file.read():
                        yield directory
        except OSError:
            pass


def await_processes(least, most, patience):
    """Waits, up to `patience` seconds, until least to most processes run. Returns their number."""
    until = time.monotonic() + patience
    while not least <= (count := len(list(processes()))) <= most and time.monotonic() < until:
        time.sleep(0.05)
    return count


def send_large_body():
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    connection.request("POST", "/api/v2/switching/vlan/create", b"x" * 70000)
    if (status := connection.getresponse().status) != 413:
        faults.append(f"a body of 70,000 bytes: status {status}")


def hold(number):
    """Clients whose requests take a minute."""
    clients = [socket.create_connection(("127.0.0.1", port)) for _ in range(number)]
    time.sleep(1)  # lighttpd notices the end only of a client that it had to wait for
    for client in clients:
        client.sendall(b"GET /api/v2/switching/bridge/dot1d-base-type HTTP/1.1\r\nHost: x\r\nSession: ro\r\n\r\n")
    return clients


def flood():
    """Clients that close their connections early leave no process, and more than 256 processes never run."""
    clients = hold(40)
    if (count := await_processes(40, 40, 25)) != 40:
        faults.append(f"{count} processes for 40 clients")
    for client in clients:
        client.close()
    if count := await_processes(0, 0, 20):
        faults.append(f"{count} processes outlive their clients")
    clients = hold(300)
    await_processes(250, 300, 40)
    if not 200 < (count := await_processes(257, 300, 2)) <= 256:
        faults.append(f"{count} processes for 300 clients")
    for client in clients:
        client.close()


def speak_http2():
    """One connection of HTTP/2 would be eight processes."""
    with socket.create_connection(("127.0.0.1", port), timeout=20) as client:
        client.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + bytes([0, 0, 0, 4, 0, 0, 0, 0, 0]))
        if not (answer := client.recv(100)).startswith(b"HTTP/1"):
            faults.append(f"HTTP/2 is answered: {answer}")


def check_files():
    for name, form in ("admin", r"admin\n\d+\nadmin"), ("rw", r"joe\n\d+\nrw\nrw"), ("ro", r"jim\n\d+\nro\nro"):
        with open(f"{tmp}/session/{name}", encoding="ascii") as file:
            content = file.read()
        if not re.fullmatch(form, content) or "\n0\n" in content:
            faults.append(f"the session file of {name} holds {content!r}")
    if sorted(os.listdir(tmp)) != ["devmgr_log_level", "session", "zt731.log", "zt731.log.old"]:
        faults.append(f"files in /tmp: {sorted(os.listdir(tmp))}")


run_clients()
if await_processes(0, 0, 10):
    faults += [f"{process} is left" for process in processes()]
send_large_body()
speak_http2()
flood()
check_files()
for line in faults:
    print("wrong:", line)
sys.exit(bool(faults))
