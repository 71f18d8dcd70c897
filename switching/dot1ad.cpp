/*
 * dot1ad.cpp - /api/v2/switching/dot1ad: IEEE 802.1ad service VLANs, which this system does not offer. The endpoints
 * exist so that a client gets a well-formed refusal.
 */
#include "common/answer.h"
#include "switching/families.h"

static const Route routes[] = {
    {"service", HTTP_POST, unsupportedWrite},
    {"service", HTTP_DELETE, unsupportedWrite},
    {"service-index-get-first", HTTP_POST, unsupportedWrite},
    {"service-name", HTTP_POST, unsupportedWrite},
    {"service-name", HTTP_GET, unsupportedRead},
    {"service-name-string", HTTP_GET, unsupportedRead},
    {"service-name-to-svid", HTTP_POST, unsupportedWrite},
    {"service-type", HTTP_PUT, unsupportedWrite},
    {"service-type", HTTP_GET, unsupportedRead},
    {"isolate-vid", HTTP_PUT, unsupportedWrite},
    {"nni-intf-list", HTTP_PUT, unsupportedWrite},
    {"nni-intf-list", HTTP_GET, unsupportedRead},
    {"subscription-first-intf-entry", HTTP_GET, unsupportedRead},
    {"subscription-next-intf-entry", HTTP_GET, unsupportedRead},
    {"specific-subscription-next-intf-entry", HTTP_GET, unsupportedRead},
    {"interface-type", HTTP_PUT, unsupportedWrite},
    {"interface-type", HTTP_GET, unsupportedRead},
    {"service-index-get-next", HTTP_POST, unsupportedWrite},
    {"service-vid-is-configured", HTTP_POST, unsupportedWrite},
    {"service-isolate-vid-is-configured", HTTP_POST, unsupportedWrite},
    {"subscription", HTTP_POST, unsupportedWrite},
    {"subscription", HTTP_DELETE, unsupportedWrite},
    {"reserve-current-subscription", HTTP_POST, unsupportedWrite},
    {"release-current-subscription", HTTP_POST, unsupportedWrite},
    {"subscription-name", HTTP_PUT, unsupportedWrite},
    {"subscription-name", HTTP_GET, unsupportedRead},
    {"subscription-pkt-type", HTTP_PUT, unsupportedWrite},
    {"subscription-pkt-type", HTTP_GET, unsupportedRead},
    {"subscription-svid", HTTP_PUT, unsupportedWrite},
    {"subscription-match-cvid", HTTP_PUT, unsupportedWrite},
    {"subscription-match-svid", HTTP_PUT, unsupportedWrite},
    {"subscription-match-priority", HTTP_PUT, unsupportedWrite},
    {"subscription-cvid", HTTP_PUT, unsupportedWrite},
    {"subscription-remove-ctag", HTTP_PUT, unsupportedWrite},
    {"subscription-nni-intf-list", HTTP_PUT, unsupportedWrite},
    {"intf-next", HTTP_GET, unsupportedRead},
    {"interface-preserve-cvlan-dot1p", HTTP_GET, unsupportedRead},
    {"interface-preserve-cvlan-dot1p", HTTP_PUT, unsupportedWrite},
    {"service-intf-match-cvid", HTTP_GET, unsupportedRead},
    {"service-intf-match-svid", HTTP_GET, unsupportedRead},
    {"service-intf-match-priority", HTTP_GET, unsupportedRead},
    {"service-remove-ctag", HTTP_GET, unsupportedRead},
    {"subscription-nni-intf-list", HTTP_GET, unsupportedRead},
};

const RouteTable dot1adRoutes = routeTable(routes);
