/*
 * storm_control.cpp - /api/v2/switching/storm-control: a threshold for each type of traffic, of the switch and of an
 * interface, and the action above it. An unknown name is code 0, which OpEN gets like any other.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static constexpr NamedCode trafficTypeRows[] = {{1, "unicast"}, {2, "broadcast"}, {3, "multicast"}};
static constexpr NameTable trafficTypes = nameTable(trafficTypeRows);

/* Clients can send both names of code 1; answers have the first. */
static constexpr NamedCode rateUnitRows[] = {{1, "percent"}, {1, "percentage"}, {2, "pps"}, {3, "kbps"}};
static constexpr NameTable rateUnits = nameTable(rateUnitRows);

static constexpr NamedCode stateRows[] = {{1, "enable"}};
static constexpr NameTable states = nameTable(stateRows);

static constexpr NamedCode actionRows[] = {{1, "shutdown"}, {2, "ratelimit"}, {3, "trap"}};
static constexpr NameTable actions = nameTable(actionRows);

/* The names in answers */

static Datum trafficTypeDatum(uint32_t type)
{
    return codeName("stormCtrlMode", trafficTypes, type, "none");
}

static Datum rateUnitDatum(uint32_t unit)
{
    return codeName("rateUnit", rateUnits, unit, "none");
}

static Datum stateDatum(uint32_t state)
{
    return codeName("state", states, state, "disable");
}

static Datum actionDatum(uint32_t action)
{
    return codeName("action", actions, action, "none");
}

/* The unit in the query string, also for a PUT. An unknown name counts as a number. */
static uint32_t rateUnitFromQuery()
{
    return queryCodeOrUintExact("rateUnit", rateUnits);
}

static void answerStormControl(int rc, Data data)
{
    answerData("stormControl", openResult(rc), data);
}

/* The switch */

static void modeSet()
{
    uint32_t type = 0, state = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), codeMember("state", states, &state)}))
        return;
    answerResult(rpcclt_openapiStormControlModeSet(&openClient, type, state));
}

static void modeGet()
{
    uint32_t type = 0, state = 0;
    readParams({codeParam("stormCtrlMode", trafficTypes, &type)});
    int rc = rpcclt_openapiStormControlModeGet(&openClient, type, &state);
    answerStormControl(rc, {trafficTypeDatum(type), stateDatum(state)});
}

/* Sets the threshold to its default. */
static void thresholdDefaultSet()
{
    uint32_t type = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type)}))
        return;
    answerResult(rpcclt_openapiStormControlThresholdDefaultSet(&openClient, type));
}

static void thresholdGet()
{
    uint32_t type = 0, unit = 0, threshold = 0;
    readParams({codeParam("stormCtrlMode", trafficTypes, &type)});
    int rc = rpcclt_openapiStormControlThresholdGet(&openClient, type, &unit, &threshold);
    answerStormControl(rc, {trafficTypeDatum(type), rateUnitDatum(unit), number("threshold", threshold)});
}

/* An interface */

static void intfModeSet()
{
    uint32_t type = 0, interface = 0, state = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), saturatedMember("interface", &interface),
                   codeMember("state", states, &state)}))
        return;
    answerResult(rpcclt_openapiStormControlIntfModeSet(&openClient, type, interface, state));
}

static void intfModeGet()
{
    uint32_t type = 0, interface = 0, state = 0;
    readParams({codeParam("stormCtrlMode", trafficTypes, &type), uintParam("interface", &interface)});
    int rc = rpcclt_openapiStormControlIntfModeGet(&openClient, type, interface, &state);
    answerStormControl(rc, {trafficTypeDatum(type), number("interface", interface), stateDatum(state)});
}

static void intfThresholdDefaultSet()
{
    uint32_t type = 0, interface = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), saturatedMember("interface", &interface)}))
        return;
    answerResult(rpcclt_openapiStormControlIntfThresholdDefaultSet(&openClient, type, interface));
}

static void intfThresholdGet()
{
    uint32_t type = 0, interface = 0, unit = 0, threshold = 0;
    readParams({codeParam("stormCtrlMode", trafficTypes, &type), uintParam("interface", &interface)});
    int rc = rpcclt_openapiStormControlIntfThresholdGet(&openClient, type, interface, &unit, &threshold);
    answerStormControl(rc, {trafficTypeDatum(type), number("interface", interface), rateUnitDatum(unit),
                            number("threshold", threshold)});
}

/* The action above the threshold. An interface has one only for broadcast storms. */

static void actionSet()
{
    uint32_t type = 0, action = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), codeMember("action", actions, &action)}))
        return;
    answerResult(rpcclt_openapiStormControlActionSet(&openClient, type, action));
}

static void actionGet()
{
    uint32_t type = 0, action = 0;
    readParams({codeParam("stormCtrlMode", trafficTypes, &type)});
    int rc = rpcclt_openapiStormControlActionGet(&openClient, type, &action);
    answerStormControl(rc, {trafficTypeDatum(type), actionDatum(action)});
}

static void actionIntfGet()
{
    uint32_t interface = 0, action = 0;
    readParams({uintParam("interface", &interface)});
    int rc = rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet(&openClient, interface, &action);
    answerStormControl(rc, {number("interface", interface), actionDatum(action)});
}

static void actionIntfSet()
{
    uint32_t interface = 0, action = 0;
    if (!readBody({saturatedMember("interface", &interface), codeMember("action", actions, &action)}))
        return;
    answerResult(rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet(&openClient, interface, action));
}

/* Thresholds with a unit. The query string has the unit, the body the rest. */

static void thresholdSet()
{
    uint32_t unit = rateUnitFromQuery();
    uint32_t type = 0, threshold = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), saturatedMember("threshold", &threshold)}))
        return;
    answerResult(rpcclt_openapiStormControlThresholdSet(&openClient, type, unit, threshold));
}

static void intfThresholdSet()
{
    uint32_t unit = rateUnitFromQuery();
    uint32_t type = 0, interface = 0, threshold = 0;
    if (!readBody({codeMember("stormCtrlMode", trafficTypes, &type), saturatedMember("interface", &interface),
                   saturatedMember("threshold", &threshold)}))
        return;
    answerResult(rpcclt_openapiStormControlIntfThresholdSet(&openClient, type, interface, unit, threshold));
}

static void thresholdMinMaxGet()
{
    uint32_t unit = rateUnitFromQuery();
    uint32_t min = 0, max = 0;
    int rc = rpcclt_openapiStormControlThresholdMinMaxGet(&openClient, unit, &min, &max);
    answerStormControl(rc, {rateUnitDatum(unit), number("minThreshold", min), number("maxThreshold", max)});
}

void addStormControlRoutes(RouteDir *dir)
{
    addRoute(dir, "mode", HTTP_PUT, modeSet);
    addRoute(dir, "mode", HTTP_GET, modeGet);
    addRoute(dir, "threshold-default", HTTP_PUT, thresholdDefaultSet);
    addRoute(dir, "threshold", HTTP_GET, thresholdGet);
    addRoute(dir, "intf-mode", HTTP_PUT, intfModeSet);
    addRoute(dir, "intf-mode", HTTP_GET, intfModeGet);
    addRoute(dir, "intf-threshold-default", HTTP_PUT, intfThresholdDefaultSet);
    addRoute(dir, "intf-threshold", HTTP_GET, intfThresholdGet);
    addRoute(dir, "action", HTTP_PUT, actionSet);
    addRoute(dir, "action", HTTP_GET, actionGet);
    addRoute(dir, "action-intf", HTTP_GET, actionIntfGet);
    addRoute(dir, "action-intf", HTTP_PUT, actionIntfSet);
    addRoute(dir, "threshold", HTTP_PUT, thresholdSet);
    addRoute(dir, "intf-threshold", HTTP_PUT, intfThresholdSet);
    addRoute(dir, "threshold-min-max", HTTP_GET, thresholdMinMaxGet);
}
