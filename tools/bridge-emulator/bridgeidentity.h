#pragma once

#include <string>
#include <string_view>

namespace bridgeemu {

// Who the emulated bridge claims to be: what "/api/config", the description document and the
// certificate report.
struct BridgeIdentity
{
    std::string bridgeId = "001788fffe123456"; // 16 hex digits; kept in lower case
    std::string name = "Philips hue";
    std::string mac; // "00:17:88:12:34:56"; empty: derived from the bridge id
    std::string modelId = "BSB002";
    std::string apiVersion = "1.65.0";
    std::string swVersion = "1965111030";
    std::string datastoreVersion = "149";
    int zigbeeChannel = 25;
};

bool isValidBridgeId(std::string_view id);
bool isValidMac(std::string_view mac);
// A bridge id is the MAC address with "fffe" in its middle: 001788fffe123456 <-> 00:17:88:12:34:56.
std::string macFromBridgeId(std::string_view bridgeId);
// The twelve hex digits of a MAC address, lower case, without separators.
std::string macDigits(std::string_view mac);
std::string toLower(std::string_view text);
std::string toUpper(std::string_view text);

// Checks the identity, lowers the bridge id and MAC and fills in the MAC when it is empty.
// Returns false with a message for an id or MAC of the wrong form.
bool normalizeIdentity(BridgeIdentity& identity, std::string* error);

} // namespace bridgeemu
