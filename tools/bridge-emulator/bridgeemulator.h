#pragma once

#include "bridgeidentity.h"
#include "clipstate.h"
#include "emulatedlight.h"
#include "emulatorclock.h"
#include "lightcatalog.h"
#include "lightset.h"
#include "lightstore.h"
#include "pairing.h"
#include "ratelimit.h"
#include "requestlog.h"
#include "upnpdescription.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bridgeemu {

struct EmulatorConfig
{
    // The kind of bridge (bridgeidentity.h): its defaults of model, versions and MAC, and what
    // it serves. Round: no HTTPS port and no CLIP v2. Pro: a certificate issued by the test
    // authority, no /description.xml, and plain HTTP answering every request outside
    // /emulator/ with 301 to the same path on HTTPS.
    BridgeGeneration generation = BridgeGeneration::Square;
    // Pro only: no plain HTTP port at all (httpPort() is -1); the control API then needs the
    // control port, which is opened on a free port when controlPort is -1.
    bool httpClosed = false;
    // Where start() writes the test authority's root certificate (PEM); empty: nowhere.
    std::string writeAuthorityPath;
    BridgeIdentity identity;
    std::vector<LightSpec> lights = defaultLightSet();
    bool defaultGroups = true; // two rooms and a light group over the lights above

    // Ports on 127.0.0.1; 0 picks a free one. The control port serves only /emulator/ and stays
    // open while the bridge refuses connections; -1 leaves it out.
    int httpsPort = 0;
    int httpPort = 0;
    int controlPort = -1;
    bool alsoIpv6 = false; // listen on ::1 as well, on the same port numbers
    // One more port on 127.0.0.1 that serves TLS and plain HTTP alike, told apart by each
    // connection's first byte, as a real bridge's one address does; requests through it are
    // recorded with its number. 0 picks a free one; -1 leaves it out.
    int sharedPort = -1;

    std::chrono::milliseconds linkButtonWindow{30000};      // negative: stays active once pressed
    std::optional<std::chrono::milliseconds> autoLinkAfter; // press the button this long after start

    // CLIP API version 2 and its event stream. Off: the paths answer 404, as on a bridge whose
    // firmware predates them (pair it with a swversion below 1948086000).
    bool clipV2 = true;
    // A recorded answer to GET /clip/v2/resource to serve instead of generated lights: the
    // version 2 side shows it (changes to its lights apply and make events); version 1 then
    // has no lights. start() fails when the file cannot be read.
    std::string clipDumpPath;
    // Changes within this window after the first one go out as one event stream message.
    std::chrono::milliseconds eventWindow{100};
    // Light resources carry their own "metadata"; false: only their devices do, as on firmware
    // that deprecates the light's (ClipQuirks::lightMetadata).
    bool lightMetadata = true;

    // A folder that keeps the bridge's identity across runs: its TLS key and certificate
    // (key.pem, certificate.pem, certificate.json), the test authority (authority-*.pem) and bridge.json with the bridge id, the whitelist, the lights
    // and the groups. A start with the same folder is the same bridge. Empty: nothing is kept.
    std::string stateDir;
    // With a state folder, the bridge id (and MAC) kept there replace those of `identity`; the
    // command line clears this when it names a bridge id.
    bool bridgeIdFromState = true;
    // The certificate's common name; empty: the bridge id. Another name makes a bridge whose
    // certificate names another bridge.
    std::string certificateCommonName;

    // Light and group changes over these rates are refused (429 or 503), as real bridges refuse
    // more than about ten light and one group command a second. Nothing: no limit.
    std::optional<RateLimit> rateLimit;

    std::size_t requestLogLimit = 10000;
    std::size_t maxBodyBytes = 1024 * 1024; // larger bodies are answered with 413
    Clock clock = systemSteadyClock();
};

// A light as the emulator holds it, copied out.
struct LightSnapshot
{
    std::string id;
    std::string name;
    LightDescription description;
    LightState state;
};

struct GroupSnapshot
{
    std::string id;
    std::string name;
    GroupType type = GroupType::Room;
    std::vector<std::string> lights;
    LightState action;
};

// A Hue bridge on the loopback interface: REST API version 1 with pairing, lights and groups,
// CLIP API version 2 with its event stream, the UPnP description document, and a control API under /emulator/
// through which tests and the demo play the user and the network (link button, wall switches, throttling,
// stalls, refused connections). Every request is recorded.
//
// The HTTP servers run on threads of their own; every method is thread-safe. The destructor
// stops the emulator.
class BridgeEmulator
{
public:
    explicit BridgeEmulator(EmulatorConfig config = {});
    ~BridgeEmulator();
    BridgeEmulator(const BridgeEmulator&) = delete;
    BridgeEmulator& operator=(const BridgeEmulator&) = delete;

    // Makes the certificate and opens the ports. False with a message when that fails.
    bool start(std::string* error = nullptr);
    // Closes every socket, ends held requests and joins every thread. start() may follow.
    void stop();
    bool isRunning() const;

    int httpsPort() const;
    int httpPort() const;
    int controlPort() const; // -1 without a control port
    int sharedPort() const;  // -1 without a shared port
    // The certificate presented now (PEM), and with the chain after it.
    std::string certificatePem() const;
    std::string certificateChainPem() const;
    BridgeGeneration generation() const;

    // The test authority's root certificate (PEM), which a client has to trust to accept the
    // certificate of a pro bridge; made at construction (or read from the state folder).
    std::string authorityPem() const;
    // New connections get a new certificate (open ones keep theirs); the one before goes on a
    // stack that restoreCertificate() takes it back from. Renewal: a fresh key and certificate
    // for the same common name, issued by the authority (pro) or self-signed (else).
    bool renewCertificate(std::string* error = nullptr);
    // A certificate that is not the bridge's own: for `commonName` (empty: the bridge id),
    // self-signed by a stranger or issued by the test authority.
    bool replaceCertificate(const std::string& commonName, bool selfSigned, std::string* error = nullptr);
    // Back to the certificate before the last renewal or replacement; false when there is none.
    bool restoreCertificate();

    // Identity. The bridge id and MAC are fixed at construction; the rest may change at any time.
    BridgeIdentity identity() const;
    std::string bridgeId() const;
    void setName(const std::string& name);
    void setApiVersion(const std::string& version);
    void setSwVersion(const std::string& version);
    void setZigbeeChannel(int channel);

    // Pairing.
    void pressLinkButton();
    void pressLinkButtonAfter(std::chrono::milliseconds delay);
    void setLinkButtonWindow(std::chrono::milliseconds window);
    bool linkButtonActive() const;
    // Whitelists a new application without the link button, for tests that start paired.
    std::string addUser(const std::string& deviceType = "emulator#test");
    // Withdraws a key: every later request with it gets "unauthorized user".
    bool deleteUser(const std::string& username);
    std::vector<WhitelistEntry> users() const;
    void setClock(Clock clock);

    // Lights and groups.
    std::vector<std::string> lightIds() const;
    std::optional<LightSnapshot> light(const std::string& id) const;
    std::string addLight(const LightSpec& wanted);
    bool removeLight(const std::string& id);
    // Changes a light as its wall switch or a power cut would: whatever its state, nothing
    // recorded as a request. Only the parameters the light has are taken.
    bool setLightState(const std::string& id, const LightChange& change);
    bool setLightReachable(const std::string& id, bool reachable);
    std::vector<std::string> groupIds() const;
    std::optional<GroupSnapshot> group(const std::string& id) const;
    std::string addGroup(const std::string& name, GroupType type, const std::vector<std::string>& lightIds);
    bool removeGroup(const std::string& id);

    // Faults. A path prefix and method narrow a rule to matching requests ("" for any); a
    // negative count applies to every matching request until cleared. Requests to /emulator/
    // are never affected.
    void throttle(int httpStatus, int count, const std::string& pathPrefix = {},
                  const std::string& method = {});
    void clearThrottles();
    // Token buckets for light changes and group changes (ratelimit.h), read through the clock
    // (setClock); setting a limit fills the buckets and starts the counters from zero. False for
    // a limit out of range (a rate not above 0, a burst below 1, a status not 429 or 503).
    bool setRateLimit(const RateLimit& limit);
    // No more limit; the counters keep their values until the next setRateLimit().
    void clearRateLimit();
    std::optional<RateLimit> rateLimit() const;
    RateLimitCounters rateLimitCounters() const;
    // The tokens in a class's bucket now; nothing while that class is unlimited.
    std::optional<double> rateLimitTokens(RateClass rateClass) const;
    // Holds matching requests for `duration` before answering them.
    void stall(int count, std::chrono::milliseconds duration, const std::string& pathPrefix = {},
               const std::string& method = {});
    // Drops the stall rules and answers the held requests now.
    void clearStalls();
    int heldRequestCount() const;
    // Closes the bridge's listening sockets and cuts its connections (the control port stays);
    // acceptConnections() reopens them on the same ports.
    bool refuseConnections();
    // Refuses now and reopens by itself after `duration`.
    bool refuseConnectionsFor(std::chrono::milliseconds duration);
    bool acceptConnections(std::string* error = nullptr);
    bool isRefusingConnections() const;

    // CLIP v2. The resource ids that stand for a light of the model (empty for an unknown id).
    std::string v2LightId(const std::string& lightId) const;
    std::string v2DeviceId(const std::string& lightId) const;
    // Sends the events of the changes made so far now instead of at the end of their window.
    void flushEvents();
    // How the generated CLIP v2 resources and their events are written (clipstate.h). A change
    // first sends the events pending under the old way and makes no events of its own.
    ClipQuirks clipQuirks() const;
    void setClipQuirks(const ClipQuirks& quirks);
    void setLightMetadata(bool present);
    void setMirekNullInXy(bool on);
    void setEventsWithoutMirekValid(bool on);
    // Sends `count` stream messages, each one "update" event of a resource of `type` that no
    // emulated light stands for ("scene", "button", "motion", ... or any other text), with data
    // as a bridge sends for it. False without CLIP v2, for an empty type or a count below 1.
    bool sendResourceEvents(const std::string& type, int count);
    // The event stream as the network would treat it: end every open stream; stop sending (the
    // connections stay open) and resume; send a "retry:" line; send raw text as it is.
    void dropEventStreams();
    void stallEventStreams(bool stalled);
    bool eventStreamsStalled() const;
    void sendEventStreamRetry(int milliseconds);
    void injectEventStreamText(const std::string& text);
    int eventStreamCount() const;
    std::string lastEventId() const; // of the newest message sent, empty before the first

    // Sends `messages` valid messages of `eventsPerMessage` light updates (brightness, or on
    // for on/off lights; the last round carries each light's actual value) to every open stream,
    // as fast as the slowest stream takes them, or one every `interval`. Runs on a thread of its
    // own; a new flood replaces a running one. False without CLIP v2.
    bool floodEventStreams(int messages, int eventsPerMessage, std::chrono::milliseconds interval = {});
    void stopEventFlood();
    bool eventFloodRunning() const;
    // On every open stream: "data: " and `bytes` filler bytes with no line end; the stream then
    // sends nothing more but stays open, or with `thenNewline` ends the line with "\n\n" and goes on.
    void sendEndlessEventLine(std::uint64_t bytes, bool thenNewline = false);

    // What /description.xml serves: normal, nested deep, or padded to a size.
    void setDescriptionShape(const DescriptionShape& shape);
    // Answers the next `count` requests whose path starts with `pathPrefix` (negative: every
    // one until cleared) with 200 and an application/json body of `bytes` bytes that is not
    // JSON ("[0,0,0,..."), sent with a Content-Length or, with `chunked`, chunked.
    void oversize(std::size_t bytes, int count, const std::string& pathPrefix = {}, bool chunked = false);
    void clearOversizes();

    // Writes the state folder now (it is written shortly after every change and at stop()).
    bool saveState(std::string* error = nullptr);

    // The record of requests to the bridge (not to /emulator/), oldest first.
    std::vector<RecordedRequest> requests() const;
    void clearRequests();
    void setRequestObserver(std::function<void(const RecordedRequest&)> observer);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace bridgeemu
