#include <vx/VxCellValues.h>
#include <vx/VxTetraLocation3.h>
#include <vx/VxTetraScalarField3.h>

KX_ABSTRACT_SOURCE(VxTetraScalarField3, VxScalarField3)

// Checked before the grid is taken: a constructor that throws would otherwise release the
// caller's grid with the reference it had taken.
static void check(const VxTetraGrid* grid, std::size_t values, int encoding)
{
    const char* kind = "tetrahedral field";
    if (!grid) throw KxException(QString("%1: there is no grid").arg(kind));
    const std::size_t nodes = std::size_t(grid->getNumNodes()), cells = std::size_t(grid->getNumTetras());
    switch (encoding) {
    case VxTetraScalarField3::PER_NODE:
        vxcells::checkValueCount(kind, values, nodes, "nodes");
        break;
    case VxTetraScalarField3::PER_TETRA_CORNER:
        vxcells::checkValueCount(kind, values, 4 * cells, "tetrahedron corners");
        break;
    case VxTetraScalarField3::PER_TETRA:
        vxcells::checkValueCount(kind, values, cells, "tetrahedra");
        break;
    default:
        throw KxException(
            QString("%1: unknown encoding %2 (0 per node, 1 per tetrahedron corner, 2 per tetrahedron)")
                .arg(kind)
                .arg(encoding));
    }
}

VxTetraScalarField3::VxTetraScalarField3(VxTetraGrid* grid, std::vector<float> values, int encoding)
    : m_grid((check(grid, values.size(), encoding), grid)), m_values(std::move(values)), m_encoding(encoding)
{
}

bool VxTetraScalarField3::getRange(double& min, double& max) const
{
    return vxcells::rangeOf(m_values, min, max);
}

std::unique_ptr<VxLocation3> VxTetraScalarField3::createLocation() const
{
    return std::make_unique<VxTetraLocation3>(*this);
}
