#include <io/VxUnstructuredMesh.h>

#include <io/VxGmshReader.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxVtkGridReader.h>
#include <io/VxVtuReader.h>

#include <cstring>

namespace {

enum class Kind
{
    Unknown,
    Legacy,
    Xml,
    Gmsh
};

// The first bytes say what a file is; a blank or unknown start leaves it to the extension.
Kind kindOf(const QString& path)
{
    VxInputFile file(path, "a mesh file");
    char head[64] = {};
    const uint64_t n = file.read(head, sizeof head - 1);
    const char* p = head;
    while (p < head + n && (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')) ++p;
    if (std::strncmp(p, "# vtk DataFile", 14) == 0) return Kind::Legacy;
    if (std::strncmp(p, "<?xml", 5) == 0 || std::strncmp(p, "<VTKFile", 8) == 0) return Kind::Xml;
    if (std::strncmp(p, "$MeshFormat", 11) == 0) return Kind::Gmsh;
    const QString lower = path.toLower();
    if (lower.endsWith(".vtk")) return Kind::Legacy;
    if (lower.endsWith(".vtu")) return Kind::Xml;
    if (lower.endsWith(".msh")) return Kind::Gmsh;
    return Kind::Unknown;
}

} // namespace

std::unique_ptr<VxUnstructuredMesh> readUnstructuredMesh(const QString& path, const QString& scalarsName,
                                                         QString* error)
{
    return VxReadSupport::reportFailure(error, [&]() -> std::unique_ptr<VxUnstructuredMesh> {
        switch (kindOf(path)) {
        case Kind::Legacy:
            return VxVtkGridReader::read(path, scalarsName);
        case Kind::Xml:
            return VxVtuReader::read(path, scalarsName);
        case Kind::Gmsh:
            return VxGmshReader::read(path, scalarsName);
        default:
            throw VxReadFailure{path, "unknown mesh format; supported are VTK legacy .vtk, VTK XML .vtu and "
                                      "Gmsh .msh"};
        }
    });
}
