/*
 * request_input.h - the input of a request, and how to find a key in it. Handlers use request_values.h instead, which
 * is built on these functions. Out of memory: see memory.h.
 */
#ifndef COMMON_REQUEST_INPUT_H
#define COMMON_REQUEST_INPUT_H

#include <stddef.h>
#include <stdint.h>

/* The pieces of an input between its "&"s, ended by a null pointer. Free with paramListFree. */
typedef char **ParamList;

/*
 * Returns the raw input of this request; the caller frees it. GET and DELETE: the first 8192 bytes of the query string.
 * POST and PUT: CONTENT_LENGTH bytes of the body; a shorter body gets one byte 0xFF at its end (established behaviour).
 * Null with errno 0: any other method (case matters). Null with errno ENOMEM: out of memory.
 */
char *readRequestInput();

/* Splits `input` (null counts as empty) on "&" and keeps empty pieces. Out of memory: exits (memory.h). */
ParamList paramListSplit(const char *input);

/*
 * The loose lookup: finds the first piece that has a "=" and contains `key` anywhere, so "vlan" also finds "vlanId=3"
 * (established behaviour). Returns the text behind the first "=", not decoded, owned by the list; null: not found.
 */
const char *paramFind(const char *key, ParamList list);

/* Frees the list and its pieces. Null is allowed. */
void paramListFree(ParamList list);

/*
 * Copies the value of exactly `key` into `buffer`: cuts it to size - 1 bytes, then percent-decodes it.
 * Returns 0; 10000 without the key, with a null argument, or with size 0.
 */
int paramGetExact(const char *input, const char *key, char *buffer, size_t size);

/* Decodes "%xx" and "+" in place; leaves an invalid escape as it is. Returns `text`, also when it is null. */
char *urlDecodeInPlace(char *text);

#endif
