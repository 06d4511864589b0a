#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPair>

// Keeps a repeated warning from flooding the log: while a condition lasts (a bridge that cannot
// be reached, a light that does not answer), the same line for the same subject is written at
// most once per period, and the lines held back are counted, so that the end of the condition
// can say how many there were. Pure bookkeeping on the caller's clock, in milliseconds.
class LogBudget
{
public:
    static constexpr qint64 kDefaultPeriodMs = 60000;

    explicit LogBudget(qint64 periodMs = kDefaultPeriodMs) : m_periodMs(periodMs) {}

    // True when the line named `key` may be written at `nowMs`; otherwise it is counted.
    bool admit(const QByteArray& key, qint64 nowMs);
    // The conditions have ended: every key with lines held back and their counts, oldest key
    // first; the budget starts afresh.
    QList<QPair<QByteArray, int>> end();
    bool isEmpty() const { return m_entries.isEmpty(); }

private:
    struct Entry
    {
        qint64 lastWrittenMs = 0;
        int heldBack = 0;
        int order = 0;
    };

    qint64 m_periodMs;
    QHash<QByteArray, Entry> m_entries;
    int m_nextOrder = 0;
};
