#include <io/VxValueReader.h>

#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <kx/KxLatticeSize.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <zlib.h>

namespace {

using VxReadSupport::Values;

constexpr bool kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

// Fails unless the file holds bytes more from where it stands.
void requireBytes(VxInputFile& file, uint64_t bytes, const QString& what)
{
    const uint64_t at = file.tell();
    if (file.size() < at || file.size() - at < bytes)
        file.fail(
            QString("file holds %1 bytes, but the %2 values at offset %3 need %4; the file is truncated "
                    "or its header is wrong")
                .arg(file.size())
                .arg(what)
                .arg(at)
                .arg(at + bytes));
}

void readRaw(VxInputFile& file, void* out, uint64_t bytes, const QString& what)
{
    const uint64_t got = file.read(out, bytes);
    if (got < bytes)
        file.fail(QString("file ended after %1 of the %2 bytes of %3 values").arg(got).arg(bytes).arg(what));
}

// Fails when what is left of the file cannot inflate to bytes.
void requireCompressed(VxInputFile& file, uint64_t bytes, const QString& what)
{
    const uint64_t available = file.size() > file.tell() ? file.size() - file.tell() : 0;
    // No deflate stream expands more than about 1032 times: reject a lying header before allocating.
    if (double(available) * 1032.0 + 4096.0 < double(bytes))
        file.fail(QString("a compressed stream of %1 bytes cannot hold the %2 values (%3 bytes) the header "
                          "describes; the file is truncated or its header is wrong")
                      .arg(available)
                      .arg(what)
                      .arg(bytes));
}

// Why a compressed stream that ran out of input is unusable.
[[noreturn]] void failEarlyEnd(VxInputFile& file, uint64_t produced, uint64_t bytes, const QString& what)
{
    // Every value may be there with only the stream's end and checksum cut off; say so rather than
    // "ends after 120 of the 120 bytes".
    if (produced == bytes)
        file.fail(QString("compressed stream is truncated: it holds all %1 bytes of the %2 values but ends "
                          "before its end mark and checksum")
                      .arg(bytes)
                      .arg(what));
    file.fail(QString("compressed stream ends after %1 of the %2 bytes of %3 values; the file is truncated")
                  .arg(produced)
                  .arg(bytes)
                  .arg(what));
}

// Inflates a gzip or zlib stream (told apart by its header) that must hold exactly bytes. A gzip
// file may hold several members one after the other (as cat and parallel compressors make them):
// their data follow each other.
void readCompressed(VxInputFile& file, void* out, uint64_t bytes, const QString& what)
{
    z_stream z = {};
    if (inflateInit2(&z, 15 + 32) != Z_OK) file.fail("cannot start decompression");
    std::unique_ptr<z_stream, int (*)(z_stream*)> guard(&z, &inflateEnd);
    std::vector<unsigned char> in(1 << 18);
    auto* to = static_cast<unsigned char*>(out);
    uint64_t produced = 0;
    int status = Z_OK;
    bool inputLeft = true;
    for (;;) {
        if (z.avail_in == 0 && inputLeft) {
            const uint64_t got = file.read(in.data(), in.size());
            inputLeft = got == in.size();
            z.next_in = in.data();
            z.avail_in = unsigned(got);
        }
        if (status == Z_STREAM_END) {
            // Another member follows only when the values are not complete and a gzip header is next.
            const bool member =
                z.avail_in > 0 && z.next_in[0] == 0x1f && (z.avail_in < 2 || z.next_in[1] == 0x8b);
            if (produced == bytes || !member) break;
            if (inflateReset(&z) != Z_OK) file.fail("cannot restart decompression");
        }
        if (z.avail_in == 0 && !inputLeft) failEarlyEnd(file, produced, bytes, what);
        // One spare byte past the end tells a stream that holds more than the header says.
        unsigned char spare;
        const bool intoSpare = produced == bytes;
        z.next_out = intoSpare ? &spare : to + produced;
        z.avail_out = intoSpare ? 1u : unsigned(std::min<uint64_t>(bytes - produced, 1u << 30));
        const unsigned before = z.avail_out;
        status = inflate(&z, Z_NO_FLUSH);
        const unsigned made = before - z.avail_out;
        if (intoSpare && made > 0)
            file.fail(QString("compressed stream holds more than the %1 bytes of the %2 values the header "
                              "describes")
                          .arg(bytes)
                          .arg(what));
        produced += intoSpare ? 0 : made;
        if (status == Z_NEED_DICT || status == Z_DATA_ERROR)
            file.fail(QString("compressed data is corrupt (%1)").arg(z.msg ? z.msg : "bad stream"));
        if (status == Z_MEM_ERROR) file.fail("out of memory while decompressing");
        if (status == Z_BUF_ERROR && z.avail_in == 0 && !inputLeft) failEarlyEnd(file, produced, bytes, what);
    }
    if (produced < bytes)
        file.fail(QString("compressed stream holds %1 bytes, but the %2 values need %3; the header is wrong")
                      .arg(produced)
                      .arg(what)
                      .arg(bytes));
}

template <class T> bool parseNumber(const std::string& token, T& out)
{
    const char* s = token.c_str();
    char* end = nullptr;
    errno = 0;
    if constexpr (std::is_floating_point<T>::value) {
        const double v = std::strtod(s, &end);
        if (end == s || *end != '\0') return false;
        out = T(v);
        return true;
    } else {
        long long v = std::strtoll(s, &end, 10);
        if (end == s) return false;
        // Integers written as "3.0" or "1e2" by some tools: whole numbers only.
        if (*end != '\0') {
            const double d = std::strtod(s, &end);
            if (*end != '\0' || d != std::floor(d) || !(std::fabs(d) < 9.2e18)) return false;
            v = (long long)d;
        } else if (errno == ERANGE) {
            return false;
        }
        if (v < (long long)std::numeric_limits<T>::min() || v > (long long)std::numeric_limits<T>::max())
            return false;
        out = T(v);
        return true;
    }
}

template <class T> void readText(VxInputFile& file, T* out, uint64_t count, const QString& what)
{
    std::string token;
    for (uint64_t i = 0; i < count; ++i) {
        if (!file.readToken(token))
            file.fail(QString("text values end after %1 of the %2 %3 values; the file is truncated")
                          .arg(i)
                          .arg(count)
                          .arg(what));
        if (!parseNumber(token, out[i]))
            file.fail(QString("value %1 of the %2 values is '%3', not a number of their type")
                          .arg(i)
                          .arg(what)
                          .arg(QString::fromStdString(token.substr(0, 40))));
    }
}

} // namespace

QString VxValueReader::describe(const KxDim3l& d, KxPrimType type)
{
    return QString("%1x%2x%3 %4").arg(d.nx).arg(d.ny).arg(d.nz).arg(type.name());
}

QString VxValueReader::checkDims(const KxDim3l& d, KxPrimType type)
{
    for (int a = 0; a < 3; ++a)
        if (d[a] <= 0)
            return QString("dimensions must be positive, not %1 %2 %3").arg(d.nx).arg(d.ny).arg(d.nz);
    return KxLatticeSize::check(d, type);
}

uint64_t VxValueReader::byteCount(VxInputFile& file, const KxDim3l& dims, KxPrimType type)
{
    KxLatticeSize size;
    const QString bad = KxLatticeSize::check(dims, type, 0, &size);
    if (!bad.isEmpty()) file.fail(bad);
    return size.bytes;
}

void VxValueReader::swapBytes(void* data, uint64_t count, std::size_t width)
{
    auto* p = static_cast<unsigned char*>(data);
    if (width < 2) return;
    for (uint64_t v = 0; v < count; ++v, p += width) std::reverse(p, p + width);
}

void* VxValueReader::read(VxInputFile& file, const KxDim3l& dims, KxPrimType type, VxEncoding encoding,
                          bool bigEndian)
{
    const QString bad = checkDims(dims, type);
    if (!bad.isEmpty()) file.fail(bad);
    const uint64_t bytes = byteCount(file, dims, type);
    const uint64_t count = bytes / type.size();
    const QString what = describe(dims, type);
    if (encoding == VxEncoding::Ascii) {
        // Every number takes at least one character and one separator (bar the last).
        const uint64_t left = file.size() - std::min(file.size(), file.tell());
        if (left < 2 * count - 1)
            file.fail(QString("file holds %1 bytes of text after the header, too few for the %2 values; the "
                              "file is truncated or its header is wrong")
                          .arg(left)
                          .arg(what));
        Values data = VxReadSupport::allocateValues(file.path(), bytes, what);
        kxDispatchPrimType(type, data.get(), [&](auto* p) { readText(file, p, count, what); });
        return data.release();
    }
    if (encoding == VxEncoding::Raw)
        requireBytes(file, bytes, what);
    else
        requireCompressed(file, bytes, what);
    Values data = VxReadSupport::allocateValues(file.path(), bytes, what);
    if (encoding == VxEncoding::Raw)
        readRaw(file, data.get(), bytes, what);
    else
        readCompressed(file, data.get(), bytes, what);
    if (bigEndian != kHostBigEndian) swapBytes(data.get(), count, type.size());
    return data.release();
}

void VxValueReader::readFloats(VxInputFile& file, float* out, uint64_t count, KxPrimType type, bool ascii,
                               bool bigEndian, const QString& what)
{
    if (ascii) {
        std::vector<double> v(std::size_t(std::min<uint64_t>(count, 1 << 16)));
        for (uint64_t done = 0; done < count;) {
            const uint64_t n = std::min<uint64_t>(count - done, v.size());
            readText(file, v.data(), n, what);
            for (uint64_t i = 0; i < n; ++i) out[done + i] = float(v[i]);
            done += n;
        }
        return;
    }
    // Divided, not multiplied: a count that no file could hold must not wrap into a small one.
    const uint64_t left = file.size() - std::min(file.size(), file.tell());
    if (count > left / type.size())
        file.fail(QString("file is too short for its %1 %2; the file is truncated or its header is wrong")
                      .arg(count)
                      .arg(what));
    const uint64_t bytes = count * type.size();
    Values data = VxReadSupport::allocateValues(file.path(), bytes, what);
    readRaw(file, data.get(), bytes, what);
    if (bigEndian != kHostBigEndian) swapBytes(data.get(), count, type.size());
    kxDispatchPrimType(type, data.get(), [&](auto* p) {
        for (uint64_t i = 0; i < count; ++i) out[i] = float(p[i]);
    });
}
