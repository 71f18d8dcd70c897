/*
 * operations.cpp - the table of operations, made from openclt_operations.def, like the client library.
 */
#include "vswitch/base/operations.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <unordered_map>

template <class... Name> static Operation describe(const char *name, std::string tags, Name... parameters)
{
    return {name, std::move(tags), {parameters...}};
}

std::vector<Operation> &operations()
{
    static std::vector<Operation> all = {
#define OPEN_OPERATION(name, ...) \
    describe(#name, Registration<decltype(name)>::tags() OPEN_EACH(OPEN_QUOTE_, __VA_ARGS__)),
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
        fprintf(stderr, "vswitch: %s is registered, but is not an operation\n", name.c_str());
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
