/*
 * server.cpp - one thread serves many clients. No client can make another one wait.
 */
#include "vswitch/server/server.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "vswitch/base/messages.h"
#include "vswitch/base/sockets.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/watch.h"
#include "vswitch/server/calls.h"

/* Memory limit for the requests and replies of all clients together: four of the longest messages. */
static const size_t HELD_MAX = (size_t)4 * WIRE_MESSAGE_MAX;

struct Client {
    int socket;
    pid_t process;
    int64_t since;      /* the start of its current request or reply, in milliseconds of the monotonic clock */
    std::string input;  /* received, not yet answered */
    std::string output; /* replies that are not sent yet */
    int64_t holdUntil;  /* before this time nothing is sent or tried again; the same clock */
    bool hangUp;        /* close the connection at holdUntil */
    bool again;         /* its first request could not be answered yet: try again at holdUntil */
};

static int64_t millisNow()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* Does the input begin with a whole request, or with a length above the limit? Stores the length. */
static bool hasRequest(const Client &client, uint32_t *length)
{
    MessageSource source = {client.input};
    return wireTake(source, length) && (*length > WIRE_MESSAGE_MAX || source.left.size() >= *length);
}

/* Is its last request still without a complete reply? */
static bool isBusy(const Client &client)
{
    return client.hangUp || client.again || !client.output.empty();
}

static size_t heldBy(const Client &client)
{
    return client.input.capacity() + client.output.capacity();
}

/* Frees the memory of a large message that is done. */
static void trim(std::string *bytes)
{
    if (bytes->capacity() > 65536 && bytes->size() < bytes->capacity() / 4)
        bytes->shrink_to_fit();
}

/* Answers the client's next request. False: close its connection at once. */
static bool serveRequest(Client *client, uint32_t length)
{
    if (length > WIRE_MESSAGE_MAX) {
        printError("process " + std::to_string(client->process) + " sent a request of invalid length");
        return false;
    }
    Reply reply = answerRequest(std::string_view(client->input).substr(sizeof length, length), client->process);
    client->again = reply.action == Reply::AGAIN;
    client->since = millisNow();
    client->holdUntil = client->since + (client->again ? 5 : reply.delayMs);
    if (client->again)
        return true;
    client->input.erase(0, sizeof length + length);
    trim(&client->input);
    client->hangUp = reply.action == Reply::HANG_UP;
    if (!client->hangUp)
        client->output = std::move(reply.message);
    return true;
}

static bool receiveFrom(Client *client)
{
    char bytes[64 * 1024];
    ssize_t got = recv(client->socket, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got > 0 && client->input.empty())
        client->since = millisNow();
    if (got > 0)
        client->input.append(bytes, (size_t)got);
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

/* Sends what is due. False: close the connection. */
static bool sendTo(Client *client)
{
    if (client->holdUntil > millisNow())
        return true;
    while (!client->output.empty()) {
        ssize_t sent = send(client->socket, client->output.data(), client->output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN || errno == EINTR;
        client->output.erase(0, (size_t)sent);
    }
    trim(&client->output);
    return !client->hangUp;
}

/*
 * One turn for a client whose socket has `events`. Answers at most one request, so that a client with many requests
 * does not delay the others, and none before the last reply is sent. False: close the connection.
 */
static bool attend(Client *client, short events)
{
    uint32_t length;
    bool pending = hasRequest(*client, &length), gone = events & (POLLHUP | POLLERR);
    if (gone && isBusy(*client))
        return false;
    if ((gone || events & POLLIN) && !pending && !receiveFrom(client))
        return false;
    if (!sendTo(client))
        return false;
    bool retry = client->again && client->holdUntil <= millisNow();
    if ((isBusy(*client) && !retry) || !hasRequest(*client, &length))
        return true;
    return serveRequest(client, length) && sendTo(client);
}

/* How many milliseconds poll() may wait; -1: until a descriptor is ready. */
static int waitMillis(const std::list<Client> &clients, int64_t now)
{
    int64_t due = INT64_MAX;
    uint32_t length;
    for (const Client &client : clients) {
        if (isBusy(client) && (client.holdUntil > now || client.output.empty()))
            due = std::min(due, client.holdUntil);
        else if (!isBusy(client) && hasRequest(client, &length))
            due = now;
    }
    return due == INT64_MAX ? -1 : (int)std::clamp<int64_t>(due - now, 0, 60000);
}

/* The events to poll the client's socket for. */
static short eventsOf(const Client &client, int64_t now)
{
    uint32_t length;
    if (isBusy(client))
        return !client.output.empty() && client.holdUntil <= now ? POLLOUT : 0;
    return hasRequest(client, &length) ? 0 : POLLIN;
}

static pid_t processBehind(int socket)
{
    ucred peer = {};
    socklen_t size = sizeof peer;
    getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer.pid;
}

/* False: no descriptor is left for another client. */
static bool acceptClients(int listener, std::list<Client> *clients)
{
    int socket;
    while ((socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0)
        clients->push_back({socket, processBehind(socket), 0, {}, {}, 0, false, false});
    return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
}

/* Over the memory limit: closes the oldest of the clients that hold more than the average. */
static void limitHeld(std::list<Client> *clients)
{
    size_t held = 0;
    for (const Client &client : *clients)
        held += heldBy(client);
    while (held > HELD_MAX) {
        auto worst = clients->end();
        for (auto client = clients->begin(); client != clients->end(); ++client)
            if (heldBy(*client) * clients->size() >= held && (worst == clients->end() || client->since < worst->since))
                worst = client;
        printError("too much memory in messages: closed the connection of process " + std::to_string(worst->process));
        held -= heldBy(*worst);
        close(worst->socket);
        clients->erase(worst);
    }
}

static void serveClients(int listener, int stop)
{
    std::list<Client> clients;
    std::vector<pollfd> polled;
    bool room = true;
    while (true) {
        int64_t now = millisNow();
        polled.assign({{stop, POLLIN, 0}, {room ? listener : -1, POLLIN, 0}});
        for (const Client &client : clients)
            polled.push_back({client.socket, eventsOf(client, now), 0});
        size_t index = polled.size();
        appendWatched(&polled);
        if (poll(polled.data(), polled.size(), waitMillis(clients, now)) < 0 && errno != EINTR)
            break;
        if (polled[0].revents)
            break;
        callWatched(&polled[index], polled.size() - index);
        index = 2;
        for (auto client = clients.begin(); client != clients.end();) {
            short events = polled[index++].revents;
            if (attend(&*client, events)) {
                ++client;
            } else {
                close(client->socket);
                client = clients.erase(client);
                room = true;
            }
        }
        limitHeld(&clients);
        if (polled[1].revents)
            room = acceptClients(listener, &clients);
    }
    for (const Client &client : clients)
        close(client.socket);
}

int serveOn(const char *path)
{
    rlimit descriptors;
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);

    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    int stop = signalfd(-1, &signals, SFD_CLOEXEC);

    signal(SIGPIPE, SIG_IGN);
    std::string wrong = "cannot wait for signals";
    int listener = stop < 0 ? -1 : listenOn(path, &wrong);
    if (listener < 0) {
        fprintf(stderr, "vswitch: %s\n", wrong.c_str());
        return 1;
    }
    printf("vswitch: serving on %s\n", path);
    fflush(stdout);
    serveClients(listener, stop);
    unlink(path);
    printf("vswitch: stopped\n");
    return 0;
}
