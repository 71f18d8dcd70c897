/*
 * settings.h - pairs of operations that set a number and read it back: one for the switch, or one for each port.
 */
#ifndef VSWITCH_SETTINGS_H
#define VSWITCH_SETTINGS_H

#include <stdint.h>

#include <initializer_list>
#include <map>

#include "vswitch/base/numbers.h"

/* What has the number. FOR_PORT, FOR_INTERFACE: the port is the operations' first parameter, and must exist. */
enum Scope { FOR_SWITCH, FOR_PORT, FOR_INTERFACE };

struct Setting {
    const char *name; /* the operations are rpcclt_openapi<name>Get and rpcclt_openapi<name>Set */
    Scope scope = FOR_SWITCH;
    uint64_t initial = 0;
    bool settable = false; /* there is a Set; numbers.def has the range that it accepts */
    std::map<uint32_t, uint64_t> values = {}; /* that were set: by port, 0 for the switch */
    Range range = {};                         /* of Set; registerSettings() looks it up */

    uint64_t value(uint32_t port = 0) const;
    void put(uint32_t port, uint64_t value) { values[port] = value; } /* without the range check */
};

/* Registers the operations of each setting, for resetSettings() too. The settings must live as long as the process. */
void registerSettings(std::initializer_list<Setting *> settings);

/* Gives all settings their initial values. */
void resetSettings();

#endif
