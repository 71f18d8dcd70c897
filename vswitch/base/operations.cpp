/*
 * operations.cpp - the table of operations, made from the list the client library is made from.
 */
#include "vswitch/base/operations.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <unordered_map>

static Operation describe(const char *name, std::string tags, std::vector<const char *> words)
{
    words.erase(words.begin()); /* the list's expansion puts a comma before every word */
    return {name, std::move(tags), std::move(words), {}};
}

std::vector<Operation> &operations()
{
    static std::vector<Operation> all = {
#define OPEN_OPERATION(name, ...) \
    describe(#name, Server<decltype(name)>::tags(), {"" OPEN_EACH(OPEN_QUOTE_, __VA_ARGS__)}),
#include "openclt_operations.def"
#undef OPEN_OPERATION
    };
    return all;
}

Operation *findOperation(const std::string &name)
{
    static const std::unordered_map<std::string, Operation *> byName = [] {
        std::unordered_map<std::string, Operation *> index;
        for (Operation &operation : operations())
            index[operation.name] = &operation;
        return index;
    }();
    auto found = byName.find(name);
    return found == byName.end() ? nullptr : found->second;
}

Operation &operationNamed(const std::string &name)
{
    Operation *operation = findOperation(name);
    if (!operation) {
        fprintf(stderr, "vswitch: the model serves %s, which is no operation\n", name.c_str());
        exit(1);
    }
    return *operation;
}

bool isStartCall(const Operation &operation)
{
    for (const char *name : {"rpcclt_openapiConnectivityCheck", "rpcclt_openapiNetworkOSVersionGet",
                             "rpcclt_openapiApiVersionGet"})
        if (strcmp(operation.name, name) == 0)
            return true;
    return false;
}

std::string textOf(const OpenBufferDesc *desc)
{
    return {desc->bytes, strnlen(desc->bytes, desc->size)};
}

int setText(OpenBufferDesc *desc, const std::string &text)
{
    if (text.size() >= desc->size)
        return OPEN_FAILED;
    memcpy(desc->bytes, text.c_str(), text.size() + 1);
    return OPEN_OK;
}

void setList(VlanIdList *list, const std::vector<uint16_t> &ids)
{
    *list = {};
    list->count = (uint32_t)std::min<size_t>(ids.size(), VLAN_ID_LIST_MAX);
    std::copy_n(ids.begin(), list->count, list->ids);
}
