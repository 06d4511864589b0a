#include "logbudget.h"

#include <algorithm>

bool LogBudget::admit(const QByteArray& key, qint64 nowMs)
{
    auto it = m_entries.find(key);
    if (it == m_entries.end()) {
        m_entries.insert(key, Entry{nowMs, 0, m_nextOrder++});
        return true;
    }
    if (nowMs - it->lastWrittenMs >= m_periodMs) {
        it->lastWrittenMs = nowMs;
        return true;
    }
    ++it->heldBack;
    return false;
}

QList<QPair<QByteArray, int>> LogBudget::end()
{
    QList<QPair<QByteArray, Entry>> entries;
    for (auto it = m_entries.cbegin(); it != m_entries.cend(); ++it)
        entries.append({it.key(), it.value()});
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.second.order < b.second.order; });
    QList<QPair<QByteArray, int>> heldBack;
    for (const auto& [key, entry] : entries) {
        if (entry.heldBack > 0)
            heldBack.append({key, entry.heldBack});
    }
    m_entries.clear();
    m_nextOrder = 0;
    return heldBack;
}
