#pragma once

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

// The asynchronous end of the log: finished lines wait in a bounded queue and one writer
// thread passes them on to the system log (the console when the system log cannot be reached)
// and, when asked for, to standard error. A caller only ever waits for the queue's lock, never
// for an output: a slow system log daemon, a serial console or a reader of standard error that
// does not keep up hold up the writer thread alone. When the queue is full, lines are dropped
// and counted, and once there is room again one warning says how many were lost.
//
// Lines leave in the order they came (one queue, one writer).

// Where the writer's lines go. The paths are fixed on a hub; tests and benchmarks point them
// at their own sockets, files and pipes.
struct LogOutputs
{
    QByteArray systemLogPath = "/dev/log";
    QByteArray consolePath = "/dev/console";
    int standardErrorFd = 2; // written only when `toStandardError` is set
    bool toStandardError = false;
    QByteArray ident; // the tag of the system log lines
};

class LogWriter
{
public:
    // The queue's bounds: enough for a burst of several seconds of detailed logging at the
    // rate the service logs in an event storm, small enough for the hub's memory.
    static constexpr int kMaxLines = 2000;
    static constexpr std::int64_t kMaxBytes = 512 * 1024;
    // What one queued line costs beyond its text (the entry and the byte array's header).
    static constexpr std::int64_t kEntryOverhead = 64;

    explicit LogWriter(LogOutputs outputs);
    // Stops the thread (see stop()); when it is stuck in an output, waits for that output.
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    static constexpr std::chrono::milliseconds kStopBound{1000};

    // Queues one finished line (`stamp`: the wall-clock time in front of the copy on standard
    // error, or empty). Returns false when the queue was full and the line was dropped.
    bool post(int kind, QByteArray line, QByteArray stamp = QByteArray());
    // Waits until every queued line was written, for at most `bound`. True when it was.
    bool drain(std::chrono::milliseconds bound);
    // Drains for at most `bound` and ends the writer thread. True when the thread ended; when
    // it is stuck in an output, it is left running on its own and the object must be leaked
    // (the thread still refers to it).
    bool stop(std::chrono::milliseconds bound);

    // Writes what is still queued straight from the calling thread, for a process that is
    // about to die (a crash): no allocation, no waiting for the lock (when another thread holds
    // it, nothing is written). The line being written may appear twice.
    void flushNow();

    std::int64_t droppedTotal() const;

private:
    struct Entry
    {
        int kind;
        QByteArray line;
        QByteArray stamp;
    };

    static std::int64_t costOf(const Entry& entry);
    bool hasRoomFor(std::int64_t cost) const;
    void queueDropReport();
    void run();
    void writeEntry(const Entry& entry);
    void writeToSystemLog(const Entry& entry);
    void writeToConsole(const char* text, std::size_t size);
    void writeToStandardError(const Entry& entry);
    bool connectSystemLog();
    void closeSystemLog();

    const LogOutputs m_outputs;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;    // the writer: lines came, or stop
    std::condition_variable m_drained; // drain() and stop(): the queue emptied, or the thread ended
    std::deque<Entry> m_queue;         // front: being written (stays queued until it was)
    std::int64_t m_queuedBytes = 0;
    std::int64_t m_dropped = 0; // since the last report
    std::int64_t m_droppedTotal = 0;
    bool m_stopping = false;
    bool m_finished = false;

    // The writer thread's own state.
    std::atomic<int> m_systemLogFd{-1}; // read by flushNow() too
    std::atomic<bool> m_systemLogIsStream{false};
    int m_consoleFd = -1;
    bool m_standardErrorStalled = false;
    std::int64_t m_standardErrorSkipped = 0;

    std::thread m_thread;
};
