#include "logwriter.h"

#include "logline.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// How long one line may wait for the system log daemon before it is given up (and counted as
// dropped), and for a reader of standard error before the copy there is skipped.
constexpr int kSystemLogSendTimeoutMs = 1000;
constexpr int kStandardErrorWaitMs = 100;

int syslogSeverity(int kind)
{
    switch (kind) {
    case LogInfo:
        return LOG_INFO;
    case LogWarning:
        return LOG_WARNING;
    case LogError:
        return LOG_ERR;
    default:
        return LOG_DEBUG;
    }
}

// Writes the decimal digits of `value` (>= 0) at `out`; returns the end. No allocation, so that
// the crash path can use it.
char* appendNumber(char* out, long value)
{
    char digits[24];
    int n = 0;
    do {
        digits[n++] = char('0' + value % 10);
        value /= 10;
    } while (value > 0 && n < int(sizeof digits));
    while (n > 0)
        *out++ = digits[--n];
    return out;
}

char* appendText(char* out, const char* text, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        *out++ = text[i];
    return out;
}

// "<PRI>" into `out`; returns the end.
char* appendPriority(char* out, int kind)
{
    *out++ = '<';
    out = appendNumber(out, LOG_USER | syslogSeverity(kind));
    *out++ = '>';
    return out;
}

// "Mmm dd hh:mm:ss " as glibc's syslog() writes it, with the month names of the C locale
// whatever the process's locale is.
char* appendTimestamp(char* out)
{
    static const char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    out = appendText(out, kMonths + 3 * (local.tm_mon % 12), 3);
    *out++ = ' ';
    if (local.tm_mday < 10)
        *out++ = ' ';
    out = appendNumber(out, local.tm_mday);
    const int parts[3] = {local.tm_hour, local.tm_min, local.tm_sec};
    for (int i = 0; i < 3; ++i) {
        const int part = parts[i];
        *out++ = i == 0 ? ' ' : ':';
        if (part < 10)
            *out++ = '0';
        out = appendNumber(out, part);
    }
    *out++ = ' ';
    return out;
}

// Writes all of `size` bytes; false on an error other than EINTR.
bool writeAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= std::size_t(n);
    }
    return true;
}

} // namespace

LogWriter::LogWriter(LogOutputs outputs) : m_outputs(std::move(outputs))
{
    // Signals sent to the process are for the threads that expect them (a handler of the event
    // loop, or the default action), never the writer: it starts with them blocked, as it
    // inherits the mask of the thread that creates it. Faults of its own stay deliverable.
    sigset_t blocked;
    sigset_t previous;
    ::sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        ::sigdelset(&blocked, fault);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    m_thread = std::thread([this] { run(); });
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

LogWriter::~LogWriter()
{
    if (!stop(kStopBound)) {
        // The thread refers to this object: wait for its output to move rather than leave it
        // with a dangling pointer. Owners that cannot wait leak the writer after stop() instead.
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
            m_wake.notify_one();
        }
        m_thread.join();
    }
}

std::int64_t LogWriter::costOf(const Entry& entry)
{
    return entry.line.size() + entry.stamp.size() + kEntryOverhead;
}

bool LogWriter::hasRoomFor(std::int64_t cost) const
{
    // An empty queue takes any line, so that one very long line is still written.
    return m_queue.empty() || (int(m_queue.size()) < kMaxLines && m_queuedBytes + cost <= kMaxBytes);
}

void LogWriter::queueDropReport()
{
    Entry report{LogWarning,
                 formatLogLine(LogWarning, __FILE__, __LINE__, ::getpid(), 0,
                               QByteArray::number(qint64(m_dropped)) +
                                   " log lines dropped: the system log could not keep up"),
                 QByteArray()};
    m_queuedBytes += costOf(report);
    m_queue.push_back(std::move(report));
    m_dropped = 0;
}

bool LogWriter::post(int kind, QByteArray line, QByteArray stamp)
{
    Entry entry{kind, std::move(line), std::move(stamp)};
    const std::int64_t cost = costOf(entry);
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool wasEmpty = m_queue.empty();
    // The report of lines lost goes in front of the first line that gets through again.
    if (m_dropped > 0 && hasRoomFor(cost + kEntryOverhead + 80))
        queueDropReport();
    if (!hasRoomFor(cost)) {
        ++m_dropped;
        ++m_droppedTotal;
        return false;
    }
    m_queuedBytes += cost;
    m_queue.push_back(std::move(entry));
    // A writer that is busy comes back for the queue by itself; only an idle one needs waking.
    if (wasEmpty)
        m_wake.notify_one();
    return true;
}

bool LogWriter::drain(std::chrono::milliseconds bound)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_drained.wait_for(lock, bound,
                              [this] { return (m_queue.empty() && m_dropped == 0) || m_finished; });
}

bool LogWriter::stop(std::chrono::milliseconds bound)
{
    if (!m_thread.joinable())
        return true;
    const auto deadline = std::chrono::steady_clock::now() + bound;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_drained.wait_until(lock, deadline,
                         [this] { return (m_queue.empty() && m_dropped == 0) || m_finished; });
    m_stopping = true;
    m_wake.notify_one();
    if (!m_drained.wait_until(lock, deadline, [this] { return m_finished; }))
        return false;
    lock.unlock();
    m_thread.join();
    return true;
}

std::int64_t LogWriter::droppedTotal() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_droppedTotal;
}

void LogWriter::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_queue.empty() && m_dropped > 0)
            queueDropReport();
        if (m_queue.empty()) {
            m_drained.notify_all();
            if (m_stopping)
                break;
            m_wake.wait(lock);
            continue;
        }
        // Producers only append, and std::deque keeps references to its elements valid when
        // it grows at the back, so the front entry can be written without the lock.
        const Entry& entry = m_queue.front();
        lock.unlock();
        writeEntry(entry);
        lock.lock();
        m_queuedBytes -= costOf(entry);
        m_queue.pop_front();
    }
    closeSystemLog();
    if (m_consoleFd >= 0)
        ::close(m_consoleFd);
    m_consoleFd = -1;
    m_finished = true;
    m_drained.notify_all();
}

void LogWriter::writeEntry(const Entry& entry)
{
    writeToSystemLog(entry);
    if (m_outputs.toStandardError)
        writeToStandardError(entry);
}

bool LogWriter::connectSystemLog()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_outputs.systemLogPath.size() >= int(sizeof address.sun_path))
        return false;
    std::copy(m_outputs.systemLogPath.cbegin(), m_outputs.systemLogPath.cend(), address.sun_path);
    // A datagram socket as syslogd and journald offer; a stream socket as some daemons do.
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const int fd = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return false;
        const timeval timeout{kSystemLogSendTimeoutMs / 1000, (kSystemLogSendTimeoutMs % 1000) * 1000};
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            m_systemLogFd.store(fd, std::memory_order_relaxed);
            m_systemLogIsStream = type == SOCK_STREAM;
            return true;
        }
        const int error = errno;
        ::close(fd);
        if (error != EPROTOTYPE)
            return false;
    }
    return false;
}

void LogWriter::closeSystemLog()
{
    const int fd = m_systemLogFd.exchange(-1, std::memory_order_relaxed);
    if (fd >= 0)
        ::close(fd);
}

// The system log is written through its socket here rather than by syslog(): glibc's syslog()
// with LOG_CONS writes the console itself when the socket is missing, and without LOG_CONS it
// does not say that the line went nowhere. Here the writer knows, and the console gets the
// line from this thread only.
void LogWriter::writeToSystemLog(const Entry& entry)
{
    char header[128];
    char* end = appendPriority(header, entry.kind);
    char* const afterPriority = end;
    end = appendTimestamp(end);
    const std::size_t identSize = std::size_t(qMin(m_outputs.ident.size(), 64));
    end = appendText(end, m_outputs.ident.constData(), identSize);
    end = appendText(end, ": ", 2);

    iovec parts[3] = {{header, std::size_t(end - header)},
                      {const_cast<char*>(entry.line.constData()), std::size_t(entry.line.size())},
                      {const_cast<char*>("\0"), 1}};
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (m_systemLogFd.load(std::memory_order_relaxed) < 0 && !connectSystemLog())
            break;
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = m_systemLogIsStream ? 3 : 2; // a stream ends each line with a NUL
        ssize_t sent;
        do {
            sent = ::sendmsg(m_systemLogFd.load(std::memory_order_relaxed), &message, MSG_NOSIGNAL);
        } while (sent < 0 && errno == EINTR);
        if (sent >= 0)
            return;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EMSGSIZE) {
            // The daemon did not take the line within the send time-out, or it is too long for
            // one datagram: this line is lost, the next one tries again.
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_dropped;
            ++m_droppedTotal;
            return;
        }
        // The daemon went away or restarted: connect afresh once.
        closeSystemLog();
    }
    // The system log cannot be reached: the console instead, as LOG_CONS did, without "<PRI>".
    writeToConsole(afterPriority, std::size_t(end - afterPriority));
    writeToConsole(entry.line.constData(), std::size_t(entry.line.size()));
    writeToConsole("\r\n", 2);
}

void LogWriter::writeToConsole(const char* text, std::size_t size)
{
    if (m_consoleFd < 0)
        m_consoleFd = ::open(m_outputs.consolePath.constData(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (m_consoleFd >= 0 && !writeAll(m_consoleFd, text, size)) {
        ::close(m_consoleFd);
        m_consoleFd = -1;
    }
}

// A reader of standard error that stops reading holds up the copy there only: after waiting
// once, the copies are skipped (and counted) until the reader takes data again, while the
// system log goes on.
void LogWriter::writeToStandardError(const Entry& entry)
{
    const int fd = m_outputs.standardErrorFd;
    pollfd ready{fd, POLLOUT, 0};
    int polled;
    do {
        polled = ::poll(&ready, 1, m_standardErrorStalled ? 0 : kStandardErrorWaitMs);
    } while (polled < 0 && errno == EINTR);
    if (polled == 0) {
        m_standardErrorStalled = true;
        ++m_standardErrorSkipped;
        return;
    }
    m_standardErrorStalled = false;
    if (m_standardErrorSkipped > 0) {
        const QByteArray note =
            formatLogLine(LogWarning, __FILE__, __LINE__, ::getpid(), 0,
                          QByteArray::number(qint64(m_standardErrorSkipped)) +
                              " log lines not copied to standard error: its reader could not keep up") +
            '\n';
        writeAll(fd, note.constData(), std::size_t(note.size()));
        m_standardErrorSkipped = 0;
    }
    iovec parts[4] = {{const_cast<char*>(entry.stamp.constData()), std::size_t(entry.stamp.size())},
                      {const_cast<char*>(" "), entry.stamp.isEmpty() ? 0u : 1u},
                      {const_cast<char*>(entry.line.constData()), std::size_t(entry.line.size())},
                      {const_cast<char*>("\n"), 1}};
    // Most lines fit the pipe's free space and go in one call; the rest piece by piece.
    std::size_t total = 0;
    for (const iovec& part : parts)
        total += part.iov_len;
    ssize_t written;
    do {
        written = ::writev(fd, parts, 4);
    } while (written < 0 && errno == EINTR);
    if (written < 0 || std::size_t(written) == total)
        return;
    std::size_t skip = std::size_t(written);
    for (const iovec& part : parts) {
        if (skip >= part.iov_len) {
            skip -= part.iov_len;
            continue;
        }
        if (!writeAll(fd, static_cast<const char*>(part.iov_base) + skip, part.iov_len - skip))
            return;
        skip = 0;
    }
}

void LogWriter::flushNow()
{
    std::unique_lock<std::mutex> lock(m_mutex, std::try_to_lock);
    if (!lock.owns_lock())
        return;
    int consoleFd = -1;
    for (const Entry& entry : m_queue) {
        // No time stamp: it would need the time zone, and the daemon stamps the line itself.
        char header[96];
        char* end = appendPriority(header, entry.kind);
        char* const afterPriority = end;
        const std::size_t identSize = std::size_t(qMin(m_outputs.ident.size(), 64));
        end = appendText(end, m_outputs.ident.constData(), identSize);
        end = appendText(end, ": ", 2);
        iovec parts[3] = {{header, std::size_t(end - header)},
                          {const_cast<char*>(entry.line.constData()), std::size_t(entry.line.size())},
                          {const_cast<char*>(m_systemLogIsStream ? "\0" : "\n"), 1}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = m_systemLogIsStream ? 3 : 2;
        const int logFd = m_systemLogFd.load(std::memory_order_relaxed);
        if (logFd < 0 || ::sendmsg(logFd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
            if (consoleFd < 0)
                consoleFd =
                    ::open(m_outputs.consolePath.constData(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
            parts[0] = {afterPriority, std::size_t(end - afterPriority)};
            parts[2] = {const_cast<char*>("\r\n"), 2};
            if (consoleFd >= 0)
                (void)::writev(consoleFd, parts, 3);
        }
        // Only what standard error takes at once: a reader that does not read must not hold up
        // a dying process.
        pollfd ready{m_outputs.standardErrorFd, POLLOUT, 0};
        if (m_outputs.toStandardError && ::poll(&ready, 1, 0) == 1) {
            parts[0] = {const_cast<char*>(""), 0};
            parts[2] = {const_cast<char*>("\n"), 1};
            (void)::writev(m_outputs.standardErrorFd, parts, 3);
        }
    }
    if (consoleFd >= 0)
        ::close(consoleFd);
}
