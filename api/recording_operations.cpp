/*
 * recording_operations.cpp - every operation of the switch's management API, made from the list the client library is
 * made from. Each notes what it was sent, and answers what the run's scenario says.
 */
#include <cjson/cJSON.h>
#include <stdlib.h>
#include <string.h>

#include "api/recording.h"
#include "common/open_client.h"
#include "openclt.h"

static const Output &outputHere()
{
    static const Output marker;
    size_t call = recording.calls.size() - 1;
    auto found = recording.scenario.outputs.find({call, recording.calls.back().operands.size() - 1});
    return found == recording.scenario.outputs.end() ? marker : found->second;
}

/* A number no other output has, below 65536. */
static uint32_t markerHere()
{
    return 40000 + 100 * (uint32_t)recording.calls.size() + (uint32_t)recording.calls.back().operands.size();
}

static bool succeeds()
{
    return recording.scenario.code == 0 || recording.scenario.failingCall != recording.calls.size() - 1;
}

static uint64_t outputNumber(uint64_t largest)
{
    const Output &output = outputHere();
    uint64_t number = output.kind == Output::NUMBER ? output.number : markerHere();
    return output.kind == Output::LARGEST ? largest : number;
}

static void note(const char *name, const char *kind, cJSON *value, uint32_t size = 0)
{
    recording.calls.back().operands.push_back({name, kind, value, size});
}

static cJSON *idsOf(const VlanIdList &list)
{
    cJSON *ids = cJSON_CreateArray();
    for (uint32_t i = 0; i < list.count && i < VLAN_ID_LIST_MAX; i++)
        cJSON_AddItemToArray(ids, cJSON_CreateNumber(list.ids[i]));
    return ids;
}

static void take(const char *name, uint32_t value)
{
    note(name, "in", cJSON_CreateNumber(value));
}

static void take(const char *name, const VlanIdList &list)
{
    note(name, "list", idsOf(list));
}

template <typename Number> static void take(const char *name, Number *value)
{
    note(name, "out", cJSON_CreateNumber((double)*value));
    if (succeeds())
        *value = (Number)outputNumber((Number)-1);
}

static void take(const char *name, OpenBufferDesc *desc)
{
    std::string text(desc->bytes, strnlen(desc->bytes, desc->size));
    note(name, "text", cJSON_CreateString(text.c_str()), desc->size);
    if (!succeeds())
        return;
    const Output &output = outputHere();
    std::string result = "o" + std::to_string(markerHere());
    if (output.kind == Output::NUMBER)
        result = std::string(output.number, 'o');
    if (output.kind == Output::LARGEST)
        result = std::string(desc->size, 'o');
    memset(desc->bytes, 0, desc->size);
    memcpy(desc->bytes, result.data(), result.size() < desc->size ? result.size() : desc->size);
}

static void take(const char *name, VlanIdList *list)
{
    note(name, "listref", idsOf(*list));
    if (!succeeds())
        return;
    const Output &output = outputHere();
    list->count = output.kind == Output::MARKER ? 3 : (uint32_t)outputNumber(UINT32_MAX);
    for (uint16_t &id : list->ids)
        id = (uint16_t)(output.kind == Output::LARGEST ? UINT16_MAX : markerHere());
}

template <typename... Operands>
static int record(const char *operation, const std::vector<const char *> &names, OpenClient *, Operands &&...operands)
{
    recording.calls.push_back({operation, {}});
    size_t next = 1; /* the list's expansion puts a comma before every word, hence an empty name at the front */
    (take(names[next++], operands), ...);
    return succeeds() ? 0 : recording.scenario.code;
}

/* What follows is called at the start of the program and not by handlers. */

[[maybe_unused]] static void take(const char *, OpenApiVersion *)
{
    abort();
}

int openapiClientRegister(const char *, OpenClient *)
{
    abort();
}

#define OPEN_OPERATION(name, ...)                                                                    \
    int name(OpenClient *client OPEN_EACH(OPEN_DECLARE_, __VA_ARGS__))                               \
    {                                                                                                \
        return record(#name, {"" OPEN_EACH(OPEN_QUOTE_, __VA_ARGS__)}, client OPEN_EACH(OPEN_FORWARD_, __VA_ARGS__)); \
    }
#include "openclt_operations.def"
#undef OPEN_OPERATION
