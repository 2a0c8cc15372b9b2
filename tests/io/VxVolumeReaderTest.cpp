// NRRD, MetaImage and VTK volumes written here in every layout the readers take and read back
// value for value; files that VTK writes, and our files as VTK reads them; damaged files rejected
// with one clear line; label volumes.
#include "../support/TestFormats.h"

#include <io/VxVolumeReader.h>

#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <kx/KxMemory.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxUniformLabelField3.h>

#include <Inventor/SbMatrix.h>
#include <Inventor/SbVec3f.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>
#include <sstream>
#include <tuple>

using namespace vxtest;

namespace {

struct TypeCase
{
    KxPrimType type;
    const char *nrrd, *nrrdAlias, *meta, *vtk;
};
const TypeCase kTypes[] = {
    {KxPrimType::UINT8, "uchar", "unsigned char", "MET_UCHAR", "unsigned_char"},
    {KxPrimType::INT8, "signed char", "int8_t", "MET_CHAR", "char"},
    {KxPrimType::UINT16, "ushort", "unsigned short int", "MET_USHORT", "unsigned_short"},
    {KxPrimType::INT16, "short", "int16", "MET_SHORT", "short"},
    {KxPrimType::UINT32, "uint", "uint32_t", "MET_UINT", "unsigned_int"},
    {KxPrimType::INT32, "int", "signed int", "MET_INT", "int"},
    {KxPrimType::FLOAT, "float", "float", "MET_FLOAT", "float"},
    {KxPrimType::DOUBLE, "double", "double", "MET_DOUBLE", "double"},
};

// 60 values of a type over its whole range (finite for floats): native bytes and exact text.
struct Values
{
    KxPrimType type;
    std::string bytes, text;
};

Values makeValues(KxPrimType type, unsigned seed)
{
    std::mt19937_64 rng(seed);
    Values v{type, {}, {}};
    kxDispatchPrimType(type, nullptr, [&](auto* tag) {
        using T = std::remove_pointer_t<decltype(tag)>;
        for (int i = 0; i < 60; ++i) {
            T x;
            if constexpr (std::is_floating_point<T>::value)
                x = T((double(rng() % 2001) - 1000.0) * std::pow(10.0, double(rng() % 40) - 20.0));
            else
                x = i == 0   ? std::numeric_limits<T>::lowest()
                    : i == 1 ? std::numeric_limits<T>::max()
                             : T(rng());
            v.bytes.append(reinterpret_cast<const char*>(&x), sizeof x);
            char text[64];
            const auto end = std::is_floating_point<T>::value
                                 ? std::to_chars(text, text + 64, x).ptr
                                 : std::to_chars(text, text + 64, int64_t(x)).ptr;
            v.text.append(text, end).append(i % 7 == 6 ? "\n" : " ");
        }
    });
    return v;
}

std::string inOrder(const Values& v, bool bigEndian)
{
    return bigEndian ? byteSwapped(v.bytes, v.type.size()) : v.bytes;
}

// The values in an encoding: "raw", "gzip" (a gzip or, windowBits 15, zlib stream) or "ascii".
std::string encoded(const Values& v, const std::string& encoding, bool bigEndian, int windowBits)
{
    return encoding == "ascii"  ? v.text
           : encoding == "gzip" ? deflated(inOrder(v, bigEndian), windowBits)
                                : inOrder(v, bigEndian);
}

struct Read
{
    KxHandle<VxSpatialData> data;
    QString error;
    VxVolumeInfo info;
    VxRegScalarField3* field() const { return kx_type_cast<VxRegScalarField3>(data.get()); }
};

Read readVolume(const std::string& path, bool labels = false, const std::optional<VxRawDescription>& raw = {})
{
    Read r;
    VxReadOptions o;
    o.labels = labels, o.raw = raw;
    r.data = VxVolumeReader::read(QString::fromStdString(path), o, &r.error, &r.info);
    return r;
}

// The field holds exactly the values, on 5x4x3 nodes; uniform ones 0.5 2 1.25 apart from 10 -4 3.
void expectValues(const Read& r, const Values& v, const std::string& what)
{
    ASSERT_TRUE(r.field()) << what << ": " << r.error.toStdString();
    EXPECT_EQ(r.field()->getDims(), KxDim3l(5, 4, 3)) << what;
    EXPECT_EQ(r.field()->primType(), v.type) << what;
    ASSERT_EQ(r.field()->lattice().byteSize(), v.bytes.size()) << what;
    EXPECT_EQ(std::memcmp(r.field()->lattice().dataPtr(), v.bytes.data(), v.bytes.size()), 0) << what;
    if (r.field()->lattice().coords()->coordType() != VX_COORD_UNIFORM) return;
    expectBox(r.field()->getBoundingBox(), {10, 12, -4, 2, 3, 5.5f}, what);
    EXPECT_FALSE(r.field()->getTransform(true)) << what;
}

class VolumeReader : public TempDirTest
{
};

// Big-endian binary or text numbers, as VTK legacy files hold them.
std::string vtkNumbers(const std::vector<float>& v, bool binary)
{
    if (binary)
        return byteSwapped(std::string(reinterpret_cast<const char*>(v.data()), 4 * v.size()), 4) + "\n";
    std::string out;
    char t[32];
    for (float f : v) out.append(t, std::to_chars(t, t + 32, f).ptr).append(" ");
    return out + "\n";
}

// Structured points of the values, where another attribute before the scalars is to be skipped. (The
// grids come from VTK's own writers in FilesWrittenByVtkLoad.)
std::string vtkFile(const TypeCase& t, const Values& v, bool binary)
{
    return std::string("# vtk DataFile Version 3.0\ntest volume\n") + (binary ? "BINARY" : "ASCII") +
           "\nDATASET STRUCTURED_POINTS\nDIMENSIONS 5 4 3\nORIGIN 10 -4 3\nSPACING 0.5 2 1.25\n"
           "POINT_DATA 60\nVECTORS flow float\n" +
           vtkNumbers(std::vector<float>(180, 1.5f), binary) + "SCALARS values " + t.vtk +
           " 1\nLOOKUP_TABLE default\n" + (binary ? inOrder(v, true) : v.text) + "\n";
}

} // namespace

// 8 types x raw, compressed (both byte orders) and text x attached and detached, in NRRD (both type
// spellings, placed by space directions or by spacings and axis mins, gzip of one or two members,
// detached names that start with ':' (which Qt's folder class takes for a resource)), MetaImage (zlib,
// attached text only) and VTK (big-endian BINARY and ASCII).
TEST_F(VolumeReader, NrrdMetaImageAndVtkEveryLayoutAndTypeReadBackExactly)
{
    int n = 0;
    for (const std::string format : {"NRRD", "MetaImage", "VTK structured points"})
        for (const TypeCase& t : kTypes)
            for (const std::string encoding : {"raw", "gzip", "ascii"})
                for (bool big : {false, true})
                    for (bool detached : {false, true}) {
                        const bool nrrd = format == "NRRD", vtk = format[0] == 'V';
                        if (encoding == "ascii" && (big || (!nrrd && detached))) continue;
                        if (vtk && (detached || encoding == "gzip" || (encoding == "raw" && !big))) continue;
                        const Values v = makeValues(t.type, unsigned(++n));
                        const std::string name = "v" + std::to_string(n), ordered = inOrder(v, big);
                        std::string data = encoded(v, encoding, big, nrrd ? 31 : 15), h;
                        if (nrrd && encoding == "gzip" && n % 2)
                            data = deflated(ordered.substr(0, 50)) + deflated(ordered.substr(50));
                        const std::string dataName = (nrrd && n % 4 == 0 ? ":" : "") + name + ".raw";
                        if (vtk) {
                            h = vtkFile(t, v, encoding == "raw");
                        } else if (nrrd) {
                            h = "NRRD0004\n# written by the reader tests\ntype: " +
                                std::string(n % 2 ? t.nrrd : t.nrrdAlias) +
                                "\ndimension: 3\nsizes: 5 4 3\nencoding: " + encoding + "\n";
                            if (encoding != "ascii")
                                h += std::string("endian: ") + (big ? "big\n" : "little\n");
                            h +=
                                n % 3
                                    ? "space: right-anterior-superior\nspace directions: (0.5,0,0) (0, 2, 0) "
                                      "(0,0,1.25)\nspace origin: (10,-4,3)\n"
                                    : "spacings: 0.5 2 1.25\naxis mins: 10 -4 3\n";
                            h += "content:=key/value pairs are free text: sizes: 1 1 1\n";
                            h += detached ? "data file: " + dataName + "\n" : "\n" + data;
                        } else {
                            h = std::string("ObjectType = Image\nNDims = 3\nBinaryData = ") +
                                (encoding == "ascii" ? "False" : "True") +
                                "\nBinaryDataByteOrderMSB = " + (big ? "True" : "False") +
                                "\nCompressedData = " + (encoding == "gzip" ? "True" : "False") +
                                "\nTransformMatrix = 1 0 0 0 1 0 0 0 1\nOffset = 10 -4 3\n"
                                "ElementSpacing = 0.5 2 1.25\nDimSize = 5 4 3\nElementType = " +
                                t.meta + "\n";
                            if (encoding == "gzip")
                                h += "CompressedDataSize = " + std::to_string(data.size()) + "\n";
                            h += "ElementDataFile = " + (detached ? dataName + "\n" : "LOCAL\n" + data);
                        }
                        const std::string file = path(name + (vtk    ? ".vtk"
                                                              : nrrd ? (detached ? ".nhdr" : ".nrrd")
                                                                     : (detached ? ".mhd" : ".mha")));
                        if (detached) spit(path(dataName), data);
                        spit(file, h);
                        const Read r = readVolume(file);
                        expectValues(r, v, file);
                        EXPECT_EQ(r.info.format, QString::fromStdString(format));
                    }
}

// The index-to-world map of the header equals the box placement followed by the transform: turned
// NRRD and MetaImage axes, a mirrored VTK axis, and NIfTI placed by its sform, qform or pixdim.
TEST_F(VolumeReader, OrientationBecomesTheTransform)
{
    using World = std::array<std::array<double, 4>, 3>; // node (i, j, k) to world, worked out by hand
    // Axis i runs along +y with spacing 0.5, j along -x with 2, k along z with 1.25.
    const World turned = {{{0, -2, 0, 10}, {0.5, 0, 0, -4}, {0, 0, 1.25, 3}}};
    const Values v = makeValues(KxPrimType::INT16, 5);
    spit(path("o.nrrd"), "NRRD0005\ntype: short\ndimension: 3\nsizes: 5 4 3\nencoding: raw\nendian: little\n"
                         "space dimension: 3\nspace directions: (0,0.5,0) (-2,0,0) (0,0,1.25)\n"
                         "space origin: (10,-4,3)\n\n" +
                             v.bytes);
    spit(path("o.mha"), "NDims = 3\nDimSize = 5 4 3\nElementType = MET_SHORT\nOffset = 10 -4 3\n"
                        "ElementSpacing = 0.5 2 1.25\nTransformMatrix = 0 1 0 -1 0 0 0 0 1\n"
                        "ElementDataFile = LOCAL\n" +
                            v.bytes);
    // A negative VTK spacing runs the axis backwards.
    std::string mirrored = vtkFile(kTypes[3], v, false);
    spit(path("m.vtk"), mirrored.replace(mirrored.find("SPACING 0.5"), 11, "SPACING -0.5"));
    std::vector<std::pair<std::string, World>> cases = {
        {path("o.nrrd"), turned},
        {path("o.mha"), turned},
        {path("m.vtk"), {{{-0.5, 0, 0, 10}, {0, 2, 0, -4}, {0, 0, 1.25, 3}}}}};
    // NIfTI: an sform code puts the map in the sform's rows (-1: code 1, rows of zeros).
    auto nifti = [&](int version, int qform, int sform, std::array<double, 4> pixdim, double quaternD,
                     std::array<double, 3> qoffset, const World& world) {
        NiftiFile f;
        f.version = version, f.qform = qform, f.sform = std::abs(sform), f.quatern[2] = quaternD;
        std::copy(pixdim.begin(), pixdim.end(), f.pixdim);
        std::copy(qoffset.begin(), qoffset.end(), f.qoffset);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 4; ++c) f.srow[r][c] = sform > 0 ? world[r][c] : sform < 0 ? 0 : f.srow[r][c];
        f.values = v.bytes;
        f.datatype = 4;
        cases.push_back({writeNifti(f, path("n" + std::to_string(cases.size()))), world});
    };
    const double d = std::sqrt(0.5); // a quarter turn about z
    // Radiological sform: x mirrored, y and z swapped, spacing 2, 3, 4.
    nifti(1, 0, 2, {1, 2, 3, 4}, 0, {}, {{{-2, 0, 0, 90}, {0, 0, 4, -20}, {0, 3, 0, 7}}});
    // The quarter turn from the qform, whose qfac -1 mirrors k; spacing 1.5, 1, 2.
    nifti(2, 1, 0, {-1, 1.5, 1, 2}, d, {5, 6, 7}, {{{0, -1, 0, 5}, {1.5, 0, 0, 6}, {0, 0, -2, 7}}});
    // Both codes set: the sform wins; here it is a plain shift.
    nifti(1, 1, 1, {1, 1, 1, 1}, d, {}, {{{1, 0, 0, -1}, {0, 1, 0, -2}, {0, 0, 1, -3}}});
    // Neither: pixdim alone, from the origin.
    nifti(1, 0, 0, {1, 0.25, 0.5, 3}, 0, {}, {{{0.25, 0, 0, 0}, {0, 0.5, 0, 0}, {0, 0, 3, 0}}});
    // The sform's columns are the spacing, whatever pixdim says.
    nifti(1, 0, 1, {1, 2, 2, 2}, 0, {}, {{{0.5, 0, 0, 1}, {0, 0.5, 0, 2}, {0, 0, 0.5, 3}}});
    // An sform of zeros places nothing: the qform does.
    nifti(1, 1, -1, {1, 0.25, 0.5, 3}, 0, {5, 6, 7}, {{{0.25, 0, 0, 5}, {0, 0.5, 0, 6}, {0, 0, 3, 7}}});

    for (const auto& [file, world] : cases) {
        const Read r = readVolume(file);
        ASSERT_TRUE(r.field()) << file << ": " << r.error.toStdString();
        bool turns = false; // anything but a positive scaling and a shift
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b) turns |= a == b ? world[a][b] < 0 : world[a][b] != 0;
        SbMatrix m;
        EXPECT_EQ(r.field()->getTransform(m), turns) << file;
        EXPECT_EQ(r.field()->getBoundingBox().getMin(),
                  KxVec3f(float(world[0][3]), float(world[1][3]), float(world[2][3])))
            << file;
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 4; ++j)
                for (int i = 0; i < 5; ++i) {
                    const KxVec3f p = r.field()->lattice().coords()->pos(i, j, k);
                    SbVec3f w;
                    m.multVecMatrix(SbVec3f(p.x, p.y, p.z), w);
                    for (int a = 0; a < 3; ++a)
                        EXPECT_NEAR(w[a], world[a][0] * i + world[a][1] * j + world[a][2] * k + world[a][3],
                                    1e-4)
                            << file << " node " << i << " " << j << " " << k;
                }
    }
    // An axis of one node keeps the header's spacing: its box is a point, its voxel size is not.
    NiftiFile flat;
    flat.dim[3] = 1;
    flat.pixdim[1] = flat.pixdim[2] = 1.5, flat.pixdim[3] = 2.5;
    flat.values = v.bytes.substr(0, 5 * 4 * 4);
    const Read r = readVolume(writeNifti(flat, path("flat")));
    auto* field = kx_type_cast<VxUniformScalarField3>(r.data.get());
    ASSERT_TRUE(field) << r.error.toStdString();
    EXPECT_EQ(field->getVoxelSize(), KxVec3f(1.5f, 1.5f, 2.5f));
}

TEST(VolumeReaderNames, PicksTheReaderByExtension)
{
    const std::pair<VxVolumeReader::Format, std::vector<const char*>> cases[] = {
        {VxVolumeReader::NIFTI, {"a.nii", "b.NII.GZ", "dir.x/c.hdr", "d.IMG", "e.img.gz", "f.hdr.gz"}},
        {VxVolumeReader::NRRD, {"c.nrrd", "d/e.NHDR"}},
        {VxVolumeReader::METAIMAGE, {"f.mha", "g.mhd"}},
        {VxVolumeReader::VTK, {"h.vtk"}},
        {VxVolumeReader::UNKNOWN,
         {"i.raw", "b.gz", ".nii", ".vtk", "c.nii.bak", "d.niigz", "img", "x.vtk/y"}}};
    for (const auto& [format, names] : cases)
        for (const char* name : names) EXPECT_EQ(VxVolumeReader::formatForPath(name), format) << name;
    QString error;
    EXPECT_EQ(VxVolumeReader::read("scan.dcm", VxReadOptions(), &error), nullptr);
    EXPECT_EQ(error.toStdString(),
              "scan.dcm: unknown volume format; supported are .nii, .nii.gz, .hdr, .img, "
              ".nrrd, .nhdr, .mha, .mhd, .vtk");
}

// Integer volumes load as labels in the smallest label type that holds them; others are refused.
TEST_F(VolumeReader, LabelVolumesNeedIntegersThatFit)
{
    // 3 x 2 x 1 values as text, 2 3 4 apart.
    auto nrrd = [&](const std::string& name, const char* type, const std::vector<double>& values) {
        std::string text;
        for (double x : values) text += std::to_string(int64_t(x)) + " ";
        spit(path(name), std::string("NRRD0004\ntype: ") + type +
                             "\ndimension: 3\nsizes: 3 2 1\nencoding: ascii\nspacings: 2 3 4\n\n" + text);
        return path(name);
    };
    const std::tuple<const char*, std::vector<double>, KxPrimType> cases[] = {
        {"uchar", {0, 1, 2, 255, 7, 0}, KxPrimType::UINT8},
        {"signed char", {0, 1, 2, 127, 7, 0}, KxPrimType::UINT8},
        {"signed char", {0, -1, 2, 3, 7, 0}, KxPrimType::INT32},
        {"short", {0, 1, 2, 32767, 7, 0}, KxPrimType::UINT16},
        {"uint", {0, 1, 2, 70000, 7, 0}, KxPrimType::INT32}};
    int n = 0;
    for (const auto& [type, values, labelType] : cases) {
        const std::string file = nrrd("l" + std::to_string(++n) + ".nrrd", type, values);
        const Read r = readVolume(file, true);
        auto* labels = kx_type_cast<VxUniformLabelField3>(r.data.get());
        ASSERT_TRUE(labels) << file << ": " << r.error.toStdString();
        EXPECT_EQ(labels->lattice().primType(), labelType) << file;
        for (int i = 0; i < 6; ++i) EXPECT_EQ(labels->lattice().labelAt(i), values[std::size_t(i)]) << file;
        expectBox(labels->getBoundingBox(), {0, 4, 0, 3, 0, 0}, file);
        EXPECT_EQ(labels->getVoxelSize(), KxVec3f(2, 3, 4)) << file;
    }
    const std::string f32 = nrrd("f.nrrd", "float", {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(readVolume(f32, true).error.toStdString(),
              f32 +
                  ": holds float32 values; a label volume needs integer values (uint8, int8, uint16, int16, "
                  "uint32 or int32)");
    const std::string big = nrrd("big.nrrd", "uint", {0, 1, 3000000000.0, 3, 4, 5});
    EXPECT_EQ(readVolume(big, true).error.toStdString(),
              big + ": holds the label 3000000000, beyond the largest label 2147483647");
    spit(path("rect.vtk"),
         "# vtk DataFile Version 3.0\nr\nASCII\nDATASET RECTILINEAR_GRID\nDIMENSIONS 2 1 1\n"
         "X_COORDINATES 2 float\n0 1\nY_COORDINATES 1 float\n0\nZ_COORDINATES 1 float\n0\n"
         "POINT_DATA 2\nSCALARS v unsigned_char\nLOOKUP_TABLE default\n1 2\n");
    EXPECT_NE(readVolume(path("rect.vtk"), true).error.indexOf("labels need uniform coordinates"), -1);
}

// Each damaged file gives one line: the file's name, then what is wrong with it. What the shared
// reading kit finds (truncated values, compressed streams, sizes, placement) is checked on one format.
TEST_F(VolumeReader, CorruptFilesGiveOneClearError)
{
    const Values v = makeValues(KxPrimType::INT16, 9);
    const std::string gz = deflated(v.bytes, 31);
    const std::string sp =
        "# vtk DataFile Version 3.0\nx\nBINARY\nDATASET STRUCTURED_POINTS\nDIMENSIONS 5 4 3\n"
        "SPACING 1 1 1\nORIGIN 0 0 0\nPOINT_DATA 60\nSCALARS v short\nLOOKUP_TABLE default\n";
    auto nrrdWith = [&](const std::string& lines) {
        return "NRRD0004\ntype: short\ndimension: 3\nendian: little\n" + lines + "\n";
    };
    auto vtkGrid = [](const std::string& geometry) {
        return "# vtk DataFile Version 3.0\nx\nASCII\nDATASET " + geometry +
               "POINT_DATA 4\nSCALARS v float\n"
               "LOOKUP_TABLE default\n0 1 2 3\n";
    };
    auto raw = [](int64_t nx, int64_t ny, int64_t nz, KxPrimType type, KxVec3d spacing, KxVec3d origin) {
        VxRawDescription d;
        d.dims = KxDim3l(nx, ny, nz), d.type = type, d.spacing = spacing, d.origin = origin;
        return std::optional<VxRawDescription>(d);
    };
    struct Case
    {
        std::string name, content, message;
        std::optional<VxRawDescription> raw = {};
    } cases[] = {
        // truncated data
        {"cut.nrrd", nrrdWith("sizes: 5 4 3\nencoding: raw\n") + v.bytes.substr(0, 100),
         "file holds 177 bytes, but the 5x4x3 int16 values at offset 77 need 197; the file is truncated or "
         "its header is wrong"},
        {"cuttext.vtk", std::string(sp).replace(sp.find("BINARY"), 6, "ASCII") + v.text.substr(0, 150),
         "values end after"},
        // a header that lies about the size of its data (more than the file holds is cut.* above)
        {"lie.vtk",
         sp.substr(0, sp.find("POINT_DATA")) + "POINT_DATA 61\nSCALARS v short\nLOOKUP_TABLE default\n" +
             v.bytes,
         "POINT_DATA gives 61 values, but DIMENSIONS 5 4 3 make 60 nodes"},
        {"bomb.nrrd", nrrdWith("sizes: 5000 4000 3000\nencoding: gzip\n") + gz,
         "a compressed stream of " + std::to_string(gz.size()) +
             " bytes cannot hold the 5000x4000x3000 int16 values"},
        {"more.nrrd", nrrdWith("sizes: 5 4 2\nencoding: gzip\n") + gz,
         "compressed stream holds more than the 80 bytes"},
        // zero or negative dimensions
        {"zero.nrrd", nrrdWith("sizes: 5 0 3\nencoding: raw\n") + v.bytes,
         "sizes must be positive, not 5 0 3"},
        {"zero.mha",
         "NDims = 3\nDimSize = 0 4 3\nElementType = MET_SHORT\nElementDataFile = LOCAL\n" + v.bytes,
         "dimensions must be positive, not 0 4 3"},
        // unknown types
        {"type.nrrd", "NRRD0004\ntype: quaternion\n",
         "unsupported value type 'quaternion'; supported are int8, uint8"},
        {"type.mha", "NDims = 3\nDimSize = 5 4 3\nElementType = MET_LONG_LONG\nElementDataFile = LOCAL\n",
         "unsupported ElementType 'MET_LONG_LONG'"},
        {"type.vtk", sp.substr(0, sp.find("SCALARS")) + "SCALARS v vtktypeint64\nLOOKUP_TABLE default\n",
         "unsupported value type 'vtktypeint64' of the scalars"},
        {"mystery.vtk", sp.substr(0, sp.find("SCALARS")) + "SCALARS v quaternion\nLOOKUP_TABLE default\n",
         "unknown value type 'quaternion'"},
        // compressed streams that end early
        {"early.nrrd", nrrdWith("sizes: 5 4 3\nencoding: gzip\n") + gz.substr(0, gz.size() / 2),
         "compressed stream ends after"},
        {"garbage.nrrd", nrrdWith("sizes: 5 4 3\nencoding: gzip\n") + std::string(100, 'x'),
         "compressed data is corrupt"},
        // not the format at all, or not a volume
        {"png.nrrd", "\x89PNG\r\n\x1a\n", "not a NRRD file"},
        {"text.mha", "hello\n", "not a MetaImage file"},
        {"poly.vtk", "# vtk DataFile Version 3.0\nx\nASCII\nDATASET POLYDATA\n", "holds a polydata dataset"},
        {"2d.nrrd", nrrdWith("dimension: 2\nsizes: 5 4\nencoding: raw\n"),
         "holds a 2-dimensional array; only 3-D volumes are supported"},
        {"nodata.nhdr",
         "NRRD0004\ntype: short\ndimension: 3\nsizes: 5 4 3\nencoding: raw\nendian: little\ndata file: "
         "gone.raw\n",
         "gone.raw: No such file or directory"},
        {"noend.nrrd", "NRRD0004\ntype: short\ndimension: 3\nsizes: 5 4 3\nencoding: raw\n",
         "the header gives no endian for its int16 values"},
        {"notrailer.nrrd", nrrdWith("sizes: 5 4 3\nencoding: gzip\n") + gz.substr(0, gz.size() - 8),
         "compressed stream is truncated: it holds all 120 bytes of the 5x4x3 int16 values but ends before "
         "its end mark"},
        // sizes whose products wrap past 2^64 or that the engine cannot index
        {"wrap.raw", std::string(524288, '\0'),
         "dimensions 65536 32769 1073709057 are too large: their 2305843009213759488 float64 values take "
         "18446744073710075904 bytes, more than a volume can hold",
         raw(65536, 32769, 1073709057, KxPrimType::DOUBLE, {1, 1, 1}, {0, 0, 0})},
        {"axis.mha",
         "NDims = 3\nDimSize = 3000000000 1 1\nElementType = MET_SHORT\nElementDataFile = LOCAL\n",
         "dimensions 3000000000 1 1 are too large: an axis holds at most 2147483647 nodes"},
        // coordinates that are not finite numbers, or not in single precision
        {"far.raw", std::string(4096, '\0'),
         "along axis 1, 16 nodes 1e+38 apart from 0 reach beyond single precision",
         raw(16, 16, 16, KxPrimType::UINT8, {1e38, 1, 1}, {0, 0, 0})},
        {"out.raw", std::string(4096, '\0'), "the origin's z coordinate 1e+39 is beyond single precision",
         raw(16, 16, 16, KxPrimType::UINT8, {1, 1, 1}, {0, 0, 1e39})},
        {"far.mha",
         "NDims = 3\nDimSize = 5 4 3\nElementType = MET_SHORT\nElementSpacing = 1 1e39 1\nElementDataFile = "
         "LOCAL\n" +
             v.bytes,
         "the spacing 1e+39 along axis 2 is beyond single precision"},
        {"nan.vtk",
         vtkGrid(
             "RECTILINEAR_GRID\nDIMENSIONS 2 2 1\nX_COORDINATES 2 float\n0 1\nY_COORDINATES 2 float\n0 nan\n"
             "Z_COORDINATES 1 float\n0\n"),
         "position 1 of the y coordinates is not a finite number"},
        {"nan2.vtk",
         vtkGrid("STRUCTURED_GRID\nDIMENSIONS 2 2 1\nPOINTS 4 float\n0 0 0 1 0 0 0 1 0 1 1 nan\n"),
         "point 3 has a coordinate that is not a finite number"},
        {"span.vtk",
         vtkGrid("STRUCTURED_GRID\nDIMENSIONS 2 2 1\nPOINTS 4 double\n-3e38 0 0 3e38 0 0 0 1 0 1 1 0\n"),
         "the points span more than single-precision numbers can hold along x"},
    };
    for (const Case& c : cases) {
        spit(path(c.name), c.content);
        const Read r = readVolume(path(c.name), false, c.raw);
        EXPECT_FALSE(r.data) << c.name;
        // Against the file that has the problem: the one given, or the data file it names.
        const std::string e = r.error.toStdString(), at = path(c.name == "nodata.nhdr" ? "" : c.name + ": ");
        EXPECT_EQ(e.substr(0, at.size()), at);
        EXPECT_NE(e.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << e;
        EXPECT_EQ(e.find('\n'), std::string::npos) << e;
    }
}

// Data objects refuse what they cannot hold and free the values they adopted when they do (the
// sanitizer build finds a leak).
TEST(DataObjects, RefuseSizesTheyCannotHold)
{
    const KxDim3l huge(65536, 32769, 1073709057);
    EXPECT_THROW(
        KxHandle<VxRegScalarField3>(new VxUniformScalarField3(huge, KxPrimType::DOUBLE, kxmalloc(64))),
        KxException);
    EXPECT_THROW(
        KxHandle<VxUniformLabelField3>(new VxUniformLabelField3(huge, KxPrimType::UINT8, kxmalloc(64))),
        KxException);
    EXPECT_THROW(VxCurvilinearCoord3(KxDim3l(2, 2, 1), KxDArray<float>(6)), KxException);
}

namespace {

// Our reader sees in each file what tests/io/vtk_files.py printed for it, in order: the dimensions,
// every node's position and every value; and, when given, the type.
void expectAsVtkSees(const std::vector<std::string>& files, const std::string& out,
                     const std::vector<KxPrimType>& types = {})
{
    std::istringstream in(out);
    std::string word;
    for (std::size_t f = 0; f < files.size(); ++f) {
        while (in >> word && word != "dims") continue; // past any warning VTK printed
        std::size_t nx = 0, ny = 0, nz = 0, n = 0;
        in >> nx >> ny >> nz >> word >> n;
        std::vector<double> points(3 * n), values;
        for (double& x : points) in >> x;
        in >> word >> n;
        values.resize(n);
        for (double& x : values) in >> x;
        ASSERT_TRUE(in) << out.substr(0, 2000);
        const Read r = readVolume(files[f]);
        ASSERT_TRUE(r.field()) << r.error.toStdString();
        EXPECT_TRUE(types.empty() || r.field()->primType() == types[f]) << files[f];
        const KxDim3l& d = r.field()->getDims();
        ASSERT_EQ(d, KxDim3l(int64_t(nx), int64_t(ny), int64_t(nz))) << files[f];
        ASSERT_EQ(values.size(), std::size_t(d.count())) << files[f];
        int bad = 0;
        for (int64_t i = 0; i < d.count(); ++i) {
            const KxVec3f p = r.field()->lattice().coords()->pos(int(i % d.nx), int(i / d.nx % d.ny),
                                                                 int(i / (d.nx * d.ny)));
            bad += r.field()->lattice().valueAt(i) != values[std::size_t(i)];
            for (int a = 0; a < 3; ++a) bad += std::fabs(p[a] - points[std::size_t(3 * i + a)]) > 1e-5;
        }
        EXPECT_EQ(bad, 0) << files[f];
    }
}

} // namespace

// Files that VTK's own writers make load with VTK's values and node positions.
TEST_F(VolumeReader, FilesWrittenByVtkLoad)
{
    const char* kinds[] = {"mhd", "mha", "sp", "spb", "rg", "rgb", "sg", "sgb"};
    std::string args = "write";
    std::vector<std::string> files;
    std::vector<KxPrimType> types;
    for (const char* kind : kinds)
        for (const TypeCase& t : kTypes) {
            files.push_back(path("w" + std::to_string(files.size()) + "." + (kind[0] == 'm' ? kind : "vtk")));
            types.push_back(t.type);
            args += std::string(" ") + kind + " " + t.vtk + " " + files.back();
        }
    const std::string out = runVtk(args);
    if (out.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    expectAsVtkSees(files, out, types);
}

// VTK's NRRD reader sees in our test files what our reader sees. It takes the first axis for
// components, ignores axis mins, misreads space directions, reads text encoding as zeros and leaves
// gzip-compressed big-endian values unswapped, so these files carry a leading axis of size one,
// only spacings, and raw or little-endian gzip values.
TEST_F(VolumeReader, NrrdFilesReadTheSameByVtk)
{
    std::vector<std::string> files;
    int n = 0;
    for (const TypeCase& t : kTypes)
        for (const std::string encoding : {"raw", "gzip"})
            for (bool big : {false, true}) {
                if (encoding == "gzip" && big) continue;
                const Values v = makeValues(t.type, unsigned(++n));
                files.push_back(path("r" + std::to_string(n) + ".nrrd"));
                spit(files.back(), std::string("NRRD0004\ntype: ") + t.nrrd +
                                       "\ndimension: 4\nsizes: 1 5 4 3\nkinds: scalar domain domain domain\n"
                                       "spacings: nan 0.5 2 1.25\nencoding: " +
                                       encoding + "\nendian: " + (big ? "big" : "little") + "\n\n" +
                                       encoded(v, encoding, big, 31));
            }
    std::string args = "read";
    for (const std::string& f : files) args += " " + f;
    const std::string out = runVtk(args);
    if (out.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    expectAsVtkSees(files, out);
}
