#include "controlapi.h"

#include "bridgeemulator.h"
#include "v1render.h"

#include <minijson.h>

#include <cstdint>
#include <ctime>
#include <optional>

namespace bridgeemu {

using namespace minijson;

namespace {

using Segments = std::vector<std::string>;

HttpResponse ok(std::unique_ptr<CObject> extra = nullptr)
{
    CObject object;
    object.SetBoolean("ok", true);
    if (extra)
        object.MergeFrom(*extra, true);
    return HttpResponse::json(object);
}

HttpResponse failure(int status, const std::string& message)
{
    CObject object;
    object.SetString("error", message);
    return HttpResponse::json(object, status);
}

// The body as an object; an empty body counts as {}.
std::unique_ptr<CEntity> parseBody(const HttpRequest& request)
{
    if (request.body.find_first_not_of(" \t\r\n") == std::string::npos)
        return std::make_unique<CObject>();
    try {
        auto document = CParser::Parse(request.body);
        if (document->IsObject())
            return document;
    } catch (const CException&) {
    }
    return nullptr;
}

std::string isoTime(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    char withMillis[48];
    std::snprintf(withMillis, sizeof withMillis, "%s.%03dZ", text, static_cast<int>(millis));
    return withMillis;
}

HttpResponse renderRequests(const std::vector<RecordedRequest>& requests)
{
    CArray list;
    for (const RecordedRequest& request : requests) {
        CObject& item = list.AddObject();
        item.AddNumber("sequence").SetText(std::to_string(request.sequence));
        item.SetString("method", request.method);
        item.SetString("path", request.target);
        item.SetString("scheme", request.scheme);
        item.SetInt("port", request.port);
        CObject& headers = item.AddObject("headers");
        for (const auto& [name, value] : request.headers) {
            const std::string earlier = headers.GetString(name);
            headers.SetString(name, earlier.empty() ? value : earlier + ", " + value);
        }
        item.SetString("body", request.body);
        item.SetString("time", isoTime(request.receivedAt));
        item.AddNumber("elapsed_ms").SetText(std::to_string(request.sinceStart.count()));
        item.SetInt("status", request.status);
    }
    return HttpResponse::json(list);
}

// Reads the members of a wall-switch change; false with a message for anything else.
bool readLightChange(const CObject& body, LightChange& change, std::string& error)
{
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& name = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        bool valid = true;
        if (name == "on" || name == "reachable") {
            valid = value.IsBoolean();
            if (valid)
                (name == "on" ? change.on : change.reachable) = value.Boolean().Value();
        } else if (name == "bri" || name == "hue" || name == "sat" || name == "ct") {
            valid = value.IsNumber();
            const int number = valid ? value.Number().ValueInt() : 0;
            if (name == "bri")
                change.bri = number;
            else if (name == "hue")
                change.hue = number;
            else if (name == "sat")
                change.sat = number;
            else
                change.ct = number;
        } else if (name == "xy") {
            valid = value.IsArray() && value.Count() == 2 && value[0].IsNumber() && value[1].IsNumber();
            if (valid)
                change.xy = XY{value[0].Number().ValueDouble(), value[1].Number().ValueDouble()};
        } else if (name == "alert" || name == "effect") {
            valid = value.IsString();
            if (valid)
                (name == "alert" ? change.alert : change.effect) = value.StringValue();
        } else {
            error = "unknown light parameter \"" + name + "\"";
            return false;
        }
        if (!valid) {
            error = "bad value for \"" + name + "\"";
            return false;
        }
    }
    return true;
}

HttpResponse handleLights(BridgeEmulator& emulator, const HttpRequest& request, const Segments& rest,
                          const CObject& body)
{
    if (rest.size() == 1 && request.method == "GET") {
        CObject lights;
        for (const std::string& id : emulator.lightIds()) {
            if (const auto light = emulator.light(id)) {
                EmulatedLight copy(light->id, light->name, light->description);
                copy.restoreState(light->state);
                lights.Add(id, v1::renderLight(copy));
            }
        }
        return HttpResponse::json(lights);
    }
    if (rest.size() == 1 && request.method == "POST") {
        LightSpec wanted;
        const auto kind = lightKindFromName(body.GetString("type", "extended"));
        if (!kind)
            return failure(400, "unknown light type (onoff, dimmable, ct, color, extended)");
        wanted.kind = *kind;
        const std::string gamut = body.GetString("gamut");
        if (gamut == "A" || gamut == "B" || gamut == "C")
            wanted.gamut = gamut == "A" ? GamutType::A : gamut == "B" ? GamutType::B : GamutType::C;
        else if (!gamut.empty())
            return failure(400, "gamut must be A, B or C");
        wanted.modelId = body.GetString("modelid");
        wanted.name = body.GetString("name");
        auto result = std::make_unique<CObject>();
        result->SetString("id", emulator.addLight(wanted));
        return ok(std::move(result));
    }
    if (rest.size() != 2)
        return failure(404, "unknown control request");
    if (request.method == "DELETE")
        return emulator.removeLight(rest[1]) ? ok() : failure(404, "no light " + rest[1]);
    if (request.method != "PUT")
        return failure(405, "use PUT or DELETE");
    LightChange change;
    std::string error;
    if (!readLightChange(body, change, error))
        return failure(400, error);
    return emulator.setLightState(rest[1], change) ? ok() : failure(404, "no light " + rest[1]);
}

HttpResponse handleGroups(BridgeEmulator& emulator, const HttpRequest& request, const Segments& rest,
                          const CObject& body)
{
    if (rest.size() == 1 && request.method == "POST") {
        std::vector<std::string> lights;
        if (const CArray* list = body.GetArray("lights")) {
            for (int i = 0; i < list->Count(); ++i) {
                if ((*list)[i].IsString())
                    lights.push_back((*list)[i].StringValue());
            }
        }
        const GroupType type =
            body.GetString("type", "Room") == "LightGroup" ? GroupType::LightGroup : GroupType::Room;
        auto result = std::make_unique<CObject>();
        result->SetString("id", emulator.addGroup(body.GetString("name", "Group"), type, lights));
        return ok(std::move(result));
    }
    if (rest.size() == 2 && request.method == "DELETE")
        return emulator.removeGroup(rest[1]) ? ok() : failure(404, "no group " + rest[1]);
    return failure(404, "unknown control request");
}

HttpResponse handleUsers(BridgeEmulator& emulator, const HttpRequest& request, const Segments& rest,
                         const CObject& body)
{
    if (rest.size() == 1 && request.method == "GET") {
        CObject users;
        for (const WhitelistEntry& entry : emulator.users())
            users.AddObject(entry.username).SetString("name", entry.name);
        return HttpResponse::json(users);
    }
    if (rest.size() == 1 && request.method == "POST") {
        auto result = std::make_unique<CObject>();
        result->SetString("username", emulator.addUser(body.GetString("devicetype", "emulator#control")));
        return ok(std::move(result));
    }
    if (rest.size() == 2 && request.method == "DELETE")
        return emulator.deleteUser(rest[1]) ? ok() : failure(404, "no such user");
    return failure(404, "unknown control request");
}

HttpResponse handleFaults(BridgeEmulator& emulator, const HttpRequest& request, const std::string& kind,
                          const CObject& body)
{
    const int count = body.GetInt("count", 1);
    const std::string path = body.GetString("path");
    const std::string method = body.GetString("method");
    if (kind == "throttle") {
        if (request.method == "DELETE") {
            emulator.clearThrottles();
            return ok();
        }
        const int status = body.GetInt("status", 429);
        if (status != 429 && status != 503)
            return failure(400, "status must be 429 or 503");
        emulator.throttle(status, count, path, method);
        return ok();
    }
    if (request.method == "DELETE") {
        emulator.clearStalls();
        return ok();
    }
    if (request.method == "GET") {
        auto result = std::make_unique<CObject>();
        result->SetInt("held", emulator.heldRequestCount());
        return ok(std::move(result));
    }
    const int ms = body.GetInt("ms", -1);
    if (ms < 0)
        return failure(400, "\"ms\" (the stall in milliseconds) is required");
    emulator.stall(count, std::chrono::milliseconds(ms), path, method);
    return ok();
}

// A whole number of at least `low` under `key`; nothing when it is missing or not such a number.
std::optional<std::uint64_t> readCount(const CObject& body, const char* key, std::uint64_t low = 1)
{
    const CEntity* value = body.Find(key);
    if (!value || !value->IsNumber())
        return std::nullopt;
    const double number = value->Number().ValueDouble();
    if (!(number >= static_cast<double>(low) && number <= 1e15) ||
        number != static_cast<double>(static_cast<std::uint64_t>(number)))
        return std::nullopt;
    return static_cast<std::uint64_t>(number);
}

// {"rate":R,"burst":B} of one class of the rate limit; burst 1 when left out.
bool readRateBucket(const CObject& body, const char* key, std::optional<RateBucket>& bucket)
{
    const CEntity* value = body.Find(key);
    if (!value)
        return true;
    if (!value->IsObject())
        return false;
    const CObject& object = value->Object();
    const CEntity* rate = object.Find("rate");
    if (!rate || !rate->IsNumber())
        return false;
    const auto burst =
        object.Contains("burst") ? readCount(object, "burst") : std::optional<std::uint64_t>(1);
    if (!burst || *burst > 1000000)
        return false;
    bucket = RateBucket{rate->Number().ValueDouble(), static_cast<int>(*burst)};
    return true;
}

void renderRateClass(CObject& object, const std::optional<RateBucket>& bucket,
                     const RateClassCounters& counters, const std::optional<double>& tokens)
{
    if (bucket) {
        object.SetDouble("rate", bucket->rate);
        object.SetInt("burst", bucket->burst);
    }
    if (tokens)
        object.SetDouble("tokens", *tokens);
    object.AddNumber("accepted").SetText(std::to_string(counters.accepted));
    object.AddNumber("refused").SetText(std::to_string(counters.refused));
}

HttpResponse handleRateLimit(BridgeEmulator& emulator, const HttpRequest& request, const CObject& body)
{
    if (request.method == "DELETE") {
        emulator.clearRateLimit();
        return ok();
    }
    if (request.method == "GET") {
        const auto limit = emulator.rateLimit();
        const RateLimitCounters counters = emulator.rateLimitCounters();
        auto result = std::make_unique<CObject>();
        result->SetBoolean("active", limit.has_value());
        if (limit) {
            result->SetInt("status", limit->status);
            result->SetInt("retry_after", limit->retryAfterSeconds);
        }
        renderRateClass(result->AddObject("lights"), limit ? limit->lights : std::nullopt, counters.lights,
                        emulator.rateLimitTokens(RateClass::Lights));
        renderRateClass(result->AddObject("groups"), limit ? limit->groups : std::nullopt, counters.groups,
                        emulator.rateLimitTokens(RateClass::Groups));
        return ok(std::move(result));
    }
    RateLimit limit;
    const auto retryAfter =
        body.Contains("retry_after") ? readCount(body, "retry_after", 0) : std::optional<std::uint64_t>(0);
    const CEntity* status = body.Find("status");
    if (status && !status->IsNumber())
        return failure(400, "\"status\" must be 429 or 503");
    limit.status = status ? status->Number().ValueInt() : 429;
    limit.retryAfterSeconds = retryAfter && *retryAfter <= 86400 ? static_cast<int>(*retryAfter) : -1;
    if (!readRateBucket(body, "lights", limit.lights) || !readRateBucket(body, "groups", limit.groups))
        return failure(400, "\"lights\" and \"groups\" are {\"rate\":R,\"burst\":B}, R above 0, B 1 or more");
    std::string error;
    if (!validRateLimit(limit, &error))
        return failure(400, error);
    emulator.setRateLimit(limit);
    return ok();
}

HttpResponse handleFlood(BridgeEmulator& emulator, const HttpRequest& request, const CObject& body)
{
    if (request.method == "DELETE") {
        emulator.stopEventFlood();
        return ok();
    }
    const auto messages = readCount(body, "messages");
    const auto perMessage = body.Contains("events_per_message") ? readCount(body, "events_per_message")
                                                                : std::optional<std::uint64_t>(1);
    const auto interval =
        body.Contains("interval_ms") ? readCount(body, "interval_ms", 0) : std::optional<std::uint64_t>(0);
    if (!messages || *messages > 100000000 || !perMessage || *perMessage > 10000 || !interval ||
        *interval > 3600000)
        return failure(400, "\"messages\" (1 or more) is required; \"events_per_message\" (1 to 10000) and "
                            "\"interval_ms\" (0 or more) are optional");
    if (!emulator.floodEventStreams(static_cast<int>(*messages), static_cast<int>(*perMessage),
                                    std::chrono::milliseconds(*interval)))
        return failure(404, "this bridge has no event stream");
    return ok();
}

HttpResponse handleEventStream(BridgeEmulator& emulator, const HttpRequest& request, const Segments& rest,
                               const CObject& body)
{
    const std::string action = rest.size() == 2 ? rest[1] : std::string();
    if (rest.size() == 1 && request.method == "GET") {
        auto result = std::make_unique<CObject>();
        result->SetInt("connections", emulator.eventStreamCount());
        result->SetBoolean("stalled", emulator.eventStreamsStalled());
        result->SetString("last_id", emulator.lastEventId());
        return ok(std::move(result));
    }
    if (action == "stall" && (request.method == "POST" || request.method == "DELETE")) {
        emulator.stallEventStreams(request.method == "POST");
        return ok();
    }
    if (action == "flood" && (request.method == "POST" || request.method == "DELETE"))
        return handleFlood(emulator, request, body);
    if (request.method != "POST")
        return failure(404, "unknown control request");
    if (action == "endless") {
        const auto bytes = readCount(body, "bytes", 0);
        if (!bytes)
            return failure(400, "\"bytes\" (the length of the line) is required");
        emulator.sendEndlessEventLine(*bytes, body.GetBoolean("then_newline"));
        return ok();
    }
    if (action == "drop") {
        emulator.dropEventStreams();
        return ok();
    }
    if (action == "flush") {
        emulator.flushEvents();
        return ok();
    }
    if (action == "retry") {
        const int ms = body.GetInt("ms", -1);
        if (ms < 0)
            return failure(400, "\"ms\" (the retry delay in milliseconds) is required");
        emulator.sendEventStreamRetry(ms);
        return ok();
    }
    if (action == "events") {
        const CEntity* type = body.Find("type");
        const auto count =
            body.Contains("count") ? readCount(body, "count") : std::optional<std::uint64_t>(1);
        if (!type || !type->IsString() || type->StringValue().empty() || !count || *count > 100000)
            return failure(400, "\"type\" (a resource type) is required; \"count\" is 1 to 100000");
        if (!emulator.sendResourceEvents(type->StringValue(), static_cast<int>(*count)))
            return failure(404, "this bridge has no event stream");
        return ok();
    }
    if (action == "inject") {
        const CEntity* text = body.Find("text");
        if (!text || !text->IsString())
            return failure(400, "\"text\" (the raw text to send) is required");
        emulator.injectEventStreamText(text->StringValue());
        return ok();
    }
    return failure(404, "unknown control request");
}

// The way CLIP v2 resources and events are written: {"light_metadata","mirek_null_in_xy",
// "events_without_mirek_valid"}, each a boolean; members left out stay as they are.
HttpResponse handleClipQuirks(BridgeEmulator& emulator, const HttpRequest& request, const CObject& body)
{
    ClipQuirks quirks = emulator.clipQuirks();
    if (request.method == "PUT") {
        const std::pair<const char*, bool*> members[] = {
            {"light_metadata", &quirks.lightMetadata},
            {"mirek_null_in_xy", &quirks.mirekNullInXy},
            {"events_without_mirek_valid", &quirks.eventsWithoutMirekValid},
        };
        for (int i = 0; i < body.Count(); ++i) {
            const std::string& name = body.MemberNameByIndex(i);
            bool* target = nullptr;
            for (const auto& [key, field] : members)
                target = name == key ? field : target;
            if (!target || !body.EntityAtIndex(i).IsBoolean())
                return failure(400, "\"" + name +
                                        "\" is not one of the booleans light_metadata, "
                                        "mirek_null_in_xy, events_without_mirek_valid");
            *target = body.EntityAtIndex(i).Boolean().Value();
        }
        emulator.setClipQuirks(quirks);
    }
    auto result = std::make_unique<CObject>();
    result->SetBoolean("light_metadata", quirks.lightMetadata);
    result->SetBoolean("mirek_null_in_xy", quirks.mirekNullInXy);
    result->SetBoolean("events_without_mirek_valid", quirks.eventsWithoutMirekValid);
    return ok(std::move(result));
}

HttpResponse handleDescription(BridgeEmulator& emulator, const CObject& body)
{
    const std::string mode = body.GetString("mode");
    DescriptionShape shape;
    if (mode == "deep") {
        const auto depth = readCount(body, "depth");
        if (!depth || *depth > 100000000)
            return failure(400, "\"depth\" (1 or more) is required");
        shape = {DescriptionShape::Mode::Deep, static_cast<std::size_t>(*depth)};
    } else if (mode == "huge") {
        const auto bytes = readCount(body, "bytes");
        if (!bytes)
            return failure(400, "\"bytes\" (the size of the document) is required");
        shape = {DescriptionShape::Mode::Huge, static_cast<std::size_t>(*bytes)};
    } else if (mode != "normal") {
        return failure(400, "\"mode\" must be normal, deep or huge");
    }
    emulator.setDescriptionShape(shape);
    return ok();
}

HttpResponse handleOversize(BridgeEmulator& emulator, const HttpRequest& request, const CObject& body)
{
    if (request.method == "DELETE") {
        emulator.clearOversizes();
        return ok();
    }
    const auto bytes = readCount(body, "bytes");
    if (!bytes)
        return failure(400, "\"bytes\" (the size of the answers) is required");
    emulator.oversize(static_cast<std::size_t>(*bytes), body.GetInt("count", 1), body.GetString("path"),
                      body.GetBoolean("chunked"));
    return ok();
}

// GET: the certificate presented now; POST {"action":"renew"|"replace"|"restore"} changes it.
HttpResponse handleCertificate(BridgeEmulator& emulator, const HttpRequest& request, const CObject& body)
{
    if (request.method == "POST") {
        const std::string action = body.GetString("action");
        std::string error;
        bool done = false;
        if (action == "renew")
            done = emulator.renewCertificate(&error);
        else if (action == "replace")
            done = emulator.replaceCertificate(body.GetString("common_name"),
                                               !body.Contains("self_signed") || body.GetBoolean("self_signed"),
                                               &error);
        else if (action == "restore" && !(done = emulator.restoreCertificate()))
            error = "no earlier certificate";
        else if (action != "restore")
            return failure(400, "\"action\" must be renew, replace or restore");
        if (!done)
            return failure(action == "restore" ? 409 : 500, error);
    }
    auto result = std::make_unique<CObject>();
    result->SetString("pem", emulator.certificatePem());
    result->SetString("chain", emulator.certificateChainPem());
    return ok(std::move(result));
}

HttpResponse summary(BridgeEmulator& emulator)
{
    CObject object;
    const BridgeIdentity identity = emulator.identity();
    object.SetString("bridgeid", identity.bridgeId);
    object.SetString("name", identity.name);
    object.SetString("apiversion", identity.apiVersion);
    object.SetString("swversion", identity.swVersion);
    object.SetString("generation", generationName(emulator.generation()));
    object.SetInt("https_port", emulator.httpsPort());
    object.SetInt("http_port", emulator.httpPort());
    object.SetInt("control_port", emulator.controlPort());
    object.SetInt("shared_port", emulator.sharedPort());
    object.SetBoolean("refusing", emulator.isRefusingConnections());
    object.SetBoolean("linkbutton", emulator.linkButtonActive());
    object.SetInt("held", emulator.heldRequestCount());
    CArray& lights = object.AddArray("lights");
    for (const std::string& id : emulator.lightIds())
        lights.AddString(id);
    return HttpResponse::json(object);
}

} // namespace

HttpResponse handleControlRequest(BridgeEmulator& emulator, const HttpRequest& request)
{
    Segments segments = splitPath(request.path);
    while (!segments.empty() && segments.back().empty())
        segments.pop_back();
    const Segments rest(segments.begin() + (segments.empty() ? 0 : 1), segments.end());
    if (rest.empty())
        return summary(emulator);
    const auto document = parseBody(request);
    if (!document)
        return failure(400, "the body must be a JSON object");
    const CObject& body = document->Object();
    const std::string& what = rest[0];
    const std::string& method = request.method;

    if (what == "linkbutton" && rest.size() == 1) {
        if (method == "POST") {
            const int delay = body.GetInt("delay_ms", 0);
            if (delay > 0)
                emulator.pressLinkButtonAfter(std::chrono::milliseconds(delay));
            else
                emulator.pressLinkButton();
        }
        auto result = std::make_unique<CObject>();
        result->SetBoolean("active", emulator.linkButtonActive());
        return ok(std::move(result));
    }
    if (what == "config" && rest.size() == 1 && method == "PUT") {
        if (body.Contains("name"))
            emulator.setName(body.GetString("name"));
        if (body.Contains("apiversion"))
            emulator.setApiVersion(body.GetString("apiversion"));
        if (body.Contains("swversion"))
            emulator.setSwVersion(body.GetString("swversion"));
        if (body.Contains("zigbeechannel"))
            emulator.setZigbeeChannel(body.GetInt("zigbeechannel"));
        return ok();
    }
    if (what == "lights")
        return handleLights(emulator, request, rest, body);
    if (what == "groups")
        return handleGroups(emulator, request, rest, body);
    if (what == "users")
        return handleUsers(emulator, request, rest, body);
    if (what == "eventstream" && rest.size() <= 2)
        return handleEventStream(emulator, request, rest, body);
    if ((what == "throttle" || what == "stall") && rest.size() == 1)
        return handleFaults(emulator, request, what, body);
    if (what == "v2" && rest.size() == 1 && (method == "PUT" || method == "GET"))
        return handleClipQuirks(emulator, request, body);
    if (what == "authority" && rest.size() == 1 && method == "GET")
        return HttpResponse::text(200, emulator.authorityPem(), "application/x-pem-file");
    if (what == "certificate" && rest.size() == 1 && (method == "GET" || method == "POST"))
        return handleCertificate(emulator, request, body);
    if (what == "description" && rest.size() == 1 && method == "PUT")
        return handleDescription(emulator, body);
    if (what == "ratelimit" && rest.size() == 1 && (method == "PUT" || method == "GET" || method == "DELETE"))
        return handleRateLimit(emulator, request, body);
    if (what == "oversize" && rest.size() == 1 && (method == "PUT" || method == "DELETE"))
        return handleOversize(emulator, request, body);
    if (what == "refuse" && rest.size() == 1 && method == "POST") {
        // Closing the sockets would cut this very answer, so it happens once it has been sent.
        const int ms = body.GetInt("ms", 0);
        HttpResponse response = ok();
        response.afterSend = [&emulator, ms] {
            if (ms > 0)
                emulator.refuseConnectionsFor(std::chrono::milliseconds(ms));
            else
                emulator.refuseConnections();
        };
        return response;
    }
    if (what == "accept" && rest.size() == 1 && method == "POST")
        return emulator.acceptConnections() ? ok() : failure(500, "cannot reopen the ports");
    if (what == "requests" && rest.size() == 1) {
        if (method == "DELETE") {
            emulator.clearRequests();
            return ok();
        }
        return renderRequests(emulator.requests());
    }
    return failure(404, "unknown control request");
}

} // namespace bridgeemu
