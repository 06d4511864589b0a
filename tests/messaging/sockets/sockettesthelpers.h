#pragma once

#include <common/logginginterface.h>
#include <common/messaging/socketadaptor.h>
#include <common/messaging/socketinterface.h>
#include <common/messaging/socketpromise.h>

#include <QMutex>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <functional>

// Collects the log lines written (from any thread) while it exists.
class LogCapture
{
public:
    LogCapture()
    {
        m_previous = setLogSink([this](int, const QByteArray& line) {
            QMutexLocker lock(&m_mutex);
            m_lines.append(line);
        });
    }
    ~LogCapture() { setLogSink(m_previous); }

    bool contains(const QByteArray& text) const
    {
        QMutexLocker lock(&m_mutex);
        for (const QByteArray& line : m_lines) {
            if (line.contains(text))
                return true;
        }
        return false;
    }

private:
    mutable QMutex m_mutex;
    QList<QByteArray> m_lines;
    LogSink m_previous;
};

// The service the tests call: an echo, a ten-argument method, a recorder
// for calls without reply, and methods that answer through promises.
class EchoService : public SocketAdaptor
{
    Q_OBJECT

public:
    explicit EchoService(QObject* parent = nullptr)
        : SocketAdaptor(QStringLiteral("com.orlux.test.echo"), parent)
    {
    }

    QStringList recorded() const
    {
        QMutexLocker lock(&m_mutex);
        return m_recorded;
    }
    SocketPromise keptPromise; // used in the service's thread only

    Q_INVOKABLE QString echo(QString v) { return v; }
    Q_INVOKABLE int echo(int v) { return v; }
    Q_INVOKABLE qint64 echo(qint64 v) { return v; } // a typedef of qlonglong
    Q_INVOKABLE InternalId echo(InternalId v) { return v; }
    Q_INVOKABLE QMap<QString, QString> echo(QMap<QString, QString> v) { return v; }

    Q_INVOKABLE int sum(int a, int b, int c, int d, int e, int f, int g, int h, int i, int j)
    {
        return a + b + c + d + e + f + g + h + i + j;
    }

    // Emits a signal before it answers: the caller receives the signal while it waits.
    Q_INVOKABLE int emitThenReturn(int v)
    {
        emitSignal(QStringLiteral("changed"), QStringLiteral("during"), QString::number(v), true);
        return v;
    }

    Q_INVOKABLE void later(int v, SocketPromise promise)
    {
        QTimer::singleShot(20, this, [promise, v]() mutable { promise.setResult(SocketArgument(v * 2)); });
    }
    Q_INVOKABLE void forget(int, SocketPromise) {}
    Q_INVOKABLE void ignore(int, SocketPromise promise) { keptPromise = promise; }
    Q_INVOKABLE void keep(SocketPromise promise) { keptPromise = promise; }

public slots:
    void record(QString text)
    {
        QMutexLocker lock(&m_mutex);
        m_recorded.append(text);
    }

private:
    mutable QMutex m_mutex;
    QStringList m_recorded;
};

// Runs a service in a thread of its own: a blocking call needs the service to answer while
// the calling thread waits on its socket.
class ServiceThread
{
public:
    explicit ServiceThread(std::function<SocketAdaptor*()> create)
    {
        m_context.moveToThread(&m_thread);
        m_thread.start();
        run([&] { m_adaptor = create(); });
    }
    ~ServiceThread()
    {
        run([&] { delete m_adaptor; });
        m_thread.quit();
        m_thread.wait();
    }

    // Runs f in the service's thread and waits for it.
    void run(const std::function<void()>& f) const
    {
        QMetaObject::invokeMethod(&m_context, f, Qt::BlockingQueuedConnection);
    }
    // Runs f in the service's thread and returns its result.
    template <typename F> auto query(F f) const -> decltype(f())
    {
        decltype(f()) result{};
        run([&] { result = f(); });
        return result;
    }
    template <typename T> T* adaptor() const { return static_cast<T*>(m_adaptor); }

private:
    QThread m_thread;
    mutable QObject m_context;
    SocketAdaptor* m_adaptor = nullptr;
};

// A temporary socket directory with an EchoService on a local and a TCP server, answering in a
// thread of its own; made afresh for each test function.
struct EchoFixture
{
    EchoFixture()
        : service([dir = dir.path()] {
              auto* echo = new EchoService;
              echo->setInvokeTimeout(100);
              if (!echo->startLocalServer(dir) || !echo->startTcpServer(dir, 0))
                  qFatal("cannot start the test service");
              return echo;
          })
    {
    }
    EchoService* echo() const { return service.adaptor<EchoService>(); }
    std::unique_ptr<SocketInterface>
    connect(SocketConnection::SocketType type = SocketConnection::LocalSocket) const
    {
        return std::make_unique<SocketInterface>(type, QStringLiteral("com.orlux.test.echo"), dir.path(),
                                                 nullptr, "tester");
    }

    QTemporaryDir dir;
    ServiceThread service;
};
