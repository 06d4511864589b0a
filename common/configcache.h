#pragma once

#include "messaging/socketconnection.h"

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

class SocketArgument;
class SocketInterface;

// The process's one copy of the hub's configuration values, kept by the hub's database
// service "com.orlux.tamsa.database".
//
// connectToDatabase() opens a connection of its own to that service, subscribes to
// "configValueChanged(QString, QString, bool)" and asks for "getAllConfigValues()" without
// blocking. isReady() turns true (and ready() is emitted) when that map has arrived; from then
// on every change signal keeps the cache current. A change that arrives before the map (or a
// value written here before it) wins over the map's older value for that key.
//
// Writing: setConfigValueNonblock() sends "setConfigValue(QString,QString,bool)" without
// waiting and puts the value into the cache at once, so that the writer reads its own value
// back immediately. configValueChanged() is emitted only for changes the service reports, one
// for each report, so a value written here is announced when the service's echo of it arrives.
class ConfigCache : public QObject
{
    Q_OBJECT

public:
    static const char kDatabaseService[]; // "com.orlux.tamsa.database"

    // The process-wide cache, created on first use (owned by the application object).
    static ConfigCache* instance();

    // A cache of its own; the process normally uses instance().
    explicit ConfigCache(QObject* parent = nullptr);
    ~ConfigCache() override;

    // Connects with the hub-wide socket settings ("socketDir", default "/tmp"; "socketType",
    // "tcp" for TCP, anything else local) of the "vorn"/"database" settings store.
    bool connectToDatabase();
    // Connects to the database service in socketDir. Connecting again drops the previous
    // connection; the cache keeps its values but is not ready until the new map has arrived.
    // Returns false when the service cannot be reached or the request cannot be sent.
    bool connectToDatabase(SocketConnection::SocketType type, const QString& socketDir);
    bool isConnected() const;
    bool isReady() const { return m_ready; }

    // The cached value, empty for a key that was never set. `ok` is false when the query cannot
    // be answered: the key is not known and the cache is not ready yet.
    QString getConfigValue(const QString& key, bool* ok = nullptr) const;
    // Whether the key has a value (possibly empty).
    bool contains(const QString& key) const { return m_values.contains(key); }
    QMap<QString, QString> allConfigValues() const { return m_values; }
    // Counts every change of the cached values; a reader that keeps something derived from them
    // compares it to tell whether its copy is still current.
    quint64 revision() const { return m_revision; }

    // Writes a value to the hub's store (persistent: kept across restarts of the hub).
    void setConfigValueNonblock(const QString& key, const QString& value, bool persistent);

signals:
    void ready();
    // A change reported by the database service (including this process's own writes).
    void configValueChanged(QString key, QString value, bool persistent);

private slots:
    void onConfigValueChanged(QString key, QString value, bool persistent);
    void onDatabaseDisconnected();

private:
    void onAllConfigValues(quint64 generation, bool ok, const SocketArgument& value);

    QPointer<SocketInterface> m_database;
    quint64 m_generation = 0; // tells the reply of the current connection from older ones
    QMap<QString, QString> m_values;
    quint64 m_revision = 0;
    QSet<QString> m_changedBeforeReady;
    bool m_ready = false;
};
