#include "VxisoOptionTable.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

using Kind = VxisoOption::Kind;
using Value = VxisoOption::Value;

// More threads than any machine of ours has; the scheduler would not start them anyway.
constexpr long long kMaxCores = 4096;
// A slab needs a cell layer; no axis we can number has more.
constexpr long long kMaxSlabs = 1 << 30;

constexpr unsigned kSurface = unsigned(VxisoCommand::Surface);
constexpr unsigned kIsolines = unsigned(VxisoCommand::Isolines);
constexpr unsigned kContours = unsigned(VxisoCommand::Contours);
constexpr unsigned kSliced = kIsolines | kContours;
constexpr unsigned kDrawn = kSurface | kSliced;
constexpr unsigned kAll = kDrawn | unsigned(VxisoCommand::Info);
// The module's own bounds of its resolution and of its count of uniform values.
constexpr long long kMaxResolution = 4096, kMinResolution = 16, kMaxUniform = 200;

void describesRaw(VxisoOptions& o)
{
    o.describesRaw = true;
}

void storeType(VxisoOptions& o, int, const Value& v)
{
    o.raw.type = KxPrimType::fromName(v.text.c_str());
    if (!o.raw.type.isValid())
        throw VxisoUsageError{"unknown value type '" + v.text +
                              "' (use uint8, int8, uint16, int16, uint32, int32, float32 or float64)"};
    o.haveType = true;
}

void storeDownsample(VxisoOptions& o, int i, const Value& v)
{
    if (v.integer < 1 || v.integer > std::numeric_limits<int>::max())
        throw VxisoUsageError{"--downsample takes three factors of 1 or more, not " +
                              std::to_string(v.integer)};
    o.downsample[i] = int(v.integer);
}

void storeCores(VxisoOptions& o, int, const Value& v)
{
    if (v.integer < 1 || v.integer > kMaxCores)
        throw VxisoUsageError{"--cores takes 1 to " + std::to_string(kMaxCores) + " threads, not " +
                              std::to_string(v.integer)};
    o.cores = v.integer;
}

void storeSlabs(VxisoOptions& o, int, const Value& v)
{
    if (v.integer < 1 || v.integer > kMaxSlabs)
        throw VxisoUsageError{"--slabs takes 1 to " + std::to_string(kMaxSlabs) + " slabs, not " +
                              std::to_string(v.integer)};
    o.slabs = v.integer;
}

void storeSlice(VxisoOptions& o, int i, const Value& v)
{
    if (i == 0) {
        if (v.text != "x" && v.text != "y" && v.text != "z")
            throw VxisoUsageError{"--slice takes the axis x, y or z, not '" + v.text + "'"};
        o.sliceAxis = v.text[0];
        return;
    }
    char* end = nullptr;
    const long long index = std::strtoll(v.text.c_str(), &end, 10);
    if (*end != '\0' || index < 0)
        throw VxisoUsageError{"--slice takes a node number of 0 or more, not '" + v.text + "'"};
    o.sliceIndex = index;
}

void storeUniform(VxisoOptions& o, int i, const Value& v)
{
    if (i == 0) o.uniformMin = v.number;
    if (i == 1) o.uniformMax = v.number;
    if (i == 2) {
        if (v.number != std::floor(v.number) || v.number < 1 || v.number > kMaxUniform)
            throw VxisoUsageError{"--uniform takes N of 1 to " + std::to_string(kMaxUniform) +
                                  " values, not " + v.text};
        o.uniformCount = (long long)v.number;
    }
    o.haveUniform = true;
}

} // namespace

const std::vector<VxisoOption>& vxisoOptionTable()
{
    static const std::vector<VxisoOption> table = {
        // The input.
        {"--raw", nullptr, "FILE", Kind::Text, kAll, "a headerless volume (x fastest, native byte order)",
         [](VxisoOptions& o, int, const Value& v) { o.rawFile = v.text; }},
        {"--dims", nullptr, "NX NY NZ", Kind::Integer, kAll, "the raw volume's nodes along x, y and z",
         [](VxisoOptions& o, int i, const Value& v) {
             o.raw.dims[i] = v.integer;
             o.haveDims = true;
         }},
        {"--type", nullptr, "TYPE", Kind::Text, kAll,
         "the raw volume's value type: uint8, int8, uint16, int16, uint32, int32, float32 or float64",
         storeType},
        {"--spacing", nullptr, "SX SY SZ", Kind::Number, kAll,
         "the raw volume's node spacing (default 1 1 1)",
         [](VxisoOptions& o, int i, const Value& v) {
             o.raw.spacing[i] = v.number;
             describesRaw(o);
         }},
        {"--origin", nullptr, "X Y Z", Kind::Number, kAll, "the raw volume's first node (default 0 0 0)",
         [](VxisoOptions& o, int i, const Value& v) {
             o.raw.origin[i] = v.number;
             describesRaw(o);
         }},
        {"--offset", nullptr, "BYTES", Kind::Integer, kAll, "bytes to skip before the raw volume's values",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.integer < 0) throw VxisoUsageError{"--offset must not be negative"};
             o.raw.offset = uint64_t(v.integer);
             describesRaw(o);
         }},
        {"--swap-bytes", nullptr, "", Kind::Flag, kAll, "the raw volume's values are in the other byte order",
         [](VxisoOptions& o, int, const Value&) {
             o.raw.swapBytes = true;
             describesRaw(o);
         }},
        {"--field", nullptr, "NAME", Kind::Text, kAll,
         "a built-in float field on [-1,1]^3: sphere, torus or gyroid; use -t 0",
         [](VxisoOptions& o, int, const Value& v) { o.fieldName = v.text; }},
        {"--size", nullptr, "N", Kind::Integer, kAll, "the built-in field's nodes along each axis",
         [](VxisoOptions& o, int, const Value& v) { o.size = int(v.integer); }},
        {"--undefined", nullptr, "U", Kind::AnyNumber, kAll,
         "value that marks missing data (nan, inf and -inf allowed); no surface touches it",
         [](VxisoOptions& o, int, const Value& v) {
             o.raw.undefinedValue = v.number;
             o.raw.hasUndefined = true;
         }},
        {"--labels", nullptr, "", Kind::Flag, kAll,
         "read INPUT as a label volume (integer values, 0 the background); the surface then wraps the voxels "
         "of "
         "label N (--label N) or of every label",
         [](VxisoOptions& o, int, const Value&) { o.labels = true; }},
        {"--scalars", nullptr, "NAME", Kind::Text, kAll,
         "the field of a mesh file to read (default: its first node field, else its first cell field)",
         [](VxisoOptions& o, int, const Value& v) { o.scalars = v.text; }},
        {"--snap", nullptr, "", Kind::Gone, kAll,
         "--snap is gone: vxiso surface runs the isosurface module, which snaps vertices within half an edge "
         "(--compactify)",
         nullptr},
        {"-h", "--help", "", Kind::Help, kAll, "this text", nullptr},

        // The surface.
        {"-t", "--threshold", "VALUE", Kind::Number, kSurface,
         "the surface lies where the field equals VALUE",
         [](VxisoOptions& o, int, const Value& v) {
             o.threshold = v.number;
             o.haveThreshold = true;
         }},
        {"-o", "--output", "OUTPUT", Kind::Text, kDrawn,
         "the file to write; its extension picks the format: for surface .ply, .stl, .off, .iv, .obj or "
         ".vtk, for isolines .vtk, .iv or .svg, for contours .iv or .svg",
         [](VxisoOptions& o, int, const Value& v) { o.output = v.text; }},
        {"--png", nullptr, "PICTURE", Kind::Text, kDrawn,
         "also draw the surface, or the slice with its lines, into a PNG picture (800 x 600, off-screen)",
         [](VxisoOptions& o, int, const Value& v) { o.picture = v.text; }},
        {"--view", nullptr, "DX DY DZ", Kind::Number, kDrawn,
         "the direction the picture looks in (default 0 0 -1; for isolines straight at the slice)",
         [](VxisoOptions& o, int i, const Value& v) {
             o.view[i] = v.number;
             o.haveView = true;
         }},
        {"--up", nullptr, "UX UY UZ", Kind::Number, kDrawn,
         "the direction that is up in the picture (default 0 1 0; for isolines the slice's second axis)",
         [](VxisoOptions& o, int i, const Value& v) {
             o.up[i] = v.number;
             o.haveView = true;
         }},
        {"--verbose", nullptr, "", Kind::Flag, kDrawn,
         "also print, for surface, the split axis, the number of slabs and the engine time; for isolines, "
         "the lines and points of each value",
         [](VxisoOptions& o, int, const Value&) { o.verbose = true; }},
        {"--label", nullptr, "N", Kind::Integer, kSurface, "with --labels, wrap only the voxels of label N",
         [](VxisoOptions& o, int, const Value& v) {
             o.label = v.integer;
             o.haveLabel = true;
         }},
        {"--mask", nullptr, "LABELS", Kind::Text, kSurface,
         "keep only the surface inside the regions of the label volume LABELS (same dimensions as INPUT): "
         "every "
         "non-zero label, or only N with --mask-label N",
         [](VxisoOptions& o, int, const Value& v) { o.maskFile = v.text; }},
        {"--mask-label", nullptr, "N", Kind::Integer, kSurface, "with --mask, only the region of label N",
         [](VxisoOptions& o, int, const Value& v) {
             o.maskLabel = v.integer;
             o.haveMaskLabel = true;
         }},
        {"--relaxed", nullptr, "", Kind::Flag, kSurface,
         "with --mask, grow the region by one voxel first, so that triangles crossing its border are kept "
         "too "
         "(default: strict, only triangles inside it)",
         [](VxisoOptions& o, int, const Value&) { o.relaxed = true; }},
        {"--blocky", nullptr, "", Kind::Flag, kSurface,
         "with a hexahedral mesh whose values are per cell: a surface of whole cell faces between the cells "
         "above and below VALUE, instead of the surface of values averaged to the nodes",
         [](VxisoOptions& o, int, const Value&) { o.blocky = true; }},
        {"--downsample", nullptr, "FX FY FZ", Kind::Integer, kSurface,
         "extract from a copy averaged over FX x FY x FZ voxels (uniform volumes; each factor at most half "
         "its "
         "axis)",
         storeDownsample},
        {"--ascii", nullptr, "", Kind::Flag, kSurface, "write PLY, STL and VTK as text instead of binary",
         [](VxisoOptions& o, int, const Value&) { o.ascii = true; }},
        {"--pad", nullptr, "", Kind::Flag, kSurface,
         "surround the volume with one layer of nodes below VALUE, so that a surface reaching the volume's "
         "border "
         "is closed there (uniform volumes)",
         [](VxisoOptions& o, int, const Value&) { o.pad = true; }},
        {"--compactify", nullptr, "", Kind::Flag, kSurface,
         "snap vertices within half an edge of a grid node onto one vertex per node (fewer triangles)",
         [](VxisoOptions& o, int, const Value&) { o.compactify = true; }},
        {"--cores", nullptr, "N", Kind::Integer, kSurface,
         "1 runs sequentially; more (up to 4096) run in parallel on at most N threads (default: all cores)",
         storeCores},
        {"--slabs", nullptr, "N", Kind::Integer, kSurface,
         "cut the volume into exactly N even slabs along its longest axis (default: by the cores); the "
         "same N gives vxiso-mpi's file byte for byte",
         storeSlabs},

        // The contour lines.
        {"--slice", nullptr, "AXIS [INDEX]", Kind::Text, kSliced,
         "contour on the slice across axis x, y or z (the volume's nodes along it count from 0; default the "
         "middle one)",
         storeSlice},
        {"--plane", nullptr, "OX OY OZ NX NY NZ", Kind::Number, kSliced,
         "contour on the plane through point O with normal N, cut across the whole field",
         [](VxisoOptions& o, int i, const Value& v) {
             (i < 3 ? o.planeOrigin[i] : o.planeNormal[i - 3]) = v.number;
             o.havePlane = true;
         }},
        {"--values", nullptr, "V...", Kind::Number, kSliced, "the iso values, one line set each",
         [](VxisoOptions& o, int, const Value& v) { o.isoValues.push_back(v.number); }},
        {"--uniform", nullptr, "MIN MAX N", Kind::Number, kSliced,
         "N iso values (1 to 200) spread evenly from MIN to MAX", storeUniform},
        {"--resolution", nullptr, "R", Kind::Integer, kSliced,
         "sample the slice on R x R points (16 to 4096); tetrahedral meshes are cut cell by cell instead",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.integer < kMinResolution || v.integer > kMaxResolution)
                 throw VxisoUsageError{"--resolution takes " + std::to_string(kMinResolution) + " to " +
                                       std::to_string(kMaxResolution) + " samples, not " +
                                       std::to_string(v.integer)};
             o.resolution = v.integer;
         }},
        {"--quality", nullptr, "LEVEL", Kind::Text, kSliced,
         "low, medium or high: half, one or two samples per node of the slice (default medium)",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.text != "low" && v.text != "medium" && v.text != "high")
                 throw VxisoUsageError{"--quality is low, medium or high, not '" + v.text + "'"};
             o.quality = v.text;
         }},
        {"--annotate", nullptr, "", Kind::Flag, kIsolines,
         "label the lines with their values, lying along the lines in the slice",
         [](VxisoOptions& o, int, const Value&) { o.annotate = true; }},
        {"--every", nullptr, "N START", Kind::Integer, kIsolines,
         "with --annotate, label the lines of every N-th value (in increasing order) from the START-th on",
         [](VxisoOptions& o, int i, const Value& v) {
             if (v.integer < 1 || v.integer > 1000)
                 throw VxisoUsageError{"--every takes N and START of 1 to 1000, not " +
                                       std::to_string(v.integer)};
             (i == 0 ? o.every : o.everyStart) = v.integer;
         }},
        {"--camera-aligned", nullptr, "", Kind::Flag, kIsolines,
         "with --annotate, turn the labels to the viewer instead of laying them along the lines",
         [](VxisoOptions& o, int, const Value&) { o.cameraAligned = true; }},
        {"--contour-clip", nullptr, "", Kind::Flag, kSliced,
         "open the lines under the labels (isolines: with --annotate)",
         [](VxisoOptions& o, int, const Value&) { o.contourClip = true; }},
        {"--text-scale", nullptr, "S", Kind::Number, kIsolines,
         "with --annotate, the labels' size: S units of the field per point of the font (default: the "
         "field's width / 300)",
         [](VxisoOptions& o, int, const Value& v) {
             if (!(v.number > 0)) throw VxisoUsageError{"--text-scale must be above 0, not " + v.text};
             o.textScale = v.number;
         }},
        {"--text-spacing", nullptr, "G", Kind::Number, kIsolines,
         "with --annotate, the free length between two labels of a line, in units of the field (default: an "
         "eighth of the field's width)",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.number < 0) throw VxisoUsageError{"--text-spacing must not be negative, not " + v.text};
             o.textSpacing = v.number;
         }},
        {"--font", nullptr, "NAME SIZE", Kind::Text, kIsolines,
         "with --annotate, the labels' font family and size in points (default DejaVu Sans 12)",
         [](VxisoOptions& o, int i, const Value& v) {
             if (i == 0) {
                 o.fontName = v.text;
                 return;
             }
             char* end = nullptr;
             const long long size = std::strtoll(v.text.c_str(), &end, 10);
             if (*end != '\0' || size < 1 || size > 500)
                 throw VxisoUsageError{"--font takes a size of 1 to 500 points, not '" + v.text + "'"};
             o.fontSize = size;
         }},

        // The annotated contoured slice.
        {"--colormap", nullptr, "NAME", Kind::Text, kContours,
         "the slice's colours over the field's range: grey, viridis (default), coolwarm or rainbow",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.text != "grey" && v.text != "viridis" && v.text != "coolwarm" && v.text != "rainbow")
                 throw VxisoUsageError{"--colormap is grey, viridis, coolwarm or rainbow, not '" + v.text +
                                       "'"};
             o.colormap = v.text;
         }},
        {"--annotations-path", nullptr, "PATH", Kind::Text, kContours,
         "the labels run along their lines (tangential, default), or horizontal or vertical in the slice",
         [](VxisoOptions& o, int, const Value& v) {
             const char* paths[] = {"tangential", "horizontal", "vertical"};
             for (int i = 0; i < 3; ++i)
                 if (v.text == paths[i]) return void(o.annotationsPath = i);
             throw VxisoUsageError{"--annotations-path is tangential, horizontal or vertical, not '" +
                                   v.text + "'"};
         }},
        {"--format", nullptr, "FORMAT", Kind::Text, kContours,
         "the labels' numbers: auto (default: up to --decimals significant digits, 6 without), float "
         "(--decimals decimals) or integer",
         [](VxisoOptions& o, int, const Value& v) {
             const char* formats[] = {"auto", "float", "integer"};
             for (int i = 0; i < 3; ++i)
                 if (v.text == formats[i]) return void(o.format = i);
             throw VxisoUsageError{"--format is auto, float or integer, not '" + v.text + "'"};
         }},
        {"--decimals", nullptr, "N", Kind::Integer, kContours,
         "decimals (float) or significant digits (auto), 0 to 15",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.integer < 0 || v.integer > 15)
                 throw VxisoUsageError{"--decimals takes 0 to 15, not " + std::to_string(v.integer)};
             o.decimals = v.integer;
         }},
        {"--ten-power", nullptr, "P", Kind::Integer, kContours,
         "the labels show the values divided by 10^P (-30 to 30)",
         [](VxisoOptions& o, int, const Value& v) {
             if (v.integer < -30 || v.integer > 30)
                 throw VxisoUsageError{"--ten-power takes -30 to 30, not " + std::to_string(v.integer)};
             o.tenPower = v.integer;
             o.haveTenPower = true;
         }},
        {"--period", nullptr, "MAJOR FIRST", Kind::Integer, kContours,
         "label the lines of every MAJOR-th value from the FIRST-th on (default every value)",
         [](VxisoOptions& o, int i, const Value& v) {
             if (v.integer < 1 || v.integer > 1000)
                 throw VxisoUsageError{"--period takes MAJOR and FIRST of 1 to 1000, not " +
                                       std::to_string(v.integer)};
             (i == 0 ? o.periodMajor : o.periodFirst) = v.integer;
         }},
    };
    return table;
}
