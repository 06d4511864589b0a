#pragma once

#include "emulatorclock.h"

#include <chrono>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace bridgeemu {

struct WhitelistEntry
{
    std::string username;
    std::string name; // the "devicetype" the application gave
    std::string clientKey;
    std::string createDate; // "2024-05-01T10:20:30", UTC, as bridges write it
    std::string lastUseDate;
};

// The whitelist of application keys and the link button that lets a new application in.
// Not thread-safe: the emulator serialises access.
class Pairing
{
public:
    Pairing(Clock clock, std::chrono::milliseconds linkWindow);

    void setClock(Clock clock) { m_clock = std::move(clock); }
    // How long the button stays active after a press; a negative window never closes.
    void setLinkWindow(std::chrono::milliseconds window) { m_window = window; }
    void pressLinkButton();
    // Presses the button `delay` from now, as a user walking up to the bridge would.
    void pressLinkButtonAfter(std::chrono::milliseconds delay);
    bool linkButtonActive() const;

    // A new key if the link button is active, else nothing.
    std::optional<WhitelistEntry> registerApplication(const std::string& deviceType, bool withClientKey);
    // A new key whatever the button says (for tests that start paired).
    WhitelistEntry addApplication(const std::string& deviceType, bool withClientKey);
    bool isWhitelisted(const std::string& username) const;
    void markUsed(const std::string& username);
    bool removeApplication(const std::string& username);
    // Puts back an entry kept from an earlier run as it was.
    void restoreApplication(const WhitelistEntry& entry);
    const std::vector<WhitelistEntry>& whitelist() const { return m_whitelist; }

private:
    std::string randomText(std::size_t length, const char* alphabet);

    Clock m_clock;
    std::chrono::milliseconds m_window;
    std::optional<SteadyTime> m_pressedAt;
    std::vector<WhitelistEntry> m_whitelist;
    std::mt19937_64 m_random;
};

// The current UTC time as bridges write dates: "2024-05-01T10:20:30".
std::string bridgeDateNow();

} // namespace bridgeemu
