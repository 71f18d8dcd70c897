/*
 * route_table_test.cpp - every endpoint of the program, as it is registered. What each of them does is shown by the proof.
 */
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "common/answer.h"
#include "main/endpoints.h"

/* A family's registrations in their order, those that a later one shadows and the placeholders' line ends included. */
struct Family {
    int registered = 0;
    uint32_t digest = 2166136261u; /* FNV-1a */
    bool operator==(const Family &) const = default;
};

static void add(Family *family, const RouteEntry *entry)
{
    std::string line = std::string(httpMethodName(entry->method)) + " " + entry->name +
                       (entry->handler == unsupportedRead ? " -" : entry->handler == unsupportedWrite ? " |" : "") + "\n";
    for (char c : line)
        family->digest = (family->digest ^ (unsigned char)c) * 16777619u;
    family->registered++;
}

static void collect(const RouteDir *dir, const std::string &path, std::map<std::string, Family> *families, int *shadowed)
{
    std::set<std::string> seen;
    for (const RouteEntry *entry = dir->entries; entry; entry = entry->next) {
        add(&(*families)[path], entry);
        EXPECT_EQ(entry->needsSession, SESSION_ANY) << path << " " << entry->name;
        *shadowed += !seen.insert(std::string(httpMethodName(entry->method)) + entry->name).second;
    }
    for (const RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        collect(child, path + "/" + child->name, families, shadowed);
}

TEST(RouteTable, isAsItHasAlwaysBeen)
{
    const std::map<std::string, Family> expected = {
        {"/api/v2/switching/bridge", {45, 4283019690u}},
        {"/api/v2/switching/dot1ad", {43, 2473251759u}},
        {"/api/v2/switching/fdb", {24, 3583867947u}},
        {"/api/v2/switching/garp", {20, 12471547u}},
        {"/api/v2/switching/loop-protect", {27, 1999327481u}},
        {"/api/v2/switching/macal", {38, 2199009543u}},
        {"/api/v2/switching/mmrp", {10, 2972395946u}},
        {"/api/v2/switching/mvrp", {15, 180016237u}},
        {"/api/v2/switching/pbvlan", {26, 4125244119u}},
        {"/api/v2/switching/protectedport", {9, 1143841523u}},
        {"/api/v2/switching/static-filter", {29, 3223980255u}},
        {"/api/v2/switching/storm-control", {15, 1698246448u}},
        {"/api/v2/switching/vlan", {102, 2454912097u}},
        {"/api/v2/switching/vlan/association", {9, 1652095836u}},
        {"/api/v2/switching/vlan/protocol", {6, 1437428164u}},
        {"/api/v2/switching/voice-vlan", {15, 3361339642u}},
        {"/api/v2/switching/voip", {23, 1839066004u}},
    };
    std::map<std::string, Family> families;
    int shadowed = 0;
    RouteTree *tree = routeTreeCreate();
    registerEndpoints(tree);
    collect(tree->root, "", &families, &shadowed);
    EXPECT_EQ(shadowed, 18);
    for (const auto &[path, family] : families)
        EXPECT_TRUE(expected.contains(path) && expected.at(path) == family)
            << "{\"" << path << "\", {" << family.registered << ", " << family.digest << "u}},";
    EXPECT_EQ(families.size(), expected.size());
}
