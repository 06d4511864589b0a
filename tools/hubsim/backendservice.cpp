#include "backendservice.h"

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

BackendService::BackendService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kBackend), events, parent)
{
}

void BackendService::submitSupportInfo(QString module, QByteArray info)
{
    keepRecent(m_submissions,
               {{"time", devicevariant::timeText(QDateTime::currentDateTime())},
                {"client", callerName()},
                {"module", module},
                {"size", info.size()},
                {"info", QString::fromUtf8(info)}},
               kKeep);
    postCall(QStringLiteral("submitSupportInfo"), {{"module", module}, {"size", info.size()}});
}
