/*
 * route_table_test.cpp - every endpoint of the program: how many there are, who answers, and whom none of them lets in.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "common/answer.h"
#include "main/endpoints.h"
#include "tests/support/driver.h"

static const std::string root = "/api/v2/switching/";

struct Endpoint {
    std::string path; /* of the directory, below the root */
    const RouteDir *dir;
    const RouteEntry *entry;

    std::string key() const { return path + " " + httpMethodName(entry->method) + " " + entry->name; }
};

static void collect(const RouteDir *dir, const std::string &path, std::vector<Endpoint> *endpoints)
{
    for (const RouteEntry *entry = dir->entries; entry; entry = entry->next)
        endpoints->push_back({path.substr(std::min(path.size(), root.size())), dir, entry});
    for (const RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        collect(child, path + "/" + child->name, endpoints);
}

/* All registrations; within a directory the newest first. */
static const std::vector<Endpoint> &allEndpoints()
{
    static const std::vector<Endpoint> endpoints = [] {
        std::vector<Endpoint> found;
        RouteTree *tree = routeTreeCreate();
        registerEndpoints(tree);
        collect(tree->root, "", &found);
        return found;
    }();
    return endpoints;
}

static bool isUnsupported(const RouteEntry *entry)
{
    return entry->handler == unsupportedRead || entry->handler == unsupportedWrite;
}

TEST(RouteTable, holdsEveryFamily)
{
    std::map<std::string, int> counts;
    for (const Endpoint &endpoint : allEndpoints())
        counts[endpoint.path]++;
    const std::map<std::string, int> expected = {
        {"bridge", 45},     {"dot1ad", 43},       {"fdb", 24},           {"garp", 20},
        {"loop-protect", 27}, {"macal", 38},      {"pbvlan", 26},        {"protectedport", 9},
        {"static-filter", 29}, {"storm-control", 15}, {"voice-vlan", 15}, {"voip", 23},
        {"vlan", 102},      {"vlan/association", 9}, {"vlan/protocol", 6}, {"mvrp", 15},
        {"mmrp", 10},
    };
    EXPECT_EQ(counts, expected);
    EXPECT_EQ(allEndpoints().size(), 456u);
}

TEST(RouteTable, leadsEveryPathToAHandlerBehindTheSessionCheck)
{
    for (const auto &[path, dir, entry] : allEndpoints()) {
        EXPECT_NE(entry->handler, nullptr) << path << " " << entry->name;
        EXPECT_EQ(entry->needsSession, SESSION_ANY) << path << " " << entry->name;
        const RouteEntry *found = routeEntryFind(dir, entry->name, httpMethodName(entry->method));
        ASSERT_NE(found, nullptr) << path << " " << entry->name;
        EXPECT_STREQ(found->name, entry->name);
        EXPECT_EQ(found->method, entry->method) << path << " " << entry->name;
    }
}

TEST(RouteTable, letsTheLaterOfTwoRegistrationsAnswer)
{
    /* In pbvlan what works was registered first and is out of reach, in vlan it is the other way round. */
    std::map<std::string, bool> works = {
        {"pbvlan GET group-name", false},
        {"pbvlan GET group-vlan-id", false},
        {"pbvlan POST group-vlan-id", false},
        {"pbvlan DELETE group-vlan-id", false},
        {"pbvlan POST group-port", false},
        {"pbvlan DELETE group-port", false},
        {"vlan PUT if-pvid", true},
        {"vlan PUT if-tagging", true},
        {"vlan GET if-participation", true},
        {"vlan PUT if-participation", true},
        {"vlan GET if-accept-frame-type", true},
        {"vlan PUT if-accept-frame-type", true},
        {"vlan GET qports-enable-ingress-filtering", true},
        {"vlan PUT qports-enable-ingress-filtering", true},
        {"vlan GET if-default-user-priority", true},
        {"vlan PUT if-default-user-priority", true},
        {"vlan GET dot1q-sw-port-tagged-vlan-list", true},
        {"vlan GET if-pvid", false}, /* neither works */
    };
    std::map<std::string, std::vector<const RouteEntry *>> registered;
    for (const Endpoint &endpoint : allEndpoints())
        registered[endpoint.key()].push_back(endpoint.entry);
    std::erase_if(registered, [](const auto &one) { return one.second.size() == 1; });
    EXPECT_EQ(registered.size(), works.size());

    for (const Endpoint &endpoint : allEndpoints()) {
        auto found = registered.find(endpoint.key());
        if (found == registered.end())
            continue;
        SCOPED_TRACE(found->first);
        ASSERT_EQ(found->second.size(), 2u);
        const RouteEntry *later = found->second[0], *earlier = found->second[1];
        EXPECT_EQ(routeEntryFind(endpoint.dir, later->name, httpMethodName(later->method)), later);
        ASSERT_TRUE(works.contains(found->first));
        EXPECT_EQ(!isUnsupported(later), works[found->first]);
        EXPECT_EQ(isUnsupported(earlier), works[found->first] || found->first == "vlan GET if-pvid");
    }
}

class RouteTableGate : public SwitchTest {};

TEST_F(RouteTableGate, refusesEveryEndpointWithoutASession)
{
    for (const auto &[path, dir, entry] : allEndpoints()) {
        Environment environment = request(httpMethodName(entry->method), path + "/" + entry->name, "{}");
        environment.erase("HTTP_SESSION");
        Outcome outcome = run(environment, "{}");
        EXPECT_EQ(outcome.output, "Status:403\r\n\r\n") << path << " " << entry->name;
        EXPECT_EQ(outcome.exitStatus, 0) << path << " " << entry->name;
    }
    EXPECT_EQ(takeTrace(), "");
}
