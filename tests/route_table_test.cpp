/*
 * route_table_test.cpp - what nobody sees of what the program registers: the endpoints that later ones shadow, and that
 * each asks for a session. Which handler answers to what, and how, is shown by the proof and with the dispatch.
 */
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "main/endpoints.h"

struct Registered {
    int all = 0, shadowed = 0;
};

static void count(const RouteDir *dir, Registered *registered)
{
    std::set<std::string> seen;
    for (const RouteEntry *entry = dir->entries; entry; entry = entry->next) {
        EXPECT_EQ(entry->needsSession, SESSION_ANY) << entry->name;
        registered->all++;
        registered->shadowed += !seen.insert(std::string(httpMethodName(entry->method)) + entry->name).second;
    }
    for (const RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        count(child, registered);
}

TEST(RouteTable, isAsItHasAlwaysBeen)
{
    RouteTree *tree = routeTreeCreate();
    registerEndpoints(tree);
    Registered registered;
    count(tree->root, &registered);
    EXPECT_EQ(registered.all, 456);
    EXPECT_EQ(registered.shadowed, 18);
    EXPECT_STREQ(httpMethodName(4), "Invalid method '4'");
}
