// CBridge's request engine against the bridge emulator over loopback: URL choice and https
// fall-back, time-outs, the per-URL light-change queue, throttling retries and
// destruction with requests outstanding.

#include "huecontroller/hue_bridgeapi.h"
#include "huecontroller/hue_light.h"

#include "emulatedbridge.h"
#include "logcapture.h"

#include <QtTest>

#include <algorithm>

using namespace hue;

class TestBridgeRequests : public QObject
{
    Q_OBJECT

private slots:
    void urlFromPort_data()
    {
        QTest::addColumn<int>("port");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("original");
        QTest::addColumn<bool>("httpsTried");
        QTest::addRow("443") << 443 << "https://127.0.0.1:443"
                             << "https://127.0.0.1:443" << true;
        QTest::addRow("80") << 80 << "https://127.0.0.1:443"
                            << "http://127.0.0.1:80" << false;
        QTest::addRow("8080") << 8080 << "https://127.0.0.1:8080"
                              << "http://127.0.0.1:8080" << false;
    }

    void urlFromPort()
    {
        QFETCH(int, port);
        QFETCH(QString, url);
        QFETCH(QString, original);
        QFETCH(bool, httpsTried);
        QNetworkAccessManager nam;
        CBridge bridge(&nam, "id", "127.0.0.1", port, 7, "user");
        QCOMPARE(bridge.url().toString(), url);
        QCOMPARE(bridge.originalUrl().toString(), original);
        QCOMPARE(bridge.httpsTried(), httpsTried);
    }

    void refusedHttpsFallsBackToHttp()
    {
        EmulatedBridge env;
        // The plain http port does not speak TLS: the https attempt fails and the bridge falls back.
        auto bridge =
            env.makeBridge(env.emulator().httpPort(), QString::fromStdString(env.emulator().addUser()));
        LogCapture log;
        bridge->checkUsernameRegistered(true);
        QTRY_COMPARE(bridge->activeReplyCount(), 0);
        QVERIFY(bridge->httpsTried());
        QVERIFY(!bridge->stayOnHttps());
        QCOMPARE(bridge->url().scheme(), QStringLiteral("http"));
        QVERIFY(log.contains("request failed, going back to original URL"));
        // The check that fell back stays silent; the next one goes to http and succeeds.
        QVERIFY(!log.contains("network reply error while trying to check if username"));
        QCOMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_NETWORK);
        bridge->checkUsernameRegistered(false);
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_REGISTERED);
        QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QVERIFY(!bridge->lights().isEmpty());
        QCOMPARE(env.requests("GET", "/api/").back().scheme, std::string("http"));
    }

    void timeOutFinishesOnce()
    {
        EmulatedBridge env;
        const std::string user = env.emulator().addUser();
        auto bridge = env.makeBridge(env.emulator().httpsPort(), QString::fromStdString(user));
        env.emulator().stall(1, std::chrono::seconds(30), "/api/" + user + "/config");
        bridge->checkUsernameRegistered(true);
        QTRY_COMPARE(env.emulator().heldRequestCount(), 1);

        LogCapture log;
        Clock::advance(9000);
        bridge->replyTimeoutTimer();
        QCOMPARE(bridge->activeReplyCount(), 1); // not yet 10 s
        Clock::advance(1001);
        bridge->replyTimeoutTimer();
        QCOMPARE(bridge->activeReplyCount(), 0);
        QCOMPARE(log.count("Have a network reply timeout"), 1);
        QCOMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_NETWORK);
        QCOMPARE(log.count("network reply error while trying to check if username is already registered"), 1);

        // Neither the late answer nor another sweep handles it again.
        env.emulator().clearStalls();
        bridge->replyTimeoutTimer();
        QTest::qWait(100);
        QCOMPARE(log.count("network reply error while trying to check if username is already registered"), 1);
    }

    void oneChangeInFlightPerLight()
    {
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        CLight* first = bridge->lightById("1");
        const std::string statePath = "/api/" + bridge->userName().toStdString() + "/lights/1/state";
        env.emulator().stall(1, std::chrono::seconds(30), statePath, "PUT");

        LogCapture log;
        for (int bri : {10, 20, 30})
            bridge->api()->sendSetStateRequest(*first,
                                               QByteArray("{\"bri\":") + QByteArray::number(bri) + "}", {});
        bridge->api()->sendSetStateRequest(*bridge->lightById("2"), "{\"bri\":40}", {});
        QTRY_COMPARE(env.emulator().heldRequestCount(), 1);
        QTRY_COMPARE(env.requests("PUT", "/api/").size(), size_t(2)); // light 2 is not held up by light 1
        // The changes behind the one in flight wait as one body: the latest value wins.
        const QString key = bridge->api()->createRequest("lights/1/state").url().toString();
        QCOMPARE(bridge->retryQueues().value(key).size(), 2);
        QVERIFY(!bridge->retryQueues().value(key).at(1)->inFlight);
        QVERIFY(log.contains("delaying request but retry timer is not active: " +
                             key.toUtf8().replace(bridge->userName().toUtf8(), "***")));

        env.emulator().clearStalls();
        QTRY_VERIFY(bridge->retryQueues().isEmpty());
        QVERIFY(!bridge->isRetryTimerActive());
        std::vector<std::string> bodies;
        for (const auto& request : env.requests("PUT", statePath))
            bodies.push_back(
                QByteArray::fromStdString(request.body).replace(' ', "").replace('\n', "").toStdString());
        QCOMPARE(bodies, (std::vector<std::string>{"{\"bri\":10}", "{\"bri\":30}"}));
    }

    // A bridge that refuses (429, 503) or cannot be reached pauses the sending for the whole
    // bridge (its Retry-After, else a growing pause) and gets the change in the end, however long
    // it takes within the bound. The clock is moved here and the retry slot called directly.
    void troubledBridgesGetTheChangeInTheEnd_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<qint64>("firstPause");
        QTest::addColumn<int>("maxPuts");
        QTest::addRow("429 for 60 s") << "429" << qint64(250) << 16;
        QTest::addRow("503 with Retry-After 1 for 60 s") << "503" << qint64(1000) << 63;
        QTest::addRow("connections refused for 60 s") << "refuse" << qint64(1000) << 9;
    }
    void troubledBridgesGetTheChangeInTheEnd()
    {
        QFETCH(QString, fault);
        QFETCH(qint64, firstPause);
        QFETCH(int, maxPuts);
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        const std::string statePath = "/api/" + bridge->userName().toStdString() + "/lights/1/state";
        if (fault == "refuse")
            QVERIFY(env.emulator().refuseConnections());
        else
            env.emulator().throttle(fault.toInt(), -1, statePath, "PUT");

        LogCapture log;
        const qint64 start = Clock::nowMs();
        auto waitUntilBack = [&] {
            return QTest::qWaitFor(
                [&] {
                    return bridge->retryQueues().isEmpty() ||
                           !bridge->retryQueues().first().first()->inFlight;
                },
                5000);
        };
        bridge->api()->sendSetStateRequest(*bridge->lightById("1"), "{\"bri\":70}", {});
        QVERIFY(waitUntilBack());
        const qint64 pause = bridge->pacer().waitMs(SendPacer::LightChange, Clock::nowMs());
        QVERIFY2(pause > firstPause - 300 && pause <= firstPause, qPrintable(QString::number(pause)));
        // Newer changes made meanwhile join the waiting one.
        bridge->api()->sendSetStateRequest(*bridge->lightById("1"), "{\"bri\":77}", {});
        QCOMPARE(bridge->retryQueues().first().size(), 1);
        while (Clock::nowMs() - start < 60000) {
            Clock::advance(qMax<qint64>(1, bridge->pacer().waitMs(SendPacer::LightChange, Clock::nowMs())));
            bridge->onRetryTimer();
            QVERIFY(waitUntilBack());
        }
        if (fault == "refuse")
            QVERIFY(env.emulator().acceptConnections());
        env.emulator().clearThrottles();
        Clock::advance(bridge->pacer().waitMs(SendPacer::LightChange, Clock::nowMs()));
        bridge->onRetryTimer();
        QTRY_VERIFY(bridge->retryQueues().isEmpty());
        QTRY_COMPARE(int(bridge->lightById("1")->bridgeState().brightness()), 77);
        QVERIFY(!log.contains("giving up on request id"));
        if (fault != "refuse")
            QVERIFY(int(env.requests("PUT", statePath).size()) <= maxPuts);
        QCOMPARE(bridge->pacer().troubleSinceMs(), qint64(-1));
    }

    // A bridge that cannot be reached writes each warning once a minute, not at every poll, and
    // tells how many it held back once it answers again.
    void unreachableBridgeWarnsOncePerMinute()
    {
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        QVERIFY(env.emulator().refuseConnections());
        LogCapture log;
        for (int second = 0; second < 20; ++second) {
            Clock::advance(1000);
            bridge->pollNextItem();
            QTRY_VERIFY(!bridge->currentPollReply());
        }
        QCOMPARE(log.count("network reply timed out/failed while trying to poll all lights"), 1);
        QCOMPARE(log.count("Connection refused"), 1);
        Clock::advance(LogBudget::kDefaultPeriodMs);
        bridge->pollNextItem();
        QTRY_VERIFY(!bridge->currentPollReply());
        QCOMPARE(log.count("network reply timed out/failed while trying to poll all lights"), 2);
        QVERIFY(env.emulator().acceptConnections());
        QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QVERIFY(log.contains("answers again; 19 more warnings of this kind were held back: poll timed out"));
    }

    // Past the bound the waiting changes are given up, and the light's error output is set until
    // one of its changes goes through again.
    void changesAreGivenUpPastTheBound()
    {
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        const std::string statePath = "/api/" + bridge->userName().toStdString() + "/lights/1/state";
        env.emulator().throttle(429, -1, statePath, "PUT");
        QSignalSpy failed(bridge.get(), &CBridge::lightChangeFailed);
        LogCapture log;
        const quint64 id = bridge->api()->sendSetStateRequest(*bridge->lightById("1"), "{\"bri\":50}", {});
        QTRY_VERIFY(!bridge->retryQueues().first().first()->inFlight);
        Clock::advance(CBridge::kGiveUpAfterMs + 1);
        bridge->onRetryTimer();
        QTRY_VERIFY(bridge->retryQueues().isEmpty());
        QVERIFY(log.contains("giving up on request id " + QByteArray::number(id)));
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.first().at(1).toBool(), true);

        env.emulator().clearThrottles();
        Clock::advance(60000);
        bridge->api()->sendSetStateRequest(*bridge->lightById("1"), "{\"bri\":60}", {});
        QTRY_COMPARE(failed.size(), 2);
        QCOMPARE(failed.last().at(1).toBool(), false);
    }

    void ignoredBridgeIsNotPolled()
    {
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        QVERIFY(bridge->stayOnHttps()); // https answered, so the bridge stays on it
        bridge->setIgnored(true);
        Clock::advance(3600001); // the hourly user-name re-check is due as well
        bridge->pollNextItem();
        QVERIFY(!bridge->currentPollReply());
        QCOMPARE(bridge->activeReplyCount(), 0);
    }

    // A broken reply is logged as a short excerpt with its length, never whole; a reply past the
    // size limit is aborted as it arrives. Either way the next poll works.
    void hostileReplyBodies_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("1 MiB, not JSON") << qint64(1 << 20) << QByteArray("... (1048576 bytes)");
        QTest::addRow("past the limit")
            << CBridge::kMaxReplyBytes + 1 << QByteArray("larger than 4194304 bytes, aborted");
    }
    void hostileReplyBodies()
    {
        QFETCH(qint64, bytes);
        QFETCH(QByteArray, logged);
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        env.emulator().oversize(std::size_t(bytes), 1,
                                "/api/" + bridge->userName().toStdString() + "/lights");
        LogCapture log;
        Clock::advance(600);
        bridge->pollNextItem();
        QTRY_VERIFY(!bridge->currentPollReply());
        QVERIFY2(log.contains(logged), log.lines().join('\n').left(2000).constData());
        for (const QByteArray& line : log.lines())
            QVERIFY2(line.size() < 1000, line.left(300).constData());
        QVERIFY(EmulatedBridge::pollOnce(*bridge));
        QVERIFY(!log.lines().isEmpty());
    }

    void destructionAbortsOutstandingReplies()
    {
        EmulatedBridge env;
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        const std::string user = bridge->userName().toStdString();
        const std::string statePath = "/api/" + user + "/lights/1/state";
        env.emulator().stall(1, std::chrono::seconds(30), statePath, "PUT");
        env.emulator().stall(1, std::chrono::seconds(30), "/api/" + user + "/lights", "GET");

        // A poll and a light change held by the bridge, two more changes waiting behind the latter.
        for (int bri : {10, 20, 30})
            bridge->api()->sendSetStateRequest(*bridge->lightById("1"),
                                               "{\"bri\":" + QByteArray::number(bri) + "}", {});
        Clock::advance(600);
        bridge->pollNextItem();
        QVERIFY(bridge->currentPollReply());
        QTRY_COMPARE(env.emulator().heldRequestCount(), 2);
        QCOMPARE(bridge->activeReplyCount(), 2);

        qRegisterMetaType<QNetworkReply*>();
        QSignalSpy finished(&env.nam(), &QNetworkAccessManager::finished);
        LogCapture log;
        bridge.reset();
        // Both replies ended as aborted during the destruction, and no handler saw them.
        QCOMPARE(finished.size(), 2);
        QList<QPointer<QNetworkReply>> replies;
        for (const QList<QVariant>& arguments : finished) {
            auto* reply = arguments.at(0).value<QNetworkReply*>();
            QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
            replies.append(reply);
        }
        QVERIFY(!log.contains("network reply error"));
        QTRY_VERIFY(
            std::all_of(replies.cbegin(), replies.cend(), [](const auto& reply) { return reply.isNull(); }));
        env.emulator().clearStalls();
        QCOMPARE(env.requests("PUT", statePath).size(), size_t(1)); // the waiting changes were dropped
    }
};

QTEST_GUILESS_MAIN(TestBridgeRequests)
#include "tst_bridgerequests.moc"
