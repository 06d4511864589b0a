#include "taskscheduler.h"

namespace bridgeemu {

void TaskScheduler::start()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_thread.joinable())
        return;
    m_stopping = false;
    m_thread = std::thread([this] { loop(); });
}

void TaskScheduler::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_tasks.clear();
    }
    m_wake.notify_all();
    if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id())
        m_thread.join();
}

void TaskScheduler::runAfter(std::chrono::milliseconds delay, std::function<void()> action)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopping)
            return;
        m_tasks.emplace(std::chrono::steady_clock::now() + delay, std::move(action));
    }
    m_wake.notify_all();
}

void TaskScheduler::loop()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        if (m_tasks.empty()) {
            m_wake.wait(lock);
            continue;
        }
        const auto due = m_tasks.begin()->first;
        if (std::chrono::steady_clock::now() < due) {
            m_wake.wait_until(lock, due);
            continue;
        }
        std::function<void()> action = std::move(m_tasks.begin()->second);
        m_tasks.erase(m_tasks.begin());
        lock.unlock();
        action();
        lock.lock();
    }
}

} // namespace bridgeemu
