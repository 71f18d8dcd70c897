/*
 * main.cpp - the virtual switch's command line.
 */
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "vswitch/base/commands.h"
#include "vswitch/base/numbers.h"
#include "vswitch/base/sockets.h"
#include "vswitch/base/trace.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/server/calls.h"
#include "vswitch/server/server.h"
#include "vswitch/switch/model.h"
#include "wire.h"

static char program[] = "vswitch";

static const char synopsis[] =
    "vswitch: a virtual switch that answers the OpEN operations of switching_v2.cgi\n"
    "\n"
    "  vswitch [OPTIONS] [serve]           serve until stopped\n"
    "    --ports N                         ports of the switch (28)\n"
    "    --stations N                      learned addresses at start (8)\n"
    "    --silent N                        so many of them never speak again: they age (2, a quarter at most)\n"
    "    --station-vlans N                 VLANs 1 to N exist at start and share the stations (1)\n"
    "    --trace FILE                      write a line for every operation (- is standard output):\n"
    "      [4711] OPERATION NAME=VALUE... -> CODE NAME=VALUE...\n"
    "      process of the client, what was sent, the result, what was returned. A text is [size]\"bytes\", a VLAN list\n"
    "      its count and as many ids, 2(10 20), an IPv4 address 192.0.2.1.\n"
    "    --trace-no-start                  without the three calls that the program makes at its start\n"
    "    --plug PORT=tap:NAME              plug in an interface of this machine, which is made if there is none\n"
    "    --plug PORT=unix:PATH             let a host connect there: each frame behind its length, 32 bits, big endian\n"
    "      Port 0 is the management port. Once something is plugged in, all traffic is real.\n"
    "\n"
    "  vswitch [OPTIONS] COMMAND [WORD...] tell a switch that is running\n"
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

/* Prints what a command answered; the exit status. */
static int say(const std::string &answer, bool done)
{
    if (done)
        fputs(answer.c_str(), stdout);
    else
        fprintf(stderr, "vswitch: %s", answer.c_str());
    return done ? 0 : 2;
}

static int command(const char *path, const std::string &words)
{
    int connection = connectTo(path);
    if (connection < 0) {
        fprintf(stderr, "vswitch: no virtual switch serves on %s: %s\n", path, strerror(errno));
        return 1;
    }
    timeval limit = {30, 0}; /* some commands wait for something */
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
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
    return say(answer, code == 0);
}

/* One that needs no switch, or is none. */
static int commandAlone(const std::string &words)
{
    std::string answer;
    CommandOutcome outcome = runCommand(words, &answer);
    return say(answer, outcome == COMMAND_DONE);
}

/*
 * Has the frames of a port written to a FIFO that nobody else sees any more once it is open, and passes them on until
 * the switch stops or nobody reads them.
 */
static int captureToOutput(const char *path, const std::string &port)
{
    char directory[] = "/tmp/vswitch-capture-XXXXXX";
    std::string fifo = mkdtemp(directory) ? std::string(directory) + "/fifo" : "";
    int frames = mkfifo(fifo.c_str(), 0600) == 0 ? open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (frames < 0)
        fprintf(stderr, "vswitch: cannot make a FIFO in /tmp: %s\n", strerror(errno));
    int status = frames < 0 ? 1 : command(path, joinWords({"capture", port, fifo}));
    unlink(fifo.c_str());
    rmdir(directory);
    if (status)
        return status;
    signal(SIGPIPE, SIG_IGN);
    pollfd ends[] = {{frames, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}; /* a pipe that nobody reads fails */
    char bytes[64 * 1024];
    while (poll(ends, 2, -1) > 0 && !ends[1].revents) {
        ssize_t got = read(frames, bytes, sizeof bytes);
        if (got == 0 || (got > 0 && write(STDOUT_FILENO, bytes, (size_t)got) != got))
            break;
    }
    return 0;
}

/* A command with what only the client knows: where its files are. */
static int commandFromHere(const char *path, Words words)
{
    if (words[0] == "capture" && words.size() == 2 && words[1].find_first_not_of("0123456789") == std::string::npos)
        return captureToOutput(path, words[1]);
    if (words[0] == "capture" && words.size() == 3)
        words[2] = std::filesystem::absolute(words[2]);
    return command(path, joinWords(words));
}

static bool plugAll(const Words &plugs)
{
    std::string wrong;
    for (const std::string &plug : plugs)
        if (!plugPort(plug, &wrong)) {
            fprintf(stderr, "vswitch: %s\n", wrong.c_str());
            return false;
        }
    if (!plugs.empty())
        resetModel(); /* without what it had made up */
    return true;
}

static int serve(const char *path, const Words &plugs, const char *traceFile)
{
    if (traceFile && !openTrace(traceFile)) {
        fprintf(stderr, "vswitch: cannot write the trace to %s: %s\n", traceFile, strerror(errno));
        return 1;
    }
    int status = plugAll(plugs) ? serveOn(path) : 1;
    unplugPorts();
    return status;
}

/* What the options in front of a command, or behind "serve", ask for. */
struct Options {
    ModelOptions model;
    const char *socket = WIRE_DEFAULT_SOCKET;
    const char *trace = nullptr;
    Words plugs;
    bool help = false, version = false;
};

/* Reads options up to the next word. False when one is wrong, which has been said. */
static bool readOptions(int argc, char **argv, Options *options)
{
    enum { SOCKET, PORTS, STATIONS, STATION_VLANS, SILENT, TRACE, TRACE_NO_START, PLUG, HELP, VERSION };
    static const option names[] = {
        {"socket", required_argument, nullptr, SOCKET},     {"ports", required_argument, nullptr, PORTS},
        {"stations", required_argument, nullptr, STATIONS}, {"station-vlans", required_argument, nullptr, STATION_VLANS},
        {"silent", required_argument, nullptr, SILENT},
        {"trace", required_argument, nullptr, TRACE},       {"trace-no-start", no_argument, nullptr, TRACE_NO_START},
        {"help", no_argument, nullptr, HELP},               {"version", no_argument, nullptr, VERSION},
        {"plug", required_argument, nullptr, PLUG},         {nullptr, 0, nullptr, 0},
    };
    for (int found; (found = getopt_long(argc, argv, "+", names, nullptr)) != -1;) {
        switch (found) {
        case SOCKET: options->socket = optarg; break;
        case PORTS: options->model.ports = numberOption("ports", optarg, 1, 4096); break;
        case STATIONS: options->model.stations = numberOption("stations", optarg, 0, 65536); break;
        case SILENT: options->model.silentStations = numberOption("silent", optarg, 0, 65536); break;
        case STATION_VLANS: options->model.stationVlans = numberOption("station-vlans", optarg, 1, 4094); break;
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
    argv[0] = program; /* in what getopt says */
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
    createModel(options.model);
    servePlugs();
    checkNumbers();
    if (options.help) {
        printf("%s%s", synopsis, commandHelp().c_str());
        return 0;
    }
    if (!*options.socket) {
        fprintf(stderr, "vswitch: --socket takes a path\n");
        return 2;
    }
    Words words(argv + optind, argv + argc);
    if (serves && !words.empty()) {
        fprintf(stderr, "vswitch: \"serve\" takes options only, not \"%s\"\n", words[0].c_str());
        return 2;
    }
    if (serves)
        return serve(options.socket, options.plugs, options.trace);
    const Command *found = findCommand(words[0]);
    return found && !found->alone ? commandFromHere(options.socket, words) : commandAlone(joinWords(words));
}
