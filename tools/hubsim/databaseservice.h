#pragma once

#include "configstore.h"
#include "hubservice.h"

#include <QMap>
#include <QString>

// The hub's database service "com.orlux.tamsa.database": the configuration store.
//
//   getAllConfigValues() -> QMap<QString,QString>   every key with its current value
//   setConfigValue(QString key, QString value, bool persistent)
//
// Every set, whoever makes it and whether or not the value changes, is sent to all subscribers
// of configValueChanged(QString,QString,bool), the client that made it included.
class DatabaseService : public HubService
{
    Q_OBJECT

public:
    DatabaseService(ConfigStore* store, HubEventLog* events, QObject* parent = nullptr);

    Q_INVOKABLE QMap<QString, QString> getAllConfigValues();
    Q_INVOKABLE void setConfigValue(QString key, QString value, bool persistent);

    // The same store change for hubsim's own callers (hubctl); `client` names who asked.
    void store(const QString& key, const QString& value, bool persistent, const QString& client);
    const ConfigStore& configStore() const { return *m_store; }

private:
    ConfigStore* m_store;
};
