#include "procstats.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <unistd.h>

namespace e2ebench {

namespace {

QByteArray readProcFile(qint64 pid, const char* name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// A "Name:   1234 kB" line of /proc/<pid>/status.
qint64 statusKiB(qint64 pid, const QByteArray& field)
{
    const QByteArray status = readProcFile(pid, "status");
    for (const QByteArray& line : status.split('\n')) {
        if (!line.startsWith(field + ':'))
            continue;
        const QList<QByteArray> parts = line.mid(field.size() + 1).simplified().split(' ');
        bool ok = false;
        const qint64 value = parts.value(0).toLongLong(&ok);
        return ok ? value : -1;
    }
    return -1;
}

} // namespace

qint64 residentKiB(qint64 pid)
{
    return statusKiB(pid, "VmRSS");
}

qint64 peakResidentKiB(qint64 pid)
{
    return statusKiB(pid, "VmHWM");
}

double cpuSeconds(qint64 pid)
{
    // The command name in parentheses may hold blanks; the numbered fields start after the last
    // ')'. There "state" is field 3, so utime (14) and stime (15) are the 12th and 13th.
    const QByteArray stat = readProcFile(pid, "stat");
    const int end = stat.lastIndexOf(')');
    if (end < 0)
        return -1;
    const QList<QByteArray> fields = stat.mid(end + 1).simplified().split(' ');
    if (fields.size() < 13)
        return -1;
    bool userOk = false;
    bool systemOk = false;
    const qint64 ticks = fields[11].toLongLong(&userOk) + fields[12].toLongLong(&systemOk);
    if (!userOk || !systemOk)
        return -1;
    return double(ticks) / double(sysconf(_SC_CLK_TCK));
}

double runSeconds(qint64 pid)
{
    const QByteArray schedstat = readProcFile(pid, "schedstat");
    bool ok = false;
    const qint64 nanoseconds = schedstat.simplified().split(' ').value(0).toLongLong(&ok);
    return ok ? double(nanoseconds) / 1e9 : -1;
}

} // namespace e2ebench
