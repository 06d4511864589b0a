#include "configstore.h"

#include <common/logginginterface.h>

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

ConfigStore::ConfigStore(const QString& databaseFile, const QString& connectionName)
    : m_file(databaseFile), m_connection(connectionName)
{
}

ConfigStore::~ConfigStore()
{
    if (!QSqlDatabase::contains(m_connection))
        return;
    // The connection must be closed and every handle to it gone before it can be removed.
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

bool ConfigStore::open(QString* error)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(m_file);
    if (!db.open()) {
        if (error)
            *error = db.lastError().text();
        return false;
    }
    QSqlQuery create(db);
    if (!create.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS config ("
                                    "key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)"))) {
        if (error)
            *error = create.lastError().text();
        db.close();
        return false;
    }
    m_open = loadStored(error);
    return m_open;
}

bool ConfigStore::loadStored(QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (!query.exec(QStringLiteral("SELECT key, value FROM config"))) {
        if (error)
            *error = query.lastError().text();
        return false;
    }
    m_stored.clear();
    while (query.next())
        m_stored.insert(query.value(0).toString(), query.value(1).toString());
    return true;
}

bool ConfigStore::writeStored(const QString& key, const QString& value)
{
    if (!m_open)
        return false;
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("INSERT OR REPLACE INTO config (key, value) VALUES (?, ?)"));
    query.addBindValue(key);
    query.addBindValue(value);
    if (!query.exec()) {
        LOG_ERROR << "cannot store configuration value" << key << query.lastError().text();
        return false;
    }
    return true;
}

bool ConfigStore::setValue(const QString& key, const QString& value, bool persistent)
{
    if (!persistent) {
        m_volatile.insert(key, value);
        return true;
    }
    m_volatile.remove(key);
    m_stored.insert(key, value);
    return writeStored(key, value);
}

std::optional<ConfigStore::Entry> ConfigStore::entry(const QString& key) const
{
    auto shadow = m_volatile.constFind(key);
    if (shadow != m_volatile.constEnd())
        return Entry{*shadow, false};
    auto stored = m_stored.constFind(key);
    if (stored != m_stored.constEnd())
        return Entry{*stored, true};
    return std::nullopt;
}

QMap<QString, ConfigStore::Entry> ConfigStore::entries() const
{
    QMap<QString, Entry> all;
    for (auto it = m_stored.cbegin(); it != m_stored.cend(); ++it)
        all.insert(it.key(), Entry{it.value(), true});
    for (auto it = m_volatile.cbegin(); it != m_volatile.cend(); ++it)
        all.insert(it.key(), Entry{it.value(), false});
    return all;
}

QMap<QString, QString> ConfigStore::values() const
{
    QMap<QString, QString> all = m_stored;
    for (auto it = m_volatile.cbegin(); it != m_volatile.cend(); ++it)
        all.insert(it.key(), it.value());
    return all;
}
