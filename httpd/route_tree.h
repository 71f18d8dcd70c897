/*
 * route_tree.h - which handler serves which path and method. Each process builds its tree and never frees it.
 */
#ifndef HTTPD_ROUTE_TREE_H
#define HTTPD_ROUTE_TREE_H

#include <stddef.h>
#include <stdint.h>

enum HttpMethodCode : uint32_t { HTTP_GET = 0, HTTP_POST = 1, HTTP_DELETE = 2, HTTP_PUT = 3 };

/* The session an endpoint needs. No endpoint uses NONE or ADMIN; they stay, as the session check supports them. */
enum SessionNeed : uint32_t { SESSION_NONE = 0, SESSION_ANY = 1, SESSION_ADMIN = 2 };

/* A handler reads the request and prints the body. */
typedef void (*RouteHandler)();

struct RouteEntry {
    const char *name; /* a copy that the entry owns */
    uint32_t method;
    uint32_t needsSession;
    RouteHandler handler;
    RouteEntry *next;
};

/* Lists are kept newest first: of two entries with the same name and method, the later one answers. */
struct RouteDir {
    const char *name; /* a copy that the directory owns; "" for the root */
    RouteDir *firstChild;
    RouteDir *nextSibling;
    RouteEntry *entries;
};

struct RouteTree {
    RouteDir *root;
};

/* Returns a tree that has only its root; null: out of memory. */
RouteTree *routeTreeCreate();

/*
 * Finds the directory at `path` and creates every directory that is missing. Reads at most 1023 bytes of `path` and
 * skips empty segments. Null: out of memory.
 */
RouteDir *routeDirFindOrCreate(RouteTree *tree, const char *path);

/* Finds the directory, by the same rules, but creates none. Null: it is not there. */
RouteDir *routeDirFind(const RouteTree *tree, const char *path);

/*
 * Registers an endpoint named by the first `length` bytes of `name`, even if there is one of that name. Returns 0; logs
 * and returns -1 when `dir` is null or memory is out. Look `dir` up once for many endpoints: one walk for each would
 * cost more than the rest of a request.
 */
int httpdAddCContent(RouteDir *dir, const char *name, size_t length, uint32_t method, uint32_t needsSession,
                     RouteHandler handler);

/*
 * Registers an endpoint that needs a session, like every endpoint of this interface. Calls are cheaper than a table:
 * the dynamic linker would relocate a table's addresses at every start.
 */
template <size_t N>
inline void addRoute(RouteDir *dir, const char (&name)[N], HttpMethodCode method, RouteHandler handler)
{
    httpdAddCContent(dir, name, N - 1, method, SESSION_ANY, handler);
}

/* Finds the newest entry with exactly that name, and that method in upper or lower case; null: none. */
RouteEntry *routeEntryFind(const RouteDir *dir, const char *name, const char *methodName);

/* "GET", "POST", "DELETE" or "PUT"; for any other code "Invalid method '%d'", in a static buffer. */
const char *httpMethodName(uint32_t method);

#endif
