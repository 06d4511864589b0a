#pragma once

#include "hubservice.h"

#include <QVariantList>

// The hub's diagnosis service "com.orlux.tamsa.diagnosis": services report their health with
// the heartbeat call ping(QString module, uchar health). hubsim keeps the recent ones.
class DiagnosisService : public HubService
{
    Q_OBJECT

public:
    static constexpr int kKeep = 200;

    explicit DiagnosisService(HubEventLog* events, QObject* parent = nullptr);

    Q_INVOKABLE void ping(QString module, quint8 health);

    // Oldest first; each {"time", "client", "module", "health"}.
    QVariantList pings() const { return m_pings; }

private:
    QVariantList m_pings;
};
