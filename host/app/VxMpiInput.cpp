#include "VxMpiInput.h"

#include "VxisoOptions.h"

#include <io/VxMetaImageReader.h>
#include <io/VxNiftiReader.h>
#include <io/VxNrrdReader.h>
#include <io/VxRawReader.h>
#include <kx/KxException.h>

#include <QFileInfo>

#include <algorithm>
#include <utility>

namespace {

constexpr bool kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
// Values a collective read moves at most per call: counts of MPI calls are ints.
constexpr uint64_t kChunkBytes = uint64_t(256) << 20;

QString mpiError(int code)
{
    char text[MPI_MAX_ERROR_STRING];
    int length = 0;
    MPI_Error_string(code, text, &length);
    return QString::fromLatin1(text, length);
}

void check(int code, const QString& file, const char* what)
{
    if (code != MPI_SUCCESS) throw KxException(QString("%1: cannot %2: %3").arg(file, what, mpiError(code)));
}

void swapBytes(char* values, uint64_t count, int size)
{
    for (uint64_t i = 0; i < count; ++i, values += size) std::reverse(values, values + size);
}

} // namespace

namespace VxMpiInput {

VxVolumeLayout locate(const VxisoOptions& o)
{
    VxVolumeLayout l;
    QString error;
    const QString path = QString::fromStdString(o.rawFile.empty() ? o.inputs.front() : o.rawFile);
    const QString name = QFileInfo(path).fileName().toLower();
    if (name.endsWith(".gz") || name.endsWith(".bz2") || name.endsWith(".xz") || name.endsWith(".zst"))
        throw KxException(QString("%1: is compressed; the ranks read their slabs straight from the file, so "
                                  "decompress it first (e.g. gunzip -k %1)")
                              .arg(path));
    bool found = false;
    if (!o.rawFile.empty())
        found = VxRawReader::locate(path, o.raw, l, &error);
    else if (name.endsWith(".nrrd") || name.endsWith(".nhdr"))
        found = VxNrrdReader::locate(path, l, &error);
    else if (name.endsWith(".mha") || name.endsWith(".mhd"))
        found = VxMetaImageReader::locate(path, l, &error);
    else if (VxNiftiReader::isNiftiPath(path))
        found = VxNiftiReader::locate(path, l, &error);
    else
        throw KxException(QString("%1: vxiso-mpi reads raw volumes (--raw FILE --dims --type), NIfTI (.nii, "
                                  ".hdr/.img), NRRD (.nrrd, .nhdr) and MetaImage (.mha, .mhd) files with "
                                  "uncompressed values; convert other formats first")
                              .arg(path));
    if (!found) throw KxException(error);
    if (l.encoding == VxEncoding::Gzip)
        throw KxException(QString("%1: its values are compressed; the ranks read their slabs straight from "
                                  "the file, so decompress it first")
                              .arg(path));
    if (l.encoding == VxEncoding::Ascii)
        throw KxException(QString("%1: its values are text; the ranks read their slabs at byte offsets, so "
                                  "store them raw first")
                              .arg(path));
    if (o.raw.hasUndefined) {
        l.hasUndefined = true;
        l.undefinedValue = o.raw.undefinedValue;
    }
    return l;
}

void checkBox(const VxVolumeLayout& l, const KxVec3i& first, const KxVec3i& stored)
{
    MPI_File file;
    check(MPI_File_open(MPI_COMM_SELF, l.dataPath.toLocal8Bit().constData(), MPI_MODE_RDONLY, MPI_INFO_NULL,
                        &file),
          l.dataPath, "open it");
    MPI_Offset size = 0;
    const int code = MPI_File_get_size(file, &size);
    MPI_File_close(&file);
    check(code, l.dataPath, "tell its size");
    // The box's last byte: its last node in the file's order.
    const uint64_t bytes = uint64_t(l.type.size());
    const KxVec3i last(first.x + stored.x - 1, first.y + stored.y - 1, first.z + stored.z - 1);
    const uint64_t end =
        l.offset + ((uint64_t(last.z) * uint64_t(l.dims.ny) + uint64_t(last.y)) * uint64_t(l.dims.nx) +
                    uint64_t(last.x) + 1) *
                       bytes;
    if (uint64_t(size) < end)
        throw KxException(QString("%1: the file holds %2 bytes, but this rank's slab reaches to byte %3; the "
                                  "file is truncated or its header is wrong")
                              .arg(l.dataPath)
                              .arg(uint64_t(size))
                              .arg(end));
}

void readBox(MPI_Comm comm, const VxVolumeLayout& l, const KxVec3i& first, const KxVec3i& stored, char* out)
{
    const int size = int(l.type.size());
    MPI_File file;
    check(MPI_File_open(comm, l.dataPath.toLocal8Bit().constData(), MPI_MODE_RDONLY, MPI_INFO_NULL, &file),
          l.dataPath, "open it");
    MPI_Datatype value;
    MPI_Type_contiguous(size, MPI_BYTE, &value);
    MPI_Type_commit(&value);
    // Whole node layers along z a call, as many as the chunk holds; every rank makes as many calls.
    const uint64_t layerBytes = uint64_t(stored.x) * uint64_t(stored.y) * uint64_t(size);
    const int perCall = int(std::max<uint64_t>(1, kChunkBytes / std::max<uint64_t>(layerBytes, 1)));
    int calls = (stored.z + perCall - 1) / perCall, most = 0;
    MPI_Allreduce(&calls, &most, 1, MPI_INT, MPI_MAX, comm);
    int code = MPI_SUCCESS;
    const int sizes[3] = {int(l.dims.nz), int(l.dims.ny), int(l.dims.nx)};
    for (int c = 0; c < most; ++c) {
        const int z = std::min(c * perCall, stored.z), layers = std::min(perCall, stored.z - z);
        // A rank done already reads nothing, through a view of one node.
        const int sub[3] = {std::max(layers, 1), stored.y, stored.x};
        const int start[3] = {first.z + std::min(z, stored.z - 1), first.y, first.x};
        MPI_Datatype box;
        MPI_Type_create_subarray(3, sizes, sub, start, MPI_ORDER_C, value, &box);
        MPI_Type_commit(&box);
        int callCode = MPI_File_set_view(file, MPI_Offset(l.offset), value, box, "native", MPI_INFO_NULL);
        MPI_Status status;
        const int count = layers > 0 ? int(uint64_t(layers) * stored.y * stored.x) : 0;
        if (callCode == MPI_SUCCESS)
            callCode = MPI_File_read_all(file, out + uint64_t(z) * layerBytes, count, value, &status);
        if (callCode == MPI_SUCCESS) {
            int got = 0;
            MPI_Get_count(&status, value, &got);
            if (got != count) callCode = MPI_ERR_TRUNCATE;
        }
        if (code == MPI_SUCCESS) code = callCode;
        MPI_Type_free(&box);
    }
    MPI_Type_free(&value);
    MPI_File_close(&file);
    check(code, l.dataPath, "read this rank's slab");
    if (size > 1 && l.bigEndian != kHostBigEndian)
        swapBytes(out, uint64_t(stored.x) * uint64_t(stored.y) * uint64_t(stored.z), size);
}

} // namespace VxMpiInput
