// API version 1 against the bridge emulator in-process: a poll never puts back a value that the
// program has changed since the poll left, and a confirmed colour change sets the colour mode
// that it confirmed.

#include "huecontroller/hue_bridgeapi1.h"
#include "huecontroller/hue_light.h"

#include "emulatedbridge.h"

#include <QtTest>

using namespace hue;

namespace {

bridgeemu::EmulatorConfig oneLamp()
{
    bridgeemu::EmulatorConfig config;
    config.lights = {{bridgeemu::LightKind::ExtendedColor}};
    config.defaultGroups = false;
    return config;
}

// Sends the light's waiting changes now instead of at the end of the command delay.
void sendChanges(CLight& light)
{
    light.commandTimer()->stop();
    QMetaObject::invokeMethod(light.commandTimer(), "timeout", Qt::DirectConnection);
}

} // namespace

class TestBridgeAPI1Polls : public QObject
{
    Q_OBJECT

private:
    // A paired bridge whose lamp 1 is on in the given state, as the program has read it.
    std::unique_ptr<CBridge> pairedWithLamp(EmulatedBridge& env, const bridgeemu::LightChange& state)
    {
        bridgeemu::LightChange on = state;
        on.on = true;
        env.emulator().setLightState("1", on);
        auto bridge = env.makePairedBridge();
        if (!bridge || !bridge->lightById("1"))
            return nullptr;
        return bridge;
    }

    static bool changeDone(EmulatedBridge& env, CBridge& bridge)
    {
        return QTest::qWaitFor(
            [&] { return !env.requests("PUT", "/api/").empty() && bridge.activeReplyCount() == 0; }, 5000);
    }

private slots:
    // The hub writes a colour temperature (400 mired) while the lamp shows 250: a poll that
    // does not yet know of the change leaves the hub's value alone.
    void pollKeepsNewerChanges_data()
    {
        QTest::addColumn<QString>("when");
        QTest::addRow("change pending") << "pending";
        QTest::addRow("change in flight") << "in flight";
        QTest::addRow("change sent after the poll left") << "after";
    }

    void pollKeepsNewerChanges()
    {
        QFETCH(QString, when);
        EmulatedBridge env(oneLamp());
        bridgeemu::LightChange warm;
        warm.ct = 250;
        auto bridge = pairedWithLamp(env, warm);
        QVERIFY(bridge);
        CLight* lamp = bridge->lightById("1");
        QCOMPARE(int(lamp->velState().colorTemp()), 250);
        const std::string lights = "/api/" + bridge->userName().toStdString() + "/lights";

        bridge->requestLightColorTemperature("1", 400);
        lamp->commandTimer()->stop();
        if (when == "pending") {
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
        } else if (when == "in flight") {
            env.emulator().stall(1, std::chrono::seconds(20), lights + "/1/state", "PUT");
            sendChanges(*lamp);
            QTRY_COMPARE(env.emulator().heldRequestCount(), 1);
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
            QCOMPARE(int(lamp->velState().colorTemp()), 400);
            env.emulator().clearStalls();
        } else {
            // The poll is answered only after the change has been confirmed, with the state the
            // lamp had when the poll arrived.
            env.emulator().stall(1, std::chrono::seconds(20), lights, "GET");
            Clock::advance(600);
            bridge->pollNextItem();
            QTRY_COMPARE(env.emulator().heldRequestCount(), 1);
            sendChanges(*lamp);
            QTRY_COMPARE(int(lamp->bridgeState().colorTemp()), 400);
            env.emulator().setLightState("1", warm);
            env.emulator().clearStalls();
            QTRY_VERIFY(!bridge->currentPollReply());
        }
        QCOMPARE(int(lamp->velState().colorTemp()), 400);
        QCOMPARE(lamp->velState().colorMode(), ColorModeTemperature);
    }

    // The hub is shown the colour mode of what the bridge confirmed, not the one of the last poll.
    void confirmedChangeSetsColourMode_data()
    {
        QTest::addColumn<bool>("fromTemperature");
        QTest::addColumn<int>("mode");
        QTest::addRow("colour after colour temperature") << true << int(ColorModeColor);
        QTest::addRow("colour temperature after colour") << false << int(ColorModeTemperature);
    }

    void confirmedChangeSetsColourMode()
    {
        QFETCH(bool, fromTemperature);
        QFETCH(int, mode);
        EmulatedBridge env(oneLamp());
        bridgeemu::LightChange start;
        if (fromTemperature)
            start.ct = 300;
        else
            start.xy = bridgeemu::XY{0.2, 0.2};
        auto bridge = pairedWithLamp(env, start);
        QVERIFY(bridge);
        CLight* lamp = bridge->lightById("1");
        QVERIFY(int(lamp->bridgeState().colorMode()) != mode);
        if (fromTemperature)
            bridge->requestLightRgbColor("1", QStringLiteral("ff0000"));
        else
            bridge->requestLightColorTemperature("1", 300);
        sendChanges(*lamp);
        QVERIFY(changeDone(env, *bridge));
        QCOMPARE(int(lamp->bridgeState().colorMode()), mode);
        QCOMPARE(int(lamp->velState().colorMode()), mode);
    }
};

QTEST_GUILESS_MAIN(TestBridgeAPI1Polls)
#include "tst_bridgeapi1polls.moc"
