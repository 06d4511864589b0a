#include "diagnosisservice.h"

#include "devicevariant.h"
#include "hubeventlog.h"

#include <QDateTime>

namespace {

void keepRecent(QVariantList& list, const QVariantMap& entry, int keep)
{
    list.append(entry);
    while (list.size() > keep)
        list.removeFirst();
}

} // namespace

DiagnosisService::DiagnosisService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kDiagnosis), events, parent)
{
}

void DiagnosisService::ping(QString module, quint8 health)
{
    keepRecent(m_pings,
               {{"time", devicevariant::timeText(QDateTime::currentDateTime())},
                {"client", callerName()},
                {"module", module},
                {"health", int(health)}},
               kKeep);
    postCall(QStringLiteral("ping"), {{"module", module}, {"health", int(health)}});
}
