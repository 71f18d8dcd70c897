/*
 * voice_vlan.cpp - /api/v2/switching/voice-vlan: the voice VLAN of the switch and of its interfaces. All values are
 * numbers that OpEN defines; answers have them as signed numbers.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static void answerReading(int rc, const char *key, uint32_t value)
{
    answerData("voiceVlan", openResult(rc), {signedNumber(key, value)});
}

/* The administrative mode of the switch, and of an interface with its value ("dataValue") */

static void adminModeSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("mode", &mode)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanAdminModeSet(&openClient, mode));
}

static void adminModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiVoiceVlanAdminModeGet(&openClient, &mode);
    answerReading(rc, "mode", mode);
}

static void portAdminModeSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t mode = 0;
    uint32_t value = 0;
    if (!readBody({integerOfNumberMember("mode", &mode), integerOfNumberMember("dataValue", &value)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanPortAdminModeSet(&openClient, ifNum, mode, value));
}

static void portAdminModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiVoiceVlanPortAdminModeGet(&openClient, queryUintExact("ifNum"), &mode);
    answerReading(rc, "mode", mode);
}

/* The settings of an interface */

static void portVlanIdGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiVoiceVlanPortVlanIdGet(&openClient, queryUintExact("ifNum"), &vlanId);
    answerReading(rc, "vlanId", vlanId);
}

static void portDot1pPriorityGet()
{
    uint32_t priority = 0;
    int rc = rpcclt_openapiVoiceVlanPortDot1pPriorityGet(&openClient, queryUintExact("ifNum"), &priority);
    answerReading(rc, "priority", priority);
}

static void portDot1pPrioritySet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t priority = 0;
    if (!readBody({integerOfNumberMember("priority", &priority)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanPortDot1pPrioritySet(&openClient, ifNum, priority));
}

static void portCosOverrideModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiVoiceVlanPortCosOverrideModeGet(&openClient, queryUintExact("ifNum"), &mode);
    answerReading(rc, "mode", mode);
}

static void portCosOverrideModeSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("mode", &mode)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanPortCosOverrideModeSet(&openClient, ifNum, mode));
}

static void portAuthStateGet()
{
    uint32_t state = 0;
    int rc = rpcclt_openapiVoiceVlanPortAuthStateGet(&openClient, queryUintExact("ifNum"), &state);
    answerReading(rc, "state", state);
}

static void portAuthStateSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t state = 0;
    if (!readBody({integerOfNumberMember("state", &state)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanPortAuthStateSet(&openClient, ifNum, state));
}

static void portDscpGet()
{
    uint32_t dscp = 0;
    int rc = rpcclt_openapiVoiceVlanPortDscpGet(&openClient, queryUintExact("ifNum"), &dscp);
    answerReading(rc, "dscp", dscp);
}

static void portDscpSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t dscp = 0;
    if (!readBody({integerOfNumberMember("dscp", &dscp)}))
        return;
    answerResult(rpcclt_openapiVoiceVlanPortDscpSet(&openClient, ifNum, dscp));
}

/* The status has the key "mode": established behaviour. */
static void portStatusGet()
{
    uint32_t status = 0;
    int rc = rpcclt_openapiVoiceVlanPortStatusGet(&openClient, queryUintExact("ifNum"), &status);
    answerReading(rc, "mode", status);
}

/* The only setter that reads its value from the query string, not from the body. */
static void portVlanIdSet()
{
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t vlanId = queryUintExact("vlanId");
    answerResult(rpcclt_openapiVoiceVlanPortVlanIdSet(&openClient, ifNum, vlanId));
}

void addVoiceVlanRoutes(RouteDir *dir)
{
    addRoute(dir, "admin-mode", HTTP_PUT, adminModeSet);
    addRoute(dir, "admin-mode", HTTP_GET, adminModeGet);
    addRoute(dir, "port-admin-mode", HTTP_PUT, portAdminModeSet);
    addRoute(dir, "port-admin-mode", HTTP_GET, portAdminModeGet);
    addRoute(dir, "port-vlan-id", HTTP_GET, portVlanIdGet);
    addRoute(dir, "port-dot1p-priority", HTTP_GET, portDot1pPriorityGet);
    addRoute(dir, "port-dot1p-priority", HTTP_PUT, portDot1pPrioritySet);
    addRoute(dir, "port-cos-override-mode", HTTP_GET, portCosOverrideModeGet);
    addRoute(dir, "port-cos-override-mode", HTTP_PUT, portCosOverrideModeSet);
    addRoute(dir, "port-auth-state", HTTP_GET, portAuthStateGet);
    addRoute(dir, "port-auth-state", HTTP_PUT, portAuthStateSet);
    addRoute(dir, "port-dscp", HTTP_GET, portDscpGet);
    addRoute(dir, "port-dscp", HTTP_PUT, portDscpSet);
    addRoute(dir, "port-status", HTTP_GET, portStatusGet);
    addRoute(dir, "port-vlan-id", HTTP_PUT, portVlanIdSet);
}
