/*
 * client.cpp - sends a command to a running switch, and prints the answer.
 */
#include "vswitch/client.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "vswitch/base/messages.h"
#include "vswitch/base/sockets.h"

/* Receives a reply. Returns its content; empty: the connection ended, or 30 s passed. */
static std::string receiveReply(int connection)
{
    std::string bytes;
    uint32_t length;
    char buffer[64 * 1024];
    for (ssize_t got; (got = recv(connection, buffer, sizeof buffer, 0)) > 0;) {
        bytes.append(buffer, (size_t)got);
        MessageSource source = {bytes};
        if (wireTake(source, &length) && source.left.size() >= length)
            return std::string(source.left);
    }
    return "";
}

/* Prints the answer of a command. Returns the exit status. */
static int report(const std::string &answer, bool done)
{
    if (done)
        fputs(answer.c_str(), stdout);
    else
        fprintf(stderr, "vswitch: %s", answer.c_str());
    return done ? 0 : 2;
}

static int sendCommand(const char *path, const std::string &line)
{
    int connection = connectTo(path);
    if (connection < 0) {
        fprintf(stderr, "vswitch: no virtual switch is serving on %s: %s\n", path, strerror(errno));
        return 1;
    }
    timeval limit = {30, 0}; /* some commands wait for something */
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string request = commandRequest(line);
    std::string answer;
    int code = -1;
    bool sent = send(connection, request.data(), request.size(), MSG_NOSIGNAL) == (ssize_t)request.size();
    bool answered = sent && readCommandReply(receiveReply(connection), &code, &answer);
    close(connection);
    if (!answered) {
        fprintf(stderr, "vswitch: the virtual switch on %s did not answer the command\n", path);
        return 1;
    }
    return report(answer, code == 0);
}

/*
 * Makes the switch write the frames of a port to a FIFO, and copies them to standard output until the switch stops or
 * the reader of standard output has gone. The FIFO is removed as soon as both ends are open.
 */
static int captureToOutput(const char *path, const std::string &port)
{
    char directory[] = "/tmp/vswitch-capture-XXXXXX";
    std::string fifo = mkdtemp(directory) ? std::string(directory) + "/fifo" : "";
    int frames = mkfifo(fifo.c_str(), 0600) == 0 ? open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (frames < 0)
        fprintf(stderr, "vswitch: cannot make a FIFO in /tmp: %s\n", strerror(errno));
    int status = frames < 0 ? 1 : sendCommand(path, joinArgs({"capture", port, fifo}));
    unlink(fifo.c_str());
    rmdir(directory);
    if (status)
        return status;
    signal(SIGPIPE, SIG_IGN);
    pollfd ends[] = {{frames, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}; /* POLLERR: the reader has gone */
    char bytes[64 * 1024];
    while (poll(ends, 2, -1) > 0 && !ends[1].revents) {
        ssize_t got = read(frames, bytes, sizeof bytes);
        if (got == 0 || (got > 0 && write(STDOUT_FILENO, bytes, (size_t)got) != got))
            break;
    }
    return 0;
}

int runClient(const char *socketPath, const Args &args)
{
    Args rest;
    std::string answer;
    const Command *command = readCommand(joinArgs(args), &rest, &answer);
    if (!command)
        return report(answer, false);
    if (command->local) {
        bool done = command->run(rest, &answer) == COMMAND_DONE;
        return report(answer, done);
    }
    bool captures = args[0] == "capture";
    if (captures && rest.size() == 1 && rest[0].find_first_not_of("0123456789") == std::string::npos)
        return captureToOutput(socketPath, rest[0]);
    if (captures && rest.size() == 2 && args[1] != "stop") /* the switch may run in another directory */
        rest[1] = std::filesystem::absolute(rest[1]);
    size_t socket = args[0] == "plug" && rest.size() == 1 ? rest[0].find("=unix:") : std::string::npos;
    if (socket != std::string::npos)
        rest[0] = rest[0].substr(0, socket + 6) + std::filesystem::absolute(rest[0].substr(socket + 6)).string();
    rest.insert(rest.begin(), args[0]);
    return sendCommand(socketPath, joinArgs(rest));
}
