/*
 * settings.h - the operations that only keep a number: for the switch, or for each port.
 */
#ifndef VSWITCH_SETTINGS_H
#define VSWITCH_SETTINGS_H

#include <stdint.h>

#include <initializer_list>
#include <map>

/* What a setting is kept for. A port or interface is the operation's first parameter; one that is not is refused. */
enum Scope { FOR_SWITCH, FOR_PORT, FOR_INTERFACE };

/* A number with the operation that reads it, and the one that sets it (null: nothing does). */
struct Setting {
    const char *get;
    const char *set = nullptr;
    Scope scope = FOR_SWITCH;
    uint64_t initial = 0;
    uint64_t lowest = 0, highest = 0; /* what may be set; anything else is OPEN_BAD_ARGUMENT */
    std::map<uint32_t, uint64_t> values = {}; /* by port, 0 for the switch; without those that are as at start */

    uint64_t value(uint32_t port = 0) const;
    void put(uint32_t port, uint64_t value) { values[port] = value; } /* without the range check */
};

/* Registers both operations of each, and takes each back to its initial value at a reset. They live as long as the process. */
void registerSettings(std::initializer_list<Setting *> settings);

/* All settings back to their initial values. */
void resetSettings();

#endif
