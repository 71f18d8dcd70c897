/*
 * families.h - the route tables of the endpoint families. main/ registers them, in an order that matters.
 */
#ifndef SWITCHING_FAMILIES_H
#define SWITCHING_FAMILIES_H

#include "httpd/route_tree.h"

extern const RouteTable bridgeRoutes;
extern const RouteTable dot1adRoutes;
extern const RouteTable fdbRoutes;
extern const RouteTable garpRoutes;
extern const RouteTable loopProtectRoutes;
extern const RouteTable macalRoutes;
extern const RouteTable mmrpRoutes;
extern const RouteTable mvrpRoutes;
extern const RouteTable protectedPortRoutes;
extern const RouteTable staticFilterRoutes;
extern const RouteTable stormControlRoutes;
extern const RouteTable voiceVlanRoutes;
extern const RouteTable voipRoutes;

/*
 * /vlan: placeholders; more of them, most shadowed by a later entry of the same name; then what answers, placeholders
 * among it.
 */
extern const RouteTable vlanPlaceholderRoutes;
extern const RouteTable vlanShadowedRoutes;
extern const RouteTable vlanRoutes;

extern const RouteTable vlanAssociationRoutes;
extern const RouteTable vlanProtocolGroupRoutes;
extern const RouteTable vlanProtocolEthertypeRoutes;

/* /pbvlan: what works, and the later placeholders that shadow some of it. */
extern const RouteTable pbvlanRoutes;
extern const RouteTable pbvlanVlanIdPlaceholderRoutes;
extern const RouteTable pbvlanNamePortPlaceholderRoutes;

#endif
