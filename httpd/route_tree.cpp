/*
 * route_tree.cpp - the tree of endpoint directories. Every CGI process builds the whole tree, so it must be cheap:
 * nodes and names come from a few large blocks, and a new node goes to the head of its list.
 */
#include "httpd/route_tree.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "log/log.h"

enum { PATH_MAX_BYTES = 1023, BLOCK_BYTES = 32 * 1024 };

static char *block; /* the unused rest of the newest block */
static size_t blockLeft;

static bool newBlock()
{
    block = (char *)malloc(BLOCK_BYTES);
    blockLeft = block ? BLOCK_BYTES : 0;
    return block;
}

/* Memory for the tree, never freed; null: out of memory. `size` must be below BLOCK_BYTES. */
static inline void *treeAllocate(size_t size)
{
    size = (size + alignof(void *) - 1) & ~(alignof(void *) - 1);
    if (size > blockLeft && !newBlock())
        return nullptr;
    void *memory = block;
    block += size;
    blockLeft -= size;
    return memory;
}

/* A new node. The first `length` bytes of the name are copied right behind it. Null: out of memory. */
template <class Node> static inline Node *newNode(const char *name, size_t length)
{
    Node *node = (Node *)treeAllocate(sizeof(Node) + length + 1);
    if (!node)
        return nullptr;
    char *copy = (char *)(node + 1);
    memcpy(copy, name, length);
    copy[length] = 0;
    *node = {};
    node->name = copy;
    return node;
}

RouteTree *routeTreeCreate()
{
    RouteTree *tree = (RouteTree *)treeAllocate(sizeof(RouteTree));
    if (!tree)
        return nullptr;
    tree->root = newNode<RouteDir>("", 0);
    return tree->root ? tree : nullptr;
}

static RouteDir *childFind(RouteDir *dir, const char *name, size_t length)
{
    for (RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        if (child->name[0] == name[0] && strncmp(child->name, name, length) == 0 && child->name[length] == 0)
            return child;
    return nullptr;
}

static RouteDir *childFindOrCreate(RouteDir *dir, const char *name, size_t length)
{
    RouteDir *child = childFind(dir, name, length);
    if (child)
        return child;
    child = newNode<RouteDir>(name, length);
    if (child) {
        child->nextSibling = dir->firstChild;
        dir->firstChild = child;
    }
    return child;
}

/* Walks from `dir` along the path, by `step` for each segment. */
template <class Step> static inline RouteDir *walk(RouteDir *dir, const char *path, Step step)
{
    const char *end = path + strnlen(path, PATH_MAX_BYTES);
    while (dir && path < end) {
        const char *slash = (const char *)memchr(path, '/', (size_t)(end - path));
        if (!slash)
            slash = end;
        if (slash > path)
            dir = step(dir, path, (size_t)(slash - path));
        path = slash + 1;
    }
    return dir;
}

RouteDir *routeDirFindOrCreate(RouteTree *tree, const char *path)
{
    return walk(tree->root, path, childFindOrCreate);
}

RouteDir *routeDirFind(const RouteTree *tree, const char *path)
{
    return walk(tree->root, path, childFind);
}

int httpdAddCContent(RouteDir *dir, const char *name, size_t length, uint32_t method, uint32_t needsSession,
                     RouteHandler handler)
{
    if (!dir) {
        LOG(LEVEL_ERROR, "httpdAddCContent, dirPtr == NULL\n");
        return -1;
    }
    RouteEntry *entry = newNode<RouteEntry>(name, length);
    if (!entry) {
        LOG(LEVEL_ERROR, "httpdAddCContent, newEntry == NULL\n");
        return -1;
    }
    entry->method = method;
    entry->needsSession = needsSession;
    entry->handler = handler;
    entry->next = dir->entries;
    dir->entries = entry;
    return 0;
}

RouteEntry *routeEntryFind(const RouteDir *dir, const char *name, const char *methodName)
{
    if (!methodName)
        return nullptr;
    for (RouteEntry *entry = dir->entries; entry; entry = entry->next)
        if (strcmp(entry->name, name) == 0 && strcasecmp(httpMethodName(entry->method), methodName) == 0)
            return entry;
    return nullptr;
}

const char *httpMethodName(uint32_t method)
{
    static const char *const names[] = {"GET", "POST", "DELETE", "PUT"};
    static char invalid[255];
    if (method < sizeof names / sizeof names[0])
        return names[method];
    snprintf(invalid, sizeof invalid, "Invalid method '%d'", (int)method);
    return invalid;
}
