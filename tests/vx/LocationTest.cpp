// Evaluating fields at points: every kind of field reproduces a linear field, set and move agree
// along a walk, nodes are exact, and points outside or on undefined values fail.
#include "../support/TestCellGrids.h"
#include "../support/TestFields.h"

#include <kx/KxHandle.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegLocation3.h>
#include <vx/VxTetraLocation3.h>
#include <vx/VxTetraScalarField3.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using namespace vxtest;

double linear(double x, double y, double z)
{
    return 1 + 2 * x - 3 * y + 0.5 * z;
}

// A smooth bend of the unit lattice that keeps every cell convex enough to hold its trilinear map.
KxVec3f bent(int i, int j, int k)
{
    return {float(i + 0.2 * std::sin(0.7 * j)), float(j + 0.15 * i + 0.1 * std::cos(0.5 * k)),
            float(1.3 * k)};
}

VxScalarField3* curvilinear()
{
    return makeCurvilinearField<float>(7, 6, 5, bent, [](double i, double j, double k) {
        const KxVec3f p = bent(int(i), int(j), int(k));
        return linear(p.x, p.y, p.z);
    });
}

VxScalarField3* rectilinear()
{
    // Uneven spacing, and z decreasing.
    const std::vector<float> xs{0.f, 0.5f, 2.f, 2.2f, 4.f, 5.f}, ys{-1.f, 0.f, 3.f, 3.5f, 5.f},
        zs{4.f, 3.f, 1.5f, 0.f};
    auto array = [](const std::vector<float>& v) {
        KxDArray<float> a;
        for (float f : v) a.push_back(f);
        return a;
    };
    const KxDim3l d(6, 5, 4);
    auto* f = new VxRegScalarField3(d, KxPrimType::FLOAT,
                                    new VxRectilinearCoord3(d, array(xs), array(ys), array(zs)));
    auto* v = static_cast<float*>(f->lattice().dataPtr());
    for (int k = 0, n = 0; k < 4; ++k)
        for (int j = 0; j < 5; ++j)
            for (int i = 0; i < 6; ++i) v[n++] = float(linear(xs[i], ys[j], zs[k]));
    return f;
}

VxScalarField3* uniform()
{
    VxUniformScalarField3* f = makeField<float>(9, 8, 7, linear, 0.75f);
    return f;
}

// Two blocks side by side along x, sharing the face x = 4.
VxScalarField3* blocks()
{
    auto* b = new VxBlockStructuredScalarField3;
    b->addBlock(makeField<float>(5, 6, 6, linear));
    VxUniformScalarField3* right =
        makeField<float>(5, 6, 6, [](double x, double y, double z) { return linear(x + 4, y, z); });
    right->setBoundingBox(KxBox3f(4, 8, 0, 5, 0, 5));
    b->addBlock(right);
    return b;
}

// The Kuhn subdivision of a 6^3 lattice with its nodes bent: linear in each tetrahedron all the same.
VxScalarField3* tetras()
{
    KxHandle<VxTetraGrid> cube(kuhnGrid(6, true));
    std::vector<float> xyz;
    std::vector<int32_t> cells;
    std::vector<float> values;
    for (int32_t n = 0; n < cube->getNumNodes(); ++n) {
        const KxVec3f q = cube->getNode(n);
        const KxVec3f p(q.x + 0.1f * std::sin(q.y), q.y + 0.1f * std::sin(q.z), q.z + 0.1f * std::sin(q.x));
        xyz.insert(xyz.end(), {p.x, p.y, p.z});
        values.push_back(float(linear(p.x, p.y, p.z)));
    }
    for (int32_t t = 0; t < cube->getNumTetras(); ++t)
        cells.insert(cells.end(), cube->getTetra(t).nodes, cube->getTetra(t).nodes + 4);
    return new VxTetraScalarField3(new VxTetraGrid(xyz, cells), values);
}

// The bent lattice as hexahedra: the trilinear map of each cell carries a linear field exactly.
VxScalarField3* hexas()
{
    const int n[3] = {7, 6, 5};
    std::vector<float> xyz, values;
    std::vector<int32_t> cells;
    for (int k = 0; k < n[2]; ++k)
        for (int j = 0; j < n[1]; ++j)
            for (int i = 0; i < n[0]; ++i) {
                const KxVec3f p = bent(i, j, k);
                xyz.insert(xyz.end(), {p.x, p.y, p.z});
                values.push_back(float(linear(p.x, p.y, p.z)));
            }
    auto node = [&](int i, int j, int k) { return int32_t(i + n[0] * (j + n[1] * k)); };
    for (int k = 0; k + 1 < n[2]; ++k)
        for (int j = 0; j + 1 < n[1]; ++j)
            for (int i = 0; i + 1 < n[0]; ++i)
                for (int c = 0; c < 8; ++c) {
                    const int top = c / 4, di = (c % 4 == 1 || c % 4 == 2), dj = c % 4 >= 2;
                    cells.push_back(node(i + di, j + dj, k + top));
                }
    return new VxHexaScalarField3(new VxHexaGrid(xyz, cells), values);
}

TEST(Location, EveryFieldKindReproducesALinearFieldAndMoveAgreesWithSet)
{
    const struct
    {
        const char* name;
        VxScalarField3* (*make)();
    } cases[] = {{"uniform", uniform},    {"rectilinear", rectilinear}, {"curvilinear", curvilinear},
                 {"multi-block", blocks}, {"tetrahedral", tetras},      {"hexahedral", hexas}};
    for (const auto& c : cases) {
        KxHandle<VxScalarField3> field(c.make());
        std::unique_ptr<VxLocation3> set = field->createLocation(), walk = field->createLocation();
        ASSERT_TRUE(set && walk) << c.name;
        const KxBox3f box = field->getBoundingBox();
        std::mt19937 random(7);
        std::uniform_real_distribution<float> unit(0.f, 1.f);
        int inside = 0;
        // A walk in small steps that wanders out of the field and back.
        SbVec3f p(box.xmin, box.ymin + 0.3f * box.getSize().y, box.zmin + 0.4f * box.getSize().z);
        const SbVec3f step = SbVec3f(box.getSize().x, 0.3f * box.getSize().y, 0.2f * box.getSize().z) / 57.f;
        for (int s = 0; s < 90; ++s, p += step) {
            // Curvilinear and tetrahedral fields do not fill their boxes: the truth is set's answer.
            const bool found = set->set(p);
            ASSERT_EQ(walk->move(p), found) << c.name << " step " << s;
            float a = 0, b = 0;
            if (!found) {
                EXPECT_FALSE(walk->eval(b)) << c.name << ": a point outside evaluates";
                continue;
            }
            ++inside;
            ASSERT_TRUE(set->eval(a) && walk->eval(b)) << c.name;
            EXPECT_NEAR(a, linear(p[0], p[1], p[2]), 1e-4 * (1 + std::fabs(a))) << c.name << " step " << s;
            EXPECT_NEAR(a, b, 1e-5 * (1 + std::fabs(a))) << c.name << " step " << s;
        }
        EXPECT_GT(inside, 30) << c.name;
        for (int n = 0; n < 200; ++n) {
            const SbVec3f q(box.xmin + unit(random) * box.getSize().x,
                            box.ymin + unit(random) * box.getSize().y,
                            box.zmin + unit(random) * box.getSize().z);
            float v;
            if (set->set(q) && set->eval(v)) {
                EXPECT_NEAR(v, linear(q[0], q[1], q[2]), 1e-4 * (1 + std::fabs(v))) << c.name;
            }
        }
        for (const SbVec3f& out : {SbVec3f(box.xmin - 0.01f * box.getSize().x, box.ymin, box.zmin),
                                   SbVec3f(box.xmax, box.ymax + 1, box.zmax), SbVec3f(NAN, 0, 0)}) {
            float v;
            EXPECT_FALSE(set->set(out)) << c.name;
            EXPECT_FALSE(set->eval(v)) << c.name;
            EXPECT_FALSE(walk->move(out)) << c.name;
        }
    }
}

// Nodes give their own values exactly, cell centres the mean of the corners (trilinear, not
// linear), and an undefined or NaN corner fails only where it contributes.
TEST(Location, UniformNodesAreExactAndUndefinedCornersFail)
{
    KxHandle<VxUniformScalarField3> f(makeField<float>(
        5, 4, 3, [](double x, double y, double z) { return x * y * z + std::sin(x); }, 0.3f));
    VxRegLocation3 at(*f);
    float v;
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 5; ++i) {
                const KxVec3f p = f->lattice().coords()->pos(i, j, k);
                ASSERT_TRUE(at.set(SbVec3f(p.x, p.y, p.z)) && at.eval(v));
                EXPECT_EQ(v, f->evalReg(i, j, k)) << i << " " << j << " " << k;
            }
    ASSERT_TRUE(at.set(SbVec3f(0.45f, 0.15f, 0.45f)) && at.eval(v));
    double mean = 0;
    for (int c = 0; c < 8; ++c) mean += f->evalRegDouble(1 + (c & 1), c >> 1 & 1, 1 + (c >> 2 & 1)) / 8;
    EXPECT_NEAR(v, mean, 1e-5);

    f->setUndefinedValue(f->evalRegDouble(2, 1, 1));
    EXPECT_TRUE(at.set(SbVec3f(0.45f, 0.15f, 0.45f)));
    EXPECT_FALSE(at.eval(v)) << "a cell with an undefined corner";
    const KxVec3f node = f->lattice().coords()->pos(1, 1, 1);
    EXPECT_TRUE(at.set(SbVec3f(node.x, node.y, node.z)) && at.eval(v)) << "the undefined corner has weight 0";
}

} // namespace
