#include "databaseservice.h"

#include "hubeventlog.h"

#include <common/logginginterface.h>

DatabaseService::DatabaseService(ConfigStore* store, HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kDatabase), events, parent), m_store(store)
{
}

QMap<QString, QString> DatabaseService::getAllConfigValues()
{
    const QMap<QString, QString> values = m_store->values();
    postCall(QStringLiteral("getAllConfigValues"), {{"count", values.size()}});
    return values;
}

void DatabaseService::setConfigValue(QString key, QString value, bool persistent)
{
    store(key, value, persistent, callerName());
}

void DatabaseService::store(const QString& key, const QString& value, bool persistent, const QString& client)
{
    const bool written = m_store->setValue(key, value, persistent);
    if (!written)
        LOG_ERROR << "configuration value" << key << "is current but could not be stored in"
                  << m_store->databaseFile();
    events()->post(QStringLiteral("setConfigValue"), {{"service", serviceName()},
                                                      {"client", client},
                                                      {"key", key},
                                                      {"value", value},
                                                      {"persistent", persistent}});
    emitSignal(QStringLiteral("configValueChanged"), key, value, persistent);
}
