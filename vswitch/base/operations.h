/*
 * operations.h - the virtual switch's table of operations: every operation of the list, with what serves it.
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

/* One argument of a call, as it was sent and as it is returned. */
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
    std::string tags;               /* one WireTag a parameter, in order */
    std::vector<const char *> parameters;
    std::function<int(Arguments &)> run; /* empty: the model lacks this operation */
};

/* Every operation, in the order of the list. */
std::vector<Operation> &operations();

/* The operation of that name, null when there is none. */
Operation *findOperation(const std::string &name);

/* As findOperation, but ends the process with a message: the model's tables name an operation that does not exist. */
Operation &operationNamed(const std::string &name);

/* Whether the program calls it at its start, before it does what was asked of it. */
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

template <class Prototype> struct Server;
template <class... T> struct Server<int(OpenClient *, T...)> {
    static std::string tags() { return {WireTagOf<T>::tag...}; }
    static void serve(const char *name, int (*function)(T...))
    {
        operationNamed(name).run = [function](Arguments &arguments) {
            return callWith(function, arguments, std::index_sequence_for<T...>());
        };
    }
};

/*
 * SERVE(operation, function) makes `function` (the operation's prototype without the client; a lambda without captures
 * will do) answer the operation. Types are checked against the prototype.
 */
#define SERVE(operation, ...) Server<decltype(operation)>::serve(#operation, __VA_ARGS__)

/* The text in a descriptor, up to its first zero byte. */
std::string textOf(const OpenBufferDesc *desc);

/* Puts `text` and a zero into a descriptor. OPEN_OK, or OPEN_FAILED when it does not fit. */
int setText(OpenBufferDesc *desc, const std::string &text);

/* Makes a list of `ids`; those beyond VLAN_ID_LIST_MAX are dropped. */
void setList(VlanIdList *list, const std::vector<uint16_t> &ids);

#endif
