// The vxiso command as a user runs it: what it prints, what it writes, how it fails. What the
// modules and readers make of the inputs is checked by their own tests; here the command is held
// against a script that runs the same module, and against the same values given another way.
#include "../support/TestFields.h"
#include "../support/TestFormats.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>

#include <csignal>
#include <regex>

#include <sys/wait.h>
#include <unistd.h>

using namespace vxtest;

namespace {

const std::string kBin = VXISO_BINARY_DIR "/bin/";

std::string firstLine(const std::string& s)
{
    return s.substr(0, s.find('\n'));
}

// Float values of a sphere of radius 5.3 nodes around (7.2, 6.9, 6.4) on 15 x 14 x 13 nodes: the
// radius minus the distance, so that inside is above 0.
std::string sphereValues()
{
    std::string v;
    for (int k = 0; k < 13; ++k)
        for (int j = 0; j < 14; ++j)
            for (int i = 0; i < 15; ++i) {
                const float f = float(
                    5.3 - std::sqrt((i - 7.2) * (i - 7.2) + (j - 6.9) * (j - 6.9) + (k - 6.4) * (k - 6.4)));
                v.append(reinterpret_cast<const char*>(&f), 4);
            }
    return v;
}

class VxisoCommand : public TempDirTest
{
protected:
    Result vxiso(const std::string& args) const { return shell(kBin + "vxiso " + args); }
    // Runs vxhost on a script in the test's folder.
    Result vxhostScript(const std::string& script, const std::string& args = "") const
    {
        spit(path("net.tcl"), script);
        return shell(kBin + "vxhost net.tcl " + args, "host-");
    }
    TestMesh ply(const std::string& name) const { return readPly(slurp(path(name))); }
    bool exists(const std::string& name) const { return QFileInfo::exists(qpath(name)); }

    // The sphere as s.nrrd (0.5 2 1 apart) and a label volume m.nrrd on the same nodes: label 1 on
    // the nodes with x < 4, label 2 on 4 <= x < 7, background elsewhere; so that every choice of
    // labels and strict or relaxed gives another surface.
    void writeSphereAndMask() const
    {
        spit(path("s.nrrd"),
             "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nendian: little\n"
             "spacings: 0.5 2 1\n\n" +
                 sphereValues());
        std::string labels(15 * 14 * 13, '\0');
        for (std::size_t n = 0; n < labels.size(); ++n) labels[n] = char(n % 15 < 4 ? 1 : n % 15 < 7 ? 2 : 0);
        spit(path("m.nrrd"),
             "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nspacings: 0.5 2 1\n\n" +
                 labels);
    }
};

} // namespace

// The count it prints is the count it wrote, in every output format.
TEST_F(VxisoCommand, PrintsWhatItWroteInEveryFormat)
{
    std::string count;
    for (const char* ext : {"ply", "stl", "off", "iv", "obj", "vtk"}) {
        const Result r = vxiso(std::string("surface --field torus --size 48 -t 0 -o t.") + ext);
        EXPECT_EQ(r.status, 0) << ext << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        EXPECT_TRUE(std::regex_match(
            r.out, std::regex("Isosurface contains \\d+ triangles\nElapsed time: [0-9.]+ s\n")))
            << r.out;
        EXPECT_GT(slurp(path(std::string("t.") + ext)).size(), 1000u) << ext;
        if (ext == std::string("ply")) count = firstLine(r.out);
    }
    EXPECT_EQ(count, "Isosurface contains " + std::to_string(ply("t.ply").numTriangles()) + " triangles");
    ASSERT_EQ(vxiso("surface --field torus --size 48 -t 0 --ascii -o a.ply").status, 0);
    EXPECT_EQ(slurp(path("a.ply")).find("ply\nformat ascii 1.0\n"), 0u);
}

TEST_F(VxisoCommand, CompactifyPrintsThePercentageRemoved)
{
    const Result plain = vxiso("surface --field sphere --size 40 -t 0 -o a.ply");
    const Result compact = vxiso("surface --field sphere --size 40 -t 0 --compactify -o b.ply");
    ASSERT_EQ(compact.status, 0) << compact.err;
    std::smatch a, b;
    ASSERT_TRUE(std::regex_search(plain.out, a, std::regex("contains (\\d+) triangles")));
    ASSERT_TRUE(std::regex_search(
        compact.out, b,
        std::regex("^Isosurface contains (\\d+) triangles \\(([0-9]+\\.[0-9]{2})% less\\)\n")));
    const double total = std::stod(a[1]), kept = std::stod(b[1]);
    EXPECT_NEAR(std::stod(b[2]), 100.0 * (total - kept) / total, 0.006);
    // An empty result prints the plain zero line.
    const Result none = vxiso("surface --field sphere --size 20 -t 5 --compactify -o c.ply");
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(firstLine(none.out), "Isosurface contains 0 triangles");
}

// The same values and placement give the same mesh, byte for byte, from every volume format as
// from the raw values with the spacing and origin given by hand.
TEST_F(VxisoCommand, EveryVolumeFormatMatchesTheSameRawVolume)
{
    const std::string values = sphereValues(), big = byteSwapped(values, 4);
    spit(path("sphere.raw"), values);
    NiftiFile nifti;
    nifti.dim[1] = 15, nifti.dim[2] = 14, nifti.dim[3] = 13;
    const double spacing[3] = {0.5, 2, 1}, origin[3] = {10, -4, 3};
    nifti.place(spacing, origin);
    nifti.values = values;
    writeNifti(nifti, path("s"));
    nifti.gz = true;
    writeNifti(nifti, path("s"));
    nifti.gz = false, nifti.pair = true;
    writeNifti(nifti, path("p"));
    spit(path("s.nrrd"),
         "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nendian: big\n"
         "space dimension: 3\nspace directions: (0.5,0,0) (0,2,0) (0,0,1)\nspace origin: (10,-4,3)\n\n" +
             big);
    spit(path("s.mha"), "NDims = 3\nDimSize = 15 14 13\nElementType = MET_FLOAT\nElementSpacing = 0.5 2 1\n"
                        "Offset = 10 -4 3\nElementDataFile = LOCAL\n" +
                            values);
    spit(path("s.vtk"),
         "# vtk DataFile Version 3.0\nsphere\nBINARY\nDATASET STRUCTURED_POINTS\nDIMENSIONS 15 14 13\n"
         "SPACING 0.5 2 1\nORIGIN 10 -4 3\nPOINT_DATA 2730\nSCALARS v float 1\nLOOKUP_TABLE default\n" +
             big);

    const Result byHand = vxiso("surface --raw sphere.raw --dims 15 14 13 --type float32 --spacing 0.5 2 1 "
                                "--origin 10 -4 3 -t 0 -o raw.ply");
    ASSERT_EQ(byHand.status, 0) << byHand.err;
    // The sphere's extent (centre +- 5.3 nodes) scaled by the spacing and moved by the origin.
    expectBox(boundsOf(ply("raw.ply")),
              {10 + 1.9f * 0.5f, 10 + 12.5f * 0.5f, -4 + 1.6f * 2, -4 + 12.2f * 2, 3 + 1.1f, 3 + 11.7f},
              "raw", 0.3f);
    for (const char* input : {"s.nii", "s.nii.gz", "p.hdr", "p.img", "s.nrrd", "s.mha", "s.vtk"}) {
        const Result r = vxiso(std::string("surface ") + input + " -t 0 -o n.ply");
        ASSERT_EQ(r.status, 0) << input << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        EXPECT_EQ(firstLine(r.out), firstLine(byHand.out)) << input;
        EXPECT_TRUE(slurp(path("n.ply")) == slurp(path("raw.ply"))) << input;
    }

    // Scaled values are not rescaled: the threshold compares stored values, and a warning says so.
    nifti.pair = false, nifti.slope = 2, nifti.inter = 1;
    writeNifti(nifti, path("scaled"));
    const Result scaled = vxiso("surface scaled.nii -t 0 -o scaled.ply");
    ASSERT_EQ(scaled.status, 0) << scaled.err;
    EXPECT_EQ(scaled.err,
              "vxiso: warning: scaled.nii: values are stored unscaled: physical value = 2 * stored + 1; "
              "-t 0 is compared with stored values (physical 0 is stored -0.5)\n");
    EXPECT_TRUE(slurp(path("scaled.ply")) == slurp(path("raw.ply")));
}

// Hand-made meshes: two tetrahedra on a shared face with the node field v = the node's index
// (x + 2y + 3z in the first, y + 2z in the second: a positive dot product of the gradient with
// (1, 2, 3) in both), the same cells in the other orientation, a cell past the nodes, a field of
// NaN; two unit hexahedra side by side along x with the node field x and the cell field heat (0, 2).
static void writeSmallMeshes(const std::string& folder)
{
    const std::string head = "# vtk DataFile Version 3.0\nsmall\nASCII\nDATASET UNSTRUCTURED_GRID\n",
                      tetra = head + "POINTS 5 float\n0 0 0 1 0 0 0 1 0 0 0 1 1 1 1\nCELLS 2 10\n",
                      data = "CELL_TYPES 2\n10 10\nPOINT_DATA 5\nSCALARS v float 1\nLOOKUP_TABLE default\n";
    spit(folder + "tet.vtk", tetra + "4 0 1 2 3\n4 1 2 3 4\n" + data + "0 1 2 3 4\n");
    spit(folder + "neg.vtk", tetra + "4 0 2 1 3\n4 2 1 3 4\n" + data + "0 1 2 3 4\n");
    spit(folder + "past.vtk", tetra + "4 0 1 2 3\n4 1 2 3 5\n" + data + "0 1 2 3 4\n");
    spit(folder + "nan.vtk", tetra + "4 0 1 2 3\n4 1 2 3 4\n" + data + "nan nan nan nan nan\n");
    spit(folder + "hex.vtk", head + "POINTS 12 float\n0 0 0 1 0 0 2 0 0 0 1 0 1 1 0 2 1 0 0 0 1 1 0 1 2 0 1 "
                                    "0 1 1 1 1 1 2 1 1\nCELLS 2 18\n8 0 1 4 3 6 7 10 9\n8 1 2 5 4 7 8 11 10\n"
                                    "CELL_TYPES 2\n12 12\nCELL_DATA 2\nSCALARS heat float 1\nLOOKUP_TABLE "
                                    "default\n0 2\nPOINT_DATA 12\nSCALARS x float 1\nLOOKUP_TABLE default\n"
                                    "0 1 2 0 1 2 0 1 2 0 1 2\n");
}

// A command line the command cannot carry out: one line that says why, the exit code of its kind
// (2 for the command line, 1 for what it finds), and no file written, not even a temporary one.
TEST_F(VxisoCommand, BadCommandLinesGiveOneLineAndWriteNothing)
{
    spit(path("sphere.raw"), sphereValues());
    writeSphereAndMask();
    spit(path("small.nrrd"), "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 15 14 12\nencoding: raw\n\n" +
                                 std::string(15 * 14 * 12, '\1'));
    NiftiFile nifti;
    nifti.dim[1] = 15, nifti.dim[2] = 14, nifti.dim[3] = 13, nifti.gz = true;
    nifti.values = sphereValues();
    spit(path("cut.nii.gz"), slurp(writeNifti(nifti, path("s"))).substr(0, 3000));
    spit(path("r.vtk"), "# vtk DataFile Version 3.0\nr\nASCII\nDATASET RECTILINEAR_GRID\nDIMENSIONS 2 2 2\n"
                        "X_COORDINATES 2 float\n0 1\nY_COORDINATES 2 float\n0 3\nZ_COORDINATES 2 float\n0 1\n"
                        "POINT_DATA 8\nSCALARS v float 1\nLOOKUP_TABLE default\n0 1 0 1 0 1 0 1\n");
    spit(path("two.vxblocks"), "# vxblocks 1\nblock s.nrrd\nblock s.nrrd\n");
    writeSmallMeshes(path(""));
    spit(path("out.ply"), "precious");
    const QStringList before = entries();

    const std::string raw = "surface --raw sphere.raw --dims 15 14 13 --type float32 ";
    const std::string sphere = "surface --field sphere --size 8 -t 0 ";
    const struct
    {
        std::string args;
        int status;
        std::string message;
    } cases[] = {
        {"surface --raw missing.raw --dims 4 4 4 --type uint8 -t 1", 1,
         "missing.raw: No such file or directory"},
        {"surface --raw sphere.raw --dims 15 14 14 --type float32 -t 0", 1,
         "file holds 10920 bytes, but 15x14x14 float32"},
        {"surface --raw sphere.raw --dims 99 9 9 --type uint8 -t 0", 1, "file holds 10920 bytes"},
        {raw + "--type complex -t 0", 2, "unknown value type 'complex'"},
        {raw + "-t nan", 2, "-t must be a finite number, not 'nan'"},
        {"surface --raw sphere.raw --dims 15 0 13 --type float32 -t 0", 1, "dimensions must be positive"},
        {raw, 2, "no threshold"},
        {"surface --field cube --size 8 -t 0", 1, "unknown built-in field 'cube'"},
        {"surface --field sphere -t 0", 2, "--field needs --size N"},
        {sphere + "--compactify --snap 0.3", 2, "--snap is gone"},
        {sphere + "--downsample 2 0 2", 2, "--downsample takes three factors of 1 or more, not 0"},
        {sphere + "--cores 0", 2, "--cores takes 1 to 4096 threads, not 0"},
        // Options are checked before anything is read, and no error shows the commands run inside.
        {sphere + "--cores 99999999999", 2, "--cores takes 1 to 4096 threads, not 99999999999"},
        {sphere + "--slabs 0", 2, "--slabs takes 1 to 1073741824 slabs, not 0"},
        {sphere + "--slabs 2 --cores 1", 2, "--slabs cuts the volume for the parallel path"},
        {sphere + "--slabs 8 -o s.ply", 1, "cannot cut the 7 cell layers along x into 8 slabs"},
        {"surface tet.vtk -t 2 --slabs 2", 2, "--slabs cuts a regular volume into slabs, not a mesh"},
        {"surface --raw missing.raw --dims 4 4 4 --type uint8 -t 1 --png p.png --view 0 0 0", 2,
         "--view 0 0 0 is not a direction"},
        {sphere + "--up 0 0 2", 2, "--up 0 0 2 runs along --view 0 0 -1"},
        {sphere + "-o no/such/dir.ply", 1, "cannot write no/such/dir.ply"},
        {"surface s.dcm --dims 1 1 1 --type uint8 -t 0", 1, "s.dcm: No such file or directory"},
        {"surface cut.nii.gz -t 0", 1, "error: cut.nii.gz: gzip stream ends after "},
        {"surface s.nii.gz --dims 15 14 13 -t 0", 2, "carries its own description"},
        {"info s.nrrd -t 3", 2, "option -t belongs to 'vxiso surface', not 'vxiso info'"},
        {"surface r.vtk -t 0.5 --downsample 2 2 2", 2, "--downsample needs a volume on uniform coordinates"},
        {"surface two.vxblocks -t 0 --pad", 2, "--pad does not apply to a multi-block field"},
        {"surface --labels m.nrrd --label 7", 1, "no voxel has the label 7"},
        {"surface --labels m.nrrd -t 1", 2, "with --labels the surface follows label borders"},
        {"surface m.nrrd --label 1 -t 0", 2, "--label N chooses a label of a label volume; add --labels"},
        {"surface s.nrrd -t 0 --mask small.nrrd", 1,
         "the mask has 15 x 14 x 12 voxels but the volume has 15 x 14 x 13"},
        {"surface s.nrrd -t 0 --mask m.nrrd --mask-label 9", 1, "m.nrrd: no voxel has the label 9"},
        {"surface s.nrrd -t 0 --relaxed", 2, "--relaxed belongs to --mask LABELS"},
        {"surface s.nrrd -t 0 --mask nothing.nrrd", 1, "nothing.nrrd"},
        {"surface tet.vtk -t 2 --blocky", 2,
         "--blocky applies to hexahedral meshes with values per cell; "
         "tet.vtk holds tetrahedra"},
        {"surface hex.vtk -t 2 --blocky", 2, "hex.vtk has values per node"},
        {"surface hex.vtk -t 2 --scalars v", 1,
         "hex.vtk: holds no one-component field named 'v'; it holds heat, x"},
        {"surface past.vtk -t 2", 1, "past.vtk: cell 1 refers to node 5, but there are 5 nodes"},
        {"isolines s.nrrd --values 0 -o l.vtk", 2, "no slice: give --slice"},
        {"isolines s.nrrd --slice z --plane 0 0 0 0 0 1 --values 0 -o l.vtk", 2, "either --slice or --plane"},
        {"isolines s.nrrd --slice z -o l.vtk", 2, "no iso values"},
        {"isolines s.nrrd --slice z 13 --values 0 -o l.vtk", 2, "the volume has 13 nodes along z (0 to 12)"},
        {"isolines tet.vtk --slice z 0 --values 0 -o l.vtk", 2, "INDEX counts the nodes of a uniform"},
        {"isolines s.nrrd --plane 1 2 3 0 0 0 --values 0 -o l.vtk", 2, "the normal 0 0 0 has no direction"},
        {"isolines s.nrrd --slice z --uniform 0 1 0 -o l.vtk", 2,
         "--uniform takes N of 1 to 200 values, not 0"},
        {"isolines s.nrrd --slice z --values 0 --resolution 9 -o l.vtk", 2, "--resolution takes 16 to 4096"},
        {"isolines s.nrrd --slice z --values 0 -o l.ply", 2,
         "contour lines are written as .vtk, .iv or .svg"},
        {"isolines s.nrrd --slice z --values 1 -o s.nrrd.svg --png s.nrrd", 2, "--png writes PNG pictures"},
        {"isolines --labels m.nrrd --slice z --values 1 -o l.vtk", 2, "--labels reads label volumes"},
        {"isolines s.nrrd --slice z --values 1 --every 2 1 -o l.vtk", 2, "shape the labels of --annotate"},
        {"contours s.nrrd --slice z --values 1", 2, "no output: give -o FILE or --png PICTURE"},
        {"contours s.nrrd --slice z --values 1 -o c.vtk", 2, "a contoured slice is written as .iv or .svg"},
        {"contours s.nrrd --slice z --values 1 --colormap jet -o c.iv", 2, "--colormap is grey, viridis"},
        {"contours s.nrrd --slice z --values 1 --decimals 16 -o c.iv", 2, "--decimals takes 0 to 15, not 16"},
        {"contours s.nrrd --slice z --values 1 --annotate -o c.iv", 2, "option --annotate belongs to"},
        {"isolines s.nrrd --slice z --values 1 --annotate --font Serif 0 -o l.vtk", 2,
         "--font takes a size of 1"},
    };
    for (const auto& c : cases) {
        const bool surface = c.args.rfind("surface", 0) == 0;
        const Result r =
            vxiso(c.args + (surface && c.args.find(" -o ") == std::string::npos ? " -o out.ply" : ""));
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("vxiso: error: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
    }
    // A failed run leaves an existing output as it was, and nothing else appears.
    EXPECT_EQ(slurp(path("out.ply")), "precious");
    QStringList after = before + QStringList{"stderr.txt", "stdout.txt"};
    after.sort();
    EXPECT_EQ(entries(), after);
}

// Contour lines of the sphere on its middle slice across z (index space: a circle of radius
// sqrt(5.3^2 - 0.4^2) around (7.2, 6.9)), in each format: one closed line repeating its first point,
// its value as cell data, the same points in every file; a second value lies inside the first.
TEST_F(VxisoCommand, IsolinesWriteTheSameClosedLinesInEveryFormat)
{
    writeSphereAndMask();
    const Result r = vxiso("isolines s.nrrd --slice z --values 0 2 --verbose -o l.vtk");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_search(r.out, m,
                                  std::regex("Contour lines: 2 lines, (\\d+) points at 2 iso values\n"
                                             "  0: 1 lines, (\\d+) points\n  2: 1 lines, \\d+ points\n")))
        << r.out;
    const int total = std::stoi(m[1]), first = std::stoi(m[2]);

    std::istringstream vtk(slurp(path("l.vtk")));
    std::string word;
    int points = 0;
    while (vtk >> word && word != "POINTS") {
    }
    vtk >> points >> word;
    ASSERT_EQ(points, total);
    std::vector<KxVec3f> p(std::size_t(points), KxVec3f(0, 0, 0));
    for (KxVec3f& q : p) vtk >> q.x >> q.y >> q.z;
    int lines = 0, size = 0, n = 0;
    vtk >> word >> lines >> size >> n;
    ASSERT_EQ(word + std::to_string(lines) + " " + std::to_string(n), "LINES2 " + std::to_string(first));
    std::vector<int> line(static_cast<std::size_t>(n));
    for (int& i : line) vtk >> i;
    EXPECT_EQ(p[std::size_t(line.front())], p[std::size_t(line.back())]);
    for (int i : line) {
        const KxVec3f q = p[std::size_t(i)]; // spacing 0.5 2 1
        EXPECT_NEAR(std::hypot(q.x / 0.5 - 7.2, q.y / 2 - 6.9), std::sqrt(5.3 * 5.3 - 0.4 * 0.4), 0.05) << i;
        EXPECT_EQ(q.z, 6.f);
    }
    const std::string text = slurp(path("l.vtk"));
    EXPECT_NE(text.find("CELL_DATA 2\nSCALARS value float\nLOOKUP_TABLE default\n0\n2\n"), std::string::npos);

    // The scene holds the same points; the drawing one polyline a line, grouped by value, and a legend.
    ASSERT_EQ(vxiso("isolines s.nrrd --slice z --values 0 2 -o l.iv").status, 0);
    const std::string iv = slurp(path("l.iv"));
    EXPECT_NE(iv.find("LineSet"), std::string::npos);
    EXPECT_NE(iv.find("numVertices [ " + std::to_string(first) + ","), std::string::npos)
        << iv.substr(0, 3000);
    ASSERT_EQ(vxiso("isolines s.nrrd --slice z --values 2 0 -o l.svg").status, 0);
    const std::string svg = slurp(path("l.svg"));
    EXPECT_NE(svg.find("<g data-value=\"0\""), std::string::npos);
    EXPECT_NE(svg.find("<g data-value=\"2\""), std::string::npos);
    const std::regex polyline("<polyline");
    EXPECT_EQ(std::distance(std::sregex_iterator(svg.begin(), svg.end(), polyline), std::sregex_iterator()),
              2);
    EXPECT_TRUE(std::regex_search(svg, std::regex(">2</text>\n[^\n]*\n[^\n]*>0</text>")))
        << "legend, top down";
    EXPECT_NE(svg.find("data:image/png;base64,"), std::string::npos);

    // A script that runs the module on the same slice writes the same file.
    const Result script = vxhostScript(
        "load s.nrrd s\ncreate VxOrthoSlice slice\nslice data connect s\nslice fire\ncreate VxIsolines c\n"
        "c data connect s\nc slice connect slice\nc spacing setValue 1\nc explicit setValue {0 2}\nc quality "
        "setValue 1\n"
        "c fire\n"
        "[c exportAsLineSet] exportData vtk h.vtk\n");
    ASSERT_EQ(script.status, 0) << script.err;
    EXPECT_EQ(slurp(path("h.vtk")), text);
}

// Labels reach the scene and the drawing alike: one text of the drawing for each label node of the
// scene, at the same places, and those of the chosen values only.
TEST_F(VxisoCommand, IsolineLabelsReachTheSceneAndTheDrawing)
{
    writeSphereAndMask();
    const std::string labels =
        "isolines s.nrrd --slice z --values 0 1 2 --annotate --every 2 1 --text-scale 0.02 ";
    ASSERT_EQ(vxiso(labels + "--camera-aligned -o l.iv").status, 0);
    ASSERT_EQ(vxiso(labels + "--camera-aligned -o l.svg").status, 0);
    const std::string iv = slurp(path("l.iv")), svg = slurp(path("l.svg"));
    auto count = [](const std::string& text, const std::string& pattern) {
        const std::regex re(pattern);
        return std::distance(std::sregex_iterator(text.begin(), text.end(), re), std::sregex_iterator());
    };
    const auto placed = count(iv, "Translation \\{");
    EXPECT_GT(placed, 1);
    EXPECT_EQ(count(iv, "Text3FacingCamera \\{"), 2) << "one text node for each labelled line";
    EXPECT_EQ(count(iv, "string \"1\""), 0) << "every 2nd value from the 1st: 0 and 2";
    EXPECT_EQ(count(svg, "<text [^>]*font-size=\"[^>]*>(0|2)</text>"), placed);
    EXPECT_EQ(count(svg, "<text [^>]*transform="), 0) << "labels that face the viewer stand upright";
    // The scene loads again in the host, its labels as the package's own nodes.
    spit(path("bad.iv"), "#Inventor V2.1 ascii\nSeparator { Bogus { } }\n");
    const Result host = vxhostScript("load l.iv lines\nputs [all]\ncatch {load bad.iv b} why\nputs $why\n");
    EXPECT_EQ(host.status, 0) << host.err;
    EXPECT_EQ(host.out.substr(0, 6), "lines\n");
    EXPECT_NE(host.out.find("Bogus"), std::string::npos) << host.out;
    ASSERT_EQ(vxiso(labels + "--contour-clip -o c.svg").status, 0);
    EXPECT_GT(count(slurp(path("c.svg")), "<text [^>]*transform=\"rotate"), 0)
        << "labels along the lines turn";
    EXPECT_GT(count(slurp(path("c.svg")), "<polyline"), count(svg, "<polyline")) << "lines opened";
}

// The contoured slice: the lines of every value, labels on the chosen ones in the chosen format, the
// slice's picture in the drawing; the scene loads again in the host.
TEST_F(VxisoCommand, ContoursLabelTheChosenValuesInTheirFormat)
{
    writeSphereAndMask();
    const std::string args =
        "contours s.nrrd --slice z --values 1 3 --period 2 2 --format float --decimals 2 ";
    const Result r = vxiso(args + "--contour-clip --verbose -o c.svg");
    ASSERT_EQ(r.status, 0) << r.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_search(
        r.out, m, std::regex("  1: (\\d+) lines, 0 labels\n  3: (\\d+) lines, (\\d+) labels\n")))
        << r.out;
    EXPECT_GT(std::stoi(m[3]), 0);
    const std::string svg = slurp(path("c.svg"));
    // The labelled circle is opened under its labels: its polyline no longer ends where it starts.
    const std::size_t group = svg.find("<g data-value=\"3\"");
    ASSERT_NE(group, std::string::npos);
    const std::size_t from = svg.find("points=\"", group) + 8, to = svg.find('"', from);
    const std::string points = svg.substr(from, to - from);
    EXPECT_NE(points.substr(0, points.find(' ')), points.substr(points.rfind(' ') + 1)) << points;
    EXPECT_NE(svg.find(">3.00</text>"), std::string::npos);
    EXPECT_EQ(svg.find(">1.00</text>"), std::string::npos);
    EXPECT_NE(svg.find("data:image/png;base64,"), std::string::npos);
    ASSERT_EQ(vxiso(args + "-o c.iv").status, 0);
    const std::string iv = slurp(path("c.iv"));
    for (const char* node :
         {"PoCartesianGrid2D", "PoNonLinearDataMapping", "PoMeshContouring", "SoAnnoText3Property"})
        EXPECT_NE(iv.find(node), std::string::npos) << node;
    const Result host = vxhostScript("load c.iv scene\nputs [all]\n");
    EXPECT_EQ(host.status, 0) << host.err;
    EXPECT_EQ(host.out, "scene\n");
}

// --verbose tells what the engine ran on: the nodes (fewer when down-sampled), the split into slabs
// for the cores, and the time.
TEST_F(VxisoCommand, VerboseReportsTheEngineRun)
{
    const Result seq = vxiso("surface --field gyroid --size 80 -t 0 --cores 1 --verbose -o s.ply");
    const Result par = vxiso("surface --field gyroid --size 80 -t 0 --cores 2 --verbose -o p.ply");
    ASSERT_EQ(seq.status, 0) << seq.err;
    ASSERT_EQ(par.status, 0) << par.err;
    EXPECT_TRUE(
        std::regex_search(seq.out, std::regex("\nextracted from: 80 x 80 x 80 nodes\nsplit axis: none "
                                              "\\(sequential\\)\nslabs: 1\nengine time: [0-9.]+ ms\n")))
        << seq.out;
    EXPECT_TRUE(
        std::regex_search(par.out, std::regex("\nsplit axis: x\nslabs: [0-9]+\nengine time: [0-9.]+ ms\n")));
    EXPECT_EQ(firstLine(seq.out), firstLine(par.out));
    EXPECT_TRUE(seq.err.empty()); // no progress bar when stderr is not a terminal
    // --slabs: exactly that many, whatever the cores; the surface stays the same.
    const Result cut = vxiso("surface --field gyroid --size 80 -t 0 --slabs 7 --cores 2 --verbose -o c.ply");
    EXPECT_NE(cut.out.find("\nsplit axis: x\nslabs: 7\n"), std::string::npos) << cut.out;
    EXPECT_EQ(triangleSet(ply("c.ply")), triangleSet(ply("p.ply")));
    // A factor above half its axis is lowered by the module, and the command says so.
    const Result low = vxiso("surface --field gyroid --size 80 -t 0 --downsample 2 4 60 --verbose -o l.ply");
    ASSERT_EQ(low.status, 0) << low.err;
    EXPECT_NE(low.out.find("\nextracted from: 40 x 20 x 2 nodes\n"), std::string::npos) << low.out;
    EXPECT_EQ(low.err, "vxiso: note: --downsample 60 on z is more than half the axis; the module used 40\n");
}

TEST_F(VxisoCommand, TerminalShowsAProgressBarOnStderr)
{
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no 'script' to fake a terminal";
    // script gives the command a terminal and copies what it writes there to the log.
    ASSERT_EQ(
        shell("script -qec '" + kBin + "vxiso surface --field torus --size 40 -t 0 -o t.ply' tty.log").status,
        0);
    const std::string shown = slurp(path("tty.log"));
    EXPECT_NE(shown.find("Computing Isosurface... ["), std::string::npos) << shown;
    EXPECT_NE(shown.find("] 100%"), std::string::npos) << shown;
    EXPECT_NE(shown.find("Isosurface contains"), std::string::npos) << shown;
}

TEST_F(VxisoCommand, InfoPrintsWhatTheFileHolds)
{
    spit(path("v.nrrd"),
         "NRRD0004\ntype: short\ndimension: 3\nsizes: 3 2 2\nencoding: ascii\nspacings: 0.5 2 1.25\n"
         "axis mins: 10 -4 3\n\n-7 1 2 3 4 5 6 7 8 9 10 300\n");
    const Result r = vxiso("info v.nrrd --undefined 300");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "file: v.nrrd\nformat: NRRD\ndimensions: 3 x 2 x 2\ncoordinates: uniform\n"
              "spacing: 0.5 2 1.25\norigin: 10 -4 3\nbounding box: 10 11 -4 -2 3 4.25\ntransform: none\n"
              "type: int16\nvalue range: -7 10\nundefined value: 300\n");
    const Result labels = vxiso("info --labels v.nrrd");
    ASSERT_EQ(labels.status, 0) << labels.err;
    EXPECT_NE(
        labels.out.find("type: int32 labels\nlabel range: -7 300\nlabels: 12 besides the background 0\n"),
        std::string::npos)
        << labels.out;
}

// A label volume: two boxes of labels 1 and 2 in a 12^3 volume; --labels wraps the chosen one.
TEST_F(VxisoCommand, LabelsWrapTheChosenLabel)
{
    std::string labels(12 * 12 * 12, '\0');
    for (int k = 2; k < 10; ++k)
        for (int j = 2; j < 10; ++j)
            for (int i = 2; i < 10; ++i) labels[std::size_t((k * 12 + j) * 12 + i)] = char(i < 6 ? 1 : 2);
    spit(path("l.nrrd"), "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 12 12 12\nencoding: raw\n\n" + labels);
    ASSERT_EQ(vxiso("surface --labels l.nrrd -o all.ply").status, 0);
    const Result two = vxiso("surface --labels l.nrrd --label 2 -o two.ply");
    ASSERT_EQ(two.status, 0) << two.err;
    const TestMesh m = ply("two.ply");
    EXPECT_GT(m.numPoints(), 0);
    EXPECT_LT(m.numPoints(), ply("all.ply").numPoints());
    EXPECT_TRUE(isWatertight(m));
    // Label 2 fills x = 6..9: its wrap lies between the half-way planes around it.
    const KxBox3f box = boundsOf(m);
    EXPECT_GE(box.xmin, 5.5f);
    EXPECT_LE(box.xmax, 9.5f);
}

// A ball cut by the volume's border leaves a hole there, which --pad closes.
TEST_F(VxisoCommand, PadClosesSurfacesAtTheBorder)
{
    std::vector<float> v;
    for (int k = 0; k < 12; ++k)
        for (int j = 0; j < 12; ++j)
            for (int i = 0; i < 12; ++i)
                v.push_back(float(5.5 - std::sqrt(i * i + (j - 6) * (j - 6) + (k - 6) * (k - 6))));
    spit(path("b.raw"), std::string(reinterpret_cast<const char*>(v.data()), 4 * v.size()));
    const std::string in = "surface --raw b.raw --dims 12 12 12 --type float32 --spacing 2 2 2 -t 0 ";
    ASSERT_EQ(vxiso(in + "-o open.ply").status, 0);
    EXPECT_FALSE(isWatertight(ply("open.ply")));
    const Result padded = vxiso(in + "--pad -o closed.ply");
    ASSERT_EQ(padded.status, 0) << padded.err;
    EXPECT_TRUE(isWatertight(ply("closed.ply")));
    // The lid sits half a voxel outside the volume's first plane x = 0.
    const float lowest = boundsOf(ply("closed.ply")).xmin;
    EXPECT_LT(lowest, 0.f);
    EXPECT_GE(lowest, -2.f);

    // A single slice keeps its thickness: info reports it, and padding gives a slab, not a flat mesh.
    spit(path("s.raw"), std::string(reinterpret_cast<const char*>(v.data() + 6 * 144), 4 * 144));
    const std::string slice = "--raw s.raw --dims 12 12 1 --type float32 --spacing 2 2 3 ";
    EXPECT_NE(vxiso("info " + slice).out.find("spacing: 2 2 3\n"), std::string::npos);
    ASSERT_EQ(vxiso("surface " + slice + "-t 0 --pad -o slab.ply").status, 0);
    const KxBox3f slab = boundsOf(ply("slab.ply"));
    EXPECT_GT(slab.zmax - slab.zmin, 2.f);
    EXPECT_LT(slab.zmax - slab.zmin, 6.f);
}

// The command runs the isosurface modules as a network script does: the same settings give the
// same file, byte for byte, and the same report.
TEST_F(VxisoCommand, CommandAndScriptWriteTheSameSurface)
{
    writeSphereAndMask();
    const struct
    {
        std::string options, module, ports;
    } cases[] = {
        {"-t 0", "VxIsosurface", "iso options setValue 0 0\niso threshold setValue 0\n"},
        {"-t 0.5 --compactify --cores 1", "VxIsosurface",
         "iso numberOfCores setValue 1\niso threshold setValue 0.5\n"},
        {"-t -1 --downsample 2 2 1", "VxIsosurface",
         "iso options setValue 0 0\niso threshold setValue -1\niso downSampleOnOff setValue 1\n"
         "iso resolution setValue 1 2\niso resolution setValue 2 1\n"},
        // Every label of the mask, or the one chosen; strict, or relaxed.
        {"-t 0 --mask m.nrrd", "VxMaskedLabelIsosurface",
         "load -labels m.nrrd m\niso mask connect m\niso options setValue 0 0\niso threshold setValue 0\n"},
        {"-t 0 --mask m.nrrd --mask-label 1 --relaxed --compactify", "VxMaskedLabelIsosurface",
         "load -labels m.nrrd m\nm keepLabel 1\niso mask connect m\niso maskRestrictionType setIndex 1\n"
         "iso threshold setValue 0\n"},
    };
    for (const auto& c : cases) {
        const Result command = vxiso("surface s.nrrd " + c.options + " -o c.ply");
        ASSERT_EQ(command.status, 0) << c.options << ": " << command.err;
        const Result script =
            vxhostScript("load s.nrrd vol\ncreate " + c.module + " iso\niso data connect vol\n" + c.ports +
                         "iso doIt hit\niso fire\niso exportData ply s.ply\n");
        ASSERT_EQ(script.status, 0) << c.options << ": " << script.err;
        EXPECT_EQ(firstLine(command.out), firstLine(script.out)) << c.options;
        EXPECT_GT(slurp(path("c.ply")).size(), 200u) << c.options;
        EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply"))) << c.options;
    }
}

// The command needs the package; without it, one line says where it looked.
TEST_F(VxisoCommand, MissingPackageIsNamed)
{
    ASSERT_EQ(shell("cp " + kBin + "vxiso vxiso").status, 0);
    const Result r = shell("env -u VXHOST_PACKAGE_PATH " + path("vxiso") +
                           " surface --field sphere --size 8 -t 0 -o x.ply");
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.err, "vxiso: error: the package libvxiso.so is not in " + dir.path().toStdString() +
                         "; add its folder to VXHOST_PACKAGE_PATH\n");
    EXPECT_FALSE(exists("x.ply"));
}

// The examples and the command agree on real anatomy: the skin of the head, and the left
// hippocampus cut out by the atlas.
TEST_F(VxisoCommand, ExamplesAndCommandAgreeOnTheHeadScan)
{
    const std::string templates = "/usr/share/mricron/templates/";
    if (!QFileInfo::exists(QString::fromStdString(templates + "aal.nii.gz")))
        GTEST_SKIP() << "mricron-data is not installed (apt-get install mricron-data)";
    const std::string examples = VXISO_SOURCE_DIR "/examples/";
    const std::string cases[][3] = {
        {"head-surface.tcl", "s.ply", "-t 3"},
        {"hippocampus-surface.tcl", "s.ply strict",
         "-t 80 --mask " + templates + "aal.nii.gz --mask-label 37"},
    };
    for (const auto& [example, args, options] : cases) {
        const Result script = vxhostScript(slurp(examples + example), args);
        ASSERT_EQ(script.status, 0) << example << ": " << script.err;
        const Result command =
            vxiso("surface " + templates + "ch2.nii.gz --compactify " + options + " -o c.ply");
        ASSERT_EQ(command.status, 0) << command.err;
        EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply"))) << options;
    }
}

// A multi-block description goes through the module's block path, as in a script; its blocks are
// listed by info.
TEST_F(VxisoCommand, MultiBlockFieldsTakeTheBlockPath)
{
    const std::string values = sphereValues();
    const std::size_t plane = 15 * 14 * 4;
    for (int b = 0; b < 2; ++b)
        spit(path(b ? "hi.nrrd" : "lo.nrrd"),
             "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 7\nencoding: raw\nendian: little\n"
             "space dimension: 3\nspace directions: (1,0,0) (0,1,0) (0,0,1)\nspace origin: (0,0," +
                 std::to_string(6 * b) + ")\n\n" +
                 values.substr(6 * b * plane, 7 * plane)); // both hold z = 6
    spit(path("ball.vxblocks"), "# vxblocks 1\nblock lo.nrrd\nblock hi.nrrd\n");

    const Result command = vxiso("surface ball.vxblocks -t 0 -o c.ply");
    ASSERT_EQ(command.status, 0) << command.err;
    EXPECT_TRUE(std::regex_search(command.out,
                                  std::regex("\nblock 0 # of triangles: \\d+\n(.*\n)?block 1 # of coords: ")))
        << command.out;
    const Result script =
        vxhostScript("load ball.vxblocks ball\ncreate VxIsosurface iso\niso data connect ball\n"
                     "iso options setValue 0 0\niso threshold setValue 0\niso doIt hit\n"
                     "iso fire\niso exportData ply s.ply\n");
    ASSERT_EQ(script.status, 0) << script.err;
    EXPECT_GT(slurp(path("c.ply")).size(), 1000u);
    EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply")));

    const Result info = vxiso("info ball.vxblocks");
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("format: multi-block description\nblocks: 2\n"
                            "block 0: 15 x 14 x 7 float32, uniform coordinates, box 0 14 0 13 0 6\n"
                            "block 1: 15 x 14 x 7 float32, uniform coordinates, box 0 14 0 13 6 12\n"),
              std::string::npos)
        << info.out;
}

// What info prints for meshes; a threshold outside the values (the regular path's warning) and a
// field without numbers give an empty surface.
TEST_F(VxisoCommand, MeshInfoAndEmptySurfaces)
{
    writeSmallMeshes(path(""));
    const std::string empty = "Isosurface contains 0 triangles\nElapsed time: ";
    const std::string cases[][3] = {
        {"info neg.vtk",
         "file: neg.vtk\nformat: VTK legacy unstructured grid\ncells: 2 tetrahedra\nnodes: 5\nnegatively "
         "oriented tetrahedra: 2\nencoding: one value per node\nvalue range: 0 4\nbounding box: 0 1 0 1 0 1\n"
         "note: the field is \"v\" (float, one value per node)\n",
         ""},
        {"info hex.vtk --scalars heat",
         "file: hex.vtk\nformat: VTK legacy unstructured grid\ncells: 2 hexahedra\nnodes: 12\nencoding: one "
         "value per cell\nvalue range: 0 2\nbounding box: 0 2 0 1 0 1\nnote: the field is \"heat\" (float, "
         "one value per cell); --scalars NAME chooses another: x\n",
         ""},
        {"surface tet.vtk -t 7 -o c.ply", empty,
         "vxiso: warning: -t 7 lies outside the values 0 to 4; the surface is empty\n"},
        {"surface nan.vtk -t 2 -o n.ply", empty, ""},
    };
    for (const auto& [args, out, err] : cases) {
        const Result r = vxiso(args);
        EXPECT_EQ(r.status, 0) << args;
        // info's output whole, a surface's up to its time
        EXPECT_EQ(r.out.substr(0, std::max(out.size(), r.out.find("Elapsed"))), out) << args;
        EXPECT_EQ(r.err, err) << args;
    }
    EXPECT_EQ(ply("c.ply").numTriangles() + ply("n.ply").numTriangles(), 0);
}

// Tetrahedral surfaces keep the orientation rule in the file: normals towards the values at or
// above the threshold in positive tetrahedra, away from them in negative ones. Hexahedral cell
// values are averaged to the nodes (1 between 0 and 2) unless --blocky, whose surface is the face
// between the cells. A script that loads the mesh writes the same file as the command.
TEST_F(VxisoCommand, MeshSurfacesFollowTheOrientationRuleAndTheCellValues)
{
    writeSmallMeshes(path(""));
    const struct
    {
        std::string args;
        int triangles, sign; // sign: of each normal's dot product with (1, 2, 3); 0: not checked
        float x;             // where every vertex of a triangle lies; NaN: anywhere
        bool script;         // compare with a script's load
    } cases[] = {
        {"tet.vtk -t 2.5", 3, 1, NAN, true},
        {"neg.vtk -t 2.5", 3, -1, NAN, true},
        {"neg.vtk -t 0.5", 1, -1, NAN, false},
        {"hex.vtk -t 0.5", 2, 0, 0.5f, true},
        {"hex.vtk -t 0.5 --scalars heat", 2, 0, 0.5f, false},
        {"hex.vtk -t 0.5 --scalars heat --blocky", 2, 0, 1.f, false},
    };
    for (const auto& c : cases) {
        const Result r = vxiso("surface " + c.args + " -o c.ply");
        ASSERT_EQ(r.status, 0) << c.args << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        const bool hexa = c.args[0] == 'h';
        EXPECT_EQ(firstLine(r.out),
                  "Isosurface contains " + std::to_string(c.triangles) + " triangles" + (hexa ? "." : ""));
        const TestMesh m = ply("c.ply");
        EXPECT_EQ(m.numTriangles(), c.triangles) << c.args;
        for (std::size_t t = 0; t < std::size_t(m.numTriangles()); ++t) {
            const KxVec3i i = m.triangle(t);
            const KxVec3f a = m.point(std::size_t(i.x)), b = m.point(std::size_t(i.y)),
                          d = m.point(std::size_t(i.z));
            EXPECT_TRUE(!c.sign || c.sign * (b - a).cross(d - a).dot(KxVec3f(1, 2, 3)) > 0) << c.args << t;
            EXPECT_TRUE(c.x != c.x || (a.x == c.x && b.x == c.x && d.x == c.x)) << c.args << " " << t;
        }
        if (!c.script) continue;
        const Result script = vxhostScript(
            "load " + c.args.substr(0, 7) + " mesh\ncreate " + (hexa ? "VxIsoHexa" : "VxIsoTetra") +
            " iso\niso data connect mesh\niso threshold setValue " + c.args.substr(11) + "\niso " +
            (hexa ? "doIt" : "action") + " hit\niso fire\niso exportData ply s.ply\n");
        ASSERT_EQ(script.status, 0) << c.args << ": " << script.err;
        EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply"))) << c.args;
    }
}

// Against VTK on a ball that gmsh meshed: one vertex per edge whose ends lie on either side of the
// threshold (at or above, below), the edges as vtkExtractEdges finds them; and closed.
TEST_F(VxisoCommand, GmshBallHasOneVertexPerEdgeVtkFindsCut)
{
    if (std::system("gmsh -version >/dev/null 2>&1") != 0) GTEST_SKIP() << "gmsh is not installed";
    spit(path("ball.geo"),
         "SetFactory(\"OpenCASCADE\");\nSphere(1) = {0, 0, 0, 1};\nMesh.MeshSizeMax = 0.1;\n");
    ASSERT_EQ(shell("gmsh -3 -format vtk ball.geo -o ball.vtk").status, 0);
    const std::string vtk = runVtk("cut " + path("ball.vtk") + " " + path("ball.vtu") + " 0.5");
    if (vtk.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    ASSERT_EQ(vxiso("surface ball.vtu -t 0.5 -o b.ply").status, 0);
    const TestMesh m = ply("b.ply");
    EXPECT_EQ(vtk, "cut " + std::to_string(m.numPoints()) + "\n");
    EXPECT_GT(m.numPoints(), 500);
    EXPECT_TRUE(isWatertight(m));
}

// The picture shows the surface in the middle of the background, looking the way it was told.
TEST_F(VxisoCommand, PngDrawsTheSurfaceOffScreen)
{
    // A flat slab: seen edge-on it is a thin line, seen face-on it fills the middle.
    std::string v;
    for (int k = 0; k < 20; ++k)
        for (int j = 0; j < 20; ++j)
            for (int i = 0; i < 20; ++i) {
                const float f = i > 2 && i < 17 && j > 2 && j < 17 && k > 8 && k < 11 ? 1.f : 0.f;
                v.append(reinterpret_cast<const char*>(&f), 4);
            }
    spit(path("slab.raw"), v);
    const std::string in =
        "surface --raw slab.raw --dims 20 20 20 --type float32 -t 0.5 -o s.ply --png s.png";
    const Result faceOn = vxiso(in);
    if (faceOn.err.find("no off-screen rendering") != std::string::npos) GTEST_SKIP() << faceOn.err;
    ASSERT_EQ(faceOn.status, 0) << faceOn.err;
    QImage picture(qpath("s.png"));
    ASSERT_EQ(picture.size(), QSize(800, 600));
    const QRgb background = picture.pixel(0, 0);
    EXPECT_EQ(picture.pixel(799, 599), background);
    EXPECT_NE(picture.pixel(400, 300), background);
    EXPECT_NE(picture.pixel(400, 160), background) << "face on, the slab fills most of the height";

    ASSERT_EQ(vxiso(in + " --view 1 0 0 --up 0 0 1").status, 0);
    picture.load(qpath("s.png"));
    EXPECT_NE(picture.pixel(400, 300), background);
    EXPECT_EQ(picture.pixel(400, 160), background) << "edge on, the slab is a thin bar across the middle";

    const Result script = vxhostScript("snapshot x.png -size 8 8\n");
    EXPECT_NE(script.status, 0);
    EXPECT_NE(script.err.find("snapshot: -size \"8\" is not a size of 16 to 8192 pixels"), std::string::npos)
        << script.err;
}

// An output that is a file the run reads, under any name, is refused before anything is read (so
// the files need no more than the names their headers give).
TEST_F(VxisoCommand, RefusesToWriteOverItsInputs)
{
    const char* files[][2] = {
        {"v.vtk", "volume"}, {"m.nrrd", "mask"},  {"d.nhdr", "NRRD0004\ndata file: d.raw\n"},
        {"d.raw", "values"}, {"p.hdr", "header"}, {"p.img", "image"},
        {"old.ply", "mesh"}};
    for (const auto& f : files) spit(path(f[0]), f[1]);
    const char* links[][2] = {{"v.vtk", "link.ply"},  {"m.nrrd", "mask.ply"}, {"d.raw", "data.ply"},
                              {"p.img", "image.stl"}, {"old.ply", "pic.png"}, {"v.vtk", "input.png"}};
    for (const auto& l : links) ASSERT_EQ(::symlink(path(l[0]).c_str(), path(l[1]).c_str()), 0);
    ASSERT_EQ(::link(path("v.vtk").c_str(), path("hard.vtk").c_str()), 0);

    const std::string v = path("v.vtk");
    const std::pair<std::string, std::string> cases[] = {
        {v + " -o " + v, "-o " + v + " would replace " + v + ", which this run reads"},
        {v + " -o " + path("link.ply"), "would replace " + v},
        {v + " -o " + path("hard.vtk"), "would replace " + v},
        {v + " --mask " + path("m.nrrd") + " -o " + path("mask.ply"), "would replace " + path("m.nrrd")},
        {path("d.nhdr") + " -o " + path("data.ply"), "would replace " + path("d.raw")},
        {path("p.hdr") + " -o " + path("image.stl"), "would replace " + path("p.img")},
        {v + " -o " + path("old.ply") + " --png " + path("pic.png"),
         "--png " + path("pic.png") + " and -o " + path("old.ply") + " are the same file"},
        {v + " -o " + path("x.ply") + " --png " + path("input.png"),
         "--png " + path("input.png") + " would replace " + v},
    };
    for (const auto& [args, message] : cases) {
        const Result r = vxiso("surface " + args + " -t 0");
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(message), std::string::npos) << "expected '" << message << "' in: " << r.err;
    }
    for (const auto& f : files) EXPECT_EQ(slurp(path(f[0])), f[1]);
    EXPECT_FALSE(exists("x.ply"));
}

// Values the engine would handle unlike the user expects are named before the run: infinities,
// which --undefined leaves out, and integers or doubles that single precision rounds onto the
// threshold. Nothing is said when nothing is at stake, and no file ever holds a NaN.
TEST_F(VxisoCommand, ValuesTheEngineCannotTellApartAreNamed)
{
    // Zero everywhere but two single nodes (2,2,2) and (5,5,5), each a small closed surface of 8
    // triangles when it alone lies above the threshold.
    auto spikes = [&](const char* name, auto a, auto b) {
        std::vector<decltype(a)> v(512, 0);
        v[2 * 64 + 2 * 8 + 2] = a;
        v[5 * 64 + 5 * 8 + 5] = b;
        spit(path(name), std::string(reinterpret_cast<const char*>(v.data()), sizeof a * v.size()));
        return "--raw " + std::string(name) + " --dims 8 8 8 ";
    };
    const std::string inf = spikes("inf.raw", INFINITY, 1.f) + "--type float32 ";
    const std::string i32 = spikes("i32.raw", int32_t(16777217), int32_t(16777217)) + "--type int32 ";
    const std::string f64 = spikes("f64.raw", 1.000000000001, 1.000000000001) + "--type float64 ";
    const struct
    {
        std::string args, err;
        int triangles; // -1: not checked
    } cases[] = {
        {inf + "-t 0.5",
         "vxiso: warning: the volume holds infinite values (1 of them, all inf); --undefined inf leaves them "
         "out of the surface\n",
         -1},
        {inf + "-t 0.5 --undefined inf", "", 8},
        {i32 + "-t 16777216.5",
         "vxiso: warning: values above -t 16777216.5 that round to it as floats (2 of them) count as "
         "below it, since the engine compares floats; -t 16777215 puts them above, -t 16777217 below\n",
         0},
        {i32 + "-t 16777215", "", 16},
        {f64 + "-t 1.0000000000001",
         "vxiso: warning: values above -t 1.0000000000001 that round to it as floats (2 of them) count as "
         "below it, since the engine compares floats; -t 0.9999999403953552 puts them above, -t "
         "1.000000000001 below\n",
         0},
    };
    for (const auto& c : cases) {
        std::remove(path("v.ply").c_str());
        const Result r = vxiso("surface " + c.args + " -o v.ply");
        EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << c.args;
        if (c.triangles >= 0) {
            EXPECT_EQ(r.err, c.err) << c.args;
            EXPECT_EQ(firstLine(r.out), "Isosurface contains " + std::to_string(c.triangles) + " triangles")
                << c.args;
        }
        if (!exists("v.ply")) continue;
        const TestMesh m = ply("v.ply");
        for (const std::vector<float>* v : {&m.coords, &m.normals})
            EXPECT_TRUE(std::all_of(v->begin(), v->end(), [](float f) { return std::isfinite(f); }))
                << c.args;
    }
}

// Memory that cannot be had ends the run with one line that says so, and writes nothing.
TEST_F(VxisoCommand, OutOfMemoryIsOneLine)
{
    const std::string head = "/usr/share/mricron/templates/ch2better.nii.gz";
    const std::pair<std::string, std::string> cases[] = {
        // The module's down-sampled copy (125 MiB) does not fit beside the field.
        {"--field sphere --size 320 -t 0 --downsample 1 1 1 --cores 1", "250000"},
        // The engine's arrays for a real head scan do not fit.
        {head + " -t 100.5", "200000"},
    };
    for (const auto& [args, kilobytes] : cases) {
        if (args.rfind(head, 0) == 0 && !QFileInfo::exists(QString::fromStdString(head)))
            continue; // needs mricron-data
        const Result r =
            shell("(ulimit -v " + kilobytes + "; " + kBin + "vxiso surface " + args + " -o out.ply)");
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("vxiso: error: out of memory", 0), 0u) << r.err;
        EXPECT_FALSE(exists("out.ply"));
    }
}

// A run ended by a signal while it writes (Ctrl-C, kill, a closed terminal) leaves no partial file
// and ends as the signal does.
TEST_F(VxisoCommand, SignalsWhileWritingLeaveNoFile)
{
    const std::string program = kBin + "vxiso", out = path("g.ply");
    auto temporaryFiles = [&] { return QDir(qpath("")).entryList({".*.tmp"}, QDir::Files | QDir::Hidden); };
    for (int sig : {SIGTERM, SIGHUP, SIGINT}) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // The run must start with the default actions, whatever the test's runner set.
            for (int s : {SIGTERM, SIGHUP, SIGINT}) std::signal(s, SIG_DFL);
            std::freopen("/dev/null", "w", stdout);
            std::freopen("/dev/null", "w", stderr);
            ::execl(program.c_str(), "vxiso", "surface", "--field", "gyroid", "--size", "200", "-t", "0",
                    "--ascii", "-o", out.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        int status = 0;
        pid_t ended = 0;
        while (temporaryFiles().isEmpty() && (ended = ::waitpid(pid, &status, WNOHANG)) == 0) ::usleep(1000);
        ASSERT_EQ(ended, 0) << "vxiso ended before it wrote";
        ::kill(pid, sig);
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig)
            << "signal " << sig << ", status " << status;
        EXPECT_TRUE(temporaryFiles().isEmpty()) << temporaryFiles().join(" ").toStdString();
        EXPECT_FALSE(exists("g.ply"));
    }
}
