/*
 * endpoints.cpp - the order in which the endpoint families are registered.
 */
#include "main/endpoints.h"

#include "switching/families.h"

static void registerFamily(RouteTree *tree, const char *path, void (*addRoutes)(RouteDir *dir))
{
    addRoutes(routeDirFindOrCreate(tree, path)); /* a null directory: addRoute logs each endpoint it cannot add */
}

void registerEndpoints(RouteTree *tree)
{
    registerFamily(tree, "/api/v2/switching/bridge", addBridgeRoutes);
    registerFamily(tree, "/api/v2/switching/dot1ad", addDot1adRoutes);
    registerFamily(tree, "/api/v2/switching/fdb", addFdbRoutes);
    registerFamily(tree, "/api/v2/switching/garp", addGarpRoutes);
    registerFamily(tree, "/api/v2/switching/loop-protect", addLoopProtectRoutes);
    registerFamily(tree, "/api/v2/switching/macal", addMacalRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", addPbvlanRoutes);
    registerFamily(tree, "/api/v2/switching/protectedport", addProtectedPortRoutes);
    registerFamily(tree, "/api/v2/switching/static-filter", addStaticFilterRoutes);
    registerFamily(tree, "/api/v2/switching/storm-control", addStormControlRoutes);
    registerFamily(tree, "/api/v2/switching/voice-vlan", addVoiceVlanRoutes);
    registerFamily(tree, "/api/v2/switching/voip", addVoipRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", addVlanPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/association", addVlanAssociationRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", addVlanShadowedRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/protocol", addVlanProtocolGroupRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", addPbvlanVlanIdPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan/protocol", addVlanProtocolEthertypeRoutes);
    registerFamily(tree, "/api/v2/switching/pbvlan", addPbvlanNamePortPlaceholderRoutes);
    registerFamily(tree, "/api/v2/switching/vlan", addVlanRoutes);
    registerFamily(tree, "/api/v2/switching/mvrp", addMvrpRoutes);
    registerFamily(tree, "/api/v2/switching/mmrp", addMmrpRoutes);
}
