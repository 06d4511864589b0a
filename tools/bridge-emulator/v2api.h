#pragma once

#include "bridgemodel.h"
#include "httpexchange.h"

#include <string>
#include <vector>

namespace bridgeemu::v2 {

// CLIP API version 2 under /clip/v2/resource: GET of every resource, of one type or of one
// resource; PUT on light, device and geofence_client; POST and DELETE of geofence clients. The
// header "hue-application-key" must carry a whitelisted key. Answers use the bridge's envelope
// {"data":[...],"errors":[{"description":...}]}.
HttpResponse handleRequest(BridgeModel& model, const HttpRequest& request);

// The envelope with no data and the given errors, as every failure is answered.
HttpResponse errorResponse(int status, const std::vector<std::string>& descriptions);
// Whether the request carries a whitelisted application key (and marks it used).
bool isAuthorized(BridgeModel& model, const HttpRequest& request);

} // namespace bridgeemu::v2
