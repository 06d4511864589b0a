// Round trips of the hub messaging over a real local socket.
//
// The service runs on a thread of its own in this process: a blocking call waits on its socket
// without running the caller's event loop, so the answering side must run concurrently, and a
// thread keeps the benchmark self-contained (no second program to start). Both sides pay the
// full cost: encoding, the kernel's socket, parsing, queueing and invoking the method.
//
//   BM_BlockingRoundTrip   one blocking call "echo(int)" and its reply per iteration
//   BM_NonBlockingCalls    1000 non-blocking "sendDataPoint(InternalId,QString)" calls per
//                          iteration, then one blocking call that returns once the service has
//                          run all of them; items_per_second is messages per second
//
// Both report the median of 5 repetitions, in wall-clock time (the work is spread over threads).

#include <common/logginginterface.h>
#include <common/messaging/socketadaptor.h>
#include <common/messaging/socketinterface.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

namespace {

constexpr int kBatch = 1000;

class BenchService : public SocketAdaptor
{
    Q_OBJECT

public:
    BenchService() : SocketAdaptor(QStringLiteral("com.orlux.bench.echo")) {}

    Q_INVOKABLE int echo(int value) { return value; }
    Q_INVOKABLE void sendDataPoint(InternalId id, QString value)
    {
        m_received += id.isValid() && !value.isEmpty() ? 1 : 0;
    }
    Q_INVOKABLE int received() { return m_received; }

private:
    int m_received = 0;
};

// The service on its thread and one client in the benchmark's thread.
class Environment
{
public:
    Environment()
    {
        m_context.moveToThread(&m_thread);
        m_thread.start();
        const QString dir = m_dir.path();
        QMetaObject::invokeMethod(
            &m_context,
            [this, dir] {
                m_service = new BenchService;
                m_service->startLocalServer(dir);
            },
            Qt::BlockingQueuedConnection);
        client = std::make_unique<SocketInterface>(
            SocketConnection::LocalSocket, QStringLiteral("com.orlux.bench.echo"), dir, nullptr, "bench");
    }
    ~Environment()
    {
        client.reset();
        QMetaObject::invokeMethod(
            &m_context, [this] { delete m_service; }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

    std::unique_ptr<SocketInterface> client;

private:
    QTemporaryDir m_dir;
    QThread m_thread;
    QObject m_context;
    BenchService* m_service = nullptr;
};

Environment* g_environment = nullptr;

void BM_BlockingRoundTrip(benchmark::State& state)
{
    SocketInterface& client = *g_environment->client;
    int value = 0;
    for (auto _ : state) {
        const SocketArgument reply = client.call(QStringLiteral("echo"), ++value);
        if (client.hasError() || reply.toInt() != value) {
            state.SkipWithError("echo failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BlockingRoundTrip)->Repetitions(5)->ReportAggregatesOnly(true)->UseRealTime();

void BM_NonBlockingCalls(benchmark::State& state)
{
    SocketInterface& client = *g_environment->client;
    const SocketArgument id(InternalId::makeOutputDataPointSerial(0xBEED, 0x10005, 1, 2));
    const SocketArgument value(QStringLiteral("100"));
    for (auto _ : state) {
        const int before = client.call(QStringLiteral("received")).toInt();
        for (int i = 0; i < kBatch; ++i)
            client.call(SocketInterface::NoBlock, QStringLiteral("sendDataPoint"), id, value);
        // Calls run in arrival order, so this answer comes after all of the batch ran.
        if (client.call(QStringLiteral("received")).toInt() != before + kBatch) {
            state.SkipWithError("calls lost");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_NonBlockingCalls)->Repetitions(5)->ReportAggregatesOnly(true)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    setLogSink([](int, const QByteArray&) {}); // the figures, not the log
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Environment environment;
    if (!environment.client->isValid())
        return 1;
    g_environment = &environment;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

#include "bench_socketroundtrip.moc"
