#include <vxiso/VxIsosurface.h>
#include <vxiso/VxIsosurfaceExternal.h>
#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>

#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPointProbe.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxPreferences.h>
#include <vx/VxRangeProviderSpatialData.h>

#include <kx/KxCPUInfo.h>
#include <kx/KxException.h>
#include <kx/KxRawData.h>

#include <Inventor/nodes/SoSeparator.h>

#include <algorithm>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <new>

KX_PACKAGE_SOURCE(VxIsosurface, VxTriBase)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxIsosurface", text);
}

int usableThreads()
{
    const KxCPUInfo& cpu = kxCPUInfo();
    return std::max(1, cpu.getLPUCount() * cpu.getCoreCount() * cpu.getCPUCount());
}

VxMessage* message()
{
    return VxApplication::instance()->message();
}

} // namespace

VxIsosurface::VxIsosurface()
    : VxTriBase(VxRegScalarField3::getClassTypeId()),
      portThreshold(this, tr("Threshold"), "threshold", new VxRangeProviderSpatialData(this)),
      portOptions(this, tr("Options"), "options"), portDownSample(this, tr("Down Sample"), "downSampleOnOff"),
      portResolution(this, tr("Average"), "resolution", 3),
      portPointProbe(this, tr("Point Probe"), "pointProbe", VxPointProbe::getClassTypeId()),
      portNumberOfCores(this, tr("Number Of Cores"), "numberOfCores"), portDoIt(this, tr("Action"), "doIt")
{
    portData.addType(VxBlockStructuredScalarField3::getClassTypeId());
    portThreshold.setFormat("%g");
    setTreeViewAccessiblePort(&portThreshold);
    portOptions.setLabel(0, tr("compactify"));
    portOptions.setValue(0, true);
    portDownSample.setValue(false);
    const char* axes[] = {"x", "y", "z"};
    for (int i = 0; i < 3; ++i) {
        portResolution.setLabel(i, axes[i]);
        portResolution.setValue(i, 2);
    }
    portResolution.hide();
    portPointProbe.setOptional(true);
    const int n = usableThreads();
    portNumberOfCores.setMinMax(1, n);
    portNumberOfCores.setValue(n);
    portNumberOfCores.hide();
    portDoIt.setLabel(0, tr("Apply"));

    useIsosurfaceLook();

    updatePortThreshold();
    vxDeprecation::initDeprecatedPorts(this);
}

VxIsosurface::~VxIsosurface() = default;

void VxIsosurface::update()
{
    vxDeprecation::updateDeprecatedPorts(this);
    VxTriBase::update();
    portColormap().show();

    if (auto* probe = vxconnection_cast<VxPointProbe>(portPointProbe))
        if (portPointProbe.isNew())
            portThreshold.setValue(probe->getNumValues() > 0 ? float(probe->getValue(0)) : 0.f);

    const auto* field = vxconnection_cast<VxRegScalarField3>(portData);
    if (field) {
        const bool uniform = field->isOfType(VxUniformScalarField3::getClassTypeId());
        portDownSample.setVisible(uniform);
        portResolution.setVisible(uniform && portDownSample.getValue());
        const KxDim3l& d = field->getDims();
        const int64_t dims[3] = {d.nx, d.ny, d.nz};
        for (int i = 0; i < 3; ++i) {
            int64_t v = std::min<int64_t>(portResolution.getValue(i), dims[i] / 2);
            portResolution.setValue(i, int(std::max<int64_t>(v, 1)));
        }
    }

    if (field && portData.isNew()) {
        double lo = 0, hi = 0;
        // The range the threshold's provider gives for this field, asked for once.
        const bool any = field->getRange(lo, hi,
                                         field->hasUndefinedValue() ? VxRegScalarField3::RANGE_SKIP_UNDEFINED
                                                                    : VxRegScalarField3::RANGE_ALL);
        const double dataLo = lo, dataHi = hi;
        if (std::fabs(lo) > DBL_MAX) lo = portThreshold.getMinValue();
        if (std::fabs(hi) > DBL_MAX) hi = portThreshold.getMaxValue();
        auto* provider = static_cast<VxRangeProviderSpatialData*>(portThreshold.getRangeProvider());
        if (!provider->isDiscrete()) {
            lo = std::min(lo, double(portThreshold.getValue()));
            hi = std::max(hi, double(portThreshold.getValue()));
        }
        portThreshold.setMinMax(float(lo), float(hi));
        if (!VxApplication::instance()->interpreter()->networkIsLoading() && m_firstData && any)
            portThreshold.reset(dataLo, dataHi);
        m_firstData = false;
        if (portDownSample.getValue()) m_resampled = nullptr;
    }

    // A multi-block field gives the threshold its overall range the first time it is seen.
    if (!field && portData.isNew() && vxconnection_cast<VxBlockStructuredScalarField3>(portData)) {
        if (!VxApplication::instance()->interpreter()->networkIsLoading() && m_firstData)
            portThreshold.reset();
        m_firstData = false;
    }

    if (portDownSample.isNew() || (portDownSample.getValue() && portResolution.isNew()) ||
        !portDownSample.getValue())
        m_resampled = nullptr;
    if (!field && !vxconnection_cast<VxBlockStructuredScalarField3>(portData)) m_firstData = true;
}

bool VxIsosurface::shouldResample(const VxRegScalarField3* field) const
{
    if (!field || !field->isOfType(VxUniformScalarField3::getClassTypeId())) return false;
    if (portDownSample.getValue() && !m_resampled) return true;
    if (!portThreshold.isInteractive() ||
        !VxApplication::instance()->getPreferences().simplifiedRenderingDuringInteraction)
        return false;
    const KxDim3l& d = field->getDims();
    return float(d.nx * d.ny * d.nz) * 1.1f > 2097152.f;
}

void VxIsosurface::resample()
{
    const auto* field = vxconnection_cast<VxRegScalarField3>(portData);
    if (!field) return;
    const KxDim3l& d = field->getDims();
    const int64_t n[3] = {d.nx, d.ny, d.nz};
    int f[3];
    for (int i = 0; i < 3; ++i)
        f[i] = portThreshold.isInteractive() ? int(std::max<int64_t>(1, n[i] / 128))
                                             : portResolution.getValue(i);
    KxProgressInterface* progress = VxApplication::instance()->progress();
    progress->startWorking(tr("Resampling"));
    KxDim3l dims(n[0] / f[0], n[1] / f[1], n[2] / f[2]);
    KxHandle<VxUniformScalarField3> low(new VxUniformScalarField3(dims, field->primType()));
    low->setBoundingBox(field->getBoundingBox());
    bool done = KxRawData::downSample3D(
        low->lattice().dataPtr(),
        KxTypedPointer(const_cast<void*>(field->lattice().dataPtr()), field->primType()), long(n[0]),
        long(n[1]), long(n[2]), f[0], f[1], f[2], progress);
    progress->stopWorking();
    m_resampled = done ? static_cast<VxRegScalarField3*>(low.get()) : nullptr;
    std::copy(f, f + 3, m_resampleFactors);
}

void VxIsosurface::extractIsoSurfaceFromRegField3(const VxRegScalarField3* field,
                                                  VxIsosurfaceExtractor& extractor)
{
    extractor.compute(vxiso::filter::UndefinedValue(*field));
}

void VxIsosurface::report(unsigned long kept, unsigned long long removed)
{
    if (!compactify()) {
        message()->printf("Isosurface contains %lu triangles", kept);
    } else if (kept + removed == 0) {
        message()->printf("Isosurface contains 0 triangles");
    } else {
        const float less = 100.f * float(removed) / float(kept + removed);
        message()->printf("Isosurface contains %lu triangles (%2.2f%% less)", kept, double(less));
    }
}

void VxIsosurface::computeRegScalarField3()
{
    const auto* full = vxconnection_cast<VxRegScalarField3>(portData);
    KxProgressInterface* progress = VxApplication::instance()->progress();
    progress->startWorking(tr("Extracting Isosurface"));
    const VxRegScalarField3* field = full;
    if (shouldResample(full)) {
        if (!m_resampled) resample();
        if (m_resampled) field = m_resampled.get();
    }
    // Extract into a new node and swap it in when done: a failed run leaves the old surface.
    KxHandle<SoTriSurface> result(new SoTriSurface);
    VxIsosurfaceExtractor extractor(field, result.get(), progress);
    extractor.compact = compactify() ? 1 : 0;
    extractor.isoValue = portThreshold.getValue();
    extractor.snapFraction = 0.5f;
    extractor.numberOfCores = portNumberOfCores.getValue();
    // A slab count asks for the parallel path, also on a machine of one core.
    extractor.slabCount = int64_t(m_slabCount);
    if (m_slabCount) extractor.numberOfCores = std::max<int64_t>(extractor.numberOfCores, 2);
    extractIsoSurfaceFromRegField3(field, extractor);

    replaceTriSurface(result.get());
    m_lastRun = Figures{extractor.getSplitAxis(), extractor.getSlabCount(), extractor.getElapsedTime(),
                        field->getDims()};

    report((unsigned long)m_surface->getNumTriangles(), extractor.getDegenerateCount());
    progress->stopWorking();
}

void VxIsosurface::computeBlockScalarField3()
{
    auto* blocks = vxconnection_cast<VxBlockStructuredScalarField3>(portData);
    const auto start = std::chrono::steady_clock::now();
    KxProgressInterface* progress = VxApplication::instance()->progress();
    progress->startWorking(tr("Extracting Isosurface")); // fail() ends it when a block throws
    KxHandle<SoTriSurface> result(new SoTriSurface);
    std::vector<SbVec3f> coords, normals;
    std::vector<SbVec3i32> triangles;
    const int n = blocks->getGrid()->getNumZones();
    for (int b = 0; b < n; ++b) {
        VxRegScalarField3* field = blocks->getField(b);
        if (!field) continue;
        const KxDim3l& d = field->getDims();
        const unsigned long dims[3] = {(unsigned long)d.nx, (unsigned long)d.ny, (unsigned long)d.nz};
        KxHandle<SoTriSurface> part(new SoTriSurface);
        VxIsosurfaceExternal external(dims, portThreshold.getValue(), compactify() ? 1 : 0, m_paramCC,
                                      part.get(), field->lattice().coords(), progress);
        external.setIntersectionCallback(m_intersectionCallback, m_intersectionObject);
        external.computeCurvilinear(field);
        // The block extractor stops at an interruption with part of a block: none of it is kept.
        if (progress->wasInterrupted()) throw KxInterrupted();
        const int offset = int(coords.size());
        const SbVec3f* c = part->coords.getValues(0);
        coords.insert(coords.end(), c, c + part->coords.getNum());
        const SbVec3f* nv = part->normals.getValues(0);
        normals.insert(normals.end(), nv, nv + part->normals.getNum());
        const SbVec3i32* t = part->triangles.getValues(0);
        for (int i = 0; i < part->triangles.getNum(); ++i)
            triangles.emplace_back(t[i][0] + offset, t[i][1] + offset, t[i][2] + offset);
        message()->printf("block %d # of coords: %d", b, part->coords.getNum());
        message()->printf("block %d # of triangles: %d", b, part->triangles.getNum());
    }
    result->coords.setValues(0, int(coords.size()), coords.data());
    // Normals only when every block gave them, so they stay one per vertex.
    if (normals.size() == coords.size()) result->normals.setValues(0, int(normals.size()), normals.data());
    result->triangles.setValues(0, int(triangles.size()), triangles.data());
    replaceTriSurface(result.get());
    message()->printf("Isosurface contains %lu triangles", (unsigned long)triangles.size());
    progress->stopWorking();
    m_lastRun =
        Figures{-1, std::size_t(n),
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), KxDim3l()};
}

void VxIsosurface::compute()
{
    if (!portData.getSource()) {
        hideGeom(m_surface.get());
        return;
    }
    VxTriBase::compute();
    if (portThreshold.isNew() || portData.isNew() || portOptions.isNew() || portDownSample.isNew() ||
        portResolution.isNew())
        computed = false;
    if (!portDoIt.wasHit(0) || computed) return;
    m_lastFailure.clear();
    try {
        if (vxconnection_cast<VxBlockStructuredScalarField3>(portData))
            computeBlockScalarField3();
        else
            computeRegScalarField3();
        computed = true;
    } catch (const KxInterrupted& e) {
        // Asked for: no advice, and the previous surface stays.
        fail(tr("Isosurface extraction interrupted"), e.text());
    } catch (const std::bad_alloc& e) {
        fail(tr("Open Inventor Memory exception. Try with a higher Threshold."),
             dynamic_cast<const KxOutOfMemory*>(&e) ? QString::fromUtf8(e.what()) : QString("out of memory"));
    } catch (const KxException& e) {
        fail(tr("Exception:\n%1\nTry to disable the compactify\noption and run again.").arg(e.text()),
             e.text());
    } catch (const std::exception& e) {
        const QString what = QString::fromUtf8(e.what());
        fail(tr("Exception:\n%1\nTry to disable the compactify\noption and run again.").arg(what), what);
    }
}

void VxIsosurface::fail(const QString& message, const QString& cause)
{
    VxApplication::instance()->progress()->stopWorking();
    m_lastFailure = cause.simplified();
    ::message()->error(message);
}

int VxIsosurface::parse(Tcl_Interp* interp, int argc, char** argv)
{
    VxInterpreter* vi = VxApplication::instance()->interpreter();
    if (argc >= 2 && vi->cmdCheck(argv[1], "setParamCC", "VALUE")) {
        if (argc < 3) {
            vi->cmdHelp(interp, "setParamCC", true, argc, argv);
            return TCL_OK;
        }
        char* end = nullptr;
        const double value = strtod(argv[2], &end);
        if (end == argv[2] || *end != '\0' || !std::isfinite(float(value))) {
            vxscript::setResult(interp, QString("\"%1\" setParamCC: \"%2\" is not a finite number")
                                            .arg(getName(), QString::fromUtf8(argv[2])));
            return TCL_ERROR;
        }
        m_paramCC = float(value);
        return TCL_OK;
    }
    return VxTriBase::parse(interp, argc, argv);
}

void VxIsosurface::savePorts(FILE* fp)
{
    VxTriBase::savePorts(fp);
    if (computed) fprintf(fp, "\"%s\" doIt hit\n", getName().toUtf8().constData());
}

void VxIsosurface::preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs)
{
    VxTriBase::preferencesChanged(oldPrefs, newPrefs);
    updatePortThreshold();
}

void VxIsosurface::updatePortThreshold()
{
    if (VxApplication::instance()->getPreferences().simplifiedRenderingDuringInteraction) {
        portThreshold.setItemToolTip(
            0, tr("<i>Simplified rendering during interaction</i> option is <b>on</b>.<BR>                   "
                  "          "
                  "           Automatic downsampling is done when auto-refresh is checked.<BR>               "
                  "       "
                  "                  Can be switched off in the Tab Rendering of the Preferences dialog."));
        portThreshold.setInteractiveTracking(true, true);
    } else {
        portThreshold.setItemToolTip(
            0, tr("<i>Simplified rendering during interaction</i> option is <b>off</b>.<BR>                  "
                  "          "
                  "            Can be switched on in the Tab Rendering of the Preferences dialog."));
        portThreshold.setInteractiveTracking(false, false);
    }
}

namespace vxDeprecation {

void initDeprecatedPorts(VxIsosurface* module)
{
    VxPortToggleList& old = module->portOptions.getDeprecatedPort();
    old.setNum(2);
    old.setValue(0, true);
    old.setValue(1, false);
    old.untouch();
}

void updateDeprecatedPorts(VxIsosurface* module)
{
    VxPortToggleList& old = module->portOptions.getDeprecatedPort();
    if (old.isItemNew(0)) module->portOptions.setValue(0, old.getValue(0));
    if (old.isItemNew(1)) module->portDownSample.setValue(old.getValue(1));
}

} // namespace vxDeprecation
