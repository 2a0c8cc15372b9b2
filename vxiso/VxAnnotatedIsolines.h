#pragma once
#include <vx/VxArbitraryCut.h>
#include <vx/VxPortColorList.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortMultiMenu.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>

#include <kx/KxHandle.h>
#include <meshkit/PoMesh.h>

#include <Inventor/nodes/SoSeparator.h>

#include <Inventor/SbColor.h>
#include <Inventor/SbViewVolume.h>

class SoAction;
class SoDrawStyle;
class SoMatrixTransform;

namespace meshkit {
class PoMeshContouring;
class PoNonLinearDataMapping;
class SoAnnoText3Property;
} // namespace meshkit

// A slice (an arbitrary cut) drawn as a colour-mapped mesh of samples with annotated contour lines:
// the slice is sampled on "resolution" x "resolution" points into a mesh of the kit, which fills it
// through the colour map and draws the contour lines of the iso values with their numbers. The iso
// values are chosen as in VxIsolines.
//
// The mesh: on fields that fill their box (lattices, blocks) a Cartesian grid of all samples, those
// outside the field's box (by more than 0.01) or not evaluable marked "no value"; on tetrahedral and
// hexahedral fields, which seldom fill their box, a quadrangle mesh of only the cells whose samples
// all have values. The lines are drawn black or white, whichever stands out from the colour of their
// value. Labels are "Annotations Font Size" x "Font Factor" x the field's smallest voxel size high
// (the sampling step on fields without voxels); the first picture drawn after a new field resizes
// them to about 14 pixels on the screen.
class VxAnnotatedIsolines : public VxArbitraryCut
{
    KX_PACKAGE_HEADER(VxAnnotatedIsolines)

public:
    VxAnnotatedIsolines();
    ~VxAnnotatedIsolines() override;

    VxPortRadioBox portSpacing;
    VxPortFloatTextN portUniform;
    VxPortText portExplicit;
    VxPortFloatTextN portParameters;
    VxPortToggleList portOptions2;
    VxPortToggleList portAnnotations;
    VxPortMultiMenu portAnnotationsPath;
    VxPortFloatSlider portAnnotationsFontSize;
    VxPortFloatSlider portAnnotationsFontFactor;
    VxPortFloatSlider portAnnotationsGap;
    VxPortIntTextN portAnnotationsPeriod;
    VxPortToggleList portAnnotationsContourClip;
    VxPortGeneric portFormat;
    VxPortColorList portAnnotationsColors;

    void update() override;
    void compute() override;

    void determineIsoValues();
    void resetRange(VxScalarField3* field);
    void doGenerate2DMesh();
    void doGenerateQuadrangleMesh();

    static SbColor colorDataMappingCB(void* module, float value);
    static float transparencyDataMappingCB(void* module, float value);
    static void preRenderCB(void* module, SoAction* action);
    static void postRenderCB(void* module, SoAction* action);
    static void preRebuildCB(void* module, meshkit::PoMeshContouring* contouring);
    static void postRebuildCB(void* module, meshkit::PoMeshContouring* contouring);

    SoSeparator* getRoot() const { return m_root.get(); }
    meshkit::PoMeshContouring* getContouring() const { return m_contouring.get(); }
    meshkit::PoMesh* getMesh() const { return static_cast<meshkit::PoMesh*>(m_root->getChild(4)); }

private:
    // The samples of the slice: origin, steps, count along each side and values (-1e20: none);
    // false without a plane or field.
    bool sample(SbVec3f& origin, SbVec3f& du, SbVec3f& dv, int& n, std::vector<float>& values);
    void setMesh(meshkit::PoMesh* mesh);
    void pushPorts(VxScalarField3* field, const SbVec3f& du);

    std::vector<float> m_isoValues;
    bool m_rangeIsStale = true;
    bool m_fontSizePending = false;
    bool m_pushed = false;
    bool m_haveView = false;
    SbViewVolume m_viewVolume;
    float m_viewportHeight = 0;
    KxHandle<SoSeparator> m_root;
    KxHandle<SoMatrixTransform> m_transform;
    KxHandle<meshkit::SoAnnoText3Property> m_textProperty;
    KxHandle<SoDrawStyle> m_drawStyle;
    KxHandle<meshkit::PoNonLinearDataMapping> m_dataMapping;
    KxHandle<meshkit::PoMeshContouring> m_contouring;
};

void kxInitClass_VxAnnotatedIsolines();
void kxExitClass_VxAnnotatedIsolines();
