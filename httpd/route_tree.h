/*
 * route_tree.h - which handler serves which path and method. Built anew by every process, never freed.
 */
#ifndef HTTPD_ROUTE_TREE_H
#define HTTPD_ROUTE_TREE_H

#include <stddef.h>
#include <stdint.h>

enum HttpMethodCode : uint32_t { HTTP_GET = 0, HTTP_POST = 1, HTTP_DELETE = 2, HTTP_PUT = 3 };

/* What an endpoint asks of the caller's session. */
enum SessionNeed : uint32_t { SESSION_NONE = 0, SESSION_ANY = 1, SESSION_ADMIN = 2 };

/* A handler reads its input and prints its body itself. */
typedef void (*RouteHandler)();

struct RouteEntry {
    const char *name; /* owned */
    uint32_t method;
    uint32_t needsSession;
    RouteHandler handler;
    RouteEntry *next;
};

/* Its lists are kept newest first: of two entries with one name and method, the one registered later answers. */
struct RouteDir {
    const char *name; /* owned; "" for the root */
    RouteDir *firstChild;
    RouteDir *nextSibling;
    RouteEntry *entries;
};

struct RouteTree {
    RouteDir *root;
};

/* A tree with nothing but its root, or null when memory is out. */
RouteTree *routeTreeCreate();

/*
 * The directory at `path` (at most 1023 bytes of it count, empty segments are skipped); directories that are missing on
 * the way are created. Null when memory is out.
 */
RouteDir *routeDirFindOrCreate(RouteTree *tree, const char *path);

/*
 * Registers an endpoint whose name is the first `length` bytes of `name`; no test for duplicates is made. Returns 0, or
 * -1 when memory is out or there is no directory, which is logged. The directory is looked up once for many endpoints:
 * a walk for each would cost more than all the rest of a request.
 */
int httpdAddCContent(RouteDir *dir, const char *name, size_t length, uint32_t method, uint32_t needsSession,
                     RouteHandler handler);

/*
 * How the families write it: an endpoint that asks for a session, like all of this interface. The compiler measures its
 * name. It is code, not a table: the addresses in one would have to be relocated at every start.
 */
template <size_t N>
inline void addRoute(RouteDir *dir, const char (&name)[N], HttpMethodCode method, RouteHandler handler)
{
    httpdAddCContent(dir, name, N - 1, method, SESSION_ANY, handler);
}

/* The newest entry of `dir` with exactly that name and, ignoring case, that method; null when there is none. */
RouteEntry *routeEntryFind(const RouteDir *dir, const char *name, const char *methodName);

/* "GET" and so on; "Invalid method '%d'" in a static buffer for any other code. */
const char *httpMethodName(uint32_t method);

#endif
