#pragma once

#include "bridgemodel.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bridgeemu {

class CertificateAuthority;
class ServerCertificate;

// What a bridge keeps across restarts, apart from its TLS key: who it is, the applications it
// let in, and its lights and groups with their state.
struct StoredState
{
    struct Light
    {
        int number = 0;
        std::string name;
        LightDescription description;
        LightState state;
    };

    std::string bridgeId;
    std::string mac;
    std::vector<WhitelistEntry> whitelist;
    bool hasLights = false; // false: the configured lights stand (a recorded dump has none to keep)
    std::vector<Light> lights;
    std::vector<EmulatedGroup> groups;
    int nextLight = 1;
    int nextGroup = 1;
};

StoredState captureState(const BridgeModel& model, bool withLights);
// Adds the whitelist and, when the state has them, replaces the lights and groups.
void applyState(const StoredState& state, BridgeModel& model);

std::string stateToJson(const StoredState& state);
// Nothing, with a message in `error`, for text that is not a state this writes.
std::optional<StoredState> stateFromJson(const std::string& text, std::string* error);

// The files of a state directory: bridge.json (the state above); certificate.pem (with its
// chain), key.pem and certificate.json ({"own":false} for a certificate put in by replacement,
// which is kept whatever it names); the test authority's authority-root.pem,
// authority-root-key.pem, authority-intermediate.pem and authority-intermediate-key.pem.
// Every file is written to a temporary name first and renamed over the old one, so a reader
// sees the old file or the new one, never a part.
class StateDirectory
{
public:
    explicit StateDirectory(std::string path) : m_path(std::move(path)) {}

    // Nothing, with the reason in `warning`, when the file is missing or unreadable.
    std::optional<StoredState> loadState(std::string* warning) const;
    bool saveState(const StoredState& state, std::string* error) const;
    // `own`, when given, tells whether the certificate is the bridge's own (not a replacement).
    std::unique_ptr<ServerCertificate> loadCertificate(std::string* warning, bool* own = nullptr) const;
    bool saveCertificate(const ServerCertificate& certificate, std::string* error, bool own = true) const;
    std::unique_ptr<CertificateAuthority> loadAuthority(std::string* warning) const;
    bool saveAuthority(const CertificateAuthority& authority, std::string* error) const;

private:
    std::unique_ptr<ServerCertificate> loadPair(const char* certificateFile, const char* keyFile,
                                                std::string* warning) const;
    bool savePair(const ServerCertificate& certificate, const char* certificateFile, const char* keyFile,
                  std::string* error) const;
    std::string file(const char* name) const { return m_path + "/" + name; }

    std::string m_path;
};

// Writes `content` to `path` by way of a temporary file in the same folder and a rename; the
// file gets `mode` (0600 for a private key). Creates the folder when it is missing.
bool writeFileAtomically(const std::string& path, const std::string& content, std::string* error,
                         unsigned mode = 0644);

} // namespace bridgeemu
