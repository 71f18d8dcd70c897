/*
 * sockets.cpp - Unix-domain sockets: listening and connecting.
 */
#include "vswitch/base/sockets.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static bool addressOf(const char *path, sockaddr_un *address)
{
    *address = {};
    address->sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address->sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    strcpy(address->sun_path, path);
    return true;
}

int connectTo(const char *path)
{
    sockaddr_un address;
    int client = addressOf(path, &address) ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1;
    timeval limit = {5, 0}; /* a server that hangs must not block its client */
    if (client >= 0) {
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }
    if (client >= 0 && connect(client, (sockaddr *)&address, sizeof address) != 0) {
        int reason = errno;
        close(client);
        errno = reason;
        return -1;
    }
    return client;
}

/* Removes a socket that no process listens on. False: something else is at `path`. */
static bool clearPath(const char *path, std::string *wrong)
{
    struct stat status;
    if (lstat(path, &status) != 0)
        return true;
    if (!S_ISSOCK(status.st_mode)) {
        *wrong = std::string(path) + " exists and is not a socket; remove it or choose another path";
        return false;
    }
    int other = connectTo(path);
    if (other >= 0) {
        close(other);
        *wrong = std::string("another process is serving on ") + path + "; stop it or choose another path";
        return false;
    }
    if (errno == ENOENT) /* it has just gone */
        return true;
    *wrong = std::string("cannot find out whether a process serves on ") + path + ": " + strerror(errno);
    return errno == ECONNREFUSED && unlink(path) == 0;
}

static int bindTo(const char *path, std::string *wrong)
{
    sockaddr_un address;
    int listener = addressOf(path, &address) ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) : -1;
    if (listener >= 0 && bind(listener, (sockaddr *)&address, sizeof address) == 0 && listen(listener, 1024) == 0)
        return listener;
    *wrong = std::string("cannot listen on ") + path + ": " + strerror(errno);
    if (listener >= 0)
        close(listener);
    return -1;
}

/* Locks the directory: if two switches start at once, one must not take the other's new socket for a stale one. */
int listenOn(const char *path, std::string *wrong)
{
    std::string directory(path);
    size_t slash = directory.rfind('/');
    directory = slash == std::string::npos ? "." : directory.substr(0, slash + 1);
    int lock = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock >= 0)
        flock(lock, LOCK_EX);
    int listener = clearPath(path, wrong) ? bindTo(path, wrong) : -1;
    if (lock >= 0)
        close(lock);
    return listener;
}
