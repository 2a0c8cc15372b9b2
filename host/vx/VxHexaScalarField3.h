#pragma once
#include <vx/VxHexaData.h>
#include <vx/VxSpatialData.h>

// Float values on a hexahedral grid, given per node or per hexahedron. A field may hold no values
// at all (a grid read without data); its surfaces are then empty.
class VxHexaScalarField3 : public VxScalarField3, public VxHexaData
{
    KX_HEADER(VxHexaScalarField3)

public:
    // The same numbers as the tetrahedral field's encodings.
    enum Encoding
    {
        PER_NODE = 0,        // one value a node
        PER_HEXA_CORNER = 1, // eight values a hexahedron, in the order of its nodes
        PER_HEXA = 2         // one value a hexahedron
    };

    // Shares the grid. Throws KxException when there is no grid, the encoding is unknown, or values
    // is neither empty nor of the count the encoding asks for; the grid is then left as it was.
    VxHexaScalarField3(VxHexaGrid* grid, std::vector<float> values, int encoding = PER_NODE);

    int getEncoding() const { return m_encoding; }
    bool hasValues() const { return !m_values.empty(); }
    std::size_t getNumValues() const { return m_values.size(); }
    const float* getValues() const { return m_values.data(); }

    KxBox3f getBoundingBox() const override { return grid()->getBoundingBox(); }
    // Smallest and largest value, NaN left out; false (and 0, 0) when there is none.
    bool getRange(double& min, double& max) const;
    // Trilinear in each hexahedron (see VxHexaLocation3).
    std::unique_ptr<VxLocation3> createLocation() const override;

private:
    std::vector<float> m_values;
    int m_encoding;
};
