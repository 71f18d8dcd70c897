/*
 * families.h - the endpoint families: each adds its routes to its directory. main/ calls them, in an order that matters.
 */
#ifndef SWITCHING_FAMILIES_H
#define SWITCHING_FAMILIES_H

#include "httpd/route_tree.h"

void addBridgeRoutes(RouteDir *dir);
void addDot1adRoutes(RouteDir *dir);
void addFdbRoutes(RouteDir *dir);
void addGarpRoutes(RouteDir *dir);
void addLoopProtectRoutes(RouteDir *dir);
void addMacalRoutes(RouteDir *dir);
void addMmrpRoutes(RouteDir *dir);
void addMvrpRoutes(RouteDir *dir);
void addProtectedPortRoutes(RouteDir *dir);
void addStaticFilterRoutes(RouteDir *dir);
void addStormControlRoutes(RouteDir *dir);
void addVoiceVlanRoutes(RouteDir *dir);
void addVoipRoutes(RouteDir *dir);

/*
 * /vlan: placeholders; more of them, most shadowed by a later entry of the same name; then what answers, placeholders
 * among it.
 */
void addVlanPlaceholderRoutes(RouteDir *dir);
void addVlanShadowedRoutes(RouteDir *dir);
void addVlanRoutes(RouteDir *dir);

void addVlanAssociationRoutes(RouteDir *dir);
void addVlanProtocolGroupRoutes(RouteDir *dir);
void addVlanProtocolEthertypeRoutes(RouteDir *dir);

/* /pbvlan: what works, and the later placeholders that shadow some of it. */
void addPbvlanRoutes(RouteDir *dir);
void addPbvlanVlanIdPlaceholderRoutes(RouteDir *dir);
void addPbvlanNamePortPlaceholderRoutes(RouteDir *dir);

#endif
