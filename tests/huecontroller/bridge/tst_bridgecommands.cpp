// CBridge's command queue against the bridge emulator: switch-on defaults by mode, the night
// maximum and the hub's HSV colour requests. (Coalescing and the start-stop timer run end to end.)

#include "huecontroller/hue_colorconvert.h"
#include "huecontroller/hue_light.h"

#include "emulatedbridge.h"
#include "logcapture.h"

#include <QRegularExpression>
#include <QtTest>

using namespace hue;

namespace {

// Lights 1..4: extended colour, colour temperature, dimmable, on/off.
bridgeemu::EmulatorConfig fourLights()
{
    bridgeemu::EmulatorConfig config;
    config.lights = {{bridgeemu::LightKind::ExtendedColor},
                     {bridgeemu::LightKind::ColorTemperature},
                     {bridgeemu::LightKind::Dimmable},
                     {bridgeemu::LightKind::OnOff}};
    config.defaultGroups = false;
    return config;
}

void setAll(bridgeemu::BridgeEmulator& emulator, bool on)
{
    bridgeemu::LightChange change;
    change.on = on;
    change.bri = 100;
    change.ct = 300;
    for (const std::string& id : emulator.lightIds())
        emulator.setLightState(id, change);
}

QByteArray compact(const std::string& body)
{
    return QByteArray::fromStdString(body).replace('\n', "").replace(' ', "");
}

std::string statePath(const CBridge& bridge, const QByteArray& light)
{
    return "/api/" + bridge.userName().toStdString() + "/lights/" + light.toStdString() + "/state";
}

// The hub's HSV number: hue << 16 | saturation << 8 | brightness, in decimal.
QString hsvText(quint32 hue, quint32 saturation, quint32 brightness)
{
    return QString::number((hue << 16) | (saturation << 8) | brightness);
}

} // namespace

class TestBridgeCommands : public QObject
{
    Q_OBJECT

private slots:
    void switchOnDefaults_data()
    {
        QTest::addColumn<QByteArray>("light");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("night");
        QTest::addColumn<QByteArray>("body");
        const QByteArray nightBri = QByteArray::number(ColorConvert::convertApiBrightnessToHue(50));
        QTest::addRow("white max, colour lamp")
            << QByteArray("1") << 1 << false << QByteArray(R"({"on":true,"ct":369,"bri":254})");
        QTest::addRow("white max, ct lamp")
            << QByteArray("2") << 1 << false << QByteArray(R"({"on":true,"ct":300,"bri":254})");
        QTest::addRow("white last, dimmable")
            << QByteArray("3") << 2 << false << QByteArray(R"({"on":true,"bri":100})");
        QTest::addRow("last colour, colour lamp in ct mode")
            << QByteArray("1") << 3 << false << QByteArray(R"({"on":true,"ct":300,"bri":100})");
        QTest::addRow("on/off plug") << QByteArray("4") << 1 << false << QByteArray(R"({"on":true})");
        QTest::addRow("night maximum")
            << QByteArray("1") << 1 << true << QByteArray(R"({"on":true,"ct":369,"bri":)") + nightBri + "}";
    }

    void switchOnDefaults()
    {
        QFETCH(QByteArray, light);
        QFETCH(int, mode);
        QFETCH(bool, night);
        QFETCH(QByteArray, body);
        EmulatedBridge env(fourLights());
        setAll(env.emulator(), true); // remembered as the last brightness and colour while on
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        setAll(env.emulator(), false);
        QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QVERIFY(!bridge->lightById(light)->isOn());

        bridge->setSwitchOnMode(light, ESwitchOnMode(mode));
        bridge->setNightMode(night);
        bridge->setMaximumBrightnessNight(light, 50);
        env.emulator().clearRequests();
        bridge->requestLightOn(light, true);
        const std::string path = statePath(*bridge, light);
        QTRY_COMPARE(env.requests("PUT", path).size(), size_t(1));
        QCOMPARE(compact(env.requests("PUT", path).front().body), body);
    }

    void hsvColor_data()
    {
        QTest::addColumn<QString>("hsv");
        QTest::addColumn<bool>("on");
        QTest::addColumn<int>("hue");
        QTest::addColumn<int>("saturation");
        QTest::addColumn<int>("brightness");
        // Full red lands on the red corner of the lamp's gamut, whatever the brightness.
        QTest::addRow("red, light off") << hsvText(0, 254, 200) << false << 0 << 254 << 200;
        QTest::addRow("out of the bridge's range") << hsvText(65535, 255, 0) << true << 65535 << 254 << 1;
    }

    void hsvColor()
    {
        QFETCH(QString, hsv);
        QFETCH(bool, on);
        QFETCH(int, hue);
        QFETCH(int, saturation);
        QFETCH(int, brightness);
        EmulatedBridge env(fourLights());
        setAll(env.emulator(), on);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        CLight* light = bridge->lightById("1");
        QCOMPARE(light->isOn(), on);
        const XYPoint red = light->gamutLimits().red;
        const std::string path = statePath(*bridge, "1");
        QSignalSpy changed(bridge.get(), &CBridge::lightChanged);
        LogCapture log;

        bridge->requestLightHSVColor("1", hsv);
        // The hub state follows at once and is reported; the bridge gets the colour as x/y.
        QCOMPARE(int(light->velState().colorMode()), int(ColorModeColor));
        QCOMPARE(int(light->velState().hue()), hue);
        QCOMPARE(int(light->velState().saturation()), saturation);
        QCOMPARE(int(light->velState().brightness()), brightness);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(1).value<ChangeFlags>(), ChangedColor | ChangedColorMode);
        QCOMPARE(log.contains("HSV change while off, velmode"), !on);

        QTRY_COMPARE(env.requests("PUT", path).size(), size_t(1));
        const QByteArray body = compact(env.requests("PUT", path).front().body);
        const QRegularExpression form(R"(^\{"xy":\[([0-9.]+),([0-9.]+)\],"bri":)" +
                                      QString::number(brightness) + R"(\}$)");
        const QRegularExpressionMatch match = form.match(QString::fromUtf8(body));
        QVERIFY2(match.hasMatch(), body.constData());
        QVERIFY2(qAbs(match.captured(1).toDouble() - red.x) < 1e-3 &&
                     qAbs(match.captured(2).toDouble() - red.y) < 1e-3,
                 body.constData());
    }

    // Offline: the hub's own state follows a colour request at once, before the bridge has seen
    // anything; a rejected HSV string changes nothing and queues nothing.
    void offlineColourRequests_data()
    {
        QTest::addColumn<QString>("request");
        QTest::addColumn<int>("colorMode");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("colour temperature") << "ct" << int(ColorModeTemperature) << QByteArray();
        QTest::addRow("hsv not a number")
            << "ff00fe" << int(ColorModeNone) << QByteArray("Failed to parse hsv string value");
        QTest::addRow("hsv, unknown light")
            << "unknown" << int(ColorModeNone) << QByteArray("requestLightHSVColor for unknown light id");
    }

    void offlineColourRequests()
    {
        QFETCH(QString, request);
        QFETCH(int, colorMode);
        QFETCH(QByteArray, logged);
        CBridge bridge(3);
        auto* lamp = new CLight(&bridge, "1", {}, 1, ItemLight, LightExtendedColor);
        bridge.addLight(lamp);
        QSignalSpy changed(&bridge, &CBridge::lightChanged);
        LogCapture log;
        if (request == "ct")
            bridge.requestLightColorTemperature("1", 300);
        else
            bridge.requestLightHSVColor(request == "unknown" ? "9" : "1",
                                        request == "unknown" ? hsvText(0, 254, 254) : request);
        QCOMPARE(int(lamp->velState().colorMode()), colorMode);
        QCOMPARE(changed.size(), logged.isEmpty() ? 1 : 0);
        QVERIFY(logged.isEmpty() || log.contains(logged));
        if (logged.isEmpty())
            QCOMPARE(changed.at(0).at(1).value<ChangeFlags>(), ChangedColor | ChangedColorMode);
        else
            QVERIFY(lamp->pendingCommands().isEmpty()); // nothing is queued, so nothing is sent
    }

    // A burst waits 200 ms after its last change, but never more than 240 ms after its first:
    // a dragged slider moves the light while it is dragged.
    void coalescingIsBounded()
    {
        CBridge bridge(3);
        auto* lamp = new CLight(&bridge, "1", {}, 1, ItemLight, LightDimmable);
        bridge.addLight(lamp);
        const QList<int> expected{200, 180, 120, 60, 0}; // a change every 60 ms
        for (int step = 0; step < expected.size(); ++step) {
            bridge.requestLightChange("1", ChangeBrightness, 10 * step + 10);
            const int remaining = lamp->commandTimer()->remainingTime();
            QVERIFY2(remaining <= expected[step] && remaining >= qMax(0, expected[step] - 10),
                     qPrintable(QStringLiteral("step %1: %2 ms").arg(step).arg(remaining)));
            Clock::advance(60);
        }
        QCOMPARE(lamp->commandTimer()->timerType(), Qt::PreciseTimer);
        // Once sent, the next burst has its own 240 ms.
        QMetaObject::invokeMethod(lamp->commandTimer(), "timeout", Qt::DirectConnection);
        QVERIFY(lamp->pendingCommands().isEmpty());
        bridge.requestLightChange("1", ChangeBrightness, 99);
        QVERIFY(lamp->commandTimer()->remainingTime() > 190);
    }
};

QTEST_GUILESS_MAIN(TestBridgeCommands)
#include "tst_bridgecommands.moc"
