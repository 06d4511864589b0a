#pragma once

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;
class SocketInterface;

namespace hue {

class CController;

// Finds Hue bridges through the hub's SSDP service. The listener opens no multicast socket of
// its own: it asks the hub's system service "com.orlux.tamsa.system" to watch the notification
// types of UPnP root and basic devices and receives that service's discovery and expiry signals.
// Each candidate's description document is fetched; a device whose model name says it is a
// Philips Hue bridge goes to the controller's admission (CController::addBridge).
//
// The system service interface belongs to the caller: the hub adaptor passes the interface it
// holds, tests pass one of their own. The listener connects itself to the controller's
// bridgeRemoved signal, so that a bridge removed from the registry is examined afresh when it is
// announced again.
class CUpnpListener : public QObject
{
    Q_OBJECT
public:
    static constexpr int kQueryIntervalMs = 60000;
    static constexpr int kMaxFailures = 4;
    static constexpr const char* kRequester = "hue_controller";

    enum DeviceState : int
    {
        DeviceWaiting = 0, // description still to be fetched
        DeviceSettled = 2, // accepted, rejected or given up
    };

    // One candidate bridge, keyed by its lower-case bridge id.
    struct Device
    {
        QUrl location; // the description document
        QString usn;
        int state = DeviceWaiting;
        int failures = 0;               // failed description fetches so far
        QNetworkReply* reply = nullptr; // the description request in flight

        // The location's port; 443 for https and 80 otherwise when it names none.
        int port() const;
    };

    // `systemService` is the interface to "com.orlux.tamsa.system"; `controller` defaults to
    // g_Controller. Neither is owned.
    explicit CUpnpListener(SocketInterface* systemService, CController* controller = nullptr,
                           QObject* parent = nullptr);
    ~CUpnpListener() override;

    // Subscribes to the SSDP signals and asks the service to watch the two notification types;
    // stop() undoes both and aborts the description requests in flight.
    void start();
    void stop();
    bool isWatching() const { return m_watching; }

    // The "HUE-BRIDGEID" header in lower case; empty when there is none.
    static QByteArray extractBridgeId(const QMap<QString, QString>& headers);

    void queryBridge(const QByteArray& id);
    void queryBridge(const QByteArray& id, Device& device);

    const QMap<QByteArray, Device>& devices() const { return m_devices; }
    const QTimer& queryTimer() const { return m_queryTimer; }

public slots:
    void onUpnpDeviceDiscovery(bool alive, int maxAge, QByteArray notificationType,
                               QMap<QString, QString> headers);
    void onUpnpDiscoveryExpired(QByteArray notificationType, QMap<QString, QString> headers);
    // Fetches again every description that is still waiting; stops when none is.
    void onQueryTimer();
    void onDescriptionRequestFinished();
    // Drops the record of a bridge, so that its next announcement is examined afresh.
    void forgetBridge(const QByteArray& id);

private:
    void countFailure(const QByteArray& id, Device& device);
    // Ends a description request without counting it as a failure.
    void dropReply(Device& device);
    void subscribe(bool on);
    void callWatch(const char* method);

    QPointer<SocketInterface> m_system;
    QPointer<CController> m_controller;
    QNetworkAccessManager* m_nam; // child
    QMap<QByteArray, Device> m_devices;
    QTimer m_queryTimer;
    bool m_watching = false;
};

} // namespace hue
