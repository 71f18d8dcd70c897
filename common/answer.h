/*
 * answer.h - one function for each way in which an endpoint answers. Which one an endpoint uses, line end included, is
 * part of its established behaviour. Out of memory: see memory.h.
 */
#ifndef COMMON_ANSWER_H
#define COMMON_ANSWER_H

#include <initializer_list>
#include <stdint.h>

#include "common/response.h"
#include "common/names.h"
#include "openclt.h"

/* One member of a data object. Texts, names and lists must live until the answer is printed. */
struct Datum {
    enum Kind { NUMBER, STRING, NAME, BOOLEAN, YES_NO, IPV4, VLAN_IDS, VLAN_ARRAY } kind;
    const char *key;
    double number = 0;
    uint32_t code = 0; /* of NAME; 1 or 0 of BOOLEAN and YES_NO; the address of IPV4 */
    const char *text = nullptr; /* of STRING; the fallback of NAME */
    const NameTable *names = nullptr;
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

/* The name of a code; `fallback` when the code has no name. */
inline Datum codeName(const char *key, const NameTable &names, uint32_t code, const char *fallback)
{
    return {.kind = Datum::NAME, .key = key, .code = code, .text = fallback, .names = &names};
}

/* JSON true or false. */
inline Datum boolean(const char *key, bool value)
{
    return {.kind = Datum::BOOLEAN, .key = key, .code = value};
}

/* The text "true" or "false": how most endpoints answer a yes/no question. */
inline Datum yesNo(const char *key, bool value)
{
    return {.kind = Datum::YES_NO, .key = key, .code = value};
}

/* The dotted text of an IPv4 address in network byte order. */
inline Datum ipv4(const char *key, uint32_t address)
{
    return {.kind = Datum::IPV4, .key = key, .code = address};
}

/* An array of the first list.count ids. */
inline Datum vlanIds(const char *key, const VlanIdList &list)
{
    return {.kind = Datum::VLAN_IDS, .key = key, .list = &list};
}

/* An object with "numEntries" (list.count as a signed number) and "ids" (the array of vlanIds). */
inline Datum vlanArray(const char *key, const VlanIdList &list)
{
    return {.kind = Datum::VLAN_ARRAY, .key = key, .list = &list};
}

using Data = std::initializer_list<Datum>;

/* Answers the data under `name` on success, the bare outcome otherwise. No line end. */
void answerData(const char *name, ResultCode code, Data data);

/* As answerData, but with a line end after a failure. */
void answerDataOrOutcome(const char *name, ResultCode code, Data data);

/* Answers "status": "true" when `flag` is exactly 1, else "false". With a line end after a failure. */
void answerYesNo(const char *name, int openCode, uint32_t flag);

/* Answers the bare outcome, with a line end. */
void answerOutcome(ResultCode code);

/* Answers the bare outcome of an operation, with a line end: what nearly all setters do. */
inline void answerResult(int openCode)
{
    answerOutcome(openResult(openCode));
}

/* Answers the bare outcome from a fixed buffer, without a line end. */
void answerOutcomeFixed(ResultCode code);

/* Handlers that only answer "Unsupported Feature": without a line end (readers), and with one (setters). */
void unsupportedRead();
void unsupportedWrite();

#endif
