/*
 * answer.cpp - prints answers. An answer that cannot be built for want of memory is no output at all.
 */
#include "common/answer.h"

#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>

static bool addVlanIds(cJSON *object, const char *key, const VlanIdList &list)
{
    cJSON *array = cJSON_AddArrayToObject(object, key);
    if (!array)
        return false;
    /* The count is OpEN's word; the record behind it ends at VLAN_ID_LIST_MAX all the same. */
    for (uint32_t i = 0; i < list.count && i < VLAN_ID_LIST_MAX; i++) {
        cJSON *id = cJSON_CreateNumber(list.ids[i]);
        if (!cJSON_AddItemToArray(array, id))
            return false;
    }
    return true;
}

static bool addVlanArray(cJSON *object, const char *key, const VlanIdList &list)
{
    cJSON *record = cJSON_AddObjectToObject(object, key);
    return record && cJSON_AddNumberToObject(record, "numEntries", (int32_t)list.count) &&
           addVlanIds(record, "ids", list);
}

static bool addDatum(cJSON *object, const Datum &datum)
{
    switch (datum.kind) {
    case Datum::NUMBER:
        return cJSON_AddNumberToObject(object, datum.key, datum.number);
    case Datum::STRING:
        return cJSON_AddStringToObject(object, datum.key, datum.text);
    case Datum::BOOLEAN:
        return cJSON_AddBoolToObject(object, datum.key, datum.number != 0);
    case Datum::VLAN_IDS:
        return addVlanIds(object, datum.key, *datum.list);
    case Datum::VLAN_ARRAY:
        return addVlanArray(object, datum.key, *datum.list);
    }
    return false;
}

/* The data object as an unformatted text (free), or null. */
static char *printData(Data data)
{
    cJSON *object = cJSON_CreateObject();
    bool complete = object;
    for (const Datum &datum : data)
        complete = complete && addDatum(object, datum);
    char *text = complete ? cJSON_PrintUnformatted(object) : nullptr;
    cJSON_Delete(object);
    return text;
}

enum LineEnd { WITHOUT_LINE_END, WITH_LINE_END };

static void answer(ResultCode code, const char *name, const char *data, LineEnd lineEnd)
{
    char *envelope = nullptr;
    responseJsonRreallocStr(code, name, data, &envelope);
    if (envelope)
        printf("%s%s", envelope, lineEnd == WITH_LINE_END ? "\n" : "");
    free(envelope);
}

static void answerSuccess(const char *name, Data data)
{
    char *text = printData(data);
    if (text)
        answer(RESULT_SUCCESS, name, text, WITHOUT_LINE_END);
    free(text);
}

void answerData(const char *name, ResultCode code, Data data)
{
    if (code == RESULT_SUCCESS)
        answerSuccess(name, data);
    else
        answer(code, name, nullptr, WITHOUT_LINE_END);
}

void answerDataOrOutcome(const char *name, ResultCode code, Data data)
{
    if (code == RESULT_SUCCESS)
        answerSuccess(name, data);
    else
        answerOutcome(code);
}

void answerOutcome(ResultCode code)
{
    answer(code, nullptr, nullptr, WITH_LINE_END);
}

void answerOutcomeFixed(ResultCode code)
{
    char envelope[1024] = "";
    responseJsonStr(code, nullptr, nullptr, envelope);
    printf("%s", envelope);
}

void unsupportedRead()
{
    answer(RESULT_UNSUPPORTED_FEATURE, nullptr, nullptr, WITHOUT_LINE_END);
}

void unsupportedWrite()
{
    answerOutcome(RESULT_UNSUPPORTED_FEATURE);
}
