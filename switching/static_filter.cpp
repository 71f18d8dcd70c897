/*
 * static_filter.cpp - /api/v2/switching/static-filter: static MAC filters, their interfaces and the filtering modes.
 *
 * Its address and VLAN identify a filter. The query string has the VLAN and the interface, with any method; the body of
 * a PUT or POST has the address. The address's descriptor states the length of the text, not the size of the buffer.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

/* Any other name is code 0; any other code is "disable". */
static constexpr NamedCode adminModeRows[] = {{1, "enable"}};
static constexpr NameTable adminModes = nameTable(adminModeRows);

/* Any other name is code 0; any other code is "filter_forward_all". */
static constexpr NamedCode filteringModeRows[] = {
    {1, "filter_forward_unregistered"}, {2, "filter_filter_unregistered"},
};
static constexpr NameTable filteringModes = nameTable(filteringModeRows);

static void answerStaticFilter(int rc, Data data)
{
    answerData("staticFilter", openResult(rc), data);
}

struct Filter {
    OpenText<18> mac;
    uint32_t vlanId = 0;
};

static Filter filterOfParams()
{
    Filter filter;
    filter.vlanId = queryUintExact("vlanId");
    readParams({textParam("macAddr", filter.mac)});
    return filter;
}

/* As readBody, for a body that has only the filter's address. */
static bool readFilterBody(Filter &filter)
{
    filter.vlanId = queryUintExact("vlanId");
    return readBody({textMember("macAddr", filter.mac)});
}

/* The table of filters */

static void adminModeSet()
{
    uint32_t mode = 0;
    if (!readBody({codeMember("adminMode", adminModes, &mode)}))
        return;
    answerResult(rpcclt_openapiFilterAdminModeSet(&openClient, mode));
}

static void adminModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiFilterAdminModeGet(&openClient, &mode);
    answerStaticFilter(rc, {codeName("adminMode", adminModes, mode, "disable")});
}

static void firstGet()
{
    OpenText<18> mac;
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiFilterFirstGet(&openClient, bufferSized(mac), &vlanId);
    answerStaticFilter(rc, {string("macAddr", mac.bytes), number("vlanId", vlanId)});
}

static void countGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiFilterCountGet(&openClient, &count);
    answerStaticFilter(rc, {number("count", count)});
}

static void countersGet()
{
    uint32_t total = 0, multicast = 0, unicast = 0;
    int rc = rpcclt_openapiFilterCountersGet(&openClient, &total, &multicast, &unicast);
    answerStaticFilter(rc, {number("totalCount", total), number("multicastFiltCount", multicast),
                            number("unicastFiltCount", unicast)});
}

static void sizeGet()
{
    uint32_t size = 0;
    int rc = rpcclt_openapiFilterSizeGet(&openClient, &size);
    answerStaticFilter(rc, {number("size", size)});
}

static void checkMacAddrTypeMulticast()
{
    OpenText<18> mac;
    if (!readBody({textMember("macAddr", mac)}))
        return;
    uint32_t flag = 0;
    int rc = rpcclt_openapiFilterCheckMacAddrTypeMulticast(&openClient, lengthSized(mac), &flag);
    answerYesNo("staticFilter", rc, flag);
}

static void filteringModeSet()
{
    uint32_t mode = 0;
    if (!readBody({codeMember("mode", filteringModes, &mode)}))
        return;
    answerResult(rpcclt_openapiFilterFilteringModeSet(&openClient, mode));
}

/* One filter */

static void filterCreate()
{
    Filter filter;
    if (!readFilterBody(filter))
        return;
    answerResult(rpcclt_openapiFilterCreate(&openClient, lengthSized(filter.mac), filter.vlanId));
}

static void filterRemove()
{
    Filter filter = filterOfParams();
    answerResult(rpcclt_openapiFilterRemove(&openClient, lengthSized(filter.mac), filter.vlanId));
}

static void srcIntfListModify()
{
    Filter filter;
    filter.vlanId = queryUintExact("vlanId");
    OpenText<4097> intfList;
    if (!readBody({textMember("macAddr", filter.mac), textMember("srcIntfList", intfList)}))
        return;
    answerResult(rpcclt_openapiFilterSrcIntfListModify(&openClient, lengthSized(filter.mac), filter.vlanId,
                                                       bufferSized(intfList)));
}

static void nextGet()
{
    Filter filter = filterOfParams();
    OpenText<18> nextMac;
    uint32_t nextVlanId = 0;
    int rc = rpcclt_openapiFilterNextGet(&openClient, lengthSized(filter.mac), filter.vlanId,
                                         bufferSized(nextMac), &nextVlanId);
    answerStaticFilter(rc, {string("nextMacAddr", nextMac.bytes), number("nextVlanId", nextVlanId)});
}

static void srcIntfListGet()
{
    Filter filter = filterOfParams();
    OpenText<4097> intfList;
    uint32_t count = 0;
    int rc = rpcclt_openapiFilterSrcIntfListGet(&openClient, lengthSized(filter.mac), filter.vlanId,
                                                &count, bufferSized(intfList));
    answerStaticFilter(rc, {number("numOfSrcIntf", count), string("srcIntfList", intfList.bytes)});
}

static void dstIntfListGet()
{
    Filter filter = filterOfParams();
    OpenText<4097> intfList;
    uint32_t count = 0;
    int rc = rpcclt_openapiFilterDstIntfListGet(&openClient, lengthSized(filter.mac), filter.vlanId,
                                                &count, bufferSized(intfList));
    answerStaticFilter(rc, {number("numOfDstIntf", count), string("dstIntfList", intfList.bytes)});
}

/* The count has the same key as in filter-dst-intf-list: established behaviour. */
static void dstFiltIntfListGet()
{
    Filter filter = filterOfParams();
    OpenText<4097> intfList;
    uint32_t count = 0;
    int rc = rpcclt_openapiFilterDstFiltIntfListGet(&openClient, lengthSized(filter.mac), filter.vlanId,
                                                    &count, bufferSized(intfList));
    answerStaticFilter(rc, {number("numOfDstIntf", count), string("dstFiltIntfList", intfList.bytes)});
}

static void isConfigured()
{
    Filter filter;
    if (!readFilterBody(filter))
        return;
    uint32_t flag = 0;
    int rc = rpcclt_openapiFilterIsConfigured(&openClient, lengthSized(filter.mac), filter.vlanId, &flag);
    answerYesNo("staticFilter", rc, flag);
}

/* The filtering mode of a VLAN */

static void vlanFilteringModeSet()
{
    uint32_t mode = 0;
    if (!readBody({codeMember("mode", filteringModes, &mode)}))
        return;
    answerResult(rpcclt_openapiFilterVlanFilteringModeSet(&openClient, queryUintExact("vlanId"), mode));
}

static void vlanFilteringModeGet()
{
    uint32_t mode = 0;
    int rc = rpcclt_openapiFilterVlanFilteringModeGet(&openClient, queryUintExact("vlanId"), &mode);
    answerStaticFilter(rc, {codeName("mode", filteringModes, mode, "filter_forward_all")});
}

/* The stream of a filter */

static void streamSet()
{
    Filter filter;
    filter.vlanId = queryUintExact("vlanId");
    uint32_t streamId = 0;
    if (!readBody({textMember("macAddr", filter.mac), integerOfNumberMember("streamId", &streamId)}))
        return;
    answerResult(rpcclt_openapiFilterStreamSet(&openClient, lengthSized(filter.mac), filter.vlanId, streamId));
}

static void streamGet()
{
    Filter filter = filterOfParams();
    uint32_t streamId = 0;
    int rc = rpcclt_openapiFilterStreamGet(&openClient, lengthSized(filter.mac), filter.vlanId, &streamId);
    answerStaticFilter(rc, {number("streamId", streamId)});
}

/* Questions about an interface. They read no body, with any method. */

static void isIntfInAnyFilter()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiFilterIsIntfInAnyFilter(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("staticFilter", rc, flag);
}

/* Only asks, although it is a PUT and the operation is named "set". */
static void portParmCanSet()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiFilterPortParmCanSet(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("staticFilter", rc, flag);
}

static void isValidIntf()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiFilterIsValidIntf(&openClient, queryUintExact("ifNum"), &flag);
    answerYesNo("staticFilter", rc, flag);
}

/* The interfaces of a filter */

static void srcIntfAdd()
{
    Filter filter;
    uint32_t ifNum = queryUintExact("ifNum");
    if (!readFilterBody(filter))
        return;
    answerResult(rpcclt_openapiFilterSrcIntfAdd(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum));
}

static void srcIntfDelete()
{
    Filter filter = filterOfParams();
    uint32_t ifNum = queryUintExact("ifNum");
    answerResult(rpcclt_openapiFilterSrcIntfDelete(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum));
}

static void dstIntfAdd()
{
    Filter filter;
    uint32_t ifNum = queryUintExact("ifNum");
    if (!readFilterBody(filter))
        return;
    answerResult(rpcclt_openapiFilterDstIntfAdd(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum));
}

static void dstIntfDelete()
{
    Filter filter = filterOfParams();
    uint32_t ifNum = queryUintExact("ifNum");
    answerResult(rpcclt_openapiFilterDstIntfDelete(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum));
}

static void dstIntfListAdd()
{
    Filter filter;
    filter.vlanId = queryUintExact("vlanId");
    uint32_t ifNum = queryUintExact("ifNum");
    OpenText<4097> fwdList, filterList;
    if (!readBody({textMember("macAddr", filter.mac), textMember("fwdIntfList", fwdList),
                   textMember("filterIntfList", filterList)}))
        return;
    answerResult(rpcclt_openapiFilterDstIntfListAdd(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum,
                                                    bufferSized(fwdList), bufferSized(filterList)));
}

static void dstIntfListDelete()
{
    Filter filter;
    filter.vlanId = queryUintExact("vlanId");
    uint32_t ifNum = queryUintExact("ifNum");
    OpenText<4097> fwdList, filterList;
    readParams({textParam("macAddr", filter.mac), textParam("fwdIntfList", fwdList),
                textParam("filterIntfList", filterList)});
    answerResult(rpcclt_openapiFilterDstIntfListDelete(&openClient, lengthSized(filter.mac), filter.vlanId, ifNum,
                                                       bufferSized(fwdList), bufferSized(filterList)));
}

void addStaticFilterRoutes(RouteDir *dir)
{
    addRoute(dir, "filter-admin-mode", HTTP_PUT, adminModeSet);
    addRoute(dir, "filter-admin-mode", HTTP_GET, adminModeGet);
    addRoute(dir, "filter-first", HTTP_GET, firstGet);
    addRoute(dir, "filter-count", HTTP_GET, countGet);
    addRoute(dir, "filter-counters", HTTP_GET, countersGet);
    addRoute(dir, "filter-size", HTTP_GET, sizeGet);
    addRoute(dir, "filter-check-mac-addr-type-multicast", HTTP_POST, checkMacAddrTypeMulticast);
    addRoute(dir, "filter-filtering-mode", HTTP_PUT, filteringModeSet);
    addRoute(dir, "filter", HTTP_POST, filterCreate);
    addRoute(dir, "filter", HTTP_DELETE, filterRemove);
    addRoute(dir, "filter-src-intf-list-modify", HTTP_POST, srcIntfListModify);
    addRoute(dir, "filter-next", HTTP_GET, nextGet);
    addRoute(dir, "filter-src-intf-list", HTTP_GET, srcIntfListGet);
    addRoute(dir, "filter-dst-intf-list", HTTP_GET, dstIntfListGet);
    addRoute(dir, "filter-dst-filt-intf-list", HTTP_GET, dstFiltIntfListGet);
    addRoute(dir, "filter-is-configured", HTTP_POST, isConfigured);
    addRoute(dir, "filter-vlan-filtering-mode", HTTP_PUT, vlanFilteringModeSet);
    addRoute(dir, "filter-vlan-filtering-mode", HTTP_GET, vlanFilteringModeGet);
    addRoute(dir, "filter-stream", HTTP_PUT, streamSet);
    addRoute(dir, "filter-stream", HTTP_GET, streamGet);
    addRoute(dir, "filter-is-intf-in-any-filter", HTTP_POST, isIntfInAnyFilter);
    addRoute(dir, "filter-port-parm-can", HTTP_PUT, portParmCanSet);
    addRoute(dir, "filter-is-valid-intf", HTTP_POST, isValidIntf);
    addRoute(dir, "filter-src-intf", HTTP_POST, srcIntfAdd);
    addRoute(dir, "filter-src-intf", HTTP_DELETE, srcIntfDelete);
    addRoute(dir, "filter-dst-intf", HTTP_POST, dstIntfAdd);
    addRoute(dir, "filter-dst-intf", HTTP_DELETE, dstIntfDelete);
    addRoute(dir, "filter-dst-intf-list", HTTP_POST, dstIntfListAdd);
    addRoute(dir, "filter-dst-intf-list", HTTP_DELETE, dstIntfListDelete);
}
