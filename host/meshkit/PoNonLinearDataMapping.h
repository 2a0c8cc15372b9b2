#pragma once
#include <Inventor/SbColor.h>
#include <Inventor/fields/SoMFColor.h>
#include <Inventor/fields/SoMFFloat.h>
#include <Inventor/fields/SoSFBool.h>
#include <Inventor/fields/SoSFFloat.h>
#include <Inventor/nodes/SoSubNode.h>

#include <Inventor/nodes/SoSeparator.h>

namespace meshkit {

// Values to colours and transparencies, any function of the value: a table of colours and
// transparencies sampled at increasing values (linear in between; below the first and above the last
// sample their colour). The table is the mapping, so a scene written to a file maps as it did;
// setFunctions samples two callbacks into it over [minValue, maxValue].
//
// The mapping becomes the current one for the nodes after it (contour lines coloured by value). With
// `on` it also draws the current mesh filled, smoothly coloured node by node; quadrangles with a node
// without value are left out. Off by default: a mapping alone draws nothing.
class PoNonLinearDataMapping : public SoNode
{
    typedef SoNode inherited;
    SO_NODE_HEADER(PoNonLinearDataMapping);

public:
    SoSFBool on;
    SoMFFloat sampleValues;
    SoMFColor sampleColors;
    SoMFFloat sampleTransparencies; // 0 opaque .. 1 clear; out-of-range values are clamped
    SoSFFloat minValue;
    SoSFFloat maxValue;

    using ColorFunction = SbColor (*)(void* data, float value);
    using TransparencyFunction = float (*)(void* data, float value);

    static void initClass();
    PoNonLinearDataMapping();

    // Samples the functions at `samples` values spread over [minValue, maxValue] into the table; a
    // null transparency function gives opaque colours. Calls again when the functions' results
    // change (a new colour map, say).
    void setFunctions(ColorFunction color, TransparencyFunction transparency, void* data, int samples = 256);

    SbColor getColor(float value) const;
    float getTransparency(float value) const;

    void doAction(SoAction* action) override;
    void GLRender(SoGLRenderAction* action) override;
    void callback(SoCallbackAction* action) override;
    void getBoundingBox(SoGetBoundingBoxAction* action) override;
    void pick(SoPickAction* action) override;

protected:
    ~PoNonLinearDataMapping() override;

private:
    // The filled mesh, made again when the mesh or the mapping changed.
    SoSeparator* filled(SoState* state);

    SoSeparator* m_filled = nullptr;
    uint64_t m_madeFor[2] = {0, 0}; // node ids of the mesh and of this node it was made for
};

} // namespace meshkit
