#pragma once

#include <kovacommon/internalid.h>

#include <QDateTime>
#include <QMap>
#include <QString>

#include <optional>

// The datapoint writes the simulated hub sent with a confirmation token, and the answers.
// Token 0 means "no confirmation wanted" on the hub's side, so tokens start at 1 and skip 0
// when they wrap. Only the most recent writes are kept.
class WriteTracker
{
public:
    struct Write
    {
        int token = 0;
        InternalId dataPoint;
        QString value;
        QDateTime sent;
        std::optional<int> result; // 0 accepted, 2 refused, as the device answered
        QDateTime confirmed;
    };

    static constexpr int kKeep = 256;

    int start(const InternalId& dataPoint, const QString& value, const QDateTime& now);
    // Records the answer for a token; null when the token is unknown (never sent, or long gone).
    const Write* confirm(int token, int result, const QDateTime& now);
    const Write* find(int token) const;

private:
    int m_next = 1;
    QMap<int, Write> m_writes; // by token
    QList<int> m_order;        // tokens, oldest first
};
