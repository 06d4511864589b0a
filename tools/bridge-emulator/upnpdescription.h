#pragma once

#include "bridgeidentity.h"

#include <string>

namespace bridgeemu {

// The UPnP description document a bridge serves at /description.xml, as discovery fetches it
// after an SSDP announcement. `urlBasePort` is the plain-HTTP port the document points at.
std::string upnpDescription(const BridgeIdentity& identity, int urlBasePort);

std::string escapeXml(const std::string& text);

} // namespace bridgeemu
