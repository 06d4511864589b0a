#pragma once

#include <QMap>
#include <QString>

#include <optional>

// The hub's configuration store: key/value texts, each either persistent (kept in an SQLite
// database file and there again after a restart) or volatile (held in memory only).
//
// A key has one current value. Setting it persistently writes it to the file and drops any
// volatile value of the key; setting it volatile shadows the stored value until the next
// persistent write or the end of the process, after which the stored value is current again.
class ConfigStore
{
public:
    struct Entry
    {
        QString value;
        bool persistent = true;
    };

    // `connectionName` must be unique among the stores open at one time in the process
    // (Qt SQL keeps its connections by name).
    ConfigStore(const QString& databaseFile, const QString& connectionName);
    ~ConfigStore();
    ConfigStore(const ConfigStore&) = delete;
    ConfigStore& operator=(const ConfigStore&) = delete;

    // Opens (or creates) the database file and loads the stored values. On failure `error`
    // gets the reason; the store then works from memory only.
    bool open(QString* error = nullptr);
    bool isOpen() const { return m_open; }

    // Writes the value; false when a persistent value could not be written to the file (it is
    // current in memory all the same).
    bool setValue(const QString& key, const QString& value, bool persistent);
    std::optional<Entry> entry(const QString& key) const;
    QMap<QString, Entry> entries() const;
    QMap<QString, QString> values() const;

    QString databaseFile() const { return m_file; }

private:
    bool loadStored(QString* error);
    bool writeStored(const QString& key, const QString& value);

    QString m_file;
    QString m_connection;
    bool m_open = false;
    QMap<QString, QString> m_stored;   // mirror of the file
    QMap<QString, QString> m_volatile; // memory only, shadows m_stored
};
