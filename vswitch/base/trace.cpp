/*
 * trace.cpp - lines into a file or a pipe, without ever waiting for whoever reads them.
 */
#include "vswitch/base/trace.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "vswitch/base/watch.h"

static const size_t WAITING_MAX = 1 << 20;

static int file = -1;
static std::string waiting; /* lines that are not written yet */
static uint64_t dropped;    /* lines; once one was, others are as well until nothing waits */
static uint64_t confessed;  /* dropped lines that a line in `waiting` tells of */

bool openTrace(const char *path)
{
    /* Standard output is opened again, so that it stays as it is for those who share it. */
    bool standard = strcmp(path, "-") == 0;
    const int flags = O_APPEND | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    file = open(standard ? "/proc/self/fd/1" : path, O_WRONLY | O_CREAT | flags, 0666);
    if (file < 0 && errno == ENXIO) /* a named pipe that nobody reads yet */
        file = open(path, O_RDWR | flags);
    if (file < 0 && standard && fcntl(1, F_SETFL, fcntl(1, F_GETFL) | O_NONBLOCK) == 0)
        file = 1;
    return file >= 0;
}

bool tracing()
{
    return file >= 0;
}

static void confess()
{
    waiting = "(" + std::to_string(dropped) + " lines are missing here: nobody took them)\n" + waiting;
    confessed = dropped;
    dropped = 0;
}

/* A full disk, or a pipe without a reader: perhaps there is room for the next line. */
static void dropWaiting()
{
    dropped += (uint64_t)std::count(waiting.begin(), waiting.end(), '\n') + confessed - (confessed ? 1 : 0);
    confessed = 0;
    waiting.clear();
}

/* Writes what waits, as far as there is room, and the rest when there is some. */
static void writeWaiting()
{
    while (!waiting.empty()) {
        ssize_t written = write(file, waiting.data(), waiting.size());
        if (written < 0 && errno == EAGAIN)
            return watch(file, POLLOUT, [](short) { writeWaiting(); });
        if (written < 0 && errno != EINTR) {
            dropWaiting();
        } else if (written > 0) {
            waiting.erase(0, (size_t)written);
            confessed = waiting.empty() ? 0 : confessed;
            if (waiting.empty() && dropped)
                confess();
        }
    }
    unwatch(file);
}

void traceLine(const std::string &line)
{
    if (waiting.size() > WAITING_MAX || (dropped && !waiting.empty())) {
        dropped++;
        return;
    }
    if (dropped)
        confess();
    waiting += line + "\n";
    writeWaiting();
}

void printError(const std::string &message)
{
    pollfd errors = {2, POLLOUT, 0};
    if (poll(&errors, 1, 0) == 1 && errors.revents == POLLOUT)
        fprintf(stderr, "vswitch: %s\n", message.c_str());
}
