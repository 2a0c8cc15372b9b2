// vxiso: the one-line command for the everyday job, e.g.
//   vxiso surface --field gyroid --size 128 -t 0 -o gyroid.ply
#include <io/VxBuiltinField.h>
#include <io/VxNiftiReader.h>
#include <io/VxRawReader.h>
#include <io/VxSurfaceWriter.h>
#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>
#include <vxiso/VxIsosurfaceExtractor.h>

#include <tbb/global_control.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* kUsage =
    "usage: vxiso surface INPUT -t VALUE -o OUTPUT [options]\n"
    "\n"
    "Extracts the isosurface where the field equals VALUE and writes it as a mesh; the output's\n"
    "extension picks the format: .ply (binary), .stl (binary), .off or .iv.\n"
    "\n"
    "INPUT is one of:\n"
    "  FILE.nii, FILE.nii.gz, FILE.hdr or FILE.img   a NIfTI-1 or NIfTI-2 volume; the header gives\n"
    "      dimensions, type, spacing and placement; -t compares with the values as stored\n"
    "  --raw FILE --dims NX NY NZ --type TYPE   a headerless volume (x fastest, native byte order);\n"
    "      TYPE is uint8, int8, uint16, int16, uint32, int32, float32 or float64\n"
    "      [--spacing SX SY SZ] [--origin X Y Z]   node spacing and first node (default 1 1 1, 0 0 0)\n"
    "      [--undefined U]    value that marks missing data (nan allowed); no surface touches it\n"
    "      [--offset BYTES]   bytes to skip before the values   [--swap-bytes] other byte order\n"
    "  --field sphere|torus|gyroid --size N      a built-in float field on [-1,1]^3; use -t 0\n"
    "\n"
    "options:\n"
    "  --compactify   snap vertices near grid nodes onto one vertex per node (fewer triangles)\n"
    "  --snap S       snapping distance for --compactify, a fraction of an edge (default 0.5)\n"
    "  --cores N      1 runs sequentially; more run in parallel on at most N threads\n"
    "                 (default: all cores)\n"
    "  --verbose      also print the split axis, the number of slabs and the engine time\n"
    "  -h, --help     this text\n";

struct UsageError
{
    std::string text;
};

struct Options
{
    std::string rawFile, niftiFile, fieldName, output;
    VxRawDescription raw;
    bool haveDims = false, haveType = false, haveThreshold = false, compactify = false, verbose = false;
    long long cores = 0; // 0: all cores
    bool describesRaw = false; // any of --dims, --type, --spacing, --origin, --offset, --swap-bytes
    int size = 0;
    double threshold = 0, snap = 0.5;
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
    double number(const std::string& option, bool allowNaN = false)
    {
        const std::string text = value(option);
        char* end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0') throw UsageError{option + " expects a number, not '" + text + "'"};
        if (std::isnan(v) ? !allowNaN : std::isinf(v))
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

Options parseSurfaceOptions(Args& args)
{
    Options o;
    std::vector<std::string> positional;
    while (!args.done()) {
        const std::string a = args.next();
        if (a == "-t" || a == "--threshold") {
            o.threshold = args.number(a);
            o.haveThreshold = true;
        } else if (a == "-o" || a == "--output") {
            o.output = args.value(a);
        } else if (a == "--compactify") {
            o.compactify = true;
        } else if (a == "--snap") {
            o.snap = std::max(0.0, args.number(a)); // below 0 behaves like 0
        } else if (a == "--cores") {
            o.cores = args.integer(a);
            if (o.cores < 1) throw UsageError{"--cores must be 1 or more"};
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
        if (VxNiftiReader::isNiftiPath(QString::fromStdString(positional[0]))) o.niftiFile = positional[0];
        else o.rawFile = positional[0];
    }
    o.describesRaw = o.describesRaw || o.haveDims || o.haveType;
    if (!o.niftiFile.empty()) {
        if (!o.fieldName.empty()) throw UsageError{"give either a NIfTI file or --field, not both"};
        if (o.describesRaw)
            throw UsageError{"--dims, --type, --spacing, --origin, --offset and --swap-bytes describe raw files; "
                             "the NIfTI file '" + o.niftiFile + "' carries its own description"};
    } else if (o.rawFile.empty() == o.fieldName.empty()) {
        throw UsageError{o.rawFile.empty() ? "no input: give a NIfTI file, --raw FILE ... or --field NAME --size N"
                                           : "give either a raw file or --field, not both"};
    }
    if (!o.rawFile.empty() && (!o.haveDims || !o.haveType))
        throw UsageError{"a raw file needs --dims NX NY NZ and --type TYPE"};
    if (!o.fieldName.empty() && o.size == 0) throw UsageError{"--field needs --size N"};
    if (!o.haveThreshold) throw UsageError{"no threshold: give -t VALUE"};
    if (o.output.empty()) throw UsageError{"no output: give -o FILE"};
    if (VxSurfaceWriter::formatForPath(QString::fromStdString(o.output)) == VxSurfaceWriter::UNKNOWN)
        throw UsageError{"cannot write '" + o.output + "': unknown format (use .ply, .stl, .off or .iv)"};
    return o;
}

// Fails early, before a long extraction, when the output cannot be created.
void checkWritable(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: no directory %2").arg(QString::fromStdString(path), QString::fromStdString(dir)));
    if (::access(dir.c_str(), W_OK) != 0)
        throw KxException(QString("cannot write %1: %2").arg(QString::fromStdString(path), std::strerror(errno)));
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: it is a directory").arg(QString::fromStdString(path)));
}

// A progress bar on stderr, for terminals.
class TerminalProgress : public KxProgressInterface
{
public:
    void startWorking(const QString& text) override
    {
        m_text = text.toStdString();
        draw(0.f);
    }
    void setProgressValue(float value) override { draw(value); }
    void stopWorking() override { std::fputs("\r\033[K", stderr); }

private:
    void draw(float value)
    {
        const int width = 30, filled = int(value * float(width) + 0.5f);
        std::fprintf(stderr, "\r%s [%s%s] %3d%%", m_text.c_str(), std::string(std::size_t(filled), '#').c_str(),
                     std::string(std::size_t(width - filled), ' ').c_str(), int(value * 100.f + 0.5f));
        std::fflush(stderr);
    }
    std::string m_text;
};

// The lines the isosurface module prints.
void printTriangleCount(unsigned long kept, unsigned long long removed, bool compactify)
{
    if (!compactify) {
        std::printf("Isosurface contains %lu triangles\n", kept);
    } else if (kept + removed == 0) {
        std::printf("Isosurface contains 0 triangles\n");
    } else {
        const float less = 100.f * float(removed) / float(kept + removed);
        std::printf("Isosurface contains %lu triangles (%2.2f%% less)\n", kept, double(less));
    }
}

// Tells what the NIfTI header asks for that the written mesh does not do.
void warnAboutNifti(const Options& o, const VxNiftiInfo& info, const VxUniformScalarField3& field)
{
    const QString file = QString::fromStdString(o.niftiFile);
    if (info.hasScaling())
        std::fprintf(stderr, "vxiso: warning: %s: %s; -t %g is compared with stored values (physical %g is stored %g)\n",
                     qPrintable(file), qPrintable(info.scaling()), o.threshold, o.threshold,
                     info.toStored(o.threshold));
    if (field.getTransform(true))
        std::fprintf(stderr, "vxiso: warning: %s: the header rotates or mirrors the volume; the mesh is written in "
                     "the volume's own axes, from the first voxel's world position\n",
                     qPrintable(file));
}

KxHandle<VxUniformScalarField3> readInput(const Options& o)
{
    QString error;
    KxHandle<VxUniformScalarField3> field;
    if (!o.niftiFile.empty()) {
        VxNiftiInfo info;
        field = VxNiftiReader::read(QString::fromStdString(o.niftiFile), &error, &info);
        if (field) {
            if (o.raw.hasUndefined) field->setUndefinedValue(o.raw.undefinedValue);
            warnAboutNifti(o, info, *field);
        }
    } else if (!o.rawFile.empty()) {
        field = VxRawReader::read(QString::fromStdString(o.rawFile), o.raw, &error);
    } else {
        field = VxBuiltinField::create(QString::fromStdString(o.fieldName), o.size, &error);
    }
    if (!field) throw KxException(error);
    return field;
}

int runSurface(Args& args)
{
    const Options o = parseSurfaceOptions(args);
    checkWritable(o.output);
    KxHandle<VxUniformScalarField3> field = readInput(o);

    oivInit();
    const unsigned machineCores = std::max(1u, std::thread::hardware_concurrency());
    const long long cores = o.cores ? o.cores : machineCores;
    // The engine lets the scheduler pick its threads; the command line caps them.
    std::unique_ptr<tbb::global_control> cap;
    if (cores > 1)
        cap = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, std::size_t(cores));

    KxHandle<SoTriSurface> surface = new SoTriSurface;
    TerminalProgress progress;
    VxIsosurfaceExtractor extractor(field, surface, ::isatty(STDERR_FILENO) ? &progress : nullptr);
    extractor.isoValue = float(o.threshold);
    extractor.compact = o.compactify ? 1 : 0;
    extractor.threshold = float(o.snap);
    extractor.numberOfCores = cores;
    extractor.compute();

    printTriangleCount((unsigned long)surface->getNumTriangles(), extractor.getDegenerateCount(), o.compactify);
    std::printf("Elapsed time: %.3f s\n", extractor.getElapsedTime());
    if (o.verbose) {
        const int axis = extractor.getSplitAxis();
        std::printf("split axis: %s\n", axis < 0 ? "none (sequential)" : axis == 0 ? "x" : axis == 1 ? "y" : "z");
        std::printf("slabs: %zu\n", extractor.getSlabCount());
        std::printf("engine time: %.3f ms\n", extractor.getElapsedTime() * 1000.0);
    }
    QString error;
    if (!VxSurfaceWriter::write(*surface, QString::fromStdString(o.output), &error)) throw KxException(error);
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Args args(argc - 1, argv + 1);
    try {
        if (args.done()) throw UsageError{"no command (try 'vxiso surface --help')"};
        const std::string command = args.next();
        if (command == "-h" || command == "--help" || command == "help") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (command != "surface") throw UsageError{"unknown command '" + command + "' (try 'vxiso --help')"};
        for (int i = 1; i < argc; ++i)
            if (!std::strcmp(argv[i], "-h") || !std::strcmp(argv[i], "--help")) {
                std::fputs(kUsage, stdout);
                return 0;
            }
        return runSurface(args);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.text.c_str());
        return 2;
    } catch (const KxException& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "vxiso: error: out of memory\n");
        return 1;
    }
}
