/*
 * settings.cpp - answers the operations that set a number and read it back.
 */
#include "vswitch/switch/settings.h"

#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "vswitch/base/operations.h"
#include "vswitch/switch/state.h"

static std::vector<Setting *> registered;

static bool keyExists(Scope scope, uint32_t port)
{
    return scope == FOR_SWITCH || (scope == FOR_PORT ? portExists(port) : interfaceExists(port));
}

uint64_t Setting::value(uint32_t port) const
{
    auto found = values.find(port);
    return found == values.end() ? initial : found->second;
}

static int readSetting(const Setting &setting, Arguments &arguments)
{
    uint32_t port = setting.scope == FOR_SWITCH ? 0 : arguments[0].number;
    if (!keyExists(setting.scope, port))
        return OPEN_BAD_ARGUMENT;
    Argument &result = arguments.back();
    uint64_t value = setting.value(port);
    if (result.tag == WIRE_OUT64)
        result.number64 = value;
    else if (result.tag == WIRE_OUT16)
        result.number16 = (uint16_t)value;
    else
        result.number = (uint32_t)value;
    return OPEN_OK;
}

static int writeSetting(Setting &setting, Arguments &arguments)
{
    uint32_t port = setting.scope == FOR_SWITCH ? 0 : arguments[0].number;
    uint32_t value = arguments.back().number;
    if (!keyExists(setting.scope, port) || !setting.range.contains(value))
        return OPEN_BAD_ARGUMENT;
    setting.put(port, value);
    return OPEN_OK;
}

/* The operation, whose parameters must be the port, if the scope has one, and a number with one of `numberTags`. */
static Operation &operationWith(const std::string &name, Scope scope, const char *numberTags)
{
    Operation &operation = operationNamed(name);
    size_t keys = scope == FOR_SWITCH ? 0 : 1;
    bool fits = operation.tags.size() == keys + 1 && (keys == 0 || operation.tags[0] == WIRE_IN) &&
                std::string(numberTags).find(operation.tags.back()) != std::string::npos;
    if (!fits) {
        fprintf(stderr, "vswitch: the parameters of %s do not fit a setting of this scope\n", name.c_str());
        exit(1);
    }
    return operation;
}

static void registerSetter(Setting *setting, Operation &operation)
{
    const Meaning *meaning = meaningOf(operation, operation.parameters.size() - 1);
    if (!meaning || !meaning->limited) {
        fprintf(stderr, "vswitch: numbers.def has no range for %s\n", operation.name);
        exit(1);
    }
    setting->range = meaning->range;
    operation.run = [setting](Arguments &arguments) { return writeSetting(*setting, arguments); };
}

void registerSettings(std::initializer_list<Setting *> settings)
{
    for (Setting *setting : settings) {
        std::string name = std::string("rpcclt_openapi") + setting->name;
        Operation &reader = operationWith(name + "Get", setting->scope, "NHQ");
        reader.asks = true;
        reader.run = [setting](Arguments &arguments) { return readSetting(*setting, arguments); };
        if (setting->settable)
            registerSetter(setting, operationWith(name + "Set", setting->scope, "n"));
        registered.push_back(setting);
    }
}

void resetSettings()
{
    for (Setting *setting : registered)
        setting->values.clear();
}
