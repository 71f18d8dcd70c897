/*
 * capture.h - writes the frames of a port to a file for tcpdump and Wireshark (pcapng), each with its direction and,
 * if it was discarded, the reason.
 */
#ifndef VSWITCH_CAPTURE_H
#define VSWITCH_CAPTURE_H

#include <stdint.h>

#include <string>
#include <string_view>

enum Direction : uint32_t { FRAME_IN = 1, FRAME_OUT = 2 };

/* Starts to write the port's frames to `path`, a file or a FIFO with a reader. False with an explanation. */
bool startCapture(uint32_t port, const std::string &path, std::string *explanation);

bool portIsCaptured(uint32_t port);

/* `comment`: why the frame was discarded, or empty. A reader that is too slow misses frames. */
void captureFrame(uint32_t port, Direction direction, std::string_view frame, const std::string &comment);

/* Stops the captures of the port; UINT32_MAX: all. False: there were none. */
bool stopCaptures(uint32_t port = UINT32_MAX);

#endif
