#include "TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>

#include <Inventor/SoDB.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

namespace vxtest {

TestMesh meshOf(const SoTriSurface& s)
{
    TestMesh m;
    auto copy = [](const auto& field, auto& to) {
        using T = typename std::remove_reference_t<decltype(to)>::value_type;
        const T* first = reinterpret_cast<const T*>(field.getValues(0));
        to.assign(first, first + 3 * field.getNum());
    };
    copy(s.coords, m.coords);
    copy(s.normals, m.normals);
    copy(s.triangles, m.triangles);
    return m;
}

TestMesh extract(const VxRegScalarField3& field, float iso, int compact, float snapFraction,
                 unsigned long long* degenerate)
{
    SoDB::init();
    SoTriSurface::initClass();
    SoTriSurface* surface = new SoTriSurface;
    surface->ref();
    VxIsosurfaceExtractor x(&field, surface, nullptr);
    x.isoValue = iso;
    x.compact = compact;
    x.snapFraction = snapFraction;
    x.numberOfCores = 1;
    x.compute();
    if (degenerate) *degenerate = x.getDegenerateCount();
    TestMesh m = meshOf(*surface);
    surface->unref();
    return m;
}

std::size_t countCutEdges(const VxRegScalarField3& field, float iso,
                          const std::function<bool(int, int, int)>& skip)
{
    const KxDim3l& d = field.getDims();
    std::size_t cut = 0;
    auto above = [&](int i, int j, int k) { return field.evalReg(i, j, k) > iso; };
    for (int k = 0; k < d.nz; ++k)
        for (int j = 0; j < d.ny; ++j)
            for (int i = 0; i < d.nx; ++i)
                for (const auto& n : {KxVec3i(i + 1, j, k), KxVec3i(i, j + 1, k), KxVec3i(i, j, k + 1)})
                    cut += n.x < d.nx && n.y < d.ny && n.z < d.nz && above(i, j, k) != above(n.x, n.y, n.z) &&
                           !(skip && (skip(i, j, k) || skip(n.x, n.y, n.z)));
    return cut;
}

::testing::AssertionResult isWatertight(const TestMesh& m)
{
    std::map<std::pair<int, int>, int> directed;
    for (std::size_t t = 0; t < m.triangles.size(); t += 3)
        for (std::size_t e = 0; e < 3; ++e) ++directed[{m.triangles[t + e], m.triangles[t + (e + 1) % 3]}];
    for (const auto& [edge, uses] : directed) {
        const auto reverse = directed.find({edge.second, edge.first});
        const int back = reverse == directed.end() ? 0 : reverse->second;
        if (uses != 1 || back != 1)
            return ::testing::AssertionFailure()
                   << "edge " << edge.first << "-" << edge.second << " used " << uses
                   << " time(s) in this direction and " << back << " in the other";
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult sameBytes(const TestMesh& a, const TestMesh& b)
{
    auto same = [](const auto& x, const auto& y) {
        return x.size() == y.size() &&
               (x.empty() || !std::memcmp(x.data(), y.data(), x.size() * sizeof(x[0])));
    };
    if (!same(a.coords, b.coords)) return ::testing::AssertionFailure() << "the vertices differ";
    if (!same(a.normals, b.normals)) return ::testing::AssertionFailure() << "the normals differ";
    if (!same(a.triangles, b.triangles)) return ::testing::AssertionFailure() << "the triangles differ";
    return ::testing::AssertionSuccess();
}

std::multiset<std::vector<float>> triangleSet(const TestMesh& m)
{
    std::multiset<std::vector<float>> out;
    for (int t = 0; t < m.numTriangles(); ++t) {
        const KxVec3i c = m.triangle(std::size_t(t));
        std::vector<KxVec3f> p = {m.point(std::size_t(c.x)), m.point(std::size_t(c.y)),
                                  m.point(std::size_t(c.z))};
        auto less = [](const KxVec3f& a, const KxVec3f& b) {
            return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
        };
        std::rotate(p.begin(), std::min_element(p.begin(), p.end(), less), p.end());
        out.insert({p[0].x, p[0].y, p[0].z, p[1].x, p[1].y, p[1].z, p[2].x, p[2].y, p[2].z});
    }
    return out;
}

std::size_t weldByPosition(TestMesh& m)
{
    std::map<std::tuple<float, float, float>, int32_t> first;
    std::vector<int32_t> weld;
    for (int v = 0; v < m.numPoints(); ++v) {
        const KxVec3f p = m.point(std::size_t(v));
        weld.push_back(first.emplace(std::make_tuple(p.x, p.y, p.z), v).first->second);
    }
    for (int32_t& c : m.triangles) c = weld[std::size_t(c)];
    return first.size();
}

} // namespace vxtest
