/*
 * scgi.h - receives SCGI requests.
 *
 * A request is its head and its body. The head is a decimal number, ":", so many bytes of variables, and ",". Each
 * variable is its name, a zero byte, its value, a zero byte. CONTENT_LENGTH is the size of the body.
 */
#ifndef MAIN_SCGI_H
#define MAIN_SCGI_H

#include "common/request.h"

/* Limits in bytes: of all variables together, and of the body. */
enum : size_t { SCGI_VARIABLES_MAX = 0x40000, SCGI_BODY_MAX = 0x100000 };

/* A head. The values of the variables point into the bytes that it was read from. */
struct ScgiHead {
    const char *variables[REQUEST_VARIABLES]; /* null: absent */
    size_t bodySize;
    size_t size; /* of the head; 0: wrong, or more bytes are needed */
    const char *wrong; /* null: nothing is wrong */
};

/* Reads the head at the start of `bytes`. It ignores the variables that the program does not know. */
ScgiHead scgiReadHead(const char *bytes, size_t size);

enum ScgiOutcome { SCGI_REQUEST, SCGI_WRONG, SCGI_LOST };

/*
 * Receives a request, which is valid until scgiEnd. A body may end early: the request has what came of it.
 * SCGI_WRONG: this is no request; *wrong says why. SCGI_LOST: the client sent nothing, or not all in ten seconds.
 */
ScgiOutcome scgiReceive(int connection, Request *request, const char **wrong);

/*
 * Closes the connection. First it reads, for at most `millis` milliseconds, what the client still sends: otherwise the
 * client could lose the answer.
 */
void scgiEnd(int connection, int millis);

#endif
