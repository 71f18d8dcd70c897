/*
 * request_values.h - reads several values of a request at once, from the parameter list or from a JSON body.
 *
 * A value that is not there (or does not qualify, as each function says) leaves its variable as it was: what the
 * variable holds before is the endpoint's default. Nothing borrowed is left behind: texts are copied.
 */
#ifndef COMMON_REQUEST_VALUES_H
#define COMMON_REQUEST_VALUES_H

#include <initializer_list>
#include <stdint.h>

#include "common/open_client.h"

/* A code and the word a client uses for it. */
struct Word {
    uint32_t code;
    const char *word;
};

/* The words of one set of codes. */
struct WordTable {
    const Word *rows;
    uint32_t count;
};

template <uint32_t N> constexpr WordTable wordTable(const Word (&rows)[N])
{
    return {rows, N};
}

/* The word of `code`, `fallback` when it has none. */
const char *wordOf(const WordTable &words, uint32_t code, const char *fallback);

/* The code of exactly `word` (null allowed), `fallback` when there is no such word. */
uint32_t codeOf(const WordTable &words, const char *word, uint32_t fallback);

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

/*
 * Reads the parameter list of this request's input (the form-encoded body of a PUT or POST). False without an input;
 * without memory the process ends with status 1.
 */
bool readParams(std::initializer_list<Param> params);

/* A member of the JSON body, found ignoring the case of its key. */
struct Member {
    enum Rule { INTEGER, INTEGER_OF_NUMBER, SATURATED, TEXT, COPIED_TEXT, WORD, TRUE_LITERAL, VLAN_IDS } rule;
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

/* A copy of a string of any length, the caller's to free; another type than a string does not qualify. */
inline Member copiedTextMember(const char *key, char **text)
{
    return {Member::COPIED_TEXT, key, text, 0, nullptr, false};
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
