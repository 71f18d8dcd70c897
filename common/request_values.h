/*
 * request_values.h - how a handler reads its request: one value at a time from the query string, or several at once
 * from the parameter list or a JSON body. Texts are copied. Out of memory: exits (memory.h).
 *
 * When it reads several, a variable holds the endpoint's default first. It keeps that when the value is absent, or not
 * accepted (each reader says what it accepts).
 */
#ifndef COMMON_REQUEST_VALUES_H
#define COMMON_REQUEST_VALUES_H

#include <initializer_list>
#include <stdint.h>

#include "common/open_client.h"
#include "common/names.h"

/*
 * Exact keys of the query string, with any method: the key stands at the start or right behind a "&", and a "=" follows
 * it. The value is not decoded.
 */

/* A decimal number, its low 32 bits; 0 without the key, or when the value is not a number. */
uint32_t queryUintExact(const char *key);

/* The low 16 bits of the same. */
uint16_t queryUint16Exact(const char *key);

/* The code of a name; `fallback` for an unknown name, or without the key. */
uint32_t queryCodeExact(const char *key, const NameTable &names, uint32_t fallback);

/* The code of a name. An unknown name counts as a number, read as by queryUintExact from its first 31 bytes. */
uint32_t queryCodeOrUintExact(const char *key, const NameTable &names);

/*
 * Exact keys of the query string, with any method, read by paramGetExact: cut to their storage, then percent-decoded.
 */

/* A text, decoded a second time: established behaviour. Without the key: false, and the empty text. */
bool queryTextDecoded(const char *key, char *text, uint32_t size);

template <uint32_t N> bool queryTextDecoded(const char *key, OpenText<N> &text)
{
    return queryTextDecoded(key, text.bytes, N);
}

/* A signed decimal number of at most 15 bytes, its low 32 bits; 0 without the key. */
uint32_t queryUintDecoded(const char *key);

/* A value of the parameter list, found by the loose lookup (paramFind). */
struct Param {
    const char *key;
    uint32_t *number;
    char *text;
    uint32_t size;
    const NameTable *names;
};

/* A decimal number, its low 32 bits; 0 when the value is not a number. */
inline Param uintParam(const char *key, uint32_t *value)
{
    return {key, value, nullptr, 0, nullptr};
}

/* A text of at most N - 1 bytes, not decoded. */
template <uint32_t N> Param textParam(const char *key, OpenText<N> &text)
{
    return {key, nullptr, text.bytes, N, nullptr};
}

/* The code of a name. Does not accept an unknown name. */
inline Param codeParam(const char *key, const NameTable &names, uint32_t *code)
{
    return {key, code, nullptr, 0, &names};
}

/* Reads the parameters from the query string (GET, DELETE) or the form-encoded body (POST, PUT). False: no input. */
bool readParams(std::initializer_list<Param> params);

/* A member of the JSON body. The case of its key does not matter. */
struct Member {
    enum Rule { INTEGER, INTEGER_OF_NUMBER, SATURATED, TEXT, LONG_TEXT, CODE, TRUE_LITERAL, IPV4, VLAN_IDS } rule;
    const char *key;
    void *value;
    uint32_t size;
    const NameTable *names;
    bool required;
};

/* cJSON's valueint, with any type: a number, truncated and limited to signed 32 bits; 0 for a text. */
inline Member integerMember(const char *key, uint32_t *value)
{
    return {Member::INTEGER, key, value, 0, nullptr, false};
}

/* The same, but accepts only a number. */
inline Member integerOfNumberMember(const char *key, uint32_t *value)
{
    return {Member::INTEGER_OF_NUMBER, key, value, 0, nullptr, false};
}

/* cJSON's valuedouble, with any type: a number, truncated and limited to unsigned 32 bits; 0 for a text. */
inline Member saturatedMember(const char *key, uint32_t *value)
{
    return {Member::SATURATED, key, value, 0, nullptr, false};
}

/* A string, cut to N - 1 bytes. Accepts only a string. */
template <uint32_t N> Member textMember(const char *key, OpenText<N> &text)
{
    return {Member::TEXT, key, text.bytes, N, nullptr, false};
}

/* A string of any length; the caller frees it. Any other type counts as an absent member. */
inline Member longTextMember(const char *key, LongText &text)
{
    return {Member::LONG_TEXT, key, &text, 0, nullptr, false};
}

/* The code of a name (case matters). Accepts only a string that is a known name. */
inline Member codeMember(const char *key, const NameTable &names, uint32_t *code)
{
    return {Member::CODE, key, code, 0, &names, false};
}

/* 1 for the literal true, 0 for any other value. */
inline Member trueMember(const char *key, uint32_t *flag)
{
    return {Member::TRUE_LITERAL, key, flag, 0, nullptr, false};
}

/* A dotted IPv4 address, stored in network byte order. Accepts nothing else. */
inline Member ipv4Member(const char *key, uint32_t *address)
{
    return {Member::IPV4, key, address, 0, nullptr, false};
}

/* The first 4096 elements of an array: the low 16 bits of a number, 0 for any other type. Accepts only an array. */
inline Member vlanIdsMember(const char *key, VlanIdList *list)
{
    return {Member::VLAN_IDS, key, list, 0, nullptr, false};
}

/* The same member, but the body must have it. */
inline Member required(Member member)
{
    member.required = true;
    return member;
}

/*
 * Reads the JSON body (DELETE: the query string). False: it does not parse, or lacks a required member. Out of memory:
 * exits (memory.h).
 */
bool parseBody(std::initializer_list<Member> members);

/* The same, but on failure, also out of memory, it answers 10003 with a line end: the handler only returns. */
bool readBody(std::initializer_list<Member> members);

#endif
