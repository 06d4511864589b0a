#include "hubeventlog.h"

#include "devicevariant.h"

#include <common/logginginterface.h>

#include <QDateTime>

void HubEventLog::post(const QString& kind, QVariantMap fields)
{
    QByteArray line = kind.toUtf8();
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        QString shown = it.value().toString();
        if (shown.size() > 120) // descriptions and support texts: their size is enough here
            shown = QStringLiteral("<%1 characters>").arg(shown.size());
        line += ' ' + it.key().toUtf8() + '=' + shown.toUtf8();
    }
    LOG_INFO << line;
    fields.insert(QStringLiteral("time"), devicevariant::timeText(QDateTime::currentDateTime()));
    fields.insert(QStringLiteral("kind"), kind);
    emit posted(fields);
}
