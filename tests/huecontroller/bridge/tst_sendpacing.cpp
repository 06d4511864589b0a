// How changes are paced to a bridge and how a waiting change takes in a newer one, as pure
// logic on a clock of the test's own.

#include "huecontroller/hue_bridgeapi.h"
#include "huecontroller/hue_sendpacer.h"

#include <QtTest>

using namespace hue;

class TestSendPacing : public QObject
{
    Q_OBJECT

private slots:
    void lightsAndGroupsArePaced()
    {
        SendPacer pacer;
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 1000), qint64(0)); // idle: one goes at once
        pacer.sent(SendPacer::LightChange, 1000);
        // 10 a second with a tenth to spare: every 110 ms.
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 1000), qint64(110));
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 1060), qint64(50));
        // A group waits for a light slot too, and then has its own slot once a second.
        QCOMPARE(pacer.waitMs(SendPacer::GroupChange, 1000), qint64(110));
        pacer.sent(SendPacer::GroupChange, 1110);
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 1110), qint64(110));
        QCOMPARE(pacer.waitMs(SendPacer::GroupChange, 1110), qint64(1100));
        // Slots are not saved up while idle: after a long pause there is still no burst.
        pacer.sent(SendPacer::LightChange, 9000);
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 9000), qint64(110));

        pacer.setRates(4.0, -1.0); // a bad group rate keeps the default
        QCOMPARE(pacer.lightsPerSecond(), 4.0);
        QCOMPARE(pacer.groupsPerSecond(), SendPacer::kDefaultGroupsPerSecond);
        pacer.sent(SendPacer::LightChange, 20000);
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 20000), qint64(275));
    }

    void refusalsAndOutagesPauseTheBridge()
    {
        SendPacer pacer;
        QCOMPARE(pacer.troubleSinceMs(), qint64(-1));
        // Without Retry-After the pause doubles with each refusal in a row, up to its cap.
        qint64 now = 0;
        QList<qint64> pauses;
        for (int i = 0; i < 6; ++i) {
            pacer.refused(now, -1);
            pauses << pacer.waitMs(SendPacer::LightChange, now);
            now += pauses.last();
        }
        QCOMPARE(pauses, (QList<qint64>{250, 500, 1000, 2000, 4000, 8000}));
        QCOMPARE(pacer.troubleSinceMs(), qint64(0));
        // The bridge's own wish wins, capped; an accepted change ends the trouble.
        pacer.refused(now, 3000);
        QCOMPARE(pacer.waitMs(SendPacer::GroupChange, now), qint64(3000));
        pacer.refused(now + 3000, 3600000);
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, now + 3000), SendPacer::kMaxRetryAfterMs);
        pacer.accepted();
        QCOMPARE(pacer.troubleSinceMs(), qint64(-1));
        pacer.refused(200000, -1);
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 200000), qint64(250));
        pacer.reached(); // another request went through: refusals still pause
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, 200000), qint64(250));
        // An unreachable bridge is tried again after 1, 2, 4 ... s, at most every 30 s.
        pacer.accepted();
        pauses.clear();
        now = 300000;
        for (int i = 0; i < 7; ++i) {
            pacer.unreachable(now);
            pauses << pacer.waitMs(SendPacer::LightChange, now);
            now += pauses.last();
        }
        QCOMPARE(pauses, (QList<qint64>{1000, 2000, 4000, 8000, 16000, 30000, 30000}));
        // Any request that goes through shows the bridge is back: the changes go at once.
        pacer.reached();
        QCOMPARE(pacer.waitMs(SendPacer::LightChange, now - 1000), qint64(0));
        QCOMPARE(pacer.troubleSinceMs(), qint64(-1));
    }

    void waitingBodiesTakeInNewerChanges_data()
    {
        QTest::addColumn<QByteArray>("older");
        QTest::addColumn<QByteArray>("newer");
        QTest::addColumn<QByteArray>("merged");
        QTest::addRow("newer value wins")
            << QByteArray(R"({"on":true,"bri":10})") << QByteArray(R"({"bri":30})")
            << QByteArray(R"({"on":true,"bri":30})");
        QTest::addRow("colour temperature after xy")
            << QByteArray(R"({"bri":10,"xy":[0.3,0.3]})") << QByteArray(R"({"ct":300})")
            << QByteArray(R"({"bri":10,"ct":300})");
        QTest::addRow("hue keeps its saturation")
            << QByteArray(R"({"hue":100,"sat":20,"ct":200})") << QByteArray(R"({"hue":900})")
            << QByteArray(R"({"hue":900,"sat":20})");
        QTest::addRow("v2 colour after colour temperature")
            << QByteArray(R"({"on":{"on":true},"color_temperature":{"mirek":300}})")
            << QByteArray(R"({"color":{"xy":{"x":0.3,"y":0.2}}})")
            << QByteArray(R"({"on":{"on":true},"color":{"xy":{"x":0.3,"y":0.2}}})");
        QTest::addRow("older not JSON")
            << QByteArray("{") << QByteArray(R"({"bri":1})") << QByteArray(R"({"bri":1})");
    }

    void waitingBodiesTakeInNewerChanges()
    {
        QFETCH(QByteArray, older);
        QFETCH(QByteArray, newer);
        QFETCH(QByteArray, merged);
        QByteArray result = BridgeAPI::mergeChangeBodies(older, newer);
        result.replace(' ', "").replace('\n', "");
        QCOMPARE(result, merged);
    }
};

QTEST_GUILESS_MAIN(TestSendPacing)
#include "tst_sendpacing.moc"
