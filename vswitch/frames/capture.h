/*
 * capture.h - the frames of a port in a file that tcpdump and Wireshark read (pcapng), each with its direction, and why
 * it was discarded if it was.
 */
#ifndef VSWITCH_CAPTURE_H
#define VSWITCH_CAPTURE_H

#include <stdint.h>

#include <string>
#include <string_view>

enum Direction : uint32_t { FRAME_IN = 1, FRAME_OUT = 2 };

/*
 * Writes the port's frames to `path`, a file or a FIFO, from now on and as long as somebody reads. False with an
 * explanation that ends in a line end.
 */
bool startCapture(uint32_t port, const std::string &path, std::string *explanation);

bool portIsCaptured(uint32_t port);

/* `comment` may be empty. A reader that does not keep up misses frames. */
void captureFrame(uint32_t port, Direction direction, std::string_view frame, const std::string &comment);

void stopCaptures();

#endif
