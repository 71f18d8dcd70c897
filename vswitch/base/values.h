/*
 * values.h - the values in arguments: MAC addresses, OUIs, texts, VLAN lists.
 */
#ifndef VSWITCH_VALUES_H
#define VSWITCH_VALUES_H

#include <stdint.h>

#include <set>
#include <string>
#include <vector>

#include "openclt.h"

/* "00:11:22:33:44:55", "00:11:22" */
std::string macText(uint64_t mac);
std::string ouiText(uint32_t oui);

/* Read six or three octets in hexadecimal with ":" or "-" between them. False for any other text. */
bool parseMac(const std::string &text, uint64_t *mac);
bool parseOui(const std::string &text, uint32_t *oui); /* also false for groups */

enum : uint64_t { BROADCAST = 0xFFFFFFFFFFFF };

/* Is it a group address: multicast or broadcast? */
inline bool isGroup(uint64_t mac)
{
    return mac >> 40 & 1;
}

/* The text in a descriptor, up to its first zero byte. */
std::string textOf(const OpenBufferDesc *desc);

/* Stores a text and its zero byte. OPEN_OK, or OPEN_FAILED if it does not fit. */
int setText(OpenBufferDesc *desc, const std::string &text);

/* Stores the first VLAN_ID_LIST_MAX ids. */
void setList(VlanIdList *list, const std::vector<uint16_t> &ids);

/* The ids of a list. Its count is untrusted and can be too large. */
std::set<uint16_t> idsOf(const VlanIdList &list);

/* Stores the result of an operation. Returns OPEN_OK. */
inline int store(uint32_t value, uint32_t *result)
{
    *result = value;
    return OPEN_OK;
}

/* The same for "next" operations: OPEN_FAILED when there is no next one (0). */
inline int storeNext(uint32_t next, uint32_t *result)
{
    return next ? store(next, result) : (int)OPEN_FAILED;
}

/* The value of a key in a map, or `otherwise`. Unlike operator[], it does not insert the key. */
template <class Map>
typename Map::mapped_type valueIn(const Map &map, const typename Map::key_type &key,
                                  typename Map::mapped_type otherwise = {})
{
    auto found = map.find(key);
    return found == map.end() ? otherwise : found->second;
}

#endif
