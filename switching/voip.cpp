/*
 * voip.cpp - /api/v2/switching/voip: automatic prioritisation of VoIP traffic, by protocol and by the OUI of a phone's
 * MAC address. An OUI is a text, cut to 8 characters, its description to 32. Their descriptors state the length of the
 * text.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

using Oui = OpenText<9>;
using OuiDescription = OpenText<33>;

enum : uint32_t { SCHEME_REMARK = 1, SCHEME_TRAFFIC_CLASS = 2 };
enum : uint32_t { MODE_TYPE_PROTOCOL = 1, MODE_TYPE_OUI = 2 };
enum : uint32_t { STATUS_UP = 0, STATUS_DOWN = 1 };

static constexpr NamedCode schemeRows[] = {{SCHEME_REMARK, "remark"}, {SCHEME_TRAFFIC_CLASS, "trafficClass"}};
static constexpr NameTable schemeNames = nameTable(schemeRows);

static constexpr NamedCode modeTypeRows[] = {{MODE_TYPE_PROTOCOL, "protocol"}};
static constexpr NameTable modeTypeNames = nameTable(modeTypeRows);

static constexpr NamedCode enableRows[] = {{0, "disable"}, {1, "enable"}};
static constexpr NameTable enableNames = nameTable(enableRows);

static constexpr NamedCode statusRows[] = {{STATUS_UP, "up"}, {STATUS_DOWN, "down"}};
static constexpr NameTable statusNames = nameTable(statusRows);

static void answerVoip(int rc, Data data)
{
    answerData("voip", openResult(rc), data);
}

/* The VoIP VLAN and what the switch carries */

static void globalVlanIdReset()
{
    answerResult(rpcclt_openapiVoipGlobalVlanIdReset(&openClient));
}

static void globalVlanIdGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiVoipGlobalVlanIdGet(&openClient, &vlanId);
    answerVoip(rc, {number("vlanId", vlanId)});
}

static void maxCallsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiVoipMaxCallsGet(&openClient, &count);
    answerVoip(rc, {number("maxCalls", count)});
}

static void numActiveProtocolSessionsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiVoipNumActiveProtocolSessionsGet(&openClient, &count);
    answerVoip(rc, {number("sessions", count)});
}

/* Priorities */

static void profileCosQueueGet()
{
    uint32_t scheme = 0;
    uint32_t value = 0;
    int rc = rpcclt_openapiVoipProfileCosQueueGet(&openClient, &scheme, &value);
    answerVoip(rc, {codeName("pType", schemeNames, scheme, "unknown"), number("pTypeVal", value)});
}

/* Sets as "priScheme" and "value" what the GET answers as "pType" and "pTypeVal": established behaviour. */
static void profileCosQueueSet()
{
    uint32_t scheme = SCHEME_TRAFFIC_CLASS;
    uint32_t value = 0;
    if (!readBody({codeMember("priScheme", schemeNames, &scheme), integerMember("value", &value)}))
        return;
    answerResult(rpcclt_openapiVoipProfileCosQueueSet(&openClient, scheme, value));
}

static void ouiPriorityGet()
{
    uint32_t priority = 0;
    int rc = rpcclt_openapiVoipOUIPriorityGet(&openClient, &priority);
    answerVoip(rc, {number("priority", priority)});
}

static void ouiPrioritySet()
{
    uint32_t priority = 0;
    if (!readBody({integerMember("priority", &priority)}))
        return;
    answerResult(rpcclt_openapiVoipOUIPrioritySet(&openClient, priority));
}

/* The table of OUIs, by OUI */

static void ouiAdd()
{
    Oui oui;
    OuiDescription description;
    if (!readBody({textMember("voipOui", oui), textMember("ouiDesc", description)}))
        return;
    answerResult(rpcclt_openapiVoipOuiAdd(&openClient, lengthSized(oui), lengthSized(description)));
}

/* The query string must be JSON, not percent-encoded: established behaviour. */
static void ouiRemove()
{
    Oui oui;
    if (!readBody({textMember("voipOui", oui)}))
        return;
    answerResult(rpcclt_openapiVoipOuiRemove(&openClient, lengthSized(oui)));
}

static void ouiCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiVoipOuiCountGet(&openClient, &count);
    answerVoip(rc, {number("ouiCount", count)});
}

static void ouiFirstEntryGet()
{
    Oui oui;
    OuiDescription description;
    int rc = rpcclt_openapiVoipOuiFirstEntryGet(&openClient, bufferSized(oui), bufferSized(description));
    answerVoip(rc, {string("voipOui", oui.bytes), string("ouiDesc", description.bytes)});
}

static void ouiDescGet()
{
    Oui oui;
    OuiDescription description;
    readParams({textParam("voipOui", oui)});
    int rc = rpcclt_openapiVoipOuiDescGet(&openClient, lengthSized(oui), bufferSized(description));
    answerVoip(rc, {string("ouiDesc", description.bytes)});
}

static void ouiNextEntryGet()
{
    Oui oui;
    Oui next;
    OuiDescription nextDescription;
    readParams({textParam("voipOui", oui)});
    int rc = rpcclt_openapiVoipOuiNextEntryGet(&openClient, lengthSized(oui), bufferSized(next),
                                               bufferSized(nextDescription));
    answerVoip(rc, {string("nextVoipOui", next.bytes), string("nextOuiDesc", nextDescription.bytes)});
}

/* Reads the VLAN from the query string, not from the body. */
static void globalVlanIdSet()
{
    answerResult(rpcclt_openapiVoipGlobalVlanIdSet(&openClient, queryUintExact("vlanId")));
}

/* Interfaces */

/* Asks for both modes, even if the first fails; answers the first failure. */
static void intfModeGet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t protocol = 0;
    uint32_t oui = 0;
    int protocolRc = rpcclt_openapiVoipIntfModeGet(&openClient, ifNum, MODE_TYPE_PROTOCOL, &protocol);
    int ouiRc = rpcclt_openapiVoipIntfModeGet(&openClient, ifNum, MODE_TYPE_OUI, &oui);
    answerVoip(protocolRc != OPEN_OK ? protocolRc : ouiRc,
               {codeName("protocolMode", enableNames, protocol, "disable"),
                codeName("ouiMode", enableNames, oui, "disable")});
}

static void intfModeSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t type = MODE_TYPE_OUI;
    uint32_t flag = 0;
    if (!readBody({codeMember("type", modeTypeNames, &type), codeMember("mode", enableNames, &flag)}))
        return;
    answerResult(rpcclt_openapiVoipIntfModeSet(&openClient, ifNum, type, flag));
}

/* A status that OpEN does not set is "down". */
static void intfProtocolStatusGet()
{
    uint32_t status = STATUS_DOWN;
    int rc = rpcclt_openapiVoipIntfProtocolStatusGet(&openClient, queryUintExact("ifNum"), &status);
    answerVoip(rc, {codeName("status", statusNames, status, "down")});
}

static void intfOuiStatusGet()
{
    uint32_t status = STATUS_DOWN;
    int rc = rpcclt_openapiVoipIntfOUIStatusGet(&openClient, queryUintExact("ifNum"), &status);
    answerVoip(rc, {codeName("status", statusNames, status, "down")});
}

/* The table of OUIs, by index */

static void ouiEntryGet()
{
    Oui oui;
    OuiDescription description;
    uint32_t index = queryUintExact("ouiIndex");
    int rc = rpcclt_openapiVoipOuiEntryGet(&openClient, index, bufferSized(oui), bufferSized(description));
    answerVoip(rc, {string("voipOui", oui.bytes), string("ouiDesc", description.bytes)});
}

static void ouiEntryNextGet()
{
    uint32_t index = queryUintExact("ouiIndex");
    Oui oui;
    OuiDescription description;
    uint32_t next = 0;
    int rc = rpcclt_openapiVoipOuiEntryNextGet(&openClient, index, bufferSized(oui), bufferSized(description), &next);
    answerVoip(rc, {string("voipOui", oui.bytes), string("ouiDesc", description.bytes), number("nextOuiIndex", next)});
}

static void indexOuiAdd()
{
    uint32_t index = queryUintExact("ouiIndex");
    Oui oui;
    OuiDescription description;
    if (!readBody({textMember("voipOui", oui), textMember("ouiDesc", description)}))
        return;
    answerResult(rpcclt_openapiVoipIndexOuiAdd(&openClient, index, lengthSized(oui), lengthSized(description)));
}

static void indexOuiRemove()
{
    answerResult(rpcclt_openapiVoipIndexOuiRemove(&openClient, queryUintExact("ouiIndex")));
}

void addVoipRoutes(RouteDir *dir)
{
    addRoute(dir, "global-vlan-id-reset", HTTP_POST, globalVlanIdReset);
    addRoute(dir, "global-vlan-id", HTTP_GET, globalVlanIdGet);
    addRoute(dir, "max-calls", HTTP_GET, maxCallsGet);
    addRoute(dir, "num-active-protocol-sessions", HTTP_GET, numActiveProtocolSessionsGet);
    addRoute(dir, "profile-cos-queue", HTTP_GET, profileCosQueueGet);
    addRoute(dir, "profile-cos-queue", HTTP_PUT, profileCosQueueSet);
    addRoute(dir, "oui-priority", HTTP_GET, ouiPriorityGet);
    addRoute(dir, "oui-priority", HTTP_PUT, ouiPrioritySet);
    addRoute(dir, "oui", HTTP_POST, ouiAdd);
    addRoute(dir, "oui", HTTP_DELETE, ouiRemove);
    addRoute(dir, "oui-count", HTTP_GET, ouiCountGet);
    addRoute(dir, "oui-first-entry", HTTP_GET, ouiFirstEntryGet);
    addRoute(dir, "oui-desc", HTTP_GET, ouiDescGet);
    addRoute(dir, "oui-next-entry", HTTP_GET, ouiNextEntryGet);
    addRoute(dir, "global-vlan-id", HTTP_PUT, globalVlanIdSet);
    addRoute(dir, "intf-mode", HTTP_GET, intfModeGet);
    addRoute(dir, "intf-mode", HTTP_PUT, intfModeSet);
    addRoute(dir, "intf-protocol-status", HTTP_GET, intfProtocolStatusGet);
    addRoute(dir, "intf-oui-status", HTTP_GET, intfOuiStatusGet);
    addRoute(dir, "oui-entry", HTTP_GET, ouiEntryGet);
    addRoute(dir, "oui-entry-next", HTTP_GET, ouiEntryNextGet);
    addRoute(dir, "index-oui", HTTP_POST, indexOuiAdd);
    addRoute(dir, "index-oui", HTTP_DELETE, indexOuiRemove);
}
