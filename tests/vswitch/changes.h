/*
 * changes.h - random operations and commands from a seed, for the virtual switch that a test is linked with, and what
 * all operations that only ask answer then.
 */
#ifndef TESTS_VSWITCH_CHANGES_H
#define TESTS_VSWITCH_CHANGES_H

#include <gtest/gtest.h>

#include <random>

#include "vswitch/base/numbers.h"
#include "vswitch/base/operations.h"
#include "vswitch/server/control.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

using Texts = std::vector<std::string>;
using Numbers = std::vector<uint32_t>;

enum : uint32_t { ENDS = 777, NEIGHBOURS_FIRST = 3001 }; /* VLANs that end */

inline const Numbers vlans = {1, 10, 20, 30, ENDS, NEIGHBOURS_FIRST}, ports = {1, 2, 3, 5, 29};
inline const Texts macs = {"02:00:00:00:01:01", "02:00:00:00:04:04", "02:0A:00:00:00:01", "01:00:5E:00:00:01"};

/* Calls */

struct Value {
    uint32_t number = 0;
    std::string text;
};

struct Call {
    const Operation *operation;
    std::vector<Value> values;
};

/* Runs the call. Returns its code and, after OPEN_OK, what it returned: "0 5 10". */
inline std::string answer(const Call &call, Arguments *arguments)
{
    arguments->clear();
    for (size_t i = 0; i < call.values.size(); i++) {
        Argument &argument = arguments->emplace_back();
        const Value &value = call.values[i];
        argument.tag = (WireTag)call.operation->tags[i];
        argument.number64 = 0;
        argument.number = value.number;
        argument.bytes = value.text;
        argument.bytes.resize(1024);
        argument.list = std::make_unique<VlanIdList>();
        if (value.number)
            argument.list->ids[argument.list->count++] = (uint16_t)value.number;
    }
    for (Argument &argument : *arguments)
        argument.text = {(uint32_t)argument.bytes.size(), argument.bytes.data()};
    int code = runOperation(*call.operation, *arguments);
    std::string text = std::to_string(code);
    for (const Argument &argument : *arguments) {
        if (code != OPEN_OK || !wireIsReturned(argument.tag))
            continue;
        text += argument.tag == WIRE_TEXT ? " " + textOf(&argument.text) : "";
        text += argument.tag == WIRE_OUT || argument.tag == WIRE_OUT16 ? " " + std::to_string(argument.number) : "";
        text += argument.tag == WIRE_OUT64 ? " " + std::to_string(argument.number64) : "";
        for (uint32_t i = 0; argument.tag == WIRE_LISTREF && i < argument.list->count; i++)
            text += " " + std::to_string(argument.list->ids[i]);
    }
    return text + " ";
}

inline std::string answer(const Call &call)
{
    Arguments arguments;
    return answer(call, &arguments);
}

/* The numbers that an operation returns; empty: it fails. Texts count as their lengths. */
inline Numbers ask(const std::string &name, const std::vector<Value> &values = {})
{
    Call call = {&operationNamed("rpcclt_openapi" + name), values};
    call.values.resize(call.operation->tags.size());
    Arguments arguments;
    Numbers numbers;
    if (!answer(call, &arguments).starts_with("0 "))
        return {};
    for (const Argument &argument : arguments)
        if (argument.tag == WIRE_LISTREF)
            numbers.insert(numbers.end(), argument.list->ids, argument.list->ids + argument.list->count);
        else if (wireIsReturned(argument.tag))
            numbers.push_back(argument.tag == WIRE_TEXT ? (uint32_t)textOf(&argument.text).size() : argument.number);
    return numbers;
}

inline bool command(const std::string &line)
{
    std::string said;
    return runCommand(line, &said) == COMMAND_DONE;
}

inline void restart()
{
    command("reset");
    command("hold");
}

/* The numbers and texts that a parameter can get. */

inline Numbers numbersFor(const Operation &operation, size_t parameter)
{
    std::string name = operation.parameters[parameter];
    bool isVlan = name.find("lan") != std::string::npos || name.find("Vid") != std::string::npos || name == "fdbId";
    if (isVlan && !name.ends_with("Type"))
        return vlans;
    if (name == "ifNum" || name == "intIfNum" || name == "port")
        return ports;
    Numbers numbers = {0, 1, 2, 6, 30, 1000};
    if (const Meaning *meaning = meaningOf(operation, parameter))
        for (const Number &number : meaning->numbers)
            numbers.push_back(number.value);
    return numbers;
}

inline Texts textsFor(const Operation &operation, size_t parameter)
{
    std::string name = operation.parameters[parameter];
    if (name == "mac" || name == "address")
        return macs;
    if (name == "oui")
        return {"02:0A:00", "7E:40:91"};
    return name.ends_with("IntfList") ? Texts{"", "1,3", "29"} : Texts{"a", "b"};
}

/* Every operation that only asks, with many keys. */
inline const std::vector<Call> &questions()
{
    static const std::vector<Call> calls = [] {
        std::vector<Call> all;
        for (const Operation &operation : operations()) {
            std::vector<Call> variants = {{&operation, {}}};
            for (size_t i = 0; operation.asks && i < operation.tags.size(); i++) {
                std::vector<Value> values;
                if (operation.tags[i] == WIRE_TEXT)
                    for (const std::string &text : textsFor(operation, i))
                        values.push_back({0, text});
                else if (operation.tags[i] == WIRE_IN)
                    for (uint32_t number : numbersFor(operation, i))
                        values.push_back({number, ""});
                if (values.empty() || variants.size() > 40)
                    values = {{}};
                std::vector<Call> longer;
                for (const Call &variant : variants)
                    for (const Value &value : values) {
                        longer.push_back(variant);
                        longer.back().values.push_back(value);
                    }
                variants = longer;
            }
            if (operation.asks)
                all.insert(all.end(), variants.begin(), variants.end());
        }
        return all;
    }();
    return calls;
}

inline Texts snapshot()
{
    Texts answers;
    for (const Call &call : questions())
        answers.push_back(answer(call));
    return answers;
}

inline void expectSame(const Texts &before, const Texts &after, const std::string &what)
{
    for (size_t i = 0; i < before.size(); i++)
        if (before[i] != after[i]) {
            std::string call = questions()[i].operation->name;
            for (const Value &value : questions()[i].values)
                call += " " + (value.text.empty() ? std::to_string(value.number) : value.text);
            ADD_FAILURE() << what << ": " << call << " answers " << after[i] << "instead of " << before[i];
            return;
        }
}

/* Random changes */

struct Random {
    std::mt19937 engine;
    uint32_t below(size_t limit) { return (uint32_t)(engine() % limit); }
    template <class List> auto pick(const List &list) { return list[below(list.size())]; }
};

/* A sequence is about a few subjects, so that its changes meet each other. */
inline bool isAbout(const std::string &name, uint32_t subject)
{
    static const std::vector<Texts> subjects = {
        {"LoopProtect"}, {"Garp", "Mvrp", "Mmrp"}, {"Vlan", "Dot1q", "PVlan", "Qports"}, {"Filter", "Fdb", "Tp"},
        {"Voi"}, {"Storm", "ProtectedPort"}, {"Macal"}, {"PbVlan", "VlanMac"},
    };
    const Texts &parts = subjects[subject % subjects.size()];
    return std::any_of(parts.begin(), parts.end(), [&](const auto &part) { return name.find(part) != name.npos; });
}

inline std::string randomCommand(Random *random)
{
    std::string port = std::to_string(random->pick(ports)), vlan = std::to_string(random->pick(vlans));
    switch (random->below(9)) {
    case 0:
        return "link " + port + (random->below(3) ? " up" : " down");
    case 1:
        return "loop " + port + (random->below(3) ? " on" : " off");
    case 2:
        return "silence " + vlan + " " + random->pick(macs);
    case 3:
        return "storm " + port + " broadcast 1000000";
    case 4:
        return "neighbour " + port + (random->below(3) ? " joins " : " leaves ") + macs.back() + " " + vlan;
    case 5:
        return "neighbour " + port + (random->below(3) ? " joins " : " leaves ") + vlan;
    case 6:
        return "advance " + std::to_string(1 + random->below(20));
    default:
        return "learn " + vlan + " " + random->pick(macs) + " " + port;
    }
}

inline Call randomWrite(Random *random, const std::vector<const Operation *> &writes)
{
    Call call = {random->pick(writes), {}};
    bool isAllowedList = std::string(call.operation->name).find("TrunkAllowed") != std::string::npos;
    for (size_t i = 0; i < call.operation->tags.size(); i++) {
        Value &value = call.values.emplace_back();
        if (call.operation->tags[i] == WIRE_TEXT)
            value.text = random->pick(textsFor(*call.operation, i));
        else
            value.number = isAllowedList && i ? 10 : random->pick(numbersFor(*call.operation, i));
    }
    return call;
}

/* Makes `steps` random changes, except those of these numbers. Calls check(what, succeeded) after each. */
template <class Check> void change(uint32_t seed, int steps, Check check, const std::set<int> &except = {})
{
    Random random = {std::mt19937(seed)};
    std::vector<const Operation *> writes;
    for (const Operation &operation : operations())
        if (!operation.asks && (isAbout(operation.name, seed) || isAbout(operation.name, seed / 8 + 2)))
            writes.push_back(&operation);
    for (uint32_t vlan : {10u, 20u, (uint32_t)ENDS})
        ask("VlanCreate", {{vlan, ""}});
    if (random.below(2)) {
        ask("Dot1qPrivateVlanEnable", {{10, ""}, {PRIVATE_PRIMARY, ""}});
        ask("Dot1qPrivateVlanEnable", {{20, ""}, {PRIVATE_ISOLATED + random.below(2), ""}});
    }
    for (uint32_t on = 0; on < 6; on++) { /* what does little until it is on */
        static const char *const switches[] = {"GarpGvrpEnableSet", "MvrpModeSet", "MmrpModeSet",
                                               "LoopProtectAdminModeSet", "VoiceVlanAdminModeSet", "GarpGmrpEnableSet"};
        static const char *const onPorts[] = {"GarpGvrpPortEnableSet", "MvrpIntfModeSet", "MmrpIntfModeSet",
                                              "LoopProtectPortAdminModeSet", "", "GarpGmrpPortEnableSet"};
        if (random.below(2))
            answer({&operationNamed(std::string("rpcclt_openapi") + switches[on]), {{1, ""}}});
        for (uint32_t port : {1u, 2u, 3u})
            if (*onPorts[on] && random.below(2))
                answer({&operationNamed(std::string("rpcclt_openapi") + onPorts[on]), {{port, ""}, {1, ""}}});
    }
    for (int step = 0; step < steps; step++)
        if (random.below(4)) {
            Call call = randomWrite(&random, writes);
            if (!except.contains(step))
                check(call.operation->name, answer(call).starts_with("0 "));
        } else {
            std::string line = randomCommand(&random);
            if (!except.contains(step))
                check(line, command(line));
        }
}

inline void change(uint32_t seed, int steps)
{
    change(seed, steps, [](const std::string &, bool) {});
}

#endif
