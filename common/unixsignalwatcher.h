#pragma once

#include <QList>
#include <QObject>

#include <initializer_list>

class QSocketNotifier;

// Turns Unix signals (SIGINT, SIGTERM, ...) into a Qt signal on the event loop, where the
// process can shut down with everything else it does. The handler only writes the signal number
// into a socket pair (all a signal handler may safely do: a handler that logged or quit directly
// could deadlock on a lock the interrupted code holds); a socket notifier reads it. One watcher
// per process.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

    bool isValid() const { return m_notifier != nullptr; }

signals:
    void received(int signalNumber);

private:
    void onReadable();

    QSocketNotifier* m_notifier = nullptr;
    QList<int> m_signals;
};
