// NIfTI volumes written here in every layout the reader takes, read back value for value; damaged
// files rejected with one clear line.
#include "../support/TestFiles.h"

#include <io/VxNiftiReader.h>

#include <kx/KxHandle.h>
#include <vx/VxRegScalarField3.h>

#include <Inventor/SbMatrix.h>
#include <Inventor/SbVec3f.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>

#include <sys/stat.h>
#include <zlib.h>

using namespace vxtest;

namespace {

struct TypeCase
{
    int code, bytes;
    KxPrimType type;
};
const TypeCase kTypes[] = {{2, 1, KxPrimType::UINT8},    {256, 1, KxPrimType::INT8},
                           {512, 2, KxPrimType::UINT16}, {4, 2, KxPrimType::INT16},
                           {768, 4, KxPrimType::UINT32}, {8, 4, KxPrimType::INT32},
                           {16, 4, KxPrimType::FLOAT},   {64, 8, KxPrimType::DOUBLE}};

// Everything a test file says. Values are kept in native order; `swap` writes the other order.
struct NiftiFile
{
    int version = 1;
    bool swap = false;
    bool pair = false; // .hdr and .img instead of one .nii
    bool gz = false;
    int datatype = 16;
    int bitpix = -1; // -1: from the datatype
    int64_t dim[8] = {3, 5, 4, 3, 1, 1, 1, 1};
    double pixdim[8] = {1, 1, 1, 1, 0, 0, 0, 0};
    double voxOffset = -1; // -1: right behind the header (0 for a pair)
    double slope = 0, inter = 0;
    int qform = 0, sform = 0;
    double quatern[3] = {0, 0, 0}, qoffset[3] = {0, 0, 0};
    double srow[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    std::string values;        // raw bytes, native order
    std::string magicOverride; // replaces the signature when set

    int typeBytes() const
    {
        for (const TypeCase& t : kTypes)
            if (t.code == datatype) return t.bytes;
        return 4;
    }
};

// The header as the two published layouts place it.
std::string headerOf(const NiftiFile& f)
{
    const int bitpix = f.bitpix >= 0 ? f.bitpix : 8 * f.typeBytes();
    std::string b(f.version == 1 ? 348 : 540, '\0');
    auto put = [&](std::size_t at, auto v) {
        const std::string s(reinterpret_cast<const char*>(&v), sizeof v);
        b.replace(at, sizeof v, f.swap ? byteSwapped(s, sizeof v) : s);
    };
    auto text = [&](std::size_t at, const std::string& s) { b.replace(at, s.size(), s); };
    if (f.version == 1) {
        put(0, int32_t(348));
        for (int i = 0; i < 8; ++i) put(40 + 2 * i, int16_t(f.dim[i]));
        put(70, int16_t(f.datatype));
        put(72, int16_t(bitpix));
        for (int i = 0; i < 8; ++i) put(76 + 4 * i, float(f.pixdim[i]));
        put(108, float(f.voxOffset));
        put(112, float(f.slope));
        put(116, float(f.inter));
        put(252, int16_t(f.qform));
        put(254, int16_t(f.sform));
        for (int i = 0; i < 3; ++i) {
            put(256 + 4 * i, float(f.quatern[i]));
            put(268 + 4 * i, float(f.qoffset[i]));
            for (int c = 0; c < 4; ++c) put(280 + 16 * i + 4 * c, float(f.srow[i][c]));
        }
        text(344, f.magicOverride.empty() ? std::string(f.pair ? "ni1" : "n+1", 4) : f.magicOverride);
        return b;
    }
    put(0, int32_t(540));
    text(4, f.magicOverride.empty() ? std::string(f.pair ? "ni2\0\r\n\032\n" : "n+2\0\r\n\032\n", 8)
                                    : f.magicOverride);
    put(12, int16_t(f.datatype));
    put(14, int16_t(bitpix));
    for (int i = 0; i < 8; ++i) put(16 + 8 * i, int64_t(f.dim[i]));
    for (int i = 0; i < 8; ++i) put(104 + 8 * i, double(f.pixdim[i]));
    put(168, int64_t(f.voxOffset));
    put(176, double(f.slope));
    put(184, double(f.inter));
    put(344, int32_t(f.qform));
    put(348, int32_t(f.sform));
    for (int i = 0; i < 3; ++i) {
        put(352 + 8 * i, double(f.quatern[i]));
        put(376 + 8 * i, double(f.qoffset[i]));
        for (int c = 0; c < 4; ++c) put(400 + 32 * i + 8 * c, double(f.srow[i][c]));
    }
    return b;
}

std::string swappedValues(const NiftiFile& f)
{
    return f.swap ? byteSwapped(f.values, std::size_t(f.typeBytes())) : f.values;
}

void writeBytes(const std::string& path, const std::string& bytes, bool gz)
{
    if (gz) {
        gzFile g = gzopen(path.c_str(), "wb");
        ASSERT_NE(g, nullptr) << path;
        const int written = bytes.empty() ? 0 : gzwrite(g, bytes.data(), unsigned(bytes.size()));
        EXPECT_EQ(written, int(bytes.size())) << path;
        gzclose(g);
    } else {
        spit(path, bytes);
    }
}

// Writes f under base (.nii[.gz] or .hdr + .img[.gz]); returns the header's name.
std::string writeNifti(NiftiFile f, const std::string& base)
{
    const std::size_t headerSize = f.version == 1 ? 348 : 540;
    if (f.voxOffset < 0) f.voxOffset = f.pair ? 0 : double(f.version == 1 ? 352 : 544);
    const std::string header = headerOf(f);
    const std::string gap(std::size_t(std::max(0.0, f.voxOffset - (f.pair ? 0 : double(headerSize)))), 'x');
    if (!f.pair) {
        const std::string path = base + (f.gz ? ".nii.gz" : ".nii");
        writeBytes(path, header + gap + swappedValues(f), f.gz);
        return path;
    }
    writeBytes(base + ".hdr", header, false);
    writeBytes(base + (f.gz ? ".img.gz" : ".img"), gap + swappedValues(f), f.gz);
    return base + ".hdr";
}

std::string randomBytes(std::size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (char& c : s) c = char(rng() & 0xff);
    return s;
}

struct Read
{
    KxHandle<VxUniformScalarField3> field;
    VxNiftiInfo info;
    QString error;
};

Read readNifti(const std::string& path)
{
    Read r;
    r.field = VxNiftiReader::read(QString::fromStdString(path), &r.error, &r.info);
    return r;
}

class NiftiReader : public TempDirTest
{
};

} // namespace

// 2 versions x 2 byte orders x 4 containers x 8 types: every value, the dimensions, the type and the
// box (non-unit spacing, negative pixdim, non-zero origin from the sform or the qform).
TEST_F(NiftiReader, EveryLayoutAndTypeReadsBackExactly)
{
    int n = 0;
    for (int version : {1, 2})
        for (bool swap : {false, true})
            for (int container = 0; container < 4; ++container)
                for (const TypeCase& t : kTypes) {
                    NiftiFile f;
                    f.version = version;
                    f.swap = swap;
                    f.pair = container >= 2;
                    f.gz = container % 2 == 1;
                    f.datatype = t.code;
                    f.pixdim[1] = 0.5, f.pixdim[2] = -2, f.pixdim[3] = 1.25;
                    if (version == 1) {
                        f.sform = 1;
                        const double row[3][4] = {{0.5, 0, 0, 10}, {0, 2, 0, -4}, {0, 0, 1.25, 3}};
                        std::memcpy(f.srow, row, sizeof row);
                    } else {
                        // Identity quaternion: the axes stay, qoffset is the first voxel.
                        f.qform = 1;
                        f.qoffset[0] = 10, f.qoffset[1] = -4, f.qoffset[2] = 3;
                    }
                    // A 4-D header with one time point is a volume too.
                    if (t.code == 512) f.dim[0] = 4;
                    // Extension bytes between header and values in the single files.
                    if (!f.pair && t.code == 8) f.voxOffset = (version == 1 ? 352 : 544) + 48;
                    f.values = randomBytes(5 * 4 * 3 * std::size_t(t.bytes), unsigned(++n));
                    const std::string what = "v" + std::to_string(version) + (swap ? " swapped" : "") +
                                             " container " + std::to_string(container) + " type " +
                                             std::to_string(t.code);
                    const std::string file = writeNifti(f, path("vol" + std::to_string(n)));
                    std::vector<std::string> names = {file};
                    if (f.pair)
                        names.push_back(path("vol" + std::to_string(n)) + (f.gz ? ".img.gz" : ".img"));
                    for (const std::string& name : names) {
                        const Read r = readNifti(name);
                        ASSERT_TRUE(r.field) << what << ": " << r.error.toStdString();
                        EXPECT_EQ(r.field->getDims(), KxDim3l(5, 4, 3)) << what;
                        EXPECT_EQ(r.field->primType(), t.type) << what;
                        ASSERT_EQ(r.field->lattice().byteSize(), f.values.size()) << what;
                        EXPECT_EQ(std::memcmp(r.field->lattice().dataPtr(), f.values.data(), f.values.size()),
                                  0)
                            << what;
                        expectBox(r.field->getBoundingBox(), {10, 12, -4, 2, 3, 5.5f}, what, 1e-4f);
                        EXPECT_FALSE(r.field->getTransform(true)) << what;
                        EXPECT_EQ(r.info.version, version);
                        EXPECT_EQ(r.info.swapped, swap);
                        EXPECT_FALSE(r.info.hasScaling());
                    }
                }
}

// The index-to-world map of the header equals box placement followed by the field's transform.
TEST_F(NiftiReader, OrientationBecomesTheTransform)
{
    struct Case
    {
        const char* what;
        NiftiFile f;
        // world position of voxel (i, j, k), worked out by hand for each case
        std::function<SbVec3f(int, int, int)> world;
    };
    std::vector<Case> cases;
    {
        // Radiological sform: x mirrored, y and z swapped, spacing 2, 3, 4.
        NiftiFile f;
        f.sform = 2;
        f.pixdim[1] = 2, f.pixdim[2] = 3, f.pixdim[3] = 4;
        const double row[3][4] = {{-2, 0, 0, 90}, {0, 0, 4, -20}, {0, 3, 0, 7}};
        std::memcpy(f.srow, row, sizeof row);
        cases.push_back({"sform", f, [](int i, int j, int k) {
                             return SbVec3f(90.f - 2.f * float(i), -20.f + 4.f * float(k),
                                            7.f + 3.f * float(j));
                         }});
    }
    {
        // Quarter turn about z (b = c = 0, d = sin 45 degrees), qfac -1 mirrors k, spacing 1.5, 1, 2.
        NiftiFile f;
        f.version = 2;
        f.qform = 1;
        f.pixdim[0] = -1, f.pixdim[1] = 1.5, f.pixdim[2] = 1, f.pixdim[3] = 2;
        f.quatern[2] = std::sqrt(0.5);
        f.qoffset[0] = 5, f.qoffset[1] = 6, f.qoffset[2] = 7;
        cases.push_back({"qform", f, [](int i, int j, int k) {
                             return SbVec3f(5.f - 1.f * float(j), 6.f + 1.5f * float(i),
                                            7.f - 2.f * float(k));
                         }});
    }
    {
        // Both codes set: the sform wins; here it is a plain shift.
        NiftiFile f;
        f.qform = 1;
        f.quatern[2] = std::sqrt(0.5);
        f.sform = 1;
        const double row[3][4] = {{1, 0, 0, -1}, {0, 1, 0, -2}, {0, 0, 1, -3}};
        std::memcpy(f.srow, row, sizeof row);
        cases.push_back({"sform over qform", f, [](int i, int j, int k) {
                             return SbVec3f(float(i) - 1.f, float(j) - 2.f, float(k) - 3.f);
                         }});
    }
    {
        // Neither: pixdim alone, from the origin.
        NiftiFile f;
        f.pixdim[1] = 0.25, f.pixdim[2] = 0.5, f.pixdim[3] = 3;
        cases.push_back({"pixdim", f, [](int i, int j, int k) {
                             return SbVec3f(0.25f * float(i), 0.5f * float(j), 3.f * float(k));
                         }});
    }
    {
        // The sform's columns are the spacing, whatever pixdim says.
        NiftiFile f;
        f.sform = 1;
        f.pixdim[1] = f.pixdim[2] = f.pixdim[3] = 2;
        const double row[3][4] = {{0.5, 0, 0, 1}, {0, 0.5, 0, 2}, {0, 0, 0.5, 3}};
        std::memcpy(f.srow, row, sizeof row);
        cases.push_back({"sform over pixdim", f, [](int i, int j, int k) {
                             return SbVec3f(1.f + 0.5f * float(i), 2.f + 0.5f * float(j),
                                            3.f + 0.5f * float(k));
                         }});
    }
    {
        // An sform of zeros places nothing: the qform does.
        NiftiFile f;
        f.sform = 1;
        std::memset(f.srow, 0, sizeof f.srow);
        f.qform = 1;
        f.pixdim[1] = 0.25, f.pixdim[2] = 0.5, f.pixdim[3] = 3;
        f.qoffset[0] = 5, f.qoffset[1] = 6, f.qoffset[2] = 7;
        cases.push_back({"zero sform", f, [](int i, int j, int k) {
                             return SbVec3f(5.f + 0.25f * float(i), 6.f + 0.5f * float(j),
                                            7.f + 3.f * float(k));
                         }});
    }
    int n = 0;
    for (Case& c : cases) {
        c.f.values = randomBytes(5 * 4 * 3 * 4, 7);
        const Read r = readNifti(writeNifti(c.f, path("o" + std::to_string(++n))));
        ASSERT_TRUE(r.field) << c.what << ": " << r.error.toStdString();
        const KxBox3f box = r.field->getBoundingBox();
        const SbVec3f first = c.world(0, 0, 0);
        EXPECT_NEAR(box.xmin, first[0], 1e-5) << c.what;
        EXPECT_NEAR(box.ymin, first[1], 1e-5) << c.what;
        EXPECT_NEAR(box.zmin, first[2], 1e-5) << c.what;
        SbMatrix m;
        const bool turned = r.field->getTransform(m);
        EXPECT_EQ(turned, n <= 2) << c.what;
        const KxVec3f voxel = r.field->getVoxelSize();
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 4; ++j)
                for (int i = 0; i < 5; ++i) {
                    const SbVec3f local(box.xmin + float(i) * voxel.x, box.ymin + float(j) * voxel.y,
                                        box.zmin + float(k) * voxel.z);
                    SbVec3f world;
                    m.multVecMatrix(local, world);
                    const SbVec3f want = c.world(i, j, k);
                    for (int a = 0; a < 3; ++a)
                        EXPECT_NEAR(world[a], want[a], 1e-4)
                            << c.what << " voxel " << i << " " << j << " " << k;
                }
    }
    // An axis of one node keeps the header's spacing: its box is a point, its voxel size is not.
    NiftiFile flat;
    flat.dim[3] = 1;
    flat.pixdim[1] = flat.pixdim[2] = 1.5, flat.pixdim[3] = 2.5;
    flat.values = randomBytes(5 * 4 * 4, 7);
    const Read r = readNifti(writeNifti(flat, path("flat")));
    ASSERT_TRUE(r.field) << r.error.toStdString();
    EXPECT_EQ(r.field->getVoxelSize(), KxVec3f(1.5f, 1.5f, 2.5f));
}

// Scaled values stay stored values of the stored type; the scaling is reported, not applied.
TEST_F(NiftiReader, ScalingIsReportedAndValuesKeptAsStored)
{
    NiftiFile f;
    f.datatype = 4;
    f.values = randomBytes(5 * 4 * 3 * 2, 3);
    struct Case
    {
        double slope, inter;
        bool scaled;
    } cases[] = {{2, -5, true}, {1, -1024, true}, {0, 7, false}, {1, 0, false}, {NAN, 0, false}};
    int n = 0;
    for (const Case& c : cases) {
        f.slope = c.slope;
        f.inter = c.inter;
        f.version = 1 + n % 2;
        const Read r = readNifti(writeNifti(f, path("s" + std::to_string(++n))));
        ASSERT_TRUE(r.field) << r.error.toStdString();
        EXPECT_EQ(r.field->primType(), KxPrimType::INT16);
        EXPECT_EQ(std::memcmp(r.field->lattice().dataPtr(), f.values.data(), f.values.size()), 0);
        EXPECT_EQ(r.info.hasScaling(), c.scaled) << c.slope << " " << c.inter;
        if (!c.scaled) {
            EXPECT_TRUE(r.info.scaling().isEmpty());
            EXPECT_EQ(r.info.toStored(123), 123);
        }
    }
    f.slope = 2, f.inter = -5;
    const Read r = readNifti(writeNifti(f, path("s-text")));
    EXPECT_EQ(r.info.scaling().toStdString(), "values are stored unscaled: physical value = 2 * stored - 5");
    EXPECT_EQ(r.info.toStored(95), 50);
}

// Every damaged or unsupported file: null, and one line naming the file and the problem.
TEST_F(NiftiReader, BadFilesGiveOneClearError)
{
    NiftiFile good;
    good.values = randomBytes(5 * 4 * 3 * 4, 11);
    struct Case
    {
        std::string file, message;
    };
    std::vector<Case> cases;
    auto add = [&](const std::string& name, NiftiFile f, const std::string& message) {
        cases.push_back({writeNifti(f, path(name)), message});
    };
    auto variant = [&](auto change) {
        NiftiFile f = good;
        change(f);
        return f;
    };

    cases.push_back({path("missing.nii"), "No such file or directory"});
    ::mkdir(path("dir.nii").c_str(), 0755);
    cases.push_back({path("dir.nii"), "is a directory"});
    writeBytes(path("empty.nii"), "", false);
    cases.push_back({path("empty.nii"), "holds 0 bytes, too few for a NIfTI header"});
    writeBytes(path("text.nii"), std::string(400, 'a'), false);
    cases.push_back(
        {path("text.nii"), "not a NIfTI file: its header does not start with the size 348 or 540"});
    writeBytes(path("short.nii"), headerOf(good).substr(0, 200), false);
    cases.push_back({path("short.nii"), "header is truncated: 200 of its 348 bytes are present"});
    add("analyze", variant([](NiftiFile& f) { f.magicOverride = std::string("\0\0\0\0", 4); }),
        "lacks the 'n+1' or 'ni1' signature");
    add("texted", variant([](NiftiFile& f) {
            f.version = 2;
            f.magicOverride = std::string("n+2\0\n\032\n\0", 8);
        }),
        "NIfTI-2 signature is damaged");
    add("flat", variant([](NiftiFile& f) { f.dim[0] = 2; }),
        "holds a 2-D image; only 3-D volumes are supported");
    add("series", variant([](NiftiFile& f) { f.dim[0] = 4, f.dim[4] = 10; }),
        "holds a 4-D dataset (dim 5 4 3 10); only single 3-D volumes are supported");
    add("rank", variant([](NiftiFile& f) { f.dim[0] = 9; }), "dim[0] is 9, not a number of dimensions");
    add("zero", variant([](NiftiFile& f) { f.dim[2] = 0; }), "dimensions must be positive, not 5 0 3");
    add("negative", variant([](NiftiFile& f) { f.swap = true, f.dim[3] = -3; }),
        "dimensions must be positive, not 5 4 -3");
    add("huge", variant([](NiftiFile& f) { f.version = 2, f.dim[1] = f.dim[2] = f.dim[3] = 1000000000; }),
        "dimensions 1000000000 1000000000 1000000000 are too large");
    add("wide", variant([](NiftiFile& f) { f.version = 2, f.dim[1] = int64_t(1) << 40; }), "are too large");
    add("complex", variant([](NiftiFile& f) { f.datatype = 32; }),
        "unsupported NIfTI datatype 32 (complex64)");
    add("odd", variant([](NiftiFile& f) { f.datatype = 99; }), "unsupported NIfTI datatype 99 (unknown)");
    add("int64", variant([](NiftiFile& f) { f.version = 2, f.datatype = 1024; }),
        "unsupported NIfTI datatype 1024 (int64)");
    add("bitpix", variant([](NiftiFile& f) { f.bitpix = 16; }),
        "bitpix 16 does not match datatype 16 (float32)");
    add("offset", variant([](NiftiFile& f) { f.voxOffset = 100; }), "vox_offset 100 is not a valid position");
    add("fraction", variant([](NiftiFile& f) { f.voxOffset = 352.5; }),
        "vox_offset 352.5 is not a valid position");
    add("nanpix", variant([](NiftiFile& f) { f.pixdim[2] = NAN; }), "pixdim[2] is not a finite number");
    add("nansform", variant([](NiftiFile& f) { f.sform = 1, f.srow[1][3] = INFINITY; }),
        "the origin's y coordinate is not a finite number (placement from the sform)");
    add("plainshort", variant([](NiftiFile& f) { f.values.resize(200); }),
        "file holds 552 bytes, but 5x4x3 float32 values at offset 352 need 592");
    add("v2short", variant([](NiftiFile& f) { f.version = 2, f.swap = true, f.values.resize(7); }),
        "file holds 551 bytes, but 5x4x3 float32 values at offset 544 need 784");
    add("extension", variant([](NiftiFile& f) { f.voxOffset = 1000, f.values.clear(); }),
        "file holds 1000 bytes, but 5x4x3 float32 values at offset 1000 need 1240");
    add("liar", variant([](NiftiFile& f) { f.gz = true, f.dim[1] = f.dim[2] = f.dim[3] = 2000; }),
        "cannot hold the 2000x2000x2000 float32 values (32000000000 bytes) its header describes");
    add("gzshort", variant([](NiftiFile& f) { f.gz = true, f.values.resize(100); }),
        "gzip stream ends after 100 of the 240 bytes of 5x4x3 float32 values; the file is truncated");
    writeBytes(path("gzextshort.nii.gz"),
               headerOf(variant([](NiftiFile& f) { f.voxOffset = 1000; })) + std::string(100, 'x'), true);
    cases.push_back(
        {path("gzextshort.nii.gz"), "gzip stream ends after 448 of the 1000 bytes of header and extensions"});
    add("nopair", variant([](NiftiFile& f) { f.pair = true; }), "");
    ::remove(path("nopair.img").c_str());
    cases.back().message = "the header's values are in a separate image file, but neither " + path("nopair") +
                           ".img nor " + path("nopair") + ".img.gz exists";
    writeBytes(path("lonely.img"), good.values, false);
    cases.push_back({path("lonely.img"), "no header beside the image (looked for " + path("lonely") +
                                             ".hdr and " + path("lonely") + ".hdr.gz)"});

    // A gzip file cut short mid-stream, one with a damaged deflate stream, one without its checksum.
    NiftiFile big = good;
    big.gz = true;
    big.dim[1] = big.dim[2] = big.dim[3] = 40;
    big.values = randomBytes(40 * 40 * 40 * 4, 5);
    const std::string whole = slurp(writeNifti(big, path("big")));
    writeBytes(path("cut.nii.gz"), whole.substr(0, whole.size() / 2), false);
    cases.push_back({path("cut.nii.gz"), "bytes of 40x40x40 float32 values; the file is truncated"});
    std::string damaged = whole;
    for (std::size_t i = damaged.size() / 2; i < damaged.size() / 2 + 64; ++i) damaged[i] = char(~damaged[i]);
    writeBytes(path("damaged.nii.gz"), damaged, false);
    cases.push_back({path("damaged.nii.gz"), "damaged.nii.gz: gzip data is corrupt (incorrect data check)"});
    writeBytes(path("nocheck.nii.gz"), whole.substr(0, whole.size() - 6), false);
    cases.push_back({path("nocheck.nii.gz"), "gzip stream ends before its checksum; the file is truncated"});

    for (const Case& c : cases) {
        const Read r = readNifti(c.file);
        EXPECT_FALSE(r.field) << c.file;
        const std::string e = r.error.toStdString();
        // The message starts with the file it is about: the one given, or the other half of a pair.
        EXPECT_EQ(e.rfind(path(""), 0), 0u) << e;
        EXPECT_NE(e.find(": "), std::string::npos) << e;
        EXPECT_NE(e.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << e;
        EXPECT_EQ(e.find('\n'), std::string::npos) << e;
    }
    // The problem is reported against the file given.
    EXPECT_EQ(readNifti(path("zero.nii")).error.toStdString(),
              path("zero.nii") + ": dimensions must be positive, not 5 0 3");
}

// Random damage to the header: a field or one line of error, never a crash or a hang.
TEST_F(NiftiReader, DamagedHeadersGiveAFieldOrAnError)
{
    std::mt19937 rng(2024);
    for (int version : {1, 2}) {
        NiftiFile f;
        f.version = version;
        f.values = randomBytes(5 * 4 * 3 * 4, 1);
        const std::string whole = slurp(writeNifti(f, path("whole")));
        const std::size_t headerSize = version == 1 ? 348 : 540;
        for (int trial = 0; trial < 300; ++trial) {
            std::string damaged = whole;
            for (int k = 0; k < 1 + trial % 4; ++k) damaged[rng() % headerSize] = char(rng() & 0xff);
            writeBytes(path("damaged.nii"), damaged, false);
            const Read r = readNifti(path("damaged.nii"));
            if (!r.field) {
                EXPECT_FALSE(r.error.isEmpty());
                EXPECT_EQ(r.error.indexOf('\n'), -1) << r.error.toStdString();
            } else {
                EXPECT_GT(r.field->getDims().count(), 0);
            }
        }
    }
}

TEST(NiftiReaderNames, RecognisesItsExtensions)
{
    for (const char* yes : {"a.nii", "b.NII.GZ", "dir.x/c.hdr", "d.img", "e.img.gz", "f.hdr.gz"})
        EXPECT_TRUE(VxNiftiReader::isNiftiPath(yes)) << yes;
    for (const char* no : {"a.raw", "b.gz", ".nii", "c.nii.bak", "d.niigz", "img"})
        EXPECT_FALSE(VxNiftiReader::isNiftiPath(no)) << no;
}
