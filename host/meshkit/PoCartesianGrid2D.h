#pragma once
#include <meshkit/PoMesh.h>

#include <Inventor/fields/SoMFFloat.h>
#include <Inventor/fields/SoMFInt32.h>
#include <Inventor/fields/SoMFVec3f.h>
#include <Inventor/fields/SoSFVec3f.h>
#include <Inventor/fields/SoSField.h>
#include <Inventor/fields/SoSubField.h>

#include <vector>

namespace meshkit {

// A regular grid of values in a plane: numU x numV nodes, node (row r, column c) at origin +
// c uStep + r vStep with value values[r numU + c].
struct PoCartesianGridGeometry
{
    SbVec3f origin{0, 0, 0}, uStep{1, 0, 0}, vStep{0, 1, 0};
    int32_t numU = 0, numV = 0;
    std::vector<float> values;

    bool operator==(const PoCartesianGridGeometry& o) const
    {
        return origin == o.origin && uStep == o.uStep && vStep == o.vStep && numU == o.numU &&
               numV == o.numV && values == o.values;
    }
};

// The grid as one field value, so that a grid changes in one step and reads and writes in files:
//   grid ox oy oz  ux uy uz  vx vy vz  numU numV  v0 v1 ... (numU numV values, row after row)
class PoSFCartesianGrid2D : public SoSField
{
    typedef SoSField inherited;
    SO_SFIELD_HEADER(PoSFCartesianGrid2D, PoCartesianGridGeometry, const PoCartesianGridGeometry&);

public:
    static void initClass();
    // Values are numU x numV floats, row after row; fewer values (or none) give no grid.
    void setGeometry(const SbVec3f& origin, const SbVec3f& uStep, const SbVec3f& vStep, int numU, int numV,
                     const float* values);
};

// A mesh that is a Cartesian grid: cell (r, c) joins nodes (r, c), (r + 1, c), (r + 1, c + 1) and
// (r, c + 1).
class PoCartesianGrid2D : public PoMesh
{
    typedef PoMesh inherited;
    SO_NODE_HEADER(PoCartesianGrid2D);

public:
    PoSFCartesianGrid2D grid;

    static void initClass();
    PoCartesianGrid2D();

    int getNumNodes() const override;
    SbVec3f getNode(int i) const override;
    float getValue(int i) const override;
    int getNumCells() const override;
    void getCell(int c, int32_t nodes[4]) const override;
    SbVec3f getUAxis() const override;
    SbVec3f getVAxis() const override;

protected:
    ~PoCartesianGrid2D() override;
};

// A mesh of quadrangles given by their nodes: four indices into points a quadrangle (in cyclic
// order), one value a point; uAxis and vAxis are the plane's directions for labels along them.
class PoQuadrangleMesh : public PoMesh
{
    typedef PoMesh inherited;
    SO_NODE_HEADER(PoQuadrangleMesh);

public:
    SoMFVec3f points;
    SoMFInt32 quadrangles;
    SoMFFloat values;
    SoSFVec3f uAxis;
    SoSFVec3f vAxis;

    static void initClass();
    PoQuadrangleMesh();

    int getNumNodes() const override;
    SbVec3f getNode(int i) const override;
    float getValue(int i) const override;
    int getNumCells() const override;
    void getCell(int c, int32_t nodes[4]) const override;
    SbVec3f getUAxis() const override;
    SbVec3f getVAxis() const override;

protected:
    ~PoQuadrangleMesh() override;
};

} // namespace meshkit
