// libFuzzer target of the volume and mesh readers: the first byte picks the format (the file name's
// extension, from its low seven bits) and whether to load labels, the rest is the file. Any input
// must give a field or a mesh, or one line of error naming the file at fault (the header or the data
// file it names); the sanitizers catch every bad access on the way. A .vtk file goes to both readers.
#include <io/VxUnstructuredMesh.h>
#include <io/VxVolumeReader.h>

#include <kx/KxHandle.h>
#include <vx/VxRegScalarField3.h>

#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace {

// "<file>: <problem>", where the file is the input or a data file it names (anywhere).
void checkError(const QString& error)
{
    if (error.contains('\n') || error.indexOf(": ") < 1 || error.endsWith(": ")) {
        std::fprintf(stderr, "not one line naming a file and a problem: '%s'\n", qPrintable(error));
        std::abort();
    }
}

// A mesh that is read keeps its promises: whole cells, indices below the node count, one value per
// node or cell.
void checkMesh(const std::string& path)
{
    QString error;
    const auto mesh = readUnstructuredMesh(QString::fromStdString(path), QString(), &error);
    if (!mesh) return checkError(error);
    const int64_t nodes = mesh->nodeCount();
    bool bad = mesh->points.size() % 3 || mesh->cells.size() % std::size_t(mesh->nodesPerCell()) ||
               int64_t(mesh->values.size()) !=
                   (mesh->association == VxUnstructuredMesh::Association::Node ? nodes : mesh->cellCount());
    for (int32_t c : mesh->cells) bad |= c < 0 || c >= nodes;
    if (bad) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One scratch folder per process, on a memory file system when there is one; removed when the
    // fuzzer exits.
    static const QTemporaryDir dir(::access("/dev/shm", W_OK) == 0 ? "/dev/shm/vxfuzz-XXXXXX"
                                                                   : "/tmp/vxfuzz-XXXXXX");
    static const char* const kExtensions[] = {".nrrd", ".nhdr", ".mha", ".mhd", ".vtk",
                                              ".nii",  ".hdr",  ".vtu", ".msh"};
    if (size < 1) return 0;
    if (!dir.isValid()) std::abort();
    const int format = (data[0] & 0x7f) % 9;
    const std::string path = dir.path().toStdString() + "/in" + kExtensions[format];
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(data + 1, 1, size - 1, f);
    std::fclose(f);

    if (format == 4 || format >= 7) checkMesh(path);
    if (format >= 7) {
        std::remove(path.c_str());
        return 0;
    }

    VxReadOptions options;
    options.labels = (data[0] & 0x80) != 0;
    QString error;
    KxHandle<VxSpatialData> result = VxVolumeReader::read(QString::fromStdString(path), options, &error);
    if (!result) checkError(error);
    if (auto* field = kx_type_cast<VxRegScalarField3>(result.get())) {
        double lo, hi;
        field->getRange(lo, hi); // touches every value
        if (field->getDims().count() <= 0) std::abort();
    }
    std::remove(path.c_str());
    return 0;
}
