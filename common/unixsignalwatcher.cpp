#include "unixsignalwatcher.h"

#include "logginginterface.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_fds[2] = {-1, -1}; // [0] written by the handler, [1] read on the event loop

void handleSignal(int signalNumber)
{
    const unsigned char number = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(g_fds[0], &number, 1);
}

} // namespace

UnixSignalWatcher::UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject* parent)
    : QObject(parent), m_signals(signalNumbers)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_fds) != 0) {
        LOG_ERROR << "cannot create the socket pair for signal handling";
        return;
    }
    m_notifier = new QSocketNotifier(g_fds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::onReadable);

    struct sigaction action = {};
    action.sa_handler = handleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int number : m_signals)
        sigaction(number, &action, nullptr);
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    if (!m_notifier)
        return;
    for (int number : m_signals)
        signal(number, SIG_DFL);
    ::close(g_fds[0]);
    ::close(g_fds[1]);
    g_fds[0] = g_fds[1] = -1;
}

void UnixSignalWatcher::onReadable()
{
    unsigned char number = 0;
    if (::read(g_fds[1], &number, 1) == 1)
        emit received(number);
}
