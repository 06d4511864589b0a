// What the adaptor learns about the network: the hub's network events (for hasStableNetwork),
// bridges announced by mDNS, and the bridges a developer forces by address.
#include "hue_adaptor.h"

#include "hue_controller.h"

#include "common/logginginterface.h"
#include "common/messaging/socketinterface.h"

#include <QSettings>
#include <QUrl>

namespace hue {

namespace {
const QByteArray kHueServiceType = QByteArrayLiteral("_hue._tcp");
const QString kBridgeIdTxtKey = QStringLiteral("bridgeid=");
constexpr int kForcedBridgeIdLength = 32;
constexpr int kNetworkEventSuccess = 3;
constexpr int kNetworkEventFailure = 4;
constexpr int kLastNetworkEvent = 5;
} // namespace

void HueAdaptor::setLastNetworkEvent(int event)
{
    m_lastNetworkEvent = event;
    m_networkTimer.start();
}

void HueAdaptor::onNetworkEvent(int event, QByteArray text)
{
    LOG_DEBUG << QStringLiteral("onNetworkEvent(%1, '%2')").arg(event).arg(QString::fromUtf8(text));
    if (event < 0 || event > kLastNetworkEvent) {
        LOG_ERROR << "Invalid network event, handle as error:" << event;
        event = kNetworkEventFailure;
    }
    setLastNetworkEvent(event);
}

bool HueAdaptor::hasStableNetwork() const
{
    if (m_lastNetworkEvent != kNetworkEventSuccess) {
        LOG_WARNING << "Last network event indicates failure:" << m_lastNetworkEvent;
        return false;
    }
    const qint64 elapsed = m_networkTimer.elapsed();
    if (elapsed <= kStableNetworkMs) {
        LOG_WARNING << "Last network events indicates success but this was only" << elapsed << "ms ago";
        return false;
    }
    return true;
}

void HueAdaptor::startWatchingMDNS()
{
    if (!m_system)
        return;
    m_system->call(SocketInterface::NoBlock, QStringLiteral("watchMDNSServiceType"), kHueServiceType,
                   QByteArrayLiteral("huecontroller"));
    if (m_system->hasError())
        LOG_ERROR << "Call to system watchMDNSServiceType failed" << m_system->errorText();
}

void HueAdaptor::onMDNSServiceChanged(bool added, QByteArray type, QByteArray /*name*/, QByteArray /*domain*/,
                                      QByteArray /*host*/, int port, QByteArray address, QStringList txt)
{
    if (!added || !m_running || type != kHueServiceType)
        return;
    // A link-local IPv6 address needs an interface scope that the announcement does not carry.
    if (address.startsWith("fe80:"))
        return;

    QByteArray bridgeId;
    for (const QString& entry : txt) {
        if (entry.startsWith(kBridgeIdTxtKey)) {
            bridgeId = entry.mid(kBridgeIdTxtKey.size()).toUtf8();
            break;
        }
    }
    if (bridgeId.isEmpty()) {
        LOG_DEBUG << "mDNS announcement without bridge id ignored from" << address;
        return;
    }
    if (m_controller)
        m_controller->addBridge(bridgeId, address, port);
}

QByteArray HueAdaptor::forcedBridgeId(const QString& entry)
{
    static const char digits[] = "0123456789abcdef";
    QByteArray id;
    id.reserve(kForcedBridgeIdLength);
    for (int i = 0; i < kForcedBridgeIdLength; ++i) {
        const ushort code = i < entry.size() ? entry.at(i).unicode() : 0;
        id.append(digits[code < 256 ? (code & 0x0F) : 0]);
    }
    return id;
}

void HueAdaptor::addForcedBridges()
{
    const QSettings settings(QStringLiteral("vorn"), QStringLiteral("huecontroller"));
    const QString forced = settings.value(QStringLiteral("debug/forceBridgeIPs"), QString()).toString();
    const QStringList entries = forced.split(QLatin1Char('+'), Qt::SkipEmptyParts);
    for (const QString& entry : entries) {
        const QUrl url(entry);
        const int defaultPort = url.scheme().toLower() == QLatin1String("https") ? 443 : 80;
        const int port = url.port(defaultPort);
        LOG_INFO << "adding forced bridge" << entry;
        if (m_controller)
            m_controller->addBridge(forcedBridgeId(entry), url.host().toUtf8(), port);
    }
}

} // namespace hue
