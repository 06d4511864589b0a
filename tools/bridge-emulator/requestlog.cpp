#include "requestlog.h"

namespace bridgeemu {

std::uint64_t RequestLog::record(const HttpRequest& request, std::chrono::milliseconds sinceStart)
{
    RecordedRequest entry;
    entry.method = request.method;
    entry.target = request.target;
    entry.scheme = request.scheme;
    entry.port = request.localPort;
    entry.headers = request.headers;
    entry.body = request.body;
    entry.receivedAt = std::chrono::system_clock::now();
    entry.sinceStart = sinceStart;
    const std::lock_guard<std::mutex> lock(m_mutex);
    entry.sequence = m_nextSequence++;
    m_entries.push_back(std::move(entry));
    while (m_entries.size() > m_limit)
        m_entries.pop_front();
    return m_nextSequence - 1;
}

void RequestLog::setStatus(std::uint64_t sequence, int status)
{
    std::function<void(const RecordedRequest&)> observer;
    RecordedRequest copy;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_entries.empty() || sequence < m_entries.front().sequence)
            return;
        const std::size_t index = static_cast<std::size_t>(sequence - m_entries.front().sequence);
        if (index >= m_entries.size())
            return; // cleared meanwhile
        m_entries[index].status = status;
        if (!m_observer)
            return;
        observer = m_observer;
        copy = m_entries[index];
    }
    observer(copy);
}

std::vector<RecordedRequest> RequestLog::entries() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_entries.begin(), m_entries.end()};
}

void RequestLog::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}

void RequestLog::setObserver(std::function<void(const RecordedRequest&)> observer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_observer = std::move(observer);
}

} // namespace bridgeemu
