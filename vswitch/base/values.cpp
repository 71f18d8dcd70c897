/*
 * values.cpp - converts addresses, texts and VLAN lists.
 */
#include "vswitch/base/values.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

std::string macText(uint64_t mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", (unsigned)(mac >> 40 & 0xFF),
             (unsigned)(mac >> 32 & 0xFF), (unsigned)(mac >> 24 & 0xFF), (unsigned)(mac >> 16 & 0xFF),
             (unsigned)(mac >> 8 & 0xFF), (unsigned)(mac & 0xFF));
    return text;
}

std::string ouiText(uint32_t oui)
{
    return macText((uint64_t)oui << 24).substr(0, 8);
}

static bool parseOctets(const std::string &text, size_t octets, uint64_t *value)
{
    if (text.size() != 3 * octets - 1)
        return false;
    uint64_t read = 0;
    for (size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (i % 3 == 2) {
            if (c != ':' && c != '-')
                return false;
            continue;
        }
        if (!isxdigit((unsigned char)c))
            return false;
        read = read << 4 | (uint64_t)(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    }
    *value = read;
    return true;
}

bool parseMac(const std::string &text, uint64_t *mac)
{
    return parseOctets(text, 6, mac);
}

bool parseOui(const std::string &text, uint32_t *oui)
{
    uint64_t octets;
    if (!parseOctets(text, 3, &octets) || isGroup(octets << 24))
        return false;
    *oui = (uint32_t)octets;
    return true;
}

std::string textOf(const OpenBufferDesc *desc)
{
    return {desc->bytes, strnlen(desc->bytes, desc->size)};
}

int setText(OpenBufferDesc *desc, const std::string &text)
{
    if (text.size() >= desc->size)
        return OPEN_FAILED;
    memcpy(desc->bytes, text.c_str(), text.size() + 1);
    return OPEN_OK;
}

void setList(VlanIdList *list, const std::vector<uint16_t> &ids)
{
    *list = {};
    list->count = (uint32_t)std::min<size_t>(ids.size(), VLAN_ID_LIST_MAX);
    std::copy_n(ids.begin(), list->count, list->ids);
}

std::set<uint16_t> idsOf(const VlanIdList &list)
{
    return {list.ids, list.ids + std::min<uint32_t>(list.count, VLAN_ID_LIST_MAX)};
}
