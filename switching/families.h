/*
 * families.h - the endpoint families. Each function registers the endpoints of a directory; main/endpoints.cpp calls
 * them in an order that matters.
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

/* /vlan: placeholders; placeholders that addVlanRoutes mostly shadows; the handlers, and more placeholders. */
void addVlanPlaceholderRoutes(RouteDir *dir);
void addVlanShadowedRoutes(RouteDir *dir);
void addVlanRoutes(RouteDir *dir);

void addVlanAssociationRoutes(RouteDir *dir);
void addVlanProtocolGroupRoutes(RouteDir *dir);
void addVlanProtocolEthertypeRoutes(RouteDir *dir);

/* /pbvlan: the handlers, and the placeholders that shadow some of them. */
void addPbvlanRoutes(RouteDir *dir);
void addPbvlanVlanIdPlaceholderRoutes(RouteDir *dir);
void addPbvlanNamePortPlaceholderRoutes(RouteDir *dir);

#endif
