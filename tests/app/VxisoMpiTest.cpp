// vxiso-mpi as a user runs it under mpirun on this machine: the file it writes against the one
// vxiso writes with the same slabs, whatever the number of ranks, and how the ranks fail together.
#include "../support/TestFields.h"
#include "../support/TestFormats.h"

#include <QFileInfo>

#include <cmath>
#include <cstdlib>
#include <random>
#include <regex>

using namespace vxtest;

namespace {

const std::string kBin = VXISO_BINARY_DIR "/bin/";

// A volume of one value type: a wavy field with noise from a fixed seed, and some nodes holding
// the undefined value, so that the filter's open corners reach the slab boundaries.
struct Volume
{
    const char* type;
    int dims[3];
    int undefinedEvery; // 0: no undefined values
    double threshold;
};

// The undefined value as the volume stores it.
std::string undefinedOf(const Volume& v)
{
    const std::string t = v.type;
    return t == "uint8" ? "255" : t == "int16" ? "9000" : "9";
}

template <class T> std::string valuesOf(const Volume& v, double scale, double shift)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    std::string bytes;
    long n = 0;
    for (int k = 0; k < v.dims[2]; ++k)
        for (int j = 0; j < v.dims[1]; ++j)
            for (int i = 0; i < v.dims[0]; ++i, ++n) {
                double f = std::sin(0.45 * i) * std::cos(0.38 * j) + std::sin(0.31 * k) * std::cos(0.27 * i) +
                           noise(random);
                T t = T(f * scale + shift);
                if (v.undefinedEvery && n % v.undefinedEvery == 0) t = T(std::stod(undefinedOf(v)));
                bytes.append(reinterpret_cast<const char*>(&t), sizeof t);
            }
    return bytes;
}

std::string valuesOf(const Volume& v)
{
    const std::string t = v.type;
    if (t == "uint8") return valuesOf<uint8_t>(v, 60, 128);
    if (t == "int16") return valuesOf<int16_t>(v, 1000, 0);
    if (t == "float64") return valuesOf<double>(v, 1, 0);
    return valuesOf<float>(v, 1, 0);
}

class VxisoMpi : public TempDirTest
{
protected:
    void SetUp() override
    {
        if (std::system("command -v mpirun >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "mpirun is not installed (scripts/install-deps.sh installs openmpi-bin)";
        if (!QFileInfo::exists(QString::fromStdString(kBin + "vxiso-mpi")))
            GTEST_SKIP() << "vxiso-mpi is not built (needs libopenmpi-dev)";
    }
    Result mpi(int ranks, const std::string& args) const
    {
        return shell("mpirun --allow-run-as-root --oversubscribe -np " + std::to_string(ranks) + " " + kBin +
                     "vxiso-mpi surface " + args);
    }
    Result vxiso(const std::string& args) const { return shell(kBin + "vxiso surface " + args); }

    // The volume as v.raw, and the options that describe it to both programs.
    std::string write(const Volume& v) const
    {
        spit(path("v.raw"), valuesOf(v));
        std::string args = "--raw v.raw --dims " + std::to_string(v.dims[0]) + " " +
                           std::to_string(v.dims[1]) + " " + std::to_string(v.dims[2]) + " --type " + v.type +
                           " --spacing 0.5 1 1.5" + " --origin 3 -2 1 -t " + std::to_string(v.threshold);
        if (v.undefinedEvery) args += " --undefined " + undefinedOf(v);
        return args;
    }
    // The folder holds nothing that a run left behind besides what the test made.
    bool onlyInputsLeft() const
    {
        for (const QString& name : entries())
            if (name.endsWith(".ply") || name.endsWith(".tmp")) return false;
        return true;
    }
};

// One volume per value type, split along each axis in turn (the strided reads of x and y), with
// and without undefined values.
const Volume kVolumes[] = {
    {"float32", {21, 17, 40}, 0, 0.1},
    {"uint8", {44, 15, 19}, 23, 130},
    {"int16", {18, 37, 16}, 17, 100},
    {"float64", {33, 12, 14}, 29, -0.2},
};

} // namespace

// The same slabs give the threaded file byte for byte, on any number of ranks.
TEST_F(VxisoMpi, StandardCubesMatchTheThreadedFileByteForByte)
{
    for (const Volume& v : kVolumes) {
        const std::string args = write(v) + " --slabs 6";
        const Result threaded = vxiso(args + " -o threaded.ply");
        ASSERT_EQ(threaded.status, 0) << threaded.err;
        const std::string want = slurp(path("threaded.ply"));
        ASSERT_GT(readPly(want).numTriangles(), 100) << v.type;
        for (int ranks : {1, 2, 3, 4}) {
            const Result r = mpi(ranks, args + " -o mpi.ply");
            ASSERT_EQ(r.status, 0) << v.type << " on " << ranks << " ranks: " << r.err;
            EXPECT_EQ(r.out.substr(0, r.out.find('\n')), threaded.out.substr(0, threaded.out.find('\n')));
            EXPECT_TRUE(slurp(path("mpi.ply")) == want) << v.type << " on " << ranks << " ranks";
        }
    }
}

// The header formats, in both byte orders, give the file vxiso writes from the same header.
TEST_F(VxisoMpi, HeaderFormatsGiveVxisosFile)
{
    const Volume v = kVolumes[2]; // int16, split along y
    const std::string values = valuesOf(v), swapped = byteSwapped(values, 2);
    NiftiFile nifti;
    nifti.datatype = 4;
    nifti.dim[1] = v.dims[0], nifti.dim[2] = v.dims[1], nifti.dim[3] = v.dims[2];
    const double spacing[3] = {0.5, 2, 1}, origin[3] = {10, -4, 3};
    nifti.place(spacing, origin);
    nifti.values = values;
    nifti.swap = true;
    writeNifti(nifti, path("n"));
    const std::string dims =
        std::to_string(v.dims[0]) + " " + std::to_string(v.dims[1]) + " " + std::to_string(v.dims[2]);
    spit(path("m.mha"), "ObjectType = Image\nNDims = 3\nDimSize = " + dims +
                            "\nElementType = MET_SHORT\nElementSpacing = 0.5 2 1\nBinaryDataByteOrderMSB = "
                            "True\nElementDataFile = LOCAL\n" +
                            (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? values : swapped));
    spit(path("d.raw"), values);
    spit(path("d.nhdr"), "NRRD0004\ntype: short\ndimension: 3\nsizes: " + dims +
                             "\nencoding: raw\nendian: little\nspacings: 0.5 2 1\ndata file: d.raw\n");
    for (const char* input : {"n.nii", "m.mha", "d.nhdr"}) {
        const std::string args = std::string(input) + " -t 300 --slabs 5";
        ASSERT_EQ(vxiso(args + " -o threaded.ply").status, 0) << input;
        const Result r = mpi(3, args + " -o mpi.ply");
        ASSERT_EQ(r.status, 0) << input << ": " << r.err;
        EXPECT_GT(readPly(slurp(path("mpi.ply"))).numTriangles(), 100) << input;
        EXPECT_TRUE(slurp(path("mpi.ply")) == slurp(path("threaded.ply"))) << input;
    }
}

// Compact cubes fold what the slab above snapped onto the shared layer into the slab below: the
// same surface as the threaded merge, indeed the same file, whatever the number of ranks.
TEST_F(VxisoMpi, CompactCubesMergeAsTheThreadedPath)
{
    for (const Volume& v : {kVolumes[0], kVolumes[2]}) {
        const std::string args = write(v) + " --compactify --slabs 4";
        ASSERT_EQ(vxiso(args + " -o threaded.ply").status, 0);
        const TestMesh want = readPly(slurp(path("threaded.ply")));
        std::string first;
        for (int ranks : {2, 4}) {
            const Result r = mpi(ranks, args + " -o mpi.ply");
            ASSERT_EQ(r.status, 0) << r.err;
            const std::string bytes = slurp(path("mpi.ply"));
            const TestMesh got = readPly(bytes);
            EXPECT_EQ(got.numPoints(), want.numPoints()) << v.type;
            EXPECT_TRUE(triangleSet(got) == triangleSet(want)) << v.type << " on " << ranks << " ranks";
            if (first.empty()) first = bytes;
            EXPECT_TRUE(bytes == first) << "the merge depends on the number of ranks";
            // The folds are added in the threaded merge's order: the sums, and so the file, agree.
            EXPECT_TRUE(bytes == slurp(path("threaded.ply"))) << v.type << " on " << ranks << " ranks";
        }
    }
}

// Without --slabs each rank cuts its share by its threads: other slabs, the same surface.
TEST_F(VxisoMpi, DefaultPlanGivesTheThreadedSurface)
{
    const std::string args = write(kVolumes[0]);
    ASSERT_EQ(vxiso(args + " -o threaded.ply").status, 0);
    const auto want = triangleSet(readPly(slurp(path("threaded.ply"))));
    for (int ranks : {1, 3}) {
        const Result r = mpi(ranks, args + " --verbose -o mpi.ply");
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("rank " + std::to_string(ranks - 1) + " peak memory: "), std::string::npos)
            << r.out;
        EXPECT_TRUE(triangleSet(readPly(slurp(path("mpi.ply")))) == want) << ranks << " ranks";
    }
}

// A data file shorter than its header says fails on the last rank alone: every rank stops, one
// error names that rank and the file, and no file is left, not even the temporary one.
TEST_F(VxisoMpi, OneFailingRankStopsAllWithOneError)
{
    const Volume v = kVolumes[0];
    const std::string values = valuesOf(v);
    spit(path("v.data"), values.substr(0, values.size() * 9 / 10));
    spit(path("v.nhdr"), "NRRD0004\ntype: float\ndimension: 3\nsizes: 21 17 40\nencoding: raw\n"
                         "endian: little\ndata file: v.data\n");
    spit(path("old.ply"), "kept");
    const Result r = mpi(3, "v.nhdr -t 0.1 -o old.ply");
    EXPECT_EQ(r.status, 1);
    // mpirun adds its own note on the exit status; ours is one line.
    std::smatch error;
    ASSERT_TRUE(std::regex_search(r.err, error, std::regex("vxiso-mpi: error: .*\n"))) << r.err;
    EXPECT_EQ(error.str(),
              "vxiso-mpi: error: rank 2 of 3: ./v.data: the file holds 51408 bytes, but this rank's "
              "slab reaches to byte 57120; the file is truncated or its header is wrong; nothing "
              "was written\n");
    EXPECT_EQ(r.err.find("vxiso-mpi:", error.position() + 1), std::string::npos) << r.err;
    EXPECT_EQ(slurp(path("old.ply")), "kept");
    spit(path("old.ply"), "");
    EXPECT_EQ(entries().filter(".tmp").size(), 0);
    // Memory: the ranks refuse a slab beyond their limit before reading it.
    const Result small = mpi(2, write({"float64", {40, 40, 200}, 0, 0.1}) + " --max-memory 1 -o m.ply");
    EXPECT_EQ(small.status, 1);
    EXPECT_NE(small.err.find("more than --max-memory 1 MB; run more ranks"), std::string::npos) << small.err;
    EXPECT_FALSE(QFileInfo::exists(qpath("m.ply")));
    // A slab that fits but whose surface does not: the allocation fails cleanly within the limit.
    std::mt19937 random(11);
    std::string noise;
    for (int i = 0; i < 96 * 96 * 96; ++i) {
        const float f = std::uniform_real_distribution<float>(0, 1)(random);
        noise.append(reinterpret_cast<const char*>(&f), 4);
    }
    spit(path("noise.raw"), noise);
    const Result full =
        mpi(2, "--raw noise.raw --dims 96 96 96 --type float32 -t 0.5 --max-memory 10 -o n.ply");
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(
        std::regex_search(full.err, std::regex("vxiso-mpi: error: rank [01] of 2: out of memory: could "
                                               "not get .* within --max-memory 10 MB; run more "
                                               "ranks; nothing was written\n")))
        << full.err;
    EXPECT_FALSE(QFileInfo::exists(qpath("n.ply")));
}

// What the ranks cannot read in parts is refused, saying what to do.
TEST_F(VxisoMpi, RefusesCompressedInputAndImpossiblePlans)
{
    spit(path("z.nrrd"), "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 4 4 4\nencoding: gzip\n\n" +
                             deflated(std::string(64, '\1')));
    Result r = mpi(2, "z.nrrd -t 0.5 -o z.ply");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("z.nrrd: its values are compressed; the ranks read their slabs straight from the "
                         "file, so decompress it first"),
              std::string::npos)
        << r.err;
    spit(path("brain.nii.gz"), deflated("x"));
    r = mpi(1, "brain.nii.gz -t 1 -o b.ply");
    EXPECT_NE(r.err.find("is compressed; the ranks read their slabs straight from the file, so decompress it "
                         "first (e.g. gunzip -k"),
              std::string::npos)
        << r.err;
    const std::string args = write(kVolumes[0]);
    r = mpi(3, args + " --slabs 2 -o p.ply");
    EXPECT_NE(r.err.find("--slabs 2 is fewer than the 3 ranks"), std::string::npos) << r.err;
    r = mpi(1, args + " --slabs 40 -o p.ply");
    EXPECT_NE(r.err.find("cannot cut the 39 cell layers along z into 40 slabs"), std::string::npos) << r.err;
    EXPECT_TRUE(onlyInputsLeft());
}
