#include "writetracker.h"

#include <limits>

int WriteTracker::start(const InternalId& dataPoint, const QString& value, const QDateTime& now)
{
    const int token = m_next;
    m_next = m_next == std::numeric_limits<int>::max() ? 1 : m_next + 1;
    if (m_writes.contains(token))
        m_order.removeOne(token);
    m_writes.insert(token, Write{token, dataPoint, value, now, std::nullopt, QDateTime()});
    m_order.append(token);
    while (m_order.size() > kKeep)
        m_writes.remove(m_order.takeFirst());
    return token;
}

const WriteTracker::Write* WriteTracker::confirm(int token, int result, const QDateTime& now)
{
    auto it = m_writes.find(token);
    if (it == m_writes.end())
        return nullptr;
    it->result = result;
    it->confirmed = now;
    return &*it;
}

const WriteTracker::Write* WriteTracker::find(int token) const
{
    auto it = m_writes.constFind(token);
    return it == m_writes.constEnd() ? nullptr : &*it;
}
