#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace bridgeemu {

// The HTTP library serves each connection on one pool thread for as long as the connection
// lives, so a fixed pool runs dry when clients keep connections open or requests are stalled.
// This pool starts a thread whenever no idle one is waiting, up to a generous limit, and keeps
// them for reuse until shutdown.
class GrowingThreadPool : public httplib::TaskQueue
{
public:
    explicit GrowingThreadPool(std::size_t maxThreads) : m_maxThreads(maxThreads) {}
    ~GrowingThreadPool() override { shutdown(); }

    void enqueue(std::function<void()> job) override;
    // Runs the queued jobs to their end (each one closes its connection) and joins the threads.
    void shutdown() override;

private:
    void work();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    std::vector<std::thread> m_threads;
    std::size_t m_idle = 0;
    std::size_t m_maxThreads;
    bool m_stopping = false;
};

} // namespace bridgeemu
