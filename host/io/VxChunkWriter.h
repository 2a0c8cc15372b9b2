#pragma once
#include <QByteArray>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <vector>

#include <unistd.h>

// Collects output in large blocks so that a mesh of millions of triangles costs a few hundred
// system calls; the first failure is kept and later output is dropped.
class VxChunkWriter
{
public:
    static constexpr size_t CHUNK = size_t(1) << 20;

    explicit VxChunkWriter(int fd) : m_fd(fd), m_buf(CHUNK) {}

    bool ok() const { return m_errno == 0; }
    int error() const { return m_errno; }
    void fail(int err)
    {
        if (!m_errno) m_errno = err ? err : EIO;
    }

    // At least n (at most a few hundred) writable bytes; advance() then says how many were used.
    char* room(size_t n)
    {
        if (m_used + n > m_buf.size()) flush();
        return m_buf.data() + m_used;
    }
    void advance(char* end) { m_used = size_t(end - m_buf.data()); }

    // Records 0 to count - 1, each at most maxBytes long: put(o, i) writes record i at o and returns
    // its end. Room is asked for once per batch that fits the buffer, not once per record.
    template <class Put> void putRecords(int64_t count, size_t maxBytes, Put put)
    {
        for (int64_t i = 0; i < count && ok();) {
            char* o = room(maxBytes);
            const int64_t end = i + std::min(count - i, int64_t((m_buf.size() - m_used) / maxBytes));
            for (; i < end; ++i) o = put(o, i);
            advance(o);
        }
    }

    void put(const char* text, size_t n)
    {
        while (n > 0) {
            if (m_used == m_buf.size()) flush();
            const size_t k = std::min(n, m_buf.size() - m_used);
            std::memcpy(m_buf.data() + m_used, text, k);
            m_used += k;
            text += k;
            n -= k;
        }
    }
    void put(const QByteArray& text) { put(text.constData(), size_t(text.size())); }

    bool flush()
    {
        const char* p = m_buf.data();
        size_t left = m_errno ? 0 : m_used;
        while (left > 0) {
            const ssize_t w = ::write(m_fd, p, left);
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) {
                m_errno = w < 0 ? errno : ENOSPC;
                break;
            }
            p += w;
            left -= size_t(w);
        }
        m_used = 0;
        return ok();
    }

    // Text forms that read back exactly: the shortest text of a float that parses to the same float.
    static char* text(char* o, float v) { return std::to_chars(o, o + 32, v).ptr; }
    static char* text(char* o, int64_t v) { return std::to_chars(o, o + 24, v).ptr; }
    // Binary stores in a fixed byte order, whatever the host's: one 4-byte store each.
    static char* little32(char* p, uint32_t v)
    {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        v = __builtin_bswap32(v);
#endif
        std::memcpy(p, &v, 4);
        return p + 4;
    }
    static char* big32(char* p, uint32_t v)
    {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        v = __builtin_bswap32(v);
#endif
        std::memcpy(p, &v, 4);
        return p + 4;
    }
    static uint32_t bits(float f)
    {
        uint32_t u;
        std::memcpy(&u, &f, 4);
        return u;
    }

private:
    int m_fd;
    std::vector<char> m_buf;
    size_t m_used = 0;
    int m_errno = 0;
};
