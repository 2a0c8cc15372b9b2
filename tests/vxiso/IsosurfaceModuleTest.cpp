// The package and its isosurface modules as users drive them: scripts set ports and press "Apply";
// the module decides when to extract, from which field, and says what it made.
#include "../support/TestFields.h"
#include "PackageSuite.h"

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/nodes/SoSeparator.h>
#include <vxiso/VxIsosurface.h>
#include <vxiso/VxMaskedLabelIsosurface.h>

#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxPackageManager.h>
#include <vx/VxUniformLabelField3.h>

#include <kx/KxException.h>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>

namespace {

using namespace vxtest;

// What the module printed.
const QStringList& lines()
{
    return messages()->lines();
}

class Module : public PackageSuite
{
protected:
    void SetUp() override
    {
        PackageSuite::SetUp();
        tcl("preferences simplifiedRendering 1; compatibilityVersion 1000");
    }
};

TEST_F(Module, ClassesComeWithTheirParentsAndPorts)
{
    EXPECT_EQ(tcl("typeinfo VxMaskedLabelIsosurface"),
              "VxMaskedLabelIsosurface VxIsosurface VxTriBase VxViewBase VxModule VxObject KxTypedObject");
    EXPECT_EQ(tcl("create VxIsosurface iso; iso ports"),
              "data buffer colormap drawStyle threshold options downSampleOnOff resolution pointProbe "
              "numberOfCores "
              "doIt");
    EXPECT_EQ(tcl("create VxMaskedLabelIsosurface m; lrange [m ports] end-2 end"),
              "doIt mask maskRestrictionType");
}

TEST_F(Module, ApplyExtractsOnlyWhenThePortsChangedSince)
{
    addObject(makeField<float>(24, 24, 24, sphere(11.5, 11.5, 11.5, 8)), "ball");
    tcl("create VxIsosurface iso; iso data connect ball; iso options setValue 0 0; iso threshold setValue 0");
    EXPECT_TRUE(lines().isEmpty()) << "no Apply, no surface";
    tcl("iso doIt hit");
    const TestMesh expected = extract(*object<VxRegScalarField3>("ball"), 0.f);
    ASSERT_EQ(lines(), QStringList{QString("Isosurface contains %1 triangles").arg(expected.numTriangles())});
    EXPECT_EQ(tcl("iso getNumTriangles").toInt(), expected.numTriangles());
    tcl("iso doIt hit");
    EXPECT_EQ(lines().size(), 1) << "up to date: Apply does nothing";
    tcl("iso threshold setValue 2");
    EXPECT_FALSE(object<VxIsosurface>("iso")->isComputed());
    EXPECT_EQ(lines().size(), 1);
    tcl("iso doIt hit");
    EXPECT_EQ(lines().size(), 2);

    // With compactify, the share of triangles that collapsed; nothing at all says 0.
    unsigned long long dropped = 0;
    const TestMesh compact = extract(*object<VxRegScalarField3>("ball"), 2.f, 1, 0.5f, &dropped);
    tcl("iso options setValue 0 1; iso doIt hit");
    const float less = 100.f * float(dropped) / float(uint64_t(compact.numTriangles()) + dropped);
    EXPECT_EQ(lines().last(), QString::asprintf("Isosurface contains %d triangles (%2.2f%% less)",
                                                compact.numTriangles(), double(less)));
    tcl("iso threshold setMinMax -100 100; iso threshold setValue 99; iso doIt hit");
    EXPECT_EQ(lines().last(), "Isosurface contains 0 triangles");
}

// Old scripts (compatibility version 919) set the former two-toggle "options" port: compactify and
// "Down Sample". The module takes over only the toggles the script changed, and warns once.
TEST_F(Module, OldScriptsOptionsReachCompactifyAndDownSample)
{
    const struct
    {
        const char *before, *old, *after;
    } cases[] = {
        {"", "iso options setValue 0 0; iso options setValue 1 1", "0 1"},
        {"iso options setValue 0 0", "iso options setValue 1 1", "0 1"},
        {"iso downSampleOnOff setValue 1", "iso options setValue 0 0", "0 1"},
        {"iso options setValue 0 0; iso downSampleOnOff setValue 1",
         "iso options setState 0 1; iso options setState 1 0", "1 0"},
    };
    unsetenv("RUNNING_TEST");
    for (const auto& c : cases) {
        messages()->clearRecords();
        tcl(QString("remove -all; deprecationWarnings 1; create VxIsosurface iso; %1").arg(c.before));
        tcl(QString("compatibilityVersion 919; %1").arg(c.old)); // the module runs when the line has finished
        EXPECT_EQ(
            tcl("compatibilityVersion 1000; list [iso options getValue 0] [iso downSampleOnOff getValue]"),
            c.after)
            << c.before << " | " << c.old;
        ASSERT_EQ(lines().size(), 1);
        EXPECT_TRUE(lines()[0].contains("Port \"options\" from module \"iso\" has been modified"))
            << lines()[0];
    }
}

TEST_F(Module, ThresholdTakesTheDataRangeAndAverageIsClampedToHalfTheAxisAndAtLeastOne)
{
    addObject(makeField<unsigned char>(10, 7, 30, [](double x, double, double) { return 10 + 20 * x; }),
              "ramp");
    tcl("create VxIsosurface iso; iso data connect ramp");
    EXPECT_EQ(tcl("list [iso threshold getMinValue] [iso threshold getMaxValue] [iso resolution isVisible]"),
              "10 190 0");
    tcl("iso downSampleOnOff setValue 1; iso resolution setValue 0 9; iso resolution setValue 1 0; "
        "iso resolution setValue 2 14");
    EXPECT_EQ(tcl("list [iso resolution isVisible] [iso resolution getValue]"), "1 {5 1 14}");
    tcl("iso resolution setValue 2 40"); // clamped when the module runs, after the line
    EXPECT_EQ(tcl("iso resolution getValue 2"), "15");
}

TEST_F(Module, DraggingLargeFieldsExtractsFromADownSampledCopy)
{
    const struct
    {
        int nx, ny, nz;
        KxDim3l dims; // of the copy; none when small enough
    } cases[] = {{256, 256, 32, {128, 128, 32}}, {100, 100, 190, {0, 0, 0}}, {300, 64, 120, {150, 64, 120}}};
    for (const auto& c : cases) {
        tcl("remove -all");
        addObject(makeField<unsigned char>(c.nx, c.ny, c.nz,
                                           [](double x, double, double) { return x < 50 ? 0 : 200; }),
                  "f");
        tcl("create VxIsosurface iso; iso data connect f; iso threshold setValue 100");
        tcl("iso threshold drag 90; iso doIt hit");
        const VxRegScalarField3* low = object<VxIsosurface>("iso")->getResampledField();
        EXPECT_EQ(low ? low->getDims() : KxDim3l(0, 0, 0), c.dims) << c.nx << "x" << c.ny << "x" << c.nz;
    }
    // Without the preference, dragging extracts from the full field.
    tcl("preferences simplifiedRendering 0; iso threshold drag 80; iso doIt hit");
    EXPECT_EQ(object<VxIsosurface>("iso")->getResampledField(), nullptr);
}

TEST_F(Module, ParamCCNeedsAValueAndSavedNetworksSayDoItOnlyAfterComputing)
{
    tcl("create VxIsosurface iso");
    EXPECT_EQ(tcl("iso setParamCC"), "usage: iso setParamCC VALUE");
    tcl("iso setParamCC 0.25");
    for (const char* bad : {"abc", "0.3x", "nan", "1e39"})
        EXPECT_EQ(tclError(QString("iso setParamCC ") + bad),
                  QString("\"iso\" setParamCC: \"%1\" is not a finite number").arg(bad));
    EXPECT_FLOAT_EQ(object<VxIsosurface>("iso")->getCompactCubesParameter(), 0.25f);

    EXPECT_EQ(savedPorts(*object<VxModule>("iso")).find("doIt hit"), std::string::npos);
    addObject(makeField<float>(12, 12, 12, sphere(6, 6, 6, 4)), "ball");
    tcl("iso data connect ball; iso threshold setValue 0; iso doIt hit");
    const std::string saved = savedPorts(*object<VxModule>("iso"));
    EXPECT_NE(saved.find("\"iso\" doIt hit\n"), std::string::npos) << saved;
    EXPECT_NE(saved.find("\"iso\" threshold setValue 0\n"), std::string::npos) << saved;
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
    return std::size_t(std::count(l, l + m.getDims().count(), 1));
}

TEST_F(Module, MaskedStrictKeepsNothingOfOneVoxelRelaxedGrowsTheMask)
{
    addObject(makeField<float>(16, 16, 16, sphere(7.5, 7.5, 7.5, 5.3)), "ball");
    addObject(oneVoxelMask(16, 13, 8, 8), "mask");
    tcl("create VxMaskedLabelIsosurface m; m data connect ball; m threshold setValue 0; m options setValue 0 "
        "0");
    EXPECT_EQ(tcl("m maskRestrictionType isVisible"), "0");
    tcl("m mask connect mask");
    EXPECT_EQ(tcl("m maskRestrictionType isVisible"), "1");
    tcl("m doIt hit");
    EXPECT_EQ(tcl("m getNumTriangles"), "0") << "no cube has all eight corners in a one-voxel mask";
    tcl("m maskRestrictionType setIndex 1; m doIt hit");
    EXPECT_GT(tcl("m getNumTriangles").toInt(), 0);
    EXPECT_EQ(labelled(*object<VxUniformLabelField3>("mask")), 27u) << "the grown mask was written back";
    tcl("m threshold setValue 0.1; m doIt hit");
    EXPECT_EQ(labelled(*object<VxUniformLabelField3>("mask")), 125u) << "each relaxed run grows it again";
}

// Down-sampled, the module reads the mask on the copy's nodes: a node is inside when any node it
// averages is. Another mask makes the surface out of date; one of other dimensions is refused in
// one line, not read out of bounds.
TEST_F(Module, MaskFollowsTheDownSampledCopyAndOtherDimensionsAreRefused)
{
    addObject(makeField<float>(16, 16, 16, sphere(7.5, 7.5, 7.5, 5.3)), "ball");
    auto* half = new VxUniformLabelField3(KxDim3l(16, 16, 16));
    auto* labels = static_cast<unsigned char*>(half->lattice().getLabels(0));
    for (int i = 0; i < 16 * 16 * 16; ++i) labels[i] = i % 16 < 7; // x 0..6: the low nodes x 0..3
    addObject(half, "half");
    tcl("create VxMaskedLabelIsosurface m; m data connect ball; m mask connect half; m threshold setValue 0");
    tcl("m options setValue 0 0; m downSampleOnOff setValue 1; m doIt hit");
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

    tcl("m mask disconnect");
    EXPECT_FALSE(m->isComputed()) << "without the mask, the surface is out of date";

    addObject(new VxUniformLabelField3(KxDim3l(15, 15, 15)), "small");
    tcl("m downSampleOnOff setValue 0; m mask connect small; m doIt hit");
    EXPECT_EQ(
        messages()->errors(),
        QStringList{"m: the mask \"small\" has 15 x 15 x 15 nodes but the volume \"ball\" has 16 x 16 x 16; "
                    "they must match"});
    EXPECT_GT(surface.getNumTriangles(), 0) << "the previous surface stays";
}

TEST_F(Module, MaskedWithoutMaskEqualsThePlainModule)
{
    addObject(makeField<float>(20, 20, 20, torus(9.5, 9.5, 9.5, 5, 2)), "t");
    tcl("create VxIsosurface iso; create VxMaskedLabelIsosurface m");
    tcl("foreach x {iso m} { $x data connect t; $x threshold setValue 0; $x doIt hit }");
    const TestMesh plain = meshOf(*object<VxIsosurface>("iso")->getTriSurface());
    EXPECT_GT(plain.numTriangles(), 0);
    EXPECT_EQ(triangleSet(plain), triangleSet(meshOf(*object<VxIsosurface>("m")->getTriSurface())));
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
    addObject(blocks, "blocks");
    tcl("create VxIsosurface iso; iso data connect blocks; iso options setValue 0 0; iso threshold setValue "
        "0;"
        "iso doIt hit");
    // Each block's extractor reports, then the module names the block's counts, and the total.
    const QStringList said = lines();
    ASSERT_EQ(said.size(), 7) << said.join("|");
    EXPECT_TRUE(said[0].startsWith("Isosurface contains ") && said[0].endsWith(" triangles.")) << said[0];
    EXPECT_TRUE(said[1].startsWith("block 0 # of coords: "));
    EXPECT_TRUE(said[2].startsWith("block 0 # of triangles: "));
    EXPECT_TRUE(said[5].startsWith("block 1 # of triangles: "));
    const int total = said[2].section(' ', -1).toInt() + said[5].section(' ', -1).toInt();
    EXPECT_EQ(tcl("iso getNumTriangles").toInt(), total);
    EXPECT_EQ(said[6], QString("Isosurface contains %1 triangles").arg(total));
    // Weld the copies of the shared plane's vertices by position: the whole must be closed.
    TestMesh m = meshOf(*object<VxIsosurface>("iso")->getTriSurface());
    weldByPosition(m);
    EXPECT_TRUE(isWatertight(m)) << "merged";
}

float throwingIntersection(int, int, VxObject*)
{
    throw KxException("the probe broke");
}

TEST_F(Module, ExceptionsBecomeTheErrorTextAndKeepThePreviousSurface)
{
    auto* blocks = new VxBlockStructuredScalarField3;
    blocks->addBlock(makeField<float>(10, 10, 10, sphere(4.5, 4.5, 4.5, 3)));
    addObject(blocks, "blocks");
    tcl("create VxIsosurface iso; iso data connect blocks; iso options setValue 0 0; iso threshold setValue "
        "0;"
        "iso doIt hit");
    const int before = tcl("iso getNumTriangles").toInt();
    ASSERT_GT(before, 0);
    object<VxIsosurface>("iso")->setIntersectionCallback(throwingIntersection, nullptr);
    tcl("iso threshold setValue 0.5; iso doIt hit");
    EXPECT_EQ(messages()->errors().last(),
              "Exception:\nthe probe broke\nTry to disable the compactify\noption and run again.");
    EXPECT_EQ(tcl("iso getNumTriangles").toInt(), before);
    EXPECT_FALSE(object<VxIsosurface>("iso")->isComputed());
}

// The package library: loading registers its module classes with their parents, and unloading
// withdraws them; its entry points register once per load, so that a second call changes nothing.
TEST(Package, RegistersItsClassesOncePerLoadAndWithdrawsThemOnUnload)
{
    for (int load = 0; load < 2; ++load) {
        VxPackageManager pm;
        QString why;
        ASSERT_TRUE(pm.load(VXISO_PACKAGE, &why)) << why;
        ASSERT_EQ(pm.packages().size(), 1);
        EXPECT_EQ(pm.packages()[0].name, "vxiso");
        EXPECT_TRUE(pm.packages()[0].version.startsWith("vxiso ")) << pm.packages()[0].version;
        const KxTypeInfo* iso = KxTypeInfo::fromName("VxIsosurface");
        const KxTypeInfo* masked = KxTypeInfo::fromName("VxMaskedLabelIsosurface");
        ASSERT_TRUE(iso && masked) << "load " << load;
        EXPECT_EQ(masked->getParent(), iso);
        EXPECT_EQ(iso->getParent(), VxTriBase::getClassTypeId());
        EXPECT_TRUE(masked->canCreate() && iso->canCreate());
        EXPECT_FALSE(SoType::fromName("Text3FacingCamera").isBad()) << "load " << load;
        const char* six[] = {
            "VxMaskedLabelIsosurface", "VxIsosurface", "VxIsolines", "VxIsoTetra", "VxIsoHexa",
            "VxAnnotatedIsolines"};
        for (const char* name : six) EXPECT_NE(KxTypeInfo::fromName(name), nullptr) << name;
        if (load == 0) {
            pm.unloadAll();
        } else {
            using EntryPoint = void (*)();
            auto init =
                reinterpret_cast<EntryPoint>(dlsym(pm.packages()[0].handle, "corvapackage_vxiso_init"));
            auto finish =
                reinterpret_cast<EntryPoint>(dlsym(pm.packages()[0].handle, "corvapackage_vxiso_finish"));
            ASSERT_TRUE(init && finish);
            init();
            EXPECT_EQ(KxTypeInfo::fromName("VxIsosurface"), iso) << "a second init registers nothing new";
            finish();
            finish();
            init();
        }
        EXPECT_EQ(KxTypeInfo::fromName("VxIsosurface"), nullptr) << "load " << load;
        EXPECT_EQ(KxTypeInfo::fromName("VxMaskedLabelIsosurface"), nullptr) << "load " << load;
        EXPECT_NE(KxTypeInfo::fromName("VxTriBase"), nullptr) << "the host's own classes stay";
        EXPECT_EQ(KxTypeInfo::fromName("VxAnnotatedIsolines"), nullptr) << "load " << load;
        // The package's text node is gone from Open Inventor too: a file naming it now reads as
        // an unknown node with the fields it declares, not as code that is no longer there.
        EXPECT_TRUE(SoType::fromName("Text3FacingCamera").isBad()) << "load " << load;
        const char scene[] =
            "#Inventor V2.1 ascii\nText3FacingCamera { fields [ MFString string ] string \"7\" }\n";
        SoInput in;
        in.setBuffer(scene, sizeof scene - 1);
        SoSeparator* read = SoDB::readAll(&in);
        ASSERT_TRUE(read);
        read->ref();
        EXPECT_EQ(std::string(read->getChild(0)->getTypeId().getName().getString()), "UnknownNode");
        read->unref();
    }
}

} // namespace
