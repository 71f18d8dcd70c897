/*
 * frames_fuzzer.cpp - hosts send anything to the ports of the virtual switch while operations configure it.
 *
 * An input is a list of steps. Each is a byte and its data:
 *
 *   0  a frame: the port, its 16-bit length and as many bytes
 *   1  bytes on a host's socket that need not be frames: the port, a 16-bit length and as many bytes
 *   2  a call of an operation: its 16-bit number, and its arguments
 *   3  time advances by a number of seconds
 */
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "vswitch/base/operations.h"
#include "vswitch/base/trace.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/server/control.h"
#include "vswitch/switch/device.h"
#include "vswitch/switch/families.h"
#include "tests/fuzz/fuzz_input.h"

enum { PORTS = 5 }; /* 0 is the management port, the last one a LAG */

static int hosts[PORTS];
static bool halfFrames[PORTS]; /* the switch may have the half of a frame: this host must connect again */
static std::string directory;

static std::string pathOf(int port)
{
    return directory + "/" + std::to_string(port);
}

static void command(const std::string &line)
{
    std::string answer;
    check(runCommand(line, &answer) == COMMAND_DONE, "A command was refused");
}

static void connectHost(int port)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, pathOf(port).c_str());
    if (hosts[port])
        close(hosts[port]);
    halfFrames[port] = false;
    hosts[port] = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    check(connect(hosts[port], (sockaddr *)&address, sizeof address) == 0, "The port is not listening");
    command("settle");
}

/* All that comes out must be whole frames of a permitted length. False when the switch has closed the connection. */
static bool drain(int port)
{
    static char bytes[1 << 20];
    ssize_t got = recv(hosts[port], bytes, sizeof bytes, 0);
    for (std::string_view left(bytes, got > 0 ? (size_t)got : 0); !left.empty();) {
        uint32_t length;
        check(left.size() >= sizeof length, "Half a length");
        memcpy(&length, left.data(), sizeof length);
        length = ntohl(length);
        check(length >= ETHERNET_HEADER && length <= FRAME_MAX + VLAN_TAG, "A frame of a wrong length");
        check(left.size() - sizeof length >= length, "Half a frame");
        left.remove_prefix(sizeof length + length);
    }
    return got != 0;
}

static void sendBytes(int port, const std::string &bytes)
{
    clock_t before = clock();
    (void)!send(hosts[port], bytes.data(), bytes.size(), MSG_NOSIGNAL);
    command("settle");
    check(clock() - before < CLOCKS_PER_SEC / 4, "A frame costs 250 ms of CPU time");
    for (int each = 0; each < PORTS; each++)
        if (!drain(each))
            connectHost(each);
}

static void callOperation(FuzzInput *input)
{
    const Operation &operation = operations()[takeNumber<uint16_t>(input) % operations().size()];
    Arguments arguments(operation.tags.size());
    for (size_t i = 0; i < arguments.size(); i++) {
        Argument &argument = arguments[i];
        argument.tag = (WireTag)operation.tags[i];
        argument.number64 = takeNumber<uint8_t>(input);
        if (argument.tag == WIRE_TEXT) {
            argument.bytes = takeText(input, argument.number64) + std::string(32, 0);
            argument.text = {(uint32_t)argument.bytes.size(), argument.bytes.data()};
        } else if (argument.tag == WIRE_LIST || argument.tag == WIRE_LISTREF) {
            argument.list = std::make_unique<VlanIdList>();
            argument.list->count = (uint32_t)argument.number64 % 4;
            for (uint32_t id = 0; id < argument.list->count; id++)
                argument.list->ids[id] = takeNumber<uint8_t>(input);
        }
    }
    if (operation.run)
        runOperation(operation, arguments);
}

static void enable(const std::string &operation, uint32_t port)
{
    Operation &found = operationNamed(operation);
    Arguments arguments(found.tags.size());
    for (Argument &argument : arguments)
        argument.number = 1;
    if (port)
        arguments[0].number = port;
    runOperation(found, arguments);
}

/* As after "reset", but GVRP and GMRP run on port 1, MVRP and MMRP on the others, so that their PDUs are read. */
static void resetSwitch()
{
    command("reset");
    for (const char *protocol : {"GarpGvrpEnableSet", "GarpGmrpEnableSet", "MvrpModeSet", "MmrpModeSet"})
        enable(std::string("rpcclt_openapi") + protocol, 0);
    for (uint32_t port = 1; port < PORTS; port++) {
        enable(port == 1 ? "rpcclt_openapiGarpGvrpPortEnableSet" : "rpcclt_openapiMvrpIntfModeSet", port);
        enable(port == 1 ? "rpcclt_openapiGarpGmrpPortEnableSet" : "rpcclt_openapiMmrpIntfModeSet", port);
    }
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    char name[] = "/tmp/frames-fuzzer-XXXXXX";
    directory = mkdtemp(name);
    openTrace("/dev/null");
    setDeviceOptions({.ports = PORTS - 2});
    registerAll();
    resetAll();
    for (int port = 0; port < PORTS; port++) {
        std::string wrong;
        check(plugPort(std::to_string(port) + "=unix:" + pathOf(port), &wrong), "A port cannot be plugged");
    }
    for (int port = 0; port < PORTS; port++)
        connectHost(port);
    atexit([] {
        unplugPorts();
        rmdir(directory.c_str());
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    FuzzInput input = {bytes, size};
    resetSwitch();
    for (int port = 0; port < PORTS; port++)
        if (halfFrames[port])
            connectHost(port);
    for (int steps = 0; input.size && steps < 64; steps++) {
        int step = takeNumber<uint8_t>(&input) % 4, port = steps;
        if (step < 2)
            port = takeNumber<uint8_t>(&input) % PORTS;
        if (step == 0) {
            std::string frame = takeText(&input, takeNumber<uint16_t>(&input) % 2048);
            uint32_t length = htonl((uint32_t)frame.size());
            sendBytes(port, std::string((char *)&length, sizeof length) + frame);
        } else if (step == 1) {
            halfFrames[port] = true;
            sendBytes(port, takeText(&input, takeNumber<uint16_t>(&input)));
        } else if (step == 2) {
            callOperation(&input);
        } else {
            command("pass " + std::to_string(1 + takeNumber<uint8_t>(&input)));
        }
    }
    return 0;
}
