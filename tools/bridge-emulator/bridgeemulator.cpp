#include "bridgeemulator.h"

#include "bridgemodel.h"
#include "certificate.h"
#include "emulatorstate.h"
#include "eventstream.h"
#include "faultrules.h"
#include "httplistener.h"
#include "requestrouter.h"
#include "resourceids.h"
#include "sharedportfront.h"
#include "taskscheduler.h"
#include "v2events.h"
#include "v2render.h"

#include <minijson.h>

#include <atomic>
#include <filesystem>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace bridgeemu {

namespace {

LightSnapshot snapshotOf(const EmulatedLight& light)
{
    return {light.id(), light.name(), light.description(), light.state()};
}

// How long after a change the state folder is written: changes in between share one write.
constexpr std::chrono::milliseconds kSaveDelay{200};
// How many messages a flood lets wait for the slowest stream before it waits too.
constexpr std::size_t kFloodBacklog = 256;

void warn(const std::string& message)
{
    std::fprintf(stderr, "hue-bridge-emulator: %s\n", message.c_str());
}

// What a flood's events name: one light's resource ids and its actual value.
struct FloodTarget
{
    std::unique_ptr<minijson::CObject> base; // id, id_v1, owner, type
    bool dimmable = false;
    double brightness = 0;
    bool on = false;
};

std::vector<FloodTarget> floodTargets(const BridgeModel& model)
{
    std::vector<FloodTarget> targets;
    for (const auto& resource : v2::renderResources(model)) {
        if (resource->GetString("type") != "light")
            continue;
        FloodTarget target;
        target.base = std::make_unique<minijson::CObject>();
        for (const char* member : {"id", "id_v1", "owner", "type"}) {
            if (const minijson::CEntity* value = resource->Find(member))
                target.base->Add(member, value->Copy());
        }
        const minijson::CObject* dimming = resource->GetObject("dimming");
        target.dimmable = dimming != nullptr;
        target.brightness = dimming ? dimming->GetDouble("brightness") : 0;
        const minijson::CObject* on = resource->GetObject("on");
        target.on = on && on->GetBoolean("on");
        targets.push_back(std::move(target));
    }
    return targets;
}

// The data of flood message `index` of `total`: event g of the flood names light g modulo the
// lights; the last round of events carries each light's actual value, so that a client that
// followed the flood ends where the bridge is.
std::string floodMessage(const std::vector<FloodTarget>& targets, long long index, int perMessage,
                         long long total)
{
    minijson::CArray events;
    const std::string now = v2::eventTime(std::chrono::system_clock::now());
    const long long lightCount = static_cast<long long>(targets.size());
    for (int e = 0; e < perMessage && lightCount > 0; ++e) {
        const long long g = index * perMessage + e;
        const FloodTarget& target = targets[static_cast<std::size_t>(g % lightCount)];
        const bool last = g >= total * perMessage - lightCount;
        minijson::CObject& event = events.AddObject();
        event.SetString("creationtime", now);
        minijson::CObject& update = event.AddArray("data").AddObject();
        update.MergeFrom(*target.base, true);
        if (target.dimmable)
            update.AddObject("dimming").SetDouble("brightness",
                                                  last ? target.brightness : 1 + (g * 37) % 100);
        else
            update.AddObject("on").SetBoolean("on", last ? target.on : g % 2 == 0);
        event.SetString("id", randomUuid());
        event.SetString("type", "update");
    }
    return events.ToString();
}

} // namespace

struct BridgeEmulator::Impl
{
    // The listeners of one kind of traffic: 127.0.0.1 and, when asked for, ::1.
    struct ListenerSet
    {
        std::vector<std::unique_ptr<HttpListener>> listeners;
        std::atomic<int> port{-1}; // read by request threads without the listener lock
    };

    Impl(BridgeEmulator& owner, EmulatorConfig configIn)
        : config(std::move(configIn)), model(config.identity, config.clock, config.linkButtonWindow),
          log(config.requestLogLimit), rateLimiter(config.clock),
          router(owner, modelMutex, model, log, faults, rateLimiter, http.port, events,
                 [this] { noteChange(); })
    {
    }

    // Something may have changed: its events go out at the end of the window that this opens,
    // and the state folder is written shortly after.
    void noteChange();
    void notePersistentChange();
    bool saveState(std::string* error);
    bool loadAuthority(std::string* error);
    void loadCertificate(std::string* error);
    // A new certificate of the bridge's own for `commonName`: issued by the authority (pro) or
    // self-signed.
    std::unique_ptr<ServerCertificate> makeOwnCertificate(const std::string& commonName, std::string* error) const;
    std::string ownCommonName() const;
    // Presents `next` from now on and keeps it in the state folder; with listenerMutex held.
    void putCertificate(std::shared_ptr<const ServerCertificate> next, bool own);
    // Where a plain request of a pro bridge is sent: the https port, or the shared port for
    // one that came through it.
    HttpResponse redirectToHttps(const HttpRequest& request) const;
    void stopFlood();
    void flushEvents();
    void changeQuirks(const std::function<void(ClipQuirks&)>& change);

    ListenerCallbacks callbacks(bool controlOnly);
    bool openSet(ListenerSet& set, int port, bool controlOnly, const CertificateSlot* certificate,
                 std::string* error);
    void closeSet(ListenerSet& set);
    bool openShared(std::string* error);
    // A request that came through the shared port carries that port.
    HttpRequest asReceived(const HttpRequest& request) const;

    EmulatorConfig config;
    std::string identityError;

    mutable std::mutex modelMutex; // guards model
    BridgeModel model;

    RequestLog log;
    FaultRules faults;
    RateLimiter rateLimiter;
    TaskScheduler scheduler;

    EventStreamHub events;
    std::mutex flushMutex; // guards resourceEvents; taken before modelMutex
    v2::ResourceEvents resourceEvents;
    std::atomic<bool> flushPending{false};

    std::mutex saveMutex; // one write of the state folder at a time
    std::atomic<bool> savePending{false};

    mutable std::mutex floodMutex; // guards the flood's thread and its stop flag
    std::condition_variable floodWake;
    std::thread floodThread;
    bool floodStopping = false;
    std::atomic<bool> floodRunning{false};

    mutable std::mutex listenerMutex; // guards everything below but the ports
    std::unique_ptr<CertificateAuthority> authority;
    CertificateSlot certificate; // the one presented
    bool certificateOwn = true;  // false while a replacement is presented
    // Those presented before, newest last, with whether each was the bridge's own.
    std::vector<std::pair<std::shared_ptr<const ServerCertificate>, bool>> earlierCertificates;
    ListenerSet https, http, control;
    SharedPortFront shared;
    std::atomic<int> sharedPort{-1};
    bool running = false;
    bool refusing = false;

    RequestRouter router;
};

void BridgeEmulator::Impl::notePersistentChange()
{
    if (config.stateDir.empty() || savePending.exchange(true))
        return;
    scheduler.runAfter(kSaveDelay, [this] {
        savePending = false;
        std::string error;
        if (!saveState(&error))
            warn("cannot keep the state: " + error);
    });
}

bool BridgeEmulator::Impl::saveState(std::string* error)
{
    if (config.stateDir.empty())
        return true;
    std::lock_guard<std::mutex> saveLock(saveMutex);
    StoredState state;
    {
        std::lock_guard<std::mutex> lock(modelMutex);
        state = captureState(model, config.clipDumpPath.empty());
    }
    return StateDirectory(config.stateDir).saveState(state, error);
}

// Takes the kept authority, else makes one (and keeps it).
bool BridgeEmulator::Impl::loadAuthority(std::string* error)
{
    const StateDirectory folder(config.stateDir);
    if (!config.stateDir.empty()) {
        std::string warning;
        authority = folder.loadAuthority(&warning);
        if (!authority && std::filesystem::exists(config.stateDir + "/authority-root.pem"))
            warn(warning + "; making a new test authority");
    }
    if (!authority) {
        authority = CertificateAuthority::create(error);
        std::string saveError;
        if (authority && !config.stateDir.empty() && !folder.saveAuthority(*authority, &saveError))
            warn("cannot keep the test authority: " + saveError);
    }
    return authority != nullptr;
}

std::string BridgeEmulator::Impl::ownCommonName() const
{
    return config.certificateCommonName.empty() ? model.identity.bridgeId : config.certificateCommonName;
}

std::unique_ptr<ServerCertificate> BridgeEmulator::Impl::makeOwnCertificate(const std::string& commonName,
                                                                            std::string* error) const
{
    if (config.generation == BridgeGeneration::Pro)
        return ServerCertificate::issue(*authority, model.identity.bridgeId, commonName, error);
    return ServerCertificate::create(model.identity.bridgeId, error, commonName);
}

// Takes the kept certificate when it is what this run's would be (its common name, issued by
// the authority for a pro bridge, else self-signed) or a replacement put in on purpose, else
// makes a new one.
void BridgeEmulator::Impl::loadCertificate(std::string* error)
{
    const std::string commonName = ownCommonName();
    const bool issued = config.generation == BridgeGeneration::Pro;
    const StateDirectory folder(config.stateDir);
    std::unique_ptr<ServerCertificate> kept;
    bool own = true;
    if (!config.stateDir.empty()) {
        std::string warning;
        kept = folder.loadCertificate(&warning, &own);
        if (kept && own && kept->commonName() != commonName) {
            warning = "the kept certificate names \"" + kept->commonName() + "\", not \"" + commonName + "\"";
            kept.reset();
        } else if (kept && own && (issued ? !kept->isIssuedBy(authority->intermediate()) : !kept->isSelfSigned())) {
            warning = issued ? "the kept certificate is not issued by the test authority"
                             : "the kept certificate is not self-signed";
            kept.reset();
        }
        if (!kept)
            warn(warning + "; making a new certificate");
    }
    if (!kept) {
        own = true;
        kept = makeOwnCertificate(commonName, error);
        std::string saveError;
        if (kept && !config.stateDir.empty() && !folder.saveCertificate(*kept, &saveError))
            warn("cannot keep the certificate: " + saveError);
    }
    certificateOwn = own;
    certificate.set(std::move(kept));
}

void BridgeEmulator::Impl::putCertificate(std::shared_ptr<const ServerCertificate> next, bool own)
{
    if (!config.stateDir.empty()) {
        std::string error;
        if (!StateDirectory(config.stateDir).saveCertificate(*next, &error, own))
            warn("cannot keep the certificate: " + error);
    }
    certificate.set(std::move(next));
    certificateOwn = own;
}

HttpResponse BridgeEmulator::Impl::redirectToHttps(const HttpRequest& request) const
{
    std::string host = "127.0.0.1";
    for (const auto& [name, value] : request.headers) {
        if (toLower(name) != "host" || value.empty())
            continue;
        // The host without its port; an IPv6 address keeps its brackets.
        const std::size_t close = value.rfind(']');
        const std::size_t colon = value.rfind(':');
        host = colon != std::string::npos && (close == std::string::npos || colon > close) ? value.substr(0, colon)
                                                                                          : value;
    }
    const bool viaShared = sharedPort > 0 && request.localPort == sharedPort;
    const int port = viaShared ? sharedPort.load() : https.port.load();
    HttpResponse response = HttpResponse::text(301, "Moved Permanently", "text/html");
    response.headers.emplace_back("Location", "https://" + host + (port == 443 ? "" : ":" + std::to_string(port)) +
                                                  request.target);
    return response;
}

void BridgeEmulator::Impl::stopFlood()
{
    {
        std::lock_guard<std::mutex> lock(floodMutex);
        floodStopping = true;
    }
    floodWake.notify_all();
    if (floodThread.joinable())
        floodThread.join();
    std::lock_guard<std::mutex> lock(floodMutex);
    floodStopping = false;
}

void BridgeEmulator::Impl::noteChange()
{
    notePersistentChange();
    if (!flushPending.exchange(true)) {
        scheduler.runAfter(config.eventWindow, [this] {
            flushPending = false;
            flushEvents();
        });
    }
}

void BridgeEmulator::Impl::flushEvents()
{
    std::lock_guard<std::mutex> flushLock(flushMutex);
    v2::ResourceList view;
    bool withoutMirekValid = false;
    {
        std::lock_guard<std::mutex> lock(modelMutex);
        if (!model.clip.enabled)
            return;
        view = v2::renderResources(model);
        withoutMirekValid = model.clip.quirks.eventsWithoutMirekValid;
    }
    const std::string data =
        resourceEvents.advance(view, std::chrono::system_clock::now(), withoutMirekValid);
    if (!data.empty())
        events.publish(data);
}

void BridgeEmulator::Impl::changeQuirks(const std::function<void(ClipQuirks&)>& change)
{
    // Pending changes go out as the old way writes them; the new way is then the view later
    // changes are compared with, so that switching it makes no events of itself.
    flushEvents();
    std::lock_guard<std::mutex> flushLock(flushMutex);
    std::lock_guard<std::mutex> lock(modelMutex);
    change(model.clip.quirks);
    resourceEvents.reset(v2::renderResources(model));
}

ListenerCallbacks BridgeEmulator::Impl::callbacks(bool controlOnly)
{
    ListenerCallbacks result;
    // Without a plain HTTP port, the shared port relays its plain connections to the control
    // port; those are the bridge's own.
    if (controlOnly)
        result.handle = [this](const HttpRequest& request) {
            return sharedPort > 0 && shared.relaysFrom(request.remotePort) ? router.route(asReceived(request))
                                                                           : router.routeControlOnly(request);
        };
    else
        result.handle = [this](const HttpRequest& request) { return router.route(asReceived(request)); };
    result.answeredByLibrary = [this, controlOnly](const HttpRequest& request, int status) {
        if (!controlOnly)
            router.recordLibraryAnswer(asReceived(request), status);
    };
    result.runLater = [this](std::function<void()> action) { scheduler.runSoon(std::move(action)); };
    return result;
}

bool BridgeEmulator::Impl::openSet(ListenerSet& set, int port, bool controlOnly, const CertificateSlot* tls,
                                   std::string* error)
{
    ListenerLimits limits;
    limits.maxBodyBytes = config.maxBodyBytes;
    if (set.listeners.empty()) {
        set.listeners.push_back(
            std::make_unique<HttpListener>("127.0.0.1", tls, callbacks(controlOnly), limits));
        if (config.alsoIpv6)
            set.listeners.push_back(
                std::make_unique<HttpListener>("::1", tls, callbacks(controlOnly), limits));
    }
    // The IPv6 socket takes the port the IPv4 one got, so that both addresses share a number.
    int chosen = port;
    for (const auto& listener : set.listeners) {
        if (!listener->start(chosen, error)) {
            closeSet(set);
            return false;
        }
        chosen = listener->port();
    }
    set.port = chosen;
    return true;
}

void BridgeEmulator::Impl::closeSet(ListenerSet& set)
{
    for (const auto& listener : set.listeners)
        listener->stop();
}

bool BridgeEmulator::Impl::openShared(std::string* error)
{
    if (config.sharedPort < 0)
        return true;
    const int port = sharedPort > 0 ? sharedPort.load() : config.sharedPort;
    if (!shared.start(port, https.port, http.port > 0 ? http.port.load() : control.port.load(), error))
        return false;
    sharedPort = shared.port();
    return true;
}

HttpRequest BridgeEmulator::Impl::asReceived(const HttpRequest& request) const
{
    if (sharedPort < 0 || !shared.relaysFrom(request.remotePort))
        return request;
    HttpRequest relayed = request;
    relayed.localPort = sharedPort;
    return relayed;
}

namespace {

// A bad identity is reported by start(); the emulator keeps what it was given meanwhile.
EmulatorConfig normalized(EmulatorConfig config, std::string& error, const std::optional<StoredState>& stored)
{
    if (stored && config.bridgeIdFromState) {
        config.identity.bridgeId = stored->bridgeId;
        config.identity.mac = stored->mac;
    }
    applyGenerationDefaults(config.identity, config.generation);
    if (config.generation == BridgeGeneration::Round)
        config.clipV2 = false;
    if (config.generation != BridgeGeneration::Pro)
        config.httpClosed = false;
    // The control API must stay reachable over plain HTTP.
    if (config.httpClosed && config.controlPort < 0)
        config.controlPort = 0;
    BridgeIdentity identity = config.identity;
    if (normalizeIdentity(identity, &error))
        config.identity = identity;
    return config;
}

} // namespace

BridgeEmulator::BridgeEmulator(EmulatorConfig config)
{
    std::optional<StoredState> stored;
    if (!config.stateDir.empty()) {
        std::string warning;
        stored = StateDirectory(config.stateDir).loadState(&warning);
        if (!stored)
            warn(warning + "; starting with a fresh state");
    }
    std::string identityError;
    d = std::make_unique<Impl>(*this, normalized(std::move(config), identityError, stored));
    d->identityError = identityError;
    d->model.clip.enabled = d->config.clipV2;
    d->model.clip.quirks.lightMetadata = d->config.lightMetadata;
    if (!d->config.clipDumpPath.empty()) {
        if (!loadClipDump(d->config.clipDumpPath, d->model.clip, &identityError) && d->identityError.empty())
            d->identityError = identityError;
    } else {
        for (const LightSpec& wanted : d->config.lights)
            d->model.lights.addLight(wanted);
        if (d->config.defaultGroups)
            addDefaultGroups(d->model.lights);
    }
    if (stored) {
        // A recorded dump stands in for the lights; only the whitelist carries over to it.
        stored->hasLights = stored->hasLights && d->config.clipDumpPath.empty();
        applyState(*stored, d->model);
    }
    d->resourceEvents.reset(v2::renderResources(d->model));
    if (d->config.generation == BridgeGeneration::Pro) {
        d->router.setDescriptionServed(false);
        d->router.setPlainHandler([impl = d.get()](const HttpRequest& request) { return impl->redirectToHttps(request); });
    }
    if (d->config.rateLimit && !setRateLimit(*d->config.rateLimit) && d->identityError.empty())
        validRateLimit(*d->config.rateLimit, &d->identityError);
}

BridgeEmulator::~BridgeEmulator()
{
    stop();
}

bool BridgeEmulator::start(std::string* error)
{
    if (!d->identityError.empty()) {
        if (error)
            *error = d->identityError;
        return false;
    }
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    if (d->running)
        return true;
    if (!d->authority && !d->loadAuthority(error))
        return false;
    if (!d->certificate.current())
        d->loadCertificate(error);
    if (!d->certificate.current())
        return false;
    if (!d->config.writeAuthorityPath.empty() &&
        !writeFileAtomically(d->config.writeAuthorityPath, d->authority->root().pem(), error))
        return false;
    std::string saveError;
    d->savePending = false; // a write asked for while stopped happens here
    if (!d->saveState(&saveError))
        warn("cannot keep the state: " + saveError);
    d->faults.resumeAfterAbort();
    d->scheduler.start();
    const bool withHttps = d->config.generation != BridgeGeneration::Round;
    const bool opened =
        (!withHttps || d->openSet(d->https, d->https.port > 0 ? d->https.port.load() : d->config.httpsPort,
                                  false, &d->certificate, error)) &&
        (d->config.httpClosed ||
         d->openSet(d->http, d->http.port > 0 ? d->http.port.load() : d->config.httpPort, false, nullptr,
                    error)) &&
        (d->config.controlPort < 0 ||
         d->openSet(d->control, d->control.port > 0 ? d->control.port.load() : d->config.controlPort, true,
                    nullptr, error)) &&
        d->openShared(error);
    if (!opened) {
        d->shared.stop();
        d->closeSet(d->https);
        d->closeSet(d->http);
        d->closeSet(d->control);
        d->scheduler.stop();
        return false;
    }
    d->running = true;
    d->refusing = false;
    // Changes made while stopped have not been sent yet.
    d->flushPending = false;
    d->noteChange();
    if (d->config.autoLinkAfter) {
        std::lock_guard<std::mutex> modelLock(d->modelMutex);
        d->model.pairing.pressLinkButtonAfter(*d->config.autoLinkAfter);
    }
    return true;
}

void BridgeEmulator::stop()
{
    // The scheduler goes first and without the listener lock: its actions take that lock.
    d->stopFlood();
    d->scheduler.stop();
    if (d->savePending.exchange(false)) {
        std::string error;
        if (!d->saveState(&error))
            warn("cannot keep the state: " + error);
    }
    d->faults.abortHeld(true);
    d->events.dropAll();
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    d->closeSet(d->control);
    d->shared.stop();
    d->closeSet(d->https);
    d->closeSet(d->http);
    d->running = false;
    d->refusing = false;
}

bool BridgeEmulator::isRunning() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->running;
}

int BridgeEmulator::httpsPort() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->https.port;
}

int BridgeEmulator::httpPort() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->http.port;
}

int BridgeEmulator::controlPort() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->control.port;
}

int BridgeEmulator::sharedPort() const
{
    return d->sharedPort;
}

std::string BridgeEmulator::certificatePem() const
{
    const auto current = d->certificate.current();
    return current ? current->pem() : std::string();
}

std::string BridgeEmulator::certificateChainPem() const
{
    const auto current = d->certificate.current();
    return current ? current->chainPem() : std::string();
}

BridgeGeneration BridgeEmulator::generation() const
{
    return d->config.generation;
}

std::string BridgeEmulator::authorityPem() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->authority ? d->authority->root().pem() : std::string();
}

bool BridgeEmulator::renewCertificate(std::string* error)
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    const auto current = d->certificate.current();
    if (!current || !d->authority) {
        if (error)
            *error = "the emulator has not started";
        return false;
    }
    std::shared_ptr<const ServerCertificate> next = d->makeOwnCertificate(current->commonName(), error);
    if (!next)
        return false;
    d->earlierCertificates.emplace_back(current, d->certificateOwn);
    d->putCertificate(std::move(next), d->certificateOwn);
    return true;
}

bool BridgeEmulator::replaceCertificate(const std::string& commonName, bool selfSigned, std::string* error)
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    const auto current = d->certificate.current();
    if (!current || !d->authority) {
        if (error)
            *error = "the emulator has not started";
        return false;
    }
    const std::string name = commonName.empty() ? d->model.identity.bridgeId : commonName;
    std::shared_ptr<const ServerCertificate> next =
        selfSigned ? ServerCertificate::create(d->model.identity.bridgeId, error, name)
                   : ServerCertificate::issue(*d->authority, d->model.identity.bridgeId, name, error);
    if (!next)
        return false;
    d->earlierCertificates.emplace_back(current, d->certificateOwn);
    d->putCertificate(std::move(next), false);
    return true;
}

bool BridgeEmulator::restoreCertificate()
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    if (d->earlierCertificates.empty())
        return false;
    auto [earlier, own] = std::move(d->earlierCertificates.back());
    d->earlierCertificates.pop_back();
    d->putCertificate(std::move(earlier), own);
    return true;
}

BridgeIdentity BridgeEmulator::identity() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.identity;
}

std::string BridgeEmulator::bridgeId() const
{
    return identity().bridgeId;
}

void BridgeEmulator::setName(const std::string& name)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        d->model.identity.name = name;
    }
    d->noteChange();
}

void BridgeEmulator::setApiVersion(const std::string& version)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        d->model.identity.apiVersion = version;
    }
    d->noteChange();
}

void BridgeEmulator::setSwVersion(const std::string& version)
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.identity.swVersion = version;
}

void BridgeEmulator::setZigbeeChannel(int channel)
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.identity.zigbeeChannel = channel;
}

void BridgeEmulator::pressLinkButton()
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.pairing.pressLinkButton();
}

void BridgeEmulator::pressLinkButtonAfter(std::chrono::milliseconds delay)
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.pairing.pressLinkButtonAfter(delay);
}

void BridgeEmulator::setLinkButtonWindow(std::chrono::milliseconds window)
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.pairing.setLinkWindow(window);
}

bool BridgeEmulator::linkButtonActive() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.pairing.linkButtonActive();
}

std::string BridgeEmulator::addUser(const std::string& deviceType)
{
    std::string username;
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        username = d->model.pairing.addApplication(deviceType, false).username;
    }
    d->notePersistentChange();
    return username;
}

bool BridgeEmulator::deleteUser(const std::string& username)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        if (!d->model.pairing.removeApplication(username))
            return false;
    }
    d->notePersistentChange();
    return true;
}

std::vector<WhitelistEntry> BridgeEmulator::users() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.pairing.whitelist();
}

void BridgeEmulator::setClock(Clock clock)
{
    d->rateLimiter.setClock(clock);
    std::lock_guard<std::mutex> lock(d->modelMutex);
    d->model.pairing.setClock(std::move(clock));
}

std::vector<std::string> BridgeEmulator::lightIds() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    std::vector<std::string> ids;
    for (const EmulatedLight* light : d->model.lights.lights())
        ids.push_back(light->id());
    return ids;
}

std::optional<LightSnapshot> BridgeEmulator::light(const std::string& id) const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    const EmulatedLight* light = d->model.lights.light(id);
    if (!light)
        return std::nullopt;
    return snapshotOf(*light);
}

std::string BridgeEmulator::addLight(const LightSpec& wanted)
{
    std::string id;
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        id = d->model.lights.addLight(wanted);
    }
    d->noteChange();
    return id;
}

bool BridgeEmulator::removeLight(const std::string& id)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        if (!d->model.lights.removeLight(id))
            return false;
    }
    d->noteChange();
    return true;
}

bool BridgeEmulator::setLightState(const std::string& id, const LightChange& change)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        EmulatedLight* light = d->model.lights.light(id);
        if (!light)
            return false;
        light->apply(change, EmulatedLight::Source::Physical);
    }
    d->noteChange();
    return true;
}

bool BridgeEmulator::setLightReachable(const std::string& id, bool reachable)
{
    LightChange change;
    change.reachable = reachable;
    return setLightState(id, change);
}

std::vector<std::string> BridgeEmulator::groupIds() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    std::vector<std::string> ids;
    for (const EmulatedGroup* group : d->model.lights.groups())
        ids.push_back(group->id);
    return ids;
}

std::optional<GroupSnapshot> BridgeEmulator::group(const std::string& id) const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    const EmulatedGroup* group = d->model.lights.group(id);
    if (!group)
        return std::nullopt;
    return GroupSnapshot{group->id, group->name, group->type, group->lights, group->action};
}

std::string BridgeEmulator::addGroup(const std::string& name, GroupType type,
                                     const std::vector<std::string>& lightIds)
{
    std::string id;
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        id = d->model.lights.addGroup(name, type, lightIds);
    }
    d->noteChange();
    return id;
}

bool BridgeEmulator::removeGroup(const std::string& id)
{
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        if (!d->model.lights.removeGroup(id))
            return false;
    }
    d->noteChange();
    return true;
}

void BridgeEmulator::throttle(int httpStatus, int count, const std::string& pathPrefix,
                              const std::string& method)
{
    d->faults.addThrottle(httpStatus, count, {pathPrefix, method});
}

void BridgeEmulator::clearThrottles()
{
    d->faults.clearThrottles();
}

bool BridgeEmulator::setRateLimit(const RateLimit& limit)
{
    if (!validRateLimit(limit, nullptr))
        return false;
    d->rateLimiter.set(limit);
    return true;
}

void BridgeEmulator::clearRateLimit()
{
    d->rateLimiter.clear();
}

std::optional<RateLimit> BridgeEmulator::rateLimit() const
{
    return d->rateLimiter.limit();
}

RateLimitCounters BridgeEmulator::rateLimitCounters() const
{
    return d->rateLimiter.counters();
}

std::optional<double> BridgeEmulator::rateLimitTokens(RateClass rateClass) const
{
    return d->rateLimiter.tokens(rateClass);
}

void BridgeEmulator::stall(int count, std::chrono::milliseconds duration, const std::string& pathPrefix,
                           const std::string& method)
{
    d->faults.addStall(count, duration, {pathPrefix, method});
}

void BridgeEmulator::clearStalls()
{
    d->faults.clearStalls();
}

int BridgeEmulator::heldRequestCount() const
{
    return d->faults.heldCount();
}

bool BridgeEmulator::refuseConnections()
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    if (!d->running)
        return false;
    // Held requests would keep their threads, and so the listeners, alive until they elapse;
    // requests arriving while the sockets close must not start holding either.
    d->faults.abortHeld(true);
    d->events.dropAll();
    d->shared.stop();
    d->closeSet(d->https);
    d->closeSet(d->http);
    d->faults.resumeAfterAbort();
    d->refusing = true;
    return true;
}

bool BridgeEmulator::refuseConnectionsFor(std::chrono::milliseconds duration)
{
    if (!refuseConnections())
        return false;
    d->scheduler.runAfter(duration, [this] { acceptConnections(); });
    return true;
}

bool BridgeEmulator::acceptConnections(std::string* error)
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    if (!d->running)
        return false;
    if (!d->refusing)
        return true;
    const bool opened =
        (d->config.generation == BridgeGeneration::Round ||
         d->openSet(d->https, d->https.port, false, &d->certificate, error)) &&
        (d->config.httpClosed || d->openSet(d->http, d->http.port, false, nullptr, error)) && d->openShared(error);
    d->refusing = !opened;
    return opened;
}

bool BridgeEmulator::isRefusingConnections() const
{
    std::lock_guard<std::mutex> lock(d->listenerMutex);
    return d->refusing;
}

std::string BridgeEmulator::v2LightId(const std::string& lightId) const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.lights.light(lightId) ? v2::lightResourceId(d->model, lightId) : std::string();
}

std::string BridgeEmulator::v2DeviceId(const std::string& lightId) const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.lights.light(lightId) ? v2::deviceIdOfLight(d->model, lightId) : std::string();
}

void BridgeEmulator::flushEvents()
{
    d->flushEvents();
}

void BridgeEmulator::dropEventStreams()
{
    d->events.dropAll();
}

void BridgeEmulator::stallEventStreams(bool stalled)
{
    d->events.setStalled(stalled);
}

bool BridgeEmulator::eventStreamsStalled() const
{
    return d->events.isStalled();
}

void BridgeEmulator::sendEventStreamRetry(int milliseconds)
{
    d->events.sendRetry(milliseconds);
}

void BridgeEmulator::injectEventStreamText(const std::string& text)
{
    d->events.inject(text);
}

int BridgeEmulator::eventStreamCount() const
{
    return d->events.connectionCount();
}

std::string BridgeEmulator::lastEventId() const
{
    return d->events.lastEventId();
}

ClipQuirks BridgeEmulator::clipQuirks() const
{
    std::lock_guard<std::mutex> lock(d->modelMutex);
    return d->model.clip.quirks;
}

void BridgeEmulator::setClipQuirks(const ClipQuirks& quirks)
{
    d->changeQuirks([&quirks](ClipQuirks& current) { current = quirks; });
}

void BridgeEmulator::setLightMetadata(bool present)
{
    d->changeQuirks([present](ClipQuirks& current) { current.lightMetadata = present; });
}

void BridgeEmulator::setMirekNullInXy(bool on)
{
    d->changeQuirks([on](ClipQuirks& current) { current.mirekNullInXy = on; });
}

void BridgeEmulator::setEventsWithoutMirekValid(bool on)
{
    d->changeQuirks([on](ClipQuirks& current) { current.eventsWithoutMirekValid = on; });
}

bool BridgeEmulator::sendResourceEvents(const std::string& type, int count)
{
    std::string bridgeId;
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        if (!d->model.clip.enabled || type.empty() || count < 1)
            return false;
        bridgeId = d->model.identity.bridgeId;
    }
    // Changes made before go out first, as they happened first.
    d->flushEvents();
    for (const std::string& message :
         v2::foreignUpdateMessages(bridgeId, type, count, std::chrono::system_clock::now()))
        d->events.publish(message);
    return true;
}

bool BridgeEmulator::floodEventStreams(int messages, int eventsPerMessage, std::chrono::milliseconds interval)
{
    d->stopFlood();
    std::vector<FloodTarget> targets;
    {
        std::lock_guard<std::mutex> lock(d->modelMutex);
        if (!d->model.clip.enabled)
            return false;
        targets = floodTargets(d->model);
    }
    std::lock_guard<std::mutex> lock(d->floodMutex);
    d->floodRunning = true;
    d->floodThread = std::thread([this, targets = std::move(targets), messages, eventsPerMessage, interval] {
        std::unique_lock<std::mutex> floodLock(d->floodMutex);
        for (long long index = 0; index < messages && !d->floodStopping; ++index) {
            if (index > 0 && interval.count() > 0 &&
                d->floodWake.wait_for(floodLock, interval, [this] { return d->floodStopping; }))
                break;
            floodLock.unlock();
            // Keeps pace with the slowest open stream rather than piling messages up for it.
            while (!d->events.waitForRoom(kFloodBacklog, std::chrono::milliseconds(50))) {
                std::lock_guard<std::mutex> check(d->floodMutex);
                if (d->floodStopping)
                    break;
            }
            floodLock.lock();
            if (d->floodStopping)
                break;
            d->events.publish(floodMessage(targets, index, eventsPerMessage, messages));
        }
        d->floodRunning = false;
    });
    return true;
}

void BridgeEmulator::stopEventFlood()
{
    d->stopFlood();
}

bool BridgeEmulator::eventFloodRunning() const
{
    return d->floodRunning;
}

void BridgeEmulator::sendEndlessEventLine(std::uint64_t bytes, bool thenNewline)
{
    d->events.sendEndlessLine(bytes, thenNewline);
}

void BridgeEmulator::setDescriptionShape(const DescriptionShape& shape)
{
    d->faults.setDescriptionShape(shape);
}

void BridgeEmulator::oversize(std::size_t bytes, int count, const std::string& pathPrefix, bool chunked)
{
    d->faults.addOversize(bytes, chunked, count, {pathPrefix, {}});
}

void BridgeEmulator::clearOversizes()
{
    d->faults.clearOversizes();
}

bool BridgeEmulator::saveState(std::string* error)
{
    return d->saveState(error);
}

std::vector<RecordedRequest> BridgeEmulator::requests() const
{
    return d->log.entries();
}

void BridgeEmulator::clearRequests()
{
    d->log.clear();
}

void BridgeEmulator::setRequestObserver(std::function<void(const RecordedRequest&)> observer)
{
    d->log.setObserver(std::move(observer));
}

} // namespace bridgeemu
