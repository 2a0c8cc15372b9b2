// Multi-block fields: the data class, block description files and their errors; the point probe.
#include <io/VxBlockReader.h>

#include <kx/KxHandle.h>
#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPointProbe.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

using Func = std::function<double(double, double, double)>;

double ball(double x, double y, double z)
{
    return std::sqrt((x - 10.2) * (x - 10.2) + (y - 9.7) * (y - 9.7) + (z - 10.4) * (z - 10.4)) - 7.1;
}

void writeText(const QString& path, const QString& text)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    f.write(text.toUtf8());
}

// A VTK legacy ASCII file of the nodes x0..x1 (inclusive) by 0..n-1 by 0..n-1 of f: structured
// points, or a structured grid that lists every node's position.
QString vtkBlock(int x0, int x1, int n, const Func& f, bool grid)
{
    const int nx = x1 - x0 + 1;
    QString s;
    QTextStream out(&s);
    out << "# vtk DataFile Version 3.0\nblock\nASCII\n";
    if (grid) {
        out << "DATASET STRUCTURED_GRID\nDIMENSIONS " << nx << ' ' << n << ' ' << n << "\nPOINTS "
            << nx * n * n << " float\n";
        for (int k = 0; k < n; ++k)
            for (int j = 0; j < n; ++j)
                for (int i = x0; i <= x1; ++i) out << i << ' ' << j << ' ' << k << '\n';
    } else {
        out << "DATASET STRUCTURED_POINTS\nDIMENSIONS " << nx << ' ' << n << ' ' << n << "\nORIGIN " << x0
            << " 0 0\nSPACING 1 1 1\n";
    }
    out << "POINT_DATA " << nx * n * n << "\nSCALARS values float 1\nLOOKUP_TABLE default\n";
    for (int k = 0; k < n; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = x0; i <= x1; ++i) out << f(i, j, k) << '\n';
    return s;
}

class BlockField : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    QString path(const QString& name) const { return dir.filePath(name); }
    // Reads a description; fails the test when it is refused.
    KxHandle<VxBlockStructuredScalarField3> load(const QString& name)
    {
        QString error;
        KxHandle<VxBlockStructuredScalarField3> f(VxBlockReader::read(path(name), &error));
        EXPECT_TRUE(f) << error.toStdString();
        return f;
    }
    // Reads a description that must be refused; returns the reason.
    std::string refusal(const QString& name, const QString& text)
    {
        writeText(path(name), text);
        QString error;
        KxHandle<VxBlockStructuredScalarField3> f(VxBlockReader::read(path(name), &error));
        EXPECT_FALSE(f) << name.toStdString();
        EXPECT_FALSE(error.isEmpty());
        return error.toStdString();
    }
    QTemporaryDir dir;
};

} // namespace

TEST_F(BlockField, SphereInBlocksSharingTheirFacesLoadsFromADescription)
{
    // Nodes 0..20 per axis in three slices along x that repeat the nodes of their common faces;
    // the middle block is a curvilinear grid, one file lies in a folder with a blank in its name.
    writeText(path("part0.vtk"), vtkBlock(0, 7, 21, ball, false));
    writeText(path("grids/part1.vtk"), vtkBlock(7, 13, 21, ball, true));
    writeText(path("sub dir/part 2.vtk"), vtkBlock(13, 20, 21, ball, false));
    writeText(path("ball.vxblocks"), "# vxblocks 1\n"
                                     "# a sphere in three slices along x\n"
                                     "\n"
                                     "block part0.vtk\n"
                                     "  block   grids/part1.vtk  \n"
                                     "block \"sub dir/part 2.vtk\"\n");
    KxHandle<VxBlockStructuredScalarField3> f = load("ball.vxblocks");
    ASSERT_TRUE(f);
    EXPECT_TRUE(f->isOfType(VxScalarField3::getClassTypeId()));
    EXPECT_FALSE(f->isOfType(VxRegScalarField3::getClassTypeId()));
    EXPECT_EQ(f->getLabel().toStdString(), "ball.vxblocks");

    const VxBlockStructuredGrid* grid = f->getGrid();
    ASSERT_EQ(grid->getNumZones(), 3);
    ASSERT_EQ(f->getNumBlocks(), 3);
    const int first[] = {0, 7, 13}, nx[] = {8, 7, 8};
    for (int b = 0; b < 3; ++b) {
        SCOPED_TRACE(b);
        VxRegScalarField3* block = f->getField(b);
        ASSERT_TRUE(block);
        EXPECT_EQ(grid->getZoneDims(b), KxDim3l(nx[b], 21, 21));
        EXPECT_EQ(block->coordType(), b == 1 ? VX_COORD_CURVILINEAR : VX_COORD_UNIFORM);
        EXPECT_EQ(grid->getZoneCoords(b), block->lattice().coords());
        // Blocks in file order, each where its file puts it, holding the sphere's values there.
        EXPECT_EQ(block->getBoundingBox().xmin, float(first[b]));
        EXPECT_NEAR(block->evalReg(3, 4, 5), ball(first[b] + 3, 4, 5), 1e-4);
    }
    // Shared faces hold the same values in both blocks.
    for (int j = 0; j < 21; j += 4)
        for (int k = 0; k < 21; k += 5) {
            EXPECT_EQ(f->getField(0)->evalReg(7, j, k), f->getField(1)->evalReg(0, j, k));
            EXPECT_EQ(f->getField(1)->evalReg(6, j, k), f->getField(2)->evalReg(0, j, k));
        }
    const KxBox3f box = f->getBoundingBox();
    EXPECT_EQ(box.getMin(), KxVec3f(0, 0, 0));
    EXPECT_EQ(box.getMax(), KxVec3f(20, 20, 20));
    EXPECT_EQ(int(f->primType()), int(KxPrimType::FLOAT));
    double lo, hi;
    ASSERT_TRUE(f->getRange(lo, hi));
    EXPECT_NEAR(lo, ball(10, 10, 10), 1e-4);
    EXPECT_NEAR(hi, ball(0, 20, 0), 1e-4);
    EXPECT_EQ(f->getField(3), nullptr);
    EXPECT_EQ(f->getField(-1), nullptr);
    EXPECT_EQ(grid->getZoneCoords(3), nullptr);
}

TEST_F(BlockField, BadDescriptionsAreRefusedWithTheFileAndLine)
{
    writeText(path("good.vtk"), vtkBlock(0, 2, 3, ball, false));
    const std::string d = dir.path().toStdString() + "/";
    EXPECT_EQ(
        refusal("plain.vxblocks", "block good.vtk\n"),
        d + "plain.vxblocks, line 1: not a block description (the first line must be \"# vxblocks 1\")");
    EXPECT_EQ(refusal("v2.vxblocks", "# vxblocks 2\nblock good.vtk\n"),
              d + "v2.vxblocks, line 1: version 2 of the block description is not supported (only 1)");
    EXPECT_EQ(refusal("word.vxblocks", "# vxblocks 1\nblock good.vtk\nzone good.vtk\n"),
              d + "word.vxblocks, line 3: \"zone\" is not a keyword of block descriptions (expected \"block "
                  "FILE\")");
    EXPECT_EQ(refusal("noname.vxblocks", "# vxblocks 1\n\nblock   \n"),
              d + "noname.vxblocks, line 3: the block has no file name");
    EXPECT_EQ(refusal("empty.vxblocks", "# vxblocks 1\n# nothing yet\n"),
              d + "empty.vxblocks: lists no blocks");
    EXPECT_EQ(refusal("binary.vxblocks", QString::fromLatin1("# vxblocks 1\nblock \0\1\2", 22)),
              d + "binary.vxblocks: is a binary file, not a block description");

    // A block that cannot be read: the description's line and block, then the block file's own reason.
    const std::string missing = refusal("missing.vxblocks", "# vxblocks 1\nblock good.vtk\nblock gone.vtk\n");
    EXPECT_EQ(missing.rfind(d + "missing.vxblocks, line 3: block 1 cannot be loaded: ", 0), 0u) << missing;
    EXPECT_NE(missing.find(d + "gone.vtk"), std::string::npos) << missing;
    QString truncated = vtkBlock(0, 2, 3, ball, false);
    truncated.chop(40);
    writeText(path("short.vtk"), truncated);
    const std::string shortBlock = refusal("short.vxblocks", "# vxblocks 1\nblock short.vtk\n");
    EXPECT_EQ(shortBlock.rfind(d + "short.vxblocks, line 2: block 0 cannot be loaded: " + d + "short.vtk", 0),
              0u)
        << shortBlock;
    const std::string text = refusal("text.vxblocks", "# vxblocks 1\nblock notes.txt\n");
    EXPECT_NE(text.find("unknown volume format"), std::string::npos) << text;

    QString error;
    EXPECT_EQ(VxBlockReader::read(path("nowhere.vxblocks"), &error), nullptr);
    EXPECT_EQ(error.toStdString().rfind(d + "nowhere.vxblocks: cannot be opened (", 0), 0u)
        << error.toStdString();
    EXPECT_TRUE(VxBlockReader::isBlockPath("a/B.VXBLOCKS"));
    EXPECT_FALSE(VxBlockReader::isBlockPath("a/b.vtk"));
}

TEST(PointProbe, ValuesFromCodeAndScripts)
{
    VxApplication::instance()->message()->setConsole(nullptr);
    KxHandle<VxPointProbe> probe(new VxPointProbe);
    EXPECT_EQ(probe->getNumValues(), 0);
    EXPECT_EQ(probe->getValue(0), 0.0);
    probe->setValues({80.5, -3});
    EXPECT_EQ(probe->getNumValues(), 2);
    EXPECT_EQ(probe->getValue(0), 80.5);
    EXPECT_EQ(probe->getValue(2), 0.0);

    VxInterpreter* vi = VxApplication::instance()->interpreter();
    QString result;
    ASSERT_EQ(
        vi->eval("create VxPointProbe probe; probe setValues 12.25 7; probe setPosition 1 2 3", &result),
        TCL_OK)
        << result.toStdString();
    ASSERT_EQ(vi->eval("probe getValues", &result), TCL_OK);
    EXPECT_EQ(result.toStdString(), "12.25 7");
    ASSERT_EQ(vi->eval("probe getPosition", &result), TCL_OK);
    EXPECT_EQ(result.toStdString(), "1 2 3");
    EXPECT_EQ(vi->eval("probe setValues 1 two", &result), TCL_ERROR);
    EXPECT_EQ(result.toStdString(), "\"probe\": setValues: \"two\" is not a number");
    EXPECT_EQ(vi->eval("probe setPosition 1 2", &result), TCL_ERROR);
    EXPECT_EQ(result.toStdString(), "\"probe\": usage: setPosition X Y Z");
    ASSERT_EQ(vi->eval("probe getValues", &result), TCL_OK);
    EXPECT_EQ(result.toStdString(), "12.25 7");
    vi->eval("remove probe");
}
