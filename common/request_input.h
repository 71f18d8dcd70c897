/*
 * request_input.h - where a request's values come from: its input, and the ways to look a key up in it. Endpoints read
 * by the words of request_values.h, which stand on these.
 */
#ifndef COMMON_REQUEST_INPUT_H
#define COMMON_REQUEST_INPUT_H

#include <stddef.h>
#include <stdint.h>

/* The pieces of an input between its "&"s, ended by a null pointer. Owned by whoever split it (paramListFree). */
typedef char **ParamList;

/*
 * The raw input of this request, owned by the caller (free): for GET and DELETE the first 8192 bytes of the query
 * string, for POST and PUT the body, CONTENT_LENGTH bytes of it. A body that ends before that gets one byte 0xFF at its
 * end: established behaviour. Null for any other method (they are compared with case); null, with errno ENOMEM, when
 * there is no memory for the input.
 */
char *readRequestInput();

/* Ends the process, which could not `what` (for the log) for want of memory: see request_input.cpp. */
[[noreturn]] void exitWithoutMemory(const char *what);

/* Splits `input` (null counts as empty) on "&", keeping empty pieces. Without memory: exitWithoutMemory. */
ParamList paramListSplit(const char *input);

/*
 * The text after the first "=" of the first piece that has a "=" and contains `key` anywhere; null when there is none.
 * So "vlan" finds vlanId=3 as well: established behaviour. The value is not decoded and belongs to the list.
 */
const char *paramFind(const char *key, ParamList list);

/* Frees the list and its pieces; null is allowed. */
void paramListFree(ParamList list);

/*
 * Copies the percent-decoded value of exactly `key` into `buffer`, at most size - 1 bytes of it before decoding.
 * Returns 0, or 10000 when the key is not there (or an argument is null, or the size 0).
 */
int paramGetExact(const char *input, const char *key, char *buffer, size_t size);

/* Decodes "%xx" and "+" in place and returns the text; what is no proper escape stays. Null is returned as null. */
char *urlDecodeInPlace(char *text);

#endif
