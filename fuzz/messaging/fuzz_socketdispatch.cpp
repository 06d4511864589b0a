// libFuzzer target for the call dispatch of a hub service: every call message that the socket
// parser completes is run as the adaptor runs a client's call (method found by the signature of
// the arguments sent, invoked, answered), on an adaptor with methods of the messaging's types.
//
// Byte 0 picks the way in: even runs the adaptor's own dispatch by signature; odd invokes the
// method chosen by byte 0 with whatever arguments the message carries, so that wrong, missing
// and extra arguments reach the conversion. No connection exists: replies go nowhere.
#include <common/logginginterface.h>
#include <common/messaging/socketadaptor.h>
#include <common/messaging/socketmethodinvoker.h>
#include <common/messaging/socketparser.h>
#include <common/messaging/socketpromise.h>

#include <cstdint>

namespace {

class Service : public SocketAdaptor
{
    Q_OBJECT
public:
    Service() : SocketAdaptor(QStringLiteral("com.example.fuzz")) {}
    void run(const SocketMessage& message) { invoke(callFromMessage(nullptr, message)); }

    Q_INVOKABLE int sum(int a, int b) { return int(unsigned(a) + unsigned(b)); }
    Q_INVOKABLE QString name(InternalId id, QString fallback)
    {
        return id.isValid() ? id.toString() : fallback;
    }
    Q_INVOKABLE QByteArray bytes(QByteArray data, int count) { return data.left(count); }
    Q_INVOKABLE QStringList keys(QVariantMap map, QStringList extra) { return map.keys() + extra; }
    Q_INVOKABLE QVariantMap wrap(QString key, QVariantMap value) { return {{key, value}}; }
    Q_INVOKABLE void later(QString text, SocketPromise promise) { promise.setResult(SocketArgument(text)); }
    Q_INVOKABLE void later(QString text) { m_last = text; }
    Q_INVOKABLE void fail(InternalId, SocketPromise promise) { promise.setFailed(); }

public slots:
    void setValue(InternalId id, QString value, bool persistent)
    {
        m_last = id.toString() + value + persistent;
    }

private:
    QString m_last;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setLogSink([](int, const QByteArray&) {});
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    static Service* service = new Service;
    static const SocketMethodTable* table =
        new SocketMethodTable(service->metaObject(), SocketAdaptor::staticMetaObject.methodCount());
    const QMetaObject* meta = service->metaObject();
    const int first = SocketAdaptor::staticMetaObject.methodCount();

    SocketMessageParser parser;
    parser.append(reinterpret_cast<const char*>(data + 1), int(size - 1));
    for (;;) {
        const SocketMessageParser::Event event = parser.parse();
        if (event == SocketMessageParser::Event::NeedMoreBytes)
            break;
        if (event != SocketMessageParser::Event::MessageComplete)
            continue;
        const SocketMessage message = parser.takeMessage();
        if (message.type != socketwire::CallWithReply && message.type != socketwire::CallNoReply)
            continue;
        if (data[0] % 2 == 0) {
            service->run(message);
            continue;
        }
        const QMetaMethod method = meta->method(first + data[0] / 2 % (meta->methodCount() - first));
        bool takesPromise = false;
        if (!table->find(SocketMethodTable::messageSignature(method, &takesPromise)))
            continue; // not callable by clients
        const QVariant promise = QVariant::fromValue(SocketPromise());
        QVariant result;
        QByteArray error;
        invokeWithSocketArguments(service, method, message.arguments, takesPromise ? &promise : nullptr,
                                  &result, &error);
    }
    return 0;
}

#include "fuzz_socketdispatch.moc"
