// Discovery and admission against hubsim's system and database services in-process and a bridge
// emulator on loopback. Retry ticks are driven by calling the timer slot directly.

#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_upnplistener.h"

#include "common/configcache.h"
#include "common/messaging/socketinterface.h"
#include "logcapture.h"

#include <bridgeemulator.h>
#include <hubsimulator.h>
#include <systemservice.h>

#include <QNetworkReply>
#include <QtTest>

using namespace hue;
using Kind = SystemService::SsdpKind;
using Row = std::tuple<const char*, QByteArray, QByteArray, QByteArray, QString>;

static const QString kUsn = "uuid:2f402f80-da50-11e1-9b23-001788123456::upnp:rootdevice";
static const QByteArray kId = "001788fffe123456";

class TestDiscovery : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<HubSimulator> m_hub;
    std::unique_ptr<SocketInterface> m_system;
    bridgeemu::BridgeEmulator m_emu;

    static void set(const QString& key, const QString& value)
    {
        ConfigCache::instance()->setConfigValueNonblock(key, value, true);
    }
    static QString get(const QString& key) { return ConfigCache::instance()->getConfigValue(key); }
    static QString dataUrl(const char* type, const QByteArray& body)
    {
        return QString("data:") + type + ',' + QUrl::toPercentEncoding(body);
    }
    static QMap<QString, QString> headers(const QString& location)
    {
        return {{"LOCATION", location}, {"USN", kUsn}, {"HUE-BRIDGEID", "001788FFFE123456"}};
    }
    QString location() const { return QString("http://127.0.0.1:%1/description.xml").arg(m_emu.httpPort()); }
    int requestCount(const std::string& target) const
    {
        const auto all = m_emu.requests();
        return int(std::count_if(all.begin(), all.end(), [&](const auto& r) { return r.target == target; }));
    }
    QStringList watches() const
    {
        QStringList list;
        for (const SystemService::Watch& watch : m_hub->system()->watches())
            list << watch.kind + ' ' + watch.type + ' ' + watch.requester;
        return list;
    }

private slots:
    void initTestCase()
    {
        m_hub = std::make_unique<HubSimulator>(HubSimOptions{m_dir.path()});
        QVERIFY(m_hub->start());
        QVERIFY(ConfigCache::instance()->connectToDatabase(SocketConnection::LocalSocket, m_dir.path()));
        QTRY_VERIFY(ConfigCache::instance()->isReady());
        m_system = std::make_unique<SocketInterface>(SocketConnection::LocalSocket, "com.orlux.tamsa.system",
                                                     m_dir.path());
        QVERIFY(m_emu.start());
    }
    void init()
    {
        for (const QByteArray& id : {kId, oldBridgeUuid(kId)}) {
            for (const char* prefix :
                 {"hueBridges/", "hueBridgeUserNames/", "hueBridgeIDs/", "hueBridgeNames/"})
                set(prefix + id, "");
        }
    }
    // The in-process hub shares this thread: let it take the writes of a case before the next.
    void cleanup()
    {
        QSignalSpy echoes(ConfigCache::instance(), &ConfigCache::configValueChanged);
        set("test/marker", QTest::currentTestFunction());
        QTRY_VERIFY(echoes.contains({"test/marker", QTest::currentTestFunction(), true}));
    }

    void announcedBridgeIsAdmittedAndExpires()
    {
        CController controller;
        CUpnpListener listener(m_system.get(), &controller);
        listener.start();
        QTRY_COMPARE(watches(), (QStringList{"ssdp upnp:rootdevice hue_controller",
                                             "ssdp urn:schemas-upnp-org:device:basic:1 hue_controller"}));
        m_emu.clearRequests();
        for (int repeat = 0; repeat < 2; ++repeat)
            m_hub->system()->ssdpDevice(Kind::Alive, location(), kUsn, "001788FFFE123456", 100,
                                        "upnp:rootdevice");
        QTRY_VERIFY(controller.bridgeByBridgeId(kId));
        QCOMPARE(listener.devices().value(kId).state, int(CUpnpListener::DeviceSettled));
        QCOMPARE(requestCount("/description.xml"), 1); // the repetition fetched nothing
        QCOMPARE(get("hueBridgeIDs/" + kId).toUInt(), controller.bridgeByBridgeId(kId)->shortId());

        listener.onUpnpDeviceDiscovery(false, 0, "", headers("http://127.0.0.1:1/description.xml"));
        QVERIFY(controller.bridgeByBridgeId(kId)); // the bye-bye of a place the bridge has left
        m_hub->system()->ssdpDevice(Kind::Expired, location(), kUsn.section("::", 0, 0), "001788FFFE123456",
                                    100, "urn:schemas-upnp-org:device:basic:1");
        QTRY_VERIFY(!controller.bridgeByBridgeId(kId));
        QVERIFY(listener.devices().isEmpty());
        listener.stop();
        QTRY_VERIFY(watches().isEmpty());
    }

    void description_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("state"); // 0: to be fetched again
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QByteArray>("log");
        const auto model = [](const char* name) { return "<root><device><modelName>" + QByteArray(name); };
        QTest::addRow("bridge, any case") << model("Royal PHILIPS hue BRIDGE v2</modelName></device></root>")
                                          << 2 << true << QByteArray("identifying bridge 001788fffe123456");
        QTest::addRow("other device") << model("Sonos</modelName></device></root>") << 2 << false
                                      << QByteArray("model does not look like a bridge: Sonos");
        QTest::addRow("not XML") << model("Philips hue bridge") << 0 << false
                                 << QByteArray("Parse error in description XML from device line 1 column");
        QTest::addRow("server error")
            << QByteArray() << 0 << false << QByteArray("description query failed:");
        // Hostile documents are refused before the DOM parser, which would overflow the stack.
        QTest::addRow("5000 levels deep")
            << QByteArray("<a>").repeated(5000) + QByteArray("</a>").repeated(5000) << 0 << false
            << QByteArray("description XML from device nests deeper than 16 levels");
        QTest::addRow("document type")
            << "<!DOCTYPE r [<!ENTITY e \"x\">]>" + model("&e;</modelName></device></root>") << 0 << false
            << QByteArray("has a document type declaration, refused");
        QTest::addRow("too large") << model("Philips hue bridge</modelName></device>") +
                                          QByteArray(70000, ' ') + "</root>"
                                   << 0 << false
                                   << QByteArray("description XML from device larger than 65536 bytes");
    }
    void description()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, state);
        QFETCH(bool, accepted);
        QFETCH(QByteArray, log);
        CController controller;
        CUpnpListener listener(nullptr, &controller);
        LogCapture capture;
        if (body.isEmpty())
            m_emu.throttle(503, 1, "/description.xml");
        listener.onUpnpDeviceDiscovery(true, 100, "",
                                       headers(body.isEmpty() ? location() : dataUrl("text/xml", body)));
        QTRY_VERIFY(!listener.devices().value(kId).reply);
        QCOMPARE(listener.devices().value(kId).state, state);
        QCOMPARE(listener.devices().value(kId).failures, state == 0 ? 1 : 0);
        QCOMPARE(capture.contains("identifying bridge 001788fffe123456"), accepted);
        QVERIFY2(capture.contains(log), log.constData());
    }

    void hangingQueriesAreRetriedFourTimes()
    {
        m_emu.clearRequests();
        m_emu.stall(-1, std::chrono::seconds(5), "/description.xml");
        CUpnpListener listener(nullptr, nullptr);
        listener.onUpnpDeviceDiscovery(true, 100, "", headers(location()));
        for (int attempt = 1; attempt <= CUpnpListener::kMaxFailures; ++attempt) {
            QTRY_COMPARE(requestCount("/description.xml"), attempt);
            QVERIFY(listener.queryTimer().isActive());
            listener.onQueryTimer(); // a query still open one tick later is aborted and counts as failed
            QCOMPARE(listener.devices().value(kId).failures, attempt);
            QCOMPARE(listener.devices().value(kId).state, attempt < 4 ? 0 : 2);
        }
        listener.onQueryTimer();
        QVERIFY(!listener.queryTimer().isActive());
        QVERIFY(!listener.devices().value(kId).reply);
        QCOMPARE(requestCount("/description.xml"), 4);
        m_emu.clearStalls();
    }

    void identification_data()
    {
        QTest::addColumn<QByteArray>("expectedId");
        QTest::addColumn<QByteArray>("body"); // empty: nobody answers
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QString>("name"); // empty: not admitted
        const QByteArray id = R"("bridgeid":"001788FFFE123456")";
        for (const auto& [tag, expectedId, body, log, name] : QList<Row>{
                 {"upper-case id", "", R"({"name":"H",)" + id + R"(,"apiversion":"1.65.0"})",
                  "setBridgeState 001788fffe123456 new", "H"},
                 {"no name", "", "{" + id + R"(,"apiversion":"1.3.0"})", "", "Unnamed bridge"},
                 {"old firmware", "", R"({"name":"H",)" + id + R"(,"apiversion":"1.2.1"})", "",
                  "H (unsupported)"},
                 {"announced id", kId, R"({"name":"H","apiversion":"1.65.0"})", "", "H"},
                 {"no id at all", "", R"({"name":"H"})", "got finished signal with no bridge id", ""},
                 {"blank id", kId, R"({"bridgeid":""})", "bridge at 127.0.0.1 replied with blank ID", ""},
                 {"not JSON", "", "{nope", "JSON parse error while trying to parse api/config reply:", ""},
                 {"plain http refused", kId, "", "refuses plain http - identifying it over https on port 443",
                  ""}})
            QTest::addRow("%s", tag) << expectedId << body << log << name;
    }
    void identification()
    {
        QFETCH(QByteArray, expectedId);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, log);
        QFETCH(QString, name);
        CController controller;
        LogCapture capture;
        const QUrl url(body.isEmpty() ? "http://127.0.0.1:1/api/config" : dataUrl("application/json", body));
        QNetworkReply* reply = controller.networkAccessManager()->get(QNetworkRequest(url));
        reply->setProperty("hueBridgeId", expectedId);
        reply->setProperty("hueBridgeAddress", QByteArray("127.0.0.1"));
        reply->setProperty("hueBridgePort", 1);
        connect(reply, &QNetworkReply::finished, &controller, &CController::onIdentifyBridgeFinished);
        QVERIFY(QSignalSpy(reply, &QNetworkReply::finished).wait());
        QVERIFY(capture.contains(log));
        CBridge* bridge = controller.bridgeByBridgeId(kId);
        QCOMPARE(bridge ? bridge->name() : QString(), name);
        QCOMPARE(get("hueBridgeNames/" + kId), name);
    }

    void storedState_data()
    {
        QTest::addColumn<QByteArray>("stored"); // key=value;... with <id> and <old> for the two id forms
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QString>("user"); // and, for two rows, the short id kept
        for (const auto& [tag, stored, state, log, user] : QList<Row>{
                 {"new", "", "new", "No user stored for bridge 001788fffe123456 state new", ""},
                 {"delete", "hueBridges/<id>=delete;hueBridgeUserNames/<id>=u;hueBridgeIDs/<id>=7", "new",
                  "Renewing cvars for hue bridge", " 7"},
                 {"ignore", "hueBridges/<id>=ignore;hueBridgeUserNames/<id>=u", "ignore", "is ignored", "u"},
                 {"error", "hueBridges/<id>=error;hueBridgeUserNames/<id>=u", "pair",
                  "bridge was saved in error state, trying to repair", "u"},
                 {"old id form", "hueBridges/<old>=paired;hueBridgeUserNames/<old>=u;hueBridgeIDs/<old>=4242",
                  "paired", "converting the settings of bridge 2f402f80da5011e19b23001788123456", "u 4242"}})
            QTest::addRow("%s", tag) << stored << state << log << user;
    }
    void storedState()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QByteArray, state);
        QFETCH(QByteArray, log);
        QFETCH(QString, user);
        for (const QString& setting : QString(stored).split(';', Qt::SkipEmptyParts))
            set(setting.section('=', 0, 0).replace("<id>", kId).replace("<old>", oldBridgeUuid(kId)),
                setting.section('=', 1));
        CController controller;
        LogCapture capture;
        // At a closed port, so that nothing the bridge does later changes the state read here.
        CBridge* bridge = controller.realAddIdentifiedBridge(kId, kId, "127.0.0.1", 1, "Hall");
        QVERIFY(bridge && controller.bridgeByBridgeId(kId) == bridge);
        QVERIFY(capture.contains(log));
        QCOMPARE(get("hueBridges/" + kId), QString(state));
        QCOMPARE(get("hueBridgeUserNames/" + kId), user.section(' ', 0, 0));
        QCOMPARE(bridge->isIgnored(), state == "ignore");
        QCOMPARE(get("hueBridgeIDs/" + kId).toUInt(), bridge->shortId());
        QVERIFY(!user.contains(' ') || bridge->shortId() == user.section(' ', 1).toUInt());
    }

    void admissionsAreQueuedWhileLocked()
    {
        bridgeemu::EmulatorConfig config;
        config.identity.bridgeId = "001788fffe654321";
        bridgeemu::BridgeEmulator second(config);
        QVERIFY(second.start());
        m_emu.clearRequests();
        CController controller;
        LogCapture log;
        controller.addBridge("2f402f80-da50-11e1-9b23-001788123456", "127.0.0.1", m_emu.httpPort());
        controller.addBridge("", "127.0.0.1", second.httpPort());
        QVERIFY(controller.isAdmissionLocked());
        QCOMPARE(controller.pendingAdmissions().size(), 1);
        QVERIFY(log.contains("addBridge while locked"));
        QTRY_VERIFY(controller.bridgeByBridgeId(kId) && controller.bridgeByBridgeId("001788fffe654321"));
        QTRY_VERIFY(!controller.isAdmissionLocked() && controller.pendingAdmissions().isEmpty());

        CBridge* first = controller.bridgeByBridgeId(kId);
        controller.addBridge(kId, "127.0.0.1", m_emu.httpPort()); // known: no identification, same object
        QVERIFY(!controller.isAdmissionLocked());
        QCOMPARE(controller.bridgeByBridgeId(kId), first);
        QCOMPARE(requestCount("/api/config"), 1);
    }
};

QTEST_MAIN(TestDiscovery)
#include "tst_discovery.moc"
