#include "emulatoroptions.h"

#include <cstdlib>
#include <functional>
#include <map>

namespace bridgeemu {

namespace {

bool parseInt(const std::string& text, long low, long high, int& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || number < low || number > high)
        return false;
    value = static_cast<int>(number);
    return true;
}

} // namespace

std::optional<EmulatorOptions> parseEmulatorOptions(const std::vector<std::string>& arguments,
                                                    std::string* error)
{
    EmulatorOptions options;
    EmulatorConfig& config = options.config;
    const auto fail = [&](const std::string& message) {
        if (error)
            *error = message;
        return std::nullopt;
    };
    const auto port = [](int& target) {
        return [&target](const std::string& value) { return parseInt(value, 0, 65535, target); };
    };
    const auto text = [](std::string& target) {
        return [&target](const std::string& value) {
            target = value;
            return !value.empty();
        };
    };
    int linkWindow = 30000;
    int eventWindow = 100;
    std::string api = "v2";
    bool swVersionGiven = false;
    int logLimit = 10000;
    std::string lights;
    std::string rateLimit;
    std::string generation = "square";
    // Options that take a value, as "--name VALUE" or "--name=VALUE".
    const std::map<std::string, std::function<bool(const std::string&)>> valued = {
        {"--https-port", port(config.httpsPort)},
        {"--http-port", port(config.httpPort)},
        {"--control-port", port(config.controlPort)},
        {"--bridge-id",
         [&](const std::string& value) {
             config.bridgeIdFromState = false;
             return text(config.identity.bridgeId)(value);
         }},
        {"--state-dir", text(config.stateDir)},
        {"--generation",
         [&](const std::string& value) { return text(generation)(value) && parseGeneration(value).has_value(); }},
        {"--write-authority", text(config.writeAuthorityPath)},
        {"--cert-cn", text(config.certificateCommonName)},
        {"--name", text(config.identity.name)},
        {"--mac", text(config.identity.mac)},
        {"--api-version", text(config.identity.apiVersion)},
        {"--sw-version",
         [&](const std::string& value) {
             swVersionGiven = true;
             return text(config.identity.swVersion)(value);
         }},
        {"--api", [&](const std::string& value) { return text(api)(value) && (api == "v1" || api == "v2"); }},
        {"--clip-dump", text(config.clipDumpPath)},
        {"--event-window", [&](const std::string& value) { return parseInt(value, 0, 60000, eventWindow); }},
        {"--zigbee-channel",
         [&](const std::string& value) { return parseInt(value, 11, 26, config.identity.zigbeeChannel); }},
        {"--lights", text(lights)},
        {"--link-window",
         [&](const std::string& value) { return parseInt(value, -1, 86400000, linkWindow); }},
        {"--rate-limit", text(rateLimit)},
        {"--request-log", [&](const std::string& value) { return parseInt(value, 1, 10000000, logLimit); }},
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        std::optional<std::string> value;
        const std::size_t equals = name.find('=');
        if (startsWith(name, "--") && equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        if (name == "--help" || name == "-h") {
            options.help = true;
        } else if (name == "--verbose" || name == "-v") {
            options.verbose = true;
        } else if (name == "--ipv6") {
            config.alsoIpv6 = true;
        } else if (name == "--http-closed") {
            config.httpClosed = true;
        } else if (name == "--no-groups") {
            config.defaultGroups = false;
        } else if (name == "--no-light-metadata") {
            config.lightMetadata = false;
        } else if (name == "--shared-port") {
            // An optional value: "--shared-port" takes a free port, "--shared-port=N" port N.
            config.sharedPort = 0;
            if (value && !parseInt(*value, 0, 65535, config.sharedPort))
                return fail("--shared-port takes a port number");
        } else if (name == "--auto-link") {
            // An optional value: "--auto-link" presses at once, "--auto-link=MS" after MS.
            int delay = 0;
            if (value && !parseInt(*value, 0, 86400000, delay))
                return fail("--auto-link takes a delay in milliseconds");
            config.autoLinkAfter = std::chrono::milliseconds(delay);
        } else if (const auto it = valued.find(name); it != valued.end()) {
            if (!value) {
                if (i + 1 >= arguments.size())
                    return fail(name + " needs a value");
                value = arguments[++i];
            }
            if (!it->second(*value))
                return fail("bad value for " + name + ": \"" + *value + "\"");
        } else {
            return fail("unknown option \"" + arguments[i] + "\" (see --help)");
        }
    }
    if (!lights.empty()) {
        std::string lightError;
        const auto specs = parseLightSet(lights, &lightError);
        if (!specs)
            return fail("--lights: " + lightError);
        config.lights = *specs;
    }
    if (!rateLimit.empty()) {
        std::string rateError;
        config.rateLimit = parseRateLimit(rateLimit, &rateError);
        if (!config.rateLimit)
            return fail("--rate-limit: " + rateError);
    }
    config.generation = *parseGeneration(generation);
    if (config.httpClosed && config.generation != BridgeGeneration::Pro)
        return fail("--http-closed needs --generation pro");
    if (config.generation == BridgeGeneration::Round && config.sharedPort >= 0)
        return fail("--shared-port needs a bridge with HTTPS (not --generation round)");
    // A bridge without CLIP v2 runs a firmware older than the first one that has it; the round
    // bridge never had it.
    config.clipV2 = api == "v2" && config.generation != BridgeGeneration::Round;
    if (api == "v1" && !swVersionGiven && config.generation != BridgeGeneration::Round)
        config.identity.swVersion = "1941132080";
    applyGenerationDefaults(config.identity, config.generation);
    if (!config.clipV2 && !config.clipDumpPath.empty())
        return fail("--clip-dump needs --api v2");
    config.eventWindow = std::chrono::milliseconds(eventWindow);
    config.linkButtonWindow = std::chrono::milliseconds(linkWindow);
    config.requestLogLimit = static_cast<std::size_t>(logLimit);
    std::string identityError;
    if (!normalizeIdentity(config.identity, &identityError))
        return fail(identityError);
    return options;
}

std::string emulatorHelpText()
{
    return R"(Usage: hue-bridge-emulator [options]

A Philips Hue bridge (REST API version 1 and CLIP API version 2 with its event stream) on
127.0.0.1 for tests and the demo. It serves HTTPS with a self-signed certificate whose common
name is the bridge id, plain HTTP, and a control API under /emulator/ on both.
When it is ready it prints one line on standard output (a port it does not open is -1):
    listening https=PORT http=PORT [control=PORT] [shared=PORT]
SIGINT or SIGTERM ends it.

Options:
  --https-port N        HTTPS port (default 0: a free port)
  --http-port N         HTTP port (default 0: a free port)
  --control-port N      an extra port that serves only /emulator/ and stays open while the
                        bridge refuses connections (default: none; 0: a free port)
  --shared-port[=N]     one more port (N, or a free one) that serves HTTPS and plain HTTP
                        alike, told apart by each connection's first byte, as a real bridge's
                        one address does (https on 443, http on 80); 127.0.0.1 only
  --ipv6                listen on ::1 as well, on the same port numbers
  --generation round|square|pro
                        the kind of bridge (default square: BSB002, HTTPS with a self-signed
                        certificate and plain HTTP). pro: BSB003, apiversion 1.76.0, swversion
                        2071280000, bridge id and MAC under c4:29:96, HTTPS only with a
                        certificate issued by the emulator's test authority (leaf and
                        intermediate presented), no /description.xml, and plain HTTP (its port
                        and the shared port's plain side) answering every request outside
                        /emulator/ with 301 to the same path on HTTPS. round: BSB001,
                        apiversion 1.16.0, swversion 01041302, API version 1 over plain HTTP
                        only (no HTTPS port, no CLIP v2)
  --http-closed         pro only: no plain HTTP port at all; the control API is then served on
                        the control port (a free one unless --control-port names one)
  --write-authority PATH
                        write the test authority's root certificate (PEM) to PATH at start, for
                        a client to trust (the service's setting "debug/extraTrustedRoots")
  --bridge-id HEX       16 hex digits (default 001788fffe123456, pro c42996fffe123456, or the
                        one kept in --state-dir)
  --state-dir DIR       keep the TLS key and certificate, the test authority, the whitelist,
                        the lights and the groups in DIR (written shortly after every change and at the end) and
                        take them from there at the next start: the same bridge again
  --cert-cn TEXT        the certificate's common name instead of the bridge id (a bridge
                        whose certificate names another bridge)
  --name TEXT           bridge name (default "Philips hue")
  --mac MAC             MAC address (default: derived from the bridge id)
  --api-version X       reported apiversion (default 1.65.0)
  --sw-version X        reported swversion (default 1965111030; with --api v1: 1941132080)
  --api v1|v2           v2 (default): a bridge with CLIP v2 and the event stream, whose
                        swversion qualifies for it (1948086000 or later); v1: a bridge of an
                        older firmware whose /clip/v2 and /eventstream paths answer 404
  --clip-dump PATH      serve a recorded answer to GET /clip/v2/resource (a JSON array or
                        {"data":[...]}) instead of generated lights; changes to its lights apply
                        and make events, the rest is read-only; version 1 then has no lights
  --event-window MS     changes within MS of the first go out as one stream message (default 100)
  --no-light-metadata   CLIP v2 light resources without "metadata" (firmware that deprecates it
                        in favour of the owning device's, which keeps its name and archetype)
  --zigbee-channel N    11 to 26 (default 25)
  --lights LIST         the lights, e.g. "extended:3,ct:2,dimmable:1,onoff:1,color:1"; kinds
                        onoff, dimmable, ct, color, extended; a colour kind may name its gamut:
                        color-b, extended-b (default extended:3,ct:2,dimmable:2,onoff:1,color:1,color-b:1)
  --no-groups           no default groups (otherwise two rooms and a light group of colour lights)
  --auto-link[=MS]      press the link button at start, or MS milliseconds after it
  --link-window MS      how long a press lasts (default 30000; -1: for ever)
  --rate-limit LIGHTS[/GROUPS][:STATUS[:RETRYAFTER]]
                        refuse light changes (PUT lights/<id>/state, v2 light/<id>) and group
                        changes (PUT groups/<id>/action, v2 grouped_light/<id>) beyond a rate,
                        as real bridges do (about 10/1:429); each of LIGHTS and GROUPS is
                        RATE[,BURST] (requests a second, a decimal above 0; the bucket's size,
                        default 1) or - for unlimited; GROUPS left out: unlimited; STATUS 429
                        (default) or 503; RETRYAFTER seconds sent as Retry-After (default 0:
                        none). E.g. 10/1, 10,5/1:503:2, -/1
  --request-log N       requests kept in the record (default 10000)
  -v, --verbose         one line per request on standard error
  -h, --help            this text

Bridge API (all JSON): POST /api {"devicetype":...} pairs once the link button is pressed;
GET /api/config; /api/<user>/ with config, lights, lights/<id>, lights/<id>/state, groups,
groups/<id>, groups/<id>/action; GET /description.xml (UPnP).
CLIP v2 (header hue-application-key: a whitelisted key; else 403): GET /clip/v2/resource,
/clip/v2/resource/<type>, /clip/v2/resource/<type>/<id> for device, light, zigbee_connectivity,
room, zone, grouped_light, bridge, geofence_client; PUT light (on, dimming, color, color_temperature,
dynamics, alert, metadata), grouped_light (the same but metadata, to every member), device
(metadata), geofence_client (name, is_at_home); POST
geofence_client -> {"data":[{"rid","rtype"}]}; DELETE geofence_client/<id>.
GET /eventstream/clip/v2 (Accept: text/event-stream): ": hi", then "id: <seconds>:<n>" and
"data: [events]" per message; Last-Event-ID replays the messages after it.

Control API (JSON bodies; answers {"ok":true,...} or {"error":...}):
  GET    /emulator                  summary: generation, ports, bridge id, light ids, link button
  POST   /emulator/linkbutton       press it; {"delay_ms":N} presses N ms later
  GET    /emulator/linkbutton       {"active":bool}
  PUT    /emulator/config           {"name","apiversion","swversion","zigbeechannel"}
  GET    /emulator/users            the whitelist
  POST   /emulator/users            {"devicetype":...}: whitelist without the button -> {"username"}
  DELETE /emulator/users/<name>     withdraw a key (its requests then get error 1)
  GET    /emulator/lights           the lights as API version 1 shows them
  POST   /emulator/lights           {"type":"ct","gamut":"B","modelid":...,"name":...} -> {"id"}
  PUT    /emulator/lights/<id>      as a wall switch: any of on, bri, hue, sat, ct, xy,
                                    alert, effect, reachable
  DELETE /emulator/lights/<id>      remove a light
  POST   /emulator/groups           {"name","type":"Room"|"LightGroup","lights":[ids]} -> {"id"}
  DELETE /emulator/groups/<id>      remove a group
  POST   /emulator/throttle         {"status":429|503,"count":N,"path":prefix,"method":M}: answer
                                    the next N matching requests with that status (N<0: all)
  DELETE /emulator/throttle         drop the throttle rules
  POST   /emulator/stall            {"ms":M,"count":N,"path":prefix,"method":M}: hold the next N
                                    matching requests for M ms before answering
  GET    /emulator/stall            {"held":N}: requests being held now
  DELETE /emulator/stall            drop the stall rules and answer held requests now
  POST   /emulator/refuse           close the bridge's ports once answered; {"ms":N} reopens
                                    them after N ms
  POST   /emulator/accept           reopen them (useful on --control-port)
  GET    /emulator/eventstream      {"connections":N,"stalled":bool,"last_id":...}
  POST   /emulator/eventstream/drop     end every open event stream
  POST   /emulator/eventstream/stall    send nothing more (connections stay open) until
  DELETE /emulator/eventstream/stall    this resumes them
  POST   /emulator/eventstream/retry    {"ms":N}: send "retry: N"
  POST   /emulator/eventstream/inject   {"text":...}: send raw text as it is
  POST   /emulator/eventstream/flush    send pending events now, not at the window's end
  POST   /emulator/eventstream/flood    {"messages":N,"events_per_message":E,"interval_ms":I}:
                                    N messages of E light updates to every open stream, as fast
                                    as they are read (I 0) or one every I ms
  DELETE /emulator/eventstream/flood    stop the flood
  POST   /emulator/eventstream/events   {"type":T,"count":N}: N messages, each one "update"
                                    event of a resource of type T that no light stands for
                                    (scene, button, smart_scene, behavior_instance, motion,
                                    light_level, temperature, device_power, relative_rotary,
                                    entertainment_configuration, grouped_light or any other)
  POST   /emulator/eventstream/endless  {"bytes":N}: "data: " and N filler bytes with no line
                                    end, then the streams stay open and silent;
                                    {"bytes":N,"then_newline":true} ends the line with "\n\n"
  GET    /emulator/v2               {"light_metadata","mirek_null_in_xy",
                                    "events_without_mirek_valid"}: how CLIP v2 is written
  PUT    /emulator/v2               any of those booleans: light resources with or without
                                    "metadata"; "mirek": null with "mirek_valid": true while a
                                    light is not in ct mode; update events without "mirek_valid"
  PUT    /emulator/description      /description.xml as {"mode":"deep","depth":D} (elements D
                                    deep), {"mode":"huge","bytes":N} (padded to N bytes) or
                                    {"mode":"normal"}
  PUT    /emulator/oversize         {"path":prefix,"bytes":N,"count":C}: answer the next C
                                    requests under prefix with 200 and N bytes of application/json
                                    that is not JSON ("chunked":true: sent chunked)
  DELETE /emulator/oversize         drop those rules
  PUT    /emulator/ratelimit        {"lights":{"rate":10,"burst":1},"groups":{"rate":1,"burst":1},
                                    "status":429,"retry_after":0}: token buckets for light and
                                    group changes (a class left out: unlimited; burst default 1;
                                    retry_after 0: no Retry-After header); refills the buckets and
                                    starts the counters from zero
  GET    /emulator/ratelimit        {"active","status","retry_after","lights":{"rate","burst",
                                    "tokens","accepted","refused"},"groups":{...}}
  DELETE /emulator/ratelimit        no more limit (the counters stay readable)
  GET    /emulator/authority        the test authority's root certificate (PEM text, not JSON)
  GET    /emulator/certificate      {"pem","chain"}: the certificate presented now, alone and
                                    with its chain
  POST   /emulator/certificate      {"action":"renew"}: a new key and certificate for the same
                                    common name (pro: from the authority; else self-signed);
                                    {"action":"replace","common_name":TEXT,"self_signed":bool}:
                                    one that is not the bridge's own (common name default the
                                    bridge id; self_signed default true, false: issued by the
                                    authority); {"action":"restore"}: the one before the last
                                    renew or replace. New connections get it; kept in --state-dir
  GET    /emulator/requests         every request to the bridge: method, path, scheme, port,
                                    headers, body, time, status
  DELETE /emulator/requests         clear that record
Requests to /emulator/ are neither recorded, throttled, rate-limited nor stalled.
)";
}

} // namespace bridgeemu
