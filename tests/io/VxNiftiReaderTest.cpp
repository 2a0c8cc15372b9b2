// NIfTI volumes written here in every layout the reader takes, read back value for value; damaged
// files rejected with one clear line.
#include "../support/TestFormats.h"

#include <io/VxNiftiReader.h>

#include <kx/KxHandle.h>
#include <vx/VxRegScalarField3.h>

#include <cmath>
#include <random>

#include <sys/stat.h>

using namespace vxtest;

namespace {

const std::pair<int, KxPrimType> kTypes[] = {
    {2, KxPrimType::UINT8},    {256, KxPrimType::INT8}, {512, KxPrimType::UINT16}, {4, KxPrimType::INT16},
    {768, KxPrimType::UINT32}, {8, KxPrimType::INT32},  {16, KxPrimType::FLOAT},   {64, KxPrimType::DOUBLE}};

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
    const double spacing[3] = {0.5, 2, 1.25}, origin[3] = {10, -4, 3};
    int n = 0;
    for (int version : {1, 2})
        for (bool swap : {false, true})
            for (int container = 0; container < 4; ++container)
                for (const auto& [code, type] : kTypes) {
                    NiftiFile f;
                    f.version = version, f.swap = swap, f.pair = container >= 2, f.gz = container % 2;
                    f.datatype = code;
                    f.place(spacing, origin);
                    f.pixdim[2] = -2;
                    if (version == 2) { // an identity quaternion: the axes stay, qoffset is the first voxel
                        f.sform = 0, f.qform = 1;
                        std::copy(origin, origin + 3, f.qoffset);
                    }
                    // A 4-D header with one time point is a volume too.
                    if (code == 512) f.dim[0] = 4;
                    // Extension bytes between header and values in the single files.
                    if (!f.pair && code == 8) f.voxOffset = (version == 1 ? 352 : 544) + 48;
                    f.values = randomBytes(5 * 4 * 3 * std::size_t(f.typeBytes()), unsigned(++n));
                    const std::string base = path("vol" + std::to_string(n)), file = writeNifti(f, base);
                    for (const std::string& name :
                         {file, f.pair ? base + ".img" + (f.gz ? ".gz" : "") : file}) {
                        SCOPED_TRACE(name + " v" + std::to_string(version) + (swap ? " swapped" : ""));
                        const Read r = readNifti(name);
                        ASSERT_TRUE(r.field) << r.error.toStdString();
                        EXPECT_EQ(r.field->getDims(), KxDim3l(5, 4, 3));
                        EXPECT_EQ(r.field->primType(), type);
                        ASSERT_EQ(r.field->lattice().byteSize(), f.values.size());
                        EXPECT_EQ(std::memcmp(r.field->lattice().dataPtr(), f.values.data(), f.values.size()),
                                  0);
                        expectBox(r.field->getBoundingBox(), {10, 12, -4, 2, 3, 5.5f}, name, 1e-4f);
                        EXPECT_FALSE(r.field->getTransform(true));
                        EXPECT_TRUE(r.info.version == version && r.info.swapped == swap &&
                                    !r.info.hasScaling());
                    }
                }
}

// The scaling is reported, not applied (VxisoCommand checks that the values stay as stored); a slope
// of 0 or NaN, or 1 with no intercept, is no scaling.
TEST_F(NiftiReader, ScalingIsReportedNotApplied)
{
    NiftiFile f;
    f.values = randomBytes(5 * 4 * 3 * 4, 3);
    const double cases[][3] = {
        {2, -5, 50}, {1, -1024, 1119}, {0, 7, 95}, {1, 0, 95}, {NAN, 0, 95}}; // slope, inter, stored 95
    int n = 0;
    for (const auto& c : cases) {
        f.slope = c[0], f.inter = c[1], f.version = 1 + n % 2;
        const Read r = readNifti(writeNifti(f, path("s" + std::to_string(++n))));
        ASSERT_TRUE(r.field) << r.error.toStdString();
        EXPECT_EQ(r.info.hasScaling(), c[2] != 95) << c[0] << " " << c[1];
        EXPECT_EQ(r.info.toStored(95), c[2]) << c[0] << " " << c[1];
    }
}

// Every damaged or unsupported file: null, and one line naming the file and the problem.
TEST_F(NiftiReader, BadFilesGiveOneClearError)
{
    NiftiFile good;
    good.values = randomBytes(5 * 4 * 3 * 4, 11);
    std::vector<std::pair<std::string, std::string>> cases; // file, message
    auto add = [&](const std::string& name, const std::string& message, auto change) {
        NiftiFile f = good;
        change(f);
        cases.push_back({writeNifti(f, path(name)), message});
    };
    auto file = [&](const std::string& name, const std::string& bytes, const std::string& message) {
        spit(path(name), bytes);
        cases.push_back({path(name), message});
    };

    ::mkdir(path("dir.nii").c_str(), 0755);
    cases.push_back({path("dir.nii"), "is a directory"});
    file("empty.nii", "", "holds 0 bytes, too few for a NIfTI header");
    file("text.nii", std::string(400, 'a'),
         "not a NIfTI file: its header does not start with the size 348 or 540");
    file("short.nii", niftiHeader(good).substr(0, 200),
         "header is truncated: 200 of its 348 bytes are present");
    add("analyze", "lacks the 'n+1' or 'ni1' signature",
        [](NiftiFile& f) { f.magic = std::string("\0\0\0\0", 4); });
    add("texted", "NIfTI-2 signature is damaged",
        [](NiftiFile& f) { f.version = 2, f.magic = std::string("n+2\0\n\032\n\0", 8); });
    add("flat", "holds a 2-D image; only 3-D volumes are supported", [](NiftiFile& f) { f.dim[0] = 2; });
    add("series", "holds a 4-D dataset (dim 5 4 3 10); only single 3-D volumes are supported",
        [](NiftiFile& f) { f.dim[0] = 4, f.dim[4] = 10; });
    add("rank", "dim[0] is 9, not a number of dimensions", [](NiftiFile& f) { f.dim[0] = 9; });
    add("zero", "dimensions must be positive, not 5 0 3", [](NiftiFile& f) { f.dim[2] = 0; });
    add("huge", "dimensions 1000000000 1000000000 1000000000 are too large",
        [](NiftiFile& f) { f.version = 2, f.dim[1] = f.dim[2] = f.dim[3] = 1000000000; });
    add("complex", "unsupported NIfTI datatype 32 (complex64)", [](NiftiFile& f) { f.datatype = 32; });
    add("odd", "unsupported NIfTI datatype 99 (unknown)", [](NiftiFile& f) { f.datatype = 99; });
    add("bitpix", "bitpix 16 does not match datatype 16 (float32)", [](NiftiFile& f) { f.bitpix = 16; });
    add("offset", "vox_offset 100 is not a valid position", [](NiftiFile& f) { f.voxOffset = 100; });
    add("nanpix", "pixdim[2] is not a finite number", [](NiftiFile& f) { f.pixdim[2] = NAN; });
    add("nansform", "the origin's y coordinate is not a finite number (placement from the sform)",
        [](NiftiFile& f) { f.sform = 1, f.srow[1][3] = INFINITY; });
    add("plainshort", "file holds 552 bytes, but 5x4x3 float32 values at offset 352 need 592",
        [](NiftiFile& f) { f.values.resize(200); });
    add("liar", "cannot hold the 2000x2000x2000 float32 values (32000000000 bytes) its header describes",
        [](NiftiFile& f) { f.gz = true, f.dim[1] = f.dim[2] = f.dim[3] = 2000; });
    add("gzshort",
        "gzip stream ends after 100 of the 240 bytes of 5x4x3 float32 values; the file is truncated",
        [](NiftiFile& f) { f.gz = true, f.values.resize(100); });
    add("nopair", "", [](NiftiFile& f) { f.pair = true; });
    ::remove(path("nopair.img").c_str());
    cases.back().second = "the header's values are in a separate image file, but neither " + path("nopair") +
                          ".img nor " + path("nopair") + ".img.gz exists";
    file("lonely.img", good.values,
         "no header beside the image (looked for " + path("lonely") + ".hdr and " + path("lonely") +
             ".hdr.gz)");

    // A gzip file with a damaged deflate stream, one whose trailer gives another length, one without
    // its checksum.
    NiftiFile zipped = good;
    zipped.gz = true;
    const std::string whole = slurp(writeNifti(zipped, path("zipped")));
    std::string damaged = whole;
    for (std::size_t i = whole.size() - 100; i < whole.size() - 90; ++i) damaged[i] = char(~damaged[i]);
    file("damaged.nii.gz", damaged, "damaged.nii.gz: gzip data is corrupt (");
    std::string longer = whole;
    longer[whole.size() - 4] = char(longer[whole.size() - 4] + 1);
    file("longer.nii.gz", longer, "longer.nii.gz: gzip data is corrupt (incorrect data check)");
    file("nocheck.nii.gz", whole.substr(0, whole.size() - 6),
         "gzip stream ends before its checksum; the file is truncated");
    // Values larger than the blocks inflated ahead go straight to their target: the missing
    // checksum must still be noticed.
    NiftiFile large = zipped;
    large.dim[1] = large.dim[2] = 200;
    large.dim[3] = 8;
    std::vector<float> wave(200 * 200 * 8);
    for (std::size_t i = 0; i < wave.size(); ++i) wave[i] = float(int(100 * std::sin(double(i) / 50)));
    large.values.assign(reinterpret_cast<const char*>(wave.data()), wave.size() * sizeof(float));
    const std::string wholeLarge = slurp(writeNifti(large, path("large")));
    for (int cut = 1; cut <= 8; ++cut)
        file("large" + std::to_string(cut) + ".nii.gz",
             wholeLarge.substr(0, wholeLarge.size() - std::size_t(cut)),
             "gzip stream ends before its checksum; the file is truncated");

    for (const auto& [name, message] : cases) {
        const Read r = readNifti(name);
        EXPECT_FALSE(r.field) << name;
        const std::string e = r.error.toStdString();
        // The message starts with the file it is about: the one given, or the other half of a pair.
        EXPECT_EQ(e.rfind(path(""), 0), 0u) << e;
        EXPECT_NE(e.find(": "), std::string::npos) << e;
        EXPECT_NE(e.find(message), std::string::npos) << "expected '" << message << "' in: " << e;
        EXPECT_EQ(e.find('\n'), std::string::npos) << e;
    }
    // The problem is reported against the file given.
    EXPECT_EQ(readNifti(path("zero.nii")).error.toStdString(),
              path("zero.nii") + ": dimensions must be positive, not 5 0 3");
}
