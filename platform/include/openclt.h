/*
 * openclt.h - the OpEN RPC client library (libopenclt.so): the switch's management API as this program sees it.
 *
 * Every operation takes the client handle first and returns an OpEN result code. Numbers travel as uint32_t unless
 * the operation list says otherwise, results by pointer (what the pointer holds before the call is sent along, so a
 * preset survives an operation that does not write), texts as OpenBufferDesc passed by address.
 */
#ifndef OPENCLT_H
#define OPENCLT_H

#include <assert.h>
#include <stdint.h>

#include "openclt_expand.h"

#define OPENCLT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* The OpEN result codes that have a meaning of their own here; any other value from -29 to -1 is a plain failure. */
enum OpenCode {
    OPEN_OK = 0,
    OPEN_FAILED = -1,
    OPEN_BAD_ARGUMENT = -22,
    OPEN_EXISTS = -24,
    OPEN_RESTRICTED = -27,
    OPEN_UNSUPPORTED = -28,
    OPEN_NO_SUCH_OPERATION = -29
};

/* The client handle. What a library keeps in it is its own; there is room for more than any is known to need. */
typedef struct OpenClient {
    unsigned char opaque[2048] __attribute__((aligned(16)));
} OpenClient;

/* A text on its way to or from OpEN: the bytes, which belong to the caller, and how many of them there are. */
typedef struct OpenBufferDesc {
    uint32_t size;
    char *bytes;
} OpenBufferDesc;

#define VLAN_ID_LIST_MAX 4096

/* VLAN ids in the order OpEN keeps them; `count` of them are valid. */
typedef struct VlanIdList {
    uint32_t count;
    uint16_t ids[VLAN_ID_LIST_MAX];
} VlanIdList;

typedef struct OpenApiVersion {
    uint8_t release;
    uint8_t version;
    uint8_t maintenanceLevel;
    uint8_t buildNumber;
    uint8_t reserved[60]; /* room for what a library may add */
} OpenApiVersion;

static_assert(sizeof(OpenClient) == 2048, "room for the library's own record");
static_assert(sizeof(OpenBufferDesc) == 2 * sizeof(char *), "the size, then the pointer");
static_assert(sizeof(VlanIdList) == 8196, "no gap");
static_assert(sizeof(OpenApiVersion) == 64, "room for the library's own record");

/*
 * Registers `client` under `clientName` (at most 99 characters are kept). The server need not be up: the connection is
 * made when the first operation needs it. Returns OPEN_OK, or OPEN_BAD_ARGUMENT without a name or a handle.
 */
OPENCLT_API int openapiClientRegister(const char *clientName, OpenClient *client);

/* Ends the connection, if there is one. Returns OPEN_OK, or OPEN_BAD_ARGUMENT without a handle. */
OPENCLT_API int openapiClientTearDown(OpenClient *client);

#define OPEN_OPERATION(name, ...) \
    OPENCLT_API int name(OpenClient *client OPEN_EACH(OPEN_DECLARE_, __VA_ARGS__));
#include "openclt_operations.def"
#undef OPEN_OPERATION

#ifdef __cplusplus
}
#endif

#endif
