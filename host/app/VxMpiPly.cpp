#include "VxMpiPly.h"

#include <kx/KxException.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Records a collective write moves at most per call.
constexpr uint64_t kChunkRecords = uint64_t(1) << 20;

char* little32(char* p, uint32_t v)
{
    for (int i = 0; i < 4; ++i) p[i] = char((v >> (8 * i)) & 0xff);
    return p + 4;
}

char* putFloat(char* p, float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return little32(p, u);
}

QString mpiError(int code)
{
    char text[MPI_MAX_ERROR_STRING];
    int length = 0;
    MPI_Error_string(code, text, &length);
    return QString::fromLatin1(text, length);
}

// Writes n records of recordBytes each, made by fill(record, out), from byte at on; every rank
// makes as many calls as the rank with the most.
template <class Fill>
int writeRecords(MPI_Comm comm, MPI_File file, MPI_Offset at, uint64_t n, int recordBytes, Fill fill)
{
    uint64_t calls = (n + kChunkRecords - 1) / kChunkRecords, most = 0;
    MPI_Allreduce(&calls, &most, 1, MPI_UINT64_T, MPI_MAX, comm);
    std::vector<char> buffer(std::size_t(std::min(n, kChunkRecords)) * std::size_t(recordBytes));
    int code = MPI_SUCCESS;
    for (uint64_t c = 0; c < most; ++c) {
        const uint64_t begin = std::min(n, c * kChunkRecords), end = std::min(n, begin + kChunkRecords);
        char* o = buffer.data();
        for (uint64_t r = begin; r < end; ++r) o = fill(r, o);
        MPI_Status status;
        const int callCode =
            MPI_File_write_at_all(file, at + MPI_Offset(begin) * recordBytes, buffer.data(),
                                  int((end - begin) * uint64_t(recordBytes)), MPI_BYTE, &status);
        if (code == MPI_SUCCESS) code = callCode;
    }
    return code;
}

} // namespace

namespace VxMpiPly {

QByteArray header(uint64_t vertices, uint64_t triangles)
{
    return QByteArray("ply\nformat binary_little_endian 1.0\ncomment written by vxiso\nelement vertex ") +
           QByteArray::number(qulonglong(vertices)) +
           "\nproperty float x\nproperty float y\nproperty float z\n" +
           (vertices ? "property float nx\nproperty float ny\nproperty float nz\n" : "") + "element face " +
           QByteArray::number(qulonglong(triangles)) +
           "\nproperty list uchar int vertex_indices\nend_header\n";
}

void write(MPI_Comm comm, const QString& path, const Part& part)
{
    int rank = 0;
    MPI_Comm_rank(comm, &rank);
    MPI_File file;
    int code = MPI_File_open(comm, path.toLocal8Bit().constData(), MPI_MODE_WRONLY, MPI_INFO_NULL, &file);
    if (code != MPI_SUCCESS) throw KxException(QString("cannot write %1: %2").arg(path, mpiError(code)));
    code = MPI_File_set_size(file, 0);
    const QByteArray head = header(part.vertices, part.triangles_);
    if (rank == 0 && code == MPI_SUCCESS) {
        MPI_Status status;
        code = MPI_File_write_at(file, 0, head.constData(), int(head.size()), MPI_BYTE, &status);
    }
    const MPI_Offset vertexBlock = MPI_Offset(head.size()), vertexBytes = 24;
    const KxVec3f* c = part.coords->data();
    const KxVec3f* nv = part.normals->data();
    const int vertexCode = writeRecords(comm, file, vertexBlock + MPI_Offset(part.firstVertex) * vertexBytes,
                                        part.coords->size(), 24, [&](uint64_t v, char* o) {
                                            for (int k = 0; k < 3; ++k) o = putFloat(o, c[v][k]);
                                            for (int k = 0; k < 3; ++k) o = putFloat(o, nv[v][k]);
                                            return o;
                                        });
    const MPI_Offset faceBlock = vertexBlock + MPI_Offset(part.vertices) * vertexBytes;
    const KxVec3i* t = part.triangles->data();
    const int32_t base = int32_t(part.firstVertex);
    const int faceCode = writeRecords(comm, file, faceBlock + MPI_Offset(part.firstTriangle) * 13,
                                      part.triangles->size(), 13, [&](uint64_t i, char* o) {
                                          *o++ = 3;
                                          for (int k = 0; k < 3; ++k)
                                              o = little32(o, uint32_t(t[i][k] + base));
                                          return o;
                                      });
    const int closeCode = MPI_File_close(&file);
    for (int each : {code, vertexCode, faceCode, closeCode})
        if (each != MPI_SUCCESS) throw KxException(QString("cannot write %1: %2").arg(path, mpiError(each)));
}

} // namespace VxMpiPly
