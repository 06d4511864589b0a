// CBridge on CLIP API version 2 against the bridge emulator in-process: the switch from version
// 1, the poll cycle, the event stream's retry, ping and silence abort (resumption after a drop
// runs end to end), the geofence client, renaming and lights leaving their device.

#include "huecontroller/hue_bridgeapi2.h"
#include "huecontroller/hue_eventstream.h"
#include "huecontroller/hue_light.h"

#include "common/configcache.h"
#include "emulatedbridge.h"
#include "logcapture.h"

#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using namespace hue;

namespace {

constexpr char kSerial[] = "HUB123";

bridgeemu::EmulatorConfig threeLights()
{
    bridgeemu::EmulatorConfig config;
    config.lights = {{bridgeemu::LightKind::ExtendedColor},
                     {bridgeemu::LightKind::ColorTemperature},
                     {bridgeemu::LightKind::Dimmable}};
    config.defaultGroups = false;
    return config;
}

void setConfig(const char* key, const char* value)
{
    ConfigCache::instance()->setConfigValueNonblock(QString::fromLatin1(key), QString::fromLatin1(value),
                                                    true);
}

BridgeAPI2* v2(CBridge& bridge)
{
    return qobject_cast<BridgeAPI2*>(bridge.api());
}

QStringList paths(EmulatedBridge& env, const std::string& method, const std::string& prefix)
{
    QStringList result;
    for (const auto& request : env.requests(method, prefix))
        result.append(QString::fromStdString(request.target));
    return result;
}

// Polls until the geofence client is known (one full cycle and the registration).
bool pollUntilClientKnown(CBridge& bridge)
{
    for (int i = 0; i < 8 && v2(bridge)->geofenceClientId().isEmpty(); ++i) {
        if (!EmulatedBridge::pollOnce(bridge))
            return false;
    }
    return QTest::qWaitFor([&] { return !v2(bridge)->geofenceClientId().isEmpty(); }, 5000);
}

// The service's warning and error lines of a capture.
QByteArrayList warningLines(const LogCapture& log)
{
    QByteArrayList found;
    for (const QByteArray& line : log.lines()) {
        if (line.startsWith("WW hue_") || line.startsWith("EE hue_"))
            found.append(line);
    }
    return found;
}

// Changes light 1's brightness at the emulator and waits until its event is applied: whatever
// the stream carried before it has been read by then.
bool applyMarker(EmulatedBridge& env, CBridge& bridge)
{
    CLight* light = bridge.lightById(QByteArray::fromStdString(env.emulator().v2LightId("1")));
    if (!light)
        return false;
    bridgeemu::LightChange change;
    change.on = true;
    change.bri = light->bridgeState().brightness() == 100 ? 200 : 100;
    env.emulator().setLightState("1", change);
    env.emulator().flushEvents();
    return QTest::qWaitFor([&] { return qAbs(light->bridgeState().brightness() - *change.bri) <= 1; }, 5000);
}

bool openStream(EmulatedBridge& env, CBridge& bridge)
{
    v2(bridge)->eventStream()->start();
    return QTest::qWaitFor([&] { return env.emulator().eventStreamCount() == 1; }, 5000) &&
           v2(bridge)->eventStream()->isOpen();
}

} // namespace

class TestBridgeAPI2Stream : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { setConfig("generic/serialNumber", kSerial); }

    void dialectChoice_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<bool>("switched");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("clip v2 over https") << "" << true << QByteArray("switches to API version 2");
        QTest::addRow("forced to version 1") << "forceAPI1" << false << QByteArray();
        QTest::addRow("lights known")
            << "light" << false << QByteArray("there are already known lights - staying on v1 API");
        // Support information being gathered ends with a note instead of the old dialect's answers.
        QTest::addRow("support info running")
            << "supportInfo" << true << QByteArray("switches to API version 2");
    }

    void dialectChoice()
    {
        QFETCH(QString, setup);
        QFETCH(bool, switched);
        QFETCH(QByteArray, logged);
        EmulatedBridge env({}, EmulatedBridge::Firmware::ClipV2);
        setConfig("hue/forceAPI1", setup == "forceAPI1" ? "1" : "0");
        auto bridge =
            env.makeBridge(env.emulator().httpsPort(), QString::fromStdString(env.emulator().addUser()));
        setConfig("hue/forceAPI1", "0");
        if (setup == "light")
            bridge->addLight(new CLight(bridge.get(), "1", "1", 1, ItemLight, LightDimmable));
        LogCapture log;
        QSignalSpy gathered(bridge.get(), &CBridge::supportInfoGathered);
        bridge->checkUsernameRegistered(true);
        if (setup == "supportInfo")
            bridge->gatherSupportInfo();
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_REGISTERED);
        QCOMPARE(bridge->api()->supportsV2(), switched);
        QVERIFY(logged.isEmpty() || log.contains(logged));
        if (setup == "supportInfo") {
            QTRY_COMPARE(gathered.size(), 1);
            QCOMPARE(gathered.at(0).at(0).toByteArray(), bridge->bridgeId() + " just switched to API 2\n");
        }
    }

    void fullPollCycleAndRename()
    {
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge(); // the first poll asks for the devices
        QVERIFY(bridge && v2(*bridge));
        QSignalSpy added(bridge.get(), &CBridge::lightAdded);
        QVERIFY(pollUntilClientKnown(*bridge));
        QCOMPARE(added.size(), 3);
        const QString v2Light = QString::fromStdString(env.emulator().v2LightId("1"));
        QVERIFY(bridge->lightById(v2Light.toUtf8()));
        const QStringList posted = paths(env, "POST", "/clip/v2/resource/geofence_client");
        QCOMPARE(posted.size(), 1);
        QVERIFY(env.requests("POST", "/clip")[0].body.find(std::string("Velnor_") + kSerial + "_") !=
                std::string::npos);

        // Once the client is known, a cycle is device, connectivity, light.
        env.emulator().clearRequests();
        for (int i = 0; i < 6; ++i)
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
        const QString base = QStringLiteral("/clip/v2/resource/");
        const QStringList cycle = {base + "device", base + "zigbee_connectivity", base + "light"};
        const QStringList polled = paths(env, "GET", "/");
        QCOMPARE(polled.size(), 6);
        for (int i = 0; i + 1 < polled.size(); ++i)
            QCOMPARE(polled[i + 1], cycle[(cycle.indexOf(polled[i]) + 1) % 3]);
        for (const auto& request : env.requests("GET", "/clip"))
            QVERIFY(std::count(
                request.headers.begin(), request.headers.end(),
                std::make_pair(std::string("hue-application-key"), bridge->userName().toStdString())));

        // A name goes to the device (the name apps show) and to the light.
        const QByteArray id = QByteArray::fromStdString(env.emulator().v2LightId("3"));
        bridge->requestLightName(id, QStringLiteral("Desk"));
        const std::string device = "/clip/v2/resource/device/" + env.emulator().v2DeviceId("3");
        QTRY_COMPARE(env.requests("PUT", device).size(), std::size_t(1));
        QTRY_COMPARE(env.requests("PUT", "/clip/v2/resource/light/" + id.toStdString()).size(),
                     std::size_t(1));
        QCOMPARE(env.requests("PUT", device)[0].body, std::string("{\"metadata\":{\"name\":\"Desk\"}}"));
        QTRY_COMPARE(env.emulator().light("3")->name, std::string("Desk"));

        // The support information ends with the whole resource tree.
        QSignalSpy gathered(bridge.get(), &CBridge::supportInfoGathered);
        bridge->gatherSupportInfo();
        QTRY_COMPARE(gathered.size(), 1);
        const QByteArray info = gathered.at(0).at(0).toByteArray();
        QVERIFY(info.contains("/api/***/lights:") && info.contains("/clip/v2/resource:\n{\"data\":["));
    }

    void eventsChangeOnlyWhatTheyName()
    {
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge) && openStream(env, *bridge));
        const QByteArray id = QByteArray::fromStdString(env.emulator().v2LightId("1"));
        CLight* light = bridge->lightById(id);
        const bool wasOn = light->isOn();
        const float x = light->bridgeState().x();
        QSignalSpy changed(bridge.get(), &CBridge::lightChanged);

        bridgeemu::LightChange dim;
        dim.bri = 50;
        env.emulator().setLightState("1", dim);
        env.emulator().flushEvents();
        QTRY_COMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(1).value<ChangeFlags>(), ChangeFlags(ChangedBrightness));
        QCOMPARE(int(light->bridgeState().brightness()), 50);
        QCOMPARE(light->isOn(), wasOn);
        QCOMPARE(light->bridgeState().x(), x);

        // Reachability comes from the device's connectivity.
        QVERIFY(bridge->lightData(id).reachable);
        env.emulator().setLightReachable("1", false);
        env.emulator().flushEvents();
        QTRY_COMPARE(changed.size(), 2);
        QCOMPARE(changed.at(1).at(1).value<ChangeFlags>(), ChangeFlags(ChangedReachable));
        QVERIFY(!bridge->lightData(id).reachable);
    }

    // The delete events of a light, its device and its connectivity remove the light as a
    // version 1 poll that no longer lists it does; added again, it registers anew.
    void deletedLightLeavesAndComesBack()
    {
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge) && openStream(env, *bridge));
        const QByteArray gone = QByteArray::fromStdString(env.emulator().v2LightId("2"));
        QSignalSpy removed(bridge.get(), &CBridge::lightRemoved);
        const int devices = v2(*bridge)->devices().size();
        LogCapture log;
        QVERIFY(env.emulator().removeLight("2"));
        env.emulator().flushEvents();
        QTRY_COMPARE(removed.size(), 1);
        QVERIFY(!bridge->hasLight(gone));
        QTRY_COMPARE(v2(*bridge)->devices().size(), devices - 1);
        QCOMPARE(log.count(gone + " was deleted at bridge " + bridge->bridgeId()), 1);
        QCOMPARE(warningLines(log), QByteArrayList());

        QSignalSpy added(bridge.get(), &CBridge::lightAdded);
        const std::string back = env.emulator().addLight({bridgeemu::LightKind::ColorTemperature});
        env.emulator().flushEvents();
        // From its add event, or at the latest from a full poll cycle.
        for (int i = 0; i < 8 && !QTest::qWaitFor([&] { return !added.isEmpty(); }, 500); ++i)
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QTRY_COMPARE_WITH_TIMEOUT(added.size(), 1, 10000);
        QVERIFY(bridge->hasLight(QByteArray::fromStdString(env.emulator().v2LightId(back))));
    }

    // Events of types the program does not use are skipped quietly (a bridge sends a scene
    // event at every recall); a type it does not know is said once per bridge.
    void unusedEventTypes_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("warnings"); // for three events of the type
        for (const char* type :
             {"scene", "smart_scene", "behavior_instance", "entertainment_configuration", "button",
              "relative_rotary", "motion", "light_level", "temperature", "device_power", "grouped_light"})
            QTest::addRow("%s", type) << type << 0;
        QTest::addRow("new type") << "sprinkler" << 1;
    }

    void unusedEventTypes()
    {
        QFETCH(QString, type);
        QFETCH(int, warnings);
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge) && openStream(env, *bridge));
        LogCapture log;
        QVERIFY(env.emulator().sendResourceEvents(type.toStdString(), 3));
        QVERIFY(applyMarker(env, *bridge));
        QCOMPARE(warningLines(log).size(), warnings);
        if (warnings)
            QCOMPARE(log.count("got unhandled event type " + type.toUtf8()), 3);
    }

    // Current firmware leaves a light's name and archetype to its device.
    void lightsNamedAfterTheirDevices()
    {
        bridgeemu::EmulatorConfig config = threeLights();
        config.lightMetadata = false;
        EmulatedBridge env(config, EmulatedBridge::Firmware::ClipV2);
        LogCapture log;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge));
        for (int i = 0; i < 3; ++i)
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QCOMPARE(bridge->lights().size(), 3);
        const QByteArray id = QByteArray::fromStdString(env.emulator().v2LightId("2"));
        QCOMPARE(bridge->lightData(id).name, QString::fromStdString(env.emulator().light("2")->name));
        QVERIFY(!v2(*bridge)->lightArchetype(id).isEmpty());
        QCOMPARE(warningLines(log), QByteArrayList());
    }

    // A bridge in xy mode may write "mirek": null with "mirek_valid": true, and events may leave
    // "mirek_valid" out: only a number is a colour temperature.
    void colourModeOfFirmware_data()
    {
        QTest::addColumn<QString>("quirk");
        QTest::addColumn<QString>("by");
        QTest::addColumn<bool>("toTemperature");
        QTest::addRow("mirek null in xy") << "mirek null"
                                          << "poll" << false;
        QTest::addRow("event without mirek_valid") << "no mirek_valid"
                                                   << "event" << true;
    }

    void colourModeOfFirmware()
    {
        QFETCH(QString, quirk);
        QFETCH(QString, by);
        QFETCH(bool, toTemperature);
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        bridgeemu::LightChange temperature;
        temperature.on = true;
        temperature.ct = 300;
        bridgeemu::LightChange colour;
        colour.on = true;
        colour.xy = bridgeemu::XY{0.5, 0.4};
        env.emulator().setLightState("1", toTemperature ? colour : temperature);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge) && openStream(env, *bridge));
        CLight* lamp = bridge->lightById(QByteArray::fromStdString(env.emulator().v2LightId("1")));
        const VNColorMode wanted = toTemperature ? ColorModeTemperature : ColorModeColor;
        QVERIFY(lamp && lamp->velState().colorMode() != wanted);
        if (quirk == "mirek null")
            env.emulator().setMirekNullInXy(true);
        else
            env.emulator().setEventsWithoutMirekValid(true);
        if (by == "poll")
            env.emulator().stallEventStreams(true);
        env.emulator().setLightState("1", toTemperature ? temperature : colour);
        env.emulator().flushEvents();
        if (by == "poll") {
            for (int i = 0; i < 3; ++i)
                QVERIFY(EmulatedBridge::pollOnce(*bridge));
        } else {
            QVERIFY(applyMarker(env, *bridge));
        }
        QCOMPARE(lamp->velState().colorMode(), wanted);
    }

    void streamRemembersLastEventIdAndRetry()
    {
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge));
        EventStreamConnection* stream = v2(*bridge)->eventStream();
        QVERIFY(stream->openTimer().isActive()); // the first open comes by itself after 3000 ms
        QCOMPARE(stream->openTimer().interval(), 3000);
        QVERIFY(openStream(env, *bridge));
        bridgeemu::LightChange change;
        change.on = true; // an off lamp reports brightness 0
        change.bri = 77;
        env.emulator().setLightState("2", change);
        env.emulator().flushEvents();
        QTRY_VERIFY(!stream->lastEventId().isEmpty());
        QCOMPARE(stream->lastEventId().toStdString(), env.emulator().lastEventId());

        env.emulator().sendEventStreamRetry(5000);
        QTRY_COMPARE(stream->restartDelayMs(), 5000);
        env.emulator().dropEventStreams();
        QTRY_VERIFY(!stream->isOpen());
        QVERIFY(stream->openTimer().isActive());
        QCOMPARE(stream->openTimer().interval(), 5000);
    }

    void pingAndSilenceAbort()
    {
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && pollUntilClientKnown(*bridge) && openStream(env, *bridge));
        BridgeAPI2* api = v2(*bridge);
        QCOMPARE(api->geofenceTimer().interval(), 60000);
        LogCapture log;
        Clock::advance(170000);
        api->updateGeofenceName(); // quiet, but not for too long: the client is renamed
        const std::string renamed =
            "/clip/v2/resource/geofence_client/" + api->geofenceClientId().toStdString();
        QTRY_COMPARE(env.requests("PUT", renamed).size(), std::size_t(1));
        QVERIFY(env.requests("PUT", renamed)[0].body.find(std::string("\"name\":\"Velnor_") + kSerial +
                                                          "_") != std::string::npos);

        env.emulator().stallEventStreams(true);
        Clock::advance(180001);
        api->updateGeofenceName();
        QVERIFY(log.contains("eventstream ping timeout"));
        QTRY_VERIFY(!api->eventStream()->isOpen());
        QCOMPARE(env.requests("PUT", renamed).size(), std::size_t(1));
        QVERIFY(api->eventStream()->openTimer().isActive());
        api->updateGeofenceName();
        QVERIFY(log.contains("skipping eventstream ping reply_deleted"));
    }

    // A hub without a serial number has no geofence client to rename; a silent stream is still
    // aborted and reopened.
    void silenceAbortWithoutGeofenceClient()
    {
        setConfig("generic/serialNumber", "");
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge && openStream(env, *bridge));
        BridgeAPI2* api = v2(*bridge);
        QVERIFY(api->geofenceClientId().isEmpty());
        env.emulator().stallEventStreams(true);
        LogCapture log;
        Clock::advance(180001);
        api->updateGeofenceName();
        setConfig("generic/serialNumber", kSerial);
        QVERIFY(log.contains("eventstream ping timeout"));
        QTRY_VERIFY(!api->eventStream()->isOpen());
        QVERIFY(api->eventStream()->openTimer().isActive());
    }

    void geofenceClient_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addRow("found") << "existing";
        QTest::addRow("registered again after an error") << "deleted";
    }

    void geofenceClient()
    {
        QFETCH(QString, situation);
        EmulatedBridge env(threeLights(), EmulatedBridge::Firmware::ClipV2);
        auto first = env.makePairedBridge();
        QVERIFY(first && pollUntilClientKnown(*first));
        const QByteArray registered = v2(*first)->geofenceClientId();
        const std::string clientPath = "/clip/v2/resource/geofence_client";
        QCOMPARE(env.requests("POST", clientPath).size(), std::size_t(1));
        if (situation == "existing") {
            auto second = env.makePairedBridge();
            QVERIFY(second && pollUntilClientKnown(*second));
            QCOMPARE(v2(*second)->geofenceClientId(), registered);
            QCOMPARE(env.requests("POST", clientPath).size(), std::size_t(1));
        } else if (situation == "deleted") {
            QNetworkRequest request = v2(*first)->createRequest("geofence_client/" + registered);
            // The bridges' reply funnel on the shared manager deletes the reply once it is done.
            const QPointer<QNetworkReply> reply = env.nam().deleteResource(request);
            QTRY_VERIFY(!reply || reply->isFinished());
            QVERIFY(openStream(env, *first));
            LogCapture log;
            v2(*first)->updateGeofenceName(); // the rename fails: the client is looked for anew
            QTRY_VERIFY(v2(*first)->geofenceClientId().isEmpty());
            QVERIFY(log.contains("geofenceclient request error:"));
            QVERIFY(pollUntilClientKnown(*first));
            QVERIFY(v2(*first)->geofenceClientId() != registered);
            QCOMPARE(env.requests("POST", clientPath).size(), std::size_t(2));
        }
    }
};

QTEST_GUILESS_MAIN(TestBridgeAPI2Stream)
#include "tst_bridgeapi2stream.moc"
