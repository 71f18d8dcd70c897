/*
 * dot1ad.cpp - /api/v2/switching/dot1ad: IEEE 802.1ad service VLANs. This system does not support them; the endpoints
 * answer so.
 */
#include "common/answer.h"
#include "switching/families.h"

void addDot1adRoutes(RouteDir *dir)
{
    addRoute(dir, "service", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "service-index-get-first", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service-name", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service-name", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-name-string", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-name-to-svid", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service-type", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "service-type", HTTP_GET, unsupportedRead);
    addRoute(dir, "isolate-vid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "nni-intf-list", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "nni-intf-list", HTTP_GET, unsupportedRead);
    addRoute(dir, "subscription-first-intf-entry", HTTP_GET, unsupportedRead);
    addRoute(dir, "subscription-next-intf-entry", HTTP_GET, unsupportedRead);
    addRoute(dir, "specific-subscription-next-intf-entry", HTTP_GET, unsupportedRead);
    addRoute(dir, "interface-type", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "interface-type", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-index-get-next", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service-vid-is-configured", HTTP_POST, unsupportedWrite);
    addRoute(dir, "service-isolate-vid-is-configured", HTTP_POST, unsupportedWrite);
    addRoute(dir, "subscription", HTTP_POST, unsupportedWrite);
    addRoute(dir, "subscription", HTTP_DELETE, unsupportedWrite);
    addRoute(dir, "reserve-current-subscription", HTTP_POST, unsupportedWrite);
    addRoute(dir, "release-current-subscription", HTTP_POST, unsupportedWrite);
    addRoute(dir, "subscription-name", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-name", HTTP_GET, unsupportedRead);
    addRoute(dir, "subscription-pkt-type", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-pkt-type", HTTP_GET, unsupportedRead);
    addRoute(dir, "subscription-svid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-match-cvid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-match-svid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-match-priority", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-cvid", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-remove-ctag", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "subscription-nni-intf-list", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "intf-next", HTTP_GET, unsupportedRead);
    addRoute(dir, "interface-preserve-cvlan-dot1p", HTTP_GET, unsupportedRead);
    addRoute(dir, "interface-preserve-cvlan-dot1p", HTTP_PUT, unsupportedWrite);
    addRoute(dir, "service-intf-match-cvid", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-intf-match-svid", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-intf-match-priority", HTTP_GET, unsupportedRead);
    addRoute(dir, "service-remove-ctag", HTTP_GET, unsupportedRead);
    addRoute(dir, "subscription-nni-intf-list", HTTP_GET, unsupportedRead);
}
