#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

// What happens in the simulated hub, as it happens: every call a client makes, every signal
// the hub sends, clients coming and going. Each event is logged as one line and handed to the
// control service, which passes it on to followers ("hubctl follow").
//
// An event is a map with "time" (ISO 8601, local), "kind" (e.g. "registerDevice",
// "clientConnected") and the kind's own fields.
class HubEventLog : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    void post(const QString& kind, QVariantMap fields = QVariantMap());

signals:
    void posted(const QVariantMap& event);
};
