#include "pairing.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace bridgeemu {

Pairing::Pairing(Clock clock, std::chrono::milliseconds linkWindow)
    : m_clock(std::move(clock)), m_window(linkWindow), m_random(std::random_device{}())
{
}

void Pairing::pressLinkButton()
{
    m_pressedAt = m_clock();
}

void Pairing::pressLinkButtonAfter(std::chrono::milliseconds delay)
{
    m_pressedAt = m_clock() + delay;
}

bool Pairing::linkButtonActive() const
{
    if (!m_pressedAt)
        return false;
    const SteadyTime now = m_clock();
    if (now < *m_pressedAt)
        return false;
    return m_window.count() < 0 || now - *m_pressedAt < m_window;
}

std::optional<WhitelistEntry> Pairing::registerApplication(const std::string& deviceType, bool withClientKey)
{
    if (!linkButtonActive())
        return std::nullopt;
    return addApplication(deviceType, withClientKey);
}

WhitelistEntry Pairing::addApplication(const std::string& deviceType, bool withClientKey)
{
    // Application keys are 40 characters of letters, digits and '-'; client keys (for the
    // entertainment stream) are 32 upper-case hex digits.
    WhitelistEntry entry;
    do {
        entry.username = randomText(40, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-");
    } while (isWhitelisted(entry.username));
    entry.name = deviceType;
    if (withClientKey)
        entry.clientKey = randomText(32, "0123456789ABCDEF");
    entry.createDate = bridgeDateNow();
    entry.lastUseDate = entry.createDate;
    m_whitelist.push_back(entry);
    return entry;
}

bool Pairing::isWhitelisted(const std::string& username) const
{
    return std::any_of(m_whitelist.begin(), m_whitelist.end(),
                       [&](const WhitelistEntry& entry) { return entry.username == username; });
}

void Pairing::markUsed(const std::string& username)
{
    for (WhitelistEntry& entry : m_whitelist) {
        if (entry.username == username)
            entry.lastUseDate = bridgeDateNow();
    }
}

bool Pairing::removeApplication(const std::string& username)
{
    const auto it = std::find_if(m_whitelist.begin(), m_whitelist.end(),
                                 [&](const WhitelistEntry& entry) { return entry.username == username; });
    if (it == m_whitelist.end())
        return false;
    m_whitelist.erase(it);
    return true;
}

void Pairing::restoreApplication(const WhitelistEntry& entry)
{
    if (!entry.username.empty() && !isWhitelisted(entry.username))
        m_whitelist.push_back(entry);
}

std::string Pairing::randomText(std::size_t length, const char* alphabet)
{
    const std::size_t size = std::strlen(alphabet);
    std::uniform_int_distribution<std::size_t> pick(0, size - 1);
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text += alphabet[pick(m_random)];
    return text;
}

std::string bridgeDateNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    return text;
}

} // namespace bridgeemu
