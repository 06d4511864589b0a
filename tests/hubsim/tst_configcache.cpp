#include <common/configcache.h>
#include <common/messaging/socketadaptor.h>
#include <common/messaging/socketpromise.h>
#include <databaseservice.h>
#include <hubsimulator.h>

#include <QSettings>
#include <QtTest>

// A database service that holds back its answer to getAllConfigValues until the test gives it,
// so that changes can be made to arrive before the map.
class HeldBackDatabase : public SocketAdaptor
{
    Q_OBJECT

public:
    HeldBackDatabase() : SocketAdaptor(QStringLiteral("com.orlux.tamsa.database")) {}
    Q_INVOKABLE void getAllConfigValues(SocketPromise promise) { pending = promise; }
    Q_INVOKABLE void setConfigValue(QString key, QString value, bool) { written.insert(key, value); }

    SocketPromise pending;
    QMap<QString, QString> written;
};

namespace {

std::unique_ptr<HubSimulator> startHub(const QString& dir)
{
    HubSimOptions options;
    options.socketDir = dir;
    auto hub = std::make_unique<HubSimulator>(options);
    return hub->start() ? std::move(hub) : nullptr;
}

} // namespace

// ConfigCache against hubsim's database service, and the store behind it.
class TestConfigCache : public QObject
{
    Q_OBJECT
private slots:
    void fillsItselfAndEverySubscriberSeesEveryChange()
    {
        QTemporaryDir dir;
        auto hub = startHub(dir.path());
        QVERIFY(hub);
        hub->database()->store("hue/useGroups", "1", true, "test");

        ConfigCache cache;
        QSignalSpy ready(&cache, &ConfigCache::ready);
        bool ok = true;
        cache.getConfigValue("hue/unknown", &ok);
        QVERIFY(!ok); // nothing can be answered before the map has arrived
        QVERIFY(cache.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
        QVERIFY(ready.wait());
        QCOMPARE(cache.getConfigValue("hue/useGroups", &ok), QStringLiteral("1"));
        QVERIFY(ok);
        // A ready cache answers for every key: one never set is empty, not a failed query.
        QCOMPARE(cache.getConfigValue("hue/unknown", &ok), QString());
        QVERIFY(ok);

        ConfigCache writer;
        QVERIFY(writer.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
        QTRY_VERIFY(writer.isReady());
        QSignalSpy writerSaw(&writer, &ConfigCache::configValueChanged);
        QSignalSpy cacheSaw(&cache, &ConfigCache::configValueChanged);
        writer.setConfigValueNonblock("hue/useGroups", "0", false);
        // The writer reads its own value back at once; the announcement waits for the hub's echo.
        QCOMPARE(writer.getConfigValue("hue/useGroups"), QStringLiteral("0"));
        QCOMPARE(writerSaw.count(), 0);
        QTRY_COMPARE(writerSaw.count(), 1);
        QTRY_COMPARE(cacheSaw.count(), 1);
        QCOMPARE(cacheSaw.first(), (QList<QVariant>{"hue/useGroups", "0", false}));
        QCOMPARE(cache.getConfigValue("hue/useGroups"), QStringLiteral("0"));
    }

    void persistentValuesSurviveARestartVolatileOnesDoNot()
    {
        QTemporaryDir dir;
        {
            auto hub = startHub(dir.path());
            QVERIFY(hub);
            ConfigCache cache;
            QVERIFY(cache.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
            QSignalSpy changed(&cache, &ConfigCache::configValueChanged);
            cache.setConfigValueNonblock("kept", "1", true);
            cache.setConfigValueNonblock("shadowed", "old", true);
            cache.setConfigValueNonblock("shadowed", "new", false);
            cache.setConfigValueNonblock("gone", "2", false);
            QTRY_COMPARE(changed.count(), 4);
            QCOMPARE(hub->database()->configStore().values().value("shadowed"), QStringLiteral("new"));
        }
        auto hub = startHub(dir.path()); // a new hubsim on the same database file
        QVERIFY(hub);
        ConfigCache cache;
        QVERIFY(cache.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
        QTRY_VERIFY(cache.isReady());
        QCOMPARE(cache.allConfigValues(),
                 (QMap<QString, QString>{
                     {"kept", "1"}, {"shadowed", "old"}, {"generic/serialNumber", kDefaultHubSerialNumber}}));
    }

    void changesBeforeTheMapWin()
    {
        QTemporaryDir dir;
        HeldBackDatabase database;
        QVERIFY(database.startLocalServer(dir.path()));
        ConfigCache cache;
        QVERIFY(cache.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
        QTRY_VERIFY(!database.pending.isNull());
        QTRY_COMPARE(database.subscriberCount("configValueChanged(QString,QString,bool)"), 1);

        QSignalSpy changed(&cache, &ConfigCache::configValueChanged);
        database.emitSignal("configValueChanged", QStringLiteral("signalled"), QStringLiteral("new"), true);
        QVERIFY(changed.wait());
        cache.setConfigValueNonblock("written", "mine", true);
        QTRY_COMPARE(database.written.value("written"), QStringLiteral("mine"));
        QVERIFY(!cache.isReady());

        QSignalSpy ready(&cache, &ConfigCache::ready);
        database.pending.setResult(
            QMap<QString, QString>{{"signalled", "old"}, {"written", "stale"}, {"other", "x"}});
        QVERIFY(ready.wait());
        QCOMPARE(cache.allConfigValues(),
                 (QMap<QString, QString>{{"signalled", "new"}, {"written", "mine"}, {"other", "x"}}));
    }

    void serialNumberFromTheStart_data()
    {
        QTest::addColumn<QString>("stored");   // in the database before the start; "" none
        QTest::addColumn<QString>("option");   // --serial; "" none
        QTest::addColumn<QString>("expected"); // what a client reads
        QTest::addColumn<QString>("kept");     // in the database afterwards
        QTest::addRow("default, written") << ""
                                          << "" << kDefaultHubSerialNumber << kDefaultHubSerialNumber;
        QTest::addRow("the database's") << "0001f0e1d2c3"
                                        << ""
                                        << "0001f0e1d2c3"
                                        << "0001f0e1d2c3";
        QTest::addRow("the option's, for this run only") << "0001f0e1d2c3"
                                                         << "00019a8b7c6d"
                                                         << "00019a8b7c6d"
                                                         << "0001f0e1d2c3";
    }

    void serialNumberFromTheStart()
    {
        QFETCH(QString, stored);
        QFETCH(QString, option);
        QFETCH(QString, expected);
        QFETCH(QString, kept);
        QTemporaryDir dir;
        if (!stored.isEmpty()) {
            auto first = startHub(dir.path());
            QVERIFY(first);
            first->database()->store("generic/serialNumber", stored, true, "test");
        }
        HubSimOptions options;
        options.socketDir = dir.path();
        options.serialNumber = option;
        {
            HubSimulator hub(options);
            QVERIFY(hub.start());
            ConfigCache cache;
            QVERIFY(cache.connectToDatabase(SocketConnection::LocalSocket, dir.path()));
            QTRY_VERIFY(cache.isReady());
            QCOMPARE(cache.getConfigValue("generic/serialNumber"), expected);
        }
        auto later = startHub(dir.path()); // without the option
        QVERIFY(later);
        QCOMPARE(later->database()->configStore().values().value("generic/serialNumber"), kept);
    }

    void connectsWhereTheHubSettingsSay_data()
    {
        QTest::addColumn<QString>("socketType");
        QTest::addRow("local") << "local";
        QTest::addRow("tcp") << "tcp";
    }

    void connectsWhereTheHubSettingsSay()
    {
        QFETCH(QString, socketType);
        QTemporaryDir dir;
        HubSimOptions options;
        options.socketDir = dir.path();
        options.tcp = socketType == "tcp";
        HubSimulator hub(options);
        QVERIFY(hub.start());

        QSettings settings("vorn", "database");
        settings.setValue("socketDir", dir.path());
        settings.setValue("socketType", socketType);
        settings.sync();
        ConfigCache cache;
        const bool connected = cache.connectToDatabase();
        settings.clear();
        QVERIFY(connected);
        QTRY_VERIFY(cache.isReady());
    }
};

QTEST_GUILESS_MAIN(TestConfigCache)
#include "tst_configcache.moc"
