/*
 * mvrp.cpp - /api/v2/switching/mvrp: the IEEE 802.1Q VLAN registration protocol. Interfaces, counter types and VLAN
 * types are numbers in the query string; OpEN defines the types.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static constexpr NamedCode modeRows[] = {{0, "disable"}, {1, "enable"}};
static constexpr NameTable modeNames = nameTable(modeRows);

static void answerMvrp(int rc, Data data)
{
    answerData("mvrp", openResult(rc), data);
}

/* "disable" for 0, "enable" for any other flag. */
static void answerMode(int rc, uint32_t flag)
{
    answerMvrp(rc, {codeName("mode", modeNames, flag, "enable")});
}

/* Modes */

static void modeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMvrpModeGet(&openClient, &flag);
    answerMode(rc, flag);
}

static void modeSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("mode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMvrpModeSet(&openClient, flag));
}

static void periodicStateMachineModeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMvrpPeriodicStateMachineModeGet(&openClient, &flag);
    answerMode(rc, flag);
}

static void periodicStateMachineModeSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("mode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMvrpPeriodicStateMachineModeSet(&openClient, flag));
}

static void intfModeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMvrpIntfModeGet(&openClient, queryUintExact("intIfNum"), &flag);
    answerMode(rc, flag);
}

static void intfModeSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("mode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMvrpIntfModeSet(&openClient, queryUintExact("intIfNum"), flag));
}

/* Interfaces that can run MVRP */

static void isValidIntfGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMvrpIsValidIntfGet(&openClient, queryUintExact("intIfNum"), &flag);
    answerMvrp(rc, {yesNo("isValid", flag != 0)});
}

static void validIntfNextGet()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiMvrpValidIntfNextGet(&openClient, queryUintExact("intIfNum"), &next);
    answerMvrp(rc, {number("nextIfNum", next)});
}

/* Counters, answered as signed numbers */

static void trafficPduCounterGet()
{
    uint32_t value = 0;
    int rc = rpcclt_openapiMvrpTrafficPduCounterGet(&openClient, queryUintExact("type"), &value);
    answerMvrp(rc, {signedNumber("counter", value)});
}

static void intfTrafficPduCounterGet()
{
    uint32_t ifNum = queryUintExact("intIfNum");
    uint32_t value = 0;
    int rc = rpcclt_openapiMvrpIntfTrafficPduCounterGet(&openClient, ifNum, queryUintExact("type"), &value);
    answerMvrp(rc, {signedNumber("counter", value)});
}

/* Registered VLANs. OpEN counts them twice, in the list and beside it; the answer has both, as signed numbers. */

static void vlanArrayGet()
{
    VlanIdList vlans = {};
    uint32_t count = 0;
    int rc = rpcclt_openapiMvrpVlanArrayGet(&openClient, queryUintExact("vlanType"), &vlans, &count);
    answerMvrp(rc, {vlanArray("vlanList", vlans), signedNumber("count", count)});
}

static void intfVlanArrayGet()
{
    uint32_t ifNum = queryUintExact("intIfNum");
    VlanIdList vlans = {};
    uint32_t count = 0;
    int rc = rpcclt_openapiMvrpIntfVlanArrayGet(&openClient, ifNum, queryUintExact("vlanType"), &vlans, &count);
    answerMvrp(rc, {vlanArray("vlanList", vlans), signedNumber("count", count)});
}

/* Clearing of counters */

static void trafficCountersPerIfClear()
{
    answerResult(rpcclt_openapiMvrpTrafficCountersPerIfClear(&openClient, queryUintExact("intIfNum")));
}

static void trafficGlobalCountersClear()
{
    answerResult(rpcclt_openapiMvrpTrafficGlobalCountersClear(&openClient));
}

static void trafficCountersClear()
{
    answerResult(rpcclt_openapiMvrpTrafficCountersClear(&openClient));
}

void addMvrpRoutes(RouteDir *dir)
{
    addRoute(dir, "mode", HTTP_GET, modeGet);
    addRoute(dir, "mode", HTTP_PUT, modeSet);
    addRoute(dir, "periodic-state-machine-mode", HTTP_GET, periodicStateMachineModeGet);
    addRoute(dir, "periodic-state-machine-mode", HTTP_PUT, periodicStateMachineModeSet);
    addRoute(dir, "intf-mode", HTTP_GET, intfModeGet);
    addRoute(dir, "intf-mode", HTTP_PUT, intfModeSet);
    addRoute(dir, "is-valid-intf", HTTP_GET, isValidIntfGet);
    addRoute(dir, "valid-intf-next", HTTP_GET, validIntfNextGet);
    addRoute(dir, "traffic-pdu-counter", HTTP_GET, trafficPduCounterGet);
    addRoute(dir, "intf-traffic-pdu-counter", HTTP_GET, intfTrafficPduCounterGet);
    addRoute(dir, "vlan-array", HTTP_GET, vlanArrayGet);
    addRoute(dir, "intf-vlan-array", HTTP_GET, intfVlanArrayGet);
    addRoute(dir, "traffic-counters-per-if", HTTP_DELETE, trafficCountersPerIfClear);
    addRoute(dir, "traffic-global-counters", HTTP_DELETE, trafficGlobalCountersClear);
    addRoute(dir, "traffic-counters", HTTP_DELETE, trafficCountersClear);
}
