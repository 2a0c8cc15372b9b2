#include <io/VxTempFile.h>

#include <QCoreApplication>
#include <QFile>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

VxTempFile::VxTempFile(const QString& target) : m_target(target), m_targetName(QFile::encodeName(target)) {}

bool VxTempFile::open(QString* error)
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
    const int slash = m_targetName.lastIndexOf('/');
    const QByteArray dir = m_targetName.left(slash + 1);
    // Keep room for the suffix within the usual 255-byte name limit.
    const QByteArray base = m_targetName.mid(slash + 1).left(200);
    static std::atomic<unsigned> serial{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_tempName = dir + '.' + base + '.' + QByteArray::number(qint64(::getpid())) + '-' +
                     QByteArray::number(serial++) + ".tmp";
        m_fd = ::open(m_tempName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_fd >= 0) break;
        if (errno != EEXIST) {
            const int err = errno;
            m_tempName.clear();
            return fail(error, err);
        }
    }
    if (m_fd < 0) {
        m_tempName.clear();
        return fail(error, EEXIST);
    }
    if (haveMode) ::fchmod(m_fd, keepMode);
    return true;
}

bool VxTempFile::commit(QString* error)
{
    if (::fsync(m_fd) != 0) return fail(error, errno);
    const int fd = m_fd;
    m_fd = -1;
    if (::close(fd) != 0) return fail(error, errno);
    if (::rename(m_tempName.constData(), m_targetName.constData()) != 0) return fail(error, errno);
    m_tempName.clear();
    return true;
}

bool VxTempFile::fail(QString* error, int err)
{
    if (error)
        *error = QCoreApplication::translate("VxSurfaceWriter", "cannot write %1: %2")
                     .arg(m_target, QString::fromLocal8Bit(std::strerror(err)));
    discard();
    return false;
}

void VxTempFile::discard()
{
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    if (!m_tempName.isEmpty()) ::unlink(m_tempName.constData());
    m_tempName.clear();
}
