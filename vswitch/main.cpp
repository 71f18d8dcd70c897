/*
 * main.cpp - the virtual switch's command line.
 */
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "vswitch/base/commands.h"
#include "vswitch/base/trace.h"
#include "vswitch/client.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/server/calls.h"
#include "vswitch/server/control.h"
#include "vswitch/server/server.h"
#include "vswitch/switch/device.h"
#include "wire.h"

static char program[] = "vswitch";

static const char synopsis[] =
    "vswitch: a virtual switch that answers the OpEN operations of switching_v2.cgi\n"
    "\n"
    "  vswitch [OPTIONS] [serve]           serve until stopped\n"
    "    --ports N                         ports of the switch (28)\n"
    "    --stations N                      learned addresses at start (8)\n"
    "    --silent N                        so many of them send nothing more, so they age (2, at most a quarter)\n"
    "    --station-vlans N                 VLANs 1 to N exist at start and share the stations (1)\n"
    "    --trace FILE                      write a line for every operation (- is standard output):\n"
    "      [4711] OPERATION NAME=VALUE... -> CODE NAME=VALUE...\n"
    "      client's process, values sent, result, values returned. A text is [size]\"bytes\", a VLAN list is its\n"
    "      count and the ids, 2(10 20), an IPv4 address is 192.0.2.1.\n"
    "    --trace-no-start                  without the three calls that the program makes at its start\n"
    "    --plug PORT=tap:NAME              plug in a TAP interface of this machine; it is created if it is missing\n"
    "    --plug PORT=unix:PATH             let a host connect there; a frame follows its length: 32 bits, big endian\n"
    "      Port 0 is the management port. The LAGs follow the ports: each takes one plug, too, and is one port for its\n"
    "      host. With the first plug, all traffic is real.\n"
    "\n"
    "  vswitch [OPTIONS] COMMAND [ARG...] send a command to a running switch\n"
    "    --socket PATH                     its socket (OPENCLT_SOCKET in the environment, or " WIRE_DEFAULT_SOCKET ")\n"
    "\n"
    "  --help, --version                   this text; the version\n"
    "\n"
    "Commands:\n";

/* Ends the process unless `text` is a number from `lowest` to `highest`. */
static uint32_t numberOption(const char *name, const char *text, unsigned long lowest, unsigned long highest)
{
    char *end;
    unsigned long number = strtoul(text, &end, 10);
    if (*text >= '0' && *text <= '9' && !*end && number >= lowest && number <= highest)
        return (uint32_t)number;
    fprintf(stderr, "vswitch: --%s takes a number from %lu to %lu, not \"%s\"\n", name, lowest, highest, text);
    exit(2);
}

static bool plugAll(const Args &plugs)
{
    std::string wrong;
    for (const std::string &plug : plugs)
        if (!plugPort(plug, &wrong)) {
            fprintf(stderr, "vswitch: %s\n", wrong.c_str());
            return false;
        }
    if (!plugs.empty())
        resetAll(); /* now without simulated traffic */
    return true;
}

static int serve(const char *path, const Args &plugs, const char *traceFile)
{
    if (traceFile && !openTrace(traceFile)) {
        fprintf(stderr, "vswitch: cannot write the trace to %s: %s\n", traceFile,
                errno == ELOOP ? "it is a symbolic link" : strerror(errno));
        return 1;
    }
    int status = plugAll(plugs) ? serveOn(path) : 1;
    unplugPorts();
    return status;
}

/* The options before a command, and after "serve". */
struct Options {
    DeviceOptions device;
    const char *socket = WIRE_DEFAULT_SOCKET;
    const char *trace = nullptr;
    Args plugs;
    bool help = false, version = false;
};

/* Reads options up to the first other argument. False: one is wrong, and getopt has printed which. */
static bool readOptions(int argc, char **argv, Options *options)
{
    enum { SOCKET, PORTS, STATIONS, STATION_VLANS, SILENT, TRACE, TRACE_NO_START, PLUG, HELP, VERSION };
    static const option names[] = {
        {"socket", required_argument, nullptr, SOCKET}, {"ports", required_argument, nullptr, PORTS},
        {"stations", required_argument, nullptr, STATIONS}, {"silent", required_argument, nullptr, SILENT},
        {"station-vlans", required_argument, nullptr, STATION_VLANS}, {"plug", required_argument, nullptr, PLUG},
        {"trace", required_argument, nullptr, TRACE}, {"trace-no-start", no_argument, nullptr, TRACE_NO_START},
        {"help", no_argument, nullptr, HELP}, {"version", no_argument, nullptr, VERSION}, {nullptr, 0, nullptr, 0},
    };
    for (int found; (found = getopt_long(argc, argv, "+", names, nullptr)) != -1;) {
        switch (found) {
        case SOCKET: options->socket = optarg; break;
        case PORTS: options->device.ports = numberOption("ports", optarg, 1, 4096); break;
        case STATIONS: options->device.stations = numberOption("stations", optarg, 0, 65536); break;
        case SILENT: options->device.silentStations = numberOption("silent", optarg, 0, 65536); break;
        case STATION_VLANS: options->device.stationVlans = numberOption("station-vlans", optarg, 1, 4094); break;
        case TRACE: options->trace = optarg; break;
        case TRACE_NO_START: leaveOutStart(); break;
        case PLUG: options->plugs.push_back(optarg); break;
        case HELP: options->help = true; break;
        case VERSION: options->version = true; break;
        default: return false;
        }
    }
    return true;
}

int main(int argc, char **argv)
{
    Options options;
    const char *path = getenv("OPENCLT_SOCKET");
    if (path && *path)
        options.socket = path;
    argv[0] = program; /* in the messages of getopt */
    if (!readOptions(argc, argv, &options))
        return 2;
    bool serves = !argv[optind] || strcmp(argv[optind], "serve") == 0;
    if (serves && argv[optind]) {
        optind++;
        if (!readOptions(argc, argv, &options))
            return 2;
    }
    if (options.version) {
        puts("vswitch " VSWITCH_VERSION);
        return 0;
    }
    registerAll();
    if (options.help) {
        printf("%s%s", synopsis, commandHelp().c_str());
        return 0;
    }
    if (!*options.socket) {
        fprintf(stderr, "vswitch: --socket takes a path\n");
        return 2;
    }
    Args args(argv + optind, argv + argc);
    if (serves && !args.empty()) {
        fprintf(stderr, "vswitch: \"serve\" takes options only, not \"%s\"\n", args[0].c_str());
        return 2;
    }
    if (!serves)
        return runClient(options.socket, args);
    setDeviceOptions(options.device);
    resetAll();
    return serve(options.socket, options.plugs, options.trace);
}
