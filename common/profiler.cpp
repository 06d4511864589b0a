#include "profiler.h"

#include <QTextStream>

#include <algorithm>

Profiler& Profiler::instance()
{
    static Profiler profiler;
    return profiler;
}

void Profiler::record(const char* name, qint64 elapsedNs)
{
    Section& section = m_sections[QByteArray::fromRawData(name, int(qstrlen(name)))];
    ++section.calls;
    section.totalNs += elapsedNs;
    section.maxNs = std::max(section.maxNs, elapsedNs);
}

QString Profiler::statistics() const
{
    QList<QByteArray> names = m_sections.keys();
    std::sort(names.begin(), names.end(), [this](const QByteArray& a, const QByteArray& b) {
        return m_sections.value(a).totalNs > m_sections.value(b).totalNs;
    });
    QString text;
    QTextStream out(&text);
    for (const QByteArray& name : names) {
        const Section& s = m_sections.value(name);
        out << name << ": calls " << s.calls << ", total " << s.totalNs / 1000 << " us, mean "
            << (s.calls ? s.totalNs / qint64(s.calls) / 1000 : 0) << " us, max " << s.maxNs / 1000 << " us\n";
    }
    return text;
}
