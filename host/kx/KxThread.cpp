#include <kx/KxThread.h>

#include <chrono>

KxThread::~KxThread()
{
    // A thread object must not die under its running thread.
    wait();
}

void KxThread::start()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_running) return;
    if (m_thread.joinable()) m_thread.join();
    m_running = true;
    m_thread = std::thread([this] {
        run();
        std::lock_guard<std::mutex> done(m_mutex);
        m_running = false;
        m_done.notify_all();
    });
}

bool KxThread::wait(unsigned long timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // Timeouts beyond a few million years overflow the clock arithmetic: treat them as unlimited.
    if (timeoutMs >= (1ul << 40))
        m_done.wait(lock, [this] { return !m_running; });
    else if (!m_done.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !m_running; }))
        return false;
    if (m_thread.joinable()) {
        std::thread t = std::move(m_thread);
        lock.unlock();
        t.join();
    }
    return true;
}

bool KxThread::isRunning() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_running;
}
