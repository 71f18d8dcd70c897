/*
 * request_input.h - where a request's values come from: the query string, the body, and the ways to look a key up.
 */
#ifndef COMMON_REQUEST_INPUT_H
#define COMMON_REQUEST_INPUT_H

#include <stddef.h>
#include <stdint.h>

/* The pieces of an input between its "&"s, ended by a null pointer. Owned by whoever split it (paramListFree). */
typedef char **ParamList;

/*
 * The raw input of this request, owned by the caller (free): for GET and DELETE the first 8192 bytes of the query
 * string, for POST and PUT the body. Null for any other method (they are compared with case) or when memory is out.
 * A body that ends before CONTENT_LENGTH gets one byte 0xFF at its end: established behaviour.
 */
char *readRequestInput();

/* Splits `input` (null counts as empty) on "&", keeping empty pieces. Without memory the process ends with status 1. */
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

/*
 * The number behind exactly `key` in the query string, whatever the method: the key stands at the start or right behind
 * a "&" and is followed by "=". Base 10, low 32 bits; 0 when the key is not there or its value is no number.
 */
uint32_t queryUintExact(const char *key);

/* The text behind exactly `key` up to the next "&", cut to size - 1 bytes, not decoded; "" without the key. */
void queryTextExact(const char *key, char *buffer, size_t size);

#endif
