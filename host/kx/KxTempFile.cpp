#include <kx/KxTempFile.h>

#include <QCoreApplication>
#include <QFile>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The names of the temporary files that are open, for the signal handler. A handler may only touch
// what needs no lock and no allocation: fixed buffers whose state says who may read or write them.
// A slot that the handler has taken stays taken, since the process is ending.
enum SlotState : int
{
    FREE,
    FILLING,
    OPEN,
    REMOVING
};

struct Slot
{
    std::atomic<int> state{FREE};
    char path[PATH_MAX];
};

constexpr int kSlots = 64; // more temporary files at once go unprotected, nothing worse
Slot g_slots[kSlots];

// Every signal whose default action ends the process, except SIGKILL and SIGSTOP, which no
// handler sees.
const int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM, SIGPIPE,   SIGALRM,
                              SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF,
                              SIGABRT, SIGBUS,  SIGFPE,  SIGILL,  SIGSEGV,   SIGSYS};

void removeTempFilesAndEnd(int sig)
{
    for (Slot& slot : g_slots) {
        int open = OPEN;
        if (slot.state.compare_exchange_strong(open, REMOVING)) ::unlink(slot.path);
    }
    // The signal's own action, so that the exit status says what ended the process; it is blocked
    // until this handler returns and is delivered then.
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    sigemptyset(&byDefault.sa_mask);
    ::sigaction(sig, &byDefault, nullptr);
    ::raise(sig);
}

// Takes the default actions over; a signal that is ignored (nohup) or handled by someone else
// keeps its disposition. The handler stays once installed: with no file open it only ends the
// process as the default action would.
void installHandler()
{
    for (int sig : kEndingSignals) {
        struct sigaction now;
        if (::sigaction(sig, nullptr, &now) != 0 || (now.sa_flags & SA_SIGINFO) || now.sa_handler != SIG_DFL)
            continue;
        struct sigaction sa = {};
        sa.sa_handler = removeTempFilesAndEnd;
        sigemptyset(&sa.sa_mask);
        ::sigaction(sig, &sa, nullptr);
    }
}

// Absolute, so that a change of the working folder cannot point the handler elsewhere.
int rememberForSignals(const QByteArray& name)
{
    QByteArray path = name;
    if (!path.startsWith('/')) {
        char cwd[PATH_MAX];
        if (!::getcwd(cwd, sizeof cwd)) return -1;
        path = QByteArray(cwd) + '/' + path;
    }
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < kSlots; ++i) {
        int free = FREE;
        if (!g_slots[i].state.compare_exchange_strong(free, FILLING)) continue;
        std::memcpy(g_slots[i].path, path.constData(), std::size_t(path.size()) + 1);
        g_slots[i].state.store(OPEN);
        return i;
    }
    return -1;
}

void forgetForSignals(int slot)
{
    int open = OPEN;
    if (slot >= 0) g_slots[slot].state.compare_exchange_strong(open, FREE);
}

} // namespace

KxTempFile::KxTempFile(const QString& target) : m_target(target), m_targetName(QFile::encodeName(target)) {}

bool KxTempFile::open(QString* error)
{
    struct stat st;
    mode_t keepMode = 0;
    bool haveMode = false;
    if (::stat(m_targetName.constData(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) return fail(error, EISDIR);
        // Replacing a file keeps its permissions; a new file gets the usual ones (umask).
        if (S_ISREG(st.st_mode)) {
            keepMode = st.st_mode & 07777;
            haveMode = true;
        }
    }
    installHandler();
    const int slash = m_targetName.lastIndexOf('/');
    const QByteArray dir = m_targetName.left(slash + 1);
    // Keep room for the suffix within the usual 255-byte name limit.
    const QByteArray base = m_targetName.mid(slash + 1).left(200);
    static std::atomic<unsigned> serial{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_tempName = dir + '.' + base + '.' + QByteArray::number(qint64(::getpid())) + '-' +
                     QByteArray::number(serial++) + ".tmp";
        // Known to the handler before the file exists, so that no moment is left uncovered.
        m_slot = rememberForSignals(m_tempName);
        m_fd = ::open(m_tempName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_fd >= 0) break;
        const int err = errno;
        forget();
        if (err != EEXIST) return fail(error, err);
    }
    if (m_fd < 0) return fail(error, EEXIST);
    if (haveMode) ::fchmod(m_fd, keepMode);
    return true;
}

bool KxTempFile::write(const QByteArray& bytes, QString* error)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t w = ::write(m_fd, bytes.constData() + done, std::size_t(bytes.size() - done));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return fail(error, w < 0 ? errno : ENOSPC);
        done += w;
    }
    return true;
}

bool KxTempFile::commit(QString* error)
{
    if (::fsync(m_fd) != 0) return fail(error, errno);
    const int fd = m_fd;
    m_fd = -1;
    if (::close(fd) != 0) return fail(error, errno);
    if (::rename(m_tempName.constData(), m_targetName.constData()) != 0) return fail(error, errno);
    forget();
    return true;
}

bool KxTempFile::fail(QString* error, int err)
{
    if (error)
        *error = QCoreApplication::translate("KxTempFile", "cannot write %1: %2")
                     .arg(m_target, QString::fromLocal8Bit(std::strerror(err)));
    discard();
    return false;
}

void KxTempFile::discard()
{
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    if (!m_tempName.isEmpty()) ::unlink(m_tempName.constData());
    forget();
}

// After the file is gone or renamed: a signal in between finds no file under the name, which is harmless.
void KxTempFile::forget()
{
    forgetForSignals(m_slot);
    m_slot = -1;
    m_tempName.clear();
}
