/*
 * settings.h - the operations that only keep a number: under themselves, or for each port or VLAN.
 */
#ifndef VSWITCH_SETTINGS_H
#define VSWITCH_SETTINGS_H

#include <stdint.h>

#include <span>

/* What a setting is kept for. Its key is the operation's first parameter; one that does not exist is refused. */
enum Scope { FOR_SWITCH, FOR_PORT, FOR_VLAN };

/* The operation that reads the number, and the one that sets it (null: nothing does). */
struct Setting {
    const char *get;
    const char *set;
    Scope scope;
    uint64_t initial;
    uint64_t lowest, highest; /* what may be set; anything else is OPEN_BAD_ARGUMENT */
};

/* Serves both operations of each row. Rows must live as long as the process. */
void serveSettings(std::span<const Setting> settings);

/* The value of the setting that `get` reads, for `key` (0 for FOR_SWITCH). */
uint64_t settingValue(const char *get, uint32_t key = 0);

/* Sets it without the range check. */
void setSettingValue(const char *get, uint32_t key, uint64_t value);

/* All settings back to their initial values. */
void resetSettings();

/* What was kept for `key` under settings of `scope` is forgotten: the VLAN is gone. */
void forgetSettings(Scope scope, uint32_t key);

#endif
