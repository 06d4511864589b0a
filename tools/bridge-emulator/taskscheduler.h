#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace bridgeemu {

// Runs actions on a thread of its own, now or after a delay: reopening the listening sockets
// after a timed refusal, and the afterSend actions of answers. Actions run one at a time in
// order of their due time. stop() drops what is still waiting and joins the thread.
class TaskScheduler
{
public:
    TaskScheduler() = default;
    ~TaskScheduler() { stop(); }
    TaskScheduler(const TaskScheduler&) = delete;
    TaskScheduler& operator=(const TaskScheduler&) = delete;

    void start();
    void stop();
    void runAfter(std::chrono::milliseconds delay, std::function<void()> action);
    void runSoon(std::function<void()> action) { runAfter(std::chrono::milliseconds(0), std::move(action)); }

private:
    void loop();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> m_tasks;
    std::thread m_thread;
    bool m_stopping = false;
};

} // namespace bridgeemu
