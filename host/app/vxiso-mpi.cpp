// vxiso-mpi: vxiso surface spread over the ranks of an MPI job, for volumes larger than one
// machine's memory, e.g.
//   mpirun -np 4 vxiso-mpi surface --raw ct.raw --dims 2048 2048 2048 --type float32 -t 0.5 -o ct.ply
// Each rank reads only its slab (VxMpiInput), runs the threaded engine on it, and the ranks merge
// and write one PLY file together (VxMpiSurface, VxMpiPly). The options are vxiso's, read by the
// same table; those that need the whole volume in one place are refused.
#include "VxMpiRanks.h"
#include "VxMpiSurface.h"
#include "VxisoOptions.h"

#include <io/VxSurfaceWriter.h>
#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace {

const char* kHelp =
    "usage: mpirun -np RANKS vxiso-mpi surface INPUT -t VALUE -o OUTPUT.ply [options]\n"
    "\n"
    "The isosurface of vxiso surface, extracted by the ranks of an MPI job so that no rank holds\n"
    "more than its slab of the volume: each rank reads its slab (with the one node layer it shares\n"
    "with the slab above and one more on each side for the normals), runs the threaded engine on it,\n"
    "and the ranks write one binary PLY file together. Rank 0 reports progress on stderr.\n"
    "\n"
    "Slabs: the volume is cut along its longest axis (ties go to x, then y), split evenly across\n"
    "the ranks, then across each rank's threads (no split under 16 node layers a thread). With\n"
    "--slabs N it is cut into exactly N even slabs, dealt out to the ranks in order and not split\n"
    "further: the file is then byte for byte the one `vxiso surface --slabs N -o OUTPUT.ply` writes,\n"
    "with --compactify too.\n"
    "\n"
    "INPUT is one of:\n"
    "  FILE   .nii, .hdr/.img (NIfTI), .nrrd, .nhdr (NRRD), .mha, .mhd (MetaImage) with uncompressed\n"
    "         values (compressed files: decompress first; NIfTI: -t compares with the stored values)\n"
    "  --raw FILE --dims NX NY NZ --type TYPE   a headerless volume (--spacing, --origin, --offset,\n"
    "                                           --swap-bytes as for vxiso)\n"
    "\n"
    "options:\n"
    "  -t, --threshold VALUE   the surface lies where the field equals VALUE\n"
    "  -o, --output FILE.ply   the file to write (binary PLY with normals)\n"
    "  --compactify            snap vertices within half an edge of a node onto one vertex per node\n"
    "  --slabs N               exactly N slabs in all (N at least the number of ranks)\n"
    "  --undefined U           value that marks missing data; no surface touches it\n"
    "  --max-memory MB         each rank refuses a slab whose values and tables exceed MB megabytes,\n"
    "                          and allocates at most MB beyond what it holds at start (more fails\n"
    "                          cleanly, stopping every rank)\n"
    "  --verbose               also print the slabs, the slowest rank's time per stage, the bytes\n"
    "                          handed across a rank boundary and every rank's peak memory\n"
    "  -h, --help              this text\n";

// vxiso's options that need the whole volume in one process, or write what this program does not.
void refuseWhatRanksCannotDo(const VxisoOptions& o)
{
    auto refuse = [](bool asked, const char* option) {
        if (asked) throw VxisoUsageError{std::string(option) + " is not offered by vxiso-mpi (see --help)"};
    };
    refuse(o.labels, "--labels");
    refuse(!o.maskFile.empty(), "--mask");
    refuse(!o.picture.empty(), "--png");
    refuse(o.pad, "--pad");
    refuse(o.downsample[0] != 0, "--downsample");
    refuse(o.ascii, "--ascii");
    refuse(o.cores != 0, "--cores");
    refuse(!o.fieldName.empty(), "--field");
    if (!o.haveThreshold) throw VxisoUsageError{"no threshold: give -t VALUE"};
    if (o.output.empty()) throw VxisoUsageError{"no output: give -o FILE.ply"};
    if (VxSurfaceWriter::formatForPath(QString::fromStdString(o.output)) != VxSurfaceWriter::PLY)
        throw VxisoUsageError{"vxiso-mpi writes PLY: give -o FILE.ply, not '" + o.output + "'"};
    const std::size_t inputs = o.inputs.size() + (o.rawFile.empty() ? 0 : 1);
    if (inputs != 1)
        throw VxisoUsageError{inputs ? "more than one input" : "no input: give FILE or --raw FILE"};
    if (o.rawFile.empty() && (o.describesRaw || o.haveDims || o.haveType))
        throw VxisoUsageError{
            "--dims, --type, --spacing, --origin, --offset and --swap-bytes describe a --raw file"};
    if (!o.rawFile.empty() && (!o.haveDims || !o.haveType))
        throw VxisoUsageError{"--raw needs --dims NX NY NZ and --type TYPE"};
}

// The process's data segment now (VmData): what it holds before the work starts.
uint64_t dataSegmentBytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 7, "VmData:") == 0)
            return uint64_t(std::strtoull(line.c_str() + 7, nullptr, 10)) << 10;
    return 0;
}

// Takes --max-memory MB out of the words, leaving vxiso's options.
uint64_t takeMaxMemory(std::vector<std::string>& words)
{
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] != "--max-memory") continue;
        if (i + 1 == words.size()) throw VxisoUsageError{"--max-memory expects MB"};
        char* end = nullptr;
        const long long mb = std::strtoll(words[i + 1].c_str(), &end, 10);
        if (*end != '\0' || mb < 1 || mb > (1ll << 30))
            throw VxisoUsageError{"--max-memory takes megabytes of 1 or more, not '" + words[i + 1] + "'"};
        words.erase(words.begin() + long(i), words.begin() + long(i) + 2);
        return uint64_t(mb) << 20;
    }
    return 0;
}

int run(const VxMpiRanks& ranks, std::vector<std::string> words)
{
    for (const std::string& w : words)
        if (w == "-h" || w == "--help") {
            if (ranks.rank() == 0) std::fputs(kHelp, stdout);
            return 0;
        }
    if (words.empty() || words.front() != "surface")
        throw VxisoUsageError{"the command is 'vxiso-mpi surface' (try --help)"};
    words.erase(words.begin());
    VxMpiSettings settings;
    settings.maxMemory = takeMaxMemory(words);
    const VxisoOptions o = vxisoParseOptions(words, VxisoCommand::Surface);
    refuseWhatRanksCannotDo(o);
    if (settings.maxMemory) {
        // Memory past the limit fails to map: the engine's allocations then throw, and the rank stops
        // with the others instead of being killed. What the rank holds already (libraries, MPI) is
        // not counted against it.
        const rlim_t most = rlim_t(dataSegmentBytes() + settings.maxMemory);
        const rlimit limit{most, most};
        setrlimit(RLIMIT_DATA, &limit);
    }
    try {
        vxMpiSurface(ranks, o, settings);
    } catch (VxMpiRanks::Failure& f) {
        if (settings.maxMemory && f.text.compare(0, 13, "out of memory") == 0)
            f.text +=
                " within --max-memory " + std::to_string(settings.maxMemory >> 20) + " MB; run more ranks";
        throw;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    kxReturnLargeBlocksToSystem();
    MPI_Init(&argc, &argv);
    int status = 0;
    {
        QCoreApplication qapp(argc, argv);
        const VxMpiRanks ranks(MPI_COMM_WORLD);
        try {
            status = run(ranks, std::vector<std::string>(argv + 1, argv + argc));
        } catch (const VxisoUsageError& e) {
            // Every rank reads the same words: all fail alike, and one says so.
            if (ranks.rank() == 0) std::fprintf(stderr, "vxiso-mpi: error: %s\n", e.text.c_str());
            status = 2;
        } catch (const VxMpiRanks::Failure& f) {
            if (ranks.rank() == 0)
                std::fprintf(stderr, "vxiso-mpi: error: rank %d of %d: %s; nothing was written\n", f.rank,
                             ranks.size(), f.text.c_str());
            status = 1;
        }
    }
    MPI_Finalize();
    return status;
}
