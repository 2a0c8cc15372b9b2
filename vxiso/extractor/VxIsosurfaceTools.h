#pragma once
#include <vxiso/extractor/VxIsosurfaceTables.h>

#include <kx/KxBox3.h>
#include <kx/KxDArray.h>
#include <kx/KxVec3.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

// Policies of the marching-cubes traversals. Everything here is resolved at compile time so that the
// per-cell code is inlined: no virtual calls, no allocation, no bounds checks. The per-vertex
// functions are marked to be inlined always: in the parallel walks, whose translation units hold
// many large instantiations, the compiler otherwise called them.

namespace vxiso::tools {

// Set bits of a word. Without the popcnt instruction (the default build targets every x86-64) the
// builtin is a call into the compiler's library; this is the same sum of bit fields, inlined.
inline uint64_t bitCount(uint64_t x)
{
#ifdef __POPCNT__
    return uint64_t(__builtin_popcountll(x));
#else
    x = x - ((x >> 1) & 0x5555555555555555ull);
    x = (x & 0x3333333333333333ull) + ((x >> 2) & 0x3333333333333333ull);
    x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0full;
    return (x * 0x0101010101010101ull) >> 56;
#endif
}

// A cell's case index from the bits of its nodes taken as pairs, nodes x and x + 1 of rows (j, k),
// (j + 1, k), (j, k + 1) and (j + 1, k + 1) from the lowest bits up: the case numbers the corners
// of rows j + 1 the other way round (x + 1 before x).
struct CaseOfPairsTable
{
    unsigned char at[256];
    constexpr CaseOfPairsTable() : at{}
    {
        for (unsigned p = 0; p < 256; ++p) {
            const auto swap = [](unsigned two) { return (two & 1u) << 1 | (two & 2u) >> 1; };
            at[p] = (unsigned char)((p & 3u) | swap(p >> 2 & 3u) << 2 | (p >> 4 & 3u) << 4 |
                                    swap(p >> 6 & 3u) << 6);
        }
    }
};
inline constexpr CaseOfPairsTable g_caseOfPairs;

// Case indices of the cells of a box: whole node rows of a slice are classified into bits once, so
// that a row of cells is walked by its non-empty cells only, 64 cells per test, and each index is
// assembled from bits without reading a value.
template <class Accessor> class ComputeIndexScanline
{
public:
    // Scan lines of a box: every node row, one bit per node, classified once up front (an eighth of
    // a byte per node), so that the cut edges and triangles can be counted before any is made.
    void beginBox(const Accessor& a, float iso, const KxBox3i& box)
    {
        m_box = box;
        m_nodesX = box.xmax - box.xmin;
        m_words = (m_nodesX + 63) / 64;
        m_rowsPerSlice = box.ymax - box.ymin;
        m_sliceWords = std::size_t(m_rowsPerSlice) * std::size_t(m_words);
        m_bits.assign(m_sliceWords * std::size_t(box.zmax - box.zmin), 0);
        m_bytes.assign(std::size_t(m_words) * 64, 0);
        for (int k = box.zmin; k < box.zmax; ++k) classifySlice(a, iso, k, m_bits.data() + sliceOffset(k));
    }

    // Gives the pages that lie wholly inside node slices [first, end) back to the system; their bits
    // read as 0 afterwards. A walk calls it for the slices it has passed, so that the classification
    // of a large volume is not resident at the end of the extraction, when the surface is.
    void releaseSlices(int first, int end)
    {
        static const std::uintptr_t page = std::uintptr_t(sysconf(_SC_PAGESIZE));
        const auto at = [&](int k) {
            return reinterpret_cast<std::uintptr_t>(m_bits.data() + sliceOffset(k));
        };
        const std::uintptr_t begin = (at(first) + page - 1) & ~(page - 1), stop = at(end) & ~(page - 1);
        if (stop > begin) ::madvise(reinterpret_cast<void*>(begin), stop - begin, MADV_DONTNEED);
    }

    // Where node slice k starts: the cursor of a walk. Walks keep their own cursors, so that several
    // walks of parts of one box may share its classification.
    std::size_t sliceOffset(int k) const { return std::size_t(k - m_box.zmin) * m_sliceWords; }

    // Grid edges of the box whose nodes lie on different sides: the vertices of standard cubes. The
    // second form counts those with both nodes in node slices [zFirst, zLast].
    uint64_t countCutEdges() const { return countCutEdges(m_box.zmin, m_box.zmax - 1); }
    uint64_t countCutEdges(int zFirst, int zLast) const
    {
        uint64_t cut = 0;
        for (int z = zFirst - m_box.zmin; z <= zLast - m_box.zmin; ++z)
            for (int y = 0; y < m_rowsPerSlice; ++y) {
                const uint64_t* row = rowBits(y, z);
                cut += cutAlongX(row);
                if (y + 1 < m_rowsPerSlice) cut += cutBetween(row, row + m_words);
                if (z < zLast - m_box.zmin) cut += cutBetween(row, row + m_sliceWords);
            }
        return cut;
    }

    // The cut edges that lie in one node plane of the box, across axis (0, 1, 2) at that layer:
    // the vertices a slab shares with its neighbour on that side. The second form counts those with
    // both nodes in node slices [zFirst, zLast].
    uint64_t countCutEdgesInPlane(int axis, int layer) const
    {
        return countCutEdgesInPlane(axis, layer, m_box.zmin, m_box.zmax - 1);
    }
    uint64_t countCutEdgesInPlane(int axis, int layer, int zFirst, int zLast) const
    {
        uint64_t cut = 0;
        const int first = zFirst - m_box.zmin, last = zLast - m_box.zmin;
        if (axis == 2) {
            const int z = layer - m_box.zmin;
            for (int y = 0; y < m_rowsPerSlice; ++y) {
                cut += cutAlongX(rowBits(y, z));
                if (y + 1 < m_rowsPerSlice) cut += cutBetween(rowBits(y, z), rowBits(y + 1, z));
            }
        } else if (axis == 1) {
            const int y = layer - m_box.ymin;
            for (int z = first; z <= last; ++z) {
                cut += cutAlongX(rowBits(y, z));
                if (z < last) cut += cutBetween(rowBits(y, z), rowBits(y, z + 1));
            }
        } else {
            const int x = layer - m_box.xmin;
            for (int z = first; z <= last; ++z)
                for (int y = 0; y < m_rowsPerSlice; ++y) {
                    const unsigned b = bit_(rowBits(y, z), x);
                    if (y + 1 < m_rowsPerSlice) cut += b ^ bit_(rowBits(y + 1, z), x);
                    if (z < last) cut += b ^ bit_(rowBits(y, z + 1), x);
                }
        }
        return cut;
    }

    // The cut edges on the line where node slice z meets the node plane across axis 0 or 1 at layer.
    uint64_t countCutEdgesOnLine(int axis, int layer, int z) const
    {
        z -= m_box.zmin;
        if (axis == 1) return cutAlongX(rowBits(layer - m_box.ymin, z));
        const int x = layer - m_box.xmin;
        uint64_t cut = 0;
        for (int y = 0; y + 1 < m_rowsPerSlice; ++y)
            cut += bit_(rowBits(y, z), x) ^ bit_(rowBits(y + 1, z), x);
        return cut;
    }

    // Triangles the case table gives the box's cells (before any is dropped); the second form those of
    // the cells in cell layers [kFirst, kEnd).
    uint64_t countTriangles() const { return countTriangles(m_box.zmin, m_box.zmax - 1); }
    uint64_t countTriangles(int kFirst, int kEnd) const
    {
        uint64_t n = 0;
        for (int k = kFirst; k < kEnd; ++k)
            for (int j = m_box.ymin; j < m_box.ymax - 1; ++j)
                forEachCutCellAt(sliceOffset(k), j, [&](int, unsigned c) {
                    n += unsigned(tables::g_marchingCases[c][tables::TRIANGLE_COUNT]);
                });
        return n;
    }

    // Calls f(i, index) for every cell of row (j, k) that some surface crosses, in order of i; the
    // cell slice k is the node slice at sliceOffset(k) and the next one.
    template <class F> void forEachCutCellAt(std::size_t sliceStart, int j, F&& f) const
    {
        const uint64_t* a =
            m_bits.data() + sliceStart + std::size_t(j - m_box.ymin) * std::size_t(m_words); // (j, k)
        const uint64_t* b = a + m_words;                                                     // (j + 1, k)
        const uint64_t* c = a + m_sliceWords;                                                // (j, k + 1)
        const uint64_t* d = c + m_words;                                                     // (j + 1, k + 1)
        const int cells = m_nodesX - 1;
        for (int w = 0; w * 64 < cells; ++w) {
            // A cell is empty when its eight nodes agree: the nodes at x and x + 1 in all four rows.
            const uint64_t all = a[w] & b[w] & c[w] & d[w], any = a[w] | b[w] | c[w] | d[w];
            uint64_t allNext = all >> 1, anyNext = any >> 1;
            if (w + 1 < m_words) {
                allNext |= (a[w + 1] & b[w + 1] & c[w + 1] & d[w + 1]) << 63;
                anyNext |= (a[w + 1] | b[w + 1] | c[w + 1] | d[w + 1]) << 63;
            }
            uint64_t cut = ~((all & allNext) | (~any & ~anyNext));
            const int left = cells - w * 64;
            if (left < 64) cut &= (uint64_t(1) << left) - 1;
            while (cut) {
                const int bit = __builtin_ctzll(cut);
                cut &= cut - 1;
                const int x = w * 64 + bit;
                if (__builtin_expect(bit != 63, 1)) {
                    // Nodes x and x + 1 of each row are two neighbouring bits of one word.
                    const unsigned pairs = (unsigned(a[w] >> bit) & 3u) | (unsigned(b[w] >> bit) & 3u) << 2 |
                                           (unsigned(c[w] >> bit) & 3u) << 4 |
                                           (unsigned(d[w] >> bit) & 3u) << 6;
                    f(m_box.xmin + x, unsigned(g_caseOfPairs.at[pairs]));
                } else {
                    f(m_box.xmin + x, bit_(a, x) | bit_(a, x + 1) << 1 | bit_(b, x + 1) << 2 |
                                          bit_(b, x) << 3 | bit_(c, x) << 4 | bit_(c, x + 1) << 5 |
                                          bit_(d, x + 1) << 6 | bit_(d, x) << 7);
                }
            }
        }
    }

private:
    // The bits of node row y of slice z, both counted from the box's corner.
    const uint64_t* rowBits(int y, int z) const
    {
        return m_bits.data() + std::size_t(z) * m_sliceWords + std::size_t(y) * std::size_t(m_words);
    }
    // Cut edges along x in one row: node x against node x + 1, for x + 1 inside the row.
    uint64_t cutAlongX(const uint64_t* row) const
    {
        uint64_t cut = 0;
        for (int w = 0; w < m_words; ++w) {
            uint64_t next = row[w] >> 1;
            if (w + 1 < m_words) next |= row[w + 1] << 63;
            uint64_t along = row[w] ^ next;
            const int left = m_nodesX - 1 - 64 * w;
            if (left < 64) along &= left > 0 ? (uint64_t(1) << left) - 1 : 0;
            cut += bitCount(along);
        }
        return cut;
    }
    // Cut edges between two rows, node by node (the bits past a row's end are 0 in both).
    uint64_t cutBetween(const uint64_t* a, const uint64_t* b) const
    {
        uint64_t cut = 0;
        for (int w = 0; w < m_words; ++w) cut += bitCount(a[w] ^ b[w]);
        return cut;
    }

    static unsigned bit_(const uint64_t* row, int x) { return unsigned(row[x >> 6] >> (x & 63)) & 1u; }

    void classifySlice(const Accessor& a, float iso, int k, uint64_t* words)
    {
        for (int j = m_box.ymin; j < m_box.ymax; ++j, words += m_words) {
            a.classifyRow(m_box.xmin, m_nodesX, j, k, iso, m_bytes.data());
            // Eight 0/1 bytes to eight bits: the multiplier moves byte n to bit 56 + n.
            for (int w = 0; w < m_words; ++w) {
                uint64_t bits = 0;
                for (int g = 0; g < 8; ++g) {
                    uint64_t eight;
                    std::memcpy(&eight, m_bytes.data() + 64 * w + 8 * g, 8);
                    bits |= ((eight * 0x0102040810204080ull) >> 56) << (8 * g);
                }
                words[w] = bits;
            }
        }
    }

    KxBox3i m_box;
    int m_nodesX = 0, m_words = 0, m_rowsPerSlice = 0;
    std::size_t m_sliceWords = 0;
    std::vector<uint64_t> m_bits;
    // Zero past the row's end, so that the packing never sees stale bytes.
    std::vector<unsigned char> m_bytes;
};

// Whether a node box holds a cell: two node layers or more on every axis.
inline bool hasCells(const KxBox3i& box)
{
    return box.xmax - box.xmin > 1 && box.ymax - box.ymin > 1 && box.zmax - box.zmin > 1;
}

// End nodes of edge e of a cell, in grid indices.
[[gnu::always_inline]] inline void edgeNodes(const KxVec3i& cell, int edge, KxVec3i& a, KxVec3i& b)
{
    const int* na = tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][0]];
    const int* nb = tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][1]];
    a = KxVec3i(cell.x + na[0], cell.y + na[1], cell.z + na[2]);
    b = KxVec3i(cell.x + nb[0], cell.y + nb[1], cell.z + nb[2]);
}

// Where iso lies between the values fa and fb of a cut edge, from 0 at a to 1 at b. An infinite or
// NaN end gives no proportion: the vertex goes to the finite end (the limit as the other end grows
// without bound), midway when neither end is finite. Finite values keep the plain quotient.
[[gnu::always_inline]] inline float edgeParameter(float iso, float fa, float fb)
{
    const float t = (iso - fa) / (fb - fa);
    if (__builtin_expect(t == t, 1)) return t;
    return std::isfinite(fa) ? 0.f : std::isfinite(fb) ? 1.f : 0.5f;
}

[[gnu::always_inline]] inline bool isFinite(const KxVec3f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// A vertex normal from gradients that met an infinite or NaN value has no direction to give; the
// direction across the edge from node a to node b, turned to point away from the node above iso,
// stands in for it.
inline KxVec3f normalAcrossEdge(const KxVec3f& pa, const KxVec3f& pb, bool aAbove)
{
    const KxVec3f d(pb.x - pa.x, pb.y - pa.y, pb.z - pa.z);
    return aAbove ? d : KxVec3f(-d.x, -d.y, -d.z);
}

// Parameter and position of the iso value on edge e of a cell, always measured from the edge's lower
// node so that every cell sharing the edge gets the same point. a and b receive the end nodes.
template <class Accessor>
[[gnu::always_inline]] inline float interpolateEdge(const Accessor& acc, float iso, const KxVec3i& cell,
                                                    int edge, KxVec3i& a, KxVec3i& b, KxVec3f& position)
{
    edgeNodes(cell, edge, a, b);
    const float fa = acc.value(a.x, a.y, a.z);
    const float fb = acc.value(b.x, b.y, b.z);
    const float t = edgeParameter(iso, fa, fb);
    const KxVec3f pa = acc.position(a.x, a.y, a.z);
    const KxVec3f pb = acc.position(b.x, b.y, b.z);
    position = KxVec3f(pa.x + t * (pb.x - pa.x), pa.y + t * (pb.y - pa.y), pa.z + t * (pb.z - pa.z));
    return t;
}

// Vertex with the negated, interpolated gradient (not normalised), which points from higher toward
// lower values.
template <class Accessor> struct ComputeIntersection
{
    static constexpr bool hasNormals = true;

    [[gnu::always_inline]] static float compute(const Accessor& acc, float iso, const KxVec3i& cell, int edge,
                                                KxVec3f& position, KxVec3f& normal)
    {
        KxVec3i a, b;
        const float t = interpolateEdge(acc, iso, cell, edge, a, b, position);
        const KxVec3f ga = acc.gradient(a.x, a.y, a.z);
        const KxVec3f gb = acc.gradient(b.x, b.y, b.z);
        normal =
            KxVec3f(-(ga.x + t * (gb.x - ga.x)), -(ga.y + t * (gb.y - ga.y)), -(ga.z + t * (gb.z - ga.z)));
        if (__builtin_expect(!isFinite(normal), 0))
            normal = normalAcrossEdge(acc.position(a.x, a.y, a.z), acc.position(b.x, b.y, b.z),
                                      acc.value(a.x, a.y, a.z) > iso);
        return t;
    }
};

// Vertex without gradients: every vertex gets the fixed normal (1, 0, 0), a placeholder that the
// surface's own normals replace.
template <class Accessor> struct ComputeIntersectionWithoutNormal
{
    static constexpr bool hasNormals = false;

    [[gnu::always_inline]] static float compute(const Accessor& acc, float iso, const KxVec3i& cell, int edge,
                                                KxVec3f& position, KxVec3f& normal)
    {
        KxVec3i a, b;
        normal = KxVec3f(1.f, 0.f, 0.f);
        return interpolateEdge(acc, iso, cell, edge, a, b, position);
    }
};

// The policy bundle every traversal is a template over, with the iso value they share. The bundle
// is read-only during a traversal; per-traversal state (the case index's memory) lives in the
// traversal object.
template <class Accessor_, class Index_, class Intersection_, class Filter_> struct VxIsosurfaceTools
{
    using Accessor = Accessor_;
    using Index = Index_;
    using Intersection = Intersection_;
    using Filter = Filter_;

    VxIsosurfaceTools(const Accessor& a, float isoValue, const Filter& f)
        : accessor(a), iso(isoValue), filter(f), nx(a.dims().x), ny(a.dims().y), nz(a.dims().z)
    {
    }

    const Accessor& accessor;
    float iso;
    const Filter& filter;
    int32_t nx, ny, nz;
};

// The vector scaled to unit length; a zero vector stays zero rather than becoming NaN.
[[gnu::always_inline]] inline KxVec3f unitNormal(const KxVec3f& v)
{
    const float len = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    return len > 0.f ? KxVec3f(v.x / len, v.y / len, v.z / len) : v;
}

// Vertices and triangles are numbered by 32-bit ints whose negative values mark edges without a
// vertex: a surface with more of either than maxSurfaceElements() cannot be numbered.
uint64_t maxSurfaceElements();
// Lowers that limit (0 restores it), so that tests reach it on small volumes.
void setMaxSurfaceElements(uint64_t limit);
// Refuses, with a KxException naming the counts, a surface that would have more vertices or
// triangles than can be numbered; called with the counts made before anything is allocated.
void checkSurfaceSize(uint64_t vertices, uint64_t triangles);

// Refuses, with a KxException, a slab count that the nodes along the split axis (0, 1, 2) cannot
// give every slab a cell layer of.
void checkSlabCount(uint64_t nodes, uint64_t slabs, int axis);

// A triangle whose corners are not three distinct vertices.
inline bool isDegenerate(const KxVec3i& t)
{
    return t.x == t.y || t.y == t.z || t.x == t.z;
}

} // namespace vxiso::tools
