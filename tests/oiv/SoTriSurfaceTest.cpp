#include "../support/TestSurfaces.h"

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/SoOutput.h>
#include <Inventor/SoPrimitiveVertex.h>
#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoGetPrimitiveCountAction.h>
#include <Inventor/actions/SoWriteAction.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoTranslation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

namespace {

class SoTriSurfaceTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { oivInit(); }
};

// Writes the node to memory, binary or as the toolkit writes text, and reads it back; the returned
// separator holds what was read. (Text with every float's nine digits is the Inventor writer's, in io.)
SoSeparator* writeAndRead(SoNode* node, bool binary)
{
    SoOutput out;
    out.setBinary(binary);
    out.setBuffer(std::malloc(1024), 1024, std::realloc);
    SoWriteAction(&out).apply(node);
    void* buffer = nullptr;
    size_t size = 0;
    out.getBuffer(buffer, size);
    SoInput in;
    in.setBuffer(buffer, size);
    SoSeparator* root = SoDB::readAll(&in);
    std::free(buffer);
    if (root) root->ref();
    return root;
}

} // namespace

TEST_F(SoTriSurfaceTest, AdoptedBlocksAreUsedInPlaceAndFreedByTheNode)
{
    const TestMesh mesh = makeIcosphere(1);
    float* coords = copyToBlock(mesh.coords);
    int32_t* triangles = copyToBlock(mesh.triangles);
    const KxHandle<SoTriSurface> surface(new SoTriSurface);
    surface->adoptCoords(mesh.numPoints(), coords);
    surface->adoptNormals(mesh.numPoints(), copyToBlock(mesh.normals));
    surface->adoptTriangles(mesh.numTriangles(), triangles);
    EXPECT_EQ(static_cast<const void*>(surface->coords.getValues(0)), coords);
    EXPECT_EQ(static_cast<const void*>(surface->triangles.getValues(0)), triangles);
    EXPECT_EQ(surface->triangles[79],
              SbVec3i32(mesh.triangles[237], mesh.triangles[238], mesh.triangles[239]));

    // A second hand-over replaces the first block, which the node must free (the leak checker watches).
    surface->adoptCoords(mesh.numPoints(), copyToBlock(mesh.coords));
    // Growing the field moves the values to a block of the toolkit's own and frees the adopted one.
    surface->normals.set1Value(mesh.numPoints(), SbVec3f(0.f, 0.f, 1.f));
    EXPECT_EQ(surface->normals[7], SbVec3f(mesh.normals[21], mesh.normals[22], mesh.normals[23]));
    // An empty hand-over leaves the field empty and still takes the block.
    surface->adoptTriangles(0, static_cast<int32_t*>(kxmalloc(3 * sizeof(int32_t))));
    EXPECT_EQ(surface->getNumTriangles(), 0);
}

TEST_F(SoTriSurfaceTest, RoundTripThroughAsciiAndBinaryFilesKeepsEveryValue)
{
    // Values that do not survive a careless text conversion: tiny, huge, negative, not a short decimal.
    TestMesh mesh = makeIcosphere(1);
    std::mt19937 random(20240611);
    std::uniform_real_distribution<float> any(-1000.f, 1000.f);
    for (size_t i = 0; i < mesh.coords.size(); ++i) mesh.coords[i] = any(random) / float(i % 7 + 3);
    mesh.coords[0] = 1e-30f, mesh.coords[1] = -3.4e38f, mesh.coords[2] = 1.f / 3.f, mesh.normals[4] = 0.1f;
    for (const auto style : {SoTriSurface::WIREFRAME, SoTriSurface::SHADED, SoTriSurface::POINTS})
        for (const bool binary : {true, false}) {
            SCOPED_TRACE(testing::Message() << "binary " << binary << ", draw style " << style);
            // Equal to the last bit, except where the toolkit's own text output rounds to 8 digits.
            auto same = [binary](float read, float written) {
                return read == written || (!binary && read == std::nextafter(written, read));
            };
            const KxHandle<SoTriSurface> surface(makeSurface(mesh));
            surface->drawStyle = style;
            surface->twoSidedLighting = style != SoTriSurface::WIREFRAME;
            surface->colors.setValues(0, 2, std::vector<uint32_t>{0x11223344u, 0xfedcba98u}.data());
            surface->materialBinding = SoTriSurface::PER_VERTEX;

            SoSeparator* root = writeAndRead(surface, binary);
            ASSERT_TRUE(root && root->getNumChildren() == 1 &&
                        root->getChild(0)->isOfType(SoTriSurface::getClassTypeId()));
            const auto* read = static_cast<SoTriSurface*>(root->getChild(0));
            ASSERT_EQ(read->getNumPoints(), mesh.numPoints());
            ASSERT_EQ(read->normals.getNum(), mesh.numPoints());
            for (int i = 0; i < 3 * mesh.numPoints(); ++i) {
                EXPECT_PRED2(same, read->coords[i / 3][i % 3], mesh.coords[size_t(i)]) << "vertex " << i / 3;
                EXPECT_PRED2(same, read->normals[i / 3][i % 3], mesh.normals[size_t(i)])
                    << "normal " << i / 3;
            }
            const SoField* fields[][2] = {{&read->triangles, &surface->triangles},
                                          {&read->drawStyle, &surface->drawStyle},
                                          {&read->twoSidedLighting, &surface->twoSidedLighting},
                                          {&read->colors, &surface->colors},
                                          {&read->materialBinding, &surface->materialBinding}};
            for (int i = 0; i < 5; ++i) EXPECT_TRUE(fields[i][0]->isSame(*fields[i][1])) << "field " << i;
            root->unref();
        }
}

TEST_F(SoTriSurfaceTest, PrimitivesMatchTheArraysAndSkipBadIndicesAndTheBoxIsInWorldSpace)
{
    TestMesh mesh = makeIcosphere(2);
    const KxHandle<SoSeparator> root(new SoSeparator);
    auto* shift = new SoTranslation;
    shift->translation = SbVec3f(10.f, 20.f, 30.f);
    root->addChild(shift);
    SoTriSurface* surface = makeSurface(mesh);
    root->addChild(surface);

    std::vector<SbVec3f> got[2]; // points and normals of the triangles' corners, in the node's space
    SoCallbackAction collect;
    collect.addTriangleCallback(
        SoTriSurface::getClassTypeId(),
        [](void* data, SoCallbackAction*, const SoPrimitiveVertex* a, const SoPrimitiveVertex* b,
           const SoPrimitiveVertex* c) {
            auto* out = static_cast<std::vector<SbVec3f>*>(data);
            for (const SoPrimitiveVertex* v : {a, b, c})
                out[0].push_back(v->getPoint()), out[1].push_back(v->getNormal());
        },
        got);
    collect.apply(root);
    ASSERT_EQ(got[0].size(), mesh.triangles.size());
    SbBox3f box;
    for (size_t k = 0; k < mesh.triangles.size(); ++k) {
        const size_t v = 3 * size_t(mesh.triangles[k]);
        EXPECT_EQ(got[0][k], SbVec3f(&mesh.coords[v]));
        EXPECT_EQ(got[1][k], SbVec3f(&mesh.normals[v]));
        box.extendBy(got[0][k] + shift->translation.getValue());
    }
    SoGetBoundingBoxAction bbox(SbViewportRegion(100, 100));
    bbox.apply(root);
    EXPECT_EQ(bbox.getBoundingBox().getMin(), box.getMin());
    EXPECT_EQ(bbox.getBoundingBox().getMax(), box.getMax());

    // Without per-vertex normals each triangle gets its outward face normal.
    surface->normals.setNum(0);
    got[0].clear(), got[1].clear();
    collect.apply(root);
    ASSERT_EQ(got[1].size(), mesh.triangles.size());
    for (size_t k = 0; k < got[1].size(); k += 3)
        EXPECT_GT(got[1][k].dot(got[0][k] + got[0][k + 1] + got[0][k + 2]), 2.7f) << "triangle " << k / 3;

    // A triangle that names a missing vertex is dropped, not drawn from stray memory.
    surface->triangles.set1Value(5, SbVec3i32(0, 1, mesh.numPoints()));
    surface->triangles.set1Value(9, SbVec3i32(-1, 1, 2));
    SoGetPrimitiveCountAction count;
    count.apply(root);
    EXPECT_EQ(count.getTriangleCount(), 318);
    surface->clearGeometry();
    bbox.apply(root);
    EXPECT_TRUE(bbox.getBoundingBox().isEmpty());
}
