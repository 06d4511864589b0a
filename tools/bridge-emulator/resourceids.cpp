#include "resourceids.h"

#include <openssl/sha.h>

#include <array>
#include <cstdio>
#include <random>

namespace bridgeemu {

namespace {

std::string formatUuid(const unsigned char* bytes)
{
    char text[37];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8],
                  bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

} // namespace

std::string resourceUuid(std::string_view bridgeId, std::string_view kind, std::string_view key)
{
    // A name-based UUID (version 5 layout): SHA-1 of the name, version and variant bits set.
    const std::string name = std::string(bridgeId) + "/" + std::string(kind) + "/" + std::string(key);
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(name.data()), name.size(), digest.data());
    digest[6] = static_cast<unsigned char>((digest[6] & 0x0f) | 0x50);
    digest[8] = static_cast<unsigned char>((digest[8] & 0x3f) | 0x80);
    return formatUuid(digest.data());
}

std::string randomUuid()
{
    thread_local std::mt19937_64 generator{std::random_device{}()};
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        const auto value = generator();
        for (std::size_t k = 0; k < 8; ++k)
            bytes[i + k] = static_cast<unsigned char>(value >> (8 * k));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
    return formatUuid(bytes.data());
}

} // namespace bridgeemu
