#include <io/VxInputFile.h>

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString systemError(int err)
{
    return QString::fromLocal8Bit(std::strerror(err));
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

} // namespace

VxInputFile::VxInputFile(const QString& path, const char* kind) : m_path(path), m_buffer(1 << 16)
{
    const QByteArray name = QFile::encodeName(path);
    m_fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) fail(systemError(errno));
    struct stat st;
    if (::fstat(m_fd, &st) != 0) fail(systemError(errno));
    if (S_ISDIR(st.st_mode)) fail(QString("is a directory, not %1").arg(kind));
    m_size = uint64_t(st.st_size);
}

VxInputFile::~VxInputFile()
{
    if (m_fd >= 0) ::close(m_fd);
}

void VxInputFile::fail(const QString& why) const
{
    throw VxReadFailure{m_path, why};
}

void VxInputFile::seek(uint64_t offset)
{
    if (offset >= m_bufferStart && offset <= m_bufferStart + m_end) {
        m_pos = std::size_t(offset - m_bufferStart);
        return;
    }
    if (::lseek(m_fd, off_t(offset), SEEK_SET) < 0) fail(systemError(errno));
    m_bufferStart = offset;
    m_pos = m_end = 0;
}

bool VxInputFile::fill()
{
    if (m_pos < m_end) return true;
    m_bufferStart += m_end;
    m_pos = m_end = 0;
    for (;;) {
        const ssize_t got = ::read(m_fd, m_buffer.data(), m_buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(systemError(errno));
        m_end = std::size_t(got);
        return got > 0;
    }
}

bool VxInputFile::readLine(std::string& line, std::size_t maxLength)
{
    line.clear();
    if (!fill()) return false;
    while (fill()) {
        const char* begin = m_buffer.data() + m_pos;
        const char* stop = static_cast<const char*>(std::memchr(begin, '\n', m_end - m_pos));
        const std::size_t n = stop ? std::size_t(stop - begin) : m_end - m_pos;
        if (line.size() + n > maxLength)
            fail(
                QString("holds a line longer than %1 characters where a header line belongs").arg(maxLength));
        line.append(begin, n);
        m_pos += n + (stop ? 1 : 0);
        if (stop) break;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

bool VxInputFile::readToken(std::string& token, std::size_t maxLength)
{
    token.clear();
    while (fill()) {
        while (m_pos < m_end && isBlank(m_buffer[m_pos])) ++m_pos;
        if (m_pos < m_end) break;
    }
    while (fill()) {
        const std::size_t start = m_pos;
        while (m_pos < m_end && !isBlank(m_buffer[m_pos])) ++m_pos;
        if (token.size() + (m_pos - start) > maxLength)
            fail(QString("holds a word longer than %1 characters where a number or keyword belongs")
                     .arg(maxLength));
        token.append(m_buffer.data() + start, m_pos - start);
        if (m_pos < m_end) break;
    }
    return !token.empty();
}

bool VxInputFile::skipLine()
{
    while (fill()) {
        const char* begin = m_buffer.data() + m_pos;
        const char* stop = static_cast<const char*>(std::memchr(begin, '\n', m_end - m_pos));
        if (stop) {
            m_pos += std::size_t(stop - begin) + 1;
            return true;
        }
        m_pos = m_end;
    }
    return false;
}

uint64_t VxInputFile::read(void* to, uint64_t n)
{
    auto* out = static_cast<char*>(to);
    uint64_t done = 0;
    // Small reads (the fields of binary records) from the buffer, refilled as it runs out: one
    // system call each would cost more than the parsing.
    if (n < m_buffer.size() / 4) {
        while (done < n && fill()) {
            const std::size_t step = std::size_t(std::min<uint64_t>(n - done, m_end - m_pos));
            std::memcpy(out + done, m_buffer.data() + m_pos, step);
            m_pos += step;
            done += step;
        }
        return done;
    }
    // What the buffer already holds first, then the rest straight from the file.
    const std::size_t buffered = std::size_t(std::min<uint64_t>(n, m_end - m_pos));
    std::memcpy(out, m_buffer.data() + m_pos, buffered);
    m_pos += buffered;
    done += buffered;
    if (done == n) return done;
    m_bufferStart += m_end;
    m_pos = m_end = 0;
    while (done < n) {
        const std::size_t chunk = std::size_t(std::min<uint64_t>(n - done, uint64_t(1) << 30));
        const ssize_t got = ::read(m_fd, out + done, chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(systemError(errno));
        if (got == 0) break;
        done += uint64_t(got);
        m_bufferStart += uint64_t(got);
    }
    return done;
}
