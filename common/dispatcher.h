#pragma once

#include <QObject>

// The process's telegram dispatcher. A service's main() constructs exactly one; its
// constructor makes it reachable as Dispatcher::TheDispatcher for the shared code that routes
// telegrams through it, and its destructor clears that again.
class Dispatcher : public QObject
{
    Q_OBJECT

public:
    explicit Dispatcher(QObject* parent = nullptr);
    ~Dispatcher() override;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    static Dispatcher* TheDispatcher;
};
