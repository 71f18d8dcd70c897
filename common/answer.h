/*
 * answer.h - the ways an endpoint answers: one function each, so that a handler only picks one.
 *
 * Which of them an endpoint uses, line end included, is part of its established behaviour.
 */
#ifndef COMMON_ANSWER_H
#define COMMON_ANSWER_H

#include <initializer_list>
#include <stdint.h>

#include "common/response.h"
#include "common/words.h"
#include "openclt.h"

/* One member of a data object. Texts, words and lists are borrowed until the answer is printed. */
struct Datum {
    enum Kind { NUMBER, STRING, WORD, BOOLEAN, YES_NO, IPV4, VLAN_IDS, VLAN_ARRAY } kind;
    const char *key;
    double number = 0;
    uint32_t code = 0; /* of a word, a yes or no (1 or 0), an address */
    const char *text = nullptr; /* of a word: what a code without one is called */
    const WordTable *words = nullptr;
    const VlanIdList *list = nullptr;
};

inline Datum number(const char *key, uint32_t value)
{
    return {.kind = Datum::NUMBER, .key = key, .number = (double)value};
}

/* The 32 bits as a signed number. */
inline Datum signedNumber(const char *key, uint32_t value)
{
    return {.kind = Datum::NUMBER, .key = key, .number = (double)(int32_t)value};
}

/* A 64-bit counter. Above 2^53 it loses its last digits, as JSON numbers do. */
inline Datum number64(const char *key, uint64_t value)
{
    return {.kind = Datum::NUMBER, .key = key, .number = (double)value};
}

inline Datum string(const char *key, const char *value)
{
    return {.kind = Datum::STRING, .key = key, .text = value};
}

/* The word of a code, `fallback` when it has none. */
inline Datum word(const char *key, const WordTable &words, uint32_t code, const char *fallback)
{
    return {.kind = Datum::WORD, .key = key, .code = code, .text = fallback, .words = &words};
}

/* JSON true or false. */
inline Datum boolean(const char *key, bool value)
{
    return {.kind = Datum::BOOLEAN, .key = key, .code = value};
}

/* The texts "true" and "false", with which most yes/no questions are answered. */
inline Datum yesNo(const char *key, bool value)
{
    return {.kind = Datum::YES_NO, .key = key, .code = value};
}

/* The dotted text of an IPv4 address, whose four bytes lie in memory in network order. */
inline Datum ipv4(const char *key, uint32_t address)
{
    return {.kind = Datum::IPV4, .key = key, .code = address};
}

/* An array of as many ids as the list's own count says. */
inline Datum vlanIds(const char *key, const VlanIdList &list)
{
    return {.kind = Datum::VLAN_IDS, .key = key, .list = &list};
}

/* An object of the list's own count, "numEntries" (signed), and its ids, "ids". */
inline Datum vlanArray(const char *key, const VlanIdList &list)
{
    return {.kind = Datum::VLAN_ARRAY, .key = key, .list = &list};
}

using Data = std::initializer_list<Datum>;

/* On success the data under `name`, otherwise the failure alone; no line end either way. */
void answerData(const char *name, ResultCode code, Data data);

/* As answerData, but a failure ends with a line end. */
void answerDataOrOutcome(const char *name, ResultCode code, Data data);

/* The answer to a yes/no question, "status": "true" only for a flag of exactly 1. A failure ends with a line end. */
void answerYesNo(const char *name, int openCode, uint32_t flag);

/* The outcome alone, with a line end. */
void answerOutcome(ResultCode code);

/* The outcome of an operation by OpEN's code: what nearly all writers answer. */
inline void answerResult(int openCode)
{
    answerOutcome(openResult(openCode));
}

/* The outcome alone, built in a fixed buffer, without a line end. */
void answerOutcomeFixed(ResultCode code);

/* The unsupported-feature handlers: without a line end (readers), and with one. They read nothing and call nothing. */
void unsupportedRead();
void unsupportedWrite();

#endif
