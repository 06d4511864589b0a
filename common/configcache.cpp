#include "configcache.h"

#include "logginginterface.h"
#include "messaging/hubsocketsettings.h"
#include "messaging/socketinterface.h"

#include <QCoreApplication>

const char ConfigCache::kDatabaseService[] = "com.orlux.tamsa.database";

ConfigCache* ConfigCache::instance()
{
    // Owned by the application so that its socket goes before the event loop's machinery;
    // recreated should a test's application object have taken it along.
    static QPointer<ConfigCache> s_instance;
    if (!s_instance)
        s_instance = new ConfigCache(QCoreApplication::instance());
    return s_instance;
}

ConfigCache::ConfigCache(QObject* parent) : QObject(parent) {}

ConfigCache::~ConfigCache() = default;

bool ConfigCache::connectToDatabase()
{
    const HubSocketSettings hub = HubSocketSettings::read();
    return connectToDatabase(hub.type, hub.socketDir);
}

bool ConfigCache::connectToDatabase(SocketConnection::SocketType type, const QString& socketDir)
{
    delete m_database;
    ++m_generation;
    m_ready = false;
    m_changedBeforeReady.clear();

    auto* database = new SocketInterface(type, QLatin1String(kDatabaseService), socketDir, this);
    if (!database->isValid()) {
        LOG_ERROR << "ConfigCache cannot connect to" << kDatabaseService << "in" << socketDir
                  << database->errorText();
        delete database;
        return false;
    }
    m_database = database;
    connect(database, &SocketInterface::disconnected, this, &ConfigCache::onDatabaseDisconnected);

    // Subscribe before asking for the map: a change made in between then arrives as a signal
    // and is kept even though the map, answered later, may predate it.
    if (!database->connectDynamicSignal("configValueChanged(QString, QString, bool)", this,
                                        "onConfigValueChanged(QString,QString,bool)")) {
        LOG_ERROR << "ConfigCache failed to subscribe to configValueChanged" << database->errorText();
        return false;
    }
    const quint64 generation = m_generation;
    const bool sent = database->callWithCallback(QStringLiteral("getAllConfigValues"),
                                                 [this, generation](bool ok, const SocketArgument& value) {
                                                     onAllConfigValues(generation, ok, value);
                                                 });
    if (!sent) {
        LOG_ERROR << "ConfigCache failed to call getAllConfigValues" << database->errorText();
        return false;
    }
    return true;
}

bool ConfigCache::isConnected() const
{
    return m_database && m_database->isValid();
}

void ConfigCache::onAllConfigValues(quint64 generation, bool ok, const SocketArgument& value)
{
    if (generation != m_generation)
        return; // the answer to a connection that has been replaced
    if (!ok || value.type() != SocketArgument::StringMap) {
        LOG_ERROR << "ConfigCache got no configuration values from" << kDatabaseService;
        return;
    }
    const QMap<QString, QString> all = value.toStringMap();
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        if (!m_changedBeforeReady.contains(it.key()))
            m_values.insert(it.key(), it.value());
    }
    m_changedBeforeReady.clear();
    m_ready = true;
    ++m_revision;
    LOG_INFO << "ConfigCache ready with" << m_values.size() << "values";
    emit ready();
}

QString ConfigCache::getConfigValue(const QString& key, bool* ok) const
{
    auto it = m_values.constFind(key);
    // Once the whole map has arrived a missing key is an answer too: the value was never set.
    if (ok)
        *ok = m_ready || it != m_values.constEnd();
    return it == m_values.constEnd() ? QString() : *it;
}

void ConfigCache::setConfigValueNonblock(const QString& key, const QString& value, bool persistent)
{
    m_values.insert(key, value);
    ++m_revision;
    if (!m_ready)
        m_changedBeforeReady.insert(key);
    if (!isConnected()) {
        LOG_WARNING << "ConfigCache not connected, value kept locally only:" << key;
        return;
    }
    m_database->call(SocketInterface::NoBlock, QStringLiteral("setConfigValue"), key, value, persistent);
    if (m_database->hasError())
        LOG_ERROR << "Call to database setConfigValue failed" << m_database->errorText();
}

void ConfigCache::onConfigValueChanged(QString key, QString value, bool persistent)
{
    m_values.insert(key, value);
    ++m_revision;
    if (!m_ready)
        m_changedBeforeReady.insert(key);
    emit configValueChanged(key, value, persistent);
}

void ConfigCache::onDatabaseDisconnected()
{
    LOG_WARNING << "ConfigCache lost its connection to" << kDatabaseService << "; values may go stale";
}
