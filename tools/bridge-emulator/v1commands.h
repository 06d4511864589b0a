#pragma once

#include "lightstore.h"

#include <memory>
#include <string>

namespace minijson {
class CArray;
class CObject;
} // namespace minijson

namespace bridgeemu::v1 {

// PUT /lights/<id>/state: applies what the light accepts and answers one result per member of
// the body, in the body's order. A parameter the light does not have gives error 6, a value of
// the wrong type or range error 7, and while the light is (or is being switched) off every
// parameter but "on", "alert" and "transitiontime" gives error 201. The success results echo the
// values as sent; the light keeps them clamped to what it can do.
std::unique_ptr<minijson::CArray> applyLightState(EmulatedLight& light, const minijson::CObject& body,
                                                  const std::string& address);

// PUT /groups/<id>/action: as above, but a group accepts every known parameter and each member
// takes what it can; members that stay off ignore everything but "on" and "alert".
std::unique_ptr<minijson::CArray> applyGroupAction(LightStore& store, EmulatedGroup& group,
                                                   const minijson::CObject& body, const std::string& address);

// PUT /lights/<id> or /groups/<id> with "name" (and, for groups, "lights").
std::unique_ptr<minijson::CArray> applyAttributes(LightStore& store, const std::string& resource,
                                                  const minijson::CObject& body, const std::string& address);

} // namespace bridgeemu::v1
