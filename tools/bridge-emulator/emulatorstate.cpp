#include "emulatorstate.h"

#include "certificate.h"
#include "v1render.h"

#include <minijson.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace bridgeemu {

using namespace minijson;

namespace {

ColorMode colorModeFromName(const std::string& name)
{
    if (name == "hs")
        return ColorMode::HueSaturation;
    if (name == "xy")
        return ColorMode::XY;
    if (name == "ct")
        return ColorMode::ColorTemperature;
    return ColorMode::None;
}

GamutType gamutFromName(const std::string& name)
{
    if (name == "A")
        return GamutType::A;
    if (name == "B")
        return GamutType::B;
    if (name == "C")
        return GamutType::C;
    return GamutType::None;
}

void writeLightState(CObject& object, const LightState& state)
{
    object.SetBoolean("on", state.on);
    object.SetInt("bri", state.bri);
    object.SetInt("hue", state.hue);
    object.SetInt("sat", state.sat);
    CArray& xy = object.AddArray("xy");
    xy.AddNumber().SetDouble(state.xy.x);
    xy.AddNumber().SetDouble(state.xy.y);
    object.SetInt("ct", state.ct);
    object.SetString("colormode", v1::colorModeText(state.colorMode)); // "" for none
    object.SetString("alert", state.alert);
    object.SetString("effect", state.effect);
    object.SetBoolean("reachable", state.reachable);
}

LightState readLightState(const CObject* object)
{
    LightState state;
    if (!object)
        return state;
    state.on = object->GetBoolean("on", state.on);
    state.bri = object->GetInt("bri", state.bri);
    state.hue = object->GetInt("hue", state.hue);
    state.sat = object->GetInt("sat", state.sat);
    if (const CArray* xy = object->GetArray("xy"); xy && xy->Count() == 2)
        state.xy = {xy->GetDouble(0, state.xy.x), xy->GetDouble(1, state.xy.y)};
    state.ct = object->GetInt("ct", state.ct);
    state.colorMode = colorModeFromName(object->GetString("colormode"));
    state.alert = object->GetString("alert", state.alert);
    state.effect = object->GetString("effect", state.effect);
    state.reachable = object->GetBoolean("reachable", state.reachable);
    return state;
}

// A positive number that fits a light or group id, else nothing.
std::optional<int> idNumber(const std::string& id)
{
    if (id.empty() || id.size() > 6 || id.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const int number = std::stoi(id);
    return number > 0 ? std::optional<int>(number) : std::nullopt;
}

std::optional<std::string> readWholeFile(const std::string& path, std::string* error)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (error)
            *error = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

StoredState captureState(const BridgeModel& model, bool withLights)
{
    StoredState state;
    state.bridgeId = model.identity.bridgeId;
    state.mac = model.identity.mac;
    state.whitelist = model.pairing.whitelist();
    state.hasLights = withLights;
    if (!withLights)
        return state;
    for (const EmulatedLight* light : model.lights.lights())
        state.lights.push_back({std::stoi(light->id()), light->name(), light->description(), light->state()});
    for (const EmulatedGroup* group : model.lights.groups())
        state.groups.push_back(*group);
    state.nextLight = model.lights.nextLightNumber();
    state.nextGroup = model.lights.nextGroupNumber();
    return state;
}

void applyState(const StoredState& state, BridgeModel& model)
{
    for (const WhitelistEntry& entry : state.whitelist)
        model.pairing.restoreApplication(entry);
    if (!state.hasLights)
        return;
    model.lights.clear();
    for (const StoredState::Light& light : state.lights)
        model.lights.restoreLight(light.number, light.name, light.description, light.state);
    for (const EmulatedGroup& group : state.groups)
        model.lights.restoreGroup(std::stoi(group.id), group);
    model.lights.reserveNumbers(state.nextLight, state.nextGroup);
}

std::string stateToJson(const StoredState& state)
{
    CObject root;
    root.SetString("bridgeid", state.bridgeId);
    root.SetString("mac", state.mac);
    CArray& whitelist = root.AddArray("whitelist");
    for (const WhitelistEntry& entry : state.whitelist) {
        CObject& item = whitelist.AddObject();
        item.SetString("username", entry.username);
        item.SetString("devicetype", entry.name);
        item.SetString("clientkey", entry.clientKey);
        item.SetString("created", entry.createDate);
        item.SetString("lastused", entry.lastUseDate);
    }
    if (state.hasLights) {
        CArray& lights = root.AddArray("lights");
        for (const StoredState::Light& light : state.lights) {
            CObject& item = lights.AddObject();
            const LightDescription& description = light.description;
            item.SetString("id", std::to_string(light.number));
            item.SetString("name", light.name);
            item.SetString("kind", lightKindName(description.kind));
            item.SetString("modelid", description.modelId);
            item.SetString("productname", description.productName);
            item.SetString("manufacturer", description.manufacturer);
            item.SetString("swversion", description.swVersion);
            item.SetString("archetype", description.archetype);
            item.SetString("uniqueid", description.uniqueId);
            item.SetString("gamut", gamutName(description.gamut));
            item.SetInt("ctmin", description.ctMin);
            item.SetInt("ctmax", description.ctMax);
            item.SetInt("maxlumen", description.maxLumen);
            item.SetInt("mindimlevel", description.minDimLevel);
            writeLightState(item.AddObject("state"), light.state);
        }
        CArray& groups = root.AddArray("groups");
        for (const EmulatedGroup& group : state.groups) {
            CObject& item = groups.AddObject();
            item.SetString("id", group.id);
            item.SetString("name", group.name);
            item.SetString("type", group.type == GroupType::Room ? "Room" : "LightGroup");
            item.SetString("class", group.roomClass);
            CArray& members = item.AddArray("lights");
            for (const std::string& id : group.lights)
                members.AddString(id);
            writeLightState(item.AddObject("action"), group.action);
        }
        root.SetInt("next_light", state.nextLight);
        root.SetInt("next_group", state.nextGroup);
    }
    return root.ToString(true) + "\n";
}

std::optional<StoredState> stateFromJson(const std::string& text, std::string* error)
{
    const auto fail = [error](const std::string& message) {
        if (error)
            *error = message;
        return std::nullopt;
    };
    std::unique_ptr<CEntity> document;
    try {
        document = CParser::Parse(text);
    } catch (const CException& e) {
        return fail(std::string("not JSON: ") + e.what());
    }
    if (!document->IsObject())
        return fail("not a JSON object");
    const CObject& root = document->Object();
    StoredState state;
    state.bridgeId = root.GetString("bridgeid");
    state.mac = root.GetString("mac");
    if (!isValidBridgeId(state.bridgeId) || (!state.mac.empty() && !isValidMac(state.mac)))
        return fail("no valid bridge id");
    if (const CArray* whitelist = root.GetArray("whitelist")) {
        for (int i = 0; i < whitelist->Count(); ++i) {
            if (!(*whitelist)[i].IsObject())
                return fail("a whitelist entry is not an object");
            const CObject& item = whitelist->GetObject(i);
            WhitelistEntry entry{item.GetString("username"), item.GetString("devicetype"),
                                 item.GetString("clientkey"), item.GetString("created"),
                                 item.GetString("lastused")};
            if (entry.username.empty())
                return fail("a whitelist entry has no user name");
            state.whitelist.push_back(entry);
        }
    }
    const CArray* lights = root.GetArray("lights");
    state.hasLights = lights != nullptr;
    if (!lights)
        return state;
    for (int i = 0; i < lights->Count(); ++i) {
        if (!(*lights)[i].IsObject())
            return fail("a light is not an object");
        const CObject& item = lights->GetObject(i);
        const auto number = idNumber(item.GetString("id"));
        const auto kind = lightKindFromName(item.GetString("kind"));
        if (!number || !kind)
            return fail("a light without a valid id or kind");
        StoredState::Light light;
        light.number = *number;
        light.name = item.GetString("name");
        LightDescription& description = light.description;
        description.kind = *kind;
        description.modelId = item.GetString("modelid");
        description.productName = item.GetString("productname");
        description.manufacturer = item.GetString("manufacturer", description.manufacturer);
        description.swVersion = item.GetString("swversion");
        description.archetype = item.GetString("archetype");
        description.uniqueId = item.GetString("uniqueid");
        description.gamut = gamutFromName(item.GetString("gamut"));
        description.ctMin = item.GetInt("ctmin");
        description.ctMax = item.GetInt("ctmax");
        description.maxLumen = item.GetInt("maxlumen");
        description.minDimLevel = item.GetInt("mindimlevel");
        light.state = readLightState(item.GetObject("state"));
        state.lights.push_back(std::move(light));
    }
    if (const CArray* groups = root.GetArray("groups")) {
        for (int i = 0; i < groups->Count(); ++i) {
            if (!(*groups)[i].IsObject())
                return fail("a group is not an object");
            const CObject& item = groups->GetObject(i);
            EmulatedGroup group;
            group.id = item.GetString("id");
            if (!idNumber(group.id))
                return fail("a group without a valid id");
            group.name = item.GetString("name");
            group.type = item.GetString("type") == "LightGroup" ? GroupType::LightGroup : GroupType::Room;
            group.roomClass = item.GetString("class", group.roomClass);
            if (const CArray* members = item.GetArray("lights")) {
                for (int m = 0; m < members->Count(); ++m) {
                    if ((*members)[m].IsString())
                        group.lights.push_back((*members)[m].StringValue());
                }
            }
            group.action = readLightState(item.GetObject("action"));
            state.groups.push_back(std::move(group));
        }
    }
    state.nextLight = root.GetInt("next_light", 1);
    state.nextGroup = root.GetInt("next_group", 1);
    return state;
}

std::optional<StoredState> StateDirectory::loadState(std::string* warning) const
{
    const auto text = readWholeFile(file("bridge.json"), warning);
    if (!text)
        return std::nullopt;
    std::string error;
    auto state = stateFromJson(*text, &error);
    if (!state && warning)
        *warning = file("bridge.json") + ": " + error;
    return state;
}

bool StateDirectory::saveState(const StoredState& state, std::string* error) const
{
    return writeFileAtomically(file("bridge.json"), stateToJson(state), error);
}

std::unique_ptr<ServerCertificate> StateDirectory::loadPair(const char* certificateFile, const char* keyFile,
                                                            std::string* warning) const
{
    const auto certificatePem = readWholeFile(file(certificateFile), warning);
    const auto keyPem = certificatePem ? readWholeFile(file(keyFile), warning) : std::nullopt;
    if (!keyPem)
        return nullptr;
    std::string error;
    auto certificate = ServerCertificate::fromPem(*certificatePem, *keyPem, &error);
    if (!certificate && warning)
        *warning = file(certificateFile) + ": " + error;
    return certificate;
}

bool StateDirectory::savePair(const ServerCertificate& certificate, const char* certificateFile,
                              const char* keyFile, std::string* error) const
{
    return writeFileAtomically(file(keyFile), certificate.keyPem(), error, 0600) &&
           writeFileAtomically(file(certificateFile), certificate.chainPem(), error);
}

std::unique_ptr<ServerCertificate> StateDirectory::loadCertificate(std::string* warning, bool* own) const
{
    if (own) {
        // Without the file (a folder of an older run) the certificate is the bridge's own.
        *own = true;
        if (const auto text = readWholeFile(file("certificate.json"), nullptr)) {
            try {
                const auto document = CParser::Parse(*text);
                *own = !document->IsObject() || !document->Object().Contains("own") ||
                       document->Object().GetBoolean("own");
            } catch (const CException&) {
            }
        }
    }
    return loadPair("certificate.pem", "key.pem", warning);
}

bool StateDirectory::saveCertificate(const ServerCertificate& certificate, std::string* error, bool own) const
{
    CObject marker;
    marker.SetBoolean("own", own);
    return savePair(certificate, "certificate.pem", "key.pem", error) &&
           writeFileAtomically(file("certificate.json"), marker.ToString(), error);
}

std::unique_ptr<CertificateAuthority> StateDirectory::loadAuthority(std::string* warning) const
{
    auto root = loadPair("authority-root.pem", "authority-root-key.pem", warning);
    auto intermediate = root ? loadPair("authority-intermediate.pem", "authority-intermediate-key.pem", warning)
                             : nullptr;
    if (!intermediate)
        return nullptr;
    return CertificateAuthority::fromParts(std::move(root), std::move(intermediate), warning);
}

bool StateDirectory::saveAuthority(const CertificateAuthority& authority, std::string* error) const
{
    return savePair(authority.root(), "authority-root.pem", "authority-root-key.pem", error) &&
           savePair(authority.intermediate(), "authority-intermediate.pem", "authority-intermediate-key.pem",
                    error);
}

bool writeFileAtomically(const std::string& path, const std::string& content, std::string* error,
                         unsigned mode)
{
    const auto fail = [&](const std::string& what) {
        if (error)
            *error = what + ": " + std::strerror(errno);
        return false;
    };
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code ignored;
    if (!folder.empty())
        std::filesystem::create_directories(folder, ignored);
    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        return fail("cannot write " + temporary);
    std::size_t written = 0;
    while (written < content.size()) {
        const ssize_t n = ::write(fd, content.data() + written, content.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            ::close(fd);
            ::unlink(temporary.c_str());
            return fail("cannot write " + temporary);
        }
        written += static_cast<std::size_t>(n);
    }
    // The data reaches the disk before the rename makes it the file, so that a crash leaves the
    // old file or the new one.
    const bool synced = ::fsync(fd) == 0;
    if (::close(fd) != 0 || !synced) {
        ::unlink(temporary.c_str());
        return fail("cannot write " + temporary);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return fail("cannot rename " + temporary);
    }
    return true;
}

} // namespace bridgeemu
