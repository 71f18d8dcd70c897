/*
 * vlan.cpp - /api/v2/switching/vlan, in three parts: VLANs and their interfaces; switchports and private VLANs; the
 * VLAN of untagged traffic by its source. The routes at the end include /vlan/association and /vlan/protocol.
 *
 * Numbers go from the client to OpEN and back unchanged. In a body, only a JSON number counts. A setter answers OpEN's
 * code either converted (openResult) or as it is; a reader answers it converted, or answers INVALID_ARGUMENT for every
 * failure. Each endpoint has its established way; two endpoints of the same operation can differ.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static void answerVlan(int rc, Data data)
{
    answerData("vlan", openResult(rc), data);
}

/* The answers of the setters: with OpEN's code converted, and with the code as it is. */

static void answerMapped(int rc)
{
    answerOutcomeFixed(openResult(rc));
}

static void answerUnmapped(int rc)
{
    answerOutcomeFixed(unmappedResult(rc));
}

/* For the readers that answer INVALID_ARGUMENT for every failure. */
static void answerVlanOrInvalid(int rc, Data data)
{
    answerDataOrOutcome("vlan", invalidUnlessOk(rc), data);
}

/* For the endpoints that require an interface. False: the query has none, and this has answered the refusal. */
static bool readIfNum(uint32_t *ifNum)
{
    *ifNum = queryUintExact("ifNum");
    if (*ifNum == 0)
        answerOutcome(ResultCode::INVALID_ARGUMENT);
    return *ifNum != 0;
}

/* A MAC address or an OUI as the client wrote it. OpEN checks it. */
using AddressText = OpenText<64>;

/* ---- VLANs and the interfaces in them ---- */

/* The VLAN table */

static void vlanCreate()
{
    answerMapped(rpcclt_openapiVlanCreate(&openClient, queryUintExact("vlanNum")));
}

static void vlanDelete()
{
    answerMapped(rpcclt_openapiVlanDelete(&openClient, queryUintExact("vlanNum")));
}

static void nameLenGet()
{
    uint32_t length = 0;
    int rc = rpcclt_openapiVlanNameLenGet(&openClient, &length);
    answerVlan(rc, {number("strLen", length)});
}

static void maxSupportedVlansGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1qMaxSupportedVlansGet(&openClient, &count);
    answerVlan(rc, {number("val", count)});
}

static void mostVlanEntriesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiMostVlanEntriesGet(&openClient, &count);
    answerVlan(rc, {number("val", count)});
}

static void staticVlanEntriesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiStaticVlanEntriesGet(&openClient, &count);
    answerVlan(rc, {number("val", count)});
}

static void dynamicVlanEntriesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDynamicVlanEntriesGet(&openClient, &count);
    answerVlan(rc, {number("val", count)});
}

static void vlanNumDeletesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1qVlanNumDeletesGet(&openClient, &count);
    answerVlan(rc, {number("val", count)});
}

static void taggedGet()
{
    uint32_t vlanId = queryUintExact("vlanId");
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t tagging = 0;
    int rc = rpcclt_openapiVlanTaggedSetGet(&openClient, vlanId, ifNum, &tagging);
    answerVlan(rc, {number("val", tagging)});
}

static void nextVlanGet()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiNextVlanGet(&openClient, queryUintExact("vid"), &next);
    answerVlan(rc, {number("nextVid", next)});
}

/* OpEN counts twice: "numOfElements" is the count beside the list, the length of "vidList" the count in it. */
static void vidListGet()
{
    VlanIdList list = {};
    uint32_t count = 0;
    int rc = rpcclt_openapiVlanVIDListGet(&openClient, queryUintExact("intfNum"), &list, &count);
    answerVlanOrInvalid(rc, {number("numOfElements", count), vlanIds("vidList", list)});
}

static void typeGet()
{
    uint32_t type = 0;
    int rc = rpcclt_openapiVlanTypeGet(&openClient, queryUintExact("vlanNum"), &type);
    answerVlan(rc, {number("vlanType", type)});
}

/* The VLAN settings of an interface */

static void ifAcceptFrameTypeGet()
{
    uint32_t ifNum = 0;
    if (!readIfNum(&ifNum))
        return;
    uint32_t type = 1;
    int rc = rpcclt_openapiVlanIfAcceptFrameTypeGet(&openClient, ifNum, &type);
    answerVlan(rc, {number("type", type)});
}

static void ifAcceptFrameTypeSet()
{
    uint32_t ifNum = 0;
    uint32_t type = 1;
    if (!readBody({integerOfNumberMember("type", &type)}) || !readIfNum(&ifNum))
        return;
    answerUnmapped(rpcclt_openapiVlanIfAcceptFrameTypeSet(&openClient, ifNum, type));
}

static void ifPvidSet()
{
    uint32_t ifNum = 0;
    uint32_t vlanId = 0;
    if (!readBody({integerOfNumberMember("vlanNum", &vlanId)}) || !readIfNum(&ifNum))
        return;
    answerMapped(rpcclt_openapiVlanIfPvidSet(&openClient, ifNum, vlanId));
}

/* Mind the order: tagging takes the interface first, participation the VLAN. */

static void ifTaggingSet()
{
    uint32_t tagging = 0;
    if (!readBody({integerOfNumberMember("tagging", &tagging)}))
        return;
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t vlanId = queryUintExact("vlanNum");
    answerUnmapped(rpcclt_openapiVlanIfTaggingSet(&openClient, ifNum, vlanId, tagging));
}

static void ifParticipationGet()
{
    uint32_t vlanId = queryUintExact("vlanNum");
    uint32_t ifNum = queryUintExact("ifNum");
    uint32_t mode = 0;
    int rc = rpcclt_openapiVlanIfParticipationGet(&openClient, vlanId, ifNum, &mode);
    answerVlan(rc, {number("participationMode", mode)});
}

static void ifParticipationSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("participationMode", &mode)}))
        return;
    uint32_t vlanId = queryUintExact("vlanNum");
    uint32_t ifNum = queryUintExact("ifNum");
    answerUnmapped(rpcclt_openapiVlanIfParticipationSet(&openClient, vlanId, ifNum, mode));
}

static void ifNumTrafficClassesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiVlanIfNumTrafficClassesGet(&openClient, queryUintExact("ifNum"), &count);
    answerVlan(rc, {number("numTrafficClasses", count)});
}

static void ifDefaultUserPriorityGet()
{
    uint32_t priority = 0;
    int rc = rpcclt_openapiVlanIfDefaultUserPriorityGet(&openClient, queryUintExact("ifNum"), &priority);
    answerVlan(rc, {number("priority", priority)});
}

static void ifDefaultUserPrioritySet()
{
    uint32_t priority = 0;
    if (!readBody({integerOfNumberMember("priority", &priority)}))
        return;
    uint32_t ifNum = queryUintExact("ifNum");
    answerMapped(rpcclt_openapiVlanIfDefaultUserPrioritySet(&openClient, ifNum, priority));
}

/* Ingress filtering as configured */
static void qportsEnableIngressFilteringGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiQportsEnableIngressFilteringGet(&openClient, queryUintExact("ifNum"), &mode);
    answerVlan(rc, {number("val", mode)});
}

static void qportsEnableIngressFilteringSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("mode", &mode)}))
        return;
    uint32_t ifNum = queryUintExact("ifNum");
    answerMapped(rpcclt_openapiQportsEnableIngressFilteringSet(&openClient, ifNum, mode));
}

/* A POST that only reads, and ignores its body. */
static void portIngressFiltering()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiDot1qPortIngressFiltering(&openClient, queryUintExact("ifNum"), &mode);
    answerVlan(rc, {number("val", mode)});
}

/* Ingress filtering as in force */
static void qportsCurrentIngressFilteringGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiQportsCurrentIngressFilteringGet(&openClient, queryUintExact("ifNum"), &mode);
    answerVlan(rc, {number("val", mode)});
}

static void rxPacketsNotForwardedCountGet()
{
    uint64_t count = 0;
    int rc = rpcclt_openapiDot1qRxPacketsNotForwardedCountGet(&openClient, queryUintExact("ifNum"), &count);
    answerVlan(rc, {number64("totalRxPktsNotForwarded", count)});
}

/* ---- Switchports and private VLANs ---- */

/* The switchport of an interface. The setters of mode and trunk list read the interface from the body. */

static void swPortModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiDot1qSwPortModeGet(&openClient, queryUintExact("intf"), &mode);
    answerVlan(rc, {number("mode", mode)});
}

static void swPortModeSet()
{
    uint32_t intf = 0;
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("intf", &intf), integerOfNumberMember("mode", &mode)}))
        return;
    answerUnmapped(rpcclt_openapiDot1qSwPortModeSet(&openClient, intf, mode));
}

static void swPortAccessVlanGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiDot1qSwPortAccessVlanGet(&openClient, queryUintExact("intf"), &vlanId);
    answerVlanOrInvalid(rc, {number("vlanId", vlanId)});
}

static void swPortAccessVlanSet()
{
    uint32_t vlanId = 0;
    if (!readBody({integerOfNumberMember("vlanId", &vlanId)}))
        return;
    uint32_t intf = queryUintExact("intf");
    answerMapped(rpcclt_openapiDot1qSwPortAccessVlanSet(&openClient, intf, vlanId));
}

static void swPortTrunkNativeVlanGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiDot1qSwPortTrunkNativeVlanGet(&openClient, queryUintExact("intf"), &vlanId);
    answerVlanOrInvalid(rc, {number("vlanId", vlanId)});
}

static void swPortTrunkNativeVlanSet()
{
    uint32_t vlanId = 0;
    if (!readBody({integerOfNumberMember("vlanId", &vlanId)}))
        return;
    uint32_t intf = queryUintExact("intf");
    answerMapped(rpcclt_openapiDot1qSwPortTrunkNativeVlanSet(&openClient, intf, vlanId));
}

static void swPortTrunkAllowedVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qSwPortTrunkAllowedVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

static void swPortTrunkAllowedVlanListSet()
{
    uint32_t intf = 0;
    VlanIdList list = {};
    if (!readBody({integerOfNumberMember("intf", &intf), vlanIdsMember("vidList", &list)}))
        return;
    answerUnmapped(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet(&openClient, intf, &list));
}

static void swPortForbiddenVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qSwPortForbiddenVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

static void swPortUntaggedVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qSwPortUntaggedVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

static void swPortTaggedVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qSwPortTaggedVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

static void swPortDynamicallyAddedVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qSwPortDynamicallyAddedVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

/* Private VLANs as an interface sees them, by "intf" */

static void pvlanIntfModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiPvlanIntfModeGet(&openClient, queryUintExact("intf"), &mode);
    answerVlan(rc, {number("mode", mode)});
}

static void pvlanIntfHostAssocGet()
{
    uint32_t primary = 0;
    uint32_t secondary = 0;
    int rc = rpcclt_openapiPvlanIntfHostAssocGet(&openClient, queryUintExact("intf"), &primary, &secondary);
    answerVlanOrInvalid(rc, {number("primaryVid", primary), number("secondaryVid", secondary)});
}

static void pvlanIntfPromiscAssocGet()
{
    uint32_t primary = 0;
    VlanIdList list = {};
    int rc = rpcclt_openapiPvlanIntfPromiscAssocGet(&openClient, queryUintExact("intf"), &primary, &list);
    answerVlanOrInvalid(rc, {number("primaryVid", primary), vlanIds("secondaryVidList", list)});
}

static void pvlanIntfOperAssocGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiPvlanIntfOperAssocGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("operationalVidList", list)});
}

static void pvlanIntfPromiscTrunkAssocNextGet()
{
    uint32_t intf = queryUintExact("intf");
    uint32_t primary = queryUintExact("primaryVid");
    uint32_t next = 0;
    VlanIdList list = {};
    int rc = rpcclt_openapiPvlanIntfPromiscTrunkAssocNextGet(&openClient, intf, primary, &next, &list);
    answerVlanOrInvalid(rc, {number("nextPrimaryVid", next), vlanIds("secondaryVidList", list)});
}

static void pvlanIntfIsolatedTrunkAssocNextGet()
{
    uint32_t intf = queryUintExact("intf");
    uint32_t primary = queryUintExact("primaryVid");
    uint32_t next = 0;
    uint32_t secondary = 0;
    int rc = rpcclt_openapiPvlanIntfIsolatedTrunkAssocNextGet(&openClient, intf, primary, &next, &secondary);
    answerVlanOrInvalid(rc, {number("nextPrimaryVid", next), number("secondaryVid", secondary)});
}

static void pvlanIntfTrunkNativeVlanGet()
{
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiPvlanIntfTrunkNativeVlanGet(&openClient, queryUintExact("intf"), &vlanId);
    answerVlan(rc, {number("nativeVid", vlanId)});
}

static void pvlanIntfTrunkAllowedVlanListGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiPvlanIntfTrunkAllowedVlanListGet(&openClient, queryUintExact("intf"), &list);
    answerVlan(rc, {vlanIds("normalVidList", list)});
}

/* Private VLANs, their associations and the interfaces in them, by "vlanId" and by "ifNum" */

static void privateVlanEnable()
{
    uint32_t type = 0;
    if (!readBody({integerOfNumberMember("pvlanType", &type)}))
        return;
    answerUnmapped(rpcclt_openapiDot1qPrivateVlanEnable(&openClient, queryUintExact("vlanId"), type));
}

static void privateVlanGet()
{
    uint32_t type = 0;
    int rc = rpcclt_openapiDot1qPrivateVlanGet(&openClient, queryUintExact("vlanId"), &type);
    answerVlan(rc, {number("pvlanType", type)});
}

static void privateVlanAssocAdd()
{
    VlanIdList list = {};
    if (!readBody({vlanIdsMember("vidList", &list)}))
        return;
    answerUnmapped(rpcclt_openapiDot1qApiPrivateVlanAssocAdd(&openClient, queryUintExact("vlanId"), list));
}

/* The body of a DELETE is its query string. Usually it does not parse; OpEN then gets an empty list. */
static void privateVlanAssocRemove()
{
    VlanIdList list = {};
    parseBody({vlanIdsMember("vidList", &list)});
    answerUnmapped(rpcclt_openapiDot1qApiPrivateVlanAssocRemove(&openClient, queryUintExact("vlanId"), list));
}

static void privateVlanAssociationGet()
{
    VlanIdList list = {};
    int rc = rpcclt_openapiDot1qPrivateVlanAssociationGet(&openClient, queryUintExact("vlanId"), &list);
    answerVlan(rc, {vlanIds("vidList", list)});
}

static void hostAssocSet()
{
    uint32_t primary = 0;
    uint32_t secondary = 0;
    if (!readBody({integerOfNumberMember("primaryVlan", &primary),
                   integerOfNumberMember("secondaryVlan", &secondary)}))
        return;
    uint32_t ifNum = queryUintExact("ifNum");
    answerUnmapped(rpcclt_openapiDot1qIntfPVlanHostAssocSet(&openClient, ifNum, primary, secondary));
}

static void hostAssocRemove()
{
    answerUnmapped(rpcclt_openapiDot1qPVlanIntfHostAssocRemove(&openClient, queryUintExact("ifNum")));
}

/* Reads the same as pvlan-intf-host-assoc, but answers the code converted. */
static void hostAssocGet()
{
    uint32_t primary = 0;
    uint32_t secondary = 0;
    int rc = rpcclt_openapiPvlanIntfHostAssocGet(&openClient, queryUintExact("ifNum"), &primary, &secondary);
    answerVlan(rc, {number("primaryVid", primary), number("secondaryVid", secondary)});
}

static void promiscAssocSet()
{
    uint32_t primary = 0;
    VlanIdList list = {};
    if (!readBody({integerOfNumberMember("primaryVlan", &primary), vlanIdsMember("vidList", &list)}))
        return;
    uint32_t ifNum = queryUintExact("ifNum");
    answerUnmapped(rpcclt_openapiDot1qIntfPVlanPromiscAssocSet(&openClient, ifNum, primary, list));
}

static void promiscAssocRemove()
{
    answerUnmapped(rpcclt_openapiDot1qPVlanIntfPromiscAssocRemove(&openClient, queryUintExact("ifNum")));
}

/* Reads the same as pvlan-intf-promisc-assoc, but answers the code converted. */
static void promiscAssocGet()
{
    uint32_t primary = 0;
    VlanIdList list = {};
    int rc = rpcclt_openapiPvlanIntfPromiscAssocGet(&openClient, queryUintExact("ifNum"), &primary, &list);
    answerVlan(rc, {number("primaryVid", primary), vlanIds("secondaryVidList", list)});
}

/* Automatic trunking */

static void globalAutoTrunkGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiVlanGlobalAutoTrunkGet(&openClient, &mode);
    answerVlan(rc, {number("adminMode", mode)});
}

static void globalAutoTrunkSet()
{
    uint32_t mode = 0;
    if (!readBody({integerOfNumberMember("adminMode", &mode)}))
        return;
    answerUnmapped(rpcclt_openapiVlanGlobalAutoTrunkSet(&openClient, mode));
}

static void operAutoTrunkModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiDot1qOperAutoTrunkModeGet(&openClient, queryUintExact("intIfNum"), &mode);
    answerVlan(rc, {boolean("autoTrunkOperMode", mode == 1)});
}

/* ---- The VLAN of untagged traffic by its source: a MAC address or an OUI ---- */

static void macAdd()
{
    AddressText mac;
    uint32_t vlanId = 0;
    if (!readBody({textMember("mac", mac), integerOfNumberMember("vlanId", &vlanId)}))
        return;
    answerUnmapped(rpcclt_openapiVlanMacAdd(&openClient, lengthSized(mac), vlanId));
}

/* The only endpoint that refuses an absent address and percent-decodes the VLAN. */
static void macDelete()
{
    AddressText mac;
    if (!queryTextDecoded("mac", mac))
        return answerOutcomeFixed(ResultCode::INVALID_ARGUMENT);
    answerUnmapped(rpcclt_openapiVlanMacDelete(&openClient, lengthSized(mac), queryUintDecoded("vlanId")));
}

/* Answers the address as the client sent it, not as OpEN returns it. */
static void macGet()
{
    AddressText mac;
    queryTextDecoded("mac", mac);
    AddressText asked = mac;
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiVlanMacGet(&openClient, lengthSized(asked), &vlanId);
    answerVlan(rc, {string("mac", mac.bytes), number("vlanId", vlanId)});
}

/* A POST that only reads */
static void macGetNext()
{
    AddressText mac;
    if (!readBody({textMember("mac", mac)}))
        return;
    AddressText nextMac;
    uint32_t nextVlanId = 0;
    int rc = rpcclt_openapiVlanMacGetNext(&openClient, lengthSized(mac), bufferSized(nextMac), &nextVlanId);
    answerVlanOrInvalid(rc, {string("nextMac", nextMac.bytes), number("nextVlanId", nextVlanId)});
}

static void macOuiVlanAdd()
{
    AddressText oui;
    if (!readBody({textMember("oui", oui)}))
        return;
    answerMapped(rpcclt_openapiVlanMacOuiVlanAdd(&openClient, lengthSized(oui), queryUintExact("vlanId")));
}

static void macOuiVlanDelete()
{
    answerUnmapped(rpcclt_openapiVlanMacOuiVlanDelete(&openClient, queryUintExact("vlanId")));
}

static void macOuiVlanFirstGet()
{
    AddressText oui;
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiVlanMacOuiVlanFirstGet(&openClient, bufferSized(oui), &vlanId);
    answerVlanOrInvalid(rc, {string("oui", oui.bytes), number("vlanId", vlanId)});
}

static void macOuiVlanNextGet()
{
    AddressText oui;
    queryTextDecoded("oui", oui);
    AddressText nextOui;
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiVlanMacOuiVlanNextGet(&openClient, lengthSized(oui), bufferSized(nextOui), &vlanId);
    answerVlanOrInvalid(rc, {string("nextOui", nextOui.bytes), number("vlanId", vlanId)});
}

static void macOuiVlanCountGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiVlanMacOuiVlanCountGet(&openClient, &count);
    answerVlan(rc, {number("count", count)});
}

/* ---- Routes ---- */

/* Placeholders for what the switch does not support */
void addVlanPlaceholderRoutes(RouteDir *dir)
{
    addRoute(dir, "list", HTTP_GET, unsupportedRead);
    addRoute(dir, "list", HTTP_POST, unsupportedWrite);
    addRoute(dir, "list", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "detail", HTTP_GET, unsupportedRead);
    addRoute(dir, "name", HTTP_GET, unsupportedRead);
    addRoute(dir, "name", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "status", HTTP_GET, unsupportedRead);
    addRoute(dir, "port", HTTP_GET, unsupportedRead);
}

/*
 * More placeholders. Only the names that end in "-all" answer: addVlanRoutes registers the others again and so shadows
 * them. No request reaches those; they stay, as established behaviour.
 */
void addVlanShadowedRoutes(RouteDir *dir)
{
    addRoute(dir, "participation-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "acceptframe-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "pvid-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "tagging-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "ingressfilter-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "priority-all", HTTP_POST, unsupportedWrite);
    addRoute(dir, "if-pvid", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-pvid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "if-tagging", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "if-participation", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-participation", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "if-accept-frame-type", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-accept-frame-type", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "qports-enable-ingress-filtering", HTTP_GET, unsupportedRead);
    addRoute(dir, "qports-enable-ingress-filtering", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "if-default-user-priority", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-default-user-priority", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "dot1q-sw-port-tagged-vlan-list", HTTP_GET, unsupportedRead);
}

void addVlanRoutes(RouteDir *dir)
{
    addRoute(dir, "next", HTTP_GET, unsupportedRead);
    addRoute(dir, "created", HTTP_GET, unsupportedWrite); /* the only GET with a line end: established behaviour */
    addRoute(dir, "is-static", HTTP_POST, unsupportedWrite);
    addRoute(dir, "create", HTTP_POST, vlanCreate);
    addRoute(dir, "delete", HTTP_DELETE, vlanDelete);
    addRoute(dir, "next-changed", HTTP_GET, unsupportedRead);
    addRoute(dir, "name-len", HTTP_GET, nameLenGet);
    addRoute(dir, "dot1q-max-supported-vlans", HTTP_GET, maxSupportedVlansGet);
    addRoute(dir, "most-vlan-entries", HTTP_GET, mostVlanEntriesGet);
    addRoute(dir, "static-vlan-entries", HTTP_GET, staticVlanEntriesGet);
    addRoute(dir, "dynamic-vlan-entries", HTTP_GET, dynamicVlanEntriesGet);
    addRoute(dir, "dot1q-vlan-num-deletes", HTTP_GET, vlanNumDeletesGet);
    addRoute(dir, "tagged", HTTP_GET, taggedGet);
    addRoute(dir, "next-vlan", HTTP_GET, nextVlanGet);
    addRoute(dir, "vid-list", HTTP_GET, vidListGet);
    addRoute(dir, "type", HTTP_GET, typeGet);
    addRoute(dir, "if-accept-frame-type", HTTP_GET, ifAcceptFrameTypeGet);
    addRoute(dir, "if-accept-frame-type", HTTP_PUT, ifAcceptFrameTypeSet);
    addRoute(dir, "if-pvid", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-pvid", HTTP_PUT, ifPvidSet);
    addRoute(dir, "if-tagging", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-tagging", HTTP_PUT, ifTaggingSet);
    addRoute(dir, "if-participation-status", HTTP_GET, unsupportedRead);
    addRoute(dir, "if-participation", HTTP_GET, ifParticipationGet);
    addRoute(dir, "if-participation", HTTP_PUT, ifParticipationSet);
    addRoute(dir, "if-num-traffic-classes", HTTP_GET, ifNumTrafficClassesGet);
    addRoute(dir, "if-default-user-priority", HTTP_GET, ifDefaultUserPriorityGet);
    addRoute(dir, "if-default-user-priority", HTTP_PUT, ifDefaultUserPrioritySet);
    addRoute(dir, "qports-enable-ingress-filtering", HTTP_GET, qportsEnableIngressFilteringGet);
    addRoute(dir, "qports-enable-ingress-filtering", HTTP_PUT, qportsEnableIngressFilteringSet);
    addRoute(dir, "dot1q-port-ingress-filtering", HTTP_POST, portIngressFiltering);
    addRoute(dir, "qports-current-ingress-filtering", HTTP_GET, qportsCurrentIngressFilteringGet);
    addRoute(dir, "dot1q-rx-packets-not-forwarded-count", HTTP_GET, rxPacketsNotForwardedCountGet);
    addRoute(dir, "dot1q-sw-port-mode", HTTP_GET, swPortModeGet);
    addRoute(dir, "dot1q-sw-port-mode", HTTP_PUT, swPortModeSet);
    addRoute(dir, "dot1q-sw-port-access-vlan", HTTP_GET, swPortAccessVlanGet);
    addRoute(dir, "dot1q-sw-port-access-vlan", HTTP_PUT, swPortAccessVlanSet);
    addRoute(dir, "dot1q-sw-port-trunk-native-vlan", HTTP_GET, swPortTrunkNativeVlanGet);
    addRoute(dir, "dot1q-sw-port-trunk-native-vlan", HTTP_PUT, swPortTrunkNativeVlanSet);
    addRoute(dir, "dot1q-sw-port-trunk-allowed-vlan-list", HTTP_GET, swPortTrunkAllowedVlanListGet);
    addRoute(dir, "dot1q-sw-port-trunk-allowed-vlan-list", HTTP_PUT, swPortTrunkAllowedVlanListSet);
    addRoute(dir, "dot1q-sw-port-forbidden-vlan-list", HTTP_GET, swPortForbiddenVlanListGet);
    addRoute(dir, "dot1q-sw-port-untagged-vlan-list", HTTP_GET, swPortUntaggedVlanListGet);
    addRoute(dir, "dot1q-sw-port-tagged-vlan-list", HTTP_GET, swPortTaggedVlanListGet);
    addRoute(dir, "dot1q-sw-port-dynamically-added-vlan-list", HTTP_GET, swPortDynamicallyAddedVlanListGet);
    addRoute(dir, "pvlan-intf-mode", HTTP_GET, pvlanIntfModeGet);
    addRoute(dir, "pvlan-intf-host-assoc", HTTP_GET, pvlanIntfHostAssocGet);
    addRoute(dir, "pvlan-intf-promisc-assoc", HTTP_GET, pvlanIntfPromiscAssocGet);
    addRoute(dir, "pvlan-intf-oper-assoc", HTTP_GET, pvlanIntfOperAssocGet);
    addRoute(dir, "pvlan-intf-promisc-trunk-assoc-next", HTTP_GET, pvlanIntfPromiscTrunkAssocNextGet);
    addRoute(dir, "pvlan-intf-isolated-trunk-assoc-next", HTTP_GET, pvlanIntfIsolatedTrunkAssocNextGet);
    addRoute(dir, "pvlan-intf-trunk-native-vlan", HTTP_GET, pvlanIntfTrunkNativeVlanGet);
    addRoute(dir, "pvlan-intf-trunk-allowed-vlan-list", HTTP_GET, pvlanIntfTrunkAllowedVlanListGet);
    addRoute(dir, "dot1q-private-vlan-enable", HTTP_POST, privateVlanEnable);
    addRoute(dir, "dot1q-private-vlan", HTTP_GET, privateVlanGet);
    addRoute(dir, "dot1q-api-private-vlan-assoc", HTTP_POST, privateVlanAssocAdd);
    addRoute(dir, "dot1q-api-private-vlan-assoc", HTTP_DELETE, privateVlanAssocRemove);
    addRoute(dir, "dot1q-private-vlan-association", HTTP_GET, privateVlanAssociationGet);
    addRoute(dir, "dot1q-intf-pvlan-host-assoc", HTTP_PUT, hostAssocSet);
    addRoute(dir, "dot1q-pvlan-intf-host-assoc", HTTP_DELETE, hostAssocRemove);
    addRoute(dir, "dot1q-pvlan-intf-host-assoc", HTTP_GET, hostAssocGet);
    addRoute(dir, "dot1q-intf-pvlan-promisc-assoc", HTTP_PUT, promiscAssocSet);
    addRoute(dir, "dot1q-pvlan-intf-promisc-assoc", HTTP_DELETE, promiscAssocRemove);
    addRoute(dir, "dot1q-pvlan-intf-promisc-assoc", HTTP_GET, promiscAssocGet);
    addRoute(dir, "global-auto-trunk", HTTP_GET, globalAutoTrunkGet);
    addRoute(dir, "global-auto-trunk", HTTP_PUT, globalAutoTrunkSet);
    addRoute(dir, "dot1q-oper-auto-trunk-mode", HTTP_GET, operAutoTrunkModeGet);
    addRoute(dir, "mac", HTTP_POST, macAdd);
    addRoute(dir, "mac", HTTP_DELETE, macDelete);
    addRoute(dir, "mac", HTTP_GET, macGet);
    addRoute(dir, "mac-get-next", HTTP_POST, macGetNext);
    addRoute(dir, "mac-oui-vlan", HTTP_POST, macOuiVlanAdd);
    addRoute(dir, "mac-oui-vlan", HTTP_DELETE, macOuiVlanDelete);
    addRoute(dir, "mac-oui-vlan-first", HTTP_GET, macOuiVlanFirstGet);
    addRoute(dir, "mac-oui-vlan-next", HTTP_GET, macOuiVlanNextGet);
    addRoute(dir, "mac-oui-vlan-count", HTTP_GET, macOuiVlanCountGet);
}

void addVlanAssociationRoutes(RouteDir *dir)
{
    addRoute(dir, "mac", HTTP_GET, unsupportedRead);
    addRoute(dir, "mac", HTTP_POST, unsupportedWrite);
    addRoute(dir, "mac", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "oui", HTTP_GET, unsupportedRead);
    addRoute(dir, "oui", HTTP_POST, unsupportedWrite);
    addRoute(dir, "oui", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "subnet", HTTP_GET, unsupportedRead);
    addRoute(dir, "subnet", HTTP_POST, unsupportedWrite);
    addRoute(dir, "subnet", HTTP_DELETE, unsupportedWrite);
}

void addVlanProtocolGroupRoutes(RouteDir *dir)
{
    addRoute(dir, "group", HTTP_GET, unsupportedRead);
    addRoute(dir, "group", HTTP_POST, unsupportedWrite);
    addRoute(dir, "group", HTTP_DELETE, unsupportedWrite);
}

void addVlanProtocolEthertypeRoutes(RouteDir *dir)
{
    addRoute(dir, "group-ethertype", HTTP_GET, unsupportedRead);
    addRoute(dir, "group-ethertype", HTTP_POST, unsupportedWrite);
    addRoute(dir, "group-ethertype", HTTP_DELETE, unsupportedWrite);
}
