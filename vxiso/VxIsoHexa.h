#pragma once
#include <vx/VxHexaScalarField3.h>
#include <vx/VxPortDoIt.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortToggleList.h>
#include <vx/VxTriBase.h>

#include <kx/KxDArray.h>

// The isosurface of a scalar field on a hexahedral grid. Values per node (or per hexahedron,
// averaged to the nodes while "Average" is on) are cut by marching cubes in each hexahedron, every
// cell with vertices of its own. Values per hexahedron without averaging give a blocky surface:
// the grid faces between cells on the two sides of "Threshold".
class VxIsoHexa : public VxTriBase
{
    KX_PACKAGE_HEADER(VxIsoHexa)

public:
    VxIsoHexa();
    ~VxIsoHexa() override;

    VxPortFloatSlider portThreshold;
    VxPortToggleList portAverage;
    VxPortDoIt portDoIt;

    void update() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList commands() const override;
    void savePorts(FILE* fp) override;

    // Node values as the mean of the values of the hexahedra around each node (0 where none is).
    void average(VxHexaScalarField3* field);
    // Replaces the surface, from the values chosen by compute().
    void computeSurface();
    // The marching-cubes case of a hexahedron: bit i set when node i is above the threshold.
    int computeIndex(const int* cellNodes) const;
    // The vertex on a hexahedron's edge (1 to 12).
    KxVec3f computeIntersection(const int* cellNodes, int edge) const;

    // End nodes of edges 1 to 12 (row 0 unused).
    static constexpr signed char edge_ends_uh[13][2] = {{0, 0}, {0, 1}, {1, 2}, {3, 2}, {0, 3},
                                                        {4, 5}, {5, 6}, {7, 6}, {4, 7}, {0, 4},
                                                        {1, 5}, {3, 7}, {2, 6}};

    bool isComputed() const { return computed; }

private:
    void computeSurfaceMC(KxDArray<float>& xyz, KxDArray<int32_t>& triangles);
    void computeSurfacePerCell(KxDArray<float>& xyz, KxDArray<int32_t>& triangles);

    float m_threshold = 0;
    // One value a node, or (blocky surface) one a hexahedron; null without values.
    const float* m_values = nullptr;
    bool m_perCell = false;
    const VxHexaGrid* m_grid = nullptr;
    KxDArray<float> m_averaged;
    int m_case = 0;
    bool computed = false;
};

void kxInitClass_VxIsoHexa();
void kxExitClass_VxIsoHexa();
