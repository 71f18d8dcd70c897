/*
 * operations.h - the table of operations: every operation of OpEN, and the function that answers it.
 */
#ifndef VSWITCH_OPERATIONS_H
#define VSWITCH_OPERATIONS_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "wire.h"

/* One argument of a call. It holds the value that was sent; after the operation, the value that is returned. */
struct Argument {
    WireTag tag;
    union {
        uint32_t number;
        uint16_t number16;
        uint64_t number64;
        OpenApiVersion version;
    };
    OpenBufferDesc text; /* describes `bytes` */
    std::string bytes;
    std::unique_ptr<VlanIdList> list;
};

using Arguments = std::vector<Argument>;

struct Operation {
    const char *name;
    std::string tags;               /* the WireTag of each parameter */
    std::vector<const char *> parameters;
    std::function<int(Arguments &)> run = {}; /* empty: not implemented */
    bool asks = false;                        /* it only reads; false: it can change something */
};

/* All operations, in the order of openclt_operations.def. */
std::vector<Operation> &operations();

/* The operation of that name, null when there is none. */
Operation *findOperation(const std::string &name);

/* The same for a name in a table: ends the process with a message when there is none. */
Operation &operationNamed(const std::string &name);

/* Is it one of the three operations that the program calls at its start, before the request is handled? */
bool isStartCall(const Operation &operation);

template <class T> T argumentAs(Argument &argument)
{
    if constexpr (std::is_same_v<T, uint32_t>)
        return argument.number;
    else if constexpr (std::is_same_v<T, uint32_t *>)
        return &argument.number;
    else if constexpr (std::is_same_v<T, uint16_t *>)
        return &argument.number16;
    else if constexpr (std::is_same_v<T, uint64_t *>)
        return &argument.number64;
    else if constexpr (std::is_same_v<T, OpenApiVersion *>)
        return &argument.version;
    else if constexpr (std::is_same_v<T, OpenBufferDesc *>)
        return &argument.text;
    else if constexpr (std::is_same_v<T, VlanIdList *>)
        return argument.list.get();
    else
        return *argument.list;
}

template <class... T, size_t... Index>
int callWith(int (*function)(T...), Arguments &arguments, std::index_sequence<Index...>)
{
    return function(argumentAs<T>(arguments[Index])...);
}

template <class Prototype> struct Registration;
template <class... T> struct Registration<int(OpenClient *, T...)> {
    static std::string tags() { return {WireTagOf<T>::tag...}; }
    static void add(const char *name, bool asks, int (*function)(T...))
    {
        Operation &operation = operationNamed(name);
        operation.asks = asks;
        operation.run = [function](Arguments &arguments) {
            return callWith(function, arguments, std::index_sequence_for<T...>());
        };
    }
};

/*
 * Register the function that answers an operation: ASK if it only reads, DO if it can change something. The function
 * has the operation's prototype without the client handle; the compiler checks it.
 */
#define ASK(operation, ...) Registration<decltype(operation)>::add(#operation, true, __VA_ARGS__)
#define DO(operation, ...) Registration<decltype(operation)>::add(#operation, false, __VA_ARGS__)

#endif
