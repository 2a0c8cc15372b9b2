#pragma once
#include <vx/VxPortDoIt.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortRangeTplSlider.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxTriBase.h>

#include <kx/KxDArray.h>

// The isosurface of a scalar field on a tetrahedral grid. Each tetrahedron is cut on its own by the
// nodes at or above "Threshold"; vertices on a grid edge are made once and shared by every
// tetrahedron around it, so the surface is connected and has no duplicate vertices. "Action" is
// snapped: every change recomputes.
class VxIsoTetra : public VxTriBase
{
    KX_PACKAGE_HEADER(VxIsoTetra)

public:
    VxIsoTetra();
    ~VxIsoTetra() override;

    VxPortRangeTplSlider<VxPortFloatSlider> portThreshold;
    VxConnection portPointProbe;
    VxPortDoIt portAction;

    void update() override;
    void compute() override;
    void savePorts(FILE* fp) override;
    bool autoConnect(VxObject* data) override;

    // Makes the node values from values given per tetrahedron (each node the mean of what the
    // tetrahedra around it say); empties them for values given per node.
    void checkEncoding();
    // Replaces the surface by the one at threshold.
    void computeIsosurface(float threshold);

    // The node values made by checkEncoding (empty when the field's own are used).
    const KxDArray<float>& getNodeValues() const { return m_nodeValues; }

private:
    KxHandle<VxTetraScalarField3> m_field;
    bool m_firstData = true;
    KxDArray<float> m_nodeValues;
};

void kxInitClass_VxIsoTetra();
void kxExitClass_VxIsoTetra();
