/*
 * request_values.h - the words by which an endpoint reads the values of its request: one at a time from the query
 * string, or several at once from the parameter list or a JSON body.
 *
 * Of several, a value that is not there (or does not qualify, as each function says) leaves its variable as it was:
 * what the variable holds before is the endpoint's default. Nothing borrowed is left behind: texts are copied. Without
 * memory the process ends (exitWithoutMemory): a value that only could not be had is never taken for absent.
 */
#ifndef COMMON_REQUEST_VALUES_H
#define COMMON_REQUEST_VALUES_H

#include <initializer_list>
#include <stdint.h>

#include "common/open_client.h"
#include "common/words.h"

/*
 * Exact keys of the query string, whatever the method: the key stands at the start or right behind a "&" and is
 * followed by "=". The value is not decoded.
 */

/* Base 10, low 32 bits; 0 when the key is not there or its value is no number. */
uint32_t queryUintExact(const char *key);

/* The low 16 bits of the same. */
uint16_t queryUint16Exact(const char *key);

/* The code of a word; `fallback` for another text, or none. */
uint32_t queryWordExact(const char *key, const WordTable &words, uint32_t fallback);

/* The code of a word; another text counts as a number, as queryUintExact reads it, of 31 bytes at most. */
uint32_t queryWordOrUintExact(const char *key, const WordTable &words);

/*
 * Exact keys of the query string, whatever the method, in the manner of paramGetExact: percent-decoded, and cut before
 * that to what their storage holds.
 */

/* The text decoded once more: established behaviour. False, and the empty text, without the key. */
bool queryTextDecoded(const char *key, char *text, uint32_t size);

template <uint32_t N> bool queryTextDecoded(const char *key, OpenText<N> &text)
{
    return queryTextDecoded(key, text.bytes, N);
}

/* Base 10, low 32 bits of a signed number of at most 15 bytes; 0 without the key. */
uint32_t queryUintDecoded(const char *key);

/* A value of the parameter list, found by the loose lookup of paramFind. */
struct Param {
    const char *key;
    uint32_t *number;
    char *text;
    uint32_t size;
    const WordTable *words;
};

/* Base 10, low 32 bits; a value that is no number is 0. */
inline Param uintParam(const char *key, uint32_t *value)
{
    return {key, value, nullptr, 0, nullptr};
}

/* At most N - 1 bytes, not decoded. */
template <uint32_t N> Param textParam(const char *key, OpenText<N> &text)
{
    return {key, nullptr, text.bytes, N, nullptr};
}

/* The code of a word; an unknown word does not qualify. */
inline Param wordParam(const char *key, const WordTable &words, uint32_t *code)
{
    return {key, code, nullptr, 0, &words};
}

/* Reads the parameter list of this request's input (the form-encoded body of a PUT or POST). False without an input. */
bool readParams(std::initializer_list<Param> params);

/* A member of the JSON body, found ignoring the case of its key. */
struct Member {
    enum Rule { INTEGER, INTEGER_OF_NUMBER, SATURATED, TEXT, LONG_TEXT, WORD, TRUE_LITERAL, IPV4, VLAN_IDS } rule;
    const char *key;
    void *value;
    uint32_t size;
    const WordTable *words;
    bool required;
};

/* cJSON's integer copy, whatever the member's type: a number truncated and held to 32 signed bits, 0 for a text. */
inline Member integerMember(const char *key, uint32_t *value)
{
    return {Member::INTEGER, key, value, 0, nullptr, false};
}

/* The integer copy, but only of a number. */
inline Member integerOfNumberMember(const char *key, uint32_t *value)
{
    return {Member::INTEGER_OF_NUMBER, key, value, 0, nullptr, false};
}

/* cJSON's double copy, whatever the member's type, held to the range of an unsigned 32-bit number and truncated. */
inline Member saturatedMember(const char *key, uint32_t *value)
{
    return {Member::SATURATED, key, value, 0, nullptr, false};
}

/* At most N - 1 bytes of a string. */
template <uint32_t N> Member textMember(const char *key, OpenText<N> &text)
{
    return {Member::TEXT, key, text.bytes, N, nullptr, false};
}

/* A string of any length, for the caller to free. Another type than a string counts as no member at all. */
inline Member longTextMember(const char *key, LongText &text)
{
    return {Member::LONG_TEXT, key, &text, 0, nullptr, false};
}

/* The code of a word, case matters; an unknown word or another type than a string does not qualify. */
inline Member wordMember(const char *key, const WordTable &words, uint32_t *code)
{
    return {Member::WORD, key, code, 0, &words, false};
}

/* 1 for the literal true and nothing else. */
inline Member trueMember(const char *key, uint32_t *flag)
{
    return {Member::TRUE_LITERAL, key, flag, 0, nullptr, false};
}

/* The four bytes of a dotted IPv4 address in network order, as they lie in memory; another text does not qualify. */
inline Member ipv4Member(const char *key, uint32_t *address)
{
    return {Member::IPV4, key, address, 0, nullptr, false};
}

/* The first 4096 elements of an array; numbers are cut to 16 bits, anything else is a 0 in its place. */
inline Member vlanIdsMember(const char *key, VlanIdList *list)
{
    return {Member::VLAN_IDS, key, list, 0, nullptr, false};
}

/* The same member, without which a body is refused. */
inline Member required(Member member)
{
    member.required = true;
    return member;
}

/* Reads the JSON body (of a DELETE: the query string). False when it does not parse or a required member is missing. */
bool parseBody(std::initializer_list<Member> members);

/* As parseBody; where that fails it has answered 10003 with a line end, and the handler has nothing left to do. */
bool readBody(std::initializer_list<Member> members);

#endif
