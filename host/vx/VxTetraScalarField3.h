#pragma once
#include <vx/VxSpatialData.h>
#include <vx/VxTetraGrid.h>

#include <kx/KxHandle.h>

// Float values on a tetrahedral grid, given per node or per tetrahedron. A field may hold no
// values at all (a grid read without data); its surfaces are then empty.
class VxTetraScalarField3 : public VxScalarField3
{
    KX_HEADER(VxTetraScalarField3)

public:
    enum Encoding
    {
        PER_NODE = 0,         // one value a node
        PER_TETRA_CORNER = 1, // four values a tetrahedron, in the order of its nodes
        PER_TETRA = 2         // one value a tetrahedron
    };

    // Shares the grid. Throws KxException when there is no grid, the encoding is unknown, or values
    // is neither empty nor of the count the encoding asks for; the grid is then left as it was.
    VxTetraScalarField3(VxTetraGrid* grid, std::vector<float> values, int encoding = PER_NODE);

    VxTetraGrid* getGrid() const { return m_grid.get(); }
    int getEncoding() const { return m_encoding; }
    bool hasValues() const { return !m_values.empty(); }
    std::size_t getNumValues() const { return m_values.size(); }
    const float* getValues() const { return m_values.data(); }

    KxBox3f getBoundingBox() const override { return m_grid->getBoundingBox(); }
    // Smallest and largest value, NaN left out; false (and 0, 0) when there is none.
    bool getRange(double& min, double& max) const;
    // Linear interpolation in the tetrahedra (VxTetraLocation3).
    std::unique_ptr<VxLocation3> createLocation() const override;

private:
    KxHandle<VxTetraGrid> m_grid;
    std::vector<float> m_values;
    int m_encoding;
};
