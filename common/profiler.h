#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QMap>
#include <QString>

// The process's profiler: how often named sections of code ran and how long they took, kept
// cheaply enough to stay on in production and exported on request for diagnosis.
//
//   void CBridge::onReplyFinished(...)
//   {
//       ProfileScope profile("CBridge::onReplyFinished");
//       ...
//   }
class Profiler
{
public:
    struct Section
    {
        quint64 calls = 0;
        qint64 totalNs = 0;
        qint64 maxNs = 0;
    };

    static Profiler& instance();

    void record(const char* name, qint64 elapsedNs);
    const QMap<QByteArray, Section>& sections() const { return m_sections; }
    void reset() { m_sections.clear(); }
    // One line per section, busiest first: name, calls, total, mean and maximum in microseconds.
    QString statistics() const;

private:
    QMap<QByteArray, Section> m_sections;
};

// Records the time from its construction to its destruction under `name` (a string literal).
class ProfileScope
{
public:
    explicit ProfileScope(const char* name) : m_name(name) { m_timer.start(); }
    ~ProfileScope() { Profiler::instance().record(m_name, m_timer.nsecsElapsed()); }
    ProfileScope(const ProfileScope&) = delete;
    ProfileScope& operator=(const ProfileScope&) = delete;

private:
    const char* m_name;
    QElapsedTimer m_timer;
};
