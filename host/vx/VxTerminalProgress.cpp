#include <vx/VxTerminalProgress.h>

#include <csignal>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace {
volatile std::sig_atomic_t g_interrupted = 0;
struct sigaction g_previous;

void onInterrupt(int)
{
    g_interrupted = 1;
}
} // namespace

VxTerminalProgress::VxTerminalProgress() : m_tty(isatty(STDERR_FILENO) != 0) {}

VxTerminalProgress::~VxTerminalProgress()
{
    while (m_depth > 0) stopWorking();
}

void VxTerminalProgress::startWorking(const QString& text)
{
    if (m_depth++ == 0) {
        g_interrupted = 0;
        struct sigaction sa = {};
        sa.sa_handler = onInterrupt;
        sigemptyset(&sa.sa_mask);
        sigaction(SIGINT, &sa, &g_previous);
    }
    m_text = text;
    m_value = 0.f;
    m_lastPercent = -1;
    draw();
}

void VxTerminalProgress::stopWorking()
{
    if (m_depth == 0) return;
    if (--m_depth == 0) sigaction(SIGINT, &g_previous, nullptr);
    if (m_tty) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
    }
}

void VxTerminalProgress::setProgressValue(float value)
{
    m_value = value;
    draw();
}

bool VxTerminalProgress::wasInterrupted()
{
    return g_interrupted != 0;
}

void VxTerminalProgress::draw()
{
    int percent = int(m_value * 100.f + 0.5f);
    if (!m_tty || percent == m_lastPercent) return;
    m_lastPercent = percent;
    const int width = 30, filled = int(m_value * float(width) + 0.5f);
    std::fprintf(stderr, "\r%s [%s%s] %3d%%", m_text.toUtf8().constData(),
                 std::string(std::size_t(filled < 0       ? 0
                                         : filled > width ? width
                                                          : filled),
                             '#')
                     .c_str(),
                 std::string(std::size_t(width - (filled < 0       ? 0
                                                  : filled > width ? width
                                                                   : filled)),
                             ' ')
                     .c_str(),
                 percent);
    std::fflush(stderr);
}
