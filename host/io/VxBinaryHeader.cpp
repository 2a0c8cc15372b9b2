#include <io/VxBinaryHeader.h>

#include <io/VxGzipInput.h>
#include <io/VxInputFile.h>
#include <io/VxValueReader.h>

#include <QString>

#include <algorithm>
#include <cassert>
#include <cstring>

VxBinaryHeader::VxBinaryHeader(std::vector<unsigned char> bytes, bool swapped)
    : m_bytes(std::move(bytes)), m_swapped(swapped)
{
}

VxBinaryHeader VxBinaryHeader::read(VxGzipInput& in, std::initializer_list<int32_t> sizes, const char* format)
{
    // Damaged data says so rather than looking short.
    auto fail = [&](const QString& why) {
        const QString damage = in.damage();
        in.file().fail(damage.isEmpty() ? why : damage);
    };
    unsigned char lead[4];
    const uint64_t first = in.read(lead, 4);
    if (first < 4) fail(QString("holds %1 bytes, too few for a %2 header").arg(first).arg(format));
    int32_t size;
    std::memcpy(&size, lead, 4);
    auto known = [&](int32_t s) { return std::find(sizes.begin(), sizes.end(), s) != sizes.end(); };
    bool swapped = false;
    if (!known(size)) {
        swapped = true;
        VxValueReader::swapBytes(&size, 1, 4);
    }
    if (!known(size)) {
        QString list;
        for (int32_t s : sizes) list += QString(list.isEmpty() ? "%1" : " or %1").arg(s);
        in.file().fail(
            QString("not a %1 file: its header does not start with the size %2").arg(format, list));
    }
    std::vector<unsigned char> bytes(std::size_t(size), 0);
    std::memcpy(bytes.data(), lead, 4);
    const uint64_t rest = in.read(bytes.data() + 4, uint64_t(size) - 4);
    if (rest < uint64_t(size) - 4)
        fail(QString("header is truncated: %1 of its %2 bytes are present").arg(rest + 4).arg(size));
    return VxBinaryHeader(std::move(bytes), swapped);
}

void VxBinaryHeader::field(std::size_t offset, int width, unsigned char* to) const
{
    assert(offset + std::size_t(width) <= m_bytes.size());
    std::memcpy(to, m_bytes.data() + offset, std::size_t(width));
    if (m_swapped) std::reverse(to, to + width);
}

int64_t VxBinaryHeader::integer(std::size_t offset, int width) const
{
    unsigned char b[8];
    field(offset, width, b);
    switch (width) {
    case 1:
        return int8_t(b[0]);
    case 2: {
        int16_t v;
        std::memcpy(&v, b, 2);
        return v;
    }
    case 4: {
        int32_t v;
        std::memcpy(&v, b, 4);
        return v;
    }
    default: {
        int64_t v;
        std::memcpy(&v, b, 8);
        return v;
    }
    }
}

double VxBinaryHeader::real(std::size_t offset, int width) const
{
    unsigned char b[8];
    field(offset, width, b);
    if (width == 4) {
        float v;
        std::memcpy(&v, b, 4);
        return v;
    }
    double v;
    std::memcpy(&v, b, 8);
    return v;
}

bool VxBinaryHeader::holds(std::size_t offset, const char* text, std::size_t n) const
{
    return offset + n <= m_bytes.size() && std::memcmp(m_bytes.data() + offset, text, n) == 0;
}
