/*
 * loop_protect.cpp - /api/v2/switching/loop-protect: loop detection, and a port's action on a loop. Modes and actions
 * are numbers. The query string names the interface, with any method; the body has the value to set: 0 when it is not a
 * JSON number.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static void answerLoopProtect(int rc, Data data)
{
    answerData("loopProtect", openResult(rc), data);
}

/* The switch */

static void adminModeSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("adminMode", &mode)}))
        return;
    answerResult(rpcclt_openapiLoopProtectAdminModeSet(&openClient, mode));
}

static void adminModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiLoopProtectAdminModeGet(&openClient, &mode);
    answerLoopProtect(rc, {number("adminMode", mode)});
}

static void txTimerSet()
{
    uint32_t timer = 0;
    if (!readBody({integerOfNumberMember("timerVal", &timer)}))
        return;
    answerResult(rpcclt_openapiLoopProtectTxTimerSet(&openClient, timer));
}

static void txTimerGet()
{
    uint32_t timer = 0;
    int rc = rpcclt_openapiLoopProtectTxTimerGet(&openClient, &timer);
    answerLoopProtect(rc, {number("timerVal", timer)});
}

static void maxPduReceiveSet()
{
    uint32_t frames = 0;
    if (!readBody({integerOfNumberMember("val", &frames)}))
        return;
    answerResult(rpcclt_openapiLoopProtectMaxPduReceiveSet(&openClient, frames));
}

static void maxPduReceiveGet()
{
    uint32_t frames = 0;
    int rc = rpcclt_openapiLoopProtectMaxPduReceiveGet(&openClient, &frames);
    answerLoopProtect(rc, {number("val", frames)});
}

static void disableTimerSet()
{
    uint32_t timer = 0;
    if (!readBody({integerOfNumberMember("val", &timer)}))
        return;
    answerResult(rpcclt_openapiLoopProtectDisableTimerSet(&openClient, timer));
}

static void disableTimerGet()
{
    uint32_t timer = 0;
    int rc = rpcclt_openapiLoopProtectDisableTimerGet(&openClient, &timer);
    answerLoopProtect(rc, {number("val", timer)});
}

static void allStatsClear()
{
    answerResult(rpcclt_openapiLoopProtectAllStatsClear(&openClient));
}

static void validIntfFirstGet()
{
    uint32_t first = 0;
    int rc = rpcclt_openapiLoopProtectValidIntfFirstGet(&openClient, &first);
    answerLoopProtect(rc, {number("ifNum", first)});
}

/* An interface */

static void portTxModeSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("mode", &mode)}))
        return;
    answerResult(rpcclt_openapiLoopProtectPortTxModeSet(&openClient, queryUintExact("ifNum"), mode));
}

static void portTxModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiLoopProtectPortTxModeGet(&openClient, queryUintExact("ifNum"), &mode);
    answerLoopProtect(rc, {number("mode", mode)});
}

static void portAdminModeSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("mode", &mode)}))
        return;
    answerResult(rpcclt_openapiLoopProtectPortAdminModeSet(&openClient, queryUintExact("ifNum"), mode));
}

static void portAdminModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiLoopProtectPortAdminModeGet(&openClient, queryUintExact("ifNum"), &mode);
    answerLoopProtect(rc, {number("mode", mode)});
}

/* The action has the key "mode": established behaviour. */

static void portActionSet()
{
    uint32_t action = 0;
    if (!readBody({integerOfNumberMember("mode", &action)}))
        return;
    answerResult(rpcclt_openapiLoopProtectPortActionSet(&openClient, queryUintExact("ifNum"), action));
}

static void portActionGet()
{
    uint32_t action = 0;
    int rc = rpcclt_openapiLoopProtectPortActionGet(&openClient, queryUintExact("ifNum"), &action);
    answerLoopProtect(rc, {number("mode", action)});
}

static void portVlanPropertiesGet()
{
    uint32_t tpid = 0, vlanId = 0;
    int rc = rpcclt_openapiLoopProtectPortVlanPropertiesGet(&openClient, queryUintExact("ifNum"), &tpid, &vlanId);
    answerLoopProtect(rc, {number("tpid", tpid), number("vlanId", vlanId)});
}

static void portStatsClear()
{
    answerResult(rpcclt_openapiLoopProtectPortStatsClear(&openClient, queryUintExact("ifNum")));
}

static void portloopDetectCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiLoopProtectPortloopDetectCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerLoopProtect(rc, {number("loopCount", count)});
}

static void isLoopDetected()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiLoopProtectIsLoopDetected(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("loopProtect", rc, flag);
}

static void isPortDisabled()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiLoopProtectIsPortDisabled(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("loopProtect", rc, flag);
}

static void portTimeSinceLastLoopGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiLoopProtectPortTimeSinceLastLoopGet(&openClient, queryUintExact("ifNum"), &time, 0);
    answerLoopProtect(rc, {number("timeVal", time)});
}

static void portPacketTxCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiLoopProtectPortPacketTxCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerLoopProtect(rc, {number("count", count)});
}

static void portPacketRxCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiLoopProtectPortPacketRxCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerLoopProtect(rc, {number("count", count)});
}

static void isValidIntf()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiLoopProtectIsValidIntf(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("loopProtect", rc, flag);
}

static void validIntfNextGet()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiLoopProtectValidIntfNextGet(&openClient, queryUintExact("ifNum"), &next);
    answerLoopProtect(rc, {number("nextIfNum", next)});
}

/* The query string has the interface and the VLAN, the body only the TPID. */
static void portVlanPropertiesSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t vlanId = queryUintExact("vlanId");
    uint32_t tpid = 0;
    if (!readBody({integerOfNumberMember("tpid", &tpid)}))
        return;
    answerResult(rpcclt_openapiLoopProtectPortVlanPropertiesSet(&openClient, ifNum, tpid, vlanId));
}

void addLoopProtectRoutes(RouteDir *dir)
{
    addRoute(dir, "admin-mode", HTTP_PUT, adminModeSet);
    addRoute(dir, "admin-mode", HTTP_GET, adminModeGet);
    addRoute(dir, "tx-timer", HTTP_PUT, txTimerSet);
    addRoute(dir, "tx-timer", HTTP_GET, txTimerGet);
    addRoute(dir, "max-pdu-receive", HTTP_PUT, maxPduReceiveSet);
    addRoute(dir, "max-pdu-receive", HTTP_GET, maxPduReceiveGet);
    addRoute(dir, "disable-timer", HTTP_PUT, disableTimerSet);
    addRoute(dir, "disable-timer", HTTP_GET, disableTimerGet);
    addRoute(dir, "all-stats", HTTP_DELETE, allStatsClear);
    addRoute(dir, "valid-intf-first", HTTP_GET, validIntfFirstGet);
    addRoute(dir, "port-tx-mode", HTTP_PUT, portTxModeSet);
    addRoute(dir, "port-tx-mode", HTTP_GET, portTxModeGet);
    addRoute(dir, "port-admin-mode", HTTP_PUT, portAdminModeSet);
    addRoute(dir, "port-admin-mode", HTTP_GET, portAdminModeGet);
    addRoute(dir, "port-action", HTTP_PUT, portActionSet);
    addRoute(dir, "port-action", HTTP_GET, portActionGet);
    addRoute(dir, "port-vlan-properties", HTTP_GET, portVlanPropertiesGet);
    addRoute(dir, "port-stats", HTTP_DELETE, portStatsClear);
    addRoute(dir, "portloop-detect-count", HTTP_GET, portloopDetectCountGet);
    addRoute(dir, "is-loop-detected", HTTP_POST, isLoopDetected);
    addRoute(dir, "is-port-disabled", HTTP_POST, isPortDisabled);
    addRoute(dir, "port-time-since-last-loop", HTTP_GET, portTimeSinceLastLoopGet);
    addRoute(dir, "port-packet-tx-count", HTTP_GET, portPacketTxCountGet);
    addRoute(dir, "port-packet-rx-count", HTTP_GET, portPacketRxCountGet);
    addRoute(dir, "is-valid-intf", HTTP_POST, isValidIntf);
    addRoute(dir, "valid-intf-next", HTTP_GET, validIntfNextGet);
    addRoute(dir, "port-vlan-properties", HTTP_PUT, portVlanPropertiesSet);
}
