// The controller's persisted per-bridge settings over an unconnected configuration cache, which
// keeps written values locally.

#include "huecontroller/hue_controller.h"

#include "common/configcache.h"
#include "logcapture.h"

#include <QtTest>

using namespace hue;

class TestBridgeSettings : public QObject
{
    Q_OBJECT

private slots:
    void stateTexts_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("text");
        const char* texts[] = {"new", "pair", "ignore", "paired", "error", "version", "delete", "invalid"};
        for (int i = 0; i < 8; ++i)
            QTest::addRow("%s", texts[i]) << i << QString::fromLatin1(texts[i]);
        QTest::addRow("out of range") << 42 << QStringLiteral("invalid");
    }

    void stateTexts()
    {
        QFETCH(int, state);
        QFETCH(QString, text);
        CController controller;
        LogCapture log;
        controller.setBridgeState("B1", EBridgeState(state));
        QVERIFY(log.contains("setBridgeState B1 " + text.toUtf8()));
        QCOMPARE(ConfigCache::instance()->getConfigValue("hueBridges/B1"), text);
        QCOMPARE(int(controller.bridgeState("B1")), qMin(state, 7));
    }

    void shortId_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("shortId");
        QTest::addRow("number") << "44717" << 44717;
        QTest::addRow("empty") << "" << -1;
        QTest::addRow("too big") << "65536" << -1;
        QTest::addRow("text") << "abc" << -1;
    }

    void shortId()
    {
        QFETCH(QString, stored);
        QFETCH(int, shortId);
        CController controller;
        ConfigCache::instance()->setConfigValueNonblock("hueBridgeIDs/S", stored, true);
        LogCapture log;
        QCOMPARE(controller.bridgeShortId("S"), shortId);
        QCOMPARE(log.contains("shortId for S unparseable: " + stored.toUtf8()),
                 shortId < 0 && !stored.isEmpty());
    }

    void failedQueriesAreLogged()
    {
        CController controller;
        LogCapture log;
        QCOMPARE(controller.bridgeState("missing"), BridgeStateInvalid);
        QCOMPARE(controller.bridgeUserName("missing"), QString());
        QCOMPARE(controller.bridgeShortId("missing"), -1);
        QCOMPARE(controller.bridgeName("missing"), QString());
        QCOMPARE(controller.bridgeCertDigest("missing"), QByteArray());
        QCOMPARE(log.lines().size(), 5);
        for (const char* text : {"bridgeState query for missing failed", "bridgeUserName for missing failed",
                                 "shortId query for missing failed", "bridgeName for missing failed",
                                 "reading bridge cert digest for missing failed"})
            QVERIFY2(log.contains(text), text);
    }

    void valuesRoundTrip()
    {
        CController controller;
        controller.setBridgeShortId("R", 513);
        const QByteArray digest = QByteArray::fromHex("00ff10203040");
        controller.setBridgeCertDigest("R", digest);
        QCOMPARE(controller.bridgeShortId("R"), 513);
        QCOMPARE(ConfigCache::instance()->getConfigValue("hueCertDigests/R"), QStringLiteral("AP8QIDBA"));
        QCOMPARE(controller.bridgeCertDigest("R"), digest);
    }
};

QTEST_GUILESS_MAIN(TestBridgeSettings)
#include "tst_bridgesettings.moc"
