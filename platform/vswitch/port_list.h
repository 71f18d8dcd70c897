/*
 * port_list.h - sets of ports as text: "1,2,5-8", port numbers and ranges between commas; no ports are no text.
 */
#ifndef VSWITCH_PORT_LIST_H
#define VSWITCH_PORT_LIST_H

#include <stdint.h>
#include <stdio.h>

#include <set>
#include <sstream>
#include <string>

#include "model.h"

using PortSet = std::set<uint32_t>;

/* Ascending, three ports or more in a row as a range. */
inline std::string portListText(const PortSet &ports)
{
    std::string text;
    for (auto at = ports.begin(); at != ports.end();) {
        uint32_t first = *at, last = first;
        while (++at != ports.end() && *at == last + 1)
            last++;
        text += (text.empty() ? "" : ",") + std::to_string(first);
        if (last != first)
            text += (last == first + 1 ? "," : "-") + std::to_string(last);
    }
    return text;
}

/* In any order, also with repetitions. False for anything but a list of ports that exist; *ports is then undefined. */
inline bool parsePortList(const std::string &text, PortSet *ports)
{
    ports->clear();
    if (text.find_first_not_of("0123456789,-") != std::string::npos || text.ends_with(','))
        return false;
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        uint32_t first = 0, last = 0;
        int length = 0;
        if (sscanf(item.c_str(), "%9u%n-%9u%n", &first, &length, &last, &length) < 2)
            last = first;
        if (item.empty() || (size_t)length != item.size() || first > last || !portExists(first) || !portExists(last))
            return false;
        for (uint32_t port = first; port <= last; port++)
            ports->insert(port);
    }
    return true;
}

#endif
