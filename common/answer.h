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
#include "openclt.h"

/* One member of a data object. Texts and lists are borrowed until the answer is printed. */
struct Datum {
    enum Kind { NUMBER, STRING, BOOLEAN, VLAN_IDS, VLAN_ARRAY } kind;
    const char *key;
    double number;
    const char *text;
    const VlanIdList *list;
};

/* A JSON number; a 64-bit counter above 2^53 loses its last digits, as JSON numbers do. */
inline Datum number(const char *key, double value)
{
    return {Datum::NUMBER, key, value, nullptr, nullptr};
}

inline Datum string(const char *key, const char *value)
{
    return {Datum::STRING, key, 0, value, nullptr};
}

/* JSON true or false. */
inline Datum boolean(const char *key, bool value)
{
    return {Datum::BOOLEAN, key, value ? 1.0 : 0.0, nullptr, nullptr};
}

/* The words "true" and "false", with which most yes/no questions are answered. */
inline Datum yesNo(const char *key, bool value)
{
    return string(key, value ? "true" : "false");
}

/* An array of as many ids as the list's own count says. */
inline Datum vlanIds(const char *key, const VlanIdList &list)
{
    return {Datum::VLAN_IDS, key, 0, nullptr, &list};
}

/* An object of the list's own count, "numEntries" (signed), and its ids, "ids". */
inline Datum vlanArray(const char *key, const VlanIdList &list)
{
    return {Datum::VLAN_ARRAY, key, 0, nullptr, &list};
}

using Data = std::initializer_list<Datum>;

/* On success the data under `name`, otherwise the failure alone; no line end either way. */
void answerData(const char *name, ResultCode code, Data data);

/* As answerData, but a failure ends with a line end. */
void answerDataOrOutcome(const char *name, ResultCode code, Data data);

/* The outcome alone, with a line end. */
void answerOutcome(ResultCode code);

/* The outcome alone, built in a fixed buffer, without a line end. */
void answerOutcomeFixed(ResultCode code);

/* The unsupported-feature handlers: without a line end (readers), and with one. They read nothing and call nothing. */
void unsupportedRead();
void unsupportedWrite();

/* Result of the endpoints that report every OpEN failure as an invalid argument. */
inline ResultCode invalidUnlessOk(int openCode)
{
    return openCode == OPEN_OK ? RESULT_SUCCESS : RESULT_INVALID_ARGUMENT;
}

#endif
