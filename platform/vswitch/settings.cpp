/*
 * settings.cpp - numbers that are set and read back.
 */
#include "settings.h"

#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>

#include "model.h"
#include "operations.h"

static std::map<std::string, const Setting *> settingOf; /* by the name of the operation that reads it */
static std::map<std::pair<const Setting *, uint32_t>, uint64_t> values;

static bool keyExists(Scope scope, uint32_t key)
{
    return scope == FOR_SWITCH || (scope == FOR_PORT ? portExists(key) : vlanExists(key));
}

static uint64_t valueOf(const Setting &setting, uint32_t key)
{
    auto found = values.find({&setting, key});
    return found == values.end() ? setting.initial : found->second;
}

static int readSetting(const Setting &setting, Arguments &arguments)
{
    uint32_t key = setting.scope == FOR_SWITCH ? 0 : arguments[0].number;
    if (!keyExists(setting.scope, key))
        return OPEN_BAD_ARGUMENT;
    Argument &result = arguments.back();
    uint64_t value = valueOf(setting, key);
    if (result.tag == WIRE_OUT64)
        result.number64 = value;
    else if (result.tag == WIRE_OUT16)
        result.number16 = (uint16_t)value;
    else
        result.number = (uint32_t)value;
    return OPEN_OK;
}

static int writeSetting(const Setting &setting, Arguments &arguments)
{
    uint32_t key = setting.scope == FOR_SWITCH ? 0 : arguments[0].number;
    uint32_t value = arguments.back().number;
    if (!keyExists(setting.scope, key) || value < setting.lowest || value > setting.highest)
        return OPEN_BAD_ARGUMENT;
    values[{&setting, key}] = value;
    return OPEN_OK;
}

/* A row must fit its operation: the key if there is one, then the number. */
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

void serveSettings(std::span<const Setting> settings)
{
    for (const Setting &setting : settings) {
        operationWith(setting.get, setting.scope, "NHQ").run = [&setting](Arguments &arguments) {
            return readSetting(setting, arguments);
        };
        settingOf[setting.get] = &setting;
        if (setting.set)
            operationWith(setting.set, setting.scope, "n").run = [&setting](Arguments &arguments) {
                return writeSetting(setting, arguments);
            };
    }
}

uint64_t settingValue(const char *get, uint32_t key)
{
    return valueOf(*settingOf.at(get), key);
}

void setSettingValue(const char *get, uint32_t key, uint64_t value)
{
    values[{settingOf.at(get), key}] = value;
}

void resetSettings()
{
    values.clear();
}

void forgetSettings(Scope scope, uint32_t key)
{
    std::erase_if(values, [&](const auto &entry) {
        return entry.first.first->scope == scope && entry.first.second == key;
    });
}
