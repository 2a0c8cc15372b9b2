#include "VxisoOptions.h"

#include "VxisoInputs.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

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

// More threads than any machine of ours has; the scheduler would not start them anyway.
constexpr long long kMaxCores = 4096;

class Args
{
public:
    explicit Args(const std::vector<std::string>& args) : m_args(args) {}
    bool done() const { return m_pos >= m_args.size(); }
    std::string next() { return m_args[m_pos++]; }
    std::string value(const std::string& option)
    {
        if (done()) throw VxisoUsageError{"option " + option + " needs a value"};
        return next();
    }
    // Finite unless anyValue: an undefined value may be NaN or an infinity.
    double number(const std::string& option, bool anyValue = false)
    {
        const std::string text = value(option);
        char* end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0')
            throw VxisoUsageError{option + " expects a number, not '" + text + "'"};
        if (!anyValue && !std::isfinite(v))
            throw VxisoUsageError{option + " must be a finite number, not '" + text + "'"};
        return v;
    }
    long long integer(const std::string& option)
    {
        const std::string text = value(option);
        char* end = nullptr;
        errno = 0;
        const long long v = std::strtoll(text.c_str(), &end, 10);
        if (text.empty() || *end != '\0' || errno == ERANGE)
            throw VxisoUsageError{option + " expects an integer, not '" + text + "'"};
        return v;
    }

private:
    const std::vector<std::string>& m_args;
    std::size_t m_pos = 0;
};

} // namespace

VxisoOptions vxisoParseOptions(const std::vector<std::string>& words, VxisoCommand command)
{
    const bool surface = command == VxisoCommand::Surface;
    Args args(words);
    VxisoOptions o;
    std::vector<std::string> positional;
    while (!args.done()) {
        const std::string a = args.next();
        const bool surfaceOnly = a == "-t" || a == "--threshold" || a == "-o" || a == "--output" ||
                                 a == "--compactify" || a == "--cores" || a == "--verbose" ||
                                 a == "--ascii" || a == "--label" || a == "--pad" || a == "--mask" ||
                                 a == "--mask-label" || a == "--relaxed" || a == "--downsample" ||
                                 a == "--png" || a == "--view" || a == "--up";
        if (surfaceOnly && !surface)
            throw VxisoUsageError{"option " + a + " belongs to 'vxiso surface', not 'vxiso info'"};
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
            throw VxisoUsageError{
                "--snap is gone: vxiso surface runs the isosurface module, which snaps vertices "
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
                    throw VxisoUsageError{"--downsample takes three factors of 1 or more, not " +
                                          std::to_string(v)};
                f = int(v);
            }
        } else if (a == "--cores") {
            o.cores = args.integer(a);
            if (o.cores < 1 || o.cores > kMaxCores)
                throw VxisoUsageError{"--cores takes 1 to " + std::to_string(kMaxCores) + " threads, not " +
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
                throw VxisoUsageError{
                    "unknown value type '" + t +
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
            if (off < 0) throw VxisoUsageError{"--offset must not be negative"};
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
            throw VxisoUsageError{"unknown option '" + a + "'"};
        } else {
            positional.push_back(a);
        }
    }
    vxisoChooseInput(o, positional);
    return o;
}

bool vxisoAsksForHelp(const std::string& word)
{
    return word == "-h" || word == "--help";
}

std::string vxisoHelp()
{
    return kUsage;
}
