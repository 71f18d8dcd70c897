/*
 * capture.cpp - writes pcapng: a section header, the port as its interface, and one block for each frame.
 *
 * A block is written at once or not at all: a FIFO guarantees that up to 4 KiB (PIPE_BUF), and the block of the
 * longest frame that a port accepts is shorter. Longer frames are cut; the block has their full length.
 */
#include "vswitch/frames/capture.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

enum : size_t { MOST_CAPTURES = 16, SNAP_LENGTH = 2048, LONGEST_COMMENT = 1024 };
enum : uint32_t { SECTION = 0x0A0D0D0A, INTERFACE = 1, PACKET = 6, ORDER_OF_BYTES = 0x1A2B3C4D };
enum : uint16_t { LINKTYPE_ETHERNET = 1, OPTION_COMMENT = 1, OPTION_NAME = 2, OPTION_FLAGS = 2 };

struct Capture {
    uint32_t port;
    int file;
};
static std::vector<Capture> captures;

template <class T> static void put(std::string *to, T value)
{
    to->append((const char *)&value, sizeof value);
}

static void putPadded(std::string *to, std::string_view bytes)
{
    to->append(bytes);
    to->append(-bytes.size() % 4, '\0');
}

static void putOption(std::string *to, uint16_t option, std::string_view value)
{
    put(to, option);
    put(to, (uint16_t)value.size());
    putPadded(to, value);
}

/* A block: type, length, body, and the length again. */
static std::string blockOf(uint32_t type, const std::string &body)
{
    std::string block;
    uint32_t length = (uint32_t)body.size() + 12;
    put(&block, type);
    put(&block, length);
    block += body;
    put(&block, length);
    return block;
}

static std::string headerOf(uint32_t port)
{
    std::string section, interface;
    put(&section, ORDER_OF_BYTES);
    put(&section, (uint32_t)1);  /* version 1.0 */
    put(&section, UINT64_MAX);   /* section length: unknown */
    put(&interface, (uint32_t)LINKTYPE_ETHERNET);
    put(&interface, (uint32_t)SNAP_LENGTH);
    putOption(&interface, OPTION_NAME, port ? "port " + std::to_string(port) : "management port");
    put(&interface, (uint32_t)0); /* no more options */
    return blockOf(SECTION, section) + blockOf(INTERFACE, interface);
}

static std::string packetOf(Direction direction, std::string_view frame, const std::string &comment)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    uint64_t micros = (uint64_t)now.tv_sec * 1000000 + (uint64_t)now.tv_nsec / 1000;
    std::string packet;
    put(&packet, (uint32_t)0); /* interface number */
    put(&packet, (uint32_t)(micros >> 32));
    put(&packet, (uint32_t)micros);
    put(&packet, (uint32_t)std::min<size_t>(frame.size(), SNAP_LENGTH));
    put(&packet, (uint32_t)frame.size());
    putPadded(&packet, frame.substr(0, SNAP_LENGTH));
    std::string flags;
    put(&flags, (uint32_t)direction);
    putOption(&packet, OPTION_FLAGS, flags);
    if (!comment.empty())
        putOption(&packet, OPTION_COMMENT, std::string_view(comment).substr(0, LONGEST_COMMENT));
    put(&packet, (uint32_t)0);
    return blockOf(PACKET, packet);
}

bool startCapture(uint32_t port, const std::string &path, std::string *explanation)
{
    if (captures.size() == MOST_CAPTURES) {
        *explanation = "there are " + std::to_string(MOST_CAPTURES) + " captures already";
        return false;
    }
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    struct stat status = {};
    std::string header = headerOf(port);
    if (file >= 0 && fstat(file, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
        *explanation = path + " is neither a file nor a FIFO";
    } else if (file < 0 || write(file, header.data(), header.size()) != (ssize_t)header.size()) {
        *explanation = "cannot write to " + path + ": " + (errno == ELOOP ? "it is a symbolic link" : strerror(errno));
    } else {
        captures.push_back({port, file});
        return true;
    }
    if (file >= 0)
        close(file);
    return false;
}

bool portIsCaptured(uint32_t port)
{
    return std::any_of(captures.begin(), captures.end(), [=](const Capture &capture) { return capture.port == port; });
}

void captureFrame(uint32_t port, Direction direction, std::string_view frame, const std::string &comment)
{
    std::string packet = packetOf(direction, frame, comment);
    std::erase_if(captures, [&](const Capture &capture) {
        if (capture.port != port || write(capture.file, packet.data(), packet.size()) == (ssize_t)packet.size() ||
            errno == EAGAIN)
            return false;
        close(capture.file); /* the reader has gone, or the disk is full */
        return true;
    });
}

bool stopCaptures(uint32_t port)
{
    return std::erase_if(captures, [=](const Capture &capture) {
        bool stops = port == UINT32_MAX || capture.port == port;
        if (stops)
            close(capture.file);
        return stops;
    });
}
