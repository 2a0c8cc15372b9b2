#pragma once
#include <meshkit/PbNumericDisplayFormat.h>
#include <meshkit/SoAnnoText3Property.h>

#include <Inventor/SbColor.h>
#include <Inventor/fields/SoMFFloat.h>
#include <Inventor/fields/SoSFBool.h>
#include <Inventor/fields/SoSFColor.h>
#include <Inventor/fields/SoSFEnum.h>
#include <Inventor/fields/SoSFFloat.h>
#include <Inventor/fields/SoSFShort.h>
#include <Inventor/fields/SoSFUShort.h>
#include <Inventor/nodes/SoSubNode.h>

#include <string>
#include <vector>

class SoSeparator;
class SoState;

namespace meshkit {

class PoMesh;
class PoNonLinearDataMapping;

// Contour lines of the current mesh for every iso value, with number annotations along them.
//
// Lines: marching squares on the mesh's quadrangles (quadrangles with a node without value are left
// out, so lines end at them). A node is below a value when its value is less; a quadrangle whose
// diagonal corners differ pairwise joins through its centre the pair on the side of the mean of its
// four values. Cut edges are shared between quadrangles, and the segments chain into polylines:
// open ones first, then closed ones, which repeat their first point; all lines of the first iso value
// come first, then those of the second, and so on.
//
// Fields:
// - isoValues: the values, in the order their lines are made.
// - coloring: MATERIAL draws the lines in the current material's colour; DATA_MAPPING in the colour
//   of their value under the current data mapping; DARKENED_MAPPING in that colour at half its
//   brightness; CONTRAST (3) in black or white, whichever stands out from that colour (lines that
//   stay readable on a mesh filled by the same mapping). Without a mapping all but MATERIAL draw
//   black.
// - lineWidth: in pixels; 0 keeps the current draw style's.
// - annotIsVisible: whether the lines carry labels.
// - annotPath: TANGENTIAL labels run along their line (turned to read left to right); HORIZONTAL and
//   VERTICAL ones along the mesh's u and v axes, so that they stand upright when the mesh is seen with
//   v up (vertical ones read upwards).
// - annotFontSize, annotFontFactor, annotReferenceSize: a label's height in scene units is their
//   product (the reference size is the scene size of one font size unit: a lattice's voxel size,
//   say). With raster text (SoAnnoText3Property) the text is 2.4 x size x factor points high.
// - annotGap: the free space around a label, in label heights: the contour clip opens the lines over
//   a circle of half the label's width plus gap / 4 heights around its centre, and labels of a line
//   are 10 x (width + gap x height) apart along it (at least).
// - annotMajorPeriod, annotFirstPeriod: the lines of the iso values at positions first, first +
//   major, first + 2 major, ... (1-based, in the order of isoValues) carry labels.
// - annotContourClip: lines are opened under the labels, so that no line passes under one.
// - annotColor: the labels' colour.
// - formatType, formatDecimals, formatTenPower: the numbers' format (PbNumericDisplayFormat).
class PoMeshContouring : public SoNode
{
    typedef SoNode inherited;
    SO_NODE_HEADER(PoMeshContouring);

public:
    enum Coloring
    {
        MATERIAL = 0,
        DATA_MAPPING = 1,
        DARKENED_MAPPING = 2,
        CONTRAST = 3
    };
    enum Path
    {
        TANGENTIAL = 0,
        HORIZONTAL = 1,
        VERTICAL = 2
    };

    SoMFFloat isoValues;
    SoSFEnum coloring;
    SoSFFloat lineWidth;
    SoSFBool annotIsVisible;
    SoSFEnum annotPath;
    SoSFFloat annotFontSize;
    SoSFFloat annotFontFactor;
    SoSFFloat annotReferenceSize;
    SoSFFloat annotGap;
    SoSFUShort annotMajorPeriod;
    SoSFUShort annotFirstPeriod;
    SoSFBool annotContourClip;
    SoSFColor annotColor;
    SoSFEnum formatType;
    SoSFShort formatDecimals;
    SoSFShort formatTenPower;

    static void initClass();
    PoMeshContouring();

    void setIsovaluesList(const PbIsovaluesList& list);
    void setNumericDisplayFormat(const PbNumericDisplayFormat& format);
    PbNumericDisplayFormat getNumericDisplayFormat() const;

    // Called before and after the lines and labels are made again (the mesh, the mapping or a field
    // changed).
    using RebuildCallback = void (*)(void* data, PoMeshContouring* node);
    void setPreRebuildCallback(RebuildCallback callback, void* data);
    void setPostRebuildCallback(RebuildCallback callback, void* data);

    // What the last traversal drew: each polyline's points, iso value and colour (packed RGBA), and
    // each label's centre, baseline direction (zero for raster text, which stands upright), text,
    // height in scene units and colour.
    struct Polyline
    {
        std::vector<SbVec3f> points;
        float value;
        uint32_t color;
    };
    struct Label
    {
        SbVec3f centre, baseline;
        std::string text;
        float height;
        uint32_t color;
    };
    const std::vector<Polyline>& getLines() const { return m_lines; }
    const std::vector<Label>& getLabels() const { return m_labels; }

    // The lines of the mesh for the iso values, before any clip (for callers that contour a mesh
    // without drawing it).
    static std::vector<Polyline> contour(const PoMesh& mesh, const std::vector<float>& values);

    void GLRender(SoGLRenderAction* action) override;
    void callback(SoCallbackAction* action) override;
    void getBoundingBox(SoGetBoundingBoxAction* action) override;
    void pick(SoPickAction* action) override;

protected:
    ~PoMeshContouring() override;

private:
    SoSeparator* scene(SoState* state);
    void rebuild(const PoMesh* mesh, const PoNonLinearDataMapping* mapping, const SoAnnoText3Property* text);
    void placeLabels(const PoMesh& mesh, const SoAnnoText3Property* text);
    SoSeparator* makeScene(const SoAnnoText3Property* text) const;

    SoSeparator* m_scene = nullptr;
    uint64_t m_madeFor[4] = {0, 0, 0, 0};
    std::vector<Polyline> m_lines;
    std::vector<Label> m_labels;
    SbVec3f m_normal{0, 0, 1}; // of the mesh the labels were placed on
    RebuildCallback m_pre = nullptr, m_post = nullptr;
    void *m_preData = nullptr, *m_postData = nullptr;
};

} // namespace meshkit
