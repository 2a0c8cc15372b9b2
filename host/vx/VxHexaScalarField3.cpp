#include <vx/VxCellValues.h>
#include <vx/VxHexaScalarField3.h>

KX_ABSTRACT_SOURCE(VxHexaScalarField3, VxScalarField3)

VxHexaScalarField3::VxHexaScalarField3(VxHexaGrid* grid, std::vector<float> values, int encoding)
    : VxHexaData(grid), m_values(std::move(values)), m_encoding(encoding)
{
    const char* kind = "hexahedral field";
    if (!grid) throw KxException(QString("%1: there is no grid").arg(kind));
    const std::size_t nodes = std::size_t(grid->getNumNodes()), hexas = std::size_t(grid->getNumHexas());
    switch (encoding) {
    case PER_NODE:
        vxcells::checkValueCount(kind, m_values.size(), nodes, "nodes");
        break;
    case PER_HEXA_CORNER:
        vxcells::checkValueCount(kind, m_values.size(), 8 * hexas, "hexahedron corners");
        break;
    case PER_HEXA:
        vxcells::checkValueCount(kind, m_values.size(), hexas, "hexahedra");
        break;
    default:
        throw KxException(
            QString("%1: unknown encoding %2 (0 per node, 1 per hexahedron corner, 2 per hexahedron)")
                .arg(kind)
                .arg(encoding));
    }
}

bool VxHexaScalarField3::getRange(double& min, double& max) const
{
    return vxcells::rangeOf(m_values, min, max);
}
