# reader.py - the plain reader bridge/dot1d-stp-priority as a CGI script, written without a thought for its cost.
import fcntl
import json
import os
import socket
import struct

SESSION_SECONDS = 7200


def session_ok():
    try:
        with open("/tmp/session/" + os.environ.get("HTTP_SESSION", "-"), "r+") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            user, stamp, *rest = file.read().split("\n")
            uptime = int(float(open("/proc/uptime").read().split()[0]))
            if user != "admin" or (int(stamp) and uptime - int(stamp) > SESSION_SECONDS):
                return False
            file.seek(0)
            file.write("\n".join([user, str(uptime), *rest]))
            return True
    except (OSError, ValueError):
        return False


def call(switch, operation, arguments=b""):
    content = bytes([1, len(operation)]) + operation.encode() + arguments
    switch.sendall(struct.pack("=I", len(content)) + content)
    (length,) = struct.unpack("=I", switch.recv(4, socket.MSG_WAITALL))
    reply = switch.recv(length, socket.MSG_WAITALL)
    return struct.unpack("=i", reply[:4])[0], reply[4:]


def main():
    if not session_ok():
        print("Status: 403\r\n\r")
        return
    switch = socket.socket(socket.AF_UNIX)
    switch.connect(os.environ["OPENCLT_SOCKET"])
    call(switch, "rpcclt_openapiConnectivityCheck")
    call(switch, "rpcclt_openapiNetworkOSVersionGet", struct.pack("=cII", b"T", 100, 0))
    call(switch, "rpcclt_openapiApiVersionGet", b"V\0\0\0\0")
    code, returned = call(switch, "rpcclt_openapiDot1dStpPriorityGet", struct.pack("=cI", b"N", 0))
    answer = {}
    if code == 0:
        answer["bridge"] = {"priority": struct.unpack("=cI", returned)[1]}
        answer["resp"] = {"respCode": 0, "respMsg": "Success", "status": "success"}
    else:
        answer["resp"] = {"respCode": 10000, "respMsg": "General Failed", "status": "fail"}
    print("Content-Type: application/json\r\n\r\n" + json.dumps(answer, indent="\t"), end="")


main()
