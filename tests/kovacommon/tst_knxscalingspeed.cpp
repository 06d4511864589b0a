#include <kovacommon/knxscalingspeed.h>

#include <QtTest>

using kova::KNXScalingSpeed;

class TestKNXScalingSpeed : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("percent");
        QTest::addColumn<uint>("timeMs");

        QTest::addRow("typical") << QByteArray("50%/2000ms") << true << 50 << 2000u;
        QTest::addRow("zeros") << QByteArray("0%/0ms") << true << 0 << 0u;
        QTest::addRow("largest") << QByteArray("100%/4294967295ms") << true << 100 << 4294967295u;
        const auto reject = [](std::initializer_list<QByteArray> texts) {
            for (const QByteArray& text : texts)
                QTest::addRow("%s", text.toPercentEncoding().constData()) << text << false << 0 << 0u;
        };
        reject({"101%/0ms", "255%/0ms", "99999999999999999999%/0ms", "50%/4294967296ms"});
        reject(
            {"050%/2000ms", "50%/02000ms", "00%/0ms", "-5%/2000ms", "+5%/2000ms", "0x10%/0ms", "5.0%/0ms"});
        reject({" 50%/2000ms", "50%/2000ms ", "50% /2000ms", "50%/2000msx", QByteArray("50%/2000ms\0", 11)});
        reject({"50%2000ms", "50/2000ms", "50%/2000", "50%/2000m", "%/2000ms", "50%/ms", "%/ms", ""});
        reject({"50%/99999999999999999999ms", QByteArray("5\0%/0ms", 7)});
    }

    void parse()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, valid);
        const std::optional<KNXScalingSpeed> speed = KNXScalingSpeed::fromString(text);
        QCOMPARE(speed.has_value(), valid);
        if (!valid)
            return;
        QTEST(int(speed->targetPercent()), "percent");
        QTEST(uint(speed->timeMs()), "timeMs");
        QCOMPARE(speed->toString(), text);
    }

    void percentAboveHundredMeansFull() { QCOMPARE(KNXScalingSpeed(200, 10), KNXScalingSpeed(100, 10)); }
};

QTEST_APPLESS_MAIN(TestKNXScalingSpeed)
#include "tst_knxscalingspeed.moc"
