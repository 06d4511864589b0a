#include "hubsimtestclients.h"

const QByteArray kLightDescription = R"(<?xml version="1.0"?>
<device type="light">
  <channels>
    <channel>
      <inputs>
        <dataPoint pairingId="0x1" name="switch"/>
        <dataPoint pairingId="0x11" name="brightness"/>
        <dataPoint pairingId="0x16"/>
      </inputs>
      <outputs>
        <dataPoint pairingId="0x100" name="state"/>
        <dataPoint pairingId="0x110" label="dimming value"/>
      </outputs>
      <parameters>
        <parameter parameterId="0x25" name="switchOnMode"/>
      </parameters>
    </channel>
  </channels>
</device>
)";

TestDevice::TestDevice(const QString& socketDir, const QByteArray& clientName)
    : m_hub(std::make_unique<SocketInterface>(SocketConnection::LocalSocket,
                                              QStringLiteral("com.orlux.tamsa.communication"), socketDir,
                                              nullptr, clientName))
{
    // The subscriptions exactly as the Hue service writes them.
    m_hub->connectDynamicSignal("deviceReady(InternalId, bool)", this, "onDeviceReady(InternalId,bool)");
    m_hub->connectDynamicSignal("dataPointValueChanged(InternalId, QString, int)", this,
                                "onDataPointValueChanged(InternalId, QString,int)");
}

void TestDevice::registerDevice(const InternalId& id, const QByteArray& description)
{
    m_hub->call(SocketInterface::NoBlock, QStringLiteral("registerDevice"), id, description);
}

void TestDevice::onDeviceReady(InternalId id, bool isReady)
{
    ready.append({id, isReady});
}

void TestDevice::onDataPointValueChanged(InternalId id, QString value, int token)
{
    writes.append({id, value, token});
    if (confirmResult >= 0)
        m_hub->call(SocketInterface::NoBlock, QStringLiteral("confirmDataPointValueChanged"), token,
                    confirmResult);
}

TestBrowser::TestBrowser(const QString& socketDir, const QByteArray& clientName)
    : m_hub(std::make_unique<SocketInterface>(SocketConnection::LocalSocket,
                                              QStringLiteral("com.orlux.tamsa.system"), socketDir, nullptr,
                                              clientName))
{
    m_hub->connectDynamicSignal(
        "mDNSServiceChanged(bool, QByteArray, QByteArray, QByteArray, QByteArray, int, QByteArray, "
        "QStringList)",
        this,
        "onServiceChanged(bool,QByteArray,QByteArray,QByteArray,QByteArray,int,QByteArray,QStringList)");
}

void TestBrowser::watch(const QString& type)
{
    m_hub->call(SocketInterface::NoBlock, QStringLiteral("watchMDNSServiceType"), type,
                QStringLiteral("testbrowser"));
}

void TestBrowser::onServiceChanged(bool added, QByteArray type, QByteArray name, QByteArray domain,
                                   QByteArray host, int port, QByteArray address, QStringList txt)
{
    heard << QStringList{added ? "added" : "removed", QString::fromUtf8(type),
                         QString::fromUtf8(name),     QString::fromUtf8(domain),
                         QString::fromUtf8(host),     QString::number(port),
                         QString::fromUtf8(address),  txt.join(',')}
                 .join('|');
}
