#pragma once

#include <common/messaging/socketinterface.h>
#include <kovacommon/internalid.h>

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

// A device description with names on some datapoints and not on others.
extern const QByteArray kLightDescription;

// A device service as the simulated hub sees it: it registers devices with the communication
// service and confirms the datapoint writes it receives with `confirmResult` (-1: not at all).
class TestDevice : public QObject
{
    Q_OBJECT

public:
    TestDevice(const QString& socketDir, const QByteArray& clientName = "testdevice");

    void registerDevice(const InternalId& id, const QByteArray& description);

    struct Write
    {
        InternalId id;
        QString value;
        int token;
    };
    int confirmResult = 0;
    QList<QPair<InternalId, bool>> ready;
    QList<Write> writes;

public slots:
    void onDeviceReady(InternalId id, bool isReady);
    void onDataPointValueChanged(InternalId id, QString value, int token);

private:
    std::unique_ptr<SocketInterface> m_hub;
};

// A client of the system service as the Hue service is one: it subscribes to mDNSServiceChanged,
// then watches a type; every signal it hears is kept as "added|type|name|domain|host|port|address|txt".
class TestBrowser : public QObject
{
    Q_OBJECT

public:
    TestBrowser(const QString& socketDir, const QByteArray& clientName = "testbrowser");
    void watch(const QString& type);

    QStringList heard;

public slots:
    void onServiceChanged(bool added, QByteArray type, QByteArray name, QByteArray domain, QByteArray host,
                          int port, QByteArray address, QStringList txt);

private:
    std::unique_ptr<SocketInterface> m_hub;
};
