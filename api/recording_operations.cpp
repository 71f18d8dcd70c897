/*
 * recording_operations.cpp - every operation of the switch's management API, made from the same list as the client
 * library. Each records what it was sent, and answers what the scenario says.
 */
#include <cjson/cJSON.h>
#include <stdlib.h>
#include <string.h>

#include "api/recording.h"
#include "common/open_client.h"
#include "openclt.h"

static size_t currentCall()
{
    return recording.calls.size() - 1;
}

static size_t currentOperand()
{
    return recording.calls.back().operands.size() - 1;
}

static const Output &currentOutput()
{
    static const Output marker;
    auto found = recording.scenario.outputs.find({currentCall(), currentOperand()});
    return found == recording.scenario.outputs.end() ? marker : found->second;
}

static uint32_t currentMarker()
{
    return outputMarker(currentCall(), currentOperand());
}

static bool succeeds()
{
    return recording.scenario.code == 0 || recording.scenario.failingCall != currentCall();
}

static uint64_t outputNumber(uint64_t largest)
{
    const Output &output = currentOutput();
    uint64_t number = output.kind == Output::NUMBER ? output.number : currentMarker();
    return output.kind == Output::LARGEST ? largest : number;
}

static void addOperand(const char *name, const char *kind, cJSON *value, uint32_t size = 0)
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

static void recordOperand(const char *name, uint32_t value)
{
    addOperand(name, "in", cJSON_CreateNumber(value));
}

static void recordOperand(const char *name, const VlanIdList &list)
{
    addOperand(name, "list", idsOf(list));
}

template <typename Number> static void recordOperand(const char *name, Number *value)
{
    addOperand(name, "out", cJSON_CreateNumber((double)*value));
    if (succeeds())
        *value = (Number)outputNumber((Number)-1);
}

static void recordOperand(const char *name, OpenBufferDesc *desc)
{
    std::string text(desc->bytes, strnlen(desc->bytes, desc->size));
    addOperand(name, "text", cJSON_CreateString(text.c_str()), desc->size);
    if (!succeeds())
        return;
    const Output &output = currentOutput();
    std::string result = outputTextMarker(currentCall(), currentOperand());
    if (output.kind == Output::NUMBER)
        result = std::string(output.number, 'o');
    if (output.kind == Output::LARGEST)
        result = std::string(desc->size, 'o');
    memset(desc->bytes, 0, desc->size);
    memcpy(desc->bytes, result.data(), result.size() < desc->size ? result.size() : desc->size);
}

static void recordOperand(const char *name, VlanIdList *list)
{
    addOperand(name, "listref", idsOf(*list));
    if (!succeeds())
        return;
    const Output &output = currentOutput();
    list->count = output.kind == Output::MARKER ? 3 : (uint32_t)outputNumber(UINT32_MAX);
    for (uint16_t &id : list->ids)
        id = (uint16_t)(output.kind == Output::LARGEST ? UINT16_MAX : currentMarker());
}

template <typename... Operands>
static int record(const char *operation, const std::vector<const char *> &names, OpenClient *, Operands &&...operands)
{
    recording.calls.push_back({operation, {}});
    size_t next = 1; /* the expansion below puts a comma before every name, so the first one is "" */
    (recordOperand(names[next++], operands), ...);
    return succeeds() ? 0 : recording.scenario.code;
}

/* The program calls these when it starts; handlers do not. */

[[maybe_unused]] static void recordOperand(const char *, OpenApiVersion *)
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
