/*
 * port_list.h - sets of ports as text, such as "1,2,5-8". The empty set is the empty text.
 */
#ifndef VSWITCH_PORT_LIST_H
#define VSWITCH_PORT_LIST_H

#include <stdint.h>

#include <charconv>
#include <set>
#include <sstream>
#include <string>

#include "vswitch/switch/state.h"

/* Ascending; three or more ports in a row become a range. */
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

/* Ascending, without ranges. */
inline std::string portsSingly(const PortSet &ports)
{
    std::string text;
    for (uint32_t port : ports)
        text.append(text.empty() ? "" : ",").append(std::to_string(port));
    return text;
}

/* Accepts any order, and repetitions. False when the text is no list of existing ports or LAGs: *ports is undefined. */
inline bool parsePortList(const std::string &text, PortSet *ports)
{
    ports->clear();
    if (text.find_first_not_of("0123456789,-") != std::string::npos || text.ends_with(','))
        return false;
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        const char *end = item.data() + item.size();
        uint32_t first = 0;
        std::from_chars_result read = std::from_chars(item.data(), end, first);
        uint32_t last = first;
        if (read.ec == std::errc() && read.ptr < end && *read.ptr == '-')
            read = std::from_chars(read.ptr + 1, end, last);
        if (read.ec != std::errc() || read.ptr != end || first > last || !interfaceExists(first) ||
            !interfaceExists(last))
            return false;
        for (uint32_t port = first; port <= last; port++)
            ports->insert(port);
    }
    return true;
}

#endif
