/*
 * garp.cpp - /api/v2/switching/garp: the IEEE 802.1D attribute registration protocol with GMRP and GVRP. OpEN defines
 * units and ranges.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static constexpr NamedCode statusRows[] = {{0, "disable"}, {1, "enable"}};
static constexpr NameTable statusNames = nameTable(statusRows);

/* "enable" for exactly 1, "disable" for any other flag. */
static Datum status(const char *key, uint32_t flag)
{
    return codeName(key, statusNames, flag, "disable");
}

static void answerGarp(int rc, Data data)
{
    answerData("garp", openResult(rc), data);
}

/* GMRP and GVRP of the switch */

static void gmrpEnableGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiGarpGmrpEnableGet(&openClient, &flag);
    answerGarp(rc, {status("globalGmrpStatus", flag)});
}

static void gmrpEnableSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("globalGmrpStatus", statusNames, &flag)}))
        return;
    answerResult(rpcclt_openapiGarpGmrpEnableSet(&openClient, flag));
}

static void gvrpEnableGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiGarpGvrpEnableGet(&openClient, &flag);
    answerGarp(rc, {status("globalGvrpStatus", flag)});
}

static void gvrpEnableSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("globalGvrpStatus", statusNames, &flag)}))
        return;
    answerResult(rpcclt_openapiGarpGvrpEnableSet(&openClient, flag));
}

/* GMRP and GVRP of an interface */

static void gmrpPortEnableGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiGarpGmrpPortEnableGet(&openClient, queryUintExact("ifNum"), &flag);
    answerGarp(rc, {status("intfGmrpStatus", flag)});
}

static void gmrpPortEnableSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("intfGmrpStatus", statusNames, &flag)}))
        return;
    answerResult(rpcclt_openapiGarpGmrpPortEnableSet(&openClient, queryUintExact("ifNum"), flag));
}

static void gvrpPortEnableGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiGarpGvrpPortEnableGet(&openClient, queryUintExact("ifNum"), &flag);
    answerGarp(rc, {status("intfGvrpStatus", flag)});
}

static void gvrpPortEnableSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("intfGvrpStatus", statusNames, &flag)}))
        return;
    answerResult(rpcclt_openapiGarpGvrpPortEnableSet(&openClient, queryUintExact("ifNum"), flag));
}

/* Timers of an interface */

static void joinTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiGarpJoinTimeGet(&openClient, queryUintExact("ifNum"), &time);
    answerGarp(rc, {number("joinTime", time)});
}

static void joinTimeSet()
{
    uint32_t time = 0;
    if (!readBody({integerMember("joinTime", &time)}))
        return;
    answerResult(rpcclt_openapiGarpJoinTimeSet(&openClient, queryUintExact("ifNum"), time));
}

static void leaveTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiGarpLeaveTimeGet(&openClient, queryUintExact("ifNum"), &time);
    answerGarp(rc, {number("leaveTime", time)});
}

static void leaveTimeSet()
{
    uint32_t time = 0;
    if (!readBody({integerMember("leaveTime", &time)}))
        return;
    answerResult(rpcclt_openapiGarpLeaveTimeSet(&openClient, queryUintExact("ifNum"), time));
}

static void leaveAllTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiGarpLeaveAllTimeGet(&openClient, queryUintExact("ifNum"), &time);
    answerGarp(rc, {number("leaveAllTime", time)});
}

static void leaveAllTimeSet()
{
    uint32_t time = 0;
    if (!readBody({integerMember("leaveAllTime", &time)}))
        return;
    answerResult(rpcclt_openapiGarpLeaveAllTimeSet(&openClient, queryUintExact("ifNum"), time));
}

/* Counters of an interface */

static void gmrpFailedRegistrationsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGmrpFailedRegistrationsGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gmrpFailedRegistrations", count)});
}

static void gmrpReceivePduCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGmrpReceivePDUCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gmrpPduRxCount", count)});
}

static void gmrpTransmitPduCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGmrpTransmitPDUCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gmrpPduTxCount", count)});
}

static void gvrpFailedRegistrationsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGvrpFailedRegistrationsGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gvrpFailedRegistrations", count)});
}

static void gvrpReceivePduCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGvrpReceivePDUCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gvrpPduRxCount", count)});
}

static void gvrpTransmitPduCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiGarpGvrpTransmitPDUCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerGarp(rc, {number("gvrpPduTxCount", count)});
}

void addGarpRoutes(RouteDir *dir)
{
    addRoute(dir, "gmrp-enable", HTTP_GET, gmrpEnableGet);
    addRoute(dir, "gmrp-enable", HTTP_PUT, gmrpEnableSet);
    addRoute(dir, "gvrp-enable", HTTP_GET, gvrpEnableGet);
    addRoute(dir, "gvrp-enable", HTTP_PUT, gvrpEnableSet);
    addRoute(dir, "gmrp-port-enable", HTTP_GET, gmrpPortEnableGet);
    addRoute(dir, "gmrp-port-enable", HTTP_PUT, gmrpPortEnableSet);
    addRoute(dir, "gvrp-port-enable", HTTP_GET, gvrpPortEnableGet);
    addRoute(dir, "gvrp-port-enable", HTTP_PUT, gvrpPortEnableSet);
    addRoute(dir, "join-time", HTTP_GET, joinTimeGet);
    addRoute(dir, "join-time", HTTP_PUT, joinTimeSet);
    addRoute(dir, "leave-time", HTTP_GET, leaveTimeGet);
    addRoute(dir, "leave-time", HTTP_PUT, leaveTimeSet);
    addRoute(dir, "leave-all-time", HTTP_GET, leaveAllTimeGet);
    addRoute(dir, "leave-all-time", HTTP_PUT, leaveAllTimeSet);
    addRoute(dir, "gmrp-failed-registrations", HTTP_GET, gmrpFailedRegistrationsGet);
    addRoute(dir, "gmrp-receive-pdu-count", HTTP_GET, gmrpReceivePduCountGet);
    addRoute(dir, "gmrp-transmit-pdu-count", HTTP_GET, gmrpTransmitPduCountGet);
    addRoute(dir, "gvrp-failed-registrations", HTTP_GET, gvrpFailedRegistrationsGet);
    addRoute(dir, "gvrp-receive-pdu-count", HTTP_GET, gvrpReceivePduCountGet);
    addRoute(dir, "gvrp-transmit-pdu-count", HTTP_GET, gvrpTransmitPduCountGet);
}
