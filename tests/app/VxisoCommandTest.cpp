// The vxiso command as a user runs it: what it prints, what it writes, how it fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
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

    CommandResult vxiso(const std::string& args) const
    {
        const std::string out = path("stdout.txt"), err = path("stderr.txt");
        const std::string cmd = std::string(VXISO_BINARY_DIR) + "/bin/vxiso " + args + " >" + out + " 2>" + err;
        CommandResult r;
        const int raw = std::system(cmd.c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(out);
        r.err = slurp(err);
        return r;
    }

    // Writes a float32 sphere volume: value = radius - distance, so inside is above 0.
    std::string writeSphereRaw(int nx, int ny, int nz) const
    {
        std::vector<float> v;
        for (int k = 0; k < nz; ++k)
            for (int j = 0; j < ny; ++j)
                for (int i = 0; i < nx; ++i)
                    v.push_back(float(5.3 - std::sqrt((i - 7.2) * (i - 7.2) + (j - 6.9) * (j - 6.9) + (k - 6.4) * (k - 6.4))));
        const std::string p = path("sphere.raw");
        FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite(v.data(), sizeof(float), v.size(), f);
        std::fclose(f);
        return p;
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
    const CommandResult compact = vxiso("surface --field sphere --size 40 -t 0 --compactify -o " + path("b.ply"));
    ASSERT_EQ(compact.status, 0) << compact.err;
    std::smatch a, b;
    ASSERT_TRUE(std::regex_search(plain.out, a, std::regex("contains (\\d+) triangles")));
    ASSERT_TRUE(std::regex_search(compact.out, b,
                                  std::regex("^Isosurface contains (\\d+) triangles \\(([0-9]+\\.[0-9]{2})% less\\)\n")));
    const double total = std::stod(a[1]), kept = std::stod(b[1]);
    EXPECT_NEAR(std::stod(b[2]), 100.0 * (total - kept) / total, 0.006);

    // An empty result prints the plain zero line.
    const CommandResult none = vxiso("surface --field sphere --size 20 -t 5 --compactify -o " + path("c.ply"));
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out.substr(0, none.out.find('\n') + 1), "Isosurface contains 0 triangles\n");
}

TEST_F(VxisoCommand, RawVolumeHonoursSpacingOriginAndSnapFloor)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const CommandResult r = vxiso("surface --raw " + raw +
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

    // A negative snapping distance behaves like 0.
    ASSERT_EQ(0, vxiso("surface --raw " + raw + " --dims 15 14 13 --type float32 -t 0 --compactify --snap -0.3 -o " +
                       path("neg.ply")).status);
    ASSERT_EQ(0, vxiso("surface --raw " + raw + " --dims 15 14 13 --type float32 -t 0 --compactify --snap 0 -o " +
                       path("zero.ply")).status);
    EXPECT_EQ(slurp(path("neg.ply")), slurp(path("zero.ply")));
}

TEST_F(VxisoCommand, BadInputGivesOneClearLineAndNoOutput)
{
    const std::string raw = writeSphereRaw(15, 14, 13);
    const std::string out = path("out.ply");
    struct Case
    {
        std::string args, message;
    } cases[] = {
        {"--raw " + path("missing.raw") + " --dims 4 4 4 --type uint8 -t 1", "missing.raw: No such file or directory"},
        {"--raw " + raw + " --dims 15 14 14 --type float32 -t 0", "file holds 10920 bytes, but 15x14x14 float32"},
        {"--raw " + raw + " --dims 15 14 13 --type complex -t 0", "unknown value type 'complex'"},
        {"--raw " + raw + " --dims 15 14 13 --type float32 -t nan", "-t must be a finite number, not 'nan'"},
        {"--raw " + raw + " --dims 15 0 13 --type float32 -t 0", "dimensions must be positive"},
        {"--field cube --size 8 -t 0", "unknown built-in field 'cube'"},
        {"--field sphere -t 0", "--field needs --size N"},
        {"--raw " + raw + " --dims 15 14 13 --type float32", "no threshold"},
    };
    for (const Case& c : cases) {
        const CommandResult r = vxiso("surface " + c.args + " -o " + out);
        EXPECT_NE(r.status, 0) << c.args;
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_EQ(r.err.rfind("vxiso: error: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << r.err;
        EXPECT_FALSE(exists(out)) << c.args;
    }

    const CommandResult unwritable = vxiso("surface --field sphere --size 8 -t 0 -o " + path("no/such/dir.ply"));
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

TEST_F(VxisoCommand, EveryOutputFormatIsWritten)
{
    for (const char* ext : {"ply", "stl", "off", "iv"}) {
        const std::string out = path(std::string("g.") + ext);
        const CommandResult r = vxiso("surface --field gyroid --size 24 -t 0 -o " + out);
        EXPECT_EQ(r.status, 0) << ext << ": " << r.err;
        EXPECT_GT(slurp(out).size(), 1000u) << ext;
    }
}
