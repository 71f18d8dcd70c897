/*
 * recording_values.cpp - replaces the request and answer functions of common/: records which keys a handler reads,
 * gives them the values of the scenario, and records the answer.
 */
#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/recording.h"
#include "common/answer.h"
#include "common/request_values.h"

/* Finds the key, or adds it. */
static Key &keyOf(const char *name, const char *source, const char *rule, uint32_t size = 0,
                  const NameTable *names = nullptr)
{
    for (Key &key : keys)
        if (key.name == name && strcmp(key.source, source) == 0)
            return key;
    keys.push_back({name, source, rule, size, names});
    return keys.back();
}

static size_t indexOf(const Key &key)
{
    return (size_t)(&key - keys.data());
}

static Value valueOf(const Key &key)
{
    auto found = recording.scenario.values.find(key.name);
    return found == recording.scenario.values.end() ? Value{} : found->second;
}

static bool isGiven(const Key &key)
{
    return valueOf(key).kind != Value::ABSENT;
}

static uint32_t numberFor(const Key &key)
{
    switch (valueOf(key).kind) {
    case Value::NOTHING: return 0;
    case Value::OTHER: return numberMarker(indexOf(key)) + 1000;
    case Value::LARGEST: return UINT32_MAX;
    default: return numberMarker(indexOf(key));
    }
}

static std::string textFor(const Key &key)
{
    switch (valueOf(key).kind) {
    case Value::NOTHING: return "";
    case Value::OTHER: return "other" + std::to_string(indexOf(key));
    default: return textMarker(indexOf(key));
    }
}

/*
 * USUAL: the first name. NAME: the name of that row. OTHER: the last name, if there are several. Everything else is an
 * unknown name: NOTHING, a row after the last, and OTHER of a single name.
 */
static const char *nameFor(const Key &key)
{
    Value value = valueOf(key);
    uint32_t row = value.kind == Value::NAME ? value.row : value.kind == Value::OTHER ? key.names->count - 1 : 0;
    bool known = value.kind != Value::NOTHING && row < key.names->count && !(value.kind == Value::OTHER && row == 0);
    return known ? key.names->rows[row].name : "none of these names";
}

/* The query string */

uint32_t queryUintExact(const char *key)
{
    const Key &known = keyOf(key, "exact", "uint");
    return isGiven(known) ? numberFor(known) : 0;
}

uint16_t queryUint16Exact(const char *key)
{
    return (uint16_t)queryUintExact(key);
}

uint32_t queryCodeExact(const char *key, const NameTable &names, uint32_t fallback)
{
    const Key &known = keyOf(key, "exact", "name", 0, &names);
    return isGiven(known) ? codeOf(names, nameFor(known), fallback) : fallback;
}

uint32_t queryCodeOrUintExact(const char *key, const NameTable &names)
{
    const Key &known = keyOf(key, "exact", "name or number", 0, &names);
    return isGiven(known) ? codeOf(names, nameFor(known), 0) : 0;
}

bool queryTextDecoded(const char *key, char *text, uint32_t size)
{
    const Key &known = keyOf(key, "decoded", "text", size);
    if (isGiven(known))
        snprintf(text, size, "%s", textFor(known).c_str());
    return isGiven(known);
}

uint32_t queryUintDecoded(const char *key)
{
    const Key &known = keyOf(key, "decoded", "uint");
    return isGiven(known) ? numberFor(known) : 0;
}

bool readParams(std::initializer_list<Param> params)
{
    bool query = recording.scenario.method == "GET" || recording.scenario.method == "DELETE";
    const char *source = query ? "loose" : "form";
    for (const Param &param : params) {
        if (param.text) {
            const Key &key = keyOf(param.key, source, "text", param.size);
            if (isGiven(key))
                snprintf(param.text, param.size, "%s", textFor(key).c_str());
        } else if (param.names) {
            const Key &key = keyOf(param.key, source, "name", 0, param.names);
            if (isGiven(key))
                *param.number = codeOf(*param.names, nameFor(key), *param.number);
        } else {
            const Key &key = keyOf(param.key, source, "uint");
            if (isGiven(key))
                *param.number = numberFor(key);
        }
    }
    return true;
}

/* The body */

static const char *ruleName(Member::Rule rule)
{
    switch (rule) {
    case Member::INTEGER: return "int32 copy";
    case Member::INTEGER_OF_NUMBER: return "int32";
    case Member::SATURATED: return "uint copy";
    case Member::TEXT: return "text";
    case Member::LONG_TEXT: return "long text";
    case Member::CODE: return "name";
    case Member::TRUE_LITERAL: return "true";
    case Member::IPV4: return "ipv4";
    case Member::VLAN_IDS: return "ids";
    }
    abort();
}

static void storeIds(const Key &key, VlanIdList *list)
{
    for (uint32_t i = 0; i < 3 && valueOf(key).kind != Value::NOTHING; i++)
        list->ids[list->count++] = (uint16_t)(numberFor(key) + i);
}

static void storeLongText(const Key &key, LongText *text)
{
    std::string value = textFor(key);
    if (longTextReserve(*text, value.size() + 1))
        memcpy(text->bytes, value.data(), value.size());
}

static void storeMember(const Key &key, const Member &member)
{
    uint32_t *number = (uint32_t *)member.value;
    switch (member.rule) {
    case Member::INTEGER:
    case Member::INTEGER_OF_NUMBER:
    case Member::SATURATED:
    case Member::IPV4: *number = numberFor(key); break;
    case Member::TEXT: snprintf((char *)member.value, member.size, "%s", textFor(key).c_str()); break;
    case Member::LONG_TEXT: storeLongText(key, (LongText *)member.value); break;
    case Member::CODE: *number = codeOf(*member.names, nameFor(key), *number); break;
    case Member::TRUE_LITERAL: *number = valueOf(key).kind == Value::USUAL ? 1 : 0; break;
    case Member::VLAN_IDS: storeIds(key, (VlanIdList *)member.value); break;
    }
}

bool parseBody(std::initializer_list<Member> members)
{
    const char *source = recording.scenario.method == "DELETE" ? "query-json" : "json";
    bool complete = recording.scenario.body;
    for (const Member &member : members) {
        const Key &key = keyOf(member.key, source, ruleName(member.rule), member.size, member.names);
        if (recording.scenario.body && isGiven(key))
            storeMember(key, member);
        else if (member.required)
            complete = false;
    }
    return complete;
}

bool readBody(std::initializer_list<Member> members)
{
    if (parseBody(members))
        return true;
    answerOutcome(ResultCode::INVALID_ARGUMENT);
    return false;
}

/* Answers */

static cJSON *idsOf(const VlanIdList &list)
{
    cJSON *ids = cJSON_CreateArray();
    for (uint32_t i = 0; i < list.count && i < VLAN_ID_LIST_MAX; i++)
        cJSON_AddItemToArray(ids, cJSON_CreateNumber(list.ids[i]));
    return ids;
}

static cJSON *nameValue(const Datum &datum)
{
    for (uint32_t row = 0; row < datum.names->count; row++)
        recording.reported.insert(datum.names->rows[row].code);
    return cJSON_CreateString(nameOf(*datum.names, datum.code, datum.text));
}

static cJSON *addressValue(uint32_t address)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    return cJSON_CreateString(text);
}

static cJSON *arrayValue(const VlanIdList &list)
{
    cJSON *record = cJSON_CreateObject();
    cJSON_AddNumberToObject(record, "numEntries", (int32_t)list.count);
    cJSON_AddItemToObject(record, "ids", idsOf(list));
    return record;
}

static cJSON *valueOf(const Datum &datum)
{
    switch (datum.kind) {
    case Datum::NUMBER: return cJSON_CreateNumber(datum.number);
    case Datum::STRING: return cJSON_CreateString(datum.text);
    case Datum::NAME: return nameValue(datum);
    case Datum::BOOLEAN: return cJSON_CreateBool(datum.code != 0);
    case Datum::YES_NO: return cJSON_CreateString(datum.code ? "true" : "false");
    case Datum::IPV4: return addressValue(datum.code);
    case Datum::VLAN_IDS: return idsOf(*datum.list);
    case Datum::VLAN_ARRAY: return arrayValue(*datum.list);
    }
    abort();
}

static void answer(const char *name, ResultCode code, Data data, bool lineEnd)
{
    cJSON *object = name ? cJSON_CreateObject() : nullptr;
    for (const Datum &datum : data)
        cJSON_AddItemToObject(object, datum.key, valueOf(datum));
    recording.answers.push_back({(int)code, lineEnd, name ? name : "", object});
}

void answerData(const char *name, ResultCode code, Data data)
{
    if (code == ResultCode::SUCCESS)
        answer(name, code, data, false);
    else
        answer(nullptr, code, {}, false);
}

void answerDataOrOutcome(const char *name, ResultCode code, Data data)
{
    if (code == ResultCode::SUCCESS)
        answer(name, code, data, false);
    else
        answer(nullptr, code, {}, true);
}

void answerYesNo(const char *name, int openCode, uint32_t flag)
{
    answerDataOrOutcome(name, openResult(openCode), {yesNo("status", flag == 1)});
}

void answerOutcome(ResultCode code)
{
    answer(nullptr, code, {}, true);
}

void answerOutcomeFixed(ResultCode code)
{
    answer(nullptr, code, {}, false);
}

void unsupportedRead()
{
    answer(nullptr, ResultCode::UNSUPPORTED_FEATURE, {}, false);
}

void unsupportedWrite()
{
    answer(nullptr, ResultCode::UNSUPPORTED_FEATURE, {}, true);
}
