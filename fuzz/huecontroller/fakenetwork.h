// A network in memory for the fuzz targets: every request made through FakeNetwork gets a
// finished FakeReply that holds the body and HTTP status set beforehand. No socket is opened;
// the target hands the reply to the code under test itself.
#pragma once

#include "common/logginginterface.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>

namespace fuzz {

class FakeReply : public QNetworkReply
{
public:
    FakeReply(const QNetworkRequest& request, QNetworkAccessManager::Operation operation,
              const QByteArray& body, int status, QObject* parent = nullptr)
        : QNetworkReply(parent), m_body(body)
    {
        setRequest(request);
        setUrl(request.url());
        setOperation(operation);
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
        if (status >= 400)
            fail(status == 403   ? ContentAccessDenied
                 : status == 404 ? ContentNotFoundError
                                 : UnknownContentError);
        QIODevice::open(QIODevice::ReadOnly);
        setFinished(true);
    }
    void fail(NetworkError code) { setError(code, QStringLiteral("fuzz")); }
    void finish() { emit finished(); }
    void abort() override {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_body.size() - m_read + QIODevice::bytesAvailable(); }

protected:
    qint64 readData(char* data, qint64 maxSize) override
    {
        const qint64 count = qMin(maxSize, qint64(m_body.size() - m_read));
        memcpy(data, m_body.constData() + m_read, size_t(count));
        m_read += int(count);
        return count;
    }

private:
    QByteArray m_body;
    int m_read = 0;
};

class FakeNetwork : public QNetworkAccessManager
{
public:
    QByteArray body;
    int status = 200;
    QList<QPointer<FakeReply>> made; // every reply handed out and not yet deleted

    FakeReply* last() const { return made.isEmpty() ? nullptr : made.last().data(); }

    // Deletes the replies handed out (the service asks for that with deleteLater).
    void dropAll()
    {
        for (const QPointer<FakeReply>& reply : qAsConst(made))
            if (reply)
                reply->deleteLater();
        made.clear();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request, QIODevice*) override
    {
        auto* reply = new FakeReply(request, operation, body, status, this);
        made.append(reply);
        return reply;
    }
};

// An application object (some Qt classes want one) and silence from the service's log.
inline void initQt()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = new QCoreApplication(argc, argv);
    (void)app;
    setLogSink([](int, const QByteArray&) {});
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
}

} // namespace fuzz
