// reader.js - the plain reader bridge/dot1d-stp-priority as a CGI script, written without a thought for its cost.
const fs = require("fs");
const net = require("net");
const os = require("os");

const SESSION_SECONDS = 7200;

function sessionOk() {
    try {
        const path = "/tmp/session/" + process.env.HTTP_SESSION;
        const [user, stamp, ...rest] = fs.readFileSync(path, "utf8").split("\n");
        const uptime = Math.floor(os.uptime());
        if (user !== "admin" || (Number(stamp) && uptime - Number(stamp) > SESSION_SECONDS)) return false;
        fs.writeFileSync(path, [user, uptime, ...rest].join("\n"), { flag: "r+" });
        return true;
    } catch {
        return false;
    }
}

function call(socket, operation, args = Buffer.alloc(0)) {
    const content = Buffer.concat([Buffer.from([1, operation.length]), Buffer.from(operation), args]);
    const length = Buffer.alloc(4);
    length.writeUInt32LE(content.length);
    socket.write(Buffer.concat([length, content]));
    return new Promise((resolve) => {
        let reply = Buffer.alloc(0);
        socket.on("data", function take(bytes) {
            reply = Buffer.concat([reply, bytes]);
            if (reply.length < 4 || reply.length < 4 + reply.readUInt32LE()) return;
            socket.off("data", take);
            resolve({ code: reply.readInt32LE(4), returned: reply.subarray(8) });
        });
    });
}

async function main() {
    if (!sessionOk()) return process.stdout.write("Status: 403\r\n\r\n");
    const socket = net.connect(process.env.OPENCLT_SOCKET);
    await call(socket, "rpcclt_openapiConnectivityCheck");
    await call(socket, "rpcclt_openapiNetworkOSVersionGet", Buffer.from("T\x64\0\0\0\0\0\0\0", "latin1"));
    await call(socket, "rpcclt_openapiApiVersionGet", Buffer.from("V\0\0\0\0"));
    const { code, returned } = await call(socket, "rpcclt_openapiDot1dStpPriorityGet", Buffer.from("N\0\0\0\0"));
    socket.destroy();
    const answer =
        code === 0
            ? {
                  bridge: { priority: returned.readUInt32LE(1) },
                  resp: { respCode: 0, respMsg: "Success", status: "success" },
              }
            : { resp: { respCode: 10000, respMsg: "General Failed", status: "fail" } };
    process.stdout.write("Content-Type: application/json\r\n\r\n" + JSON.stringify(answer, null, "\t"));
}

main();
