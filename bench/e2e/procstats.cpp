#include "procstats.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <algorithm>

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

// The number of a "Name:   1234 kB" line, without its name.
qint64 kibOf(const QByteArray& line, int nameLength)
{
    bool ok = false;
    const qint64 value = line.mid(nameLength).simplified().split(' ').value(0).toLongLong(&ok);
    return ok ? value : 0;
}

bool isMappingHeader(const QByteArray& line)
{
    // "start-end perms offset dev inode [path]": the first field holds a '-', field lines end
    // their name with ':'.
    const int blank = line.indexOf(' ');
    return blank > 0 && line.left(blank).contains('-') && !line.left(blank).endsWith(':');
}

} // namespace

qint64 uniqueKiB(qint64 pid)
{
    const QByteArray rollup = readProcFile(pid, "smaps_rollup");
    if (rollup.isEmpty())
        return -1;
    qint64 total = 0;
    for (const QByteArray& line : rollup.split('\n')) {
        if (line.startsWith("Private_Clean:") || line.startsWith("Private_Dirty:"))
            total += kibOf(line, line.indexOf(':') + 1);
    }
    return total;
}

std::vector<PrivateMapping> largestPrivateMappings(qint64 pid, int count)
{
    std::vector<PrivateMapping> mappings;
    for (const QByteArray& line : readProcFile(pid, "smaps").split('\n')) {
        if (isMappingHeader(line)) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            PrivateMapping mapping;
            mapping.permissions = QString::fromLatin1(fields.value(1));
            mapping.name = fields.size() > 5 ? QString::fromLocal8Bit(fields.mid(5).join(' '))
                                             : QStringLiteral("[anon]");
            mappings.push_back(mapping);
        } else if (!mappings.empty()) {
            const int colon = line.indexOf(':');
            if (line.startsWith("Size:"))
                mappings.back().sizeKiB = kibOf(line, colon + 1);
            else if (line.startsWith("Private_Clean:"))
                mappings.back().privateKiB += kibOf(line, colon + 1);
            else if (line.startsWith("Private_Dirty:")) {
                mappings.back().privateKiB += kibOf(line, colon + 1);
                mappings.back().privateDirtyKiB = kibOf(line, colon + 1);
            }
        }
    }
    std::stable_sort(mappings.begin(), mappings.end(), [](const PrivateMapping& a, const PrivateMapping& b) {
        return a.privateKiB > b.privateKiB;
    });
    if (int(mappings.size()) > count)
        mappings.resize(std::size_t(count));
    return mappings;
}

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
