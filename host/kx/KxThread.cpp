#include <kx/KxException.h>
#include <kx/KxThread.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

KxThread::~KxThread()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_running) {
        // run() is still using the derived part that is already destroyed: nothing sane is left.
        std::fputs(
            "KxThread destroyed while its thread runs: the derived class must join() in its destructor\n",
            stderr);
        std::abort();
    }
    lock.unlock();
    if (m_thread.joinable()) m_thread.join();
}

void KxThread::start()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_running) return;
    if (m_thread.joinable()) m_thread.join();
    m_failure = nullptr;
    // Set before the thread exists, since its end clears it; undone when no thread could be made
    // (no memory for its stack), so that nothing waits for a run that never began.
    m_running = true;
    try {
        m_thread = std::thread([this] {
            std::exception_ptr failure;
            try {
                run();
            } catch (...) {
                failure = std::current_exception();
            }
            std::lock_guard<std::mutex> done(m_mutex);
            m_failure = failure;
            m_running = false;
            m_done.notify_all();
        });
    } catch (const std::system_error& e) {
        m_running = false;
        // No room for another stack is how running out of address space shows here.
        if (e.code() == std::errc::resource_unavailable_try_again)
            throw KxOutOfMemory("could not start a thread");
        throw KxException(QString("cannot start a thread (%1)").arg(QString::fromLocal8Bit(e.what())));
    }
}

bool KxThread::waitFor(std::unique_lock<std::mutex>& lock, unsigned long timeoutMs)
{
    // Timeouts beyond a few million years overflow the clock arithmetic: treat them as unlimited.
    if (timeoutMs >= (1ul << 40))
        m_done.wait(lock, [this] { return !m_running; });
    else if (!m_done.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !m_running; }))
        return false;
    if (m_thread.joinable()) {
        std::thread t = std::move(m_thread);
        lock.unlock();
        t.join();
        lock.lock();
    }
    return true;
}

bool KxThread::wait(unsigned long timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!waitFor(lock, timeoutMs)) return false;
    if (std::exception_ptr failure = std::exchange(m_failure, nullptr)) std::rethrow_exception(failure);
    return true;
}

void KxThread::join() noexcept
{
    std::unique_lock<std::mutex> lock(m_mutex);
    waitFor(lock, ~0ul);
}

bool KxThread::isRunning() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_running;
}
