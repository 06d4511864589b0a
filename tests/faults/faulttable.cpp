#include "faultrig.h"

#include <QTextStream>

namespace faults {

namespace {

QString figure(qint64 value)
{
    return value < 0 ? QStringLiteral("-") : QString::number(value);
}

QString change(qint64 before, qint64 after)
{
    return figure(before) + QStringLiteral(" → ") + figure(after);
}

} // namespace

QString markdownTable(const QList<Row>& rows)
{
    QString text;
    QTextStream out(&text);
    out << QStringLiteral(
               "| scenario | api | lights in final state | commands lost | time to recover (ms) "
               "| warnings | errors | crash | RSS before → after (KiB) | fds before → after | notes |\n")
        << "|---|---|---|---|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        out << "| " << row.scenario << " | " << row.api << " | ";
        if (row.skipped)
            out << "- | - | - | - | - | - | - | - | ";
        else
            out << row.finalLights << '/' << row.lights << " | " << row.lost << " | " << figure(row.recoverMs)
                << " | " << row.warnings << " | " << row.errors << " | " << (row.crash ? "yes" : "no")
                << " | " << change(row.rssBefore, row.rssAfter) << " | "
                << change(row.fdsBefore, row.fdsAfter) << " | ";
        out << QString(row.notes.join("; ")).replace('|', '/') << " |\n";
    }
    return text;
}

} // namespace faults
