/*
 * answer.cpp - builds answers and prints them.
 */
#include "common/answer.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>

static bool addVlanIds(cJSON *object, const char *key, const VlanIdList &list)
{
    cJSON *array = cJSON_AddArrayToObject(object, key);
    if (!array)
        return false;
    /* Do not trust the count: it comes from the switch. */
    for (uint32_t i = 0; i < list.count && i < VLAN_ID_LIST_MAX; i++) {
        cJSON *id = numberItem(list.ids[i]);
        if (!cJSON_AddItemToArray(array, id))
            return false;
    }
    return true;
}

static bool addVlanArray(cJSON *object, const char *key, const VlanIdList &list)
{
    cJSON *record = cJSON_AddObjectToObject(object, key);
    return record && addItem(record, "numEntries", numberItem((int32_t)list.count)) &&
           addVlanIds(record, "ids", list);
}

static bool addIpv4(cJSON *object, const char *key, uint32_t address)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return cJSON_AddStringToObject(object, key, text);
}

static bool addDatum(cJSON *object, const Datum &datum)
{
    switch (datum.kind) {
    case Datum::NUMBER:
        return addItem(object, datum.key, numberItem(datum.number));
    case Datum::STRING:
        return cJSON_AddStringToObject(object, datum.key, datum.text);
    case Datum::NAME:
        return cJSON_AddStringToObject(object, datum.key, nameOf(*datum.names, datum.code, datum.text));
    case Datum::BOOLEAN:
        return cJSON_AddBoolToObject(object, datum.key, datum.code != 0);
    case Datum::YES_NO:
        return cJSON_AddStringToObject(object, datum.key, datum.code != 0 ? "true" : "false");
    case Datum::IPV4:
        return addIpv4(object, datum.key, datum.code);
    case Datum::VLAN_IDS:
        return addVlanIds(object, datum.key, *datum.list);
    case Datum::VLAN_ARRAY:
        return addVlanArray(object, datum.key, *datum.list);
    }
    return false;
}

/* The data object; null: out of memory. */
static cJSON *dataObject(Data data)
{
    cJSON *object = cJSON_CreateObject();
    bool complete = object;
    for (const Datum &datum : data)
        complete = complete && addDatum(object, datum);
    if (complete)
        return object;
    cJSON_Delete(object);
    return nullptr;
}

enum LineEnd { WITHOUT_LINE_END, WITH_LINE_END };

/* Prints and frees the envelope. Null: prints nothing. */
static void printEnvelope(char *envelope, LineEnd lineEnd)
{
    if (envelope)
        fputs(envelope, stdout);
    if (envelope && lineEnd == WITH_LINE_END)
        putchar('\n');
    free(envelope);
}

static void answerBare(ResultCode code, LineEnd lineEnd)
{
    char *envelope = nullptr;
    responseJsonRreallocStr(code, nullptr, nullptr, &envelope);
    printEnvelope(envelope, lineEnd);
}

static void answerSuccess(const char *name, Data data)
{
    char *envelope = nullptr;
    responseJsonDocument(ResultCode::SUCCESS, name, dataObject(data), &envelope);
    printEnvelope(envelope, WITHOUT_LINE_END);
}

void answerData(const char *name, ResultCode code, Data data)
{
    if (code == ResultCode::SUCCESS)
        answerSuccess(name, data);
    else
        answerBare(code, WITHOUT_LINE_END);
}

void answerDataOrOutcome(const char *name, ResultCode code, Data data)
{
    if (code == ResultCode::SUCCESS)
        answerSuccess(name, data);
    else
        answerOutcome(code);
}

void answerYesNo(const char *name, int openCode, uint32_t flag)
{
    answerDataOrOutcome(name, openResult(openCode), {yesNo("status", flag == 1)});
}

void answerOutcome(ResultCode code)
{
    answerBare(code, WITH_LINE_END);
}

void answerOutcomeFixed(ResultCode code)
{
    char envelope[1024] = "";
    responseJsonStr(code, nullptr, nullptr, envelope);
    fputs(envelope, stdout);
}

void unsupportedRead()
{
    answerBare(ResultCode::UNSUPPORTED_FEATURE, WITHOUT_LINE_END);
}

void unsupportedWrite()
{
    answerOutcome(ResultCode::UNSUPPORTED_FEATURE);
}
