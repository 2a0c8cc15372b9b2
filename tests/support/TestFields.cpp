#include "TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>

#include <Inventor/SoDB.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

namespace vxtest {

Mesh meshOf(const SoTriSurface& s)
{
    Mesh m;
    for (int i = 0; i < s.coords.getNum(); ++i) {
        const SbVec3f& p = s.coords[i];
        m.coords.emplace_back(p[0], p[1], p[2]);
    }
    for (int i = 0; i < s.normals.getNum(); ++i) {
        const SbVec3f& n = s.normals[i];
        m.normals.emplace_back(n[0], n[1], n[2]);
    }
    for (int i = 0; i < s.triangles.getNum(); ++i) {
        const int32_t* t = s.triangles[i].getValue();
        m.triangles.emplace_back(t[0], t[1], t[2]);
    }
    return m;
}

Mesh extract(const VxRegScalarField3& field, float iso, int compact, float snapFraction,
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
    Mesh m = meshOf(*surface);
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
            for (int i = 0; i < d.nx; ++i) {
                const int next[3][3] = {{i + 1, j, k}, {i, j + 1, k}, {i, j, k + 1}};
                for (const auto& n : next) {
                    if (n[0] >= d.nx || n[1] >= d.ny || n[2] >= d.nz) continue;
                    if (above(i, j, k) == above(n[0], n[1], n[2])) continue;
                    if (skip && (skip(i, j, k) || skip(n[0], n[1], n[2]))) continue;
                    ++cut;
                }
            }
    return cut;
}

bool isWatertight(const Mesh& m, std::string* why)
{
    std::map<std::pair<int, int>, int> directed;
    for (const KxVec3i& t : m.triangles) {
        const int c[3] = {t.x, t.y, t.z};
        for (int e = 0; e < 3; ++e) ++directed[{c[e], c[(e + 1) % 3]}];
    }
    for (const auto& kv : directed) {
        const auto reverse = directed.find({kv.first.second, kv.first.first});
        if (kv.second != 1 || reverse == directed.end() || reverse->second != 1) {
            if (why) {
                std::ostringstream s;
                s << "edge " << kv.first.first << "-" << kv.first.second << " used " << kv.second
                  << " time(s) in this direction and " << (reverse == directed.end() ? 0 : reverse->second)
                  << " in the other";
                *why = s.str();
            }
            return false;
        }
    }
    return true;
}

::testing::AssertionResult sameBytes(const Mesh& a, const Mesh& b)
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

std::multiset<std::vector<float>> triangleSet(const Mesh& m)
{
    std::multiset<std::vector<float>> out;
    for (const KxVec3i& t : m.triangles) {
        std::vector<KxVec3f> p = {m.coords[std::size_t(t.x)], m.coords[std::size_t(t.y)],
                                  m.coords[std::size_t(t.z)]};
        auto less = [](const KxVec3f& a, const KxVec3f& b) {
            return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
        };
        const auto first = std::min_element(p.begin(), p.end(), less) - p.begin();
        std::rotate(p.begin(), p.begin() + first, p.end());
        out.insert({p[0].x, p[0].y, p[0].z, p[1].x, p[1].y, p[1].z, p[2].x, p[2].y, p[2].z});
    }
    return out;
}

} // namespace vxtest
