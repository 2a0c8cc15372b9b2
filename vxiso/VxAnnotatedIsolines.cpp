#include <vxiso/VxAnnotatedIsolines.h>
#include <vxiso/VxIsoValuePorts.h>

#include <meshkit/PoCartesianGrid2D.h>
#include <meshkit/PoMeshContouring.h>
#include <meshkit/PoNonLinearDataMapping.h>
#include <meshkit/SoAnnoText3Property.h>

#include <vx/VxApplication.h>
#include <vx/VxColormap.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxLocation3.h>
#include <vx/VxMessage.h>
#include <vx/VxPortColormap.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/elements/SoViewVolumeElement.h>
#include <Inventor/elements/SoViewportRegionElement.h>
#include <Inventor/nodes/SoCallback.h>
#include <Inventor/nodes/SoDrawStyle.h>
#include <Inventor/nodes/SoMatrixTransform.h>
#include <Inventor/nodes/SoPolygonOffset.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoTransparencyType.h>

#include <algorithm>
#include <cmath>

KX_PACKAGE_SOURCE(VxAnnotatedIsolines, VxArbitraryCut)

using namespace meshkit;

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxAnnotatedIsolines", text);
}

// The scene's children, in order (the mesh is replaced when the slice is sampled again).
enum Child
{
    PRE_RENDER,
    TRANSFORM,
    TEXT_PROPERTY,
    DRAW_STYLE,
    MESH,
    DATA_MAPPING,
    POLYGON_OFFSET,
    TRANSPARENCY_TYPE,
    CONTOURING,
    POST_RENDER
};

// Labels are about this many pixels high in the first picture of a new field.
constexpr float kLabelPixels = 14.f;

} // namespace

VxAnnotatedIsolines::VxAnnotatedIsolines()
    : portSpacing(this, tr("Spacing"), "spacing", 2), portUniform(this, tr("Values"), "uniform", 3),
      portExplicit(this, tr("Values"), "explicit"), portParameters(this, tr("Parameters"), "parameters", 2),
      portOptions2(this, tr("Options2"), "options2", 1),
      portAnnotations(this, tr("Annotations"), "annotations", 2),
      portAnnotationsPath(this, tr("Annotations Path"), "annotationsPath", 1),
      portAnnotationsFontSize(this, tr("Annotations Font Size"), "annotationsFontSize"),
      portAnnotationsFontFactor(this, tr("Annotations Font Factor"), "annotationsFontFactor"),
      portAnnotationsGap(this, tr("Annotations Gap"), "annotationsGap"),
      portAnnotationsPeriod(this, tr("Annotations Period"), "annotationsPeriod", 2),
      portAnnotationsContourClip(this, tr("Annotations Contour Clip"), "annotationsContourClip", 1),
      portFormat(this, VxModule::translate("VxDisplayValue", "Annotations Format"), "format"),
      portAnnotationsColors(this, tr("Annotations Colors"), "annotationsColors", 1)
{
    vxInitIsoValuePorts(portSpacing, portUniform, portParameters, "VxAnnotatedIsolines");
    portOptions2.setLabel(0, tr("update min-max"));
    // The slice's colour map port is this module's colour map.
    portColormap().setDefaultColor(SbColor(1, 0, 0));
    portAnnotations.setLabel(0, tr("active"));
    portAnnotations.setLabel(1, tr("texture text"));
    portAnnotations.setValue(0, true);
    portAnnotationsPath.setItems(0, {tr("tangential path"), tr("horizontal path"), tr("vertical path")});
    portAnnotationsFontSize.setMinMax(0.04f, 10);
    portAnnotationsFontSize.setValue(5);
    portAnnotationsFontFactor.setMinMax(0.01f, 200);
    portAnnotationsFontFactor.setValue(1);
    portAnnotationsGap.setMinMax(0.01f, 200);
    portAnnotationsGap.setValue(1);
    portAnnotationsPeriod.setLabel(0, tr("major period"));
    portAnnotationsPeriod.setMinMax(0, 1, 1000);
    portAnnotationsPeriod.setValue(0, 3);
    portAnnotationsPeriod.setLabel(1, tr("first period"));
    portAnnotationsPeriod.setMinMax(1, 1, 1000);
    portAnnotationsPeriod.setValue(1, 1);
    portAnnotationsContourClip.setLabel(0, tr("active"));
    portFormat.insertComboBox(0, {tr("Auto"), tr("Float"), tr("Integer")}, 0);
    portFormat.insertLabel(1, tr("Number of decimals"));
    portFormat.insertIntText(2, 0);
    portFormat.setMinMax(2, 0, PbNumericDisplayFormat::MAX_DECIMALS);
    portFormat.insertLabel(3, tr("Ten Power"));
    portFormat.insertIntText(4, 0);
    portFormat.setMinMax(4, -PbNumericDisplayFormat::MAX_TEN_POWER, PbNumericDisplayFormat::MAX_TEN_POWER);
    portAnnotationsColors.setLabel(0, tr("text"));
    portAnnotationsColors.setColor(KxColor(0.8f, 0.8f, 0.8f), 0);

    m_root = new SoSeparator;
    m_root->renderCaching = SoSeparator::OFF;
    auto* pre = new SoCallback;
    pre->setCallback(preRenderCB, this);
    m_transform = new SoMatrixTransform;
    m_textProperty = new SoAnnoText3Property;
    m_drawStyle = new SoDrawStyle;
    m_dataMapping = new PoNonLinearDataMapping;
    m_dataMapping->on = TRUE;
    auto* offset = new SoPolygonOffset;
    offset->factor = 0.f;
    offset->units = -3.f;
    auto* transparency = new SoTransparencyType;
    transparency->value = SoTransparencyType::Type(0);
    m_contouring = new PoMeshContouring;
    m_contouring->coloring = PoMeshContouring::CONTRAST;
    m_contouring->setPreRebuildCallback(preRebuildCB, this);
    m_contouring->setPostRebuildCallback(postRebuildCB, this);
    m_contouring->setNumericDisplayFormat(
        PbNumericDisplayFormat(PbNumericDisplayFormat::FormatType(0), 0, 0));
    auto* post = new SoCallback;
    post->setCallback(postRenderCB, this);
    for (SoNode* child : std::initializer_list<SoNode*>{
             pre, m_transform.get(), m_textProperty.get(), m_drawStyle.get(), new PoCartesianGrid2D,
             m_dataMapping.get(), offset, transparency, m_contouring.get(), post})
        m_root->addChild(child);
    showGeom(m_root.get());
}

VxAnnotatedIsolines::~VxAnnotatedIsolines()
{
    // The nodes call back into this module: no more once it is gone.
    m_contouring->setPreRebuildCallback(nullptr, nullptr);
    m_contouring->setPostRebuildCallback(nullptr, nullptr);
    static_cast<SoCallback*>(m_root->getChild(PRE_RENDER))->setCallback(nullptr, nullptr);
    static_cast<SoCallback*>(m_root->getChild(POST_RENDER))->setCallback(nullptr, nullptr);
}

void VxAnnotatedIsolines::setMesh(PoMesh* mesh)
{
    m_root->replaceChild(MESH, mesh);
}

void VxAnnotatedIsolines::determineIsoValues()
{
    m_isoValues = vxIsoValues(portSpacing, portUniform, portExplicit);
    m_contouring->setIsovaluesList(PbIsovaluesList(m_isoValues));
}

void VxAnnotatedIsolines::resetRange(VxScalarField3* field)
{
    vxResetIsoValueRange(field, portUniform, portExplicit);
    m_rangeIsStale = false;
}

void VxAnnotatedIsolines::update()
{
    VxArbitraryCut::update();
    VxScalarField3* field = getField();
    portUniform.setSensitivity(1, portUniform.getValue(2) > 1 ? VxPortFloatTextN::SENSITIVE
                                                              : VxPortFloatTextN::NO_SENSITIVITY);
    const bool uniform = portSpacing.getValue() == 0;
    portUniform.setVisible(uniform);
    portExplicit.setVisible(!uniform);
    const bool annotated = portAnnotations.getValue(0);
    for (VxPort* p : std::initializer_list<VxPort*>{
             &portAnnotationsPath, &portAnnotationsFontSize, &portAnnotationsFontFactor, &portAnnotationsGap,
             &portAnnotationsPeriod, &portAnnotationsContourClip, &portFormat, &portAnnotationsColors})
        p->setVisible(annotated);
    if (!field)
        m_rangeIsStale = true;
    else if (portData.isNew() && (m_rangeIsStale || portOptions2.getValue(0)))
        resetRange(field);
}

bool VxAnnotatedIsolines::sample(SbVec3f& origin, SbVec3f& du, SbVec3f& dv, int& n,
                                 std::vector<float>& values)
{
    VxScalarField3* field = getField();
    n = int(portParameters.getValue(0));
    if (!field || !getSamplingParameters(n, origin, du, dv)) return false;
    KxProgressInterface* progress = VxApplication::instance()->progress();
    progress->startWorking(tr("Extracting Contoured Slice..."));
    const KxBox3f box = field->getBoundingBox();
    std::unique_ptr<VxLocation3> at = field->createLocation();
    values.assign(std::size_t(n) * std::size_t(n), PoMesh::NO_VALUE);
    for (int r = 0; at && r < n; ++r) {
        if ((r & 15) == 0 && progress->wasInterrupted()) {
            progress->stopWorking();
            throw KxInterrupted(); // before the mesh is replaced: the last run's stays
        }
        bool found = false;
        for (int c = 0; c < n; ++c) {
            const SbVec3f p = origin + du * float(c) + dv * float(r);
            if (!box.contains(KxVec3f(p[0], p[1], p[2]), 0.01f)) {
                found = false;
                continue;
            }
            found = found ? at->move(p) : at->set(p);
            float v;
            if (found && at->eval(v)) values[std::size_t(r) * std::size_t(n) + std::size_t(c)] = v;
        }
        progress->setProgressValue(float(r + 1) / float(n));
    }
    progress->stopWorking();
    return true;
}

void VxAnnotatedIsolines::doGenerate2DMesh()
{
    SbVec3f origin, du, dv;
    int n = 0;
    std::vector<float> values;
    const bool sampled = sample(origin, du, dv, n, values); // first: it throws when interrupted
    auto* grid = new PoCartesianGrid2D;
    if (sampled) grid->grid.setGeometry(origin, du, dv, n, n, values.data());
    setMesh(grid);
}

void VxAnnotatedIsolines::doGenerateQuadrangleMesh()
{
    SbVec3f origin, du, dv;
    int n = 0;
    std::vector<float> values;
    const bool sampled = sample(origin, du, dv, n, values); // first: it throws when interrupted
    auto* mesh = new PoQuadrangleMesh;
    if (sampled) {
        // Only the cells whose four samples have values, with the samples they use.
        std::vector<int32_t> index(values.size(), -1), quads;
        std::vector<SbVec3f> points;
        std::vector<float> kept;
        auto node = [&](int r, int c) {
            const std::size_t i = std::size_t(r) * std::size_t(n) + std::size_t(c);
            if (index[i] < 0) {
                index[i] = int32_t(points.size());
                points.push_back(origin + du * float(c) + dv * float(r));
                kept.push_back(values[i]);
            }
            return index[i];
        };
        for (int r = 0; r + 1 < n; ++r)
            for (int c = 0; c + 1 < n; ++c) {
                const int corners[4][2] = {{r, c}, {r + 1, c}, {r + 1, c + 1}, {r, c + 1}};
                bool valued = true;
                for (const auto& rc : corners)
                    valued = valued && PoMesh::hasValue(
                                           values[std::size_t(rc[0]) * std::size_t(n) + std::size_t(rc[1])]);
                if (!valued) continue;
                for (const auto& rc : corners) quads.push_back(node(rc[0], rc[1]));
            }
        mesh->points.setValues(0, int(points.size()), points.data());
        mesh->values.setValues(0, int(kept.size()), kept.data());
        mesh->quadrangles.setValues(0, int(quads.size()), quads.data());
        SbVec3f u = du, v = dv;
        u.normalize();
        v.normalize();
        mesh->uAxis = u;
        mesh->vAxis = v;
    }
    setMesh(mesh);
}

SbColor VxAnnotatedIsolines::colorDataMappingCB(void* module, float value)
{
    return static_cast<VxAnnotatedIsolines*>(module)->portColormap().getColor(value);
}

float VxAnnotatedIsolines::transparencyDataMappingCB(void* module, float value)
{
    VxPortColormap& port = static_cast<VxAnnotatedIsolines*>(module)->portColormap();
    const VxColormap* map = port.getColormap();
    if (!port.isAlphaEnabled()) return 0.f;
    return 1.f - (map ? map->getRGBA(value).a : port.getDefaultAlpha());
}

void VxAnnotatedIsolines::preRenderCB(void* module, SoAction* action)
{
    // The view of the picture being drawn, for sizing the labels of a new field after it.
    if (!module || !action->isOfType(SoGLRenderAction::getClassTypeId())) return;
    auto* self = static_cast<VxAnnotatedIsolines*>(module);
    self->m_viewVolume = SoViewVolumeElement::get(action->getState());
    self->m_viewportHeight =
        float(SoViewportRegionElement::get(action->getState()).getViewportSizePixels()[1]);
    self->m_haveView = self->m_viewportHeight > 0;
}

void VxAnnotatedIsolines::postRenderCB(void* module, SoAction* action)
{
    if (!module || !action->isOfType(SoGLRenderAction::getClassTypeId())) return;
    auto* self = static_cast<VxAnnotatedIsolines*>(module);
    if (!self->m_fontSizePending || !self->m_haveView || !self->hasPlane()) return;
    self->m_fontSizePending = false;
    // The scene size of kLabelPixels at the slice's centre, in the contouring's size units.
    const float world =
        self->m_viewVolume.getWorldToScreenScale(self->origin(), kLabelPixels / self->m_viewportHeight);
    const float unit =
        self->m_contouring->annotFontFactor.getValue() * self->m_contouring->annotReferenceSize.getValue();
    if (world > 0 && unit > 0)
        self->portAnnotationsFontSize.setValue(std::clamp(world / unit,
                                                          self->portAnnotationsFontSize.getMinValue(),
                                                          self->portAnnotationsFontSize.getMaxValue()));
}

void VxAnnotatedIsolines::preRebuildCB(void* module, PoMeshContouring*)
{
    if (module) VxApplication::instance()->progress()->busy();
}

void VxAnnotatedIsolines::postRebuildCB(void* module, PoMeshContouring* contouring)
{
    if (!module) return;
    VxApplication::instance()->progress()->setProgressInfo(tr("%1 contour lines, %2 labels")
                                                               .arg(contouring->getLines().size())
                                                               .arg(contouring->getLabels().size()));
}

void VxAnnotatedIsolines::pushPorts(VxScalarField3* field, const SbVec3f& du)
{
    PoMeshContouring& c = *m_contouring;
    // The first run hands every port over; later runs the ports that changed.
    const bool all = !m_pushed;
    m_pushed = true;
    auto changed = [all](const VxPort& port) { return all || port.isNew(); };
    if (changed(portAnnotations)) {
        c.annotIsVisible = portAnnotations.getValue(0);
        m_textProperty->renderStyle =
            portAnnotations.getValue(1) ? SoAnnoText3Property::RASTER : SoAnnoText3Property::POLYGONS;
    }
    if (changed(portAnnotationsPath)) c.annotPath = std::max(portAnnotationsPath.getValue(0), 0);
    if (changed(portAnnotationsFontSize) || changed(portAnnotationsFontFactor) || portData.isNew()) {
        c.annotFontSize = portAnnotationsFontSize.getValue();
        c.annotFontFactor = portAnnotationsFontFactor.getValue();
        // The size unit: a lattice's smallest voxel side, else the sampling step.
        float unit = du.length();
        if (const auto* lattice = kx_type_cast<VxRegScalarField3>(field)) {
            const KxVec3f voxel = field->getBoundingBox().getVoxelSize(lattice->getDims());
            float smallest = 0;
            for (int a = 0; a < 3; ++a)
                if (voxel[a] > 0 && (smallest == 0 || voxel[a] < smallest)) smallest = voxel[a];
            if (smallest > 0) unit = smallest;
        }
        c.annotReferenceSize = unit > 0 ? unit : 1.f;
    }
    if (changed(portAnnotationsGap)) c.annotGap = portAnnotationsGap.getValue();
    if (changed(portParameters)) {
        m_drawStyle->lineWidth = portParameters.getValue(1);
        c.lineWidth = portParameters.getValue(1);
    }
    if (changed(portAnnotationsPeriod)) {
        c.annotMajorPeriod = uint16_t(portAnnotationsPeriod.getValue(0));
        c.annotFirstPeriod = uint16_t(portAnnotationsPeriod.getValue(1));
    }
    if (changed(portAnnotationsContourClip)) c.annotContourClip = portAnnotationsContourClip.getValue(0);
    if (changed(portFormat))
        c.setNumericDisplayFormat(
            PbNumericDisplayFormat(PbNumericDisplayFormat::FormatType(portFormat.getValue(0)),
                                   portFormat.getValue(2), portFormat.getValue(4)));
    if (changed(portAnnotationsColors)) {
        KxColor color;
        if (portAnnotationsColors.getColor(color, 0)) c.annotColor = SbColor(color.r, color.g, color.b);
    }
}

void VxAnnotatedIsolines::compute()
{
    VxArbitraryCut::compute();
    VxScalarField3* field = getField();
    if (portData.isNew() && field) {
        planeTouch();
        m_fontSizePending = true;
    }
    SbMatrix m;
    getTransform(m);
    m_transform->matrix = m;
    if (!field || !hasPlane()) {
        setMesh(new PoCartesianGrid2D);
        return;
    }
    determineIsoValues();
    const bool unstructured = kx_type_cast<VxTetraScalarField3>(field) != nullptr ||
                              kx_type_cast<VxHexaScalarField3>(field) != nullptr;
    try {
        if (unstructured)
            doGenerateQuadrangleMesh();
        else
            doGenerate2DMesh();
    } catch (const KxInterrupted&) {
        VxApplication::instance()->message()->warning(
            tr("Contoured slice interrupted; it shows the last run."));
        return;
    }
    SbVec3f o, du, dv;
    getSamplingParameters(int(portParameters.getValue(0)), o, du, dv);
    pushPorts(field, du);

    // The mapping covers the colour map's range, or the field's without one.
    double lo = 0, hi = 1;
    if (const VxColormap* map = portColormap().getColormap())
        lo = map->getMinValue(), hi = map->getMaxValue();
    else
        VxRangeProviderSpatialData::rangeOf(field, lo, hi);
    m_dataMapping->minValue = float(lo);
    m_dataMapping->maxValue = float(hi);
    m_dataMapping->setFunctions(colorDataMappingCB, transparencyDataMappingCB, this);
}
