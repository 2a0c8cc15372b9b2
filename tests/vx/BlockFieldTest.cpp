// Multi-block fields: the data class, block description files and their errors; the point probe.
#include "../support/TestFiles.h"
#include "../support/TestHost.h"

#include <io/VxBlockReader.h>

#include <kx/KxHandle.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxPointProbe.h>

#include <QDir>

#include <cmath>
#include <sstream>

namespace {

using namespace vxtest;

double ball(double x, double y, double z)
{
    return std::sqrt((x - 10.2) * (x - 10.2) + (y - 9.7) * (y - 9.7) + (z - 10.4) * (z - 10.4)) - 7.1;
}

// A VTK legacy ASCII file of the ball at the nodes x0..x1 (inclusive) by 0..n-1 by 0..n-1: structured
// points, or a structured grid that lists every node's position.
std::string vtkBlock(int x0, int x1, int n, bool grid)
{
    const int nx = x1 - x0 + 1;
    std::ostringstream out;
    out << "# vtk DataFile Version 3.0\nblock\nASCII\nDATASET STRUCTURED_" << (grid ? "GRID" : "POINTS")
        << "\nDIMENSIONS " << nx << ' ' << n << ' ' << n << '\n';
    if (grid) out << "POINTS " << nx * n * n << " float\n";
    for (int k = 0; k < n && grid; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = x0; i <= x1; ++i) out << i << ' ' << j << ' ' << k << '\n';
    if (!grid) out << "ORIGIN " << x0 << " 0 0\nSPACING 1 1 1\n";
    out << "POINT_DATA " << nx * n * n << "\nSCALARS values float 1\nLOOKUP_TABLE default\n";
    for (int k = 0; k < n; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = x0; i <= x1; ++i) out << ball(i, j, k) << '\n';
    return out.str();
}

class BlockField : public TempDirTest
{
protected:
    void write(const std::string& name, const std::string& text)
    {
        QDir().mkpath(QFileInfo(qpath(name)).absolutePath());
        spit(path(name), text);
    }
    QString why; // of the last refusal
};

} // namespace

TEST_F(BlockField, SphereInBlocksSharingTheirFacesLoadsFromADescription)
{
    // Nodes 0..20 per axis in three slices along x that repeat the nodes of their common faces;
    // the middle block is a curvilinear grid, one file lies in a folder with a blank in its name.
    write("part0.vtk", vtkBlock(0, 7, 21, false));
    write("grids/part1.vtk", vtkBlock(7, 13, 21, true));
    write("sub dir/part 2.vtk", vtkBlock(13, 20, 21, false));
    write("ball.vxblocks", "# vxblocks 1\n# a sphere in three slices along x\n\nblock part0.vtk\n"
                           "  block   grids/part1.vtk  \nblock \"sub dir/part 2.vtk\"\n");
    KxHandle<VxBlockStructuredScalarField3> f(VxBlockReader::read(qpath("ball.vxblocks"), &why));
    ASSERT_TRUE(f) << why;
    EXPECT_EQ(f->getLabel(), "ball.vxblocks");

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
    EXPECT_EQ(f->getBoundingBox().getMin(), KxVec3f(0, 0, 0));
    EXPECT_EQ(f->getBoundingBox().getMax(), KxVec3f(20, 20, 20));
    double lo, hi;
    ASSERT_TRUE(f->getRange(lo, hi));
    EXPECT_NEAR(lo, ball(10, 10, 10), 1e-4);
    EXPECT_NEAR(hi, ball(0, 20, 0), 1e-4);
}

TEST_F(BlockField, BadDescriptionsAreRefusedWithTheFileAndLine)
{
    write("good.vtk", vtkBlock(0, 2, 3, false));
    const std::string d = dir.path().toStdString() + "/";
    const std::pair<std::string, std::string> cases[] = {
        {"block good.vtk\n", "line 1: not a block description (the first line must be \"# vxblocks 1\")"},
        {"# vxblocks 2\nblock good.vtk\n",
         "line 1: version 2 of the block description is not supported (only 1)"},
        {"# vxblocks 1\nblock good.vtk\nzone good.vtk\n",
         "line 3: \"zone\" is not a keyword of block descriptions (expected \"block FILE\")"},
        {"# vxblocks 1\n\nblock   \n", "line 3: the block has no file name"},
        {"# vxblocks 1\n# nothing yet\n", ": lists no blocks"},
        {std::string("# vxblocks 1\nblock \0\1\2", 22), ": is a binary file, not a block description"},
        // A block that cannot be read: the description's line and block, then the block file's reason.
        {"# vxblocks 1\nblock good.vtk\nblock gone.vtk\n",
         "line 3: block 1 cannot be loaded: " + d + "gone.vtk"},
        {"", ": cannot be opened ("}, // no such file
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string name = "d" + std::to_string(++n) + ".vxblocks";
        if (!c.first.empty()) write(name, c.first);
        EXPECT_FALSE(KxHandle<VxBlockStructuredScalarField3>(VxBlockReader::read(qpath(name), &why)));
        const std::string want = d + name + (c.second[0] == ':' ? "" : ", ") + c.second;
        EXPECT_EQ(why.toStdString().substr(0, want.size()), want);
    }
    EXPECT_TRUE(VxBlockReader::isBlockPath("a/B.VXBLOCKS"));
    EXPECT_FALSE(VxBlockReader::isBlockPath("a/b.vtk"));
}

TEST(PointProbe, ValuesFromScripts)
{
    messages()->setConsole(nullptr);
    tcl("create VxPointProbe probe; probe setValues 12.25 7; probe setPosition 1 2 3");
    EXPECT_EQ(tcl("list [probe getValues] [probe getPosition]"), "{12.25 7} {1 2 3}");
    EXPECT_EQ(tclError("probe setValues 1 two"), "\"probe\": setValues: \"two\" is not a number");
    EXPECT_EQ(tclError("probe setPosition 1 2"), "\"probe\": usage: setPosition X Y Z");
    EXPECT_EQ(object<VxPointProbe>("probe")->getValue(2), 0.0) << "values past the end are 0";
    tcl("remove probe");
}
