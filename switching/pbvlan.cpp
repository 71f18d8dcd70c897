/*
 * pbvlan.cpp - /api/v2/switching/pbvlan: protocol-based VLAN groups. A group has a number, a name, the protocols it
 * matches, the VLAN it assigns, and the interfaces it applies to. Placeholders shadow some handlers, see the end.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static void answerPbvlan(int rc, Data data)
{
    answerData("pbvlan", openResult(rc), data);
}

/* For the POST endpoints that read the next item of a walk: with a line end after a failure. */
static void answerPbvlanWalk(int rc, Data data)
{
    answerDataOrOutcome("pbvlan", openResult(rc), data);
}

/* Groups */

static void groupGetFirst()
{
    uint32_t groupId = 0;
    int rc = rpcclt_openapiPbVlanGroupGetFirst(&openClient, &groupId);
    answerPbvlanWalk(rc, {number("groupId", groupId)});
}

/* Without a name, asks OpEN for the empty name. */
static void groupIdGet()
{
    OpenText<17> name;
    readParams({textParam("groupName", name)});
    uint32_t groupId = 0;
    int rc = rpcclt_openapiPbVlanGroupIdGet(&openClient, terminatedSized(name), &groupId);
    answerPbvlan(rc, {number("groupId", groupId)});
}

static void groupCreate()
{
    answerResult(rpcclt_openapiPbVlanGroupCreate(&openClient, queryUintExact("groupId")));
}

static void groupDelete()
{
    answerResult(rpcclt_openapiPbVlanGroupDelete(&openClient, queryUintExact("groupId")));
}

static void groupGetNext()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiPbVlanGroupGetNext(&openClient, queryUintExact("groupId"), &next);
    answerPbvlanWalk(rc, {number("nextGroupId", next)});
}

static void groupNameSet()
{
    OpenText<17> name;
    if (!readBody({textMember("groupName", name)}))
        return;
    answerResult(rpcclt_openapiPbVlanGroupNameSet(&openClient, queryUintExact("groupId"), terminatedSized(name)));
}

static void groupNameGet()
{
    OpenText<17> name;
    int rc = rpcclt_openapiPbVlanGroupNameGet(&openClient, queryUintExact("groupId"), bufferSized(name));
    answerPbvlan(rc, {string("groupName", name.bytes)});
}

static void groupVlanIdGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiPbVlanGroupVlanIDGet(&openClient, queryUintExact("groupId"), &vlanId);
    answerPbvlan(rc, {number("vlanId", vlanId)});
}

/* The protocols of a group. In a body, a protocol that is not a JSON number counts as 0. */

static void groupProtocolGet()
{
    OpenText<256> protocols;
    int rc = rpcclt_openapiPbVlanGroupProtocolGet(&openClient, queryUintExact("groupId"), bufferSized(protocols));
    answerPbvlan(rc, {string("protList", protocols.bytes)});
}

static void groupProtocolGetNext()
{
    uint32_t protocol = 0;
    if (!readBody({integerOfNumberMember("prot", &protocol)}))
        return;
    uint32_t next = 0;
    int rc = rpcclt_openapiPbVlanGroupProtocolGetNext(&openClient, queryUintExact("groupId"), protocol, &next);
    answerPbvlanWalk(rc, {number("nextProt", next)});
}

static void groupProtocolAdd()
{
    uint32_t protocol = 0;
    if (!readBody({integerOfNumberMember("prot", &protocol)}))
        return;
    uint32_t groupId = queryUintExact("groupId");
    answerResult(rpcclt_openapiPbVlanGroupProtocolAdd(&openClient, groupId, protocol));
}

/* The group comes by the exact lookup, the protocol by the loose one. */
static void groupProtocolDelete()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t protocol = 0;
    readParams({uintParam("prot", &protocol)});
    answerResult(rpcclt_openapiPbVlanGroupProtocolDelete(&openClient, groupId, protocol));
}

/* The VLAN and the interfaces of a group */

static void groupVlanIdAdd()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t vlanId = queryUintExact("vlanId");
    answerResult(rpcclt_openapiPbVlanGroupVlanIDAdd(&openClient, groupId, vlanId));
}

static void groupVlanIdDelete()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t vlanId = queryUintExact("vlanId");
    answerResult(rpcclt_openapiPbVlanGroupVlanIDDelete(&openClient, groupId, vlanId));
}

static void groupPortAdd()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t ifNum = queryUintExact("ifNum");
    answerResult(rpcclt_openapiPbVlanGroupPortAdd(&openClient, groupId, ifNum));
}

static void groupPortDelete()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t ifNum = queryUintExact("ifNum");
    answerResult(rpcclt_openapiPbVlanGroupPortDelete(&openClient, groupId, ifNum));
}

static void groupPortGetNext()
{
    uint32_t groupId = queryUintExact("groupId");
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t next = 0;
    int rc = rpcclt_openapiPbVlanGroupPortGetNext(&openClient, groupId, ifNum, &next);
    answerPbvlanWalk(rc, {number("nextIfNum", next)});
}

static void intfValidate()
{
    answerResult(rpcclt_openapiPbVlanIntfValidate(&openClient, queryUintExact("ifNum")));
}

void addPbvlanRoutes(RouteDir *dir)
{
    addRoute(dir, "group-get-first", HTTP_POST, groupGetFirst);
    addRoute(dir, "group-id", HTTP_GET, groupIdGet);
    addRoute(dir, "group", HTTP_POST, groupCreate);
    addRoute(dir, "group", HTTP_DELETE, groupDelete);
    addRoute(dir, "group-get-next", HTTP_POST, groupGetNext);
    addRoute(dir, "group-name", HTTP_PUT, groupNameSet);
    addRoute(dir, "group-name", HTTP_GET, groupNameGet);
    addRoute(dir, "group-vlan-id", HTTP_GET, groupVlanIdGet);
    addRoute(dir, "group-protocol", HTTP_GET, groupProtocolGet);
    addRoute(dir, "group-protocol-get-next", HTTP_POST, groupProtocolGetNext);
    addRoute(dir, "group-protocol", HTTP_POST, groupProtocolAdd);
    addRoute(dir, "group-protocol", HTTP_DELETE, groupProtocolDelete);
    addRoute(dir, "group-vlan-id", HTTP_POST, groupVlanIdAdd);
    addRoute(dir, "group-vlan-id", HTTP_DELETE, groupVlanIdDelete);
    addRoute(dir, "group-port", HTTP_POST, groupPortAdd);
    addRoute(dir, "group-port", HTTP_DELETE, groupPortDelete);
    addRoute(dir, "group-port-get-next", HTTP_POST, groupPortGetNext);
    addRoute(dir, "intf-validate", HTTP_POST, intfValidate);
}

/*
 * Placeholders, registered after the handlers above. They shadow all handlers of group-vlan-id and group-port, and the
 * GET of group-name. No request reaches those handlers; they stay, as established behaviour.
 */

void addPbvlanVlanIdPlaceholderRoutes(RouteDir *dir)
{
    addRoute(dir, "group-vlan-id", HTTP_GET, unsupportedRead);
    addRoute(dir, "group-vlan-id", HTTP_POST, unsupportedWrite);
    addRoute(dir, "group-vlan-id", HTTP_DELETE, unsupportedWrite);
}

void addPbvlanNamePortPlaceholderRoutes(RouteDir *dir)
{
    addRoute(dir, "group-name", HTTP_GET, unsupportedRead);
    addRoute(dir, "group-name", HTTP_POST, unsupportedWrite);
    addRoute(dir, "group-name", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "group-port", HTTP_POST, unsupportedWrite);
    addRoute(dir, "group-port", HTTP_DELETE, unsupportedWrite);
}
