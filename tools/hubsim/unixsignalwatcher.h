#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal on the event loop. The handler only writes the
// signal number into a socket pair (all a signal handler may safely do); a socket notifier
// reads it on the event loop.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalWatcher(QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

    bool isValid() const { return m_notifier != nullptr; }

signals:
    void received(int signalNumber);

private:
    void onReadable();

    QSocketNotifier* m_notifier = nullptr;
};
