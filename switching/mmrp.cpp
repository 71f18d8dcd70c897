/*
 * mmrp.cpp - /api/v2/switching/mmrp: the IEEE 802.1Q MAC registration protocol. The interface comes from the query key
 * "ifNum", the query key "intIfNum" or the body member "ifNum", depending on the endpoint.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static constexpr NamedCode modeRows[] = {{0, "disable"}, {1, "enable"}};
static constexpr NameTable modeNames = nameTable(modeRows);

static constexpr NamedCode counterRows[] = {
    {0, "rx"},
    {1, "rx_bad_header"},
    {2, "rx_bad_format"},
    {3, "tx"},
    {4, "tx_failure"},
};
static constexpr NameTable counterNames = nameTable(counterRows);

/* The counter type that the query names; "rx" for an unknown name, or without the key. */
static uint32_t queryCounterType()
{
    return queryCodeExact("type", counterNames, 0);
}

/* "enable" for exactly 1, "disable" for any other flag. */
static Datum mode(const char *key, uint32_t flag)
{
    return codeName(key, modeNames, flag, "disable");
}

static void answerMmrp(int rc, Data data)
{
    answerData("mmrp", openResult(rc), data);
}

/* Modes */

static void modeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMmrpModeGet(&openClient, &flag);
    answerMmrp(rc, {mode("mmrpMode", flag)});
}

static void modeSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("mmrpMode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMmrpModeSet(&openClient, flag));
}

static void intfModeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMmrpIntfModeGet(&openClient, queryUintExact("ifNum"), &flag);
    answerMmrp(rc, {mode("mmrpIntfMode", flag)});
}

/* The only setter that reads the interface from the body, not from the query string. */
static void intfModeSet()
{
    uint32_t ifNum = 0;
    uint32_t flag = 0;
    if (!readBody({integerMember("ifNum", &ifNum), codeMember("mmrpIntfMode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMmrpIntfModeSet(&openClient, ifNum, flag));
}

static void periodicStateMachineModeGet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMmrpPeriodicStateMachineModeGet(&openClient, &flag);
    answerMmrp(rc, {mode("mmrpPeriodicStateMachineMode", flag)});
}

static void periodicStateMachineModeSet()
{
    uint32_t flag = 0;
    if (!readBody({codeMember("mmrpPeriodicStateMachineMode", modeNames, &flag)}))
        return;
    answerResult(rpcclt_openapiMmrpPeriodicStateMachineModeSet(&openClient, flag));
}

/* Counters, answered as signed numbers */

static void counterGet()
{
    uint32_t value = 0;
    int rc = rpcclt_openapiMmrpCounterGet(&openClient, queryCounterType(), &value);
    answerMmrp(rc, {signedNumber("counter", value)});
}

static void intfCounterGet()
{
    uint32_t value = 0;
    int rc = rpcclt_openapiMmrpIntfCounterGet(&openClient, queryUintExact("intIfNum"), queryCounterType(), &value);
    answerMmrp(rc, {signedNumber("counter", value)});
}

static void intfCountersClear()
{
    answerResult(rpcclt_openapiMmrpIntfCountersClear(&openClient, queryUintExact("intIfNum")));
}

static void countersClear()
{
    answerResult(rpcclt_openapiMmrpCountersClear(&openClient));
}

void addMmrpRoutes(RouteDir *dir)
{
    addRoute(dir, "mode", HTTP_GET, modeGet);
    addRoute(dir, "mode", HTTP_PUT, modeSet);
    addRoute(dir, "intf-mode", HTTP_GET, intfModeGet);
    addRoute(dir, "intf-mode", HTTP_PUT, intfModeSet);
    addRoute(dir, "periodic-state-machine-mode", HTTP_GET, periodicStateMachineModeGet);
    addRoute(dir, "periodic-state-machine-mode", HTTP_PUT, periodicStateMachineModeSet);
    addRoute(dir, "counter", HTTP_GET, counterGet);
    addRoute(dir, "intf-counter", HTTP_GET, intfCounterGet);
    addRoute(dir, "intf-counters", HTTP_DELETE, intfCountersClear);
    addRoute(dir, "counters", HTTP_DELETE, countersClear);
}
