#include <kx/KxMorphology.h>

#include <kx/KxException.h>
#include <kx/KxString.h>

#include <cstdint>
#include <vector>

namespace {

// The mask with every row (fixed y and z) starting on a word of its own, so that neighbours along y
// and z are whole words apart and a shift along x never crosses into another row.
struct RowMask
{
    std::size_t nx = 0, ny = 0, nz = 0;
    std::size_t wordsPerRow = 0;
    std::vector<uint64_t> words;

    RowMask(std::size_t x, std::size_t y, std::size_t z)
        : nx(x), ny(y), nz(z), wordsPerRow((x + 63) / 64), words(wordsPerRow * y * z, 0)
    {
    }
    // Bits past nx in the last word of a row.
    uint64_t tailMask() const { return nx % 64 ? (uint64_t(1) << (nx % 64)) - 1 : ~uint64_t(0); }
};

void pack(const KxBitfield& in, RowMask& m)
{
    std::size_t i = 0;
    for (std::size_t row = 0; row < m.ny * m.nz; ++row) {
        uint64_t* w = &m.words[row * m.wordsPerRow];
        for (std::size_t x = 0; x < m.nx; ++x, ++i)
            if (in[i]) w[x >> 6] |= uint64_t(1) << (x & 63);
    }
}

void unpack(const RowMask& m, KxBitfield& out)
{
    out.resize(m.nx * m.ny * m.nz, false);
    for (std::size_t row = 0; row < m.ny * m.nz; ++row) {
        const uint64_t* w = &m.words[row * m.wordsPerRow];
        for (std::size_t k = 0; k < m.wordsPerRow; ++k)
            for (uint64_t v = w[k]; v; v &= v - 1)
                out.set(row * m.nx + k * 64 + std::size_t(__builtin_ctzll(v)));
    }
}

// dst = src with each set bit grown by one to both sides along x.
void dilateX(const RowMask& src, RowMask& dst)
{
    const std::size_t n = src.wordsPerRow;
    const uint64_t tail = src.tailMask();
    for (std::size_t row = 0; row < src.ny * src.nz; ++row) {
        const uint64_t* s = &src.words[row * n];
        uint64_t* d = &dst.words[row * n];
        for (std::size_t k = 0; k < n; ++k) {
            const uint64_t below = k > 0 ? s[k - 1] >> 63 : 0;
            const uint64_t above = k + 1 < n ? s[k + 1] << 63 : 0;
            d[k] = s[k] | (s[k] << 1) | below | (s[k] >> 1) | above;
        }
        d[n - 1] &= tail;
    }
}

// dst = src grown by one along an axis whose neighbours are `stride` words apart and which has
// `extent` positions; groups of stride * extent words are independent (z slices for y).
void dilateAlong(const std::vector<uint64_t>& src, std::vector<uint64_t>& dst, std::size_t stride,
                 std::size_t extent)
{
    const std::size_t group = stride * extent;
    for (std::size_t g = 0; g < src.size(); g += group)
        for (std::size_t p = 0; p < extent; ++p) {
            const std::size_t at = g + p * stride;
            for (std::size_t k = at; k < at + stride; ++k) {
                uint64_t v = src[k];
                if (p > 0) v |= src[k - stride];
                if (p + 1 < extent) v |= src[k + stride];
                dst[k] = v;
            }
        }
}

void dilateY(const RowMask& src, RowMask& dst)
{
    dilateAlong(src.words, dst.words, src.wordsPerRow, src.ny);
}

void dilateZ(const RowMask& src, RowMask& dst)
{
    dilateAlong(src.words, dst.words, src.wordsPerRow * src.ny, src.nz);
}

void unite(RowMask& into, const RowMask& other)
{
    for (std::size_t k = 0; k < into.words.size(); ++k) into.words[k] |= other.words[k];
}

} // namespace

void KxMorphology::dilation3D(const KxBitfield& in, KxBitfield& out, const KxVec3i& dims, int iterations,
                              int neighborhood)
{
    if (iterations < 0) throw KxException(KxString::printf("dilation3D: %d iterations", iterations));
    if (iterations == 0) {
        if (&out != &in) out = in;
        return;
    }
    dilateOnce(in, out, dims, neighborhood);
    for (int i = 1; i < iterations; ++i) dilateOnce(out, out, dims, neighborhood);
}

void KxMorphology::dilateOnce(const KxBitfield& in, KxBitfield& out, const KxVec3i& dims, int neighborhood)
{
    if (neighborhood != 6 && neighborhood != 18 && neighborhood != 26)
        throw KxException(KxString::printf("dilation3D: neighborhood %d is not 6, 18 or 26", neighborhood));
    if (dims.x < 0 || dims.y < 0 || dims.z < 0)
        throw KxException(
            KxString::printf("dilation3D: negative dimensions %d x %d x %d", dims.x, dims.y, dims.z));
    const std::size_t nx = std::size_t(dims.x), ny = std::size_t(dims.y), nz = std::size_t(dims.z);
    if (in.nBits() != nx * ny * nz)
        throw KxException(KxString::printf("dilation3D: mask of %zu bits does not fit %d x %d x %d",
                                           in.nBits(), dims.x, dims.y, dims.z));
    if (nx * ny * nz == 0) {
        out.resize(0);
        return;
    }

    // Everything is read from the packed copy, so out may be in itself.
    RowMask a(nx, ny, nz), b(nx, ny, nz), c(nx, ny, nz);
    pack(in, a);
    switch (neighborhood) {
    case 6: // centre and the six face neighbours: the union of the three axis dilations
        dilateX(a, b);
        dilateY(a, c);
        unite(b, c);
        dilateZ(a, c);
        unite(b, c);
        unpack(b, out);
        break;
    case 26: // the cube is the product of three segments: dilate along each axis in turn
        dilateX(a, b);
        dilateY(b, c);
        dilateZ(c, b);
        unpack(b, out);
        break;
    case 18: { // the cube without its corners: offsets with at least one zero component, i.e. the
               // union of the xy, xz and yz squares
        RowMask x(nx, ny, nz);
        dilateX(a, x);
        dilateY(x, b); // xy
        dilateZ(x, c); // xz
        unite(b, c);
        dilateY(a, x);
        dilateZ(x, c); // yz
        unite(b, c);
        unpack(b, out);
        break;
    }
    }
}
