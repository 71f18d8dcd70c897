/*
 * route_table_test.cpp - what nobody sees of what the program registers: that each endpoint asks for a session, those that
 * later ones shadow as well. Which handler answers to what, and how, is shown by the proof and with the dispatch.
 */
#include <gtest/gtest.h>

#include "main/endpoints.h"

static void check(const RouteDir *dir)
{
    for (const RouteEntry *entry = dir->entries; entry; entry = entry->next)
        EXPECT_EQ(entry->needsSession, SESSION_ANY) << entry->name;
    for (const RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        check(child);
}

TEST(RouteTable, asksForASession)
{
    RouteTree *tree = routeTreeCreate();
    registerEndpoints(tree);
    ASSERT_NE(tree->root->firstChild, nullptr);
    check(tree->root);
    EXPECT_STREQ(httpMethodName(4), "Invalid method '4'");
}
