#pragma once

#include "hubservice.h"

#include <QVariantList>

// The hub's backend service "com.orlux.tamsa.backend": services hand in support information
// with submitSupportInfo(QString module, QByteArray info). hubsim keeps the recent ones.
class BackendService : public HubService
{
    Q_OBJECT

public:
    static constexpr int kKeep = 20;

    explicit BackendService(HubEventLog* events, QObject* parent = nullptr);

    Q_INVOKABLE void submitSupportInfo(QString module, QByteArray info);

    // Oldest first; each {"time", "client", "module", "size", "info"}.
    QVariantList submissions() const { return m_submissions; }

private:
    QVariantList m_submissions;
};
