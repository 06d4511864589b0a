#pragma once

#include "hubservice.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QStringList>

// The hub's system service "com.orlux.tamsa.system": network state and the discovery of
// devices by mDNS and SSDP. Clients register what they want to hear of; hubsim records those
// watches (until the client goes away) and sends the discovery signals when hubctl says so. It
// never sends or receives multicast itself.
//
// Like a real mDNS browser it remembers the services announced (until they are removed): a client
// that starts watching a type hears at once of every such service already known, so a service
// restarted after an announcement still learns of the bridge.
//
// The signals and what hubsim puts in them:
//   networkEvent(int event, QByteArray text)
//   mDNSServiceChanged(bool added, QByteArray type, QByteArray name, QByteArray domain ("local"),
//                      QByteArray host, int port, QByteArray address, QStringList txt)
//   ssdpDiscoveryReceived(bool alive, int maxAge, QByteArray notificationType,
//                         QMap<QString,QString> headers)
//   ssdpDiscoveryExpired(QByteArray notificationType, QMap<QString,QString> headers)
// The SSDP headers are LOCATION, USN, HUE-BRIDGEID, NT and CACHE-CONTROL.
class SystemService : public HubService
{
    Q_OBJECT

public:
    explicit SystemService(HubEventLog* events, QObject* parent = nullptr);

    // Watches, with the texts as QString (what a service's string literals become) or QByteArray.
    Q_INVOKABLE void watchMDNSServiceType(QString serviceType, QString requester);
    Q_INVOKABLE void watchMDNSServiceType(QByteArray serviceType, QByteArray requester);
    Q_INVOKABLE void watchSSDPNotificationType(QString notificationType, QString requester);
    Q_INVOKABLE void watchSSDPNotificationType(QByteArray notificationType, QByteArray requester);
    Q_INVOKABLE void unwatchSSDPNotificationType(QString notificationType, QString requester);
    Q_INVOKABLE void unwatchSSDPNotificationType(QByteArray notificationType, QByteArray requester);

    struct Watch
    {
        QString kind; // "mdns" or "ssdp"
        QString type;
        QString requester;
        QString client;
        QDateTime since;
        const SocketConnection* connection = nullptr;
    };
    const QList<Watch>& watches() const { return m_watches; }
    bool isWatched(const QString& kind, const QString& type) const;

    struct Announcement
    {
        bool ok = false;
        QString error;
        int subscribers = 0;
        bool watched = false; // some client watches this type
    };
    Announcement mdnsService(bool added, const QString& type, const QString& name, const QString& host,
                             const QString& address, int port, const QStringList& txt);

    // A service announced and not yet removed, as a new watcher of its type hears of it.
    struct KnownService
    {
        QString type;
        QString name;
        QString host;
        QString address;
        int port = 0;
        QStringList txt;
    };
    const QList<KnownService>& knownServices() const { return m_known; }
    // Watches whose known services wait for the watcher's subscription or the next turn of the
    // event loop.
    int pendingReplayCount() const { return m_pendingReplays.size(); }
    enum class SsdpKind
    {
        Alive,   // ssdpDiscoveryReceived(true, ...)
        ByeBye,  // ssdpDiscoveryReceived(false, ...)
        Expired, // ssdpDiscoveryExpired(...)
    };
    Announcement ssdpDevice(SsdpKind kind, const QString& location, const QString& usn,
                            const QString& bridgeId, int maxAge, const QString& notificationType);
    Announcement networkEvent(int event, const QString& text);

protected:
    void clientGone(SocketConnection* connection, const QByteArray& name) override;

private:
    void addWatch(const QString& kind, const QString& type, const QString& requester);
    void removeWatch(const QString& kind, const QString& type, const QString& requester);
    void rememberService(bool added, const KnownService& service);
    // Sends the known services of each waiting type to its watcher once that watcher has
    // subscribed to mDNSServiceChanged (a client may subscribe just after it watches).
    void sendKnownServices(const SocketConnection* connection);

    struct PendingReplay
    {
        const SocketConnection* connection = nullptr;
        QString type;
    };

    QList<Watch> m_watches;
    QList<KnownService> m_known;           // in order of first announcement
    QList<PendingReplay> m_pendingReplays; // watches whose known services are still to be sent
};
