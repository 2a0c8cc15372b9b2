#pragma once
#include <io/VxUnstructuredMesh.h>

#include <QString>

#include <memory>

// Reads a VTK XML unstructured grid (.vtu) of one piece, as VTK, ParaView and meshio write it:
// arrays as text, inline base64, or appended (raw or base64), each plain or in zlib blocks
// (vtkZLibDataCompressor), with 32- or 64-bit headers in either byte order. A small scanner of
// tags and attributes stands in for an XML library: the format uses few of XML's features, and
// appended raw data is not XML at all.
class VxVtuReader
{
public:
    // Fails with a VxReadFailure naming the file.
    static std::unique_ptr<VxUnstructuredMesh> read(const QString& path, const QString& field);
};
