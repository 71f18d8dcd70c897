/*
 * faults.cpp - finds the fault for a call, changes its outputs, and has the commands for faults.
 */
#include "vswitch/server/faults.h"

#include <string.h>

#include <algorithm>
#include <charconv>
#include <list>

#include "vswitch/base/commands.h"
#include "vswitch/base/numbers.h"

static std::map<std::string, std::list<Fault>> faults; /* by operation, "*" for all; the latest is first */
static Fault current; /* a copy: the last call of `times` removes the fault */

/* Values */

/* Reads a decimal number, the name of a value, or an IPv4 address, as the parameter has it. */
static bool readNumberOf(const Operation &operation, size_t parameter, const std::string &text, uint64_t highest,
                         uint64_t *number)
{
    uint32_t address = 0;
    if (isIpv4Address(operation, parameter) && parseIpv4(text, &address)) {
        *number = address;
        return true;
    }
    if (const Meaning *meaning = meaningOf(operation, parameter))
        for (const Number &one : meaning->numbers)
            if (text == one.name) {
                *number = one.value;
                return true;
            }
    std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), *number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size() && *number <= highest;
}

/* Reads "2(10 20)", as the trace shows it, or "10,20" without the count. */
static bool readList(const std::string &text, VlanIdList *list)
{
    *list = {};
    size_t open = text.find('(');
    bool counted = open != std::string::npos;
    if (counted && !text.ends_with(')'))
        return false;
    std::string ids = counted ? text.substr(open + 1, text.size() - open - 2) : text;
    std::replace(ids.begin(), ids.end(), ',', ' ');
    Args parts;
    splitArgs(ids, &parts);
    long long number = 0;
    for (const std::string &part : parts) {
        if (list->count == VLAN_ID_LIST_MAX || !readNumber(part, 0, UINT16_MAX, &number))
            return false;
        list->ids[list->count++] = (uint16_t)number;
    }
    if (!counted || open == 0)
        return true;
    if (!readNumber(text.substr(0, open), 0, UINT32_MAX, &number))
        return false;
    list->count = (uint32_t)number;
    return true;
}

/* Stores the value in the argument, whose tag is set. A text that is too long is cut. */
static bool readValue(const Operation &operation, size_t parameter, const std::string &text, Argument *argument)
{
    uint64_t number = 0;
    switch (argument->tag) {
    case WIRE_IN:
    case WIRE_OUT:
        if (!readNumberOf(operation, parameter, text, UINT32_MAX, &number))
            return false;
        argument->number = (uint32_t)number;
        return true;
    case WIRE_OUT16:
        if (!readNumberOf(operation, parameter, text, UINT16_MAX, &number))
            return false;
        argument->number16 = (uint16_t)number;
        return true;
    case WIRE_OUT64:
        return readNumberOf(operation, parameter, text, UINT64_MAX, &argument->number64);
    case WIRE_TEXT: /* a text that fills the buffer has no zero at its end */
        std::fill(argument->bytes.begin(), argument->bytes.end(), 0);
        std::copy_n(text.begin(), std::min(text.size(), argument->bytes.size()), argument->bytes.begin());
        return true;
    case WIRE_LIST:
    case WIRE_LISTREF:
        return readList(text, argument->list.get());
    case WIRE_VERSION4:
        return false;
    }
    return false;
}

static Argument emptyArgument(char tag)
{
    Argument argument;
    argument.tag = (WireTag)tag;
    argument.number64 = 0;
    if (tag == WIRE_LIST || tag == WIRE_LISTREF)
        argument.list = std::make_unique<VlanIdList>();
    return argument;
}

static bool isValue(const Operation &operation, size_t parameter, const std::string &text)
{
    Argument argument = emptyArgument(operation.tags[parameter]);
    return readValue(operation, parameter, text, &argument);
}

/* Was the value sent in the argument? */
static bool isSent(const Operation &operation, size_t parameter, const std::string &text, const Argument &argument)
{
    if (argument.tag == WIRE_TEXT)
        return text == argument.bytes.substr(0, strnlen(argument.bytes.data(), argument.bytes.size()));
    Argument value = emptyArgument(argument.tag);
    if (!readValue(operation, parameter, text, &value))
        return false;
    if (value.list)
        return memcmp(value.list.get(), argument.list.get(), sizeof(VlanIdList)) == 0;
    return argument.tag == WIRE_OUT64 ? value.number64 == argument.number64
           : argument.tag == WIRE_OUT16 ? value.number16 == argument.number16
                                        : value.number == argument.number;
}

/* Faults and calls */

static size_t parameterNamed(const Operation &operation, const std::string &name)
{
    const auto &names = operation.parameters;
    return (size_t)(std::find_if(names.begin(), names.end(), [&](const char *one) { return name == one; }) -
                    names.begin());
}

static bool meets(const Fault &fault, const Operation &operation, const Arguments &arguments)
{
    for (const auto &[name, value] : fault.conditions) {
        size_t parameter = parameterNamed(operation, name);
        if (parameter == arguments.size() || !isSent(operation, parameter, value, arguments[parameter]))
            return false;
    }
    return true;
}

const Fault *takeFault(const Operation &operation, const Arguments &arguments)
{
    for (const char *name : {operation.name, isStartCall(operation) ? "" : "*"}) {
        auto list = faults.find(name);
        if (list == faults.end())
            continue;
        for (auto fault = list->second.begin(); fault != list->second.end(); ++fault) {
            if (!meets(*fault, operation, arguments))
                continue;
            fault->met++;
            current = *fault;
            if (fault->times > 0 && --fault->times == 0)
                list->second.erase(fault);
            return &current;
        }
    }
    return nullptr;
}

void overrideOutputs(const Fault &fault, const Operation &operation, Arguments *arguments)
{
    for (const auto &[name, value] : fault.outputs) {
        size_t parameter = parameterNamed(operation, name);
        readValue(operation, parameter, value, &(*arguments)[parameter]);
    }
}

/* Commands */

static CommandOutcome refuseArg(std::string *answer, const std::string &arg, const std::string &why)
{
    return refuse(answer, "\"" + arg + "\": " + why);
}

static std::string parameterNames(const Operation &operation)
{
    std::string names;
    for (const char *name : operation.parameters)
        names.append(names.empty() ? "" : ", ").append(name);
    return names.empty() ? "it has none" : "it has " + names;
}

/* NAME=VALUE or NAME==VALUE of a fault for all operations: a condition. */
static CommandOutcome readGeneralCondition(const std::string &arg, const std::string &name, const std::string &value,
                                           Fault *fault, std::string *answer)
{
    for (const Operation &operation : operations())
        if (parameterNamed(operation, name) < operation.parameters.size()) {
            fault->conditions[name] = value;
            return COMMAND_DONE;
        }
    return refuseArg(answer, arg, "no operation has a parameter \"" + name + "\"");
}

/* NAME=VALUE or, if `sent`, NAME==VALUE of a fault for one operation: a condition or an output. */
static CommandOutcome readParameter(const Operation &operation, const std::string &arg, const std::string &name,
                                    const std::string &value, bool sent, Fault *fault, std::string *answer)
{
    size_t parameter = parameterNamed(operation, name);
    if (parameter == operation.parameters.size())
        return refuseArg(answer, arg, std::string(operation.name) + " has no parameter \"" + name + "\" (" +
                                            parameterNames(operation) + "), nor is it code, times or delay");
    if (!isValue(operation, parameter, value))
        return refuseArg(answer, arg, "\"" + value + "\" is no value of " + name + " (see \"operations\")");
    (sent || !wireIsReturned((WireTag)operation.tags[parameter]) ? fault->conditions : fault->outputs)[name] = value;
    return COMMAND_DONE;
}

/* Reads an argument of a fault. `operation` is null for a fault of all operations. */
static CommandOutcome readArg(const Operation *operation, const std::string &arg, Fault *fault, std::string *answer)
{
    size_t equals = arg.find('=');
    if (arg == "hangup" || arg == "garbage" || arg == "rubbish") {
        (arg == "hangup" ? fault->hangUp : fault->garbage) = true;
        return COMMAND_DONE;
    }
    if (equals == std::string::npos)
        return refuseArg(answer, arg, "it is none of code=N, times=N, delay=MS, hangup, garbage, NAME=VALUE");
    bool sent = arg.compare(equals, 2, "==") == 0;
    std::string name = arg.substr(0, equals), value = arg.substr(equals + (sent ? 2 : 1));
    long long number = 0;
    if (name == "code") {
        fault->hasCode = readNumber(value, INT32_MIN, INT32_MAX, &number);
        fault->code = (int)number;
        return fault->hasCode ? COMMAND_DONE : refuseArg(answer, arg, "code takes a number");
    }
    if (name == "times")
        return readNumber(value, 1, INT64_MAX, &fault->times) ? COMMAND_DONE
                                                              : refuseArg(answer, arg, "times takes a number from 1");
    if (name == "delay") {
        bool good = readNumber(value, 0, 600000, &number);
        fault->delayMs = (uint32_t)number;
        return good ? COMMAND_DONE : refuseArg(answer, arg, "delay takes milliseconds, 0 to 600000");
    }
    return operation ? readParameter(*operation, arg, name, value, sent, fault, answer)
                     : readGeneralCondition(arg, name, value, fault, answer);
}

static CommandOutcome refuseOperation(std::string *answer, const std::string &name)
{
    return refuse(answer, "there is no operation \"" + name + "\" (\"operations\" lists them, \"*\" is all of them)");
}

static CommandOutcome addFault(const Args &args, std::string *answer)
{
    const std::string &name = args[0];
    const Operation *operation = findOperation(name);
    if (!operation && name != "*")
        return refuseOperation(answer, name);
    Fault fault;
    for (size_t i = 1; i < args.size(); i++) {
        if (readArg(operation, args[i], &fault, answer) != COMMAND_DONE)
            return COMMAND_REFUSED;
        if (!args[i].starts_with("times="))
            fault.args.push_back(args[i]);
    }
    faults[name].remove_if([&](const Fault &other) { return other.conditions == fault.conditions; });
    faults[name].push_front(fault);
    return COMMAND_DONE;
}

void clearFaults()
{
    faults.clear();
}

static CommandOutcome clear(const Args &args, std::string *answer)
{
    if (args.empty())
        clearFaults();
    else if (!faults.erase(args[0]) && args[0] != "*" && !findOperation(args[0]))
        return refuseOperation(answer, args[0]);
    return COMMAND_DONE;
}

static CommandOutcome listFaults(const Args &, std::string *answer)
{
    for (const auto &[name, list] : faults)
        for (const Fault &fault : list) {
            *answer += name;
            for (const std::string &arg : fault.args)
                *answer += " " + arg;
            if (fault.times > 0)
                *answer += " times=" + std::to_string(fault.times);
            *answer += " (" + std::to_string(fault.met) + " calls met it)\n";
        }
    return COMMAND_DONE;
}

void registerFaults()
{
    static const Command commands[] = {
        {.group = FAULT_COMMANDS, .name = "fault", .usage = "OPERATION [ARG...]", .fewest = 1, .most = ANY_NUMBER,
         .help =
         "make calls of OPERATION fail; '*': all calls except the three at the program's start\n"
         "code=N           answer this code; the operation does not run, and nothing changes\n"
         "NAME=VALUE       NAME is only sent (in): the fault applies only to calls that send VALUE\n"
         "                 NAME is returned (inout): return VALUE (with code=0, the operation does not run)\n"
         "NAME==VALUE      the fault applies only to calls that send VALUE, also where NAME is returned\n"
         "delay=MS         answer so many milliseconds later\n"
         "hangup, garbage  close the connection; answer with bytes that are no message\n"
         "times=N          only for the next N calls that it applies to (default: until \"clear\")\n"
         "VALUE is a number or its name, a text, an IPv4 address, or a VLAN list: 10,20 or '2(10 20)'.\n"
         "If several faults apply to a call, the latest counts; faults of the operation come before those of '*'.\n"
         "A fault replaces an earlier one with the same conditions.",
         .run = addFault},
        {.group = FAULT_COMMANDS, .name = "faults", .usage = "", .fewest = 0, .most = 0,
         .help = "list the faults, and to how many calls each has applied", .run = listFaults},
        {.group = FAULT_COMMANDS, .name = "clear", .usage = "[OPERATION]", .fewest = 0, .most = 1,
         .help = "remove all faults, or those of OPERATION", .run = clear},
    };
    registerCommands(commands);
}
