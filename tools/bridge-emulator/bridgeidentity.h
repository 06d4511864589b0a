#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bridgeemu {

// Which kind of bridge it plays. Round: the first one (BSB001), REST API version 1 over plain
// HTTP only. Square: the second (BSB002), plain HTTP and HTTPS with a self-signed certificate.
// Pro: the newest (BSB003), HTTPS only with a certificate issued by an authority, plain HTTP
// redirected to HTTPS, no UPnP description.
enum class BridgeGeneration { Round, Square, Pro };

std::optional<BridgeGeneration> parseGeneration(std::string_view text);
const char* generationName(BridgeGeneration generation);

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

// Gives an identity whose model, versions, bridge id and MAC are still the defaults those of
// the generation: BSB001 1.16.0 01041302; BSB002 1.65.0 1965111030; BSB003 1.76.0 2071280000
// with bridge id and MAC under the prefix c4:29:96. Call before normalizeIdentity().
void applyGenerationDefaults(BridgeIdentity& identity, BridgeGeneration generation);

// Checks the identity, lowers the bridge id and MAC and fills in the MAC when it is empty.
// Returns false with a message for an id or MAC of the wrong form.
bool normalizeIdentity(BridgeIdentity& identity, std::string* error);

} // namespace bridgeemu
