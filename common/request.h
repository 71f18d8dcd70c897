/*
 * request.h - what a request brings: its variables and its body. The answer goes to standard output. Where they come
 * from, a CGI environment or a socket, only main/ knows.
 */
#ifndef COMMON_REQUEST_H
#define COMMON_REQUEST_H

#include <stddef.h>

/* The variables that the program reads, by their names in CGI. It gets no other. */
enum RequestVariable {
    REQUEST_URI,
    REQUEST_METHOD,
    QUERY_STRING,
    CONTENT_LENGTH,
    HTTP_SESSION,
    HTTP_REFRESH,
    REQUEST_VARIABLES
};
extern const char *const requestVariableNames[REQUEST_VARIABLES];

/* A request in memory. An absent variable is null. */
struct Request {
    const char *variables[REQUEST_VARIABLES];
    const char *body; /* what has not been read of it */
    size_t bodySize;
};

/* Chooses the current request. It must stay until the next is chosen. null, as at the start: the CGI environment. */
void requestChoose(Request *request);

/* The value of a variable; null: the request does not have it. */
const char *requestVariable(RequestVariable variable);

/* Reads the next `size` bytes of the body. Returns how many were stored: fewer only when the body ends. */
size_t requestReadBody(char *to, size_t size);

#endif
