/*
 * endpoints.cpp - the order in which the endpoint families are registered.
 */
#include "main/endpoints.h"

#include "switching/families.h"

static void registerFamily(RouteTree *tree, const char *path, const RouteTable &table)
{
    httpdAddTable(tree, path, table, SESSION_ANY);
}

void registerEndpoints(RouteTree *tree)
{
    registerFamily(tree, "/api/v2/switching/bridge", bridgeRoutes);
    registerFamily(tree, "/api/v2/switching/dot1ad", dot1adRoutes);
    registerFamily(tree, "/api/v2/switching/fdb", fdbRoutes);
    registerFamily(tree, "/api/v2/switching/garp", garpRoutes);
    registerFamily(tree, "/api/v2/switching/loop-protect", loopProtectRoutes);
    registerFamily(tree, "/api/v2/switching/macal", macalRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", pbvlanRoutes);
    registerFamily(tree, "/api/v2/switching/protectedport", protectedPortRoutes);
    registerFamily(tree, "/api/v2/switching/static-filter", staticFilterRoutes);
    registerFamily(tree, "/api/v2/switching/storm-control", stormControlRoutes);
    registerFamily(tree, "/api/v2/switching/voice-vlan", voiceVlanRoutes);
    registerFamily(tree, "/api/v2/switching/voip", voipRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", vlanPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/association", vlanAssociationRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", vlanShadowedRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/protocol", vlanProtocolGroupRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", pbvlanVlanIdPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/protocol", vlanProtocolEthertypeRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", pbvlanNamePortPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", vlanRoutes);
    registerFamily(tree, "/api/v2/switching/mvrp", mvrpRoutes);
    registerFamily(tree, "/api/v2/switching/mmrp", mmrpRoutes);
}
