#pragma once
#include <Inventor/fields/SoSFEnum.h>
#include <Inventor/fields/SoSFName.h>
#include <Inventor/nodes/SoSubNode.h>

#include <vector>

namespace meshkit {

// How the annotations of the kit's nodes after it draw their text:
// - renderStyle POLYGONS (default): text lying along its path in the mesh's plane, sized in the
//   scene's units, so that it zooms with the scene;
// - renderStyle RASTER: text drawn as pixels, upright and of one size on the screen whatever the
//   zoom ("texture text"), its size in points.
// fontName: the font family (fontconfig finds the nearest installed one).
class SoAnnoText3Property : public SoNode
{
    typedef SoNode inherited;
    SO_NODE_HEADER(SoAnnoText3Property);

public:
    enum RenderStyle
    {
        POLYGONS = 0,
        RASTER = 1
    };
    SoSFEnum renderStyle;
    SoSFName fontName;

    static void initClass();
    SoAnnoText3Property();

    void doAction(SoAction* action) override;
    void GLRender(SoGLRenderAction* action) override;
    void callback(SoCallbackAction* action) override;
    void getBoundingBox(SoGetBoundingBoxAction* action) override;
    void pick(SoPickAction* action) override;

protected:
    ~SoAnnoText3Property() override;
};

// The iso values of a contouring, in the order their lines are made.
class PbIsovaluesList
{
public:
    PbIsovaluesList() = default;
    explicit PbIsovaluesList(std::vector<float> values) : m_values(std::move(values)) {}
    void setValues(std::vector<float> values) { m_values = std::move(values); }
    const std::vector<float>& getValues() const { return m_values; }
    int getNum() const { return int(m_values.size()); }

private:
    std::vector<float> m_values;
};

} // namespace meshkit
