/*
 * request_input.cpp - reads the request's input and looks keys up in it.
 */
#include "common/request_input.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/memory.h"
#include "common/request.h"
#include "common/response.h"

enum { QUERY_LIMIT = 8192, LIST_STEP = 10 };

/* The body length in CONTENT_LENGTH; 0 without a positive number. Leaves room for the terminator. */
static size_t announcedLength()
{
    const char *text = requestVariable(CONTENT_LENGTH);
    long long length = text ? strtoll(text, nullptr, 10) : 0;
    if (length <= 0)
        return 0;
    return (unsigned long long)length < SIZE_MAX ? (size_t)length : SIZE_MAX - 1;
}

static char *readBodyText()
{
    size_t length = announcedLength();
    char *text = (char *)calloc(length + 1, 1);
    if (!text || length == 0)
        return text;
    size_t stored = requestReadBody(text, length);
    if (stored < length)
        text[stored] = (char)0xFF; /* established behaviour: EOF, stored as a byte */
    return text;
}

char *readRequestInput()
{
    errno = 0; /* null with errno 0: the method has no input */
    const char *method = requestVariable(REQUEST_METHOD);
    if (!method)
        return nullptr;
    if (strcmp(method, "GET") == 0 || strcmp(method, "DELETE") == 0) {
        const char *query = requestVariable(QUERY_STRING);
        return strndup(query ? query : "", QUERY_LIMIT);
    }
    if (strcmp(method, "POST") == 0 || strcmp(method, "PUT") == 0)
        return readBodyText();
    return nullptr;
}

ParamList paramListSplit(const char *input)
{
    size_t capacity = LIST_STEP;
    size_t count = 0;
    ParamList list = (ParamList)calloc(capacity, sizeof *list);
    if (!list)
        exitWithoutMemory("create parameter list");
    for (const char *rest = input ? input : "";;) {
        size_t length = strcspn(rest, "&");
        if (count + 1 == capacity) { /* room for this piece and the null pointer */
            ParamList grown = (ParamList)realloc(list, (capacity + LIST_STEP) * sizeof *list);
            if (!grown)
                exitWithoutMemory("grow parameter list");
            list = grown;
            capacity += LIST_STEP;
        }
        list[count] = strndup(rest, length);
        if (!list[count])
            exitWithoutMemory("copy parameter");
        list[++count] = nullptr;
        if (!rest[length])
            return list;
        rest += length + 1;
    }
}

const char *paramFind(const char *key, ParamList list)
{
    for (; *list; list++) {
        const char *equals = strchr(*list, '=');
        if (equals && strstr(*list, key))
            return equals + 1;
    }
    return nullptr;
}

void paramListFree(ParamList list)
{
    if (!list)
        return;
    for (ParamList piece = list; *piece; piece++)
        free(*piece);
    free(list);
}

int paramGetExact(const char *input, const char *key, char *buffer, size_t size)
{
    if (!input || !key || !buffer || size == 0)
        return (int)ResultCode::GENERAL_FAILED;
    size_t keyLength = strlen(key);
    for (const char *piece = input; *piece;) {
        size_t length = strcspn(piece, "&");
        if (strncmp(piece, key, keyLength) == 0 && piece[keyLength] == '=') {
            snprintf(buffer, size, "%.*s", (int)(length - keyLength - 1), piece + keyLength + 1);
            urlDecodeInPlace(buffer);
            return 0;
        }
        piece += length + (piece[length] == '&');
    }
    return (int)ResultCode::GENERAL_FAILED;
}

/* The value of a hexadecimal digit; -1 for any other character. */
static int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

char *urlDecodeInPlace(char *text)
{
    if (!text)
        return nullptr;
    char *to = text;
    for (const char *from = text; *from; from++) {
        int high = *from == '%' ? hexDigit(from[1]) : -1;
        int low = high >= 0 ? hexDigit(from[2]) : -1;
        if (low >= 0) {
            *to++ = (char)(high * 16 + low);
            from += 2;
        } else {
            *to++ = *from == '+' ? ' ' : *from;
        }
    }
    *to = 0;
    return text;
}
