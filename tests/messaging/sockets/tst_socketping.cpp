#include "sockettesthelpers.h"

#include <common/messaging/socketadaptorwithping.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

// Stands in for the hub's diagnosis service and records the pings it gets.
class FakeDiagnosis : public SocketAdaptor
{
    Q_OBJECT

public:
    FakeDiagnosis() : SocketAdaptor(QStringLiteral("com.orlux.tamsa.diagnosis")) {}
    QStringList pings;

    Q_INVOKABLE void ping(QString module, uchar health) { pings << module + " " + QString::number(health); }
};

class PingingService : public SocketAdaptorWithPing
{
    Q_OBJECT

public:
    PingingService() : SocketAdaptorWithPing(QStringLiteral("com.orlux.test.pinging")) {}
    QString getModuleName() const override { return QStringLiteral("test-module"); }
    void heartbeatTimerFired() { onHeartbeatTimeout(); }
};

class TestSocketPing : public QObject
{
    Q_OBJECT

private slots:
    void heartbeatReachesDiagnosis_data()
    {
        QTest::addColumn<QString>("socketType");
        QTest::addRow("local") << "local";
        QTest::addRow("tcp") << "tcp";
    }

    void heartbeatReachesDiagnosis()
    {
        QFETCH(QString, socketType);
        QTemporaryDir dir;
        QSettings settings("vorn", "database");
        settings.setValue("socketDir", dir.path());
        settings.setValue("socketType", socketType);
        settings.sync();

        PingingService service;
        {
            LogCapture log;
            service.heartbeatTimerFired(); // nobody listens yet
            QVERIFY(log.contains("Failed to connect to diagnosis, retrying with heartbeat"));
            QVERIFY(!service.isConnectedToDiagnosis());
        }

        FakeDiagnosis diagnosis;
        QVERIFY(socketType == "tcp" ? diagnosis.startTcpServer(dir.path(), 0)
                                    : diagnosis.startLocalServer(dir.path()));
        service.heartbeatTimerFired();
        QTRY_COMPARE(diagnosis.pings, QStringList{"test-module 255"});

        service.setHealth(7);
        QVERIFY(service.sendHeartbeat());
        QTRY_COMPARE(diagnosis.pings, QStringList({"test-module 255", "test-module 7"}));
    }
};

QTEST_GUILESS_MAIN(TestSocketPing)
#include "tst_socketping.moc"
