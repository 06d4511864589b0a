#pragma once

#include "bridgeidentity.h"
#include "httpexchange.h"

#include <cstddef>
#include <memory>
#include <string>

namespace bridgeemu {

// The UPnP description document a bridge serves at /description.xml, as discovery fetches it
// after an SSDP announcement. `urlBasePort` is the plain-HTTP port the document points at.
std::string upnpDescription(const BridgeIdentity& identity, int urlBasePort);

std::string escapeXml(const std::string& text);

// What /description.xml serves: the document above, or one of two hostile ones for tests of
// the client's limits.
struct DescriptionShape
{
    enum class Mode
    {
        Normal,
        Deep, // elements nested `amount` deep (the root counts)
        Huge  // the document above with a comment that pads it to `amount` bytes
    };
    Mode mode = Mode::Normal;
    std::size_t amount = 0;
};

// The document of that shape, made as it is sent.
std::shared_ptr<const PatternBody> shapedDescription(const DescriptionShape& shape,
                                                     const BridgeIdentity& identity, int urlBasePort);

} // namespace bridgeemu
