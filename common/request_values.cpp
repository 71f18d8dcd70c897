/*
 * request_values.cpp - the conventions by which a request's values become OpEN's.
 */
#include "common/request_values.h"

#include <cjson/cJSON.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/answer.h"
#include "common/request_input.h"

const char *wordOf(const WordTable &words, uint32_t code, const char *fallback)
{
    for (uint32_t i = 0; i < words.count; i++)
        if (words.rows[i].code == code)
            return words.rows[i].word;
    return fallback;
}

uint32_t codeOf(const WordTable &words, const char *word, uint32_t fallback)
{
    for (uint32_t i = 0; word && i < words.count; i++)
        if (strcmp(words.rows[i].word, word) == 0)
            return words.rows[i].code;
    return fallback;
}

static void takeParam(const Param &param, const char *value)
{
    if (param.text)
        snprintf(param.text, param.size, "%s", value);
    else if (param.words)
        *param.number = codeOf(*param.words, value, *param.number);
    else
        *param.number = (uint32_t)strtoul(value, nullptr, 10);
}

bool readParams(std::initializer_list<Param> params)
{
    errno = 0;
    char *input = readRequestInput();
    if (!input && errno == ENOMEM)
        exit(1); /* as without memory for the list: defaults would be the answer to another question */
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
    if (!(value > 0)) /* NaN as well */
        return 0;
    return value >= (double)UINT32_MAX ? UINT32_MAX : (uint32_t)value;
}

/* Walks the array once: looking each element up by its index would cost the square of the list. */
static void takeVlanIds(const cJSON *array, VlanIdList *list)
{
    if (!cJSON_IsArray(array))
        return;
    for (const cJSON *item = array->child; item && list->count < VLAN_ID_LIST_MAX; item = item->next)
        list->ids[list->count++] = cJSON_IsNumber(item) ? (uint16_t)item->valueint : 0;
}

static void takeMember(const Member &member, const cJSON *item)
{
    uint32_t *number = (uint32_t *)member.value;
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
    case Member::COPIED_TEXT:
        if (text)
            *(char **)member.value = strdup(text);
        break;
    case Member::WORD:
        *number = codeOf(*member.words, text, *number);
        break;
    case Member::TRUE_LITERAL:
        *number = cJSON_IsTrue(item) ? 1 : 0;
        break;
    case Member::VLAN_IDS:
        takeVlanIds(item, (VlanIdList *)member.value);
        break;
    }
}

bool parseBody(std::initializer_list<Member> members)
{
    char *input = readRequestInput();
    cJSON *body = input ? cJSON_Parse(input) : nullptr;
    free(input);
    bool complete = body;
    for (const Member &member : members) {
        const cJSON *item = cJSON_GetObjectItem(body, member.key);
        if (item)
            takeMember(member, item);
        else if (member.required)
            complete = false;
    }
    cJSON_Delete(body);
    return complete;
}

bool readBody(std::initializer_list<Member> members)
{
    if (parseBody(members))
        return true;
    answerOutcome(RESULT_INVALID_ARGUMENT);
    return false;
}
