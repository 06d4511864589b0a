// The adaptor's calls to the hub: device registration, output values with their cache, life
// signs, attributes and support information. Every call is fire-and-forget: a failure is logged
// and nothing is retried.
#include "hue_adaptor.h"

#include "hue_controller.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"
#include "common/messaging/hubsocketsettings.h"
#include "common/messaging/socketinterface.h"
#include "common/profiler.h"

namespace hue {

namespace {
const char kBackendService[] = "com.orlux.tamsa.backend";

// The hub shows colours as hexadecimal; the controller hands them over as decimal numbers.
// Written by hand: it runs for two values of every change of a colour lamp.
QString hexColor(const QString& decimal, int digits)
{
    bool ok = false;
    quint32 value = decimal.toUInt(&ok, 10);
    if (!ok) {
        LOG_WARNING << "colour value is not a number, sent as it is:" << decimal;
        return decimal;
    }
    static const char kDigits[] = "0123456789abcdef";
    QChar text[8];
    int length = 0;
    for (quint32 rest = value; rest != 0 || length == 0; rest >>= 4)
        text[7 - length++] = QLatin1Char(kDigits[rest & 0xf]);
    while (length < digits)
        text[7 - length++] = QLatin1Char('0');
    return QString(text + 8 - length, length);
}
} // namespace

void HueAdaptor::checkCommunicationCall(const char* errorMessage) const
{
    if (errorMessage && m_communication->hasError())
        LOG_ERROR << errorMessage << m_communication->errorText();
}

void HueAdaptor::emitRegisterDevice(const InternalId& id, const QByteArray& description)
{
    uncacheDeviceDatapoints(id);
    if (!m_communication)
        return;
    m_communication->call(SocketInterface::NoBlock, QStringLiteral("registerDevice"), id, description);
}

void HueAdaptor::emitSendDatapointValue(const InternalId& id, const QString& value)
{
    const CLight* light =
        m_controller ? m_controller->lightByDeviceSerial(InternalId::makeDeviceSerial(id)) : nullptr;
    const EOutputDatapoint datapoint =
        light && light->device() ? light->device()->outputDatapointForIndex(id.getIndex()) : ODP_INVALID;
    emitSendDatapointValue(id, value, datapoint);
}

void HueAdaptor::emitSendDatapointValue(const InternalId& id, const QString& value,
                                        EOutputDatapoint datapoint)
{
    ProfileScope profile("HueAdaptor::emitSendDatapointValue");
    const auto cached = m_datapointCache.constFind(id);
    if (cached != m_datapointCache.constEnd() && *cached == value)
        return;

    QString sent = value;
    if (datapoint == ODP_INFO_HSV_COLOR)
        sent = hexColor(value, 8);
    else if (datapoint == ODP_INFO_RGB_COLOR)
        sent = hexColor(value, 6);

    if (isLogKindEnabled(LogDebug)) {
        LOG_DEBUG << QStringLiteral("%1: SendDP ").arg(m_traceTimer.elapsed(), 4, 10, QLatin1Char('0')) +
                         id.toString() + QLatin1Char('=') + sent;
    }
    if (m_communication) {
        m_communication->call(SocketInterface::NoBlock, QStringLiteral("sendDataPoint"), id, sent);
        checkCommunicationCall("Call to database sendDataPoint failed");
    }
    // Cached even after a failed call: the value is what the light has, and the next change
    // goes out anyway.
    m_datapointCache.insert(id, value);
}

void HueAdaptor::emitConfirmDataPointValueChanged(int token, int result)
{
    if (!m_communication)
        return;
    m_communication->call(SocketInterface::NoBlock, QStringLiteral("confirmDataPointValueChanged"), token,
                          result);
    checkCommunicationCall("Call to communication confirmDataPointValueChanged failed");
}

void HueAdaptor::emitLifeSign(const InternalId& id)
{
    if (!m_communication)
        return;
    m_communication->call(SocketInterface::NoBlock, QStringLiteral("sendLifeSign"), id);
    checkCommunicationCall("Call to database sendLifeSign failed");
}

void HueAdaptor::emitUnresponsive(const InternalId& id)
{
    if (!m_communication)
        return;
    m_communication->call(SocketInterface::NoBlock, QStringLiteral("sendDeviceUnresponsive"), id);
    checkCommunicationCall("Call to database sendDeviceUnresponsive failed");
}

void HueAdaptor::emitSendAttribute(const InternalId& id, const QString& name, const QString& value)
{
    if (!m_communication)
        return;
    m_communication->call(SocketInterface::NoBlock, QStringLiteral("sendAttribute"), id, name, value);
    checkCommunicationCall("Call to communications sendAttribute failed");
}

void HueAdaptor::submitSupportInfo(const QByteArray& info)
{
    // The backend is asked rarely, so it gets a connection of its own for each report.
    const HubSocketSettings hub = HubSocketSettings::read();
    SocketInterface backend(hub.type, QString::fromLatin1(kBackendService), hub.socketDir);
    if (!backend.isValid()) {
        LOG_ERROR << "Cannot connect to backend";
        return;
    }
    backend.call(SocketInterface::NoBlock, QStringLiteral("submitSupportInfo"), getModuleName(), info);
    if (backend.hasError())
        LOG_ERROR << "Call to backend submitSupportInfo failed" << backend.errorText();
}

void HueAdaptor::gatherSupportInfo()
{
    if (m_controller)
        m_controller->gatherSupportInfo();
}

void HueAdaptor::uncacheDeviceDatapoints(const InternalId& device)
{
    const quint16 prefix = device.getPrefix();
    const quint32 number = device.getNumber();
    for (auto it = m_datapointCache.begin(); it != m_datapointCache.end();) {
        if (it.key().getPrefix() == prefix && it.key().getNumber() == number)
            it = m_datapointCache.erase(it);
        else
            ++it;
    }
}

} // namespace hue
