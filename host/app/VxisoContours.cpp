// vxiso contours: the annotated contoured slice (VxAnnotatedIsolines) run through the host, as a
// network script runs it.
#include "VxHostSession.h"
#include "VxisoChecks.h"
#include "VxisoInputs.h"
#include "VxisoSlicing.h"
#include "VxisoSubcommands.h"

#include <io/VxIsolineSvgWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <meshkit/PoMeshContouring.h>
#include <meshkit/PoNonLinearDataMapping.h>
#include <vx/VxApplication.h>
#include <vx/VxArbitraryCut.h>
#include <vx/VxColormap.h>
#include <vx/VxLineSet.h>
#include <vx/VxMessage.h>
#include <vx/VxRangeProviderSpatialData.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QFileInfo>
#include <QImage>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

using meshkit::PoMeshContouring;
using meshkit::PoNonLinearDataMapping;

namespace {

const QString kModule = "contours";

QString number(double v)
{
    return vxisoNumber(v);
}

void checkContourOptions(const VxisoOptions& o)
{
    if (o.labels)
        throw VxisoUsageError{
            "a contoured slice shows the values of a scalar field; --labels reads label volumes"};
    vxisoCheckSliceOptions(o, "a contoured slice is", {"iv", "svg"}, true);
}

// The module's own scene node of a type, in its separator.
template <class Node> Node* findNode(VxHostSession& host)
{
    auto* module = dynamic_cast<VxModule*>(host.find(kModule));
    if (!module) return nullptr;
    SoSearchAction search;
    search.setType(Node::getClassTypeId());
    search.apply(module->getSeparator());
    return search.getPath() ? static_cast<Node*>(search.getPath()->getTail()) : nullptr;
}

// The colour map over the field's range, and the iso values; every value labelled unless --period.
void setUpPorts(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data,
                const std::vector<float>& values)
{
    double lo = 0, hi = 1;
    if (!VxRangeProviderSpatialData::rangeOf(&data, lo, hi) || !(hi > lo)) hi = lo + 1;
    host.run({"create", "VxColormap", "colors"}, "cannot create the colour map");
    host.run({"colors", "setRange", number(lo), number(hi)}, "cannot set the colour map");
    host.run({"colors", "setPreset", QString::fromStdString(o.colormap.empty() ? "viridis" : o.colormap)},
             "cannot set --colormap");
    host.run({kModule, "colormap", "connect", "colors"}, "the module does not take the colour map");

    vxisoSetIsoValuePorts(host, kModule, o, values);

    // Medium: about one sample a cell of the field along the slice's longer side.
    long long resolution = o.resolution;
    if (!resolution) {
        const auto* cut = dynamic_cast<const VxArbitraryCut*>(host.find(kModule));
        const SbVec2s native = cut ? cut->getNativeResolution() : SbVec2s(128, 128);
        const double factor = o.quality == "low" ? 0.5 : o.quality == "high" ? 2 : 1;
        resolution = std::clamp<long long>(std::llround(std::max(native[0], native[1]) * factor), 16, 4096);
    }
    host.run({kModule, "parameters", "setValue", "0", QString::number(resolution)},
             "cannot set --resolution");

    const QString what = "cannot set the labels";
    if (o.annotationsPath >= 0)
        host.run({kModule, "annotationsPath", "setValue", "0", QString::number(o.annotationsPath)}, what);
    if (o.format >= 0) host.run({kModule, "format", "setValue", "0", QString::number(o.format)}, what);
    if (o.decimals >= 0) host.run({kModule, "format", "setValue", "2", QString::number(o.decimals)}, what);
    if (o.haveTenPower) host.run({kModule, "format", "setValue", "4", QString::number(o.tenPower)}, what);
    host.run(
        {kModule, "annotationsPeriod", "setValue", "0", QString::number(o.periodMajor ? o.periodMajor : 1)},
        what);
    host.run(
        {kModule, "annotationsPeriod", "setValue", "1", QString::number(o.periodMajor ? o.periodFirst : 1)},
        what);
    host.run({kModule, "annotationsContourClip", "setValue", "0", o.contourClip ? "1" : "0"}, what);
}

// Runs the module and makes its lines and labels (the kit makes them when the scene is traversed).
PoMeshContouring* contour(VxHostSession& host, const QString& output)
{
    host.run({kModule, "fire"}, "the module did not run");
    vxisoPassOnModuleWarnings();
    const QStringList& errors = VxApplication::instance()->message()->errors();
    if (!errors.isEmpty())
        throw KxException(QString("%1; %2 was not written").arg(errors.join(' ').simplified(), output));
    auto* module = dynamic_cast<VxModule*>(host.find(kModule));
    SoGetBoundingBoxAction traversal{SbViewportRegion()};
    traversal.apply(module->getSeparator());
    PoMeshContouring* contouring = findNode<PoMeshContouring>(host);
    if (!contouring) throw KxException("the module has no contour lines");
    return contouring;
}

void report(const VxisoOptions& o, const PoMeshContouring& c, const std::vector<float>& values,
            double seconds)
{
    std::size_t points = 0;
    for (const auto& line : c.getLines()) points += line.points.size();
    std::printf("Contour lines: %zu lines, %zu points, %zu labels at %zu iso value%s\n", c.getLines().size(),
                points, c.getLabels().size(), values.size(), values.size() == 1 ? "" : "s");
    if (o.verbose)
        for (float v : values) {
            std::size_t lines = 0, labels = 0;
            for (const auto& line : c.getLines()) lines += line.value == v;
            for (const auto& label : c.getLabels())
                labels += label.text == c.getNumericDisplayFormat().format(double(v));
            std::printf("  %g: %zu lines, %zu labels\n", double(v), lines, labels);
        }
    std::printf("Elapsed time: %.3f s\n", seconds);
}

void writeSvg(VxHostSession& host, const PoMeshContouring& c, const std::vector<float>& values,
              const VxisoOptions& o)
{
    const QString output = QString::fromStdString(o.output);
    VxIsolineSvg svg;
    svg.front = true;
    const auto* slice = dynamic_cast<const VxPlanarModBase*>(host.find(kModule));
    if (!slice || !slice->getDrawing(svg.picture, svg.corner, svg.uSide, svg.vSide))
        throw KxException(QString("cannot write %1: the slice misses the field").arg(output));
    const PoNonLinearDataMapping* mapping = findNode<PoNonLinearDataMapping>(host);
    for (float v : values) {
        svg.values.push_back(v);
        uint32_t line = 0x000000ffu;
        for (const auto& l : c.getLines())
            if (l.value == v) line = l.color;
        svg.colors.push_back(line);
        svg.legendColors.push_back(mapping ? mapping->getColor(v).getPackedValue() : line);
    }
    for (const auto& l : c.getLabels())
        svg.labels.push_back({l.centre, l.baseline, QString::fromStdString(l.text), l.height, l.color});
    VxLineSet lines(0, 0, 1);
    for (const auto& l : c.getLines()) {
        std::vector<int> indices;
        for (const SbVec3f& p : l.points) {
            const int i = lines.getNumPoints();
            lines.setNumPoints(i + 1);
            lines.setPoint(i, p[0], p[1], p[2]);
            indices.push_back(i);
        }
        lines.addLine(indices.data(), int(indices.size()));
        lines.getLineData(0)[lines.getNumLines() - 1] = l.value;
    }
    const std::string& input =
        o.volumeFile.empty() ? (o.rawFile.empty() ? o.fieldName : o.rawFile) : o.volumeFile;
    svg.title = QString("contoured slice of %1").arg(QFileInfo(QString::fromStdString(input)).fileName());
    QString error;
    if (!svg.write(lines, output, &error)) throw KxException(error);
}

} // namespace

int vxisoContours(const std::vector<std::string>& args)
{
    VxisoOptions o = vxisoParseOptions(args, VxisoCommand::Contours);
    vxisoChooseInput(o);
    checkContourOptions(o);
    const KxHandle<VxSpatialData> data = vxisoReadField(o);
    const std::vector<float> values = vxisoIsoValues(o);

    VxHostSession host;
    vxisoStartHost(host, data.get());
    vxisoSetUpSlice(host, o, *data, "VxAnnotatedIsolines", kModule, false);
    const auto* slice = dynamic_cast<const VxPlanarModBase*>(host.find(kModule));
    QImage drawing;
    SbVec3f corner, uSide, vSide;
    if (!slice || !slice->getDrawing(drawing, corner, uSide, vSide))
        std::fprintf(stderr, "vxiso: warning: the plane misses the field; there are no lines\n");
    setUpPorts(host, o, *data, values);
    const auto start = std::chrono::steady_clock::now();
    const QString output = QString::fromStdString(o.output.empty() ? o.picture : o.output);
    PoMeshContouring* contouring = contour(host, output);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    VxApplication::instance()->message()->setConsole(stdout);
    report(o, *contouring, values, seconds);

    const QString format = QFileInfo(QString::fromStdString(o.output)).suffix().toLower();
    if (format == "iv")
        vxisoWriteScene(dynamic_cast<VxModule*>(host.find(kModule))->getSeparator(),
                        QString::fromStdString(o.output));
    else if (format == "svg")
        writeSvg(host, *contouring, values, o);
    if (!o.picture.empty()) vxisoDrawPicture(host, o, slice, true);
    std::fflush(stdout);
    return 0;
}
