/*
 * openclt.h - the OpEN RPC client library (libopenclt.so): the switch's management API as this program sees it.
 *
 * Every operation takes the client handle first and returns an OpEN result code. Numbers are uint32_t unless the list
 * of operations says otherwise; texts are OpenBufferDesc, passed by address. Results come by pointer. The value before
 * the call is sent too: it stays when the operation does not set the result.
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

/* The OpEN result codes that this program distinguishes. Any other from -29 to -1 is a plain failure. */
enum OpenCode {
    OPEN_OK = 0,
    OPEN_FAILED = -1,
    OPEN_BAD_ARGUMENT = -22,
    OPEN_EXISTS = -24,
    OPEN_RESTRICTED = -27,
    OPEN_UNSUPPORTED = -28,
    OPEN_NO_SUCH_OPERATION = -29
};

/* The client handle. Its content belongs to the library; it is larger than any known library needs. */
typedef struct OpenClient {
    unsigned char opaque[2048] __attribute__((aligned(16)));
} OpenClient;

/* A text for OpEN, or a buffer for one from it: `size` bytes, owned by the caller. */
typedef struct OpenBufferDesc {
    uint32_t size;
    char *bytes;
} OpenBufferDesc;

#define VLAN_ID_LIST_MAX 4096

/* VLAN ids in OpEN's order. The first `count` are valid. */
typedef struct VlanIdList {
    uint32_t count;
    uint16_t ids[VLAN_ID_LIST_MAX];
} VlanIdList;

typedef struct OpenApiVersion {
    uint8_t release;
    uint8_t version;
    uint8_t maintenanceLevel;
    uint8_t buildNumber;
    uint8_t reserved[60]; /* for what a library may add */
} OpenApiVersion;

static_assert(sizeof(OpenClient) == 2048, "room for the library's content");
static_assert(sizeof(OpenBufferDesc) == 2 * sizeof(char *), "the size, then the pointer");
static_assert(sizeof(VlanIdList) == 8196, "no padding");
static_assert(sizeof(OpenApiVersion) == 64, "room for what a library may add");

/*
 * Registers `client` under `clientName` (its first 99 characters). Connects only at the first operation, so the server
 * need not run yet. Returns OPEN_OK; OPEN_BAD_ARGUMENT without a name or a handle.
 */
OPENCLT_API int openapiClientRegister(const char *clientName, OpenClient *client);

/* Closes the connection, if there is one. Returns OPEN_OK; OPEN_BAD_ARGUMENT without a handle. */
OPENCLT_API int openapiClientTearDown(OpenClient *client);

#define OPEN_OPERATION(name, ...) \
    OPENCLT_API int name(OpenClient *client OPEN_EACH(OPEN_DECLARE_, __VA_ARGS__));
#include "openclt_operations.def"
#undef OPEN_OPERATION

#ifdef __cplusplus
}
#endif

#endif
