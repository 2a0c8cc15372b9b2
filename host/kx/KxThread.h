#pragma once
#include <condition_variable>
#include <mutex>
#include <thread>

// A background thread running run(). wait() with a timeout lets the caller keep a user interface
// alive while the work goes on.
class KxThread
{
public:
    KxThread() = default;
    virtual ~KxThread();
    KxThread(const KxThread&) = delete;
    KxThread& operator=(const KxThread&) = delete;

    // Starts run() on a new thread; does nothing while a previous run is still going.
    void start();
    // Waits until run() has returned, at most timeoutMs milliseconds (ULONG_MAX: without limit).
    // Returns true when the thread has finished (or never started).
    bool wait(unsigned long timeoutMs = ~0ul);
    bool isRunning() const;

protected:
    virtual void run() = 0;

private:
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_running = false;
};
