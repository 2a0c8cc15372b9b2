#include <vx/VxCellValues.h>
#include <vx/VxTetraScalarField3.h>

KX_ABSTRACT_SOURCE(VxTetraScalarField3, VxScalarField3)

VxTetraScalarField3::VxTetraScalarField3(VxTetraGrid* grid, std::vector<float> values, int encoding)
    : m_grid(grid), m_values(std::move(values)), m_encoding(encoding)
{
    const char* kind = "tetrahedral field";
    if (!grid) throw KxException(QString("%1: there is no grid").arg(kind));
    const std::size_t nodes = std::size_t(grid->getNumNodes()), tetras = std::size_t(grid->getNumTetras());
    switch (encoding) {
    case PER_NODE:
        vxcells::checkValueCount(kind, m_values.size(), nodes, "nodes");
        break;
    case PER_TETRA_CORNER:
        vxcells::checkValueCount(kind, m_values.size(), 4 * tetras, "tetrahedron corners");
        break;
    case PER_TETRA:
        vxcells::checkValueCount(kind, m_values.size(), tetras, "tetrahedra");
        break;
    default:
        throw KxException(
            QString("%1: unknown encoding %2 (0 per node, 1 per tetrahedron corner, 2 per tetrahedron)")
                .arg(kind)
                .arg(encoding));
    }
}

bool VxTetraScalarField3::getRange(double& min, double& max) const
{
    return vxcells::rangeOf(m_values, min, max);
}
