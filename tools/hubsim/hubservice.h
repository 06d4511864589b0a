#pragma once

#include <common/messaging/socketadaptor.h>

#include <QByteArray>
#include <QHash>
#include <QSet>
#include <QString>
#include <QVariant>

class HubEventLog;

// The hub's service names as they appear in socket file names.
namespace hubservices {
constexpr char kCommunication[] = "com.orlux.tamsa.communication";
constexpr char kDatabase[] = "com.orlux.tamsa.database";
constexpr char kSystem[] = "com.orlux.tamsa.system";
constexpr char kDiagnosis[] = "com.orlux.tamsa.diagnosis";
constexpr char kBackend[] = "com.orlux.tamsa.backend";
constexpr char kControl[] = "com.orlux.tamsa.hubsim"; // hubsim's own, for hubctl
constexpr char kHueController[] = "com.orlux.tamsa.huecontroller";
} // namespace hubservices

// Base of hubsim's services: a socket adaptor that reports its clients coming, going and coming
// back (a restarted service announces the same name again) to the event log, and tells a
// method who is calling it. Nothing here is callable by clients.
class HubService : public SocketAdaptor
{
    Q_OBJECT

public:
    HubService(const QString& name, HubEventLog* events, QObject* parent = nullptr);

protected:
    // Clients of this service come and go as a matter of course (hubctl, one call each): their
    // connections are logged as detail only, not posted as events.
    void setQuietClients(bool quiet) { m_quietClients = quiet; }
    HubEventLog* events() const { return m_events; }
    // The announced name of the client whose call is running ("" outside a call or unnamed).
    QString callerName() const;
    // Posts an event with the service and caller added.
    void postCall(const QString& kind, QVariantMap fields = QVariantMap()) const;
    // Appends a record of the running call (the fields plus "time" and "client") to `list`,
    // keeping only the newest `keep`.
    void recordCall(QVariantList& list, QVariantMap fields, int keep) const;
    // Called when a client connection goes away, after it has been logged.
    virtual void clientGone(SocketConnection* connection, const QByteArray& name);

private:
    HubEventLog* m_events;
    bool m_quietClients = false;
    QHash<const SocketConnection*, QByteArray> m_names;
    QSet<QByteArray> m_departed; // names of clients that disconnected, to recognise their return
};
