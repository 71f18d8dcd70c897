/*
 * protected_port.cpp - /api/v2/switching/protectedport: groups of protected ports, their names and members. The body
 * has the name of a group; the query string has everything else, with any method.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

/* In bytes: the text of one member of a list, and the smallest buffer for a list. */
constexpr uint64_t MEMBER_BYTES = 16, MEMBER_LIST_MIN = 1024;

static void answerProtectedPort(int rc, Data data)
{
    answerData("protectedport", openResult(rc), data);
}

/* Groups */

static void maxGroups()
{
    uint32_t max = 0;
    int rc = rpcclt_openapiProtectedPortMaxGroups(&openClient, &max);
    answerDataOrOutcome("protectedport", openResult(rc), {number("maxGroupNum", max)});
}

static void groupNameGet()
{
    OpenText<49> name;
    int rc = rpcclt_openapiProtectedPortGroupNameGet(&openClient, queryUintExact("groupId"), bufferSized(name));
    answerProtectedPort(rc, {string("groupName", name.bytes)});
}

/* OpEN limits the length of the name. */
static void groupNameSet()
{
    LongText name;
    if (!readBody({required(longTextMember("groupName", name))}))
        return;
    uint32_t groupId = queryUintExact("groupId");
    answerResult(rpcclt_openapiProtectedPortGroupNameSet(&openClient, groupId, terminatedSized(name)));
    longTextFree(name);
}

static void groupIntfCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiProtectedPortGroupIntfCountGet(&openClient, queryUintExact("groupId"), &count);
    answerProtectedPort(rc, {number("intfCount", count)});
}

/* The size of the buffer for a list of `count` members. */
static uint64_t memberListSize(uint32_t count)
{
    uint64_t size = count * MEMBER_BYTES + 1;
    return size < MEMBER_LIST_MIN ? MEMBER_LIST_MIN : size;
}

/* Out of memory for the list: answers 10000, an exception of memory.h (established behaviour). */
static void groupIntfListGet()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t count = 0;
    int rc = rpcclt_openapiProtectedPortGroupIntfCountGet(&openClient, groupId, &count);
    if (rc != OPEN_OK)
        return answerProtectedPort(rc, {});
    LongText members;
    if (!longTextReserve(members, memberListSize(count)))
        return answerData("protectedport", ResultCode::GENERAL_FAILED, {});
    rc = rpcclt_openapiProtectedPortGroupIntfListGet(&openClient, groupId, bufferSized(members));
    answerProtectedPort(rc, {string("intfList", members.bytes)});
    longTextFree(members);
}

/* Members */

static void groupGet()
{
    uint32_t groupId = 0;
    int rc = rpcclt_openapiProtectedPortGroupGet(&openClient, queryUintExact("ifNum"), &groupId);
    answerProtectedPort(rc, {number("groupId", groupId)});
}

static void nextGroupGet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t groupId = queryUintExact("groupId");
    uint32_t nextIfNum = 0, nextGroupId = 0;
    int rc = rpcclt_openapiProtectedPortNextGroupGet(&openClient, ifNum, groupId, &nextIfNum, &nextGroupId);
    answerProtectedPort(rc, {number("nextIfNum", nextIfNum), number("nextGroupId", nextGroupId)});
}

static void groupIntfAdd()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t groupId = queryUintExact("groupId");
    answerResult(rpcclt_openapiProtectedPortGroupIntfAdd(&openClient, ifNum, groupId));
}

static void groupIntfDelete()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t groupId = queryUintExact("groupId");
    answerResult(rpcclt_openapiProtectedPortGroupIntfDelete(&openClient, ifNum, groupId));
}

void addProtectedPortRoutes(RouteDir *dir)
{
    addRoute(dir, "max-groups", HTTP_POST, maxGroups);
    addRoute(dir, "group-name", HTTP_GET, groupNameGet);
    addRoute(dir, "group-name", HTTP_PUT, groupNameSet);
    addRoute(dir, "group-intf-count", HTTP_GET, groupIntfCountGet);
    addRoute(dir, "group-intf-list", HTTP_GET, groupIntfListGet);
    addRoute(dir, "group", HTTP_GET, groupGet);
    addRoute(dir, "next-group", HTTP_GET, nextGroupGet);
    addRoute(dir, "group-intf", HTTP_POST, groupIntfAdd);
    addRoute(dir, "group-intf", HTTP_DELETE, groupIntfDelete);
}
