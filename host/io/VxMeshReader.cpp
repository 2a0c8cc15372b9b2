#include <io/VxMeshReader.h>

#include <io/VxUnstructuredMesh.h>
#include <io/VxVolumeReader.h>
#include <io/VxVtkLegacyParser.h>
#include <kx/KxException.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxTetraScalarField3.h>

namespace {

QString describeField(const VxUnstructuredMesh& mesh)
{
    QString text = QString("the field is \"%1\" (%2, one value per %3)")
                       .arg(QString::fromStdString(mesh.fieldName), QString::fromStdString(mesh.valueType),
                            mesh.association == VxUnstructuredMesh::Association::Node ? "node" : "cell");
    if (!mesh.otherFields.empty()) {
        QStringList others;
        for (const std::string& name : mesh.otherFields) others << QString::fromStdString(name);
        text += QString("; --scalars NAME chooses another: %1").arg(others.join(", "));
    }
    return text;
}

// The grid, then the field on it; the field shares the grid, which dies with it.
VxSpatialData* makeField(VxUnstructuredMesh& mesh)
{
    const bool perNode = mesh.association == VxUnstructuredMesh::Association::Node;
    if (mesh.cellType == VxUnstructuredMesh::CellType::Tetrahedron) {
        KxHandle<VxTetraGrid> grid(new VxTetraGrid(std::move(mesh.points), mesh.cells));
        return new VxTetraScalarField3(grid.get(), std::move(mesh.values),
                                       perNode ? VxTetraScalarField3::PER_NODE
                                               : VxTetraScalarField3::PER_TETRA);
    }
    KxHandle<VxHexaGrid> grid(new VxHexaGrid(std::move(mesh.points), mesh.cells));
    return new VxHexaScalarField3(grid.get(), std::move(mesh.values),
                                  perNode ? VxHexaScalarField3::PER_NODE : VxHexaScalarField3::PER_HEXA);
}

} // namespace

bool VxMeshReader::isMeshPath(const QString& path)
{
    const QString lower = path.toLower();
    if (lower.endsWith(".vtu") || lower.endsWith(".msh")) return true;
    return lower.endsWith(".vtk") && VxVtkLegacyParser::datasetOf(path) == "unstructured_grid";
}

VxSpatialData* VxMeshReader::read(const QString& path, const QString& scalars, QString* error,
                                  VxVolumeInfo* info)
{
    std::unique_ptr<VxUnstructuredMesh> mesh = readUnstructuredMesh(path, scalars, error);
    if (!mesh) return nullptr;
    if (info) {
        info->format = QString::fromStdString(mesh->format) + " unstructured grid";
        info->notes << describeField(*mesh);
        if (mesh->skippedCells)
            info->notes << QString("%1 cells of lower dimension (boundary faces, lines, points) left out")
                               .arg(mesh->skippedCells);
    }
    try {
        return makeField(*mesh);
    } catch (const KxException& e) {
        if (error) *error = QString("%1: %2").arg(path, e.text());
        return nullptr;
    }
}
