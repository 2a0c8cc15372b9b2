#pragma once
#include <vxiso/isolines/VxIsolineLines.h>

#include <kx/KxBox3.h>
#include <kx/KxDArray.h>
#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>

#include <Inventor/SbMatrix.h>
#include <Inventor/SbVec3f.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

class VxTetraScalarField3;

// A res x res sampling of a slice: sample (row r, column c) is origin + c * uStep + r * vStep.
struct VxIsolineSampling
{
    SbVec3f origin{0, 0, 0}, uStep{1, 0, 0}, vStep{0, 1, 0};
    int resolution = 0;
};

// The geometry of contour lines on a slice, for a list of iso values, by one of two paths:
// - doGeneric samples the slice on a square grid through a field location and contours each cell
//   whose corners are all valid. A point on a cell edge is made once and handed to the neighbour
//   (row and column carries), and each segment is linked from its first point to its second, so the
//   segments chain into polylines without any search. A point is "below" an iso value when its
//   value is less; equal counts as not below.
// - doIntersection cuts each tetrahedron of a tetrahedral field by the plane into a triangle or a
//   quadrilateral and contours that polygon; every segment is a line of its own.
// Lines of the first iso value come first, then those of the second, and so on (doGeneric). Each run
// replaces lines(): the polylines with the iso value of each and, when colours were given, its colour.
class VxIsolineContouring
{
public:
    // A point of a polygon cut from a tetrahedron: position, signed distance to the plane, value.
    struct Vertex3
    {
        SbVec3f xyz;
        float dist;
        float value;
    };
    struct Polygon
    {
        int32_t numVertices; // 3 or 4
        Vertex3 vertex[4];
    };

    void setIsoValues(const float* values, int n) { m_isoValues.assign(values, values + std::max(n, 0)); }
    const std::vector<float>& getIsoValues() const { return m_isoValues; }
    // One packed colour an iso value, given to each of its lines; none when empty.
    void setPackedColors(const uint32_t* colors, int n) { m_colors.assign(colors, colors + std::max(n, 0)); }
    // The map between the slice's and the field's frames when they differ (the module's
    // getTransform); null for none.
    void setTransform(const SbMatrix* m);
    // Asked now and then during a run, which throws KxInterrupted when it reports an interruption.
    // Null for none.
    void setInterruption(KxProgressInterface* progress) { m_interruption = progress; }

    // Contours the sampled slice. The cell whose far corner (row r, column c + 1) lies outside
    // sliceBox (no tolerance) is left out, as is every cell with an invalid corner (the location
    // failed there or the value is NaN); a line that meets either ends there. With a transform the
    // field is evaluated at the samples mapped through it (the field's frame), while the box test
    // and the lines stay in the slice's frame, where the lines are drawn. Location: any type with
    // set, move and evaluate as VxIsolineFieldLocation has them.
    template <class Location>
    void doGeneric(const VxIsolineSampling& sampling, const KxBox3f& sliceBox, Location& location);

    // Contours the plane through origin with the given normal and in-plane vectors across every
    // tetrahedron of the field. Values per node and per tetrahedron corner are read; any other
    // encoding gives no lines. With a transform, origin and in-plane vectors are mapped through it,
    // the normal is their vectors' cross product, and the points are mapped back by its inverse.
    void doIntersection(const VxTetraScalarField3& field, const SbVec3f& origin, const SbVec3f& normal,
                        const SbVec3f& uVec, const SbVec3f& vVec);

    // One cell for one iso value: corners 0 = (r-1, c), 1 = (r, c), 2 = (r, c+1), 3 = (r-1, c+1);
    // edge k joins corner k and corner (k+1) mod 4. Edge 0 takes its point from rowCarry and edge 3
    // from columnCarry when they are >= 0; afterwards rowCarry holds the point made on edge 2 and
    // columnCarry the one made on edge 1 (-1 when none).
    void processCell(float iso, SbVec3f* corners, float* values, KxDArray<SbVec3f>& points,
                     KxDArray<int>& links, int& columnCarry, int& rowCarry) const;

    // Where the plane (dist 0) crosses the edge a-b. Nearly equal distances give the midpoint, with
    // a's value kept as it is.
    static void intersect(const Vertex3& a, const Vertex3& b, Vertex3& out);
    // Contour a polygon for every iso value in turn. A quadrilateral whose opposite corners are on
    // the same side of a value (the ambiguous cases) is dropped, for that value and all after it.
    void isoPoly3(const Polygon& polygon);
    void isoPoly4(const Polygon& polygon);

    const VxIsolineLines& lines() const { return m_lines; }
    VxIsolineLines& lines() { return m_lines; }
    // Whether doIntersection mapped its points back through the transform.
    bool hasTransform() const { return m_mapPoints; }

private:
    void chain(const KxDArray<SbVec3f>& points, const KxDArray<int>& links);
    void labelNewLines(int value);
    void checkInterruption() const
    {
        if (m_interruption && m_interruption->wasInterrupted()) throw KxInterrupted();
    }
    void addPolygonSegment(SbVec3f a, SbVec3f b, int value, bool quad);
    template <int N> void isoPoly(const Polygon& polygon);

    std::vector<float> m_isoValues;
    std::vector<uint32_t> m_colors;
    KxProgressInterface* m_interruption = nullptr;
    bool m_useTransform = false;
    SbMatrix m_transform = SbMatrix::identity();
    bool m_mapPoints = false;
    SbMatrix m_inverse = SbMatrix::identity();
    int m_pointIndex = 0;
    VxIsolineLines m_lines;
};

// The sampling path, a template so that the location's calls inline.
template <class Location>
void VxIsolineContouring::doGeneric(const VxIsolineSampling& sampling, const KxBox3f& sliceBox,
                                    Location& location)
{
    m_lines.clear();
    const int res = sampling.resolution;
    const int nValues = int(m_isoValues.size());
    if (res < 1 || nValues == 0) return;
    const SbVec3f origin = sampling.origin, du = sampling.uStep, dv = sampling.vStep;
    SbVec3f fieldOrigin = origin, fieldDu = du, fieldDv = dv;
    if (m_useTransform) {
        m_transform.multVecMatrix(origin, fieldOrigin);
        m_transform.multDirMatrix(du, fieldDu);
        m_transform.multDirMatrix(dv, fieldDv);
    }
    auto position = [&](int r, int c) { return origin + du * float(c) + dv * float(r); };

    // A cell is cut by the iso values in (min, max] of its corners. With the values sorted, each
    // sample's band (how many values are <= it) gives that range as [least band, greatest band), so a
    // cell no value cuts costs four loads.
    std::vector<int> order(std::size_t(nValues), 0);
    for (int k = 0; k < nValues; ++k) order[std::size_t(k)] = k;
    // A NaN value cuts nothing: it goes last, where no band reaches.
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
        const float va = m_isoValues[std::size_t(a)], vb = m_isoValues[std::size_t(b)];
        return va < vb || (!std::isnan(va) && std::isnan(vb));
    });
    std::vector<float> sorted(std::size_t(nValues), 0.f);
    for (int k = 0; k < nValues; ++k)
        sorted[std::size_t(k)] = m_isoValues[std::size_t(order[std::size_t(k)])];

    const std::size_t n = std::size_t(res);
    std::vector<float> values[2] = {std::vector<float>(n, 0.f), std::vector<float>(n, 0.f)};
    std::vector<uint8_t> valid[2] = {std::vector<uint8_t>(n, 0), std::vector<uint8_t>(n, 0)};
    std::vector<int32_t> band[2] = {std::vector<int32_t>(n, 0), std::vector<int32_t>(n, 0)};
    std::vector<uint8_t> inside(n, 0);
    std::vector<KxDArray<SbVec3f>> points(static_cast<std::size_t>(nValues));
    std::vector<KxDArray<int>> links(static_cast<std::size_t>(nValues));
    std::vector<int> rowCarry(std::size_t(nValues), -1);
    std::vector<int> columnCarry(std::size_t(res > 1 ? res - 1 : 0) * std::size_t(nValues), -1);

    for (int r = 0; r < res; ++r) {
        if ((r & 15) == 0) checkInterruption();
        std::swap(values[0], values[1]);
        std::swap(valid[0], valid[1]);
        std::swap(band[0], band[1]);
        float* cur = values[1].data();
        uint8_t* curValid = valid[1].data();
        int32_t* curBand = band[1].data();
        bool located = false;
        for (int c = 0; c < res; ++c) {
            const SbVec3f p = position(r, c), q = fieldOrigin + fieldDu * float(c) + fieldDv * float(r);
            located = c == 0 || !located ? location.set(q) : location.move(q);
            float v = 0;
            const bool ok = located && location.evaluate(v) && !std::isnan(v);
            cur[c] = ok ? v : -1e20f;
            curValid[c] = ok;
            inside[std::size_t(c)] = sliceBox.contains(KxVec3f(p[0], p[1], p[2]), 0.f);
        }
        // Counting without branches: the comparisons of a row run in vector registers.
        std::fill(curBand, curBand + res, 0);
        for (float level : sorted)
            for (int c = 0; c < res; ++c) curBand[c] += level <= cur[c];
        if (r == 0) continue;

        const float* prev = values[0].data();
        const uint8_t* prevValid = valid[0].data();
        const int32_t* prevBand = band[0].data();
        std::fill(rowCarry.begin(), rowCarry.end(), -1);
        for (int c = 0; c + 1 < res; ++c) {
            int* columns = columnCarry.data() + std::size_t(c) * std::size_t(nValues);
            if (!(inside[std::size_t(c + 1)] & prevValid[c] & curValid[c] & curValid[c + 1] &
                  prevValid[c + 1])) {
                // No point is shared across a cell left out.
                std::fill(rowCarry.begin(), rowCarry.end(), -1);
                std::fill(columns, columns + nValues, -1);
                continue;
            }
            const int lo =
                std::min(std::min(prevBand[c], curBand[c]), std::min(curBand[c + 1], prevBand[c + 1]));
            const int hi =
                std::max(std::max(prevBand[c], curBand[c]), std::max(curBand[c + 1], prevBand[c + 1]));
            // A value that does not cut this cell leaves its carries as they are: no neighbour reads
            // them, since the edges they stand for are not cut either.
            if (lo == hi) continue;
            SbVec3f corners[4] = {position(r - 1, c), position(r, c), position(r, c + 1),
                                  position(r - 1, c + 1)};
            float f[4] = {prev[c], cur[c], cur[c + 1], prev[c + 1]};
            for (int j = lo; j < hi; ++j) {
                const std::size_t k = std::size_t(order[std::size_t(j)]);
                processCell(m_isoValues[k], corners, f, points[k], links[k], columns[k], rowCarry[k]);
            }
        }
    }
    for (int k = 0; k < nValues; ++k) {
        chain(points[std::size_t(k)], links[std::size_t(k)]);
        labelNewLines(k);
    }
}
