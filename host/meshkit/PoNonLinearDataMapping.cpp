#include <meshkit/PoKitElement.h>
#include <meshkit/PoMesh.h>
#include <meshkit/PoNonLinearDataMapping.h>

#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoPickAction.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoLightModel.h>
#include <Inventor/nodes/SoVertexProperty.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace meshkit {

SO_NODE_SOURCE(PoNonLinearDataMapping)

void PoNonLinearDataMapping::initClass()
{
    SO_NODE_INIT_CLASS(PoNonLinearDataMapping, SoNode, "Node");
}

PoNonLinearDataMapping::PoNonLinearDataMapping()
{
    SO_NODE_CONSTRUCTOR(PoNonLinearDataMapping);
    SO_NODE_ADD_FIELD(on, (FALSE));
    SO_NODE_ADD_FIELD(sampleValues, (0.f));
    SO_NODE_ADD_FIELD(sampleColors, (SbColor(1, 1, 1)));
    SO_NODE_ADD_FIELD(sampleTransparencies, (0.f));
    SO_NODE_ADD_FIELD(minValue, (0.f));
    SO_NODE_ADD_FIELD(maxValue, (1.f));
}

PoNonLinearDataMapping::~PoNonLinearDataMapping()
{
    if (m_filled) m_filled->unref();
}

void PoNonLinearDataMapping::setFunctions(ColorFunction color, TransparencyFunction transparency, void* data,
                                          int samples)
{
    samples = std::max(samples, 2);
    const float lo = minValue.getValue(), hi = std::max(maxValue.getValue(), lo);
    std::vector<float> values(std::size_t(samples), 0.f), transparencies(std::size_t(samples), 0.f);
    std::vector<SbColor> colors(std::size_t(samples), SbColor(1, 1, 1));
    for (int i = 0; i < samples; ++i) {
        const float v = lo + (hi - lo) * float(i) / float(samples - 1);
        values[std::size_t(i)] = v;
        if (color) colors[std::size_t(i)] = color(data, v);
        if (transparency) transparencies[std::size_t(i)] = std::clamp(transparency(data, v), 0.f, 1.f);
    }
    sampleValues.setValues(0, samples, values.data());
    sampleValues.setNum(samples);
    sampleColors.setValues(0, samples, colors.data());
    sampleColors.setNum(samples);
    sampleTransparencies.setValues(0, samples, transparencies.data());
    sampleTransparencies.setNum(samples);
}

namespace {

// Where value falls in the table: the sample before it and the weight of the one after.
bool locate(const SoMFFloat& at, float value, int& i, float& w)
{
    const int n = at.getNum();
    if (n == 0 || value != value) return false;
    const float* v = at.getValues(0);
    if (value <= v[0]) return i = 0, w = 0, true;
    if (value >= v[n - 1]) return i = n - 1, w = 0, true;
    i = int(std::upper_bound(v, v + n, value) - v) - 1;
    const float span = v[i + 1] - v[i];
    w = span > 0 ? (value - v[i]) / span : 0.f;
    return true;
}

} // namespace

SbColor PoNonLinearDataMapping::getColor(float value) const
{
    int i = 0;
    float w = 0;
    const int n = std::min(sampleValues.getNum(), sampleColors.getNum());
    if (n == 0 || !locate(sampleValues, value, i, w)) return SbColor(1, 1, 1);
    i = std::min(i, n - 1);
    if (w == 0 || i + 1 >= n) return sampleColors[i];
    return sampleColors[i] * (1 - w) + sampleColors[i + 1] * w;
}

float PoNonLinearDataMapping::getTransparency(float value) const
{
    int i = 0;
    float w = 0;
    const int n = std::min(sampleValues.getNum(), sampleTransparencies.getNum());
    if (n == 0 || !locate(sampleValues, value, i, w)) return 0.f;
    i = std::min(i, n - 1);
    const float t = w == 0 || i + 1 >= n
                        ? sampleTransparencies[i]
                        : sampleTransparencies[i] * (1 - w) + sampleTransparencies[i + 1] * w;
    return std::clamp(t, 0.f, 1.f);
}

SoSeparator* PoNonLinearDataMapping::filled(SoState* state)
{
    const PoMesh* mesh = PoKitElement::getMesh(state);
    if (!on.getValue() || !mesh) return nullptr;
    const uint64_t madeFor[2] = {mesh->getNodeId(), getNodeId()};
    if (m_filled && madeFor[0] == m_madeFor[0] && madeFor[1] == m_madeFor[1]) return m_filled;
    m_madeFor[0] = madeFor[0], m_madeFor[1] = madeFor[1];

    std::vector<SbVec3f> points(std::size_t(mesh->getNumNodes()));
    std::vector<uint32_t> colors(points.size());
    for (int i = 0; i < mesh->getNumNodes(); ++i) {
        points[std::size_t(i)] = mesh->getNode(i);
        const float v = mesh->getValue(i);
        const SbColor c = PoMesh::hasValue(v) ? getColor(v) : SbColor(0, 0, 0);
        colors[std::size_t(i)] = c.getPackedValue(PoMesh::hasValue(v) ? getTransparency(v) : 1.f);
    }
    std::vector<int32_t> faces;
    for (int c = 0; c < mesh->getNumCells(); ++c) {
        int32_t n[4];
        float f[4];
        if (!mesh->getValidCell(c, n, f)) continue;
        faces.insert(faces.end(), {n[0], n[1], n[2], n[3], SO_END_FACE_INDEX});
    }
    if (!m_filled) {
        m_filled = new SoSeparator;
        m_filled->ref();
    }
    m_filled->removeAllChildren();
    auto* light = new SoLightModel;
    light->model = SoLightModel::BASE_COLOR;
    auto* property = new SoVertexProperty;
    property->vertex.setValues(0, int(points.size()), points.data());
    property->orderedRGBA.setValues(0, int(colors.size()), colors.data());
    property->materialBinding = SoVertexProperty::PER_VERTEX_INDEXED;
    auto* faceSet = new SoIndexedFaceSet;
    faceSet->vertexProperty = property;
    faceSet->coordIndex.setValues(0, int(faces.size()), faces.data());
    faceSet->materialIndex.setValues(0, int(faces.size()), faces.data());
    m_filled->addChild(light);
    m_filled->addChild(faceSet);
    return m_filled;
}

void PoNonLinearDataMapping::doAction(SoAction* action)
{
    PoKitElement::setDataMapping(action->getState(), this, this);
}

void PoNonLinearDataMapping::GLRender(SoGLRenderAction* action)
{
    doAction(action);
    if (SoSeparator* mesh = filled(action->getState())) mesh->GLRender(action);
}

void PoNonLinearDataMapping::callback(SoCallbackAction* action)
{
    doAction(action);
    if (SoSeparator* mesh = filled(action->getState())) mesh->callback(action);
}

void PoNonLinearDataMapping::getBoundingBox(SoGetBoundingBoxAction* action)
{
    doAction(action);
    if (SoSeparator* mesh = filled(action->getState())) mesh->getBoundingBox(action);
}

void PoNonLinearDataMapping::pick(SoPickAction* action)
{
    doAction(action);
    if (SoSeparator* mesh = filled(action->getState())) mesh->pick(action);
}

} // namespace meshkit
