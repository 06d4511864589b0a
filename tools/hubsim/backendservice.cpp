#include "backendservice.h"

BackendService::BackendService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kBackend), events, parent)
{
}

void BackendService::submitSupportInfo(QString module, QByteArray info)
{
    recordCall(m_submissions, {{"module", module}, {"size", info.size()}, {"info", QString::fromUtf8(info)}},
               kKeep);
    postCall(QStringLiteral("submitSupportInfo"), {{"module", module}, {"size", info.size()}});
}
