/*
 * settings.cpp - numbers that are set and read back.
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
    if (!keyExists(setting.scope, port) || value < setting.lowest || value > setting.highest)
        return OPEN_BAD_ARGUMENT;
    setting.put(port, value);
    return OPEN_OK;
}

/* A setting must fit its operation: the port if there is one, then the number. */
static Operation &operationWith(const char *name, Scope scope, const char *resultTags)
{
    Operation &operation = operationNamed(name);
    size_t keys = scope == FOR_SWITCH ? 0 : 1;
    bool fits = operation.tags.size() == keys + 1 && (keys == 0 || operation.tags[0] == WIRE_IN) &&
                std::string(resultTags).find(operation.tags.back()) != std::string::npos;
    if (!fits) {
        fprintf(stderr, "vswitch: %s is no setting with these keys\n", name);
        exit(1);
    }
    return operation;
}

void registerSettings(std::initializer_list<Setting *> settings)
{
    for (Setting *setting : settings) {
        Operation &reader = operationWith(setting->get, setting->scope, "NHQ");
        reader.asks = true;
        reader.run = [setting](Arguments &arguments) { return readSetting(*setting, arguments); };
        if (setting->set)
            operationWith(setting->set, setting->scope, "n").run = [setting](Arguments &arguments) {
                return writeSetting(*setting, arguments);
            };
        registered.push_back(setting);
    }
}

void resetSettings()
{
    for (Setting *setting : registered)
        setting->values.clear();
}
