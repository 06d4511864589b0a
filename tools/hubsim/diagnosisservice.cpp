#include "diagnosisservice.h"

DiagnosisService::DiagnosisService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kDiagnosis), events, parent)
{
}

void DiagnosisService::ping(QString module, quint8 health)
{
    recordCall(m_pings, {{"module", module}, {"health", int(health)}}, kKeep);
    postCall(QStringLiteral("ping"), {{"module", module}, {"health", int(health)}});
}
