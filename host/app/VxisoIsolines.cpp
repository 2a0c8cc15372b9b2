// vxiso isolines: the isoline module on a slice, run through the host as a network script runs it
// (examples/isolines-head.tcl is the same network).
#include "VxHostSession.h"
#include "VxisoChecks.h"
#include "VxisoInputs.h"
#include "VxisoSlicing.h"
#include "VxisoSubcommands.h"

#include <io/VxChunkWriter.h>
#include <io/VxInventorWriter.h>
#include <io/VxIsolineSvgWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <kx/KxTempFile.h>
#include <vx/VxApplication.h>
#include <vx/VxArbitraryCut.h>
#include <vx/VxColormap.h>
#include <vx/VxLineSet.h>
#include <vx/VxMessage.h>
#include <vx/VxOverlayModule.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/SoPath.h>
#include <Inventor/actions/SoGetMatrixAction.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/lists/SoPathList.h>
#include <Inventor/nodes/SoFont.h>
#include <Inventor/nodes/SoGroup.h>
#include <Inventor/nodes/SoMaterial.h>
#include <Inventor/nodes/SoText3.h>

#include <QFileInfo>
#include <QImage>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>

namespace {

QString number(double v)
{
    return vxisoNumber(v);
}

QString outputFormat(const VxisoOptions& o)
{
    return QFileInfo(QString::fromStdString(o.output)).suffix().toLower();
}

void checkIsolineOptions(const VxisoOptions& o)
{
    if (o.labels)
        throw VxisoUsageError{
            "contour lines follow the values of a scalar field; --labels reads label volumes"};
    if (!o.annotate && (o.every || o.cameraAligned || o.contourClip || o.textScale > 0 ||
                        o.textSpacing >= 0 || !o.fontName.empty()))
        throw VxisoUsageError{"--every, --camera-aligned, --contour-clip, --text-scale, --text-spacing and "
                              "--font shape the labels of --annotate"};
    vxisoCheckSliceOptions(o, "contour lines are", {"vtk", "iv", "svg"});
}

// Colours from dark blue through green and yellow to dark red, spread over the iso values: lines of
// neighbouring values stay apart on a grey slice and on white paper.
void setUpColormap(VxHostSession& host, const std::vector<float>& values)
{
    float lo = *std::min_element(values.begin(), values.end());
    float hi = *std::max_element(values.begin(), values.end());
    if (!(hi > lo)) lo -= 0.5f, hi += 0.5f;
    host.run({"create", "VxColormap", "colors"}, "cannot create the colour map");
    host.run({"colors", "setRange", number(lo), number(hi)}, "cannot set the colour map");
    host.run({"colors", "setPreset", "rainbow"}, "cannot set the colour map");
}

// The labels: every value unless --every, along the lines unless --camera-aligned, a labelled
// line's next label an eighth of the field's width on unless --text-spacing, in white.
void setUpLabels(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data)
{
    const QString what = "cannot set --annotate";
    host.run({"contours", "textAlignment", "setValue", "0", o.cameraAligned ? "1" : "0"}, what);
    host.run({"contours", "textAlignment", "setValue", "1", o.contourClip ? "1" : "0"}, what);
    host.run({"contours", "annotateEvery", "setValue", "0", QString::number(o.every ? o.every : 1)}, what);
    host.run({"contours", "annotateEvery", "setValue", "1", QString::number(o.every ? o.everyStart : 1)},
             what);
    host.run({"contours", "font", "setFont",
              QString::fromStdString(o.fontName.empty() ? "DejaVu Sans" : o.fontName),
              QString::number(o.fontSize ? o.fontSize : 12)},
             "cannot set --font");
    // White, and twice the module's size: readable over the slice's greys and the lines' colours
    // in a picture of the whole slice.
    host.run({"contours", "font", "setFontColor", "1", "1", "1"}, "cannot set --font");
    const KxBox3f box = data.getBoundingBox();
    const double width = std::min(box.max(0) - box.min(0), box.max(1) - box.min(1));
    vxisoSetSlider(host, "contours", "textScale", o.textScale > 0 ? o.textScale : width / 300,
                   "cannot set --text-scale");
    vxisoSetSlider(host, "contours", "textSpacing", o.textSpacing >= 0 ? o.textSpacing : width / 8,
                   "cannot set --text-spacing");
    // Last: the labels are made once, with everything set.
    host.run({"contours", "annotateOnOff", "setValue", "1"}, what);
}

void setUpContours(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data,
                   const std::vector<float>& values)
{
    host.run({"create", "VxIsolines", "contours"}, "cannot create the isoline module");
    host.run({"contours", "data", "connect", "volume"}, "the isoline module does not take the input");
    host.run({"contours", "slice", "connect", "slice"}, "the isoline module does not take the slice");
    setUpColormap(host, values);
    host.run({"contours", "colormap", "connect", "colors"},
             "the isoline module does not take the colour map");
    vxisoSetIsoValuePorts(host, "contours", o, values);

    if (o.annotate) setUpLabels(host, o, data);

    // A tetrahedral mesh is cut cell by cell, unless a resolution asks for sampling.
    if (kx_type_cast<VxTetraScalarField3>(&data)) {
        host.run({"contours", "options", "setValue", "1", o.resolution ? "1" : "0"},
                 "cannot set --resolution");
        if (!o.resolution) return;
    }
    const int custom = 3, level = o.quality == "low" ? 0 : o.quality == "high" ? 2 : 1;
    long long resolution = o.resolution;
    const auto* lattice = kx_type_cast<VxUniformScalarField3>(&data);
    if (!resolution && !(o.sliceAxis && lattice)) {
        // The module finds the resolution of a slice through a uniform lattice's nodes itself;
        // elsewhere the cut's own estimate of one sample per cell stands for "medium".
        const auto* cut = dynamic_cast<const VxArbitraryCut*>(host.find("slice"));
        const SbVec2s native = cut ? cut->getNativeResolution() : SbVec2s(128, 128);
        const double factor = level == 0 ? 0.5 : level == 2 ? 2 : 1;
        resolution = std::clamp<long long>(std::llround(std::max(native[0], native[1]) * factor), 16, 4096);
    }
    if (resolution) {
        host.run({"contours", "quality", "setValue", QString::number(custom)}, "cannot set --resolution");
        host.run({"contours", "parameters", "setValue", "0", QString::number(resolution)},
                 "cannot set --resolution");
    } else {
        host.run({"contours", "quality", "setValue", QString::number(level)}, "cannot set --quality");
    }
}

// Runs the module; its errors become one line of this command's own.
void contour(VxHostSession& host, const QString& output)
{
    host.run({"contours", "fire"}, "the isoline module did not run");
    vxisoPassOnModuleWarnings();
    const QStringList& errors = VxApplication::instance()->message()->errors();
    if (!errors.isEmpty())
        throw KxException(QString("%1; %2 was not written").arg(errors.join(' ').simplified(), output));
}

// The lines as a line set in the host, under the name it gives them.
VxLineSet* exportLines(VxHostSession& host, QString& name)
{
    name = host.run({"contours", "exportAsLineSet"}, "cannot take the lines");
    auto* lines = kx_type_cast<VxLineSet>(host.find(name));
    if (!lines) throw KxException("the isoline module gave no lines");
    return lines;
}

void report(const VxisoOptions& o, const VxLineSet& lines, const std::vector<float>& values, double seconds)
{
    std::map<float, std::pair<int, long long>> perValue; // lines and points
    long long points = 0;
    for (int l = 0; l < lines.getNumLines(); ++l) {
        auto& counts = perValue[lines.getLineData(0)[l]];
        ++counts.first;
        counts.second += (long long)lines.getLine(l).size();
        points += (long long)lines.getLine(l).size();
    }
    std::printf("Contour lines: %d lines, %lld points at %zu iso value%s\n", lines.getNumLines(), points,
                values.size(), values.size() == 1 ? "" : "s");
    if (o.verbose)
        for (float v : values) {
            const auto found = perValue.find(v);
            const auto counts = found == perValue.end() ? std::make_pair(0, 0LL) : found->second;
            std::printf("  %g: %d lines, %lld points\n", double(v), counts.first, counts.second);
        }
    std::printf("Elapsed time: %.3f s\n", seconds);
}

// The module's scene as an Open Inventor file.
void writeScene(VxHostSession& host, const QString& path)
{
    const auto* module = dynamic_cast<const VxOverlayModule*>(host.find("contours"));
    vxisoWriteScene(module ? module->getOverlayNode() : nullptr, path);
}

// The labels in the module's scene, in the slice's frame: each is a text node under the
// transformations that place it, with the font and material of its separator.
std::vector<VxIsolineSvg::Label> labelsOf(SoNode* scene)
{
    std::vector<VxIsolineSvg::Label> labels;
    if (!scene) return labels;
    SoSearchAction search;
    search.setType(SoText3::getClassTypeId());
    search.setInterest(SoSearchAction::ALL);
    search.apply(scene);
    const SoPathList& paths = search.getPaths();
    for (int i = 0; i < paths.getLength(); ++i) {
        const SoPath* path = paths[i];
        const auto* text = static_cast<const SoText3*>(path->getTail());
        if (path->getLength() < 3 || text->string.getNum() == 0) continue;
        // The label's separator hangs in the separator that holds the font and the colour.
        const auto* group = dynamic_cast<const SoGroup*>(path->getNodeFromTail(2));
        float size = 10;
        uint32_t color = 0x000000ffu;
        for (int c = 0; group && c < group->getNumChildren(); ++c) {
            const SoNode* child = group->getChild(c);
            if (child->isOfType(SoFont::getClassTypeId()))
                size = static_cast<const SoFont*>(child)->size.getValue();
            if (child->isOfType(SoMaterial::getClassTypeId()))
                color = static_cast<const SoMaterial*>(child)->diffuseColor[0].getPackedValue();
        }
        SoGetMatrixAction matrix{SbViewportRegion()};
        matrix.apply(const_cast<SoPath*>(path));
        const SbMatrix& m = matrix.getMatrix();
        VxIsolineSvg::Label label;
        m.multVecMatrix(SbVec3f(0, 0, 0), label.anchor);
        SbVec3f up;
        m.multDirMatrix(SbVec3f(0, 1, 0), up);
        m.multDirMatrix(SbVec3f(1, 0, 0), label.baseline);
        label.baseline.normalize();
        // Text that faces the viewer is drawn upright, whatever its transformations say.
        if (text->getTypeId().getName() == SbName("Text3FacingCamera")) label.baseline = SbVec3f(0, 0, 0);
        label.text = QString::fromUtf8(text->string[0].getString());
        label.height = size * up.length();
        label.color = color;
        labels.push_back(label);
    }
    return labels;
}

void writeSvg(VxHostSession& host, const VxLineSet& lines, const std::vector<float>& values,
              const VxisoOptions& o)
{
    VxIsolineSvg svg;
    const auto* module = dynamic_cast<const VxOverlayModule*>(host.find("contours"));
    svg.labels = labelsOf(module ? module->getOverlayNode() : nullptr);
    const auto* slice = dynamic_cast<const VxPlanarModBase*>(host.find("slice"));
    if (!slice || !slice->getDrawing(svg.picture, svg.corner, svg.uSide, svg.vSide))
        throw KxException(
            QString("cannot write %1: the slice misses the field").arg(QString::fromStdString(o.output)));
    const auto* colors = kx_type_cast<VxColormap>(host.find("colors"));
    for (float v : values) {
        const VxColormap::RGBA c = colors->getRGBA(v);
        auto byte = [](float x) { return uint32_t(std::lround(std::clamp(x, 0.f, 1.f) * 255)); };
        svg.values.push_back(v);
        svg.colors.push_back(byte(c.r) << 24 | byte(c.g) << 16 | byte(c.b) << 8 | 255u);
    }
    const std::string& input =
        o.volumeFile.empty() ? (o.rawFile.empty() ? o.fieldName : o.rawFile) : o.volumeFile;
    svg.title = QString("contour lines of %1").arg(QFileInfo(QString::fromStdString(input)).fileName());
    QString error;
    if (!svg.write(lines, QString::fromStdString(o.output), &error)) throw KxException(error);
}

} // namespace

int vxisoIsolines(const std::vector<std::string>& args)
{
    VxisoOptions o = vxisoParseOptions(args, VxisoCommand::Isolines);
    vxisoChooseInput(o);
    checkIsolineOptions(o);
    const KxHandle<VxSpatialData> data = vxisoReadField(o);
    const std::vector<float> values = vxisoIsoValues(o);

    VxHostSession host;
    vxisoStartHost(host, data.get());
    vxisoSetUpSlice(host, o, *data, "VxArbitraryCut", "slice", true);
    const auto* slice = dynamic_cast<const VxPlanarModBase*>(host.find("slice"));
    QImage drawing;
    SbVec3f corner, uSide, vSide;
    if (!slice || !slice->getDrawing(drawing, corner, uSide, vSide))
        std::fprintf(stderr, "vxiso: warning: the plane misses the field; there are no lines\n");
    setUpContours(host, o, *data, values);
    const auto start = std::chrono::steady_clock::now();
    contour(host, QString::fromStdString(o.output));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    VxApplication::instance()->message()->setConsole(stdout);

    QString name;
    const VxLineSet* lines = exportLines(host, name);
    report(o, *lines, values, seconds);
    const QString output = QString::fromStdString(o.output), format = outputFormat(o);
    if (format == "vtk")
        host.run({name, "exportData", "vtk", output}, "");
    else if (format == "iv")
        writeScene(host, output);
    else
        writeSvg(host, *lines, values, o);
    if (!o.picture.empty())
        vxisoDrawPicture(host, o, dynamic_cast<const VxPlanarModBase*>(host.find("slice")), false);
    std::fflush(stdout);
    return 0;
}
