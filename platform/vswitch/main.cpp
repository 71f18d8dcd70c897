/*
 * main.cpp - the virtual switch's command line.
 */
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "calls.h"
#include "commands.h"
#include "model.h"
#include "server.h"
#include "trace.h"
#include "wire.h"

static const char synopsis[] =
    "vswitch: a virtual switch that answers the OpEN operations of switching_v2.cgi\n"
    "\n"
    "  vswitch [serve] [OPTIONS]         serve until stopped\n"
    "    --ports N                       ports of the switch (28)\n"
    "    --stations N                    learned addresses at start (8)\n"
    "    --station-vlans N               VLANs 1 to N exist at start and share the stations (1)\n"
    "    --trace FILE                    write a line for every operation (- is standard output)\n"
    "  vswitch COMMAND [WORD...]         tell a switch that is running\n"
    "  --socket PATH, or OPENCLT_SOCKET in the environment, names the socket (" WIRE_DEFAULT_SOCKET ")\n";

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

/* Reads a whole reply. */
static std::string receiveReply(int connection)
{
    std::string bytes;
    uint32_t length = 0;
    char buffer[64 * 1024];
    while (bytes.size() < sizeof length || bytes.size() - sizeof length < length) {
        ssize_t got = recv(connection, buffer, sizeof buffer, 0);
        if (got <= 0)
            return "";
        bytes.append(buffer, (size_t)got);
        if (bytes.size() >= sizeof length)
            memcpy(&length, bytes.data(), sizeof length);
    }
    return bytes.substr(sizeof length);
}

static int command(const char *path, const std::string &words)
{
    int connection = connectTo(path);
    if (connection < 0) {
        fprintf(stderr, "vswitch: no virtual switch serves on %s: %s\n", path, strerror(errno));
        return 1;
    }
    std::string request = controlRequest(words);
    std::string answer;
    int code = -1;
    bool sent = send(connection, request.data(), request.size(), MSG_NOSIGNAL) == (ssize_t)request.size();
    bool answered = sent && controlAnswer(receiveReply(connection), &code, &answer);
    close(connection);
    if (!answered) {
        fprintf(stderr, "vswitch: what serves on %s did not answer the command\n", path);
        return 1;
    }
    fputs(answer.c_str(), code ? stderr : stdout);
    return code ? 2 : 0;
}

static int serve(const char *path, const char *traceFile)
{
    if (traceFile && !openTrace(traceFile)) {
        fprintf(stderr, "vswitch: cannot write the trace to %s: %s\n", traceFile, strerror(errno));
        return 1;
    }
    return serveOn(path);
}

int main(int argc, char **argv)
{
    enum { SOCKET, PORTS, STATIONS, STATION_VLANS, TRACE, HELP };
    static const option names[] = {
        {"socket", required_argument, nullptr, SOCKET},     {"ports", required_argument, nullptr, PORTS},
        {"stations", required_argument, nullptr, STATIONS}, {"station-vlans", required_argument, nullptr, STATION_VLANS},
        {"trace", required_argument, nullptr, TRACE},       {"help", no_argument, nullptr, HELP},
        {nullptr, 0, nullptr, 0},
    };
    ModelOptions options;
    const char *traceFile = nullptr;
    bool help = false;
    const char *path = getenv("OPENCLT_SOCKET");
    if (!path || !*path)
        path = WIRE_DEFAULT_SOCKET;

    for (int found; (found = getopt_long(argc, argv, "", names, nullptr)) != -1;) {
        switch (found) {
        case SOCKET: path = optarg; break;
        case PORTS: options.ports = numberOption("ports", optarg, 1, 4096); break;
        case STATIONS: options.stations = numberOption("stations", optarg, 0, 1000000); break;
        case STATION_VLANS: options.stationVlans = numberOption("station-vlans", optarg, 1, 4094); break;
        case TRACE: traceFile = optarg; break;
        case HELP: help = true; break;
        default: return 2; /* getopt_long has said what is wrong */
        }
    }
    if (!*path) {
        fprintf(stderr, "vswitch: --socket takes a path\n");
        return 2;
    }
    createModel(options);
    if (help) {
        printf("%s%s", synopsis, commandHelp().c_str());
        return 0;
    }
    Words words(argv + optind, argv + argc);
    if (words.empty() || (words.size() == 1 && words[0] == "serve"))
        return serve(path, traceFile);
    if (isCommand(words[0]))
        return command(path, joinWords(words));
    fprintf(stderr, "vswitch: there is no command \"%s\"; --help lists them\n", words[0].c_str());
    return 2;
}
