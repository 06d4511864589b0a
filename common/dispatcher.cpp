#include "dispatcher.h"

#include "logginginterface.h"

Dispatcher* Dispatcher::TheDispatcher = nullptr;

Dispatcher::Dispatcher(QObject* parent) : QObject(parent)
{
    if (TheDispatcher)
        LOG_WARNING << "a second Dispatcher replaces the first one";
    TheDispatcher = this;
}

Dispatcher::~Dispatcher()
{
    // A newer dispatcher may have taken over; only the registered one clears the pointer.
    if (TheDispatcher == this)
        TheDispatcher = nullptr;
}
