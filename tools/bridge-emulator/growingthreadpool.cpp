#include "growingthreadpool.h"

namespace bridgeemu {

void GrowingThreadPool::enqueue(std::function<void()> job)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back(std::move(job));
        // Idle threads that have been woken but not yet taken their job still count as idle,
        // so compare with the queue length rather than with zero.
        if (m_jobs.size() > m_idle && m_threads.size() < m_maxThreads)
            m_threads.emplace_back([this] { work(); });
    }
    m_wake.notify_one();
}

void GrowingThreadPool::shutdown()
{
    std::vector<std::thread> threads;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        threads.swap(m_threads);
    }
    m_wake.notify_all();
    for (std::thread& thread : threads)
        thread.join();
}

void GrowingThreadPool::work()
{
    while (true) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            ++m_idle;
            m_wake.wait(lock, [this] { return !m_jobs.empty() || m_stopping; });
            --m_idle;
            if (m_jobs.empty())
                return; // stopping and nothing left to do
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

} // namespace bridgeemu
