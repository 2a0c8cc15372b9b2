// The vxiso command as a user runs it: what it prints, what it writes, how it fails.
#include <gtest/gtest.h>

#include <QImage>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct CommandResult
{
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

class VxisoCommand : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/vxiso-cmd-XXXXXX";
        m_dir = ::mkdtemp(tmpl);
    }
    void TearDown() override { std::system(("rm -rf " + m_dir).c_str()); }

    std::string path(const std::string& name) const { return m_dir + "/" + name; }

    // Runs a shell command with its output caught in the test's folder.
    CommandResult shell(const std::string& command, const std::string& outputs = "std") const
    {
        const std::string out = path(outputs + "out.txt"), err = path(outputs + "err.txt");
        CommandResult r;
        const int raw = std::system((command + " >" + out + " 2>" + err).c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(out);
        r.err = slurp(err);
        return r;
    }
    CommandResult vxiso(const std::string& args) const
    {
        return shell(std::string(VXISO_BINARY_DIR) + "/bin/vxiso " + args);
    }
    // Runs vxhost on a script in the test's folder.
    CommandResult vxhostScript(const std::string& script, const std::string& args = "") const
    {
        std::ofstream(path("net.tcl")) << script;
        return shell("cd " + m_dir + " && " + VXISO_BINARY_DIR + "/bin/vxhost net.tcl " + args, "host-");
    }

    // Writes a float32 sphere volume: value = radius - distance, so inside is above 0.
    std::string writeSphereRaw(int nx, int ny, int nz) const
    {
        std::vector<float> v;
        for (int k = 0; k < nz; ++k)
            for (int j = 0; j < ny; ++j)
                for (int i = 0; i < nx; ++i)
                    v.push_back(float(5.3 - std::sqrt((i - 7.2) * (i - 7.2) + (j - 6.9) * (j - 6.9) +
                                                      (k - 6.4) * (k - 6.4))));
        const std::string p = path("sphere.raw");
        FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(v.data(), sizeof(float), v.size(), f);
        std::fclose(f);
        return p;
    }

    // The sphere as s.nrrd (0.5 2 1 apart) and a label volume m.nrrd on the same nodes: label(n) on
    // the nodes with x < 7, background elsewhere. Returns the labels.
    template <class Label> std::string writeSphereAndMask(Label label) const
    {
        std::ofstream(path("s.nrrd"), std::ios::binary)
            << "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nendian: little\n"
               "spacings: 0.5 2 1\n\n"
            << slurp(writeSphereRaw(15, 14, 13));
        std::string labels(15 * 14 * 13, '\0');
        for (std::size_t n = 0; n < labels.size(); ++n) labels[n] = char(n % 15 < 7 ? label(n) : 0);
        std::ofstream(path("m.nrrd"), std::ios::binary)
            << "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nspacings: 0.5 2 1\n\n"
            << labels;
        return labels;
    }

    // Vertex and face counts and the vertices of a binary PLY.
    static void readPly(const std::string& file, std::size_t& nv, std::size_t& nf, std::vector<float>& xyz)
    {
        const std::string data = slurp(file);
        const std::size_t end = data.find("end_header\n");
        ASSERT_NE(end, std::string::npos);
        std::sscanf(data.c_str() + data.find("element vertex"), "element vertex %zu", &nv);
        std::sscanf(data.c_str() + data.find("element face"), "element face %zu", &nf);
        const char* p = data.data() + end + 11;
        ASSERT_EQ(data.size(), end + 11 + nv * 24 + nf * 13);
        xyz.clear();
        for (std::size_t v = 0; v < nv; ++v)
            for (int c = 0; c < 3; ++c) {
                float f;
                std::memcpy(&f, p + v * 24 + c * 4, 4);
                xyz.push_back(f);
            }
    }

    std::string m_dir;
};

int lines(const std::string& s)
{
    return int(std::count(s.begin(), s.end(), '\n'));
}

} // namespace

TEST_F(VxisoCommand, BuiltinFieldPrintsTheTriangleCountItWrites)
{
    const CommandResult r = vxiso("surface --field torus --size 48 -t 0 -o " + path("torus.ply"));
    ASSERT_EQ(r.status, 0) << r.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_search(r.out, m, std::regex("^Isosurface contains (\\d+) triangles\n")));
    EXPECT_TRUE(std::regex_search(r.out, std::regex("\nElapsed time: [0-9.]+ s\n")));
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("torus.ply"), nv, nf, xyz);
    EXPECT_EQ(std::to_string(nf), m[1].str());
    EXPECT_GT(nv, 1000u);
    EXPECT_TRUE(r.err.empty());
}

TEST_F(VxisoCommand, CompactifyPrintsThePercentageRemoved)
{
    const CommandResult plain = vxiso("surface --field sphere --size 40 -t 0 -o " + path("a.ply"));
    const CommandResult compact =
        vxiso("surface --field sphere --size 40 -t 0 --compactify -o " + path("b.ply"));
    ASSERT_EQ(compact.status, 0) << compact.err;
    std::smatch a, b;
    ASSERT_TRUE(std::regex_search(plain.out, a, std::regex("contains (\\d+) triangles")));
    ASSERT_TRUE(std::regex_search(
        compact.out, b,
        std::regex("^Isosurface contains (\\d+) triangles \\(([0-9]+\\.[0-9]{2})% less\\)\n")));
    const double total = std::stod(a[1]), kept = std::stod(b[1]);
    EXPECT_NEAR(std::stod(b[2]), 100.0 * (total - kept) / total, 0.006);

    // An empty result prints the plain zero line.
    const CommandResult none =
        vxiso("surface --field sphere --size 20 -t 5 --compactify -o " + path("c.ply"));
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out.substr(0, none.out.find('\n') + 1), "Isosurface contains 0 triangles\n");
}

TEST_F(VxisoCommand, RawVolumeHonoursSpacingAndOrigin)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const CommandResult r =
        vxiso("surface --raw " + raw +
              " --dims 15 14 13 --type float32 --spacing 0.5 2 1 --origin 10 -4 3 -t 0 -o " + path("s.ply"));
    ASSERT_EQ(r.status, 0) << r.err;
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("s.ply"), nv, nf, xyz);
    ASSERT_GT(nv, 0u);
    float lo[3] = {1e9f, 1e9f, 1e9f}, hi[3] = {-1e9f, -1e9f, -1e9f};
    for (std::size_t v = 0; v < nv; ++v)
        for (int c = 0; c < 3; ++c) {
            lo[c] = std::min(lo[c], xyz[3 * v + std::size_t(c)]);
            hi[c] = std::max(hi[c], xyz[3 * v + std::size_t(c)]);
        }
    // The sphere's extent (centre +- 5.3 nodes) scaled by the spacing and moved by the origin.
    const double centre[3] = {7.2, 6.9, 6.4}, spacing[3] = {0.5, 2, 1}, origin[3] = {10, -4, 3};
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(lo[c], origin[c] + (centre[c] - 5.3) * spacing[c], 0.3 * spacing[c]);
        EXPECT_NEAR(hi[c], origin[c] + (centre[c] + 5.3) * spacing[c], 0.3 * spacing[c]);
    }
}

TEST_F(VxisoCommand, BadInputGivesOneClearLineAndNoOutput)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const std::string out = path("out.ply");
    struct Case
    {
        std::string args, message;
    } cases[] = {
        {"--raw " + path("missing.raw") + " --dims 4 4 4 --type uint8 -t 1",
         "missing.raw: No such file or directory"},
        {"--raw " + raw + " --dims 15 14 14 --type float32 -t 0",
         "file holds 10920 bytes, but 15x14x14 float32"},
        {"--raw " + raw + " --dims 15 14 13 --type complex -t 0", "unknown value type 'complex'"},
        {"--raw " + raw + " --dims 15 14 13 --type float32 -t nan", "-t must be a finite number, not 'nan'"},
        {"--raw " + raw + " --dims 15 0 13 --type float32 -t 0", "dimensions must be positive"},
        {"--field cube --size 8 -t 0", "unknown built-in field 'cube'"},
        {"--field sphere -t 0", "--field needs --size N"},
        {"--raw " + raw + " --dims 15 14 13 --type float32", "no threshold"},
        {"--field sphere --size 8 -t 0 --compactify --snap 0.3", "--snap is gone"},
        {"--field sphere --size 8 -t 0 --downsample 2 0 2",
         "--downsample takes three factors of 1 or more, not 0"},
        // Options are checked before anything is read, and no error shows the commands run inside.
        {"--field sphere --size 8 -t 0 --cores 99999999999",
         "--cores takes 1 to 4096 threads, not 99999999999"},
        {"--raw " + path("missing.raw") + " --dims 4 4 4 --type uint8 -t 1 --png " + path("p.png") +
             " --view 0 0 0",
         "--view 0 0 0 is not a direction"},
        {"--field sphere --size 8 -t 0 --up 0 0 2", "--up 0 0 2 runs along --view 0 0 -1"},
    };
    for (const Case& c : cases) {
        const CommandResult r = vxiso("surface " + c.args + " -o " + out);
        EXPECT_NE(r.status, 0) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_EQ(r.err.rfind("vxiso: error: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
        EXPECT_FALSE(exists(out)) << c.args;
    }

    const CommandResult unwritable =
        vxiso("surface --field sphere --size 8 -t 0 -o " + path("no/such/dir.ply"));
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(lines(unwritable.err), 1);
    EXPECT_NE(unwritable.err.find("cannot write"), std::string::npos);

    // A failed run leaves an existing output as it was.
    {
        std::ofstream keep(out);
        keep << "precious";
    }
    EXPECT_NE(vxiso("surface --raw " + raw + " --dims 99 9 9 --type uint8 -t 0 -o " + out).status, 0);
    EXPECT_EQ(slurp(out), "precious");

    // Nothing but the named file appears in the directory.
    std::system(("ls -A " + m_dir + " > " + path("ls.txt")).c_str());
    EXPECT_EQ(slurp(path("ls.txt")), "ls.txt\nout.ply\nsphere.raw\nstderr.txt\nstdout.txt\n");
}

TEST_F(VxisoCommand, CoresAndVerboseReportTheEngineRun)
{
    const CommandResult seq =
        vxiso("surface --field gyroid --size 80 -t 0 --cores 1 --verbose -o " + path("s.ply"));
    const CommandResult par =
        vxiso("surface --field gyroid --size 80 -t 0 --cores 2 --verbose -o " + path("p.ply"));
    ASSERT_EQ(seq.status, 0) << seq.err;
    ASSERT_EQ(par.status, 0) << par.err;
    EXPECT_TRUE(std::regex_search(
        seq.out, std::regex("\nsplit axis: none \\(sequential\\)\nslabs: 1\nengine time: [0-9.]+ ms\n")));
    EXPECT_TRUE(
        std::regex_search(par.out, std::regex("\nsplit axis: x\nslabs: [0-9]+\nengine time: [0-9.]+ ms\n")));
    // Same surface: the same triangle count line, and files of the same size.
    EXPECT_EQ(seq.out.substr(0, seq.out.find('\n')), par.out.substr(0, par.out.find('\n')));
    EXPECT_EQ(slurp(path("s.ply")).size(), slurp(path("p.ply")).size());
    EXPECT_TRUE(seq.err.empty()); // no progress bar when stderr is not a terminal

    const CommandResult bad = vxiso("surface --field gyroid --size 8 -t 0 --cores 0 -o " + path("x.ply"));
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("--cores takes 1 to 4096 threads, not 0"), std::string::npos);
}

TEST_F(VxisoCommand, TerminalShowsAProgressBarOnStderr)
{
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no 'script' to fake a terminal";
    // script gives the command a terminal and copies what it writes there to the log.
    const std::string log = path("tty.log");
    const std::string cmd = "script -qec '" + std::string(VXISO_BINARY_DIR) +
                            "/bin/vxiso surface --field torus --size 40 -t 0 -o " + path("t.ply") + "' " +
                            log + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    const std::string shown = slurp(log);
    EXPECT_NE(shown.find("Computing Isosurface... ["), std::string::npos) << shown;
    EXPECT_NE(shown.find("] 100%"), std::string::npos) << shown;
    EXPECT_NE(shown.find("Isosurface contains"), std::string::npos) << shown;
}

TEST_F(VxisoCommand, EveryOutputFormatIsWritten)
{
    for (const char* ext : {"ply", "stl", "off", "iv", "obj", "vtk"}) {
        const std::string out = path(std::string("g.") + ext);
        const CommandResult r = vxiso("surface --field gyroid --size 24 -t 0 -o " + out);
        EXPECT_EQ(r.status, 0) << ext << ": " << r.err;
        EXPECT_GT(slurp(out).size(), 1000u) << ext;
    }
}

namespace {

// A NIfTI-1 header for a float32 volume placed by its sform (axis-aligned: spacing and origin).
std::string niftiHeader(int nx, int ny, int nz, const float spacing[3], const float origin[3], bool pair,
                        float slope = 0, float inter = 0)
{
    std::string h(348, '\0');
    auto put = [&](std::size_t at, auto v) { std::memcpy(&h[at], &v, sizeof v); };
    put(0, int32_t(348));
    const int16_t dim[8] = {3, int16_t(nx), int16_t(ny), int16_t(nz), 1, 1, 1, 1};
    for (int i = 0; i < 8; ++i) put(40 + 2 * std::size_t(i), dim[i]);
    put(70, int16_t(16));
    put(72, int16_t(32));
    for (int i = 0; i < 3; ++i) put(80 + 4 * std::size_t(i), spacing[i]);
    put(108, pair ? 0.f : 352.f);
    put(112, slope);
    put(116, inter);
    put(254, int16_t(1));
    for (int r = 0; r < 3; ++r) {
        put(280 + 16 * std::size_t(r) + 4 * std::size_t(r), spacing[r]);
        put(280 + 16 * std::size_t(r) + 12, origin[r]);
    }
    std::memcpy(&h[344], pair ? "ni1" : "n+1", 4);
    return h;
}

} // namespace

// A NIfTI volume gives the same mesh, byte for byte, as the same values read raw with the spacing
// and origin given by hand; plain, compressed and as a header and image pair.
TEST_F(VxisoCommand, NiftiInputMatchesTheSameRawVolume)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const std::string values = slurp(raw);
    const float spacing[3] = {0.5f, 2.f, 1.f}, origin[3] = {10.f, -4.f, 3.f};
    std::ofstream(path("s.nii"), std::ios::binary)
        << niftiHeader(15, 14, 13, spacing, origin, false) << std::string(4, '\0') << values;
    std::ofstream(path("p.hdr"), std::ios::binary) << niftiHeader(15, 14, 13, spacing, origin, true);
    std::ofstream(path("p.img"), std::ios::binary) << values;
    ASSERT_EQ(std::system(("gzip -c " + path("s.nii") + " > " + path("s.nii.gz")).c_str()), 0);

    const CommandResult byHand = vxiso(
        "surface --raw " + raw +
        " --dims 15 14 13 --type float32 --spacing 0.5 2 1 --origin 10 -4 3 -t 0 -o " + path("raw.ply"));
    ASSERT_EQ(byHand.status, 0) << byHand.err;
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("raw.ply"), nv, nf, xyz);
    ASSERT_GT(nf, 100u);
    for (const char* input : {"s.nii", "s.nii.gz", "p.hdr", "p.img"}) {
        const CommandResult r = vxiso(std::string("surface ") + path(input) + " -t 0 -o " + path("n.ply"));
        ASSERT_EQ(r.status, 0) << input << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        EXPECT_EQ(r.out.substr(0, r.out.find('\n')), byHand.out.substr(0, byHand.out.find('\n'))) << input;
        EXPECT_TRUE(slurp(path("n.ply")) == slurp(path("raw.ply"))) << input;
    }

    // Scaled values are not rescaled: the threshold compares stored values, and a warning says so.
    std::ofstream(path("scaled.nii"), std::ios::binary)
        << niftiHeader(15, 14, 13, spacing, origin, false, 2.f, 1.f) << std::string(4, '\0') << values;
    const CommandResult scaled = vxiso("surface " + path("scaled.nii") + " -t 0 -o " + path("scaled.ply"));
    ASSERT_EQ(scaled.status, 0) << scaled.err;
    EXPECT_EQ(scaled.err,
              "vxiso: warning: " + path("scaled.nii") +
                  ": values are stored unscaled: physical value = 2 * stored + 1; -t 0 is compared "
                  "with stored values (physical 0 is stored -0.5)\n");
    EXPECT_TRUE(slurp(path("scaled.ply")) == slurp(path("raw.ply")));
}

TEST_F(VxisoCommand, BrokenNiftiGivesOneClearLine)
{
    const std::string values = slurp(writeSphereRaw(15, 14, 13));
    const float spacing[3] = {1, 1, 1}, origin[3] = {0, 0, 0};
    std::ofstream(path("s.nii"), std::ios::binary)
        << niftiHeader(15, 14, 13, spacing, origin, false) << std::string(4, '\0') << values;
    ASSERT_EQ(std::system(("gzip -c " + path("s.nii") + " | head -c 3000 > " + path("cut.nii.gz")).c_str()),
              0);
    const CommandResult cut = vxiso("surface " + path("cut.nii.gz") + " -t 0 -o " + path("out.ply"));
    EXPECT_EQ(cut.status, 1);
    EXPECT_EQ(lines(cut.err), 1) << cut.err;
    EXPECT_EQ(cut.err.rfind("vxiso: error: " + path("cut.nii.gz") + ": gzip stream ends after ", 0), 0u)
        << cut.err;
    EXPECT_NE(cut.err.find("the file is truncated"), std::string::npos) << cut.err;
    EXPECT_FALSE(exists(path("out.ply")));

    const CommandResult described =
        vxiso("surface " + path("s.nii") + " --dims 15 14 13 -t 0 -o " + path("out.ply"));
    EXPECT_EQ(described.status, 2);
    EXPECT_EQ(lines(described.err), 1);
    EXPECT_NE(described.err.find("carries its own description"), std::string::npos) << described.err;
}

TEST_F(VxisoCommand, RealHeadScanGivesASurface)
{
    const std::string ch2 = "/usr/share/mricron/templates/ch2.nii.gz";
    if (!exists(ch2))
        GTEST_SKIP() << "mricron-data is not installed (apt-get install mricron-data); ch2 not tried";
    const CommandResult r = vxiso("surface " + ch2 + " -t 80 -o " + path("head.ply"));
    ASSERT_EQ(r.status, 0) << r.err;
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("head.ply"), nv, nf, xyz);
    EXPECT_GT(nv, 100000u);
    EXPECT_TRUE(
        std::regex_search(r.out, std::regex("^Isosurface contains " + std::to_string(nf) + " triangles\n")));
    // The head lies inside the scan's box: first voxel at (-90, -125, -71), 1 mm apart.
    for (std::size_t v = 0; v < nv; ++v) {
        ASSERT_GE(xyz[3 * v], -90.f);
        ASSERT_LE(xyz[3 * v], 90.f);
        ASSERT_GE(xyz[3 * v + 1], -125.f);
        ASSERT_LE(xyz[3 * v + 1], 91.f);
        ASSERT_GE(xyz[3 * v + 2], -71.f);
        ASSERT_LE(xyz[3 * v + 2], 109.f);
    }
}

namespace {

// Faces of a binary PLY whose edges are not shared by exactly two triangles: 0 for a closed surface.
std::size_t openEdges(const std::string& file)
{
    const std::string data = slurp(file);
    std::size_t nv = 0, nf = 0;
    std::sscanf(data.c_str() + data.find("element vertex"), "element vertex %zu", &nv);
    std::sscanf(data.c_str() + data.find("element face"), "element face %zu", &nf);
    const char* f = data.data() + data.find("end_header\n") + 11 + 24 * nv;
    std::map<std::pair<int32_t, int32_t>, int> uses;
    for (std::size_t t = 0; t < nf; ++t) {
        int32_t c[3];
        std::memcpy(c, f + 13 * t + 1, 12);
        for (int e = 0; e < 3; ++e) ++uses[std::minmax(c[e], c[(e + 1) % 3])];
    }
    std::size_t open = 0;
    for (const auto& u : uses) open += u.second != 2;
    return open;
}

} // namespace

// The same values and placement give the same mesh, byte for byte, from every volume format.
TEST_F(VxisoCommand, EveryVolumeFormatMatchesTheSameRawVolume)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const std::string values = slurp(raw);
    std::string big = values;
    for (std::size_t i = 0; i < big.size(); i += 4)
        std::reverse(big.begin() + long(i), big.begin() + long(i + 4));
    std::ofstream(path("s.nrrd"), std::ios::binary)
        << "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 13\nencoding: raw\nendian: big\n"
           "space dimension: 3\nspace directions: (0.5,0,0) (0,2,0) (0,0,1)\nspace origin: (10,-4,3)\n\n"
        << big;
    std::ofstream(path("s.mha"), std::ios::binary)
        << "NDims = 3\nDimSize = 15 14 13\nElementType = MET_FLOAT\nElementSpacing = 0.5 2 1\nOffset = 10 -4 "
           "3\n"
           "ElementDataFile = LOCAL\n"
        << values;
    std::ofstream(path("s.vtk"), std::ios::binary)
        << "# vtk DataFile Version 3.0\nsphere\nBINARY\nDATASET STRUCTURED_POINTS\nDIMENSIONS 15 14 13\n"
           "SPACING 0.5 2 1\nORIGIN 10 -4 3\nPOINT_DATA 2730\nSCALARS v float 1\nLOOKUP_TABLE default\n"
        << big;
    const CommandResult byHand = vxiso(
        "surface --raw " + raw +
        " --dims 15 14 13 --type float32 --spacing 0.5 2 1 --origin 10 -4 3 -t 0 -o " + path("raw.ply"));
    ASSERT_EQ(byHand.status, 0) << byHand.err;
    for (const char* input : {"s.nrrd", "s.mha", "s.vtk"}) {
        const CommandResult r = vxiso(std::string("surface ") + path(input) + " -t 0 -o " + path("n.ply"));
        ASSERT_EQ(r.status, 0) << input << ": " << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        EXPECT_TRUE(slurp(path("n.ply")) == slurp(path("raw.ply"))) << input;
    }
    const CommandResult ascii = vxiso("surface " + path("s.mha") + " -t 0 --ascii -o " + path("a.ply"));
    ASSERT_EQ(ascii.status, 0) << ascii.err;
    EXPECT_EQ(slurp(path("a.ply")).find("ply\nformat ascii 1.0\n"), 0u);

    const CommandResult unknown =
        vxiso("surface " + path("s.dcm") + " --dims 1 1 1 --type uint8 -t 0 -o " + path("x.ply"));
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.err.find("s.dcm: No such file or directory"), std::string::npos) << unknown.err;
}

TEST_F(VxisoCommand, InfoPrintsWhatTheFileHolds)
{
    std::ofstream(path("v.nrrd"), std::ios::binary)
        << "NRRD0004\ntype: short\ndimension: 3\nsizes: 3 2 2\nencoding: ascii\nspacings: 0.5 2 1.25\n"
           "axis mins: 10 -4 3\n\n-7 1 2 3 4 5 6 7 8 9 10 300\n";
    const CommandResult r = vxiso("info " + path("v.nrrd") + " --undefined 300");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "file: " + path("v.nrrd") +
                  "\nformat: NRRD\ndimensions: 3 x 2 x 2\ncoordinates: uniform\n"
                  "spacing: 0.5 2 1.25\norigin: 10 -4 3\nbounding box: 10 11 -4 -2 3 4.25\ntransform: none\n"
                  "type: int16\nvalue range: -7 10\nundefined value: 300\n");

    const CommandResult labels = vxiso("info --labels " + path("v.nrrd"));
    ASSERT_EQ(labels.status, 0) << labels.err;
    EXPECT_NE(
        labels.out.find("type: int32 labels\nlabel range: -7 300\nlabels: 12 besides the background 0\n"),
        std::string::npos)
        << labels.out;

    const CommandResult wrong = vxiso("info " + path("v.nrrd") + " -t 3");
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.err, "vxiso: error: option -t belongs to 'vxiso surface', not 'vxiso info'\n");
}

// A label volume: two boxes of labels 1 and 2 in a 12^3 volume; --labels wraps the chosen one.
TEST_F(VxisoCommand, LabelsWrapTheChosenLabel)
{
    std::string labels(12 * 12 * 12, '\0');
    for (int k = 2; k < 10; ++k)
        for (int j = 2; j < 10; ++j)
            for (int i = 2; i < 10; ++i) labels[std::size_t((k * 12 + j) * 12 + i)] = char(i < 6 ? 1 : 2);
    std::ofstream(path("l.nrrd"), std::ios::binary)
        << "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 12 12 12\nencoding: raw\n\n"
        << labels;
    std::size_t nv = 0, nf = 0, all = 0;
    std::vector<float> xyz;
    ASSERT_EQ(vxiso("surface --labels " + path("l.nrrd") + " -o " + path("all.ply")).status, 0);
    readPly(path("all.ply"), all, nf, xyz);
    const CommandResult two =
        vxiso("surface --labels " + path("l.nrrd") + " --label 2 -o " + path("two.ply"));
    ASSERT_EQ(two.status, 0) << two.err;
    readPly(path("two.ply"), nv, nf, xyz);
    EXPECT_GT(nv, 0u);
    EXPECT_LT(nv, all);
    EXPECT_EQ(openEdges(path("two.ply")), 0u);
    // Label 2 fills x = 6..9: its wrap lies between the half-way planes around it.
    for (std::size_t v = 0; v < nv; ++v) {
        EXPECT_GE(xyz[3 * v], 5.5f);
        EXPECT_LE(xyz[3 * v], 9.5f);
    }

    struct Case
    {
        std::string args, message;
    } cases[] = {
        {"--labels " + path("l.nrrd") + " --label 7", "no voxel has the label 7"},
        {"--labels " + path("l.nrrd") + " -t 1", "with --labels the surface follows label borders"},
        {path("l.nrrd") + " --label 1 -t 0", "--label N chooses a label of a label volume; add --labels"},
    };
    for (const Case& c : cases) {
        const CommandResult r = vxiso("surface " + c.args + " -o " + path("x.ply"));
        EXPECT_NE(r.status, 0) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
    }
}

// A ball cut by the volume's border leaves a hole there, which --pad closes.
TEST_F(VxisoCommand, PadClosesSurfacesAtTheBorder)
{
    std::vector<float> v;
    for (int k = 0; k < 12; ++k)
        for (int j = 0; j < 12; ++j)
            for (int i = 0; i < 12; ++i)
                v.push_back(float(5.5 - std::sqrt(i * i + (j - 6) * (j - 6) + (k - 6) * (k - 6))));
    std::ofstream(path("b.raw"), std::ios::binary)
        .write(reinterpret_cast<const char*>(v.data()), std::streamsize(4 * v.size()));
    const std::string in =
        "surface --raw " + path("b.raw") + " --dims 12 12 12 --type float32 --spacing 2 2 2 -t 0 ";
    ASSERT_EQ(vxiso(in + "-o " + path("open.ply")).status, 0);
    EXPECT_GT(openEdges(path("open.ply")), 0u);
    const CommandResult padded = vxiso(in + "--pad -o " + path("closed.ply"));
    ASSERT_EQ(padded.status, 0) << padded.err;
    EXPECT_EQ(openEdges(path("closed.ply")), 0u);
    // The lid sits half a voxel outside the volume's first plane x = 0.
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("closed.ply"), nv, nf, xyz);
    float lowest = 1e9f;
    for (std::size_t i = 0; i < nv; ++i) lowest = std::min(lowest, xyz[3 * i]);
    EXPECT_LT(lowest, 0.f);
    EXPECT_GE(lowest, -2.f);

    // A single slice keeps its thickness: info reports it, and padding gives a slab, not a flat mesh.
    std::ofstream(path("s.raw"), std::ios::binary)
        .write(reinterpret_cast<const char*>(v.data() + 6 * 144), 4 * 144);
    const std::string slice = "--raw " + path("s.raw") + " --dims 12 12 1 --type float32 --spacing 2 2 3 ";
    EXPECT_NE(vxiso("info " + slice).out.find("spacing: 2 2 3\n"), std::string::npos);
    ASSERT_EQ(vxiso("surface " + slice + "-t 0 --pad -o " + path("slab.ply")).status, 0);
    readPly(path("slab.ply"), nv, nf, xyz);
    float zmin = 1e9f, zmax = -1e9f;
    for (std::size_t i = 0; i < nv; ++i)
        zmin = std::min(zmin, xyz[3 * i + 2]), zmax = std::max(zmax, xyz[3 * i + 2]);
    EXPECT_GT(zmax - zmin, 2.f);
    EXPECT_LT(zmax - zmin, 6.f);
}

// The command runs the isosurface modules as a network script does: the same settings give the
// same file, byte for byte, and the same report.
TEST_F(VxisoCommand, CommandAndScriptWriteTheSameSurface)
{
    // The mask: label 3 on the nodes with x < 7, the rest background.
    writeSphereAndMask([](std::size_t) { return 3; });

    struct Case
    {
        std::string options, module, ports;
    } cases[] = {
        {"-t 0", "VxIsosurface", "iso options setValue 0 0\niso threshold setValue 0\n"},
        {"-t 0.5 --compactify --cores 1", "VxIsosurface",
         "iso numberOfCores setValue 1\niso threshold setValue 0.5\n"},
        {"-t -1 --downsample 2 2 1", "VxIsosurface",
         "iso options setValue 0 0\niso threshold setValue -1\niso downSampleOnOff setValue 1\n"
         "iso resolution setValue 1 2\niso resolution setValue 2 1\n"},
        {"-t 0 --mask m.nrrd", "VxMaskedLabelIsosurface",
         "load -labels m.nrrd m\nm keepLabel 3\niso mask connect m\niso options setValue 0 0\niso threshold "
         "setValue 0\n"},
        {"-t 0 --mask m.nrrd --mask-label 3 --relaxed --compactify", "VxMaskedLabelIsosurface",
         "load -labels m.nrrd m\nm keepLabel 3\niso mask connect m\niso maskRestrictionType setIndex 1\n"
         "iso threshold setValue 0\n"},
    };
    for (const Case& c : cases) {
        std::string options = c.options;
        const std::size_t mask = options.find("m.nrrd");
        if (mask != std::string::npos) options.replace(mask, 6, path("m.nrrd"));
        const CommandResult command =
            vxiso("surface " + path("s.nrrd") + " " + options + " -o " + path("c.ply"));
        ASSERT_EQ(command.status, 0) << c.options << ": " << command.err;
        const CommandResult script =
            vxhostScript("load s.nrrd vol\ncreate " + c.module + " iso\niso data connect vol\n" + c.ports +
                         "iso doIt hit\niso fire\niso exportData ply s.ply\n");
        ASSERT_EQ(script.status, 0) << c.options << ": " << script.err;
        EXPECT_EQ(command.out.substr(0, command.out.find('\n')), script.out.substr(0, script.out.find('\n')))
            << c.options;
        EXPECT_GT(slurp(path("c.ply")).size(), 200u) << c.options;
        EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply"))) << c.options;
    }
}

// Strict keeps the triangles whose nodes all lie in the region; relaxed grows the region by a
// voxel first. On the nodes x < 7 (0.5 apart) the surface ends at x = 3 or at 3.5.
TEST_F(VxisoCommand, MaskRestrictsTheSurfaceToTheRegion)
{
    const std::string labels = writeSphereAndMask([](std::size_t n) { return int(1 + n % 2); });

    float reach[2];
    std::size_t kept[2];
    const char* modes[2] = {"", " --relaxed"};
    for (int m = 0; m < 2; ++m) {
        const CommandResult r = vxiso("surface " + path("s.nrrd") + " -t 0 --mask " + path("m.nrrd") +
                                      modes[m] + " -o " + path("m.ply"));
        ASSERT_EQ(r.status, 0) << r.err;
        std::size_t nv = 0;
        std::vector<float> xyz;
        readPly(path("m.ply"), nv, kept[m], xyz);
        reach[m] = -1e9f;
        for (std::size_t v = 0; v < nv; ++v) reach[m] = std::max(reach[m], xyz[3 * v]);
    }
    EXPECT_LE(reach[0], 3.f);
    EXPECT_GT(reach[1], 3.f);
    EXPECT_LE(reach[1], 3.5f);
    EXPECT_GT(kept[1], kept[0]);

    // Label 1 alone: every other node along x, so no edge along x has both ends in it.
    ASSERT_EQ(vxiso("surface " + path("s.nrrd") + " -t 0 --mask " + path("m.nrrd") + " --mask-label 1 -o " +
                    path("one.ply"))
                  .status,
              0);
    std::size_t nv = 0, nf = 0;
    std::vector<float> xyz;
    readPly(path("one.ply"), nv, nf, xyz);
    EXPECT_LT(nf, kept[0]);

    std::ofstream(path("small.nrrd"), std::ios::binary)
        << "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 15 14 12\nencoding: raw\n\n"
        << labels.substr(0, 15 * 14 * 12);
    struct Case
    {
        std::string args, message;
    } cases[] = {
        {"--mask " + path("small.nrrd"), "the mask has 15 x 14 x 12 voxels but the volume has 15 x 14 x 13"},
        {"--mask " + path("m.nrrd") + " --mask-label 9", "m.nrrd: no voxel has the label 9"},
        {"--relaxed", "--relaxed belongs to --mask LABELS"},
        {"--mask " + path("nothing.nrrd"), "nothing.nrrd"},
    };
    for (const Case& c : cases) {
        const CommandResult r =
            vxiso("surface " + path("s.nrrd") + " -t 0 " + c.args + " -o " + path("x.ply"));
        EXPECT_NE(r.status, 0) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
        EXPECT_FALSE(exists(path("x.ply"))) << c.args;
    }
}

TEST_F(VxisoCommand, DownsampleAveragesAndSaysWhatItClamped)
{
    const CommandResult full = vxiso("surface --field sphere --size 40 -t 0 --verbose -o " + path("f.ply"));
    const CommandResult low =
        vxiso("surface --field sphere --size 40 -t 0 --downsample 2 4 30 --verbose -o " + path("l.ply"));
    ASSERT_EQ(low.status, 0) << low.err;
    EXPECT_NE(full.out.find("\nextracted from: 40 x 40 x 40 nodes\n"), std::string::npos) << full.out;
    EXPECT_NE(low.out.find("\nextracted from: 20 x 10 x 2 nodes\n"), std::string::npos) << low.out;
    EXPECT_EQ(low.err, "vxiso: note: --downsample 30 on z is more than half the axis; the module used 20\n");

    std::ofstream(path("r.vtk"))
        << "# vtk DataFile Version 3.0\nr\nASCII\nDATASET RECTILINEAR_GRID\nDIMENSIONS 2 2 2\n"
           "X_COORDINATES 2 float\n0 1\nY_COORDINATES 2 float\n0 3\nZ_COORDINATES 2 float\n0 1\n"
           "POINT_DATA 8\nSCALARS v float 1\nLOOKUP_TABLE default\n0 1 0 1 0 1 0 1\n";
    const CommandResult rect =
        vxiso("surface " + path("r.vtk") + " -t 0.5 --downsample 2 2 2 -o " + path("x.ply"));
    EXPECT_EQ(rect.status, 2);
    EXPECT_NE(rect.err.find("--downsample needs a volume on uniform coordinates"), std::string::npos)
        << rect.err;
}

// The command needs the package; without it, one line says where it looked.
TEST_F(VxisoCommand, MissingPackageIsNamed)
{
    ASSERT_EQ(std::system(("cp " + std::string(VXISO_BINARY_DIR) + "/bin/vxiso " + path("vxiso")).c_str()),
              0);
    const std::string cmd = "env -u VXHOST_PACKAGE_PATH " + path("vxiso") +
                            " surface --field sphere --size 8 -t 0 -o " + path("x.ply") + " 2>" +
                            path("err.txt");
    EXPECT_NE(std::system(cmd.c_str()), 0);
    EXPECT_EQ(slurp(path("err.txt")), "vxiso: error: the package libvxiso.so is not in " + m_dir +
                                          "; add its folder to VXHOST_PACKAGE_PATH\n");
    EXPECT_FALSE(exists(path("x.ply")));
}

// The examples and the command agree on real anatomy: the skin of the head, and the left
// hippocampus cut out by the atlas, strict and relaxed.
TEST_F(VxisoCommand, ExamplesAndCommandAgreeOnTheHeadScan)
{
    const std::string templates = "/usr/share/mricron/templates/";
    if (!exists(templates + "aal.nii.gz"))
        GTEST_SKIP() << "mricron-data is not installed (apt-get install mricron-data)";
    const std::string examples = std::string(VXISO_SOURCE_DIR) + "/examples/";
    struct Case
    {
        std::string example, args, options;
    } cases[] = {
        {"head-surface.tcl", "s.ply", "-t 3"},
        {"hippocampus-surface.tcl", "s.ply strict",
         "-t 80 --mask " + templates + "aal.nii.gz --mask-label 37"},
        {"hippocampus-surface.tcl", "s.ply relaxed",
         "-t 80 --mask " + templates + "aal.nii.gz --mask-label 37 --relaxed"},
    };
    for (const Case& c : cases) {
        const CommandResult script = vxhostScript(slurp(examples + c.example), c.args);
        ASSERT_EQ(script.status, 0) << c.example << ": " << script.err;
        const CommandResult command =
            vxiso("surface " + templates + "ch2.nii.gz --compactify " + c.options + " -o " + path("c.ply"));
        ASSERT_EQ(command.status, 0) << command.err;
        EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply"))) << c.options;
    }
}

// A multi-block description goes through the module's block path, as in a script; its blocks are
// listed by info.
TEST_F(VxisoCommand, MultiBlockFieldsTakeTheBlockPath)
{
    const std::string values = slurp(writeSphereRaw(15, 14, 13));
    const std::size_t plane = 15 * 14 * 4;
    for (int b = 0; b < 2; ++b)
        std::ofstream(path(b ? "hi.nrrd" : "lo.nrrd"), std::ios::binary)
            << "NRRD0004\ntype: float\ndimension: 3\nsizes: 15 14 7\nencoding: raw\nendian: little\n"
               "space dimension: 3\nspace directions: (1,0,0) (0,1,0) (0,0,1)\nspace origin: (0,0,"
            << 6 * b << ")\n\n"
            << values.substr(6 * b * plane, 7 * plane); // the blocks share the plane z = 6
    std::ofstream(path("ball.vxblocks")) << "# vxblocks 1\nblock lo.nrrd\nblock hi.nrrd\n";

    const CommandResult command = vxiso("surface " + path("ball.vxblocks") + " -t 0 -o " + path("c.ply"));
    ASSERT_EQ(command.status, 0) << command.err;
    EXPECT_TRUE(std::regex_search(command.out,
                                  std::regex("\nblock 0 # of triangles: \\d+\n(.*\n)?block 1 # of coords: ")))
        << command.out;
    const CommandResult script =
        vxhostScript("load ball.vxblocks ball\ncreate VxIsosurface iso\niso data connect ball\n"
                     "iso options setValue 0 0\niso threshold setValue 0\niso doIt hit\n"
                     "iso fire\niso exportData ply s.ply\n");
    ASSERT_EQ(script.status, 0) << script.err;
    EXPECT_GT(slurp(path("c.ply")).size(), 1000u);
    EXPECT_TRUE(slurp(path("c.ply")) == slurp(path("s.ply")));

    const CommandResult info = vxiso("info " + path("ball.vxblocks"));
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("format: multi-block description\nblocks: 2\n"
                            "block 0: 15 x 14 x 7 float32, uniform coordinates, box 0 14 0 13 0 6\n"
                            "block 1: 15 x 14 x 7 float32, uniform coordinates, box 0 14 0 13 6 12\n"),
              std::string::npos)
        << info.out;
    const CommandResult padded =
        vxiso("surface " + path("ball.vxblocks") + " -t 0 --pad -o " + path("x.ply"));
    EXPECT_EQ(padded.status, 2);
    EXPECT_EQ(padded.err, "vxiso: error: --pad does not apply to a multi-block field\n");
}

// The picture shows the surface in the middle of the background, looking the way it was told.
TEST_F(VxisoCommand, PngDrawsTheSurfaceOffScreen)
{
    // A flat slab: seen edge-on it is a thin line, seen face-on it fills the middle.
    std::vector<float> v;
    for (int k = 0; k < 20; ++k)
        for (int j = 0; j < 20; ++j)
            for (int i = 0; i < 20; ++i)
                v.push_back(i > 2 && i < 17 && j > 2 && j < 17 && k > 8 && k < 11 ? 1.f : 0.f);
    std::ofstream(path("slab.raw"), std::ios::binary)
        .write(reinterpret_cast<const char*>(v.data()), std::streamsize(4 * v.size()));
    const std::string in = "surface --raw " + path("slab.raw") +
                           " --dims 20 20 20 --type float32 -t 0.5 -o " + path("s.ply") + " --png " +
                           path("s.png");
    const CommandResult faceOn = vxiso(in);
    if (faceOn.err.find("no off-screen rendering") != std::string::npos) GTEST_SKIP() << faceOn.err;
    ASSERT_EQ(faceOn.status, 0) << faceOn.err;
    QImage picture(QString::fromStdString(path("s.png")));
    ASSERT_EQ(picture.size(), QSize(800, 600));
    const QRgb background = picture.pixel(0, 0);
    EXPECT_EQ(picture.pixel(799, 599), background);
    EXPECT_NE(picture.pixel(400, 300), background);
    EXPECT_NE(picture.pixel(400, 160), background) << "face on, the slab fills most of the height";

    ASSERT_EQ(vxiso(in + " --view 1 0 0 --up 0 0 1").status, 0);
    picture.load(QString::fromStdString(path("s.png")));
    EXPECT_NE(picture.pixel(400, 300), background);
    EXPECT_EQ(picture.pixel(400, 160), background) << "edge on, the slab is a thin bar across the middle";

    const CommandResult script = vxhostScript("snapshot x.png -size 8 8\n");
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
    for (const auto& f : files) std::ofstream(path(f[0])) << f[1];
    const char* links[][2] = {{"v.vtk", "link.ply"},  {"m.nrrd", "mask.ply"}, {"d.raw", "data.ply"},
                              {"p.img", "image.stl"}, {"old.ply", "pic.png"}, {"v.vtk", "input.png"}};
    for (const auto& l : links) ASSERT_EQ(::symlink(path(l[0]).c_str(), path(l[1]).c_str()), 0);
    ASSERT_EQ(::link(path("v.vtk").c_str(), path("hard.vtk").c_str()), 0);

    const std::string v = path("v.vtk");
    struct Case
    {
        std::string args, message;
    } cases[] = {
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
    for (const Case& c : cases) {
        const CommandResult r = vxiso("surface " + c.args + " -t 0");
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
    }
    for (const auto& f : files) EXPECT_EQ(slurp(path(f[0])), f[1]);
    EXPECT_FALSE(exists(path("x.ply")));
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
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(v.data()), std::streamsize(sizeof a * v.size()));
        return "--raw " + path(name) + " --dims 8 8 8 ";
    };
    const std::string inf = spikes("inf.raw", INFINITY, 1.f) + "--type float32 ";
    const std::string i32 = spikes("i32.raw", int32_t(16777217), int32_t(16777217)) + "--type int32 ";
    const std::string f64 = spikes("f64.raw", 1.000000000001, 1.000000000001) + "--type float64 ";
    struct Case
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
    for (const Case& c : cases) {
        std::remove(path("v.ply").c_str());
        const CommandResult r = vxiso("surface " + c.args + " -o " + path("v.ply"));
        EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << c.args;
        if (c.triangles >= 0) {
            EXPECT_EQ(r.err, c.err) << c.args;
            EXPECT_EQ(r.out.rfind("Isosurface contains " + std::to_string(c.triangles) + " triangles\n", 0),
                      0u)
                << c.args << ": " << r.out;
        }
        if (!exists(path("v.ply"))) continue;
        std::size_t nv = 0, nf = 0;
        std::vector<float> xyz;
        readPly(path("v.ply"), nv, nf, xyz);
        const std::string data = slurp(path("v.ply"));
        std::vector<float> vertices(6 * nv); // positions and normals
        std::memcpy(vertices.data(), data.data() + data.find("end_header\n") + 11, 4 * vertices.size());
        EXPECT_TRUE(std::all_of(vertices.begin(), vertices.end(), [](float f) { return std::isfinite(f); }))
            << c.args;
    }
}

// Memory that cannot be had ends the run with one line that says so, and writes nothing.
TEST_F(VxisoCommand, OutOfMemoryIsOneLine)
{
    const std::string head = "/usr/share/mricron/templates/ch2better.nii.gz";
    struct Case
    {
        std::string args, kilobytes;
    } cases[] = {
        // The module's down-sampled copy (125 MiB) does not fit beside the field.
        {"--field sphere --size 320 -t 0 --downsample 1 1 1 --cores 1", "250000"},
        // The engine's arrays for a real head scan do not fit.
        {head + " -t 100.5", "200000"},
    };
    for (const Case& c : cases) {
        if (c.args == head + " -t 100.5" && !exists(head)) continue; // needs mricron-data
        const CommandResult r = shell("(ulimit -v " + c.kilobytes + "; " + VXISO_BINARY_DIR +
                                      "/bin/vxiso surface " + c.args + " -o " + path("out.ply") + ")");
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_EQ(r.err.rfind("vxiso: error: out of memory", 0), 0u) << r.err;
        EXPECT_FALSE(exists(path("out.ply")));
    }
}

namespace {

std::vector<std::string> temporaryFiles(const std::string& dir)
{
    std::vector<std::string> found;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (const dirent* e = ::readdir(d)) {
            const std::string name = e->d_name;
            if (name[0] == '.' && name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0)
                found.push_back(name);
        }
        ::closedir(d);
    }
    return found;
}

} // namespace

// A run ended by a signal while it writes (Ctrl-C, kill, a closed terminal) leaves no partial file
// and ends as the signal does.
TEST_F(VxisoCommand, SignalsWhileWritingLeaveNoFile)
{
    const std::string program = std::string(VXISO_BINARY_DIR) + "/bin/vxiso", out = path("g.ply");
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
        while (temporaryFiles(m_dir).empty() && (ended = ::waitpid(pid, &status, WNOHANG)) == 0)
            ::usleep(1000);
        ASSERT_EQ(ended, 0) << "vxiso ended before it wrote";
        ::kill(pid, sig);
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig)
            << "signal " << sig << ", status " << status;
        EXPECT_TRUE(temporaryFiles(m_dir).empty()) << temporaryFiles(m_dir)[0];
        EXPECT_FALSE(exists(out));
    }
}
