// Slices: where their samples lie, what the oblique slice reports for its sampling choices, how an
// overlay hangs on a slice, and exports that land in the object pool.
#include "../support/TestFields.h"
#include "../support/TestFiles.h"
#include "../support/TestHost.h"

#include <kx/KxHandle.h>
#include <vx/VxAccessCoordinate3Interface.h>
#include <vx/VxDisplay.h>
#include <vx/VxLineSet.h>
#include <vx/VxObliqueSlice.h>
#include <vx/VxOrthoSlice.h>
#include <vx/VxOverlayModule.h>

#include <Inventor/SbRotation.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoSwitch.h>
#include <oiv/SoOffscreenEGLRenderer.h>

#include <QImage>

#include <random>

namespace {

using namespace vxtest;

// An overlay that draws one marker and offers its points.
class TestOverlay : public VxOverlayModule
{
    KX_HEADER(TestOverlay)

public:
    explicit TestOverlay(GraphicalRepMgtType mode = OVERLAY)
        : VxOverlayModule(VxScalarField3::getClassTypeId(), mode), scene(new SoSeparator)
    {
        setOverlayNode(scene.get());
        addInterface(new VxAccessCoordinate3InterfaceProxyTemplate<TestOverlay>(this));
    }
    bool getCoordinates(std::vector<SbVec3f*>& p, std::vector<int>& n) const
    {
        p.push_back(const_cast<SbVec3f*>(points));
        n.push_back(2);
        return true;
    }
    KxHandle<SoSeparator> scene;
    SbVec3f points[2] = {SbVec3f(1, 2, 3), SbVec3f(4, 5, 6)};
};
KX_SOURCE(TestOverlay, VxOverlayModule)

class Slices : public TempDirTest
{
protected:
    void SetUp() override { messages()->setConsole(nullptr); }
    void TearDown() override { VxApplication::instance()->objectPool()->removeAll(); }

    // A 9^3 uniform lattice on a box that is neither cubic nor at the origin.
    VxUniformScalarField3* lattice()
    {
        VxUniformScalarField3* f =
            makeField<float>(9, 9, 9, [](double x, double y, double z) { return x + y * z; });
        f->setBoundingBox(KxBox3f(-1.3f, 2.9f, 0.1f, 3.7f, 5.f, 6.6f));
        addObject(f, "lattice");
        return f;
    }
};

// With res equal to the node count, sample (r, c) is node (c, r) of the slice's plane, bit for bit,
// and inside the slice's box without tolerance.
TEST_F(Slices, OrthoSamplesAreLatticeNodes)
{
    const struct
    {
        int orientation;
        SbVec3f u, v, n;
    } cases[] = {{VxOrthoSlice::XY, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                 {VxOrthoSlice::XZ, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
                 {VxOrthoSlice::YZ, {0, 1, 0}, {0, 0, 1}, {1, 0, 0}}};
    for (const auto& c : cases) {
        tcl("remove -all");
        VxUniformScalarField3* f = lattice();
        tcl("create VxOrthoSlice s");
        auto* s = object<VxOrthoSlice>("s");
        tcl(QString("s data connect lattice; s sliceOrientation setValue %1; s sliceNumber setValue 6")
                .arg(c.orientation));
        EXPECT_EQ(s->uVec(), c.u);
        EXPECT_EQ(s->vVec(), c.v);
        EXPECT_EQ(s->normal(), c.n);
        SbVec3f o, du, dv;
        ASSERT_TRUE(s->getSamplingParameters(9, o, du, dv));
        int uAxis, vAxis, w;
        VxOrthoSlice::axes(c.orientation, uAxis, vAxis, w);
        const KxBox3f box = s->getBoundingBox();
        for (int r = 0; r < 9; ++r)
            for (int col = 0; col < 9; ++col) {
                int64_t idx[3];
                idx[uAxis] = col, idx[vAxis] = r, idx[w] = 6;
                const KxVec3f node = f->lattice().coords()->pos(idx[0], idx[1], idx[2]);
                const SbVec3f p = o + du * float(col) + dv * float(r);
                ASSERT_EQ(p, SbVec3f(node.x, node.y, node.z)) << c.orientation << ": " << r << " " << col;
                ASSERT_TRUE(box.contains(KxVec3f(p[0], p[1], p[2]), 0.f));
            }
        EXPECT_FALSE(s->getSamplingParameters(1, o, du, dv));
    }
}

// The sampling rectangle of an oblique plane covers exactly the plane's part inside the box: every
// point of the plane inside the box falls in it, and it reaches each of its sides.
TEST_F(Slices, ObliqueSamplingSpansThePlaneInsideTheBox)
{
    addObject(makeField<float>(9, 7, 5, [](double x, double, double) { return x; }), "f");
    tcl("create VxObliqueSlice o; o data connect f; o normal setValue 0 1; o normal setValue 1 2; "
        "o normal setValue 2 0.5; o fire");
    auto* o = object<VxObliqueSlice>("o");
    ASSERT_TRUE(o->hasPlane());
    EXPECT_EQ(o->origin(), SbVec3f(4, 3, 2)) << "a new field centres the plane";
    const int res = 50;
    SbVec3f origin, du, dv;
    ASSERT_TRUE(o->getSamplingParameters(res, origin, du, dv));
    EXPECT_NEAR(du.dot(o->normal()), 0, 1e-6);
    EXPECT_NEAR(dv.dot(o->normal()), 0, 1e-6);
    EXPECT_NEAR((origin - o->origin()).dot(o->normal()), 0, 1e-5);
    std::mt19937 random(3);
    std::uniform_real_distribution<float> x(0, 8), y(0, 6), z(0, 4);
    float lo[2] = {1e9f, 1e9f}, hi[2] = {-1e9f, -1e9f};
    const KxBox3f box(0, 8, 0, 6, 0, 4);
    for (int i = 0; i < 20000; ++i) {
        SbVec3f p(x(random), y(random), z(random));
        p -= o->normal() * (p - o->origin()).dot(o->normal());
        if (!box.contains(KxVec3f(p[0], p[1], p[2]))) continue;
        const float c[2] = {(p - origin).dot(du) / du.sqrLength(), (p - origin).dot(dv) / dv.sqrLength()};
        for (int k = 0; k < 2; ++k) lo[k] = std::min(lo[k], c[k]), hi[k] = std::max(hi[k], c[k]);
    }
    for (int k = 0; k < 2; ++k) {
        EXPECT_GT(lo[k], -1e-3f);
        EXPECT_LT(lo[k], 1.f) << "the rectangle is wider than the plane's part";
        EXPECT_LT(hi[k], res - 1 + 1e-3f);
        EXPECT_GT(hi[k], res - 2.f);
    }
    tcl("o origin setValue 0 100; o fire");
    EXPECT_FALSE(o->getSamplingParameters(res, origin, du, dv)) << "a plane that misses the box";
    messages()->clearRecords();
    tcl("o normal setValue 0 0; o normal setValue 1 0; o normal setValue 2 0; o fire");
    EXPECT_FALSE(o->hasPlane());
    ASSERT_EQ(messages()->errors().size(), 1);
    EXPECT_TRUE(messages()->errors()[0].contains("o: the normal (0 0 0) has no direction"))
        << messages()->errors()[0];
}

// Native sampling is one sample per node along lattice axes; coarse halves the steps' count, fine
// doubles it, custom reads the "Resolution" fields.
TEST_F(Slices, ObliqueResolutionsFollowTheSamplingChoice)
{
    addObject(makeField<float>(
                  33, 17, 9, [](double x, double, double) { return x; }, 0.5f),
              "f");
    tcl("create VxObliqueSlice o; o data connect f; o resolution setValue 0 100; o resolution setValue 1 7; "
        "o fire");
    auto* o = object<VxObliqueSlice>("o");
    EXPECT_EQ(o->getSamplingChoices(), QStringList({"coarse", "native", "fine", "custom"}));
    const SbVec2s expected[] = {{17, 9}, {33, 17}, {65, 33}, {100, 7}, {0, 0}};
    for (int choice = 0; choice < 5; ++choice)
        EXPECT_EQ(o->getResolution(choice), expected[choice]) << choice;
}

// A slice draws itself: seen from above, an xy slice of a ramp in x without a colour map is a grey
// ramp from left to right, as wide as the field; a slice with nothing to show draws nothing.
TEST_F(Slices, SlicesDrawTheirValues)
{
    QString why;
    if (!SoOffscreenEGLRenderer::isAvailable(&why)) GTEST_SKIP() << why.toStdString();
    addObject(makeField<float>(16, 8, 3, [](double x, double, double) { return x; }), "ramp");
    tcl(QString("create VxOrthoSlice s; s data connect ramp; s fire; snapshot %1 -size 160 80")
            .arg(qpath("ramp.png")));
    const QImage image(qpath("ramp.png"));
    ASSERT_FALSE(image.isNull());
    const QRgb background = image.pixel(0, 0);
    int previous = -1, drawn = 0, first = -1;
    for (int x = 0; x < image.width(); ++x) {
        const QRgb p = image.pixel(x, image.height() / 2);
        if (p == background) continue;
        ++drawn;
        if (first < 0) first = qRed(p);
        EXPECT_TRUE(qRed(p) == qGreen(p) && qGreen(p) == qBlue(p)) << x;
        EXPECT_GE(qRed(p), previous) << x;
        previous = qRed(p);
    }
    EXPECT_GT(drawn, 50);
    EXPECT_LT(first, 40);
    EXPECT_GT(previous, 200);
    tcl(QString("s data disconnect; s fire; snapshot %1 -size 160 80").arg(qpath("none.png")));
    const QImage none(qpath("none.png"));
    ASSERT_FALSE(none.isNull());
    for (int x = 0; x < none.width(); ++x) ASSERT_EQ(none.pixel(x, none.height() / 2), background) << x;
}

// An overlay hangs its scene on the slice it is connected to (or, as geometry, in its own separator),
// moves with the connection, comes off with removeOverlay, and hangs through its display when it has
// one. Its points are reachable through the coordinate interface.
TEST_F(Slices, OverlaysHangOnTheirSlice)
{
    SbMatrix turn;
    turn.setRotate(SbRotation(SbVec3f(1, 2, 3), 0.4f));
    lattice()->setTransform(turn);
    tcl("create VxOrthoSlice a; create VxOrthoSlice b; a data connect lattice; b data connect lattice");
    KxHandle<TestOverlay> overlay(new TestOverlay), geometry(new TestOverlay(VxOverlayModule::GEOMETRY));
    auto* a = object<VxOrthoSlice>("a");
    auto* b = object<VxOrthoSlice>("b");
    SbMatrix m;
    EXPECT_TRUE(a->getTransform(m) && m == turn) << "a slice is drawn in its field's frame";
    auto hangsOn = [&](VxPlanarModBase* s) {
        return s->getOverlayRoot()->findChild(overlay->scene.get()) >= 0;
    };
    ASSERT_TRUE(overlay->portSlice.connect(a));
    overlay->fire();
    EXPECT_TRUE(hangsOn(a));
    ASSERT_TRUE(overlay->portSlice.connect(b));
    overlay->fire();
    EXPECT_FALSE(hangsOn(a));
    EXPECT_TRUE(hangsOn(b));
    overlay->removeOverlay();
    EXPECT_FALSE(hangsOn(b));

    overlay->setDisplay(new VxDisplay(overlay.get(), true, true, false));
    overlay->fire();
    VxDisplay* d = overlay->getDisplay();
    EXPECT_GE(b->getOverlayRoot()->findChild(d->getRoot()), 0);
    EXPECT_GE(d->getContent()->findChild(overlay->scene.get()), 0);
    EXPECT_EQ(d->getRoot()->whichChild.getValue(), SO_SWITCH_ALL);
    overlay->removeOverlay();
    overlay->setDisplay(nullptr);
    delete d;

    ASSERT_TRUE(geometry->portSlice.connect(a));
    geometry->fire();
    EXPECT_GE(geometry->getSeparator()->findChild(geometry->scene.get()), 0);
    EXPECT_LT(a->getOverlayRoot()->findChild(geometry->scene.get()), 0);

    std::vector<SbVec3f*> points;
    std::vector<int> counts;
    auto* access = overlay->getInterface<VxAccessCoordinate3Interface>();
    ASSERT_TRUE(access && access->getCoordinates(points, counts));
    EXPECT_EQ(points, std::vector<SbVec3f*>{overlay->points});
    EXPECT_EQ(counts, std::vector<int>{2});
}

// An export whose label is taken gets a numbered one instead of failing (and leaking), and is
// selected only when asked to be.
TEST_F(Slices, ExportsTakeAFreeLabelAndKeepTheSelection)
{
    VxObjectPool* pool = VxApplication::instance()->objectPool();
    KxHandle<VxLineSet> first(new VxLineSet(2, 1)), second(new VxLineSet(3, 1));
    first->setLabel("IsoLines");
    second->setLabel("IsoLines");
    ASSERT_TRUE(pool->addObject(first.get(), true));
    ASSERT_TRUE(pool->addObject(second.get(), false));
    EXPECT_EQ(second->getLabel(), "IsoLines2");
    EXPECT_EQ(pool->getSelected(), QList<VxObject*>{first.get()});
    EXPECT_EQ(second->getRefCount(), 2) << "the pool holds it";
    EXPECT_FALSE(pool->addObject(second.get(), true)) << "an object is added once";
    pool->removeObject(second.get());
    EXPECT_EQ(second->getRefCount(), 1);
}

} // namespace
