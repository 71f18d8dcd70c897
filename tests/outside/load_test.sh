#!/bin/bash
# load_test.sh BUILD [SECONDS] - many requests of several sessions at once, behind lighttpd, for so long (10): every
# answer is whole and right, and what they leave behind (sessions, log, no process) is as it should be. Then floods: a
# body that is too large, and more clients than there may be processes, who all hang up.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/servers.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
number SECONDS "${2-10}" 1 86400
seconds=${2-10}
scratch
filesOf "$build" own
makeSession admin $'admin\n0\nadmin'
makeSession rw $'joe\n0\nrw\nrw'
makeSession ro $'jim\n0\nro\nro'
# Everything is logged, and the log is nearly full: it is rotated in the middle.
printf '7\0\0\0' >"$files/devmgr_log_level"
{ yes 'a line of another program' || true; } | head -c $((0x100000 - 20000)) >"$files/zt731.log"
echo >>"$files/zt731.log"
startSwitch switch "$build"
"$build/vswitch" fault rpcclt_openapiVlanVIDListGet code=0 "vidList=$(seq -s, 1 500)" numOfElements=500
"$build/vswitch" fault rpcclt_openapiVlanCreate code=0 delay=20 || exit 1 # those behind it are not kept waiting
"$build/vswitch" fault rpcclt_openapiFdbFlush hangup
"$build/vswitch" fault rpcclt_openapiDot1dBaseTypeGet delay=60000

startWebServer "$build" "$(anyPorts)" "$preload"

failed=0
attend python3 - "$port" "$seconds" "$files" "$build/switching_v2.cgi" "$OPENCLT_SOCKET" <<'END' || failed=$?
import collections, glob, http.client, json, os, re, socket, sys, threading, time

port, seconds, tmp, program, switch = int(sys.argv[1]), float(sys.argv[2]), *sys.argv[3:6]
wrong = []
counts = collections.Counter()


def resp(code, message):
    return {"respCode": code, "respMsg": message, "status": "fail" if code else "success"}


def data(name, *values):  # one of these is right
    return [{name: value, "resp": resp(0, "Success")} for value in values]


def outcome(code, message):
    return [{"resp": resp(code, message)}]


done = outcome(0, "Success")
# method, path, body, the bodies that are right; None: a page of the web server's own, as the program prints nothing
requests = [
    ("GET", "bridge/dot1d-stp-priority", None, data("bridge", {"priority": 32768})),
    ("GET", "bridge/dot1d-base-num-ports", None, data("bridge", {"numPorts": 28})),
    ("GET", "bridge/db-dot1d-tp-aging-time", None, data("bridge", *({"agingTime": time} for time in (300, 400, 500)))),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime": 400}', done),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime": 500}', done),
    ("PUT", "bridge/db-dot1d-tp-aging-time", '{"agingTime"', outcome(10003, "Invalid argument")),
    ("GET", "bridge/dot1d-stp-port-state?port=99", None, outcome(10003, "Invalid argument")),
    ("POST", "bridge/dot1d-is-valid-intf?intIfNum=3", "", done),
    ("GET", "vlan/vid-list?intfNum=1", None, data("vlan", {"numOfElements": 500, "vidList": list(range(1, 501))})),
    ("POST", "vlan/create?vlanNum=10", "", done),
    ("GET", "dot1ad/service-name", None, outcome(17002, "Unsupported Feature")),
    # the query reaches the program as it was sent
    ("GET", 'bridge/dot1d-tp-fdb-entry?address={"%41+', None, data("bridge", {"address": '{"%41+', "exists": False})),
    ("GET", "no-such/endpoint", None, None),
    ("POST", "fdb/flush", "", outcome(10000, "General Failed")),
]


def expected(session, method, right):
    if right is None:
        return 500
    allowed = session in ("admin", "rw") or session == "ro" and method == "GET"
    return 200 if allowed else 403


def ask(number, session, until):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    headers = {"Session": session} if session else {}
    step = number * 5  # they do not march in step
    while time.monotonic() < until and len(wrong) < 10:
        method, path, body, right = requests[step % len(requests)]
        step += 1
        what = f"{method} {path} as {session}"
        try:
            connection.request(method, "/api/v2/switching/" + path, body, headers)
            answer = connection.getresponse()
            text = answer.read()
        except Exception as error:
            wrong.append(f"{what}: {error!r}")
            return
        status = expected(session, method, right)
        counts[status] += 1
        if answer.status != status:
            wrong.append(f"{what}: status {answer.status} instead of {status}: {text[:200]}")
        elif status == 403 and text != b"":
            wrong.append(f"{what}: a body of {text[:200]}")
        elif status == 200:
            if answer.getheader("Content-Type") != "application/json":
                wrong.append(f"{what}: is {answer.getheader('Content-Type')}")
            try:
                if json.loads(text) not in right:
                    wrong.append(f"{what}: {text[:400]}")
            except ValueError as error:
                wrong.append(f"{what}: {error}: {text[:400]}")


def left_over():
    """The processes of the program that serve this test."""
    for directory in glob.glob("/proc/[0-9]*"):
        try:
            if os.readlink(directory + "/exe") == program:
                with open(directory + "/environ", "rb") as file:
                    if switch.encode() in file.read():
                        yield directory
        except OSError:
            pass


start = time.monotonic()
threads = [threading.Thread(target=ask, args=(number, session, start + seconds))
           for number, session in enumerate(["admin", "rw", "ro", None] * 3)]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
took = time.monotonic() - start


def await_processes(least, most, patience):
    """Until so many processes serve this test. Returns how many there were in the end."""
    until = time.monotonic() + patience
    while not least <= (count := len(list(left_over()))) <= most and time.monotonic() < until:
        time.sleep(0.05)
    return count


if await_processes(0, 0, 10):
    wrong += [f"{process} is left" for process in left_over()]

connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
connection.request("POST", "/api/v2/switching/vlan/create", b"x" * 70000)
if (status := connection.getresponse().status) != 413:
    wrong.append(f"a body of 70,000 bytes: status {status}")


def hold(number):
    clients = [socket.create_connection(("127.0.0.1", port)) for _ in range(number)]
    time.sleep(1)  # lighttpd watches a client that it had to wait for
    for client in clients:
        client.sendall(b"GET /api/v2/switching/bridge/dot1d-base-type HTTP/1.1\r\nHost: x\r\nSession: ro\r\n\r\n")
    return clients


clients = hold(40)
if (count := await_processes(40, 40, 25)) != 40:
    wrong.append(f"{count} processes for 40 clients")
for client in clients:
    client.close()
if count := await_processes(0, 0, 20):
    wrong.append(f"{count} processes outlive their clients")
clients = hold(100)
await_processes(60, 100, 25)
if not 40 < (count := await_processes(65, 100, 2)) <= 64:  # there must not be more
    wrong.append(f"{count} processes for 100 clients")

for name, form in ("admin", r"admin\n\d+\nadmin"), ("rw", r"joe\n\d+\nrw\nrw"), ("ro", r"jim\n\d+\nro\nro"):
    with open(f"{tmp}/session/{name}") as file:
        content = file.read()
    if not re.fullmatch(form, content) or "\n0\n" in content:
        wrong.append(f"the session file of {name} holds {content!r}")
if sorted(os.listdir(tmp)) != ["devmgr_log_level", "session", "zt731.log", "zt731.log.old"]:
    wrong.append(f"there are {sorted(os.listdir(tmp))}")
print(f"{sum(counts.values())} requests in {took:.1f} s by {len(threads)} clients: "
      + ", ".join(f"{counts[status]} of status {status}" for status in sorted(counts)))
for line in wrong:
    print("wrong:", line)
sys.exit(bool(wrong) or len(counts) < 3)
END
[ $failed = 0 ] || tail -n 20 "$run"/*.log
exit $failed
