#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_colorconvert.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_light.h"
#include "huecontroller/hue_lightinfo.h"

#include <QSignalSpy>
#include <QtTest>

using namespace hue;

class TestLightModel : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_bridge = new CBridge(1);
        m_light = new CLight(m_bridge, "7", "second", 5, ItemLight, LightExtendedColor);
    }
    void cleanup() { delete m_bridge; }

    void brightnessAndLastOn_data()
    {
        QTest::addColumn<bool>("on");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("lastOn");
        QTest::addColumn<int>("emitted");
        QTest::addRow("on, new value") << true << 100 << 100 << 1;
        QTest::addRow("on, zero") << true << 0 << 254 << 0; // 0 equals the initial value: no signal
        QTest::addRow("off, new value") << false << 100 << 254 << 1;
    }
    void brightnessAndLastOn()
    {
        QFETCH(bool, on);
        QFETCH(int, brightness);
        QFETCH(int, lastOn);
        QFETCH(int, emitted);
        m_light->setOn(on);
        QSignalSpy spy(m_light, &CLight::brightnessChanged);
        m_light->velState().setBrightness(quint8(brightness));
        QCOMPARE(m_light->velState().lastOnBrightness(), quint8(lastOn));
        QCOMPARE(spy.count(), emitted);
        // The same value again: remembered while on, never signalled.
        m_light->velState().setBrightness(quint8(brightness));
        QCOMPARE(spy.count(), emitted);
        // The bridge state never signals.
        m_light->bridgeState().setBrightness(quint8(brightness + 1));
        QCOMPARE(spy.count(), emitted);
    }

    void colorTolerance_data()
    {
        QTest::addColumn<float>("x");
        QTest::addColumn<float>("y");
        QTest::addColumn<bool>("changed");
        QTest::addRow("both within 0.001") << 0.5009f << 0.2991f << false;
        QTest::addRow("x beyond") << 0.5012f << 0.3f << true;
    }
    void colorTolerance()
    {
        QFETCH(float, x);
        QFETCH(float, y);
        QFETCH(bool, changed);
        m_light->velState().setColor(0.5f, 0.3f);
        QSignalSpy spy(m_light, &CLight::colorChanged);
        m_light->velState().setColor(x, y);
        QCOMPARE(spy.count(), changed ? 1 : 0);
        QCOMPARE(m_light->velState().x(), changed ? x : 0.5f);
    }

    void syncFromSignalsEachChangeOnce()
    {
        CLight::State& bridge = m_light->bridgeState();
        m_light->setOn(true);
        bridge.setBrightness(100);
        m_light->setOn(false);
        bridge.setBrightness(200); // lastOnBrightness stays 100
        m_light->setOn(true);
        bridge.setColorMode(ColorModeColor);
        bridge.setHue(1000);
        bridge.setColorTemp(369); // the initial value: no change to signal
        QSignalSpy bri(m_light, &CLight::brightnessChanged);
        QSignalSpy color(m_light, &CLight::colorChanged);
        QVERIFY(!m_light->velState().isValid());
        m_light->velState().syncFrom(bridge);
        QVERIFY(m_light->velState().isValid());
        QCOMPARE(bri.count(), 1);
        QCOMPARE(color.count(), 2);
        QCOMPARE(m_light->velState().hue(), quint16(1000));
        // lastOnBrightness is copied before the brightness is applied, so the light being on wins.
        QCOMPARE(m_light->velState().lastOnBrightness(), quint8(200));
        m_light->setOn(false);
        m_light->bridgeState().setBrightness(0);
        m_light->velState().syncFrom(m_light->bridgeState());
        QCOMPARE(m_light->velState().lastOnBrightness(), quint8(100)); // the bridge state's, not 0
    }

    void syncVelFromBridge_data()
    {
        QTest::addColumn<bool>("on");
        QTest::addColumn<bool>("velValid");
        QTest::addColumn<bool>("synced");
        QTest::addRow("on") << true << true << true;
        QTest::addRow("off, hub state not yet valid") << false << false << true;
        QTest::addRow("off, hub state valid") << false << true << false;
    }
    void syncVelFromBridge()
    {
        QFETCH(bool, on);
        QFETCH(bool, velValid);
        QFETCH(bool, synced);
        if (velValid)
            m_light->syncVelFromBridge();
        m_light->setOn(on);
        m_light->bridgeState().setBrightness(42);
        m_light->syncVelFromBridge();
        QCOMPARE(m_light->velState().brightness(), quint8(synced ? 42 : 0));
    }

    void convertColorCommands_data()
    {
        QTest::addColumn<QVariantMap>("pending"); // keys are ChangeItem numbers
        QTest::addColumn<bool>("converted");
        QTest::addRow("brightness only") << QVariantMap{{"4", 100}} << false;
        QTest::addRow("hue, saturation from hub state") << QVariantMap{{"5", 0}} << true;
    }
    void convertColorCommands()
    {
        QFETCH(QVariantMap, pending);
        QFETCH(bool, converted);
        const XYGamut& c = ColorConvert::gamutC();
        m_light->setGamut(c, c, ColorConvert::whitepointC());
        m_light->velState().setSaturation(254);
        m_light->velState().setBrightness(254);
        CLight::PendingCommands& commands = m_light->pendingCommands();
        for (auto it = pending.cbegin(); it != pending.cend(); ++it)
            commands.insert(ChangeItem(it.key().toInt()), it.value());
        const CLight::PendingCommands before = commands;
        m_light->convertColorCommands();
        if (!converted) {
            QCOMPARE(commands, before);
            return;
        }
        QVERIFY(!commands.contains(ChangeHue) && !commands.contains(ChangeSaturation));
        QCOMPARE(commands.value(ChangeBrightness), before.value(ChangeBrightness));
        // Full red lands on the red corner of gamut C.
        QCOMPARE(commands.value(ChangeX).userType(), int(QMetaType::Float));
        QVERIFY(qAbs(commands.value(ChangeX).toFloat() - c.red.x) < 1e-3f);
        QVERIFY(qAbs(commands.value(ChangeY).toFloat() - c.red.y) < 1e-3f);
    }

    void isGoingToTurnOff_data()
    {
        QTest::addColumn<QVariant>("on"); // invalid: no pending ChangeOn
        QTest::addColumn<bool>("expected");
        QTest::addRow("nothing pending") << QVariant() << false;
        QTest::addRow("switching on") << QVariant(true) << false;
        QTest::addRow("switching off") << QVariant(false) << true;
    }
    void isGoingToTurnOff()
    {
        QFETCH(QVariant, on);
        QFETCH(bool, expected);
        m_light->pendingCommands().insert(ChangeBrightness, 10);
        if (on.isValid())
            m_light->pendingCommands().insert(ChangeOn, on);
        QCOMPARE(m_light->isGoingToTurnOff(), expected);
    }

    void deviceSerial_data()
    {
        QTest::addColumn<quint32>("bridge");
        QTest::addColumn<int>("number");
        QTest::addColumn<QByteArray>("serial");
        QTest::addRow("upper-case hex") << quint32(0xabcd) << 0xfffe << QByteArray("BEEDABCDFFFE");
        QTest::addRow("bridge bits above 16 drop out") << quint32(0x12345) << 1 << QByteArray("BEED23450001");
    }
    void deviceSerial()
    {
        QFETCH(quint32, bridge);
        QFETCH(int, number);
        QFETCH(QByteArray, serial);
        CBridge owner(bridge);
        const CLight light(&owner, "1", "", number, ItemGroup, GroupDimmable);
        QCOMPARE(light.deviceSerial().toString(), serial);
        QCOMPARE(light.deviceSerial(), InternalId(serial));
    }

    void timedDimming()
    {
        QSignalSpy spy(m_light, &CLight::timedDimmingChanged);
        m_light->startTimedDimming(40, 1); // 100 ms
        QCOMPARE(m_light->timedDimmingTimer().interval(), 100);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.last(), (QVariantList{40.0, 1}));
        m_light->setTimedDimming(40, 1);
        QCOMPARE(spy.count(), 1);
        QVERIFY(spy.wait(2000));
        QCOMPARE(spy.last(), (QVariantList{40.0, 0}));
        m_light->setTimedDimming(37.9, 5); // truncated to a whole value
        QCOMPARE(spy.last(), (QVariantList{37.0, 5}));
    }

    void lightInfo_data()
    {
        QTest::addColumn<QByteArray>("manufacturer");
        QTest::addColumn<QByteArray>("model");
        QTest::addColumn<int>("min");
        QTest::addColumn<int>("max");
        QTest::addColumn<quint32>("flags");
        QTest::addRow("IKEA, any model")
            << QByteArray("IKEA of Sweden") << QByteArray("TRADFRI") << 250 << 454 << 0u;
        QTest::addRow("OSRAM") << QByteArray("OSRAM") << QByteArray("") << 153 << 370 << 0u;
        QTest::addRow("OSRAM up to NUL") << QByteArray("OSRAM\0x", 7) << QByteArray("a") << 153 << 370 << 0u;
        QTest::addRow("case matters") << QByteArray("osram") << QByteArray("") << 153 << 454 << 0u;
        QTest::addRow("iluminize 511.050")
            << QByteArray("iluminize") << QByteArray("511.050") << 153 << 454 << 1u;
    }
    void lightInfo()
    {
        QFETCH(QByteArray, manufacturer);
        QFETCH(QByteArray, model);
        QFETCH(int, min);
        QFETCH(int, max);
        QFETCH(quint32, flags);
        int gotMin = 0;
        int gotMax = 0;
        CLightInfo::getMiredLimits(manufacturer, model, gotMin, gotMax);
        QCOMPARE(gotMin, min);
        QCOMPARE(gotMax, max);
        m_light->setMetadata("product", manufacturer, model, "1.0");
        QCOMPARE(m_light->lightInfoFlags(), flags);
    }

private:
    CBridge* m_bridge = nullptr;
    CLight* m_light = nullptr;
};

QTEST_GUILESS_MAIN(TestLightModel)
#include "tst_lightmodel.moc"
