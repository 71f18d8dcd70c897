/*
 * request_input.cpp - reads the request's input and looks keys up in it.
 */
#include "common/request_input.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/response.h"

enum { QUERY_LIMIT = 8192, LIST_STEP = 10 };

/* The request body, CONTENT_LENGTH bytes of it; a length that makes no sense counts as no body. */
static char *readBodyText()
{
    const char *lengthText = getenv("CONTENT_LENGTH");
    long length = lengthText ? strtol(lengthText, nullptr, 10) : 0;
    char *text = length > 0 ? (char *)calloc((size_t)length + 1, 1) : nullptr;
    if (!text)
        return (char *)calloc(1, 1);
    size_t stored = fread(text, 1, (size_t)length, stdin);
    if (stored < (size_t)length)
        text[stored] = (char)0xFF; /* the end-of-file value of the last read: established behaviour */
    return text;
}

char *readRequestInput()
{
    const char *method = getenv("REQUEST_METHOD");
    if (!method)
        return nullptr;
    if (strcmp(method, "GET") == 0 || strcmp(method, "DELETE") == 0) {
        const char *query = getenv("QUERY_STRING");
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
        exit(1);
    for (const char *rest = input ? input : "";;) {
        size_t length = strcspn(rest, "&");
        if (count + 1 == capacity) { /* this piece and the end must fit */
            ParamList grown = (ParamList)realloc(list, (capacity + LIST_STEP) * sizeof *list);
            if (!grown)
                exit(1);
            list = grown;
            capacity += LIST_STEP;
        }
        list[count] = strndup(rest, length);
        if (!list[count])
            exit(1);
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
        return RESULT_GENERAL_FAILED;
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
    return RESULT_GENERAL_FAILED;
}

/* The value of a hexadecimal digit, -1 for any other character. */
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

/* What follows "key=" at the start of the query string or right behind a "&"; null when there is no such place. */
static const char *queryValueExact(const char *key)
{
    const char *query = getenv("QUERY_STRING");
    if (!query)
        return nullptr;
    size_t keyLength = strlen(key);
    for (const char *at = query; (at = strstr(at, key)); at += keyLength)
        if ((at == query || at[-1] == '&') && at[keyLength] == '=')
            return at + keyLength + 1;
    return nullptr;
}

uint32_t queryUintExact(const char *key)
{
    const char *value = queryValueExact(key);
    return value ? (uint32_t)strtoul(value, nullptr, 10) : 0;
}

void queryTextExact(const char *key, char *buffer, size_t size)
{
    const char *value = queryValueExact(key);
    int length = value ? (int)strcspn(value, "&") : 0;
    snprintf(buffer, size, "%.*s", length, value ? value : "");
}
