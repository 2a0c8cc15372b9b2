#include <vxiso/VxIsoValuePorts.h>
#include <vxiso/VxIsolines.h>

#include <vx/VxAccessCoordinate3Interface.h>
#include <vx/VxApplication.h>
#include <vx/VxArbitraryCut.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxDisplay.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxInterpreter.h>
#include <vx/VxLineSet.h>
#include <vx/VxMessage.h>
#include <vx/VxObjectPool.h>
#include <vx/VxObliqueSlice.h>
#include <vx/VxOrthoSlice.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>

#include <kx/KxException.h>

#include <Inventor/fields/SoMFUInt32.h>
#include <Inventor/nodekits/SoShapeKit.h>
#include <Inventor/nodes/SoDrawStyle.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoMaterial.h>
#include <Inventor/nodes/SoPolygonOffset.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoVertexProperty.h>

#include <algorithm>
#include <cmath>
#include <new>

KX_PACKAGE_SOURCE(VxIsolines, VxOverlayModule)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxIsolines", text);
}

// The sampling's view of a field location.
struct Location
{
    VxLocation3& at;
    bool set(const SbVec3f& p) { return at.set(p); }
    bool move(const SbVec3f& p) { return at.move(p); }
    bool evaluate(float& v) { return at.eval(v); }
};

// A lattice whose nodes a slice of it can be sampled on one to one.
const VxUniformScalarField3* uniformLattice(const VxObject* field)
{
    return kx_type_cast<VxUniformScalarField3>(field);
}

} // namespace

VxIsolines::VxIsolines() : VxIsolines(OVERLAY) {}

VxIsolines::VxIsolines(VxOverlayModule::GraphicalRepMgtType mode)
    : VxOverlayModule(VxRegScalarField3::getClassTypeId(), mode),
      portSpacing(this, tr("Spacing"), "spacing", 2), portUniform(this, tr("Values"), "uniform", 3),
      portExplicit(this, tr("Values"), "explicit"), portQuality(this, tr("Quality"), "quality", 0),
      portParameters(this, tr("Parameters"), "parameters", 2), portOptions(this, tr("Options"), "options"),
      portColormap(this, tr("Colormap"), "colormap"),
      portTextAlignment(this, tr("Text Alignment"), "textAlignment"), portFont(this, tr("Font"), "font"),
      portTextScale(this, tr("Text Scale"), "textScale"),
      portTextSpacing(this, tr("Text Spacing"), "textSpacing"),
      portAnnotateEvery(this, tr("Annotate Every"), "annotateEvery", 2),
      portAnnotate(this, VxModule::translate("VxIsolibes", "Annotate"), "annotateOnOff")
{
    commonInit();
}

void VxIsolines::commonInit()
{
    portData.addType(VxBlockStructuredScalarField3::getClassTypeId());
    portData.addType(VxTetraScalarField3::getClassTypeId());
    portData.addType(VxHexaScalarField3::getClassTypeId());
    portTextScale.setAliasName("text scale");
    portTextSpacing.setAliasName("text spacing");

    m_display.reset(new VxDisplay(this, true, true, false));
    setDisplay(m_display.get());
    addInterface(new VxAccessCoordinate3InterfaceProxyTemplate<VxIsolines>(this));

    vxInitIsoValuePorts(portSpacing, portUniform, portParameters, "VxIsolines");
    portOptions.setNum(2);
    portOptions.setLabel(UPDATE_MIN_MAX, tr("update min-max"));
    portOptions.setLabel(RESAMPLE, tr("resample"));
    portColormap.setDefaultColor(SbColor(1, 0, 0));
    portColormap.enableAlpha(false);
    portTextAlignment.insertComboBox(0, {tr("Tangential"), tr("Camera Aligned")}, 0);
    portTextAlignment.insertCheckBox(1, tr("contour clip"), 0);
    portFont.setFont("Helvetica", 12, VxPortFontSelection::NORMAL_WEIGHT, false);
    portFont.setFontColor(KxColor(0, 1, 0));
    portTextScale.setMinMax(1, 500);
    portTextScale.setIncrement(0.1f);
    portTextScale.setValue(5);
    portTextSpacing.setMinMax(0, 500);
    portTextSpacing.setIncrement(0.1f);
    portTextSpacing.setValue(0);
    portAnnotateEvery.setLabel(0, "");
    portAnnotateEvery.setMinMax(0, 1, 1000);
    portAnnotateEvery.setValue(0, 3);
    portAnnotateEvery.setLabel(1, tr("line, starting with line"));
    portAnnotateEvery.setMinMax(1, 1, 1000);
    portAnnotateEvery.setValue(1, 1);

    updatePortQuality();

    m_shapeKit = new SoShapeKit;
    m_shapeKit->set(
        "lightModel { model BASE_COLOR } pickStyle { style UNPICKABLE } drawStyle { lineWidth 2 } ");
    auto* lineSet = new SoLineSet;
    lineSet->vertexProperty = new SoVertexProperty;
    m_shapeKit->setPart("shape", lineSet);
    m_root = new SoSeparator;
    m_textSeparator = new SoSeparator;
    m_textSeparator->renderCaching = SoSeparator::OFF;
    m_polygonOffset = new SoPolygonOffset;
    m_polygonOffset->factor = -1.f;
    m_polygonOffset->units = 0.5f;
    m_polygonOffset->styles = SoPolygonOffset::LINES;
    m_root->addChild(m_polygonOffset.get());
    m_root->addChild(m_shapeKit.get());
    m_root->addChild(m_textSeparator.get());
    setOverlayNode(m_root.get());

    vxDeprecation::initDeprecatedPorts(this);
}

VxIsolines::~VxIsolines()
{
    // The display's nodes hang on the slice: take them off before the display goes.
    removeOverlay();
    setDisplay(nullptr);
}

SoLineSet* VxIsolines::getLineSet() const
{
    return static_cast<SoLineSet*>(m_shapeKit->getPart("shape", FALSE));
}

void VxIsolines::determineIsoValues()
{
    m_isoValues.clear();
    for (float v : vxIsoValues(portSpacing, portUniform, portExplicit)) m_isoValues.push_back(v);
}

void VxIsolines::resetRange(VxScalarField3* field)
{
    vxResetIsoValueRange(field, portUniform, portExplicit);
    m_rangeIsStale = false;
}

void VxIsolines::updatePortQuality()
{
    if (auto* oblique = kx_type_cast<VxObliqueSlice>(getSlice())) {
        const QStringList choices = oblique->getSamplingChoices();
        portQuality.setNum(choices.size());
        for (int i = 0; i < choices.size(); ++i) portQuality.setLabel(i, choices[i]);
        portQuality.setValue(oblique->getSampling());
        portQuality.setToolTip(tr("Options of this port are the same that sampling options\nin the connected "
                                  "Oblique Slice.\n") +
                               tr("By default, the option chosen is the same option that in\nthe Oblique "
                                  "Slice, but you can change it."));
        return;
    }
    portQuality.setNum(4);
    portQuality.setLabel(0, tr("low"));
    portQuality.setLabel(1, tr("medium"));
    portQuality.setLabel(2, tr("high"));
    portQuality.setLabel(3, tr("custom"));
    portQuality.setValue(3);
    portQuality.setToolTip(tr("Port to choose a default quality. If you choose low, medium,\nor high, "
                              "resolution will be computed automatically.\n") +
                           tr("If you choose custom, you can choose it."));
}

void VxIsolines::updateResolution()
{
    VxPlanarModBase* slice = getSlice();
    const int quality = portQuality.getValue();
    const bool custom = quality == portQuality.getNum() - 1;
    auto freelyEditable = [this] {
        portParameters.setSensitivity(0, VxPortFloatTextN::SENSITIVE);
        portQuality.hide();
    };

    if (auto* oblique = kx_type_cast<VxObliqueSlice>(slice)) {
        portParameters.setSensitivity(0, custom ? VxPortFloatTextN::SENSITIVE
                                                : VxPortFloatTextN::NO_SENSITIVITY);
        portQuality.show();
        if (!custom) {
            const SbVec2s n = oblique->getResolution(quality);
            portParameters.setValue(0, float(std::max(n[0], n[1])));
        } else if (portSlice.isNew(VxPort::NEW_SOURCE)) {
            portParameters.setValue(
                0, float(std::max(oblique->portResolution.getValue(0), oblique->portResolution.getValue(1))));
        }
        return;
    }

    // The in-plane node counts of a slice through a uniform lattice.
    const VxUniformScalarField3* lattice = uniformLattice(getControllingData());
    int plane = -1; // the orientation, as VxOrthoSlice counts them
    if (auto* ortho = kx_type_cast<VxOrthoSlice>(slice)) {
        plane = ortho->getOrientation();
    } else if (auto* cut = kx_type_cast<VxArbitraryCut>(slice)) {
        const SbVec3f& n = cut->normal();
        plane = n == SbVec3f(0, 0, 1)   ? VxOrthoSlice::XY
                : n == SbVec3f(0, 1, 0) ? VxOrthoSlice::XZ
                : n == SbVec3f(1, 0, 0) ? VxOrthoSlice::YZ
                                        : -1;
    }
    if (!slice || !lattice || plane < 0) {
        freelyEditable();
        return;
    }
    portQuality.show();
    const KxDim3l& d = lattice->getDims();
    int u, v, w;
    VxOrthoSlice::axes(plane, u, v, w);
    const int m = int(std::max(d[u], d[v]));
    if (custom) {
        portParameters.setSensitivity(0, VxPortFloatTextN::SENSITIVE);
        return;
    }
    portParameters.setSensitivity(0, VxPortFloatTextN::NO_SENSITIVITY);
    const int res = quality == 0 ? m / 2 : quality == 1 ? m : 2 * m;
    if (res != 0) portParameters.setValue(0, float(res));
}

void VxIsolines::update()
{
    vxDeprecation::updateDeprecatedPorts(this);
    auto* field = vxconnection_cast<VxScalarField3>(portData);

    const bool tetra = kx_type_cast<VxTetraScalarField3>(field) != nullptr;
    if (tetra) {
        portOptions.setSensitivity(RESAMPLE, true);
        portParameters.setSensitivity(0, portOptions.getValue(RESAMPLE) ? VxPortFloatTextN::SENSITIVE
                                                                        : VxPortFloatTextN::NO_SENSITIVITY);
    } else {
        portOptions.setSensitivity(RESAMPLE, false);
        portParameters.setSensitivity(0, VxPortFloatTextN::SENSITIVE);
    }

    portUniform.setSensitivity(1, portUniform.getValue(2) > 1 ? VxPortFloatTextN::SENSITIVE
                                                              : VxPortFloatTextN::NO_SENSITIVITY);
    const bool uniform = portSpacing.getValue() == 0;
    portUniform.setVisible(uniform);
    portExplicit.setVisible(!uniform);

    if (field && portData.isNew()) {
        const KxBox3f box = field->getBoundingBox();
        const float s = std::min(box.max(0) - box.min(0), box.max(1) - box.min(1));
        // The range first: the slider clamps, and a small field's scale lies below the default range.
        portTextScale.setMinMax(s / 600.f * 0.25f, s / 600.f * 4.0f);
        portTextScale.setValue(s / 600.f);
        // The value first, then the range, so that the spacing starts at the range's bottom.
        portTextSpacing.setValue(-1);
        portTextSpacing.setMinMax(0, s * 0.25f);
    }

    const bool annotated = isAnnotated();
    portTextAlignment.setVisible(annotated);
    portFont.setVisible(annotated);
    portTextSpacing.setVisible(annotated);
    portAnnotateEvery.setVisible(annotated);
    portTextScale.setVisible(annotated);
    if (annotated) portTextAlignment.setVisible(1, true);

    // Another slice, not a slice that moved: the user's quality stays while the slice moves.
    // The choices follow the new slice; a quality chosen in the same run (a script or a saved
    // network sets it right after connecting) is kept where the new choices have it.
    if (portSlice.isNew(VxPort::NEW_SOURCE)) {
        const int chosen = portQuality.isNew(VxPort::NEW_VALUE) ? portQuality.getValue() : -1;
        updatePortQuality();
        if (chosen >= 0 && chosen < portQuality.getNum()) portQuality.setValue(chosen);
    }
    updateResolution();
    // Cutting the tetrahedra reads no resolution, whatever the slice would give.
    if (tetra && !portOptions.getValue(RESAMPLE))
        portParameters.setSensitivity(0, VxPortFloatTextN::NO_SENSITIVITY);

    if (!field)
        m_rangeIsStale = true;
    else if (portData.isNew() && (m_rangeIsStale || portOptions.getValue(UPDATE_MIN_MAX)))
        resetRange(field);
}

bool VxIsolines::getTransform(SbMatrix& m) const
{
    m = SbMatrix::identity();
    VxPlanarModBase* slice = getSlice();
    auto* field = vxconnection_cast<VxScalarField3>(portData);
    if (!slice || !field) return false;
    SbMatrix sliceTransform, fieldTransform;
    const bool a = slice->getTransform(sliceTransform), b = field->getTransform(fieldTransform);
    if ((!a && !b) || sliceTransform == fieldTransform) return false;
    m = sliceTransform;
    m.multRight(fieldTransform.inverse());
    return true;
}

void VxIsolines::computeIsolines()
{
    VxPlanarModBase* slice = getSlice();
    auto* field = vxconnection_cast<VxScalarField3>(portData);
    SoLineSet* lineSet = getLineSet();
    auto* property = static_cast<SoVertexProperty*>(lineSet->vertexProperty.getValue());
    // Every run replaces the lines, also by none; one that is interrupted (it throws) keeps them.
    auto clear = [&] {
        property->vertex.setNum(0);
        property->orderedRGBA.setNum(0);
        lineSet->numVertices.setNum(0);
        m_lineValues.clear();
    };
    if (!slice->hasPlane()) return clear();

    VxIsolineContouring contouring;
    contouring.setIsoValues(m_isoValues.data(), int(m_isoValues.size()));
    std::vector<uint32_t> colors;
    for (float v : m_isoValues) colors.push_back(portColormap.getPackedColor(v));
    contouring.setPackedColors(colors.data(), int(colors.size()));
    SbMatrix transform;
    contouring.setTransform(getTransform(transform) ? &transform : nullptr);
    KxProgressInterface* progress = VxApplication::instance()->progress();
    contouring.setInterruption(progress);
    progress->startWorking(tr("Extracting Isolines"));
    struct Phase
    {
        KxProgressInterface* progress;
        ~Phase() { progress->stopWorking(); }
    } phase{progress};

    auto* tetra = kx_type_cast<VxTetraScalarField3>(field);
    if (tetra && !portOptions.getValue(RESAMPLE)) {
        contouring.doIntersection(*tetra, slice->origin(), slice->normal(), slice->uVec(), slice->vVec());
    } else {
        VxIsolineSampling sampling;
        sampling.resolution = int(portParameters.getValue(0));
        std::unique_ptr<VxLocation3> location = field->createLocation();
        if (!location || !slice->getSamplingParameters(sampling.resolution, sampling.origin, sampling.uStep,
                                                       sampling.vStep))
            return clear();
        Location at{*location};
        contouring.doGeneric(sampling, slice->getBoundingBox(), at);
    }

    clear();
    VxIsolineLines& lines = contouring.lines();
    m_lineValues = lines.lineValues;
    if (!lines.lineColors.empty())
        property->orderedRGBA.setValues(0, int(lines.lineColors.size()), lines.lineColors.data());
    property->materialBinding =
        SoVertexProperty::PER_FACE; // one colour a polyline (PER_PART would be one a segment)
    lines.handTo(property->vertex, lineSet->numVertices);
}

void VxIsolines::compute()
{
    VxOverlayModule::compute();
    VxPlanarModBase* slice = getSlice();
    if (portData.isNew() && slice) slice->planeTouch();
    if (!slice || !portData.getSource()) return;
    try {
        determineIsoValues();
        computeIsolines();
    } catch (const std::bad_alloc&) {
        VxApplication::instance()->message()->error(tr("Not enough memory for the isolines."));
        return;
    } catch (const KxInterrupted&) {
        VxApplication::instance()->message()->warning(tr("Isoline extraction interrupted; the lines are "
                                                         "those of the last run."));
        return;
    } catch (const KxException& e) {
        VxApplication::instance()->message()->error(e.text());
        return;
    }
    m_textSeparator->removeAllChildren();
    if (isAnnotated()) createTextSceneGraph();
    getDisplay()->setVisible(true);
    static_cast<SoDrawStyle*>(m_shapeKit->getPart("drawStyle", TRUE))->lineWidth = portParameters.getValue(1);
    static_cast<SoMaterial*>(m_shapeKit->getPart("material", TRUE))
        ->diffuseColor.setValue(portColormap.getDefaultColor());
}

bool VxIsolines::getCoordinates(std::vector<SbVec3f*>& points, std::vector<int>& counts) const
{
    SoLineSet* lineSet = getLineSet();
    if (!lineSet) return false;
    const auto* property = static_cast<const SoVertexProperty*>(lineSet->vertexProperty.getValue());
    points.push_back(const_cast<SbVec3f*>(property->vertex.getValues(0)));
    counts.push_back(property->vertex.getNum());
    return true;
}

VxLineSet* VxIsolines::exportAsLineSet()
{
    SoLineSet* lineSet = getLineSet();
    if (!lineSet) return nullptr;
    const auto* property = static_cast<const SoVertexProperty*>(lineSet->vertexProperty.getValue());
    const int numPoints = property->vertex.getNum(), numLines = lineSet->numVertices.getNum();
    auto* set = new VxLineSet(numPoints, 0, 1);
    set->setLabel("IsoLines");
    const SbVec3f* p = property->vertex.getValues(0);
    std::vector<int> indices;
    int first = 0;
    for (int line = 0; line < numLines && first < numPoints; ++line) {
        const int n = std::min(int(lineSet->numVertices[line]), numPoints - first);
        const float value = line < int(m_lineValues.size()) ? m_lineValues[std::size_t(line)] : 0.f;
        indices.clear();
        for (int i = first; i < first + n; ++i) {
            set->setPoint(i, p[i][0], p[i][1], p[i][2]);
            set->getPointData(0)[i] = value;
            indices.push_back(i);
        }
        set->addLine(indices.data(), n);
        set->getLineData(0)[line] = value;
        first += n;
    }
    return set;
}

int VxIsolines::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc >= 2 && !strcmp(argv[1], "exportAsLineSet")) {
        VxLineSet* set = exportAsLineSet();
        if (set) {
            VxApplication::instance()->objectPool()->addObject(set, false);
            Tcl_VaSetResult(interp, "%s", set->getLabel().toUtf8().constData());
        }
        return TCL_OK;
    }
    if (argc >= 2 && !strcmp(argv[1], "text")) {
        const QString command = argc >= 3 ? QString("text %1").arg(argv[2]) : QString("text");
        VxPortFloatSlider* slider = command == "text scale"     ? &portTextScale
                                    : command == "text spacing" ? &portTextSpacing
                                                                : nullptr;
        if (!slider) {
            vxscript::setResult(interp, QString("unknow command %1").arg(command));
            return TCL_ERROR;
        }
        // The slider reads its verb after its own name, which the two words stand for.
        return slider->parse(interp, argc - 2, argv + 2);
    }
    return VxOverlayModule::parse(interp, argc, argv);
}

namespace vxDeprecation {

void initDeprecatedPorts(VxIsolines* module)
{
    VxPortToggleList& old = module->getDeprecatedOptions();
    old.setNum(3);
    old.untouch();
}

void updateDeprecatedPorts(VxIsolines* module)
{
    VxPortToggleList& old = module->getDeprecatedOptions();
    for (int i = 0; i < 2; ++i)
        if (old.isItemNew(i)) module->portOptions.setValue(i, old.getValue(i));
    if (old.isItemNew(2)) module->portAnnotate.setValue(old.getValue(2));
}

} // namespace vxDeprecation
