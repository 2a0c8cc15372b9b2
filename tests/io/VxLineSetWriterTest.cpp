// Line sets written as VTK polydata and Open Inventor, read back by VTK and by Coin.
#include "../support/TestFiles.h"

#include <io/VxLineSetWriter.h>

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <vx/VxLineSet.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QDir>

#include <cmath>
#include <sstream>

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

// The line set as VTK's polydata reader sees it: point rows, then one row of indices per line.
std::string readWithVtk(const QString& path)
{
    return vxtest::runPython("vtk",
                             VXISO_SOURCE_DIR "/tests/io/read_mesh.py '" + path.toStdString() + "' lines");
}

class LineSetWriter : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { oivInit(); }
    QString path(const char* name) const { return dir.path() + '/' + name; }
    QTemporaryDir dir;
};

} // namespace

TEST_F(LineSetWriter, VtkReadsThePointsAndLines)
{
    const KxHandle<VxLineSet> s = makeLines();
    QString error;
    ASSERT_TRUE(VxLineSetWriter::write(*s, path("l.vtk"), &error)) << error.toStdString();
    const std::string text = readWithVtk(path("l.vtk"));
    if (text.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    std::istringstream in(text);
    std::string word;
    int n = 0;
    in >> word >> n;
    ASSERT_EQ(n, s->getNumPoints());
    for (int i = 0; i < 3 * n; ++i) {
        float x;
        in >> x;
        EXPECT_EQ(x, s->getPoints()[i]) << "coordinate " << i;
    }
    in >> word >> n; // normals 0
    in >> word >> n;
    ASSERT_EQ(n, 3);
    std::string row;
    std::getline(in, row);
    for (int l = 0; l < 3; ++l) {
        std::getline(in, row);
        std::ostringstream want;
        for (int i : s->getLine(l)) want << (want.tellp() ? " " : "") << i;
        EXPECT_EQ(row, want.str()) << "line " << l;
    }
}

TEST_F(LineSetWriter, CoinReadsOneVertexCountPerLine)
{
    const KxHandle<VxLineSet> s = makeLines();
    QString error;
    ASSERT_TRUE(VxLineSetWriter::write(*s, path("l.iv"), &error)) << error.toStdString();
    SoInput in;
    ASSERT_TRUE(in.openFile(QFile::encodeName(path("l.iv")).constData()));
    SoSeparator* root = SoDB::readAll(&in);
    ASSERT_TRUE(root);
    root->ref();
    ASSERT_EQ(root->getNumChildren(), 2);
    auto* coords = static_cast<SoCoordinate3*>(root->getChild(0));
    auto* lines = static_cast<SoLineSet*>(root->getChild(1));
    ASSERT_TRUE(coords->isOfType(SoCoordinate3::getClassTypeId()) && lines->isOfType(SoLineSet::getClassTypeId()));
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
    EXPECT_FALSE(VxLineSetWriter::write(*s, path("l.vtk"), &error));
    EXPECT_EQ(error, "cannot write " + path("l.vtk") + ": line 1 refers to point 99, but the set has 27 points");
    s = makeLines();
    EXPECT_FALSE(VxLineSetWriter::write(*s, path("l.ply"), &error));
    EXPECT_EQ(error, "unsupported line-set format for " + path("l.ply") + " (use .vtk or .iv)");
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
}
