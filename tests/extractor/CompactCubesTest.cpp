// Compact cubes: vertices near grid nodes merge into one vertex per node.
#include "../support/TestFields.h"

#include <kx/KxHandle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>
#include <tuple>

using namespace vxtest;

namespace {

std::tuple<int, int, int> nearestNode(const KxVec3f& p)
{
    return {int(std::lround(p.x)), int(std::lround(p.y)), int(std::lround(p.z))};
}

} // namespace

TEST(CompactCubes, HalfSnapGivesOneVertexPerNodeAndCountsDroppedTriangles)
{
    struct Case
    {
        const char* name;
        FieldFunc f;
    };
    const Case cases[] = {{"sphere", sphere(12.3, 11.8, 12.6, 8.9)}, {"torus", torus(12.4, 12.1, 12.7, 7.3, 2.9)}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        KxHandle<VxUniformScalarField3> field = makeField<float>(26, 26, 26, c.f);
        unsigned long long degenerate = 0;
        const Mesh compact = extract(*field, 0.f, 1, 0.5f, &degenerate);
        const Mesh standard = extract(*field, 0.f, 0);

        // Every vertex is the mean of intersections within half an edge of its node: at most one per node.
        std::set<std::tuple<int, int, int>> nodes;
        for (const KxVec3f& p : compact.coords) EXPECT_TRUE(nodes.insert(nearestNode(p)).second);
        EXPECT_LT(compact.coords.size(), standard.coords.size());

        EXPECT_GT(degenerate, 0ull);
        EXPECT_EQ(compact.triangles.size() + degenerate, standard.triangles.size());
        // No collapsed triangle is kept, and every vertex is used: none is lost or left dangling.
        std::set<int> used;
        for (const KxVec3i& t : compact.triangles) {
            ASSERT_FALSE(t.x == t.y || t.y == t.z || t.x == t.z);
            for (int v : {t.x, t.y, t.z}) ASSERT_LT(std::size_t(v), compact.coords.size());
            used.insert({t.x, t.y, t.z});
        }
        EXPECT_EQ(used.size(), compact.coords.size());
    }
}

TEST(CompactCubes, SnappedVertexIsTheMeanOfItsIntersections)
{
    // A plane x = 2.2 crossing x-edges between nodes 2 and 3: every intersection snaps to x = 2
    // nodes, and each node vertex is the mean of the intersections gathered there.
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(6, 5, 5, [](double x, double y, double) { return x - 2.2 + 0.05 * y; });
    const Mesh standard = extract(*field, 0.f, 0);
    const Mesh compact = extract(*field, 0.f, 1, 0.5f);
    std::map<std::tuple<int, int, int>, std::pair<KxVec3d, int>> sums;
    for (const KxVec3f& p : standard.coords) {
        auto& s = sums[nearestNode(p)];
        s.first = s.first + KxVec3d(p.x, p.y, p.z);
        ++s.second;
    }
    ASSERT_EQ(compact.coords.size(), sums.size());
    for (const KxVec3f& p : compact.coords) {
        const auto& s = sums.at(nearestNode(p));
        EXPECT_NEAR(p.x, s.first.x / s.second, 1e-5);
        EXPECT_NEAR(p.y, s.first.y / s.second, 1e-5);
        EXPECT_NEAR(p.z, s.first.z / s.second, 1e-5);
    }
}

TEST(CompactCubes, ZeroSnapMergesOnlyIntersectionsOnNodes)
{
    // No node at the iso value: the same surface as standard cubes, vertex for vertex.
    KxHandle<VxUniformScalarField3> field = makeField<float>(20, 20, 20, sphere(9.7, 9.4, 10.1, 6.3));
    unsigned long long degenerate = 0;
    const Mesh a = extract(*field, 0.f, 1, 0.f, &degenerate);
    const Mesh b = extract(*field, 0.f, 0);
    EXPECT_EQ(degenerate, 0ull);
    EXPECT_EQ(a.coords.size(), b.coords.size());
    EXPECT_EQ(triangleSet(a), triangleSet(b));

    // Nodes exactly at the iso value: their intersections (t = 0 or 1) merge into one vertex.
    KxHandle<VxUniformScalarField3> onNodes = makeField<int>(12, 12, 12, sphere(5.5, 5.5, 5.5, 4, 2));
    const Mesh c = extract(*onNodes, 0.f, 1, 0.f);
    const Mesh d = extract(*onNodes, 0.f, 0);
    EXPECT_LT(c.coords.size(), d.coords.size());
    std::set<std::tuple<float, float, float>> distinct;
    for (const KxVec3f& p : d.coords) distinct.insert({p.x, p.y, p.z});
    EXPECT_EQ(c.coords.size(), distinct.size());
}
