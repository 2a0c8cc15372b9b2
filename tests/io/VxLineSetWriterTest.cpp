// Line sets written as VTK polydata and Open Inventor, read back by VTK and by Coin.
#include "../support/TestFormats.h"

#include <io/VxLineSetWriter.h>

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <vx/VxLineSet.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoSeparator.h>

#include <cmath>

namespace {

// Three polylines on circles of different radii, the last closed by repeating its first point,
// with the radius as the line's value and the angle as the point's.
KxHandle<VxLineSet> makeLines()
{
    KxHandle<VxLineSet> s = new VxLineSet(0, 0, 1);
    const int counts[3] = {5, 9, 13};
    int next = 0;
    for (int l = 0; l < 3; ++l) {
        std::vector<int> line;
        for (int i = 0; i < counts[l]; ++i) {
            const float a = 0.37f * float(i), r = 1.5f + float(l);
            s->setNumPoints(next + 1);
            s->setPoint(next, 3.1f + r * std::cos(a), -2.7f + r * std::sin(a), 0.1f * float(l));
            s->getPointData(0)[next] = a;
            line.push_back(next++);
        }
        if (l == 2) line.push_back(line.front());
        s->addLine(line.data(), int(line.size()));
        s->getLineData(0)[l] = 1.5f + float(l);
    }
    return s;
}

class LineSetWriter : public vxtest::TempDirTest
{
protected:
    static void SetUpTestSuite() { oivInit(); }
    // Writes the line set; fails the test when it cannot.
    std::string write(const VxLineSet& s, const std::string& name)
    {
        QString error;
        EXPECT_TRUE(VxLineSetWriter::write(s, qpath(name), &error)) << error.toStdString();
        return path(name);
    }
};

} // namespace

TEST_F(LineSetWriter, VtkReadsThePointsAndLines)
{
    const KxHandle<VxLineSet> s = makeLines();
    const std::string text = vxtest::runVtk("mesh " + write(*s, "l.vtk") + " lines");
    if (text.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    std::vector<int> sizes;
    const TestMesh got = vxtest::parseVtkMesh(text, &sizes);
    EXPECT_EQ(got.coords, std::vector<float>(s->getPoints(), s->getPoints() + 3 * s->getNumPoints()));
    std::vector<int32_t> indices;
    std::vector<int> counts;
    for (int l = 0; l < 3; ++l) {
        indices.insert(indices.end(), s->getLine(l).begin(), s->getLine(l).end());
        counts.push_back(int(s->getLine(l).size()));
    }
    EXPECT_EQ(got.triangles, indices);
    EXPECT_EQ(sizes, counts);
}

TEST_F(LineSetWriter, CoinReadsOneVertexCountPerLine)
{
    const KxHandle<VxLineSet> s = makeLines();
    SoInput in;
    ASSERT_TRUE(in.openFile(write(*s, "l.iv").c_str()));
    SoSeparator* root = SoDB::readAll(&in);
    ASSERT_TRUE(root);
    root->ref();
    ASSERT_EQ(root->getNumChildren(), 2);
    auto* coords = static_cast<SoCoordinate3*>(root->getChild(0));
    auto* lines = static_cast<SoLineSet*>(root->getChild(1));
    ASSERT_TRUE(coords->isOfType(SoCoordinate3::getClassTypeId()) &&
                lines->isOfType(SoLineSet::getClassTypeId()));
    ASSERT_EQ(lines->numVertices.getNum(), 3);
    int v = 0;
    for (int l = 0; l < 3; ++l) {
        EXPECT_EQ(lines->numVertices[l], int(s->getLine(l).size()));
        for (int i : s->getLine(l)) {
            for (int k = 0; k < 3; ++k) EXPECT_EQ(coords->point[v][k], s->getPoints()[3 * i + k]);
            ++v;
        }
    }
    EXPECT_EQ(coords->point.getNum(), v);
    root->unref();
}

TEST_F(LineSetWriter, RefusesBadIndicesAndNamesWithoutWriting)
{
    KxHandle<VxLineSet> s = makeLines();
    s->getLine(1)[2] = 99;
    QString error;
    EXPECT_FALSE(VxLineSetWriter::write(*s, qpath("l.vtk"), &error));
    EXPECT_EQ(error,
              "cannot write " + qpath("l.vtk") + ": line 1 refers to point 99, but the set has 27 points");
    s = makeLines();
    EXPECT_FALSE(VxLineSetWriter::write(*s, qpath("l.ply"), &error));
    EXPECT_EQ(error, "unsupported line-set format for " + qpath("l.ply") + " (use .vtk or .iv)");
    EXPECT_TRUE(entries().isEmpty());
}
