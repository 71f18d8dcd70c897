/*
 * recorder.cpp - runs the handler of every endpoint some fifty times, and prints what it did: one line of JSON for each
 * endpoint, with its keys and all its runs. facts.py reads the lines.
 */
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/recording.h"
#include "common/response.h"
#include "httpd/route_tree.h"
#include "main/endpoints.h"

Recording recording;
std::vector<Key> keys;

/* One operand: [name, kind, value, size, marker]. */
static cJSON *operandRow(const Operand &operand, size_t call, size_t index)
{
    bool text = strcmp(operand.kind, "text") == 0;
    cJSON *row = cJSON_CreateArray();
    cJSON_AddItemToArray(row, cJSON_CreateString(operand.name));
    cJSON_AddItemToArray(row, cJSON_CreateString(operand.kind));
    cJSON_AddItemToArray(row, operand.value);
    cJSON_AddItemToArray(row, cJSON_CreateNumber(operand.size));
    cJSON_AddItemToArray(row, text ? cJSON_CreateString(outputTextMarker(call, index).c_str())
                                   : cJSON_CreateNumber(outputMarker(call, index)));
    return row;
}

/* The calls of a run: [[operation, [operand, ...]], ...]. */
static cJSON *callRows(const std::vector<Call> &calls)
{
    cJSON *rows = cJSON_CreateArray();
    for (size_t call = 0; call < calls.size(); call++) {
        cJSON *operands = cJSON_CreateArray();
        for (size_t i = 0; i < calls[call].operands.size(); i++)
            cJSON_AddItemToArray(operands, operandRow(calls[call].operands[i], call, i));
        cJSON *row = cJSON_CreateArray();
        cJSON_AddItemToArray(row, cJSON_CreateString(calls[call].operation));
        cJSON_AddItemToArray(row, operands);
        cJSON_AddItemToArray(rows, row);
    }
    return rows;
}

/* Runs the handler, and adds what it did to `runs`. With null it only fills `keys`. */
static void run(const RouteEntry *entry, const char *what, const Scenario &scenario, cJSON *runs)
{
    recording.scenario = scenario;
    recording.scenario.method = httpMethodName(entry->method);
    recording.calls.clear();
    recording.answers.clear();
    entry->handler();
    if (recording.answers.size() != 1) {
        fprintf(stderr, "recorder: %s %s answers %zu times (%s)\n", recording.scenario.method.c_str(), entry->name,
                recording.answers.size(), what);
        exit(1);
    }
    const Answer &answer = recording.answers[0];
    cJSON *row = cJSON_CreateObject();
    cJSON_AddStringToObject(row, "what", what);
    cJSON_AddItemToObject(row, "calls", callRows(recording.calls));
    cJSON_AddNumberToObject(row, "code", answer.code);
    cJSON_AddStringToObject(row, "message", resultMessage(ResultCode{answer.code}));
    cJSON_AddBoolToObject(row, "lineEnd", answer.lineEnd);
    cJSON_AddStringToObject(row, "name", answer.name.c_str());
    if (answer.data)
        cJSON_AddItemToObject(row, "data", answer.data);
    if (runs)
        cJSON_AddItemToArray(runs, row);
    else
        cJSON_Delete(row);
}

static void runWithValue(const RouteEntry *entry, const std::string &what, const Key &key, const Value &value,
                         cJSON *runs)
{
    Scenario scenario;
    scenario.values[key.name] = value;
    run(entry, (what + " " + key.name).c_str(), scenario, runs);
}

static void runWithKeys(const RouteEntry *entry, cJSON *runs)
{
    for (size_t i = 0; i < keys.size(); i++) {
        const Key key = keys[i];
        runWithValue(entry, "other", key, {Value::OTHER}, runs);
        runWithValue(entry, "absent", key, {Value::ABSENT}, runs);
        runWithValue(entry, "nothing", key, {Value::NOTHING}, runs);
        runWithValue(entry, "largest", key, {Value::LARGEST}, runs);
        for (uint32_t row = 0; key.names && row <= key.names->count; row++)
            runWithValue(entry, "name" + std::to_string(row), key, {Value::NAME, row}, runs);
    }
}

/* For each operation that the endpoint calls: every code of OpEN, and one more at each end. */
static void runWithCodes(const RouteEntry *entry, size_t calls, cJSON *runs)
{
    for (size_t call = 0; call < calls; call++)
        for (int code = -30; code <= 1; code++) {
            Scenario scenario;
            scenario.failingCall = call;
            scenario.code = code;
            run(entry, ("code " + std::to_string(code)).c_str(), scenario, runs);
        }
}

static void runWithOutput(const RouteEntry *entry, size_t call, size_t operand, const Output &output, cJSON *runs)
{
    Scenario scenario;
    scenario.outputs[{call, operand}] = output;
    std::string what = "output " + std::to_string(call) + " " + std::to_string(operand) + " ";
    what += output.kind == Output::LARGEST ? "largest" : std::to_string(output.number);
    run(entry, what.c_str(), scenario, runs);
}

static void runWithOutputs(const RouteEntry *entry, const std::vector<Call> &calls, cJSON *runs)
{
    std::set<uint32_t> numbers = {0, 1, 2};
    numbers.insert(recording.reported.begin(), recording.reported.end());
    for (size_t call = 0; call < calls.size(); call++)
        for (size_t operand = 0; operand < calls[call].operands.size(); operand++) {
            const char *kind = calls[call].operands[operand].kind;
            if (strcmp(kind, "in") == 0 || strcmp(kind, "list") == 0)
                continue;
            for (uint32_t number : numbers)
                runWithOutput(entry, call, operand, {Output::NUMBER, number}, runs);
            runWithOutput(entry, call, operand, {Output::LARGEST, 0}, runs);
        }
}

static cJSON *keyRows()
{
    cJSON *array = cJSON_CreateArray();
    for (size_t index = 0; index < keys.size(); index++) {
        const Key &key = keys[index];
        cJSON *row = cJSON_CreateObject();
        cJSON_AddStringToObject(row, "name", key.name.c_str());
        cJSON_AddStringToObject(row, "source", key.source);
        cJSON_AddStringToObject(row, "rule", key.rule);
        cJSON_AddNumberToObject(row, "size", key.size);
        cJSON_AddNumberToObject(row, "numberMarker", numberMarker(index));
        cJSON_AddStringToObject(row, "textMarker", textMarker(index).c_str());
        cJSON *names = key.names ? cJSON_AddArrayToObject(row, "names") : nullptr;
        for (uint32_t i = 0; names && i < key.names->count; i++) {
            cJSON *name = cJSON_CreateArray();
            cJSON_AddItemToArray(name, cJSON_CreateNumber(key.names->rows[i].code));
            cJSON_AddItemToArray(name, cJSON_CreateString(key.names->rows[i].name));
            cJSON_AddItemToArray(names, name);
        }
        cJSON_AddItemToArray(array, row);
    }
    return array;
}

static void recordEndpoint(const std::string &path, const RouteEntry *entry)
{
    keys.clear();
    recording.reported.clear();
    run(entry, "discovery", {}, nullptr);

    cJSON *runs = cJSON_CreateArray();
    run(entry, "base", {}, runs);
    const std::vector<Call> calls = recording.calls;
    runWithKeys(entry, runs);
    Scenario empty;
    empty.body = false;
    run(entry, "no body", empty, runs);
    runWithCodes(entry, calls.size(), runs);
    runWithOutputs(entry, calls, runs);

    cJSON *endpoint = cJSON_CreateObject();
    cJSON_AddStringToObject(endpoint, "path", path.c_str());
    cJSON_AddStringToObject(endpoint, "name", entry->name);
    cJSON_AddStringToObject(endpoint, "method", httpMethodName(entry->method));
    cJSON_AddItemToObject(endpoint, "keys", keyRows());
    cJSON_AddItemToObject(endpoint, "runs", runs);
    char *text = cJSON_PrintUnformatted(endpoint);
    puts(text);
    free(text);
    cJSON_Delete(endpoint);
}

/* Records the entries of a directory in the order of their registration, without those that a later one shadows. */
static void recordDirectory(const std::string &path, const RouteDir *dir)
{
    std::vector<const RouteEntry *> entries;
    for (const RouteEntry *entry = dir->entries; entry; entry = entry->next)
        if (routeEntryFind(dir, entry->name, httpMethodName(entry->method)) == entry)
            entries.insert(entries.begin(), entry);
    for (const RouteEntry *entry : entries)
        recordEndpoint(path, entry);
    std::vector<const RouteDir *> children;
    for (const RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        children.insert(children.begin(), child);
    for (const RouteDir *child : children)
        recordDirectory(path + "/" + child->name, child);
}

int main()
{
    static RouteTree *tree; /* lives as long as the process */
    tree = routeTreeCreate();
    if (!tree)
        return 1;
    registerEndpoints(tree);
    recordDirectory("", tree->root);
    return 0;
}
