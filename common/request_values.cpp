/*
 * request_values.cpp - converts the values of a request to those of the operations.
 */
#include "common/request_values.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/answer.h"
#include "common/memory.h"
#include "common/request.h"
#include "common/request_input.h"

/* The text behind the first "key=" at the start of the query string or right behind a "&"; null: not found. */
static const char *queryValueExact(const char *key)
{
    const char *query = requestVariable(QUERY_STRING);
    if (!query)
        return nullptr;
    size_t keyLength = strlen(key);
    for (const char *at = query; (at = strstr(at, key)); at += keyLength)
        if ((at == query || at[-1] == '&') && at[keyLength] == '=')
            return at + keyLength + 1;
    return nullptr;
}

/* Reads 64 bits on every machine: strtoul would stop at its maximum where long has 32 bits, and not wrap. */
static uint32_t uintOf(const char *text)
{
    return (uint32_t)strtoull(text, nullptr, 10);
}

uint32_t queryUintExact(const char *key)
{
    const char *value = queryValueExact(key);
    return value ? uintOf(value) : 0;
}

uint16_t queryUint16Exact(const char *key)
{
    return (uint16_t)queryUintExact(key);
}

/* The value of exactly `key`, up to the next "&", cut to `size` - 1 bytes; "" without the key. */
static void queryTextExact(const char *key, char *text, size_t size)
{
    const char *value = queryValueExact(key);
    int length = value ? (int)strcspn(value, "&") : 0;
    snprintf(text, size, "%.*s", length, value ? value : "");
}

uint32_t queryCodeExact(const char *key, const NameTable &names, uint32_t fallback)
{
    char text[32]; /* longer than every name */
    queryTextExact(key, text, sizeof text);
    return codeOf(names, text, fallback);
}

uint32_t queryCodeOrUintExact(const char *key, const NameTable &names)
{
    char text[32];
    queryTextExact(key, text, sizeof text);
    return codeOf(names, text, uintOf(text));
}

bool queryTextDecoded(const char *key, char *text, uint32_t size)
{
    text[0] = 0;
    bool found = paramGetExact(requestVariable(QUERY_STRING), key, text, size) == 0;
    urlDecodeInPlace(text);
    return found;
}

uint32_t queryUintDecoded(const char *key)
{
    char text[16] = "";
    paramGetExact(requestVariable(QUERY_STRING), key, text, sizeof text);
    return (uint32_t)strtoll(text, nullptr, 10);
}


static void takeParam(const Param &param, const char *value)
{
    if (param.text)
        snprintf(param.text, param.size, "%s", value);
    else if (param.names)
        *param.number = codeOf(*param.names, value, *param.number);
    else
        *param.number = uintOf(value);
}

bool readParams(std::initializer_list<Param> params)
{
    char *input = readRequestInput();
    if (!input && errno == ENOMEM)
        exitWithoutMemory("read request input");
    ParamList list = paramListSplit(input);
    for (const Param &param : params) {
        const char *value = paramFind(param.key, list);
        if (value)
            takeParam(param, value);
    }
    bool present = input;
    free(input);
    paramListFree(list);
    return present;
}

static uint32_t saturated(double value)
{
    if (!(value > 0)) /* also NaN */
        return 0;
    return value >= (double)UINT32_MAX ? UINT32_MAX : (uint32_t)value;
}

/* Follows the list of elements: a lookup by index would walk from its start for each one. */
static void takeVlanIds(const cJSON *array, VlanIdList *list)
{
    if (!cJSON_IsArray(array))
        return;
    for (const cJSON *item = array->child; item && list->count < VLAN_ID_LIST_MAX; item = item->next)
        list->ids[list->count++] = cJSON_IsNumber(item) ? (uint16_t)item->valueint : 0;
}

/* False: out of memory. */
static bool takeLongText(const char *text, LongText *to)
{
    if (!longTextReserve(*to, strlen(text)))
        return false;
    memcpy(to->bytes, text, to->size);
    return true;
}

/* False: out of memory. */
static bool takeMember(const Member &member, const cJSON *item)
{
    uint32_t *number = (uint32_t *)member.value;
    uint32_t address;
    const char *text = cJSON_GetStringValue(item);
    switch (member.rule) {
    case Member::INTEGER:
        *number = (uint32_t)item->valueint;
        break;
    case Member::INTEGER_OF_NUMBER:
        if (cJSON_IsNumber(item))
            *number = (uint32_t)item->valueint;
        break;
    case Member::SATURATED:
        *number = saturated(item->valuedouble);
        break;
    case Member::TEXT:
        if (text)
            snprintf((char *)member.value, member.size, "%s", text);
        break;
    case Member::LONG_TEXT:
        return takeLongText(text, (LongText *)member.value);
    case Member::CODE:
        *number = codeOf(*member.names, text, *number);
        break;
    case Member::TRUE_LITERAL:
        *number = cJSON_IsTrue(item) ? 1 : 0;
        break;
    case Member::IPV4:
        if (text && inet_pton(AF_INET, text, &address) == 1)
            *number = address;
        break;
    case Member::VLAN_IDS:
        takeVlanIds(item, (VlanIdList *)member.value);
        break;
    }
    return true;
}

/* The input as a JSON document. Null with errno 0: it does not parse. Null with errno ENOMEM: out of memory. */
static cJSON *parseInput()
{
    char *input = readRequestInput();
    if (!input)
        return nullptr;
    errno = 0;
    cJSON *document = cJSON_Parse(input);
    int error = errno == ENOMEM ? ENOMEM : 0;
    free(input);
    errno = error;
    return document;
}

/* Finds the member. Null: it is absent, or counts as absent by its rule. */
static const cJSON *findMember(const cJSON *body, const Member &member)
{
    const cJSON *item = cJSON_GetObjectItem(body, member.key);
    return member.rule == Member::LONG_TEXT && !cJSON_IsString(item) ? nullptr : item;
}

enum BodyResult { BODY_READ, BODY_WRONG, BODY_WITHOUT_MEMORY };

static BodyResult takeBody(std::initializer_list<Member> members)
{
    cJSON *body = parseInput();
    if (!body)
        return errno == ENOMEM ? BODY_WITHOUT_MEMORY : BODY_WRONG;
    BodyResult result = BODY_READ;
    for (const Member &member : members) {
        const cJSON *item = findMember(body, member);
        if (item && !takeMember(member, item))
            result = BODY_WITHOUT_MEMORY;
        else if (!item && member.required && result == BODY_READ)
            result = BODY_WRONG;
    }
    cJSON_Delete(body);
    return result;
}

bool parseBody(std::initializer_list<Member> members)
{
    BodyResult result = takeBody(members);
    if (result == BODY_WITHOUT_MEMORY)
        exitWithoutMemory("read request input");
    return result == BODY_READ;
}

bool readBody(std::initializer_list<Member> members)
{
    BodyResult result = takeBody(members);
    if (result == BODY_READ)
        return true;
    if (result == BODY_WITHOUT_MEMORY)
        logWithoutMemory("read request input");
    answerOutcome(ResultCode::INVALID_ARGUMENT);
    return false;
}
