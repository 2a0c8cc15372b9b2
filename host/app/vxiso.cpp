// vxiso: the one-line command for the everyday job, e.g.
//   vxiso surface --field gyroid --size 128 -t 0 -o gyroid.ply
//   vxiso info brain.nii.gz
#include "VxHostSession.h"
#include "VxInputFiles.h"
#include "VxValueChecks.h"

#include <io/VxBlockReader.h>
#include <io/VxBuiltinField.h>
#include <io/VxRawReader.h>
#include <io/VxSurfaceWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <kx/KxProgressInterface.h>
#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxExtractionReport.h>
#include <vx/VxMessage.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxUniformLabelField3.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <tbb/global_control.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* kUsage =
    "usage: vxiso surface INPUT -t VALUE -o OUTPUT [options]\n"
    "       vxiso surface INPUT --labels [--label N] -o OUTPUT [options]\n"
    "       vxiso info INPUT [--labels]\n"
    "\n"
    "surface extracts the isosurface where the field equals VALUE and writes it as a mesh; the\n"
    "output's extension picks the format: .ply, .stl, .off, .iv, .obj or .vtk. It runs the\n"
    "isosurface module of the vxiso package, as a vxhost script would (see the README).\n"
    "info prints the dimensions, type, spacing, origin, value range and undefined value of INPUT.\n"
    "\n"
    "INPUT is one of:\n"
    "  FILE   a volume file, by its extension:\n"
    "      .nii, .nii.gz, .hdr, .img   NIfTI-1 or NIfTI-2 (-t compares with the values as stored)\n"
    "      .nrrd, .nhdr                NRRD (raw, gzip or ascii encoding)\n"
    "      .mha, .mhd                  MetaImage\n"
    "      .vtk                        VTK legacy structured points, rectilinear or structured grid\n"
    "      .vxblocks                   a multi-block field: one volume file per block\n"
    "  --raw FILE --dims NX NY NZ --type TYPE   a headerless volume (x fastest, native byte order);\n"
    "      TYPE is uint8, int8, uint16, int16, uint32, int32, float32 or float64\n"
    "      [--spacing SX SY SZ] [--origin X Y Z]   node spacing and first node (default 1 1 1, 0 0 0)\n"
    "      [--offset BYTES]   bytes to skip before the values   [--swap-bytes] other byte order\n"
    "  --field sphere|torus|gyroid --size N      a built-in float field on [-1,1]^3; use -t 0\n"
    "  [--undefined U]    value that marks missing data (nan, inf and -inf allowed); no surface\n"
    "                     touches it\n"
    "  [--labels]         read INPUT as a label volume (integer values, 0 the background); the\n"
    "                     surface then wraps the voxels of label N (--label N) or of every label\n"
    "\n"
    "options of surface:\n"
    "  --mask LABELS  keep only the surface inside the regions of the label volume LABELS (same\n"
    "                 dimensions as INPUT): every non-zero label, or only N with --mask-label N\n"
    "  --relaxed      with --mask, grow the region by one voxel first, so that triangles crossing\n"
    "                 its border are kept too (default: strict, only triangles inside it)\n"
    "  --downsample FX FY FZ  extract from a copy averaged over FX x FY x FZ voxels (uniform\n"
    "                 volumes; each factor at most half its axis)\n"
    "  --png PICTURE  also draw the surface into a PNG picture (800 x 600, off-screen)\n"
    "  --view DX DY DZ  the direction the picture looks in (default 0 0 -1)\n"
    "  --up UX UY UZ  the direction that is up in the picture (default 0 1 0)\n"
    "  --ascii        write PLY, STL and VTK as text instead of binary\n"
    "  --pad          surround the volume with one layer of nodes below VALUE, so that a surface\n"
    "                 reaching the volume's border is closed there (uniform volumes)\n"
    "  --compactify   snap vertices within half an edge of a grid node onto one vertex per node\n"
    "                 (fewer triangles)\n"
    "  --cores N      1 runs sequentially; more (up to 4096) run in parallel on at most N threads\n"
    "                 (default: all cores)\n"
    "  --verbose      also print the split axis, the number of slabs and the engine time\n"
    "  -h, --help     this text\n"
    "\n"
    "The package libvxiso.so is loaded from this program's folder or from the folders of\n"
    "VXHOST_PACKAGE_PATH (colon-separated).\n";

struct UsageError
{
    std::string text;
};

// More threads than any machine of ours has; the scheduler would not start them anyway.
constexpr long long kMaxCores = 4096;

struct Options
{
    std::string rawFile, volumeFile, fieldName, output, maskFile, picture;
    double view[3] = {0, 0, -1}, up[3] = {0, 1, 0};
    VxRawDescription raw;
    bool haveDims = false, haveType = false, haveThreshold = false, compactify = false, verbose = false;
    bool labels = false, haveLabel = false, ascii = false, pad = false;
    bool relaxed = false, haveMaskLabel = false;
    bool blocks = false; // volumeFile is a multi-block description
    long long label = 0, maskLabel = 0;
    int downsample[3] = {0, 0, 0}; // 0: not asked for
    long long cores = 0;           // 0: all cores
    bool describesRaw = false;     // any of --dims, --type, --spacing, --origin, --offset, --swap-bytes
    int size = 0;
    double threshold = 0;
};

class Args
{
public:
    Args(int argc, char** argv) : m_args(argv, argv + argc) {}
    bool done() const { return m_pos >= m_args.size(); }
    std::string next() { return m_args[m_pos++]; }
    std::string value(const std::string& option)
    {
        if (done()) throw UsageError{"option " + option + " needs a value"};
        return next();
    }
    // Finite unless anyValue: an undefined value may be NaN or an infinity.
    double number(const std::string& option, bool anyValue = false)
    {
        const std::string text = value(option);
        char* end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0') throw UsageError{option + " expects a number, not '" + text + "'"};
        if (!anyValue && !std::isfinite(v))
            throw UsageError{option + " must be a finite number, not '" + text + "'"};
        return v;
    }
    long long integer(const std::string& option)
    {
        const std::string text = value(option);
        char* end = nullptr;
        errno = 0;
        const long long v = std::strtoll(text.c_str(), &end, 10);
        if (text.empty() || *end != '\0' || errno == ERANGE)
            throw UsageError{option + " expects an integer, not '" + text + "'"};
        return v;
    }

private:
    std::vector<std::string> m_args;
    std::size_t m_pos = 0;
};

std::string triple(const double* v)
{
    char text[80];
    std::snprintf(text, sizeof text, "%.10g %.10g %.10g", v[0], v[1], v[2]);
    return text;
}

// The picture's camera takes its directions in single precision: each must keep a length there, and
// up must lie across the view. Checked before the long work rather than when the picture is drawn.
void checkDirections(const Options& o)
{
    auto length = [](const double* v) {
        const double x = float(v[0]), y = float(v[1]), z = float(v[2]);
        return std::sqrt(x * x + y * y + z * z);
    };
    auto check = [](const char* option, const double* v, double l) {
        if (!(l > 0) || !std::isfinite(l))
            throw UsageError{std::string(option) + " " + triple(v) +
                             " is not a direction: give three numbers, not all 0 (nor too large for floats)"};
    };
    const double lv = length(o.view), lu = length(o.up);
    check("--view", o.view, lv);
    check("--up", o.up, lu);
    const double cosine = (o.view[0] * o.up[0] + o.view[1] * o.up[1] + o.view[2] * o.up[2]) / (lv * lu);
    if (std::fabs(cosine) > 0.999)
        throw UsageError{"--up " + triple(o.up) + " runs along --view " + triple(o.view) +
                         ": give an up direction across the view"};
}

// Options of both commands; info takes only the input's.
Options parseOptions(Args& args, bool surface)
{
    Options o;
    std::vector<std::string> positional;
    while (!args.done()) {
        const std::string a = args.next();
        const bool surfaceOnly = a == "-t" || a == "--threshold" || a == "-o" || a == "--output" ||
                                 a == "--compactify" || a == "--cores" || a == "--verbose" ||
                                 a == "--ascii" || a == "--label" || a == "--pad" || a == "--mask" ||
                                 a == "--mask-label" || a == "--relaxed" || a == "--downsample" ||
                                 a == "--png" || a == "--view" || a == "--up";
        if (surfaceOnly && !surface)
            throw UsageError{"option " + a + " belongs to 'vxiso surface', not 'vxiso info'"};
        if (a == "-t" || a == "--threshold") {
            o.threshold = args.number(a);
            o.haveThreshold = true;
        } else if (a == "-o" || a == "--output") {
            o.output = args.value(a);
        } else if (a == "--labels") {
            o.labels = true;
        } else if (a == "--label") {
            o.label = args.integer(a);
            o.haveLabel = true;
        } else if (a == "--ascii") {
            o.ascii = true;
        } else if (a == "--pad") {
            o.pad = true;
        } else if (a == "--compactify") {
            o.compactify = true;
        } else if (a == "--snap") {
            throw UsageError{"--snap is gone: vxiso surface runs the isosurface module, which snaps vertices "
                             "within half an edge (--compactify)"};
        } else if (a == "--png") {
            o.picture = args.value(a);
        } else if (a == "--view" || a == "--up") {
            for (double& c : a == "--view" ? o.view : o.up) c = args.number(a);
        } else if (a == "--mask") {
            o.maskFile = args.value(a);
        } else if (a == "--mask-label") {
            o.maskLabel = args.integer(a);
            o.haveMaskLabel = true;
        } else if (a == "--relaxed") {
            o.relaxed = true;
        } else if (a == "--downsample") {
            for (int& f : o.downsample) {
                const long long v = args.integer(a);
                if (v < 1 || v > std::numeric_limits<int>::max())
                    throw UsageError{"--downsample takes three factors of 1 or more, not " +
                                     std::to_string(v)};
                f = int(v);
            }
        } else if (a == "--cores") {
            o.cores = args.integer(a);
            if (o.cores < 1 || o.cores > kMaxCores)
                throw UsageError{"--cores takes 1 to " + std::to_string(kMaxCores) + " threads, not " +
                                 std::to_string(o.cores)};
        } else if (a == "--verbose") {
            o.verbose = true;
        } else if (a == "--raw") {
            o.rawFile = args.value(a);
        } else if (a == "--dims") {
            for (int i = 0; i < 3; ++i) o.raw.dims[i] = args.integer(a);
            o.haveDims = true;
        } else if (a == "--type") {
            const std::string t = args.value(a);
            o.raw.type = KxPrimType::fromName(t.c_str());
            if (!o.raw.type.isValid())
                throw UsageError{"unknown value type '" + t +
                                 "' (use uint8, int8, uint16, int16, uint32, int32, float32 or float64)"};
            o.haveType = true;
        } else if (a == "--spacing") {
            for (int i = 0; i < 3; ++i) o.raw.spacing[i] = args.number(a);
            o.describesRaw = true;
        } else if (a == "--origin") {
            for (int i = 0; i < 3; ++i) o.raw.origin[i] = args.number(a);
            o.describesRaw = true;
        } else if (a == "--undefined") {
            o.raw.undefinedValue = args.number(a, true);
            o.raw.hasUndefined = true;
        } else if (a == "--offset") {
            const long long off = args.integer(a);
            if (off < 0) throw UsageError{"--offset must not be negative"};
            o.raw.offset = uint64_t(off);
            o.describesRaw = true;
        } else if (a == "--swap-bytes") {
            o.raw.swapBytes = true;
            o.describesRaw = true;
        } else if (a == "--field") {
            o.fieldName = args.value(a);
        } else if (a == "--size") {
            o.size = int(args.integer(a));
        } else if (a.size() > 1 && a[0] == '-' && !std::isdigit((unsigned char)a[1])) {
            throw UsageError{"unknown option '" + a + "'"};
        } else {
            positional.push_back(a);
        }
    }
    if (positional.size() > 1) throw UsageError{"more than one input: '" + positional[1] + "'"};
    if (positional.size() == 1) {
        if (!o.rawFile.empty()) throw UsageError{"give the input either as INPUT or with --raw, not both"};
        o.blocks = VxBlockReader::isBlockPath(QString::fromStdString(positional[0]));
        if (o.blocks ||
            VxVolumeReader::formatForPath(QString::fromStdString(positional[0])) != VxVolumeReader::UNKNOWN)
            o.volumeFile = positional[0];
        else
            o.rawFile = positional[0];
    }
    o.describesRaw = o.describesRaw || o.haveDims || o.haveType;
    if (!o.volumeFile.empty()) {
        if (!o.fieldName.empty()) throw UsageError{"give either a volume file or --field, not both"};
        if (o.describesRaw)
            throw UsageError{
                "--dims, --type, --spacing, --origin, --offset and --swap-bytes describe raw files; "
                "the file '" +
                o.volumeFile + "' carries its own description"};
    } else if (o.rawFile.empty() == o.fieldName.empty()) {
        throw UsageError{o.rawFile.empty()
                             ? "no input: give a volume file, --raw FILE ... or --field NAME --size N"
                             : "give either a raw file or --field, not both"};
    }
    if (!o.rawFile.empty() && (!o.haveDims || !o.haveType))
        throw UsageError{"a raw file needs --dims NX NY NZ and --type TYPE"};
    if (!o.fieldName.empty() && o.size == 0) throw UsageError{"--field needs --size N"};
    if (o.labels && !o.fieldName.empty())
        throw UsageError{"built-in fields hold no labels; --labels needs a file"};
    if (o.haveLabel && !o.labels)
        throw UsageError{"--label N chooses a label of a label volume; add --labels"};
    if (o.blocks) {
        const char* option = o.labels              ? "--labels"
                             : !o.maskFile.empty() ? "--mask"
                             : o.pad               ? "--pad"
                             : o.downsample[0]     ? "--downsample"
                             : o.raw.hasUndefined  ? "--undefined"
                                                   : nullptr;
        if (option) throw UsageError{std::string(option) + " does not apply to a multi-block field"};
    }
    if (!surface) return o;
    if (o.labels && o.haveThreshold)
        throw UsageError{
            "with --labels the surface follows label borders: choose a label with --label N, not -t"};
    if (!o.labels && !o.haveThreshold) throw UsageError{"no threshold: give -t VALUE"};
    if (o.maskFile.empty() && (o.relaxed || o.haveMaskLabel))
        throw UsageError{std::string(o.relaxed ? "--relaxed" : "--mask-label") + " belongs to --mask LABELS"};
    if (!o.maskFile.empty() && o.labels)
        throw UsageError{"--mask restricts the surface of a scalar volume; a label volume's region is chosen "
                         "with --label N"};
    if (o.output.empty()) throw UsageError{"no output: give -o FILE"};
    if (!o.picture.empty() && QFileInfo(QString::fromStdString(o.picture)).suffix().toLower() != "png")
        throw UsageError{"--png writes PNG pictures: give a file name ending in .png, not '" + o.picture +
                         "'"};
    if (VxSurfaceWriter::formatForPath(QString::fromStdString(o.output)) == VxSurfaceWriter::UNKNOWN)
        throw UsageError{"cannot write '" + o.output + "': unknown format " +
                         VxSurfaceWriter::extensionHint().toStdString()};
    checkDirections(o);
    return o;
}

// Fails early, before a long extraction, when the output cannot be created.
void checkWritable(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: no directory %2")
                              .arg(QString::fromStdString(path), QString::fromStdString(dir)));
    if (::access(dir.c_str(), W_OK) != 0)
        throw KxException(
            QString("cannot write %1: %2").arg(QString::fromStdString(path), std::strerror(errno)));
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: it is a directory").arg(QString::fromStdString(path)));
}

// Tells what the file asks for that the written mesh does not do.
void warnAboutFile(const Options& o, const VxVolumeInfo& info, const VxSpatialData& data)
{
    const QString file = QString::fromStdString(o.volumeFile);
    if (info.nifti.hasScaling() && !o.labels)
        std::fprintf(
            stderr,
            "vxiso: warning: %s: %s; -t %g is compared with stored values (physical %g is stored %g)\n",
            qPrintable(file), qPrintable(info.nifti.scaling()), o.threshold, o.threshold,
            info.nifti.toStored(o.threshold));
    if (data.getTransform(true))
        std::fprintf(stderr,
                     "vxiso: warning: %s: the header rotates or mirrors the volume; the mesh is written in "
                     "the volume's own axes, from the first voxel's world position\n",
                     qPrintable(file));
}

// The input as the options describe it: a scalar field, or with --labels a label field.
KxHandle<VxSpatialData> readData(const Options& o, VxVolumeInfo& info)
{
    QString error;
    KxHandle<VxSpatialData> data;
    if (!o.fieldName.empty()) {
        data = VxBuiltinField::create(QString::fromStdString(o.fieldName), o.size, &error);
        info.format = "built-in field";
    } else if (o.blocks) {
        data = VxBlockReader::read(QString::fromStdString(o.volumeFile), &error);
        info.format = "multi-block description";
    } else {
        VxReadOptions options;
        options.labels = o.labels;
        if (!o.rawFile.empty()) options.raw = o.raw;
        data = VxVolumeReader::read(QString::fromStdString(o.volumeFile.empty() ? o.rawFile : o.volumeFile),
                                    options, &error, &info);
    }
    if (!data) throw KxException(error);
    if (auto* field = kx_type_cast<VxRegScalarField3>(data.get()))
        if (o.raw.hasUndefined) field->setUndefinedValue(o.raw.undefinedValue);
    return data;
}

// Writes 1 where the label volume holds the chosen label (any non-zero label when none is chosen)
// and 0 elsewhere, into a lattice with `pad` layers of 0 around. Returns the voxels chosen.
int64_t chooseLabels(const VxLabelLattice3& labels, const long long* chosen, int64_t pad, unsigned char* out)
{
    const KxDim3l& d = labels.getDims();
    const int64_t nx = d.nx + 2 * pad, ny = d.ny + 2 * pad;
    int64_t inside = 0;
    for (int64_t k = 0; k < d.nz; ++k)
        for (int64_t j = 0; j < d.ny; ++j)
            for (int64_t i = 0; i < d.nx; ++i) {
                const float label = labels.labelAt((k * d.ny + j) * d.nx + i);
                const bool in = chosen ? label == float(*chosen) : label != 0.f;
                out[((k + pad) * ny + j + pad) * nx + i + pad] = in;
                inside += in;
            }
    return inside;
}

// Distance between neighbouring nodes; a uniform field's axes of one node keep their own spacing.
KxVec3f voxelSize(const VxSpatialData& data, const KxDim3l& d)
{
    if (const auto* u = kx_type_cast<VxUniformScalarField3>(&data)) return u->getVoxelSize();
    if (const auto* labels = kx_type_cast<VxUniformLabelField3>(&data)) return labels->getVoxelSize();
    return data.getBoundingBox().getVoxelSize(d);
}

KxBox3f grownBox(const KxBox3f& b, const KxVec3f& voxel, int64_t layers)
{
    const KxVec3f v = voxel * float(layers);
    return KxBox3f(b.xmin - v.x, b.xmax + v.x, b.ymin - v.y, b.ymax + v.y, b.zmin - v.z, b.zmax + v.z);
}

QString noVoxelChosen(const std::string& file, const long long* chosen)
{
    return chosen ? QString("%1: no voxel has the label %2").arg(QString::fromStdString(file)).arg(*chosen)
                  : QString("%1: every voxel has the label 0 (background)").arg(QString::fromStdString(file));
}

// With --labels: the chosen voxels as 0 and 1 on the label volume's nodes; the surface at 0.5 wraps
// exactly those voxels.
KxHandle<VxRegScalarField3> labelVolume(const Options& o, const VxUniformLabelField3& labels)
{
    auto* field = new VxUniformScalarField3(labels.getDims(), KxPrimType::UINT8);
    KxHandle<VxRegScalarField3> keep(field);
    auto* out = static_cast<unsigned char*>(field->lattice().dataPtr());
    if (chooseLabels(labels.lattice(), o.haveLabel ? &o.label : nullptr, 0, out) == 0)
        throw KxException(noVoxelChosen(o.volumeFile, o.haveLabel ? &o.label : nullptr));
    field->setBoundingBox(labels.getBoundingBox(), labels.getVoxelSize());
    return keep;
}

// With --mask: the chosen regions of LABELS as a mask of 0 and 1 for the masked module, on the
// nodes of the volume it restricts (padded like it).
KxHandle<VxUniformLabelField3> regionMask(const Options& o, const VxRegScalarField3& volume)
{
    QString error;
    VxReadOptions options;
    options.labels = true;
    KxHandle<VxSpatialData> data = VxVolumeReader::read(QString::fromStdString(o.maskFile), options, &error);
    if (!data) throw KxException(error);
    const auto& labels = static_cast<const VxUniformLabelField3&>(*data);
    const KxDim3l& d = labels.getDims();
    const KxDim3l& v = volume.getDims();
    if (!(d == v))
        throw KxException(
            QString("%1: the mask has %2 x %3 x %4 voxels but the volume has %5 x %6 x %7; they must match")
                .arg(QString::fromStdString(o.maskFile))
                .arg(d.nx)
                .arg(d.ny)
                .arg(d.nz)
                .arg(v.nx)
                .arg(v.ny)
                .arg(v.nz));
    const int64_t pad = o.pad ? 1 : 0;
    auto* mask = new VxUniformLabelField3(KxDim3l(d.nx + 2 * pad, d.ny + 2 * pad, d.nz + 2 * pad));
    KxHandle<VxUniformLabelField3> keep(mask);
    const long long* chosen = o.haveMaskLabel ? &o.maskLabel : nullptr;
    if (chooseLabels(labels.lattice(), chosen, pad,
                     static_cast<unsigned char*>(mask->lattice().getLabels(0))) == 0)
        throw KxException(noVoxelChosen(o.maskFile, chosen));
    const KxVec3f voxel = voxelSize(volume, v);
    mask->setBoundingBox(grownBox(volume.getBoundingBox(), voxel, pad), voxel);
    return keep;
}

// The field inside one more layer of nodes on every side, each below the iso value: the lowest
// value of an integer type, else one less than the smaller of the field's minimum and the iso
// value. The box grows by one voxel each way; the transform stays.
KxHandle<VxRegScalarField3> padded(const VxRegScalarField3& field, double iso)
{
    if (field.coordType() != VX_COORD_UNIFORM)
        throw UsageError{
            "--pad needs a volume on uniform coordinates, not a rectilinear or curvilinear grid"};
    const KxDim3l d = field.getDims();
    const KxDim3l p(d.nx + 2, d.ny + 2, d.nz + 2);
    auto* out = new VxUniformScalarField3(p, field.primType());
    KxHandle<VxRegScalarField3> keep(out);
    double lo = 0, hi = 0;
    field.getRange(lo, hi);
    kxDispatchPrimType(field.primType(), out->lattice().dataPtr(), [&](auto* o) {
        using T = std::remove_pointer_t<decltype(o)>;
        const T border =
            std::is_floating_point<T>::value ? T(std::min(lo, iso) - 1) : std::numeric_limits<T>::lowest();
        std::fill(o, o + p.count(), border);
        const T* in = static_cast<const T*>(field.lattice().dataPtr());
        for (int64_t k = 0; k < d.nz; ++k)
            for (int64_t j = 0; j < d.ny; ++j)
                std::copy(in + (k * d.ny + j) * d.nx, in + (k * d.ny + j + 1) * d.nx,
                          o + ((k + 1) * p.ny + j + 1) * p.nx + 1);
    });
    out->setBoundingBox(grownBox(field.getBoundingBox(), voxelSize(field, d), 1));
    SbMatrix m;
    if (field.getTransform(m)) out->setTransform(m);
    if (field.hasUndefinedValue()) out->setUndefinedValue(field.getUndefinedValue());
    return keep;
}

QString text(double v)
{
    return QString::number(v, 'g', 17);
}

// The slider keeps its value inside the data's range; a threshold outside it is honoured (it gives
// no surface) by widening the range, as a script would with "setMinMax".
void setThreshold(VxHostSession& host, double threshold)
{
    auto* slider = dynamic_cast<VxPortFloatSlider*>(host.find("isosurface")->findPort("threshold"));
    if (!slider) throw KxException("the isosurface module has no threshold slider");
    const float t = float(threshold);
    if (t < slider->getMinValue() || t > slider->getMaxValue())
        host.run({"isosurface", "threshold", "setMinMax", text(std::min(t, slider->getMinValue())),
                  text(std::max(t, slider->getMaxValue()))},
                 "cannot set -t");
    host.run({"isosurface", "threshold", "setValue", text(threshold)}, "cannot set -t");
}

// The module lowers factors above half an axis; say so rather than extract coarser than asked.
void noteClampedFactors(VxHostSession& host, const Options& o)
{
    auto* factors = dynamic_cast<VxPortIntTextN*>(host.find("isosurface")->findPort("resolution"));
    if (!factors) return;
    for (int i = 0; i < 3; ++i)
        if (factors->getValue(i) != o.downsample[i])
            std::fprintf(
                stderr, "vxiso: note: --downsample %d on %c is more than half the axis; the module used %d\n",
                o.downsample[i], "xyz"[i], factors -> getValue(i));
}

void warnOutsideRange(double threshold, double lo, double hi)
{
    if (float(threshold) < float(lo) || float(threshold) > float(hi))
        std::fprintf(
            stderr, "vxiso: warning: -t %.10g lies outside the values %.10g to %.10g; the surface is empty\n",
            threshold, lo, hi);
}

// What the module reads: the field (the chosen labels' wrap with --labels, padded with --pad) or
// the blocks; with --mask also the region's mask.
struct ModuleInputs
{
    KxHandle<VxSpatialData> data;
    KxHandle<VxUniformLabelField3> mask;
};

ModuleInputs prepareInputs(Options& o, const KxHandle<VxSpatialData>& data)
{
    if (o.blocks) return {data, nullptr};
    ModuleInputs in;
    KxHandle<VxRegScalarField3> field;
    if (o.labels) {
        field = labelVolume(o, *static_cast<VxUniformLabelField3*>(data.get()));
        o.threshold = 0.5;
    } else {
        field = static_cast<VxRegScalarField3*>(data.get());
    }
    if (!o.maskFile.empty()) in.mask = regionMask(o, *field);
    if (o.pad) field = padded(*field, o.threshold);
    if (o.downsample[0] && field->coordType() != VX_COORD_UNIFORM)
        throw UsageError{
            "--downsample needs a volume on uniform coordinates, not a rectilinear or curvilinear grid"};
    in.data = field.get();
    return in;
}

// Creates and connects the module and sets its ports from the options, as a script would.
void setUpModule(VxHostSession& host, const Options& o, const ModuleInputs& in)
{
    host.add(in.data.get(), "volume");
    const QString module = in.mask ? "VxMaskedLabelIsosurface" : "VxIsosurface";
    host.run({"create", module, "isosurface"}, "cannot create the module " + module);
    host.run({"isosurface", "data", "connect", "volume"},
             "the module " + module + " does not take the volume");
    if (in.mask) {
        host.add(in.mask.get(), "mask");
        host.run({"isosurface", "mask", "connect", "mask"}, "the module does not take the mask");
        host.run({"isosurface", "maskRestrictionType", "setIndex", o.relaxed ? "1" : "0"},
                 "cannot set --relaxed");
    }
    host.run({"isosurface", "options", "setValue", "0", o.compactify ? "1" : "0"}, "cannot set --compactify");
    setThreshold(host, o.threshold);
    if (o.cores)
        host.run({"isosurface", "numberOfCores", "setValue", QString::number(o.cores)}, "cannot set --cores");
    if (o.downsample[0]) {
        host.run({"isosurface", "downSampleOnOff", "setValue", "1"}, "cannot set --downsample");
        for (int i = 0; i < 3; ++i)
            host.run({"isosurface", "resolution", "setValue", QString::number(i),
                      QString::number(o.downsample[i])},
                     "cannot set --downsample");
    }
}

void printRun(const Options& o, const VxExtractionReport::Figures& run)
{
    std::printf("Elapsed time: %.3f s\n", run.seconds);
    if (!o.verbose) return;
    if (o.blocks)
        std::printf("extracted from: %zu blocks, one after the other\n", run.slabs);
    else
        std::printf("extracted from: %lld x %lld x %lld nodes\n", (long long)run.nodes.nx,
                    (long long)run.nodes.ny, (long long)run.nodes.nz);
    const int axis = run.splitAxis;
    std::printf("split axis: %s\n", axis < 0 ? "none (sequential)" : axis == 0 ? "x" : axis == 1 ? "y" : "z");
    if (!o.blocks) std::printf("slabs: %zu\n", run.slabs);
    std::printf("engine time: %.3f ms\n", run.seconds * 1000.0);
}

// Writing the mesh or the picture over a file that this run reads would destroy the input. Files
// are compared as files, so links and other spellings of a name are caught too.
void refuseOverwritingInputs(const Options& o)
{
    QStringList inputs;
    const std::string& input = o.volumeFile.empty() ? o.rawFile : o.volumeFile;
    if (!input.empty()) inputs << vxInputFiles(QString::fromStdString(input));
    if (!o.maskFile.empty()) inputs << vxInputFiles(QString::fromStdString(o.maskFile));
    const std::pair<const char*, const std::string*> outputs[] = {{"-o", &o.output}, {"--png", &o.picture}};
    for (const auto& [option, output] : outputs) {
        if (output->empty()) continue;
        for (const QString& in : inputs)
            if (vxSameFile(QString::fromStdString(*output), in))
                throw UsageError{std::string(option) + " " + *output + " would replace " + in.toStdString() +
                                 ", which this run reads; choose another name"};
    }
    if (!o.picture.empty() && vxSameFile(QString::fromStdString(o.picture), QString::fromStdString(o.output)))
        throw UsageError{"--png " + o.picture + " and -o " + o.output +
                         " are the same file; choose another name"};
}

// What the values do to the surface that the user may not expect; one pass over them for the range,
// a second only where the range leaves infinities or rounding possible.
void warnAboutValues(const Options& o, const VxSpatialData& data)
{
    if (o.labels) return;
    double lo = 0, hi = 0;
    if (const auto* blocks = kx_type_cast<VxBlockStructuredScalarField3>(&data)) {
        if (blocks->getRange(lo, hi)) warnOutsideRange(o.threshold, lo, hi);
        return;
    }
    const auto& field = static_cast<const VxRegScalarField3&>(data);
    if (!field.getRange(lo, hi, VxRegScalarField3::RANGE_SKIP_UNDEFINED)) return;
    const VxValueChecks checks = VxValueChecks::of(field, o.threshold, lo, hi);
    for (const QString& warning : {checks.infinities, checks.precision})
        if (!warning.isEmpty()) std::fprintf(stderr, "vxiso: warning: %s\n", qPrintable(warning));
    warnOutsideRange(o.threshold, lo, hi);
}

// The host keeps the module's errors and warnings to its record (see runSurface); warnings are passed
// on in the command's voice.
void passOnModuleWarnings()
{
    for (const QString& line : VxApplication::instance()->message()->lines())
        if (line.startsWith("Warning: "))
            std::fprintf(stderr, "vxiso: warning: %s\n", qPrintable(line.mid(9).simplified()));
}

// Why the module failed, in one line: the cause it recorded, else its error texts; empty when it
// reported no error.
QString moduleFailure(VxHostSession& host)
{
    const QStringList& errors = VxApplication::instance()->message()->errors();
    if (errors.isEmpty()) return QString();
    const auto* report = dynamic_cast<const VxExtractionReport*>(host.find("isosurface"));
    const QString cause = report ? report->lastFailure() : QString();
    return cause.isEmpty() ? errors.join(' ').simplified() : cause;
}

// Runs the module; a failure becomes one line of this command's own, not the module's dialog text.
void extract(VxHostSession& host, const QString& output)
{
    host.run({"isosurface", "doIt", "hit"}, "the isosurface module did not run");
    host.run({"isosurface", "fire"}, "the isosurface module did not run");
    passOnModuleWarnings();
    if (VxApplication::instance()->progress()->wasInterrupted())
        throw KxException(QString("interrupted; %1 was not written").arg(output));
    const QString failure = moduleFailure(host);
    if (!failure.isEmpty()) throw KxException(QString("%1; %2 was not written").arg(failure, output));
}

int runSurface(Args& args)
{
    Options o = parseOptions(args, true);
    refuseOverwritingInputs(o);
    checkWritable(o.output);
    if (!o.picture.empty()) checkWritable(o.picture);
    VxVolumeInfo info;
    KxHandle<VxSpatialData> data = readData(o, info);
    if (!o.volumeFile.empty() && !o.blocks) warnAboutFile(o, info, *data);
    warnAboutValues(o, *data);
    const ModuleInputs inputs = prepareInputs(o, data);

    // The engine lets the scheduler pick its threads; the command line caps them.
    std::unique_ptr<tbb::global_control> cap;
    if (o.cores > 1)
        cap = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                    std::size_t(o.cores));

    // The host as vxhost sets it up, with the one package this command needs: the command drives the
    // isosurface module through the host's commands, exactly as a network script does. Errors reach
    // the user as one line of the command's own (extract), not as dialog text.
    VxHostSession host;
    VxApplication::instance()->message()->setErrorConsole(nullptr);
    host.loadPackage("libvxiso.so");
    setUpModule(host, o, inputs);
    const QString output = QString::fromStdString(o.output);
    extract(host, output);
    if (o.downsample[0]) noteClampedFactors(host, o);
    const auto* report = dynamic_cast<const VxExtractionReport*>(host.find("isosurface"));
    printRun(o, report ? report->lastExtraction() : VxExtractionReport::Figures());
    host.run({"isosurface", "exportData", QFileInfo(output).suffix().toLower() + (o.ascii ? "-ascii" : ""),
              output},
             "");
    if (!o.picture.empty())
        host.run({"snapshot", QString::fromStdString(o.picture), "-view", text(o.view[0]), text(o.view[1]),
                  text(o.view[2]), "-up", text(o.up[0]), text(o.up[1]), text(o.up[2])},
                 QString("cannot draw %1").arg(QString::fromStdString(o.picture)));
    std::fflush(stdout);
    return 0;
}

// Numbers as the user typed them: integers without a point, others in at most ten digits.
std::string number(double v)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.10g", v);
    return text;
}

// Coordinates are floats: their shortest exact text, without the noise of widening to double.
std::string number(float v)
{
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
}

std::string triple(const KxVec3f& v)
{
    return number(v.x) + " " + number(v.y) + " " + number(v.z);
}

void printTransform(const VxSpatialData& data)
{
    SbMatrix m;
    if (!data.getTransform(m)) {
        std::printf("transform: none\n");
        return;
    }
    // Rows as the axes of the volume in world space, then the shift.
    std::printf("transform: rotates or mirrors the axes about the first node:\n");
    for (int r = 0; r < 4; ++r)
        std::printf("  %s %s %s\n", number(m[r][0]).c_str(), number(m[r][1]).c_str(),
                    number(m[r][2]).c_str());
}

const char* coordinateKind(const VxCoord3* coords)
{
    return !coords || coords->coordType() == VX_COORD_UNIFORM ? "uniform"
           : coords->coordType() == VX_COORD_RECTILINEAR      ? "rectilinear"
                                                              : "curvilinear";
}

void printGeometry(const VxSpatialData& data, const KxDim3l& d, const VxCoord3* coords)
{
    std::printf("dimensions: %lld x %lld x %lld\n", (long long)d.nx, (long long)d.ny, (long long)d.nz);
    const KxBox3f box = data.getBoundingBox();
    const char* kind = coordinateKind(coords);
    std::printf("coordinates: %s\n", kind);
    if (!coords || coords->coordType() == VX_COORD_UNIFORM)
        std::printf("spacing: %s\n", triple(voxelSize(data, d)).c_str());
    else
        std::printf("spacing: varies (%s coordinates)\n", kind);
    std::printf("origin: %s\n", triple(coords ? coords->pos(0, 0, 0) : box.getMin()).c_str());
    std::printf("bounding box: %s %s %s %s %s %s\n", number(box.xmin).c_str(), number(box.xmax).c_str(),
                number(box.ymin).c_str(), number(box.ymax).c_str(), number(box.zmin).c_str(),
                number(box.zmax).c_str());
    printTransform(data);
}

int runInfo(Args& args)
{
    const Options o = parseOptions(args, false);
    VxVolumeInfo info;
    KxHandle<VxSpatialData> data = readData(o, info);
    const std::string name = !o.fieldName.empty()    ? o.fieldName
                             : !o.volumeFile.empty() ? o.volumeFile
                                                     : o.rawFile;
    std::printf("file: %s\n", name.c_str());
    std::printf("format: %s\n", qPrintable(info.format));
    if (auto* labels = kx_type_cast<VxUniformLabelField3>(data.get())) {
        const VxLabelLattice3& lattice = labels->lattice();
        printGeometry(*labels, labels->getDims(), nullptr);
        std::printf("type: %s labels\n", lattice.primType().name());
        std::set<float> distinct;
        for (int64_t i = 0; i < labels->getDims().count(); ++i) distinct.insert(lattice.labelAt(i));
        std::printf("label range: %s %s\n", number(*distinct.begin()).c_str(),
                    number(*distinct.rbegin()).c_str());
        std::printf("labels: %zu besides the background 0\n", distinct.size() - distinct.count(0.f));
        std::printf("undefined value: none\n");
    } else if (auto* blocks = kx_type_cast<VxBlockStructuredScalarField3>(data.get())) {
        std::printf("blocks: %d\n", blocks->getNumBlocks());
        for (int b = 0; b < blocks->getNumBlocks(); ++b) {
            const VxRegScalarField3& field = *blocks->getField(b);
            const KxDim3l& d = field.getDims();
            const KxBox3f box = field.getBoundingBox();
            std::printf("block %d: %lld x %lld x %lld %s, %s coordinates, box %s %s %s %s %s %s\n", b,
                        (long long)d.nx, (long long)d.ny, (long long)d.nz, field.primType().name(),
                        coordinateKind(field.lattice().coords()), number(box.xmin).c_str(),
                        number(box.xmax).c_str(), number(box.ymin).c_str(), number(box.ymax).c_str(),
                        number(box.zmin).c_str(), number(box.zmax).c_str());
        }
        double lo = 0, hi = 0;
        if (blocks->getRange(lo, hi))
            std::printf("value range: %s %s\n", number(lo).c_str(), number(hi).c_str());
    } else {
        auto* field = static_cast<VxRegScalarField3*>(data.get());
        printGeometry(*field, field->getDims(), field->lattice().coords());
        std::printf("type: %s\n", field->primType().name());
        double lo = 0, hi = 0;
        if (field->getRange(lo, hi, VxRegScalarField3::RANGE_SKIP_UNDEFINED))
            std::printf("value range: %s %s\n", number(lo).c_str(), number(hi).c_str());
        else
            std::printf("value range: none (no defined value)\n");
        if (field->hasUndefinedValue())
            std::printf("undefined value: %s\n", number(field->getUndefinedValue()).c_str());
        else
            std::printf("undefined value: none\n");
    }
    for (const QString& note : info.notes) std::printf("note: %s\n", qPrintable(note));
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication qapp(argc, argv);
    Args args(argc - 1, argv + 1);
    try {
        if (args.done()) throw UsageError{"no command (try 'vxiso surface --help')"};
        const std::string command = args.next();
        if (command == "-h" || command == "--help" || command == "help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (command != "surface" && command != "info")
            throw UsageError{"unknown command '" + command + "' (try 'vxiso --help')"};
        for (int i = 1; i < argc; ++i)
            if (!std::strcmp(argv[i], "-h") || !std::strcmp(argv[i], "--help")) {
                std::fputs(kUsage, stdout);
                return 0;
            }
        return command == "surface" ? runSurface(args) : runInfo(args);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.text.c_str());
        return 2;
    } catch (const KxException& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc& e) {
        // The foundation's allocator says how much it could not get.
        const bool sized = dynamic_cast<const KxOutOfMemory*>(&e) != nullptr;
        std::fprintf(stderr, "vxiso: error: %s\n", sized ? e.what() : "out of memory");
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.what());
        return 1;
    }
}
