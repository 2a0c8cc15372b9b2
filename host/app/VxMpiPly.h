#pragma once
#include <kx/KxDArray.h>
#include <kx/KxVec3.h>

#include <mpi.h>

#include <QByteArray>
#include <QString>

#include <cstdint>

// One binary PLY file written by all ranks together: the header by rank 0, then each rank's
// vertices and triangles at the offsets the scans of their counts give, by collective MPI-IO
// writes, so that the surface never passes through one rank. The bytes are those vxiso writes.
namespace VxMpiPly {

// What vxiso writes in front of a surface of these counts (normals only on a surface that has
// vertices, as there).
QByteArray header(uint64_t vertices, uint64_t triangles);

struct Part
{
    const KxDArray<KxVec3f>* coords;
    const KxDArray<KxVec3f>* normals;
    const KxDArray<KxVec3i>* triangles; // corners numbered from this part's first vertex
    uint64_t firstVertex, firstTriangle;
    uint64_t vertices, triangles_; // totals of the whole surface
};

// Writes the file at path (which exists; it is emptied first); collective. Throws KxException
// naming the file.
void write(MPI_Comm comm, const QString& path, const Part& part);

} // namespace VxMpiPly
