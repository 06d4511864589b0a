#pragma once

#include "bridgemodel.h"
#include "httpexchange.h"

namespace bridgeemu::v1 {

// The bridge's REST API version 1: everything under "/api". The caller holds the model's lock.
//
// Unauthenticated: POST /api (pairing), GET /api/config and GET /api/<not a user>/config (the
// public configuration). Under /api/<user>: the datastore, config, lights, groups and empty
// schedules, scenes, rules, sensors and resourcelinks. Every answer is HTTP 200 with JSON, as on
// a real bridge; failures are error arrays.
HttpResponse handleRequest(BridgeModel& model, const HttpRequest& request);

} // namespace bridgeemu::v1
