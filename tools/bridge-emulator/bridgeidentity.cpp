#include "bridgeidentity.h"

#include <cctype>

namespace bridgeemu {

namespace {

bool isHexDigits(std::string_view text)
{
    for (const char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return false;
    }
    return true;
}

} // namespace

bool isValidBridgeId(std::string_view id)
{
    return id.size() == 16 && isHexDigits(id);
}

bool isValidMac(std::string_view mac)
{
    if (mac.size() != 17)
        return false;
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const bool separator = i % 3 == 2;
        if (separator ? mac[i] != ':' : !std::isxdigit(static_cast<unsigned char>(mac[i])))
            return false;
    }
    return true;
}

std::string macFromBridgeId(std::string_view bridgeId)
{
    const std::string digits = toLower(bridgeId.substr(0, 6)) + toLower(bridgeId.substr(10, 6));
    std::string mac;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        if (!mac.empty())
            mac += ':';
        mac += digits.substr(i, 2);
    }
    return mac;
}

std::string macDigits(std::string_view mac)
{
    std::string digits;
    for (const char c : mac) {
        if (c != ':')
            digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return digits;
}

std::string toLower(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string toUpper(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

std::optional<BridgeGeneration> parseGeneration(std::string_view text)
{
    if (text == "round")
        return BridgeGeneration::Round;
    if (text == "square")
        return BridgeGeneration::Square;
    if (text == "pro")
        return BridgeGeneration::Pro;
    return std::nullopt;
}

const char* generationName(BridgeGeneration generation)
{
    switch (generation) {
    case BridgeGeneration::Round:
        return "round";
    case BridgeGeneration::Pro:
        return "pro";
    case BridgeGeneration::Square:
        break;
    }
    return "square";
}

void applyGenerationDefaults(BridgeIdentity& identity, BridgeGeneration generation)
{
    if (generation == BridgeGeneration::Square)
        return;
    const BridgeIdentity defaults;
    const bool round = generation == BridgeGeneration::Round;
    if (identity.modelId == defaults.modelId)
        identity.modelId = round ? "BSB001" : "BSB003";
    if (identity.apiVersion == defaults.apiVersion)
        identity.apiVersion = round ? "1.16.0" : "1.76.0";
    if (identity.swVersion == defaults.swVersion)
        identity.swVersion = round ? "01041302" : "2071280000";
    if (round)
        return;
    // The newest bridges come with MAC addresses of another range.
    if (toLower(identity.bridgeId) == defaults.bridgeId)
        identity.bridgeId = "c42996fffe" + defaults.bridgeId.substr(10);
    if (identity.mac.empty() && isValidBridgeId(identity.bridgeId))
        identity.mac = macFromBridgeId("c42996fffe" + toLower(identity.bridgeId.substr(10)));
}

bool normalizeIdentity(BridgeIdentity& identity, std::string* error)
{
    if (!isValidBridgeId(identity.bridgeId)) {
        if (error)
            *error = "bridge id must be 16 hexadecimal digits, got \"" + identity.bridgeId + "\"";
        return false;
    }
    identity.bridgeId = toLower(identity.bridgeId);
    if (identity.mac.empty())
        identity.mac = macFromBridgeId(identity.bridgeId);
    if (!isValidMac(identity.mac)) {
        if (error)
            *error = "MAC address must look like 00:17:88:12:34:56, got \"" + identity.mac + "\"";
        return false;
    }
    identity.mac = toLower(identity.mac);
    return true;
}

} // namespace bridgeemu
