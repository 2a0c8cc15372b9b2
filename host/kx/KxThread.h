#pragma once
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

// A background thread running run(). wait() with a timeout lets the caller keep a user interface
// alive while the work goes on. What run() throws is carried over to the thread that waits, since an
// exception must not leave a thread of its own (that ends the process).
//
// A derived class calls join() (or wait()) in its own destructor: by the time ~KxThread runs, the
// derived part that run() works on is gone.
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
    // Returns true when the thread has finished (or never started). When run() ended with an
    // exception, the first wait() that sees it finished throws that exception.
    bool wait(unsigned long timeoutMs = ~0ul);
    bool isRunning() const;

protected:
    virtual void run() = 0;
    // Waits for the end of run() without throwing what it threw, for destructors.
    void join() noexcept;

private:
    bool waitFor(std::unique_lock<std::mutex>& lock, unsigned long timeoutMs);

    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_running = false;
    std::exception_ptr m_failure;
};
