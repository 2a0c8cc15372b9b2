// The isosurface modules as users drive them: scripts set ports and press "Apply"; the module
// decides when to extract, from which field, and says what it made.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurface.h>
#include <vxiso/VxMaskedLabelIsosurface.h>

#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPackageManager.h>
#include <vx/VxUniformLabelField3.h>

#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <gtest/gtest.h>

#include <cstring>

void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}

namespace {

using namespace vxtest;

QString run(const QString& script)
{
    QString result;
    int code = VxApplication::instance()->interpreter()->eval(script, &result);
    EXPECT_EQ(code, TCL_OK) << script.toStdString() << "\n-> " << result.toStdString();
    return result;
}

QStringList& lines()
{
    return const_cast<QStringList&>(VxApplication::instance()->message()->lines());
}

template <class T> T* object(const char* name)
{
    return static_cast<T*>(VxApplication::instance()->objectPool()->findObject(name));
}

void add(VxObject* o, const char* name)
{
    o->setLabel(name);
    VxApplication::instance()->objectPool()->addObject(o);
}

class Module : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        packages = new VxPackageManager;
        QString why;
        ASSERT_TRUE(packages->load(VXISO_PACKAGE, &why)) << why.toStdString();
        VxApplication::instance()->message()->setConsole(nullptr);
    }
    static void TearDownTestSuite()
    {
        VxApplication::destroy();
        delete packages;
    }
    void SetUp() override
    {
        run("remove -all; preferences simplifiedRendering 1");
        VxApplication::instance()->message()->clearRecords();
    }
    static VxPackageManager* packages;
};
VxPackageManager* Module::packages = nullptr;

TEST_F(Module, PackageRegistersBothClassesWithTheirParents)
{
    EXPECT_EQ(run("typeinfo VxMaskedLabelIsosurface"),
              "VxMaskedLabelIsosurface VxIsosurface VxTriBase VxViewBase VxModule VxObject KxTypedObject");
    EXPECT_EQ(run("create VxIsosurface iso; iso ports"),
              "data buffer colormap drawStyle threshold options downSampleOnOff resolution pointProbe "
              "numberOfCores "
              "doIt");
    EXPECT_EQ(run("create VxMaskedLabelIsosurface m; lrange [m ports] end-2 end"),
              "doIt mask maskRestrictionType");
}

TEST_F(Module, ApplyExtractsOnlyWhenThePortsChangedSince)
{
    add(makeField<float>(24, 24, 24, sphere(11.5, 11.5, 11.5, 8)), "ball");
    run("create VxIsosurface iso; iso data connect ball; iso options setValue 0 0; iso threshold setValue 0");
    EXPECT_TRUE(lines().isEmpty()) << "no Apply, no surface";
    run("iso doIt hit");
    const Mesh expected = extract(*object<VxRegScalarField3>("ball"), 0.f);
    ASSERT_EQ(lines(),
              QStringList{QString("Isosurface contains %1 triangles").arg(expected.triangles.size())});
    EXPECT_EQ(run("iso getNumTriangles").toULong(), expected.triangles.size());
    EXPECT_TRUE(object<VxIsosurface>("iso")->isComputed());
    run("iso doIt hit");
    EXPECT_EQ(lines().size(), 1) << "up to date: Apply does nothing";
    run("iso threshold setValue 2");
    EXPECT_FALSE(object<VxIsosurface>("iso")->isComputed());
    EXPECT_EQ(lines().size(), 1);
    run("iso doIt hit");
    EXPECT_EQ(lines().size(), 2);

    // With compactify, the share of triangles that collapsed; nothing at all says 0.
    unsigned long long dropped = 0;
    const Mesh compact = extract(*object<VxRegScalarField3>("ball"), 2.f, 1, 0.5f, &dropped);
    run("iso options setValue 0 1; iso doIt hit");
    const float less = 100.f * float(dropped) / float(compact.triangles.size() + dropped);
    EXPECT_EQ(lines().last(), QString::asprintf("Isosurface contains %lu triangles (%2.2f%% less)",
                                                (unsigned long)compact.triangles.size(), double(less)));
    run("iso threshold setMinMax -100 100; iso threshold setValue 99; iso doIt hit");
    EXPECT_EQ(lines().last(), "Isosurface contains 0 triangles");
}

TEST_F(Module, ThresholdTakesTheDataRangeOnFirstConnection)
{
    add(makeField<unsigned char>(8, 8, 8, [](double x, double, double) { return 10 + 20 * x; }), "ramp");
    run("create VxIsosurface iso; iso data connect ramp");
    EXPECT_EQ(run("list [iso threshold getMinValue] [iso threshold getMaxValue]"), "10 150");
    EXPECT_EQ(run("iso numberOfCores isVisible"), "0");
    EXPECT_GE(run("iso numberOfCores getValue").toInt(), 1);
}

TEST_F(Module, AverageIsClampedToHalfTheAxisAndAtLeastOne)
{
    add(makeField<float>(10, 7, 30, sphere(5, 3, 15, 2)), "f");
    run("create VxIsosurface iso; iso data connect f");
    EXPECT_EQ(run("iso resolution isVisible"), "0");
    run("iso downSampleOnOff setValue 1; iso resolution setValue 0 9; iso resolution setValue 1 0; "
        "iso resolution setValue 2 14");
    EXPECT_EQ(run("iso resolution isVisible"), "1");
    EXPECT_EQ(run("iso resolution getValue"), "5 1 14");
    run("iso resolution setValue 2 40");
    EXPECT_EQ(run("iso resolution getValue 2"), "15");
}

TEST_F(Module, DraggingLargeFieldsExtractsFromADownSampledCopy)
{
    struct Case
    {
        int nx, ny, nz;
        bool resampled;
        KxDim3l dims;
    } cases[] = {{256, 256, 32, true, {128, 128, 32}},
                 {100, 100, 190, false, {}},
                 {300, 64, 120, true, {150, 64, 120}}};
    for (const Case& c : cases) {
        run("remove -all");
        add(makeField<unsigned char>(c.nx, c.ny, c.nz,
                                     [](double x, double, double) { return x < 50 ? 0 : 200; }),
            "f");
        run("create VxIsosurface iso; iso data connect f; iso threshold setValue 100");
        run("iso threshold drag 90; iso doIt hit");
        const VxRegScalarField3* low = object<VxIsosurface>("iso")->getResampledField();
        ASSERT_EQ(low != nullptr, c.resampled) << c.nx << "x" << c.ny << "x" << c.nz;
        if (low) {
            EXPECT_EQ(low->getDims().nx, c.dims.nx);
            EXPECT_EQ(low->getDims().ny, c.dims.ny);
            EXPECT_EQ(low->getDims().nz, c.dims.nz);
        }
    }
    // Without the preference, dragging extracts from the full field.
    run("preferences simplifiedRendering 0; iso threshold drag 80; iso doIt hit");
    EXPECT_EQ(object<VxIsosurface>("iso")->getResampledField(), nullptr);
}

TEST_F(Module, ParamCCNeedsAValueAndSavedNetworksSayDoItOnlyAfterComputing)
{
    run("create VxIsosurface iso");
    EXPECT_EQ(run("iso setParamCC"), "usage: iso setParamCC VALUE");
    EXPECT_FLOAT_EQ(object<VxIsosurface>("iso")->getCompactCubesParameter(), 0.5f);
    run("iso setParamCC 0.25");
    QString why;
    for (const char* bad : {"abc", "0.3x", "nan", "1e39"}) {
        EXPECT_EQ(VxApplication::instance()->interpreter()->eval(QString("iso setParamCC ") + bad, &why),
                  TCL_ERROR);
        EXPECT_EQ(why, QString("\"iso\" setParamCC: \"%1\" is not a finite number").arg(bad));
    }
    EXPECT_FLOAT_EQ(object<VxIsosurface>("iso")->getCompactCubesParameter(), 0.25f);

    char buf[4096] = {};
    FILE* fp = fmemopen(buf, sizeof buf, "w");
    object<VxIsosurface>("iso")->savePorts(fp);
    fclose(fp);
    EXPECT_EQ(strstr(buf, "doIt hit"), nullptr);
    add(makeField<float>(12, 12, 12, sphere(6, 6, 6, 4)), "ball");
    run("iso data connect ball; iso threshold setValue 0; iso doIt hit");
    fp = fmemopen(buf, sizeof buf, "w");
    object<VxIsosurface>("iso")->savePorts(fp);
    fclose(fp);
    EXPECT_NE(strstr(buf, "\"iso\" doIt hit\n"), nullptr) << buf;
    EXPECT_NE(strstr(buf, "\"iso\" threshold setValue 0\n"), nullptr) << buf;
}

VxUniformLabelField3* oneVoxelMask(int n, int x, int y, int z)
{
    auto* mask = new VxUniformLabelField3(KxDim3l(n, n, n));
    static_cast<unsigned char*>(mask->lattice().getLabels(0))[(std::size_t(z) * n + y) * n + x] = 1;
    return mask;
}

std::size_t labelled(const VxUniformLabelField3& m)
{
    const auto* l = static_cast<const unsigned char*>(m.lattice().getLabels(0));
    std::size_t count = 0;
    for (int64_t i = 0; i < m.getDims().count(); ++i) count += l[i] == 1;
    return count;
}

TEST_F(Module, MaskedStrictKeepsNothingOfOneVoxelRelaxedGrowsTheMask)
{
    add(makeField<float>(16, 16, 16, sphere(7.5, 7.5, 7.5, 5.3)), "ball");
    add(oneVoxelMask(16, 13, 8, 8), "mask");
    run("create VxMaskedLabelIsosurface m; m data connect ball; m threshold setValue 0; m options setValue 0 "
        "0");
    EXPECT_EQ(run("m maskRestrictionType isVisible"), "0");
    run("m mask connect mask");
    EXPECT_EQ(run("m maskRestrictionType isVisible"), "1");
    run("m doIt hit");
    EXPECT_EQ(run("m getNumTriangles"), "0") << "no cube has all eight corners in a one-voxel mask";
    run("m maskRestrictionType setIndex 1; m doIt hit");
    EXPECT_GT(run("m getNumTriangles").toInt(), 0);
    EXPECT_EQ(labelled(*object<VxUniformLabelField3>("mask")), 27u) << "the grown mask was written back";
    run("m threshold setValue 0.1; m doIt hit");
    EXPECT_EQ(labelled(*object<VxUniformLabelField3>("mask")), 125u) << "each relaxed run grows it again";
}

// Down-sampled, the module reads the mask on the copy's nodes: a node is inside when any node it
// averages is. Another mask makes the surface out of date; one of other dimensions is refused in
// one line, not read out of bounds.
TEST_F(Module, MaskFollowsTheDownSampledCopyAndOtherDimensionsAreRefused)
{
    add(makeField<float>(16, 16, 16, sphere(7.5, 7.5, 7.5, 5.3)), "ball");
    auto* half = new VxUniformLabelField3(KxDim3l(16, 16, 16));
    auto* labels = static_cast<unsigned char*>(half->lattice().getLabels(0));
    for (int i = 0; i < 16 * 16 * 16; ++i) labels[i] = i % 16 < 7; // x 0..6: the low nodes x 0..3
    add(half, "half");
    run("create VxMaskedLabelIsosurface m; m data connect ball; m mask connect half; m threshold setValue 0");
    run("m options setValue 0 0; m downSampleOnOff setValue 1; m doIt hit");
    auto* m = object<VxMaskedLabelIsosurface>("m");
    const VxRegScalarField3* low = m->getResampledField();
    ASSERT_NE(low, nullptr);
    ASSERT_EQ(low->getDims(), KxDim3l(8, 8, 8));
    const float lastInside =
        low->getBoundingBox().xmin + 3 * low->getBoundingBox().getVoxelSize(low->getDims()).x;
    const SoTriSurface& surface = *m->getTriSurface();
    ASSERT_GT(surface.getNumTriangles(), 0);
    float reach = -1e9f;
    for (int v = 0; v < surface.coords.getNum(); ++v) reach = std::max(reach, surface.coords[v][0]);
    EXPECT_FLOAT_EQ(reach, lastInside);

    run("m mask disconnect");
    EXPECT_FALSE(m->isComputed()) << "without the mask, the surface is out of date";

    add(new VxUniformLabelField3(KxDim3l(15, 15, 15)), "small");
    run("m downSampleOnOff setValue 0; m mask connect small; m doIt hit");
    EXPECT_EQ(
        VxApplication::instance()->message()->errors(),
        QStringList{"m: the mask \"small\" has 15 x 15 x 15 nodes but the volume \"ball\" has 16 x 16 x 16; "
                    "they must match"});
    EXPECT_GT(surface.getNumTriangles(), 0) << "the previous surface stays";
}

TEST_F(Module, MaskedWithoutMaskEqualsThePlainModule)
{
    add(makeField<float>(20, 20, 20, torus(9.5, 9.5, 9.5, 5, 2)), "t");
    run("create VxIsosurface iso; create VxMaskedLabelIsosurface m");
    run("foreach x {iso m} { $x data connect t; $x threshold setValue 0; $x doIt hit }");
    auto* a = object<VxIsosurface>("iso");
    auto* b = object<VxIsosurface>("m");
    EXPECT_GT(a->getTriSurface()->getNumTriangles(), 0);
    EXPECT_EQ(triangleSet(meshOf(*a->getTriSurface())), triangleSet(meshOf(*b->getTriSurface())));
}

TEST_F(Module, BlocksAreExtractedOneByOneAndMergedWithOffsetIndices)
{
    // A sphere cut into two blocks along z that share the plane of nodes between them.
    auto* blocks = new VxBlockStructuredScalarField3;
    const auto f = sphere(7, 7, 7, 5.3); // no node exactly on the surface: no coincident vertices
    for (int b = 0; b < 2; ++b) {
        VxUniformScalarField3* part =
            makeField<float>(15, 15, 8, [&](double x, double y, double z) { return f(x, y, z + 7 * b); });
        part->setBoundingBox(KxBox3f(0, 14, 0, 14, 7.f * b, 7.f * b + 7));
        blocks->addBlock(part);
    }
    add(blocks, "blocks");
    run("create VxIsosurface iso; iso data connect blocks; iso options setValue 0 0; iso threshold setValue "
        "0; "
        "iso doIt hit");
    // Each block's extractor reports, then the module names the block's counts, and the total.
    const QStringList said = lines();
    ASSERT_EQ(said.size(), 7) << said.join("|").toStdString();
    EXPECT_TRUE(said[0].startsWith("Isosurface contains ") && said[0].endsWith(" triangles."))
        << said[0].toStdString();
    EXPECT_TRUE(said[1].startsWith("block 0 # of coords: "));
    EXPECT_TRUE(said[2].startsWith("block 0 # of triangles: "));
    EXPECT_TRUE(said[5].startsWith("block 1 # of triangles: "));
    const int total = said[2].section(' ', -1).toInt() + said[5].section(' ', -1).toInt();
    EXPECT_EQ(run("iso getNumTriangles").toInt(), total);
    EXPECT_EQ(said[6], QString("Isosurface contains %1 triangles").arg(total));
    // Weld the copies of the shared plane's vertices by position: the whole must be closed.
    Mesh m = meshOf(*object<VxIsosurface>("iso")->getTriSurface());
    std::map<std::tuple<float, float, float>, int> first;
    std::vector<int> weld(m.coords.size());
    for (std::size_t i = 0; i < m.coords.size(); ++i)
        weld[i] =
            first.emplace(std::make_tuple(m.coords[i].x, m.coords[i].y, m.coords[i].z), int(i)).first->second;
    for (KxVec3i& t : m.triangles) t = KxVec3i(weld[t.x], weld[t.y], weld[t.z]);
    std::string why;
    EXPECT_TRUE(isWatertight(m, &why)) << "merged: " << why;
}

float throwingIntersection(int, int, VxObject*)
{
    throw KxException("the probe broke");
}

TEST_F(Module, ExceptionsBecomeTheErrorTextAndKeepThePreviousSurface)
{
    auto* blocks = new VxBlockStructuredScalarField3;
    blocks->addBlock(makeField<float>(10, 10, 10, sphere(4.5, 4.5, 4.5, 3)));
    add(blocks, "blocks");
    run("create VxIsosurface iso; iso data connect blocks; iso options setValue 0 0; iso threshold setValue "
        "0; "
        "iso doIt hit");
    const int before = run("iso getNumTriangles").toInt();
    ASSERT_GT(before, 0);
    object<VxIsosurface>("iso")->setIntersectionCallback(throwingIntersection, nullptr);
    run("iso threshold setValue 0.5; iso doIt hit");
    EXPECT_EQ(VxApplication::instance()->message()->errors().last(),
              "Exception:\nthe probe broke\nTry to disable the compactify\noption and run again.");
    EXPECT_EQ(run("iso getNumTriangles").toInt(), before);
    EXPECT_FALSE(object<VxIsosurface>("iso")->isComputed());
}

} // namespace
