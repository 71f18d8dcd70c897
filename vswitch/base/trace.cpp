/*
 * trace.cpp - writes lines to a file or a pipe, and never waits for the reader.
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
static uint64_t dropped;    /* lines since the last notice. After one, all lines are dropped until `waiting` is empty */
static uint64_t noticed;    /* dropped lines that the notice at the start of `waiting` counts; 0: there is no notice */

/* These paths are symbolic links, but never those of another user. */
static bool isStream(const char *path)
{
    for (const char *streams : {"/dev/std", "/dev/fd/", "/proc/self/fd/"})
        if (strncmp(path, streams, strlen(streams)) == 0)
            return true;
    return false;
}

bool openTrace(const char *path)
{
    /* Opens standard output again: O_NONBLOCK on the shared one would affect other processes. */
    bool standard = strcmp(path, "-") == 0;
    const int flags = O_APPEND | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (standard || isStream(path) ? 0 : O_NOFOLLOW);
    file = open(standard ? "/proc/self/fd/1" : path, O_WRONLY | O_CREAT | flags, 0666);
    if (file < 0 && errno == ENXIO) /* a FIFO without a reader */
        file = open(path, O_RDWR | flags);
    if (file < 0 && standard && fcntl(1, F_SETFL, fcntl(1, F_GETFL) | O_NONBLOCK) == 0)
        file = 1;
    return file >= 0;
}

bool tracing()
{
    return file >= 0;
}

static void insertNotice()
{
    waiting = "(" + std::to_string(dropped) + " lines dropped: the reader was too slow)\n" + waiting;
    noticed = dropped;
    dropped = 0;
}

/* After a write error (the disk is full, or the reader has gone): drops the waiting lines and goes on with the next. */
static void dropWaiting()
{
    dropped += (uint64_t)std::count(waiting.begin(), waiting.end(), '\n') + noticed - (noticed ? 1 : 0);
    noticed = 0;
    waiting.clear();
}

/* Writes what waits. If the pipe is full, the rest follows when there is room. */
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
            noticed = waiting.empty() ? 0 : noticed;
            if (waiting.empty() && dropped)
                insertNotice();
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
        insertNotice();
    waiting += line + "\n";
    writeWaiting();
}

void printError(const std::string &message)
{
    pollfd errors = {2, POLLOUT, 0};
    if (poll(&errors, 1, 0) == 1 && errors.revents == POLLOUT)
        fprintf(stderr, "vswitch: %s\n", message.c_str());
}
