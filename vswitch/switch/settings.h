/*
 * settings.h - pairs of operations that set a number and read it back: one for the switch, or one for each port.
 */
#ifndef VSWITCH_SETTINGS_H
#define VSWITCH_SETTINGS_H

#include <stdint.h>

#include <initializer_list>
#include <map>

/* What has the number. FOR_PORT, FOR_INTERFACE: the port is the operations' first parameter, and must exist. */
enum Scope { FOR_SWITCH, FOR_PORT, FOR_INTERFACE };

struct Setting {
    const char *name; /* the operations are rpcclt_openapi<name>Get and rpcclt_openapi<name>Set */
    Scope scope = FOR_SWITCH;
    uint64_t initial = 0;
    uint64_t lowest = 0, highest = 0; /* Set refuses other values; highest 0: there is no Set */
    std::map<uint32_t, uint64_t> values = {}; /* that were set: by port, 0 for the switch */

    uint64_t value(uint32_t port = 0) const;
    void put(uint32_t port, uint64_t value) { values[port] = value; } /* without the range check */
};

/* Registers the operations of each setting, for resetSettings() too. The settings must live as long as the process. */
void registerSettings(std::initializer_list<Setting *> settings);

/* Gives all settings their initial values. */
void resetSettings();

#endif
