/*
 * neighbours.cpp - the command `neighbour`: what does a neighbour declare by the registration protocols?
 */
#include "vswitch/base/commands.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

static bool readGroup(const std::string &text, uint64_t *group)
{
    if (text == "all-groups" || text == "unregistered-groups") {
        *group = text == "all-groups" ? ALL_GROUPS : UNREGISTERED_GROUPS;
        return true;
    }
    if (!parseMac(text, group))
        return false;
    *group = isGroup(*group) ? *group : BROADCAST; /* which is never registered */
    return true;
}

static CommandOutcome moveInGroup(uint32_t port, uint64_t group, const Args &args, std::string *answer)
{
    long long vlan = portPvid(port);
    if (args.size() > 3 && (!readNumber(args[3], 1, HIGHEST_VLAN, &vlan) || !vlanExists((uint32_t)vlan)))
        return refuse(answer, "there is no VLAN \"" + args[3] + "\"; create it first");
    GroupKey key = {(uint32_t)vlan, group};
    if (args[1] == "leaves" && !withdrawGroup(port, key))
        return refuse(answer, "the neighbour on port " + args[0] + " has not joined " + args[2] + " in VLAN " +
                                  std::to_string(vlan));
    if (args[1] == "leaves")
        return COMMAND_DONE;
    if (!groupIsRegistrable(group))
        return refuse(answer, "\"" + args[2] + "\" is no group that can be registered");
    if (!declareGroup(port, key))
        return refuse(answer, "the switch has no room for another group");
    setPortNeighbour(port);
    return COMMAND_DONE;
}

/* The neighbour on the port joins or leaves a VLAN or a group. A port without a neighbour gets one. */
static CommandOutcome neighbour(const Args &args, std::string *answer)
{
    uint32_t port;
    long long vlan;
    uint64_t group;
    if (!readPort(args[0], deviceOptions().ports, &port, answer))
        return COMMAND_REFUSED;
    if (args[1] != "joins" && args[1] != "leaves")
        return refuse(answer, "a neighbour \"joins\" or \"leaves\", not \"" + args[1] + "\"");
    if (readGroup(args[2], &group))
        return moveInGroup(port, group, args, answer);
    if (args.size() > 3)
        return refuse(answer, "\"" + args[2] + "\" is no group; VLAN " + args[3] + " needs one");
    if (!readNumber(args[2], 1, HIGHEST_VLAN, &vlan))
        return refuse(answer, "there is no VLAN \"" + args[2] + "\"; use 1 to " + std::to_string(HIGHEST_VLAN));
    if (args[1] == "leaves" && !declaredVlans(port).test((size_t)vlan))
        return refuse(answer, "the neighbour on port " + args[0] + " has not joined VLAN " + args[2]);
    setPortNeighbour(port);
    neighbourDeclares(port, (uint32_t)vlan, args[1] == "joins");
    return COMMAND_DONE;
}

void registerNeighbours()
{
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "neighbour", .usage = "PORT joins|leaves VLAN", .fewest = 3, .most = 4,
         .help = "a neighbour on the port declares the VLAN by GVRP and MVRP, or withdraws it\n"
                 "neighbour PORT joins|leaves GROUP [VLAN]   the group by GMRP and MMRP, in VLAN or in the\n"
                 "port's PVID; GROUP is an address, all-groups or unregistered-groups", .run = neighbour},
    };
    registerCommands(commands);
}
