#include <vx/VxCellValues.h>
#include <vx/VxHexaLocation3.h>
#include <vx/VxHexaScalarField3.h>

KX_ABSTRACT_SOURCE(VxHexaScalarField3, VxScalarField3)

// Checked before the grid is taken: a constructor that throws would otherwise release the
// caller's grid with the reference it had taken.
static void check(const VxHexaGrid* grid, std::size_t values, int encoding)
{
    const char* kind = "hexahedral field";
    if (!grid) throw KxException(QString("%1: there is no grid").arg(kind));
    const std::size_t nodes = std::size_t(grid->getNumNodes()), cells = std::size_t(grid->getNumHexas());
    switch (encoding) {
    case VxHexaScalarField3::PER_NODE:
        vxcells::checkValueCount(kind, values, nodes, "nodes");
        break;
    case VxHexaScalarField3::PER_HEXA_CORNER:
        vxcells::checkValueCount(kind, values, 8 * cells, "hexahedron corners");
        break;
    case VxHexaScalarField3::PER_HEXA:
        vxcells::checkValueCount(kind, values, cells, "hexahedra");
        break;
    default:
        throw KxException(
            QString("%1: unknown encoding %2 (0 per node, 1 per hexahedron corner, 2 per hexahedron)")
                .arg(kind)
                .arg(encoding));
    }
}

VxHexaScalarField3::VxHexaScalarField3(VxHexaGrid* grid, std::vector<float> values, int encoding)
    : VxHexaData((check(grid, values.size(), encoding), grid)), m_values(std::move(values)),
      m_encoding(encoding)
{
}

bool VxHexaScalarField3::getRange(double& min, double& max) const
{
    return vxcells::rangeOf(m_values, min, max);
}

std::unique_ptr<VxLocation3> VxHexaScalarField3::createLocation() const
{
    return std::make_unique<VxHexaLocation3>(*this);
}
