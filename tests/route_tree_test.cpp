/*
 * route_tree_test.cpp - the route tree by itself.
 */
#include "httpd/route_tree.h"

#include <gtest/gtest.h>

#include <string>

static void first() {}
static void second() {}

TEST(RouteTree, findsDirectoriesBySegments)
{
    RouteTree *tree = routeTreeCreate();
    EXPECT_STREQ(tree->root->name, "");
    EXPECT_EQ(routeDirFindOrCreate(tree, ""), tree->root);
    EXPECT_EQ(routeDirFindOrCreate(tree, "///"), tree->root);
    RouteDir *dir = routeDirFindOrCreate(tree, "/a/b");
    EXPECT_STREQ(dir->name, "b");
    EXPECT_EQ(routeDirFindOrCreate(tree, "a//b/"), dir);
    EXPECT_NE(routeDirFindOrCreate(tree, "/A/b"), dir);
    EXPECT_NE(routeDirFindOrCreate(tree, "/a/bb"), dir);
    EXPECT_EQ(tree->root->firstChild->name, std::string("A")); /* newest first */

    std::string longPath = "/" + std::string(2000, 'x');
    EXPECT_EQ(std::string(routeDirFindOrCreate(tree, longPath.c_str())->name).size(), 1022u);
}

TEST(RouteTree, letsTheLaterRegistrationAnswer)
{
    RouteDir *dir = routeDirFindOrCreate(routeTreeCreate(), "/a");
    addRoute(dir, "name", HTTP_GET, first);
    addRoute(dir, "other", HTTP_GET, first);
    EXPECT_EQ(httpdAddCContent(dir, "named", 4, HTTP_PUT, SESSION_ADMIN, first), 0);
    EXPECT_EQ(routeEntryFind(dir, "name", "GET")->handler, first);
    addRoute(dir, "name", HTTP_GET, second);
    EXPECT_EQ(routeEntryFind(dir, "name", "get")->handler, second);
    EXPECT_EQ(routeEntryFind(dir, "name", "put")->needsSession, SESSION_ADMIN);
    for (const char *method : {"DELETE", "", "Invalid method '4'", (const char *)nullptr})
        EXPECT_EQ(routeEntryFind(dir, "name", method), nullptr);
    EXPECT_EQ(routeEntryFind(dir, "NAME", "GET"), nullptr);
}

TEST(RouteTree, namesMethods)
{
    EXPECT_STREQ(httpMethodName(HTTP_GET), "GET");
    EXPECT_STREQ(httpMethodName(HTTP_POST), "POST");
    EXPECT_STREQ(httpMethodName(HTTP_DELETE), "DELETE");
    EXPECT_STREQ(httpMethodName(HTTP_PUT), "PUT");
    EXPECT_STREQ(httpMethodName(4), "Invalid method '4'");
}
