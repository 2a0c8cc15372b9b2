// vxiso surface: the isosurface module run through the host, as a network script runs it.
#include "VxHostSession.h"
#include "VxInputFiles.h"
#include "VxValueChecks.h"
#include "VxisoChecks.h"
#include "VxisoInputs.h"
#include "VxisoSubcommands.h"

#include <io/VxSurfaceWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxExtractionReport.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxMessage.h>
#include <vx/VxObject.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxSlabPlan.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxTriBase.h>
#include <vx/VxUniformLabelField3.h>

#include <QFileInfo>
#include <tbb/global_control.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// What surface needs beyond the input: a threshold or labels, a mask for the mask's options, an
// output it can write, a picture's name and directions.
void checkSurfaceOptions(const VxisoOptions& o)
{
    if (o.labels && o.haveThreshold)
        throw VxisoUsageError{
            "with --labels the surface follows label borders: choose a label with --label N, not -t"};
    if (!o.labels && !o.haveThreshold) throw VxisoUsageError{"no threshold: give -t VALUE"};
    if (o.maskFile.empty() && (o.relaxed || o.haveMaskLabel))
        throw VxisoUsageError{std::string(o.relaxed ? "--relaxed" : "--mask-label") +
                              " belongs to --mask LABELS"};
    if (!o.maskFile.empty() && o.labels)
        throw VxisoUsageError{
            "--mask restricts the surface of a scalar volume; a label volume's region is chosen "
            "with --label N"};
    if (o.output.empty()) throw VxisoUsageError{"no output: give -o FILE"};
    if (o.slabs && o.cores == 1)
        throw VxisoUsageError{"--slabs cuts the volume for the parallel path; --cores 1 runs sequentially"};
    if (o.slabs && (o.mesh || o.blocks))
        throw VxisoUsageError{"--slabs cuts a regular volume into slabs, not a mesh or multi-block data"};
    if (VxSurfaceWriter::formatForPath(QString::fromStdString(o.output)) == VxSurfaceWriter::UNKNOWN)
        throw VxisoUsageError{"cannot write '" + o.output + "': unknown format " +
                              VxSurfaceWriter::extensionHint().toStdString()};
    vxisoCheckPicture(o);
}

// Tells what the file asks for that the written mesh does not do.
void warnAboutFile(const VxisoOptions& o, const VxVolumeInfo& info, const VxSpatialData& data)
{
    const QString file = QString::fromStdString(o.volumeFile);
    if (info.nifti.hasScaling() && !o.labels)
        std::fprintf(
            stderr,
            "vxiso: warning: %s: %s; -t %g is compared with stored values (physical %g is stored %g)\n",
            qPrintable(file), qPrintable(info.nifti.scaling()), o.threshold, o.threshold,
            info.nifti.toStored(o.threshold));
    if (data.getTransform(true))
        std::fprintf(stderr,
                     "vxiso: warning: %s: the header rotates or mirrors the volume; the mesh is written in "
                     "the volume's own axes, from the first voxel's world position\n",
                     qPrintable(file));
}

// The slider keeps its value inside the data's range; a threshold outside it is honoured (it gives
// no surface) by widening the range, as a script would with "setMinMax".
void setThreshold(VxHostSession& host, double threshold)
{
    auto* slider = dynamic_cast<VxPortFloatSlider*>(host.find("isosurface")->findPort("threshold"));
    if (!slider) throw KxException("the isosurface module has no threshold slider");
    const float t = float(threshold);
    if (t < slider->getMinValue() || t > slider->getMaxValue())
        host.run({"isosurface", "threshold", "setMinMax", vxisoNumber(std::min(t, slider->getMinValue())),
                  vxisoNumber(std::max(t, slider->getMaxValue()))},
                 "cannot set -t");
    host.run({"isosurface", "threshold", "setValue", vxisoNumber(threshold)}, "cannot set -t");
}

// The module lowers factors above half an axis; say so rather than extract coarser than asked.
void noteClampedFactors(VxHostSession& host, const VxisoOptions& o)
{
    auto* factors = dynamic_cast<VxPortIntTextN*>(host.find("isosurface")->findPort("resolution"));
    if (!factors) return;
    for (int i = 0; i < 3; ++i)
        if (factors->getValue(i) != o.downsample[i])
            std::fprintf(
                stderr, "vxiso: note: --downsample %d on %c is more than half the axis; the module used %d\n",
                o.downsample[i], "xyz"[i], factors -> getValue(i));
}

void warnOutsideRange(double threshold, double lo, double hi)
{
    if (float(threshold) < float(lo) || float(threshold) > float(hi))
        std::fprintf(
            stderr, "vxiso: warning: -t %.10g lies outside the values %.10g to %.10g; the surface is empty\n",
            threshold, lo, hi);
}

// The module that takes the data, and the button that runs it.
struct ModuleChoice
{
    QString type, button;
};
ModuleChoice moduleFor(const VxisoModuleInputs& in)
{
    if (kx_type_cast<VxTetraScalarField3>(in.data.get())) return {"VxIsoTetra", "action"};
    if (kx_type_cast<VxHexaScalarField3>(in.data.get())) return {"VxIsoHexa", "doIt"};
    return {in.mask ? "VxMaskedLabelIsosurface" : "VxIsosurface", "doIt"};
}

// A mesh's module: per-cell values of hexahedra are averaged to the nodes unless --blocky.
void setUpMeshModule(VxHostSession& host, const VxisoOptions& o, const QString& module)
{
    host.run({"create", module, "isosurface"}, "cannot create the module " + module);
    host.run({"isosurface", "data", "connect", "volume"}, "the module " + module + " does not take the mesh");
    if (module == "VxIsoHexa")
        host.run({"isosurface", "average", "setValue", "0", o.blocky ? "0" : "1"}, "cannot set --blocky");
    setThreshold(host, o.threshold);
}

// Creates and connects the module and sets its ports from the options, as a script would.
void setUpModule(VxHostSession& host, const VxisoOptions& o, const VxisoModuleInputs& in)
{
    host.add(in.data.get(), "volume");
    const QString module = moduleFor(in).type;
    if (o.mesh) return setUpMeshModule(host, o, module);
    host.run({"create", module, "isosurface"}, "cannot create the module " + module);
    host.run({"isosurface", "data", "connect", "volume"},
             "the module " + module + " does not take the volume");
    if (in.mask) {
        host.add(in.mask.get(), "mask");
        host.run({"isosurface", "mask", "connect", "mask"}, "the module does not take the mask");
        host.run({"isosurface", "maskRestrictionType", "setIndex", o.relaxed ? "1" : "0"},
                 "cannot set --relaxed");
    }
    host.run({"isosurface", "options", "setValue", "0", o.compactify ? "1" : "0"}, "cannot set --compactify");
    setThreshold(host, o.threshold);
    if (o.cores)
        host.run({"isosurface", "numberOfCores", "setValue", QString::number(o.cores)}, "cannot set --cores");
    if (o.slabs) {
        auto* plan = dynamic_cast<VxSlabPlan*>(host.find("isosurface"));
        if (!plan) throw KxException("the module " + module + " cannot cut its volume into --slabs");
        plan->setSlabCount(std::size_t(o.slabs));
    }
    if (o.downsample[0]) {
        host.run({"isosurface", "downSampleOnOff", "setValue", "1"}, "cannot set --downsample");
        for (int i = 0; i < 3; ++i)
            host.run({"isosurface", "resolution", "setValue", QString::number(i),
                      QString::number(o.downsample[i])},
                     "cannot set --downsample");
    }
}

void printRun(const VxisoOptions& o, const VxExtractionReport::Figures& run)
{
    std::printf("Elapsed time: %.3f s\n", run.seconds);
    if (!o.verbose) return;
    if (o.blocks)
        std::printf("extracted from: %zu blocks, one after the other\n", run.slabs);
    else
        std::printf("extracted from: %lld x %lld x %lld nodes\n", (long long)run.nodes.nx,
                    (long long)run.nodes.ny, (long long)run.nodes.nz);
    const int axis = run.splitAxis;
    std::printf("split axis: %s\n", axis < 0 ? "none (sequential)" : axis == 0 ? "x" : axis == 1 ? "y" : "z");
    if (!o.blocks) std::printf("slabs: %zu\n", run.slabs);
    std::printf("engine time: %.3f ms\n", run.seconds * 1000.0);
}

// The value range of blocks and meshes, whose values need no checks beyond it.
bool rangeBesidesVolumes(const VxSpatialData& data, double& lo, double& hi)
{
    if (const auto* blocks = kx_type_cast<VxBlockStructuredScalarField3>(&data))
        return blocks->getRange(lo, hi);
    if (const auto* tetra = kx_type_cast<VxTetraScalarField3>(&data)) return tetra->getRange(lo, hi);
    if (const auto* hexa = kx_type_cast<VxHexaScalarField3>(&data)) return hexa->getRange(lo, hi);
    return false;
}

// What the values do to the surface that the user may not expect; one pass over them for the range,
// a second only where the range leaves infinities or rounding possible.
void warnAboutValues(const VxisoOptions& o, const VxSpatialData& data)
{
    if (o.labels) return;
    double lo = 0, hi = 0;
    const auto* field = kx_type_cast<VxRegScalarField3>(&data);
    if (!field) {
        if (rangeBesidesVolumes(data, lo, hi)) warnOutsideRange(o.threshold, lo, hi);
        return;
    }
    if (!field->getRange(lo, hi, VxRegScalarField3::RANGE_SKIP_UNDEFINED)) return;
    const VxValueChecks checks = VxValueChecks::of(*field, o.threshold, lo, hi);
    for (const QString& warning : {checks.infinities, checks.precision})
        if (!warning.isEmpty()) std::fprintf(stderr, "vxiso: warning: %s\n", qPrintable(warning));
    warnOutsideRange(o.threshold, lo, hi);
}

// Why the module failed, in one line: the cause it recorded, else its error texts; empty when it
// reported no error.
QString moduleFailure(VxHostSession& host)
{
    const QStringList& errors = VxApplication::instance()->message()->errors();
    if (errors.isEmpty()) return QString();
    const auto* report = dynamic_cast<const VxExtractionReport*>(host.find("isosurface"));
    const QString cause = report ? report->lastFailure() : QString();
    return cause.isEmpty() ? errors.join(' ').simplified() : cause;
}

// Runs the module; a failure becomes one line of this command's own, not the module's dialog text.
void extract(VxHostSession& host, const QString& button, const QString& output)
{
    host.run({"isosurface", button, "hit"}, "the isosurface module did not run");
    host.run({"isosurface", "fire"}, "the isosurface module did not run");
    vxisoPassOnModuleWarnings();
    if (VxApplication::instance()->progress()->wasInterrupted())
        throw KxException(QString("interrupted; %1 was not written").arg(output));
    const QString failure = moduleFailure(host);
    if (!failure.isEmpty()) throw KxException(QString("%1; %2 was not written").arg(failure, output));
}

// The input read and checked for what the user may not expect, made into what the module reads.
VxisoModuleInputs readInputs(VxisoOptions& o)
{
    VxVolumeInfo info;
    KxHandle<VxSpatialData> data = vxisoReadInput(o, info);
    if (!o.volumeFile.empty() && !o.blocks && !o.mesh) warnAboutFile(o, info, *data);
    warnAboutValues(o, *data);
    return vxisoModuleInputs(o, data);
}

// The mesh, then the picture: a picture that cannot be made leaves the mesh written.
void write(VxHostSession& host, const VxisoOptions& o)
{
    const QString output = QString::fromStdString(o.output);
    host.run({"isosurface", "exportData", QFileInfo(output).suffix().toLower() + (o.ascii ? "-ascii" : ""),
              output},
             "");
    if (!o.picture.empty())
        host.run({"snapshot", QString::fromStdString(o.picture), "-view", vxisoNumber(o.view[0]),
                  vxisoNumber(o.view[1]), vxisoNumber(o.view[2]), "-up", vxisoNumber(o.up[0]),
                  vxisoNumber(o.up[1]), vxisoNumber(o.up[2])},
                 QString("cannot draw %1").arg(QString::fromStdString(o.picture)));
}

} // namespace

int vxisoSurface(const std::vector<std::string>& args)
{
    VxisoOptions o = vxisoParseOptions(args, VxisoCommand::Surface);
    vxisoChooseInput(o);
    checkSurfaceOptions(o);
    vxisoRefuseOverwritingInputs(o, {{"-o", &o.output}, {"--png", &o.picture}});
    vxisoCheckWritable(o.output);
    if (!o.picture.empty()) vxisoCheckWritable(o.picture);
    // The engine and the scans of the values (their range) let the scheduler pick its threads; the
    // command line caps them, from the reading of the input on.
    std::unique_ptr<tbb::global_control> cap;
    if (o.cores > 0)
        cap = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                    std::size_t(o.cores));
    const VxisoModuleInputs inputs = readInputs(o);

    // The host as vxhost sets it up, with the one package this command needs. Errors reach the user
    // as one line of the command's own (extract), not as dialog text.
    VxHostSession host;
    VxApplication::instance()->message()->setErrorConsole(nullptr);
    host.loadPackage("libvxiso.so");
    // The cell-grid modules recompute on every port change, so set-up runs them already; only the
    // run that counts speaks.
    VxApplication::instance()->message()->setConsole(nullptr);
    setUpModule(host, o, inputs);
    VxApplication::instance()->message()->setConsole(stdout);
    const auto start = std::chrono::steady_clock::now();
    extract(host, moduleFor(inputs).button, QString::fromStdString(o.output));
    if (o.downsample[0]) noteClampedFactors(host, o);
    const auto* report = dynamic_cast<const VxExtractionReport*>(host.find("isosurface"));
    if (report) {
        printRun(o, report->lastExtraction());
    } else { // the mesh modules keep no report: the module's whole run
        // The tetrahedral module prints no count of its own; the user is told as for every surface.
        const auto* module = dynamic_cast<const VxTriBase*>(host.find("isosurface"));
        if (moduleFor(inputs).type == "VxIsoTetra" && module)
            std::printf("Isosurface contains %d triangles\n", module->getTriSurface()->getNumTriangles());
        std::printf("Elapsed time: %.3f s\n",
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    write(host, o);
    std::fflush(stdout);
    return 0;
}
