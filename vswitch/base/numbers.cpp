/*
 * numbers.cpp - looks up what numbers mean; lists the operations with these meanings.
 */
#include "vswitch/base/numbers.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <map>

static Meaning enumeration(const char *type, const char *about, const std::vector<Number> &numbers)
{
    return {type, about, numbers, true, {numbers.front().value, numbers.back().value}};
}

/* "seconds; 0 for none" becomes "seconds, 0 to 60; 0 for none". */
static Meaning limited(const char *type, std::string about, Range range)
{
    std::string limits = ", " + std::to_string(range.lowest) + " to " + std::to_string(range.highest);
    about.insert(std::min(about.find(';'), about.size()), limits);
    return {type, about, {}, true, range};
}

static const std::vector<Meaning> &meanings()
{
    static const std::vector<Meaning> all = {
#define NUMBERS(type, about) enumeration(#type, about, {
#define NUMBER(constant, value, name, about) {value, name, about},
#define END_NUMBERS(type) }),
#define RANGE(type, constant, lowest, highest, about) limited(#type, about, constant),
#define QUANTITY(type, about) {#type, about, {}, false, {}},
#include "vswitch/base/numbers.def"
    };
    return all;
}

/* QUOTE_EACH(a, b) expands to "a", "b". EXPAND_64 expands more often than the longest list needs. */
#define QUOTE_EACH(...) __VA_OPT__(EXPAND_64(QUOTE_FIRST(__VA_ARGS__)))
#define QUOTE_FIRST(first, ...) #first __VA_OPT__(, QUOTE_REST PARENTHESES (__VA_ARGS__))
#define QUOTE_REST() QUOTE_FIRST
#define PARENTHESES ()
#define EXPAND_64(...) EXPAND_16(EXPAND_16(EXPAND_16(EXPAND_16(__VA_ARGS__))))
#define EXPAND_16(...) EXPAND_4(EXPAND_4(EXPAND_4(EXPAND_4(__VA_ARGS__))))
#define EXPAND_4(...) EXPAND_1(EXPAND_1(EXPAND_1(EXPAND_1(__VA_ARGS__))))
#define EXPAND_1(...) __VA_ARGS__

static const Meaning *meaningNamed(const char *type)
{
    for (const Meaning &meaning : meanings())
        if (strcmp(meaning.type, type) == 0)
            return &meaning;
    return nullptr;
}

/* The meaning by operation and parameter. The operation "" stands for all that have no entry. */
static const std::map<std::pair<std::string, std::string>, const Meaning *> &meaningIndex()
{
    static const auto index = [] {
        /* what the parameter of these operations means; "": of all operations that no other row names */
        const struct {
            const char *type, *parameter;
            std::vector<const char *> operations;
        } uses[] = {
#define NAMED(type, parameter) {#type, #parameter, {""}},
#define MEANS(type, parameter, ...) {#type, #parameter, {QUOTE_EACH(__VA_ARGS__)}},
#include "vswitch/base/numbers.def"
        };
        std::map<std::pair<std::string, std::string>, const Meaning *> made;
        for (const auto &use : uses)
            for (const char *operation : use.operations)
                made[{operation, use.parameter}] = meaningNamed(use.type);
        return made;
    }();
    return index;
}

const Meaning *meaningOf(const Operation &operation, size_t parameter)
{
    for (const char *name : {operation.name, ""}) {
        auto found = meaningIndex().find({name, operation.parameters[parameter]});
        if (found != meaningIndex().end())
            return found->second;
    }
    return nullptr;
}

static bool hasParameter(const Operation &operation, const std::string &name)
{
    return std::any_of(operation.parameters.begin(), operation.parameters.end(),
                       [&](const char *parameter) { return name == parameter; });
}

void checkNumbers()
{
    for (const auto &[key, meaning] : meaningIndex()) {
        const auto &[name, parameter] = key;
        bool fits = name.empty() ? std::any_of(operations().begin(), operations().end(),
                                               [&wanted = parameter](const Operation &one) {
                                                   return hasParameter(one, wanted);
                                               })
                                 : hasParameter(operationNamed(name), parameter);
        if (!meaning || !fits) {
            fprintf(stderr, "vswitch: numbers.def: \"%s\" has no parameter %s, or its meaning does not exist\n",
                    name.c_str(), parameter.c_str());
            exit(1);
        }
    }
}

bool isIpv4Address(const Operation &operation, size_t parameter)
{
    const Meaning *meaning = meaningOf(operation, parameter);
    return meaning && strcmp(meaning->type, "Ipv4Address") == 0;
}

std::string ipv4Text(uint32_t address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

bool parseIpv4(const std::string &text, uint32_t *address)
{
    return inet_pton(AF_INET, text.c_str(), address) == 1;
}

static const char *typeOf(char tag)
{
    switch (tag) {
    case WIRE_OUT16: return "uint16";
    case WIRE_OUT64: return "uint64";
    case WIRE_TEXT: return "text";
    case WIRE_LIST:
    case WIRE_LISTREF: return "list";
    case WIRE_VERSION4: return "version";
    default: return "uint32";
    }
}

/* "0 auto, 1 include, 2 exclude"; for a quantity, what it is. */
static std::string meaningText(const Meaning &meaning)
{
    std::string text;
    for (const Number &number : meaning.numbers)
        text += (text.empty() ? "" : ", ") + std::to_string(number.value) + " " + number.name;
    return text.empty() ? meaning.about : text;
}

std::string operationsText(const std::string &part)
{
    std::string text;
    for (const Operation &operation : operations()) {
        if (!strcasestr(operation.name, part.c_str()))
            continue;
        text.append(operation.name).append(operation.run ? "\n" : " (the model lacks it)\n");
        for (size_t i = 0; i < operation.parameters.size(); i++) {
            char line[64];
            snprintf(line, sizeof line, "    %-18s %-5s %-7s", operation.parameters[i],
                     wireIsReturned((WireTag)operation.tags[i]) ? "inout" : "in", typeOf(operation.tags[i]));
            const Meaning *meaning = meaningOf(operation, i);
            text += meaning ? std::string(line) + " " + meaningText(*meaning) : line;
            text.erase(text.find_last_not_of(' ') + 1) += "\n";
        }
    }
    return text;
}

/* "key": "value". No text in the tables needs escapes. */
static std::string member(const char *key, const std::string &value)
{
    return std::string("\"") + key + "\": \"" + value + "\"";
}

static std::string parameterJson(const Operation &operation, size_t i)
{
    const Meaning *meaning = meaningOf(operation, i);
    return "{" + member("name", operation.parameters[i]) + ", " +
           member("direction", wireIsReturned((WireTag)operation.tags[i]) ? "inout" : "in") + ", " +
           member("type", typeOf(operation.tags[i])) + (meaning ? ", " + member("meaning", meaning->type) : "") + "}";
}

static std::string meaningJson(const Meaning &meaning)
{
    std::string text = "{" + member("about", meaning.about), between;
    if (meaning.limited && meaning.numbers.empty())
        text += ", \"lowest\": " + std::to_string(meaning.range.lowest) + ", \"highest\": " +
                std::to_string(meaning.range.highest);
    text += ", \"numbers\": [";
    for (const Number &number : meaning.numbers) {
        text += between + "\n      {\"value\": " + std::to_string(number.value) + ", " + member("word", number.name) +
                ", " + member("about", number.about) + "}";
        between = ",";
    }
    return text + "]}";
}

std::string operationsJson()
{
    std::string text = "{\n  \"operations\": [", between;
    for (const Operation &operation : operations()) {
        text += between + "\n    {" + member("name", operation.name) + ", \"modelled\": " +
                (operation.run ? "true" : "false") + ", \"parameters\": [";
        for (size_t i = 0; i < operation.parameters.size(); i++)
            text += (i ? ", " : "") + parameterJson(operation, i);
        text += "]}";
        between = ",";
    }
    text += "],\n  \"meanings\": {";
    between = "";
    for (const Meaning &meaning : meanings()) {
        text += between + "\n    \"" + meaning.type + "\": " + meaningJson(meaning);
        between = ",";
    }
    return text + "}\n}\n";
}
