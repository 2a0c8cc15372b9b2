#pragma once
#include <vxiso/isolines/VxIsolineContouring.h>
#include <vxiso/isolines/VxIsolineLabelGeometry.h>

#include <vx/VxOverlayModule.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDeprecatedSubstitute.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortFontSelection.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortOnOff.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>

#include <kx/KxDArray.h>
#include <kx/KxHandle.h>

#include <Inventor/SbVec3f.h>

#include <memory>
#include <vector>

class SoFont;
class SoLineSet;
class SoText3;
class SoTransform;
class SoPolygonOffset;
class SoSeparator;
class SoShapeKit;
class SoVertexProperty;
class VxDisplay;
class VxLineSet;
class VxScalarField3;

// Contour lines of a scalar field on a slice (an ortho or oblique slice or an arbitrary cut), drawn
// with the slice. The iso values are spaced evenly between a minimum and a maximum ("uniform") or
// listed ("explicit"). Fields that can be evaluated at points are sampled on a square grid of
// "resolution" points across the slice; a field on a tetrahedral grid is cut tetrahedron by
// tetrahedron instead, unless "resample" asks for the sampling. The lines' points are offered to
// other modules through the coordinate-access interface, and a script exports them as a line set.
class VxIsolines : public VxOverlayModule
{
    KX_PACKAGE_HEADER(VxIsolines)

public:
    VxIsolines();
    explicit VxIsolines(VxOverlayModule::GraphicalRepMgtType mode);
    ~VxIsolines() override;

    VxPortRadioBox portSpacing;
    VxPortFloatTextN portUniform;
    VxPortText portExplicit;
    VxPortRadioBox portQuality;
    VxPortFloatTextN portParameters;
    VxPortDeprecatedSubstitute<VxPortToggleList, VxPortToggleList, 920, 1100> portOptions;
    VxPortColormap portColormap;
    VxPortGeneric portTextAlignment;
    VxPortFontSelection portFont;
    VxPortFloatSlider portTextScale;
    VxPortFloatSlider portTextSpacing;
    VxPortIntTextN portAnnotateEvery;
    VxPortOnOff portAnnotate;

    // The three-toggle "options" of old scripts: update min-max, resample, annotate.
    VxPortToggleList& getDeprecatedOptions() { return portOptions.getDeprecatedPort(); }

    void update() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;

    // A new line set holding the lines (the iso value as the data value of each point and line);
    // null when there is no line set to read.
    VxLineSet* exportAsLineSet();
    void determineIsoValues();
    // Values and explicit list from the field's range.
    void resetRange(VxScalarField3* field);
    void updateResolution();
    void updatePortQuality();
    bool isAnnotated() const { return portAnnotate.getValue(); }
    bool isContourClip() const { return portTextAlignment.getValue(1) != 0; }
    // The map from the slice's frame into the field's when they differ; false and the identity
    // otherwise.
    bool getTransform(SbMatrix& m) const;
    // One placed label: its anchor, its circle's radius and its line's value as an integer.
    using TextVertex = VxIsolineTextVertex;
    // The labels along the lines (the text separator, emptied before), and with contour clip the
    // lines opened under them.
    void createTextSceneGraph();
    // A new text node showing the value ("%.0f", centred): plain text lying in its plane when
    // tangential, else text that faces the viewer; size is that of the text under font and scale.
    static SoText3* getSoText3(SoFont* font, SoTransform* scale, float value, SbVec3f& size, bool tangential);
    // Where the segment a-b leaves or enters the sphere of radius around centre, between a and b:
    // the first such point. False when there is none.
    static bool findInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                                   SbVec3f& out);
    // Whether p lies on the segment a-b, to 1e-5.
    static bool isPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b);

    // The points of the drawn lines, for the coordinate-access interface.
    bool getCoordinates(std::vector<SbVec3f*>& points, std::vector<int>& counts) const;

    const KxDArray<float>& getIsoValues() const { return m_isoValues; }
    // The iso value of each drawn line.
    const KxDArray<float>& getLineValues() const { return m_lineValues; }
    SoShapeKit* getShapeKit() const { return m_shapeKit.get(); }
    SoSeparator* getTextSeparator() const { return m_textSeparator.get(); }
    SoSeparator* getRoot() const { return m_root.get(); }

private:
    void commonInit();
    // Cuts the lines open under the labels, keeping each piece's colour and value.
    void clipUnderLabels(const std::vector<TextVertex>& labels);
    void computeIsolines();
    SoLineSet* getLineSet() const;

    enum Options
    {
        UPDATE_MIN_MAX = 0,
        RESAMPLE = 1
    };

    KxDArray<float> m_isoValues;
    KxDArray<float> m_lineValues;
    bool m_rangeIsStale = true;
    std::unique_ptr<VxDisplay> m_display;
    KxHandle<SoSeparator> m_root;
    KxHandle<SoPolygonOffset> m_polygonOffset;
    KxHandle<SoShapeKit> m_shapeKit;
    KxHandle<SoSeparator> m_textSeparator;
};

void kxInitClass_VxIsolines();
void kxExitClass_VxIsolines();

namespace vxDeprecation {
void initDeprecatedPorts(VxIsolines* module);
void updateDeprecatedPorts(VxIsolines* module);
} // namespace vxDeprecation
