#include <common/defaults.h>

#include <QtTest>

class TestDefaults : public QObject
{
    Q_OBJECT

private slots:
    void hardwareVersionFromModel_data()
    {
        QTest::addColumn<QByteArray>("model");
        QTest::addColumn<quint32>("version");
        QTest::addRow("first generation") << QByteArray("Vorn Hub 1") << quint32(0x10000);
        QTest::addRow("fifth, zero-terminated") << QByteArray("Vorn Hub 5\0", 11) << quint32(0x50000);
        QTest::addRow("board revision after a blank") << QByteArray("Vorn Hub 3 rev B") << quint32(0x30000);
        QTest::addRow("sixth is unknown") << QByteArray("Vorn Hub 6") << kUnknownHardwareVersion;
        QTest::addRow("prefix of a longer number") << QByteArray("Vorn Hub 10") << kUnknownHardwareVersion;
        QTest::addRow("empty") << QByteArray() << kUnknownHardwareVersion;
    }
    void hardwareVersionFromModel()
    {
        QFETCH(QByteArray, model);
        QFETCH(quint32, version);
        QCOMPARE(vornHardwareVersionForModel(model), version);
    }
};

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
