/*
 * recording_words.cpp - the request and answer words of common/, noting what is looked for and what is answered.
 */
#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/recording.h"
#include "common/answer.h"
#include "common/request_input.h"
#include "common/request_values.h"

/* The key, noted when it is new. */
static Key &keyOf(const char *name, const char *source, const char *rule, uint32_t size, const std::string &before)
{
    for (Key &key : keys)
        if (key.name == name && strcmp(key.source, source) == 0)
            return key;
    keys.push_back({name, source, rule, size, nullptr, before});
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

static bool isThere(const Key &key)
{
    return valueOf(key).kind != Value::ABSENT;
}

static uint32_t numberFor(const Key &key)
{
    switch (valueOf(key).kind) {
    case Value::NOTHING: return 0;
    case Value::OTHER: return 2001 + (uint32_t)indexOf(key);
    case Value::LARGEST: return UINT32_MAX;
    default: return 1001 + (uint32_t)indexOf(key);
    }
}

/* The word of that row, if it lies between these two; else one that is not in the table. */
static std::string wordAt(const WordTable &words, uint32_t row, uint32_t lowest)
{
    return row >= lowest && row < words.count ? words.rows[row].word : "no word of these";
}

/* An address, so that a handler that reads one finds one, of as few characters as an OUI's storage holds. */
static std::string textFor(const Key &key)
{
    Value value = valueOf(key);
    switch (value.kind) {
    case Value::NOTHING: return "";
    case Value::OTHER: return key.words ? wordAt(*key.words, key.words->count - 1, 1) : "11.0.1." + std::to_string(indexOf(key));
    case Value::DIGITS: return std::to_string(numberFor(key));
    case Value::LARGEST: return std::to_string(UINT32_MAX);
    case Value::WORD: return wordAt(*key.words, value.word, 0);
    default: return key.words ? wordAt(*key.words, 0, 0) : "10.0.0." + std::to_string(indexOf(key));
    }
}

static void takeText(const Key &key, char *bytes, uint32_t size)
{
    snprintf(bytes, size, "%s", textFor(key).c_str());
}

static void takeWord(Key &key, const WordTable &words, uint32_t *code)
{
    key.words = &words;
    *code = codeOf(words, textFor(key).c_str(), *code);
}

static void takeIds(const Key &key, VlanIdList *list)
{
    if (valueOf(key).kind == Value::NOTHING)
        return;
    for (uint32_t i = 0; i < 3; i++)
        list->ids[list->count++] = (uint16_t)(numberFor(key) + i);
}

/* Words and their codes */

const char *wordOf(const WordTable &words, uint32_t code, const char *fallback)
{
    const char *word = fallback;
    for (uint32_t i = words.count; i-- > 0;) {
        recording.reported.insert(words.rows[i].code);
        if (words.rows[i].code == code)
            word = words.rows[i].word;
    }
    return word;
}

/* A text that is compared with words is the value of the last key before: so the words are that key's. */
uint32_t codeOf(const WordTable &words, const char *word, uint32_t fallback)
{
    for (Key &key : keys)
        if (word && *word && textFor(key) == word)
            key.words = &words;
    for (uint32_t i = 0; word && i < words.count; i++)
        if (strcmp(words.rows[i].word, word) == 0)
            return words.rows[i].code;
    return fallback;
}

/* The query string */

uint32_t queryUintExact(const char *key)
{
    Key &seen = keyOf(key, "exact", "uint", 0, "0");
    return isThere(seen) ? numberFor(seen) : 0;
}

void queryTextExact(const char *key, char *buffer, size_t size)
{
    Key &seen = keyOf(key, "exact", "text", (uint32_t)size, "");
    buffer[0] = 0;
    if (isThere(seen))
        takeText(seen, buffer, (uint32_t)size);
}

int paramGetExact(const char *, const char *key, char *buffer, size_t size)
{
    Key &seen = keyOf(key, "decoded", "text", (uint32_t)size, buffer);
    if (!isThere(seen))
        return RESULT_GENERAL_FAILED;
    takeText(seen, buffer, (uint32_t)size);
    return 0;
}

char *urlDecodeInPlace(char *text)
{
    return text;
}

bool readParams(std::initializer_list<Param> params)
{
    bool query = recording.scenario.method == "GET" || recording.scenario.method == "DELETE";
    for (const Param &param : params) {
        const char *rule = param.text ? "text" : param.words ? "word" : "uint";
        std::string before = param.text ? param.text : std::to_string(*param.number);
        Key &key = keyOf(param.key, query ? "loose" : "form", rule, param.size, before);
        if (!isThere(key))
            continue;
        if (param.text)
            takeText(key, param.text, param.size);
        else if (param.words)
            takeWord(key, *param.words, param.number);
        else
            *param.number = numberFor(key);
    }
    return true;
}

/* The body */

static const char *ruleName(Member::Rule rule)
{
    switch (rule) {
    case Member::INTEGER: return "int32";
    case Member::INTEGER_OF_NUMBER: return "int32";
    case Member::SATURATED: return "saturated";
    case Member::TEXT: return "text";
    case Member::COPIED_TEXT: return "any text";
    case Member::WORD: return "word";
    case Member::TRUE_LITERAL: return "true";
    case Member::VLAN_IDS: return "ids";
    }
    abort();
}

static void takeMember(Key &key, const Member &member)
{
    uint32_t *number = (uint32_t *)member.value;
    switch (member.rule) {
    case Member::INTEGER:
    case Member::INTEGER_OF_NUMBER:
    case Member::SATURATED: *number = numberFor(key); break;
    case Member::TEXT: takeText(key, (char *)member.value, member.size); break;
    case Member::COPIED_TEXT: *(char **)member.value = strdup(textFor(key).c_str()); break;
    case Member::WORD: takeWord(key, *member.words, number); break;
    case Member::TRUE_LITERAL: *number = valueOf(key).kind == Value::USUAL ? 1 : 0; break;
    case Member::VLAN_IDS: takeIds(key, (VlanIdList *)member.value); break;
    }
}

static std::string beforeOf(const Member &member)
{
    if (member.rule == Member::TEXT)
        return (const char *)member.value;
    bool number = member.rule != Member::COPIED_TEXT && member.rule != Member::VLAN_IDS;
    return !number ? "" : std::to_string(*(uint32_t *)member.value);
}

bool parseBody(std::initializer_list<Member> members)
{
    const char *source = recording.scenario.method == "DELETE" ? "query-json" : "json";
    bool complete = recording.scenario.body;
    for (const Member &member : members) {
        Key &key = keyOf(member.key, source, ruleName(member.rule), member.size, beforeOf(member));
        if (recording.scenario.body && isThere(key))
            takeMember(key, member);
        else if (member.required)
            complete = false;
    }
    return complete;
}

bool readBody(std::initializer_list<Member> members)
{
    if (parseBody(members))
        return true;
    answerOutcome(RESULT_INVALID_ARGUMENT);
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

static cJSON *valueOf(const Datum &datum)
{
    switch (datum.kind) {
    case Datum::NUMBER: return cJSON_CreateNumber(datum.number);
    case Datum::STRING: return cJSON_CreateString(datum.text);
    case Datum::BOOLEAN: return cJSON_CreateBool(datum.number != 0);
    case Datum::VLAN_IDS: return idsOf(*datum.list);
    case Datum::VLAN_ARRAY: {
        cJSON *record = cJSON_CreateObject();
        cJSON_AddNumberToObject(record, "numEntries", (int32_t)datum.list->count);
        cJSON_AddItemToObject(record, "ids", idsOf(*datum.list));
        return record;
    }
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
    if (code == RESULT_SUCCESS)
        answer(name, code, data, false);
    else
        answer(nullptr, code, {}, false);
}

void answerDataOrOutcome(const char *name, ResultCode code, Data data)
{
    if (code == RESULT_SUCCESS)
        answer(name, code, data, false);
    else
        answer(nullptr, code, {}, true);
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
    answer(nullptr, RESULT_UNSUPPORTED_FEATURE, {}, false);
}

void unsupportedWrite()
{
    answer(nullptr, RESULT_UNSUPPORTED_FEATURE, {}, true);
}
