#include "sockettesthelpers.h"

#include <common/messaging/socketinterface.h>

#include <QtTest>

#include <memory>

class Receiver : public QObject
{
    Q_OBJECT

public:
    QStringList seen;

public slots:
    void onChanged(QString key, QString value, bool flag) { seen << key + "=" + value + (flag ? "!" : ""); }
    void onDevice(InternalId id, bool ready)
    {
        seen << QString::fromLatin1(id.toString()) + (ready ? "+" : "-");
    }
    void onOther() { seen << "other"; }
};

class TestSocketSignals : public QObject
{
    Q_OBJECT

private:
    int subscribers(const QByteArray& signature) const
    {
        return m_fx->service.query([=] { return m_fx->echo()->subscriberCount(signature); });
    }
    void emitSignal(const QString& name, const QVector<SocketArgument>& arguments)
    {
        m_fx->service.run([=] { m_fx->echo()->emitSignalWithArgumentList(name, arguments); });
    }

    std::unique_ptr<EchoFixture> m_fx;

private slots:
    void init() { m_fx = std::make_unique<EchoFixture>(); }

    void cleanup()
    {
        m_fx.reset();
        setDetailedLoggingEnabled(false);
    }

    void subscriptionReachesSlot_data()
    {
        QTest::addColumn<QByteArray>("signal");
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<QVector<SocketArgument>>("arguments");
        QTest::addColumn<QString>("seen");

        const QVector<SocketArgument> changed{QStringLiteral("k"), QStringLiteral("v"), true};
        QTest::addRow("written with blanks")
            << QByteArray("changed(QString, QString, bool)") << QByteArray("onChanged(QString, QString,bool)")
            << changed << "k=v!";
        QTest::addRow("slot ignores the values")
            << QByteArray("changed(QString, QString, bool)") << QByteArray("onOther()") << changed << "other";
        QTest::addRow("InternalId") << QByteArray("deviceReady(InternalId, bool)")
                                    << QByteArray("onDevice(InternalId,bool)")
                                    << QVector<SocketArgument>{InternalId(0xBEED, 0x10005), false}
                                    << "BEED00010005-";
    }

    void subscriptionReachesSlot()
    {
        QFETCH(QByteArray, signal);
        QFETCH(QByteArray, slot);
        QFETCH(QVector<SocketArgument>, arguments);
        QFETCH(QString, seen);

        auto client = m_fx->connect();
        Receiver receiver;
        QVERIFY(client->connectDynamicSignal(signal, &receiver, slot.constData()));
        QTRY_COMPARE(subscribers(signal), 1);
        emitSignal(signal.left(signal.indexOf('(')), arguments);
        QTRY_COMPARE(receiver.seen, QStringList{seen});
    }

    void refusedSubscriptions_data()
    {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("missing slot")
            << QByteArray("onMissing(QString)") << QByteArray("no such slot onMissing(QString)");
        QTest::addRow("other parameter types")
            << QByteArray("onDevice(InternalId,bool)") << QByteArray("failed to connect dynamic signal");
    }

    void refusedSubscriptions()
    {
        QFETCH(QByteArray, slot);
        QFETCH(QByteArray, logged);
        LogCapture log;
        auto client = m_fx->connect();
        Receiver receiver;
        QVERIFY(
            !client->connectDynamicSignal("changed(QString, QString, bool)", &receiver, slot.constData()));
        QVERIFY(client->hasError());
        QVERIFY(log.contains(logged));
    }

    void signalsGoToSubscribersOnly()
    {
        auto first = m_fx->connect();
        auto second = m_fx->connect();
        Receiver changedReceiver;
        Receiver otherReceiver;
        QVERIFY(first->connectDynamicSignal("changed(QString,QString,bool)", &changedReceiver,
                                            "onChanged(QString,QString,bool)"));
        QVERIFY(second->connectDynamicSignal("other()", &otherReceiver, "onOther()"));
        QTRY_COMPARE(subscribers("other()"), 1);

        setDetailedLoggingEnabled(true);
        LogCapture log;
        emitSignal("nobody", {});
        QVERIFY(log.contains("emitted signal with no subscribers nobody()"));

        emitSignal("changed", {QStringLiteral("a"), QStringLiteral("b"), false});
        emitSignal("other", {});
        // One connection delivers in order: once "other" is there, a stray "changed" would be too.
        QTRY_COMPARE(otherReceiver.seen, QStringList{"other"});
        QTRY_COMPARE(changedReceiver.seen, QStringList{"a=b"});
    }

    void receiverDestructionEndsItsSubscription()
    {
        auto client = m_fx->connect();
        auto doomed = std::make_unique<Receiver>();
        Receiver survivor;
        const QByteArray signal = "changed(QString, QString, bool)";
        QVERIFY(client->connectDynamicSignal(signal, doomed.get(), "onChanged(QString,QString,bool)"));
        QVERIFY(client->connectDynamicSignal(signal, &survivor, "onChanged(QString,QString,bool)"));
        QTRY_COMPARE(subscribers(signal), 1); // one subscription for both receivers
        doomed.reset();

        emitSignal("changed", {QStringLiteral("x"), QStringLiteral("y"), true});
        QTRY_COMPARE(survivor.seen, QStringList{"x=y!"});

        QVERIFY(client->disconnectDynamicSignal(signal, &survivor, "onChanged(QString, QString, bool)"));
        QVERIFY(!client->disconnectDynamicSignal(signal, &survivor, "onChanged(QString, QString, bool)"));
    }

    void signalDuringBlockingCallComesAfterIt()
    {
        auto client = m_fx->connect();
        Receiver receiver;
        QVERIFY(client->connectDynamicSignal("changed(QString,QString,bool)", &receiver,
                                             "onChanged(QString,QString,bool)"));
        QTRY_COMPARE(subscribers("changed(QString,QString,bool)"), 1);

        QCOMPARE(client->call("emitThenReturn", 5).toInt(), 5);
        QVERIFY(receiver.seen.isEmpty()); // not delivered inside the call
        QTRY_COMPARE(receiver.seen, QStringList{"during=5!"});
    }
};

QTEST_GUILESS_MAIN(TestSocketSignals)
#include "tst_socketsignals.moc"
