// vxiso isolines: the isoline module on a slice, run through the host as a network script runs it
// (examples/isolines-head.tcl is the same network).
#include "VxHostSession.h"
#include "VxisoChecks.h"
#include "VxisoInputs.h"
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
    if (!o.sliceAxis == !o.havePlane)
        throw VxisoUsageError{o.havePlane
                                  ? "give either --slice or --plane, not both"
                                  : "no slice: give --slice x|y|z [INDEX] or --plane OX OY OZ NX NY NZ"};
    if (o.isoValues.empty() == !o.haveUniform)
        throw VxisoUsageError{o.haveUniform ? "give either --values or --uniform, not both"
                                            : "no iso values: give --values V... or --uniform MIN MAX N"};
    if (!o.annotate && (o.every || o.cameraAligned || o.contourClip || o.textScale > 0 ||
                        o.textSpacing >= 0 || !o.fontName.empty()))
        throw VxisoUsageError{"--every, --camera-aligned, --contour-clip, --text-scale, --text-spacing and "
                              "--font shape the labels of --annotate"};
    if (o.resolution && !o.quality.empty())
        throw VxisoUsageError{"give either --resolution or --quality, not both"};
    if (o.havePlane) {
        const double* n = o.planeNormal;
        const float length =
            std::sqrt(float(n[0]) * float(n[0]) + float(n[1]) * float(n[1]) + float(n[2]) * float(n[2]));
        if (!(length > 0) || !std::isfinite(length))
            throw VxisoUsageError{"--plane: the normal " + number(n[0]).toStdString() + " " +
                                  number(n[1]).toStdString() + " " + number(n[2]).toStdString() +
                                  " has no direction: give three numbers, not all 0"};
    }
    if (o.output.empty()) throw VxisoUsageError{"no output: give -o FILE"};
    const QString format = outputFormat(o);
    if (format != "vtk" && format != "iv" && format != "svg")
        throw VxisoUsageError{"cannot write '" + o.output +
                              "': contour lines are written as .vtk, .iv or .svg"};
    vxisoCheckPicture(o);
}

// The iso values as the module computes them from its ports (in single precision, as it does).
std::vector<float> isoValues(const VxisoOptions& o)
{
    std::vector<float> values;
    for (double v : o.isoValues) values.push_back(float(v));
    if (!o.haveUniform) return values;
    const float min = float(o.uniformMin), max = float(o.uniformMax);
    const int n = int(o.uniformCount);
    for (int i = 0; i < n; ++i) values.push_back(n == 1 ? min : float(i) / float(n - 1) * (max - min) + min);
    return values;
}

// A lattice an ortho slice can cut through its nodes; null for other fields.
const VxRegScalarField3* orthoLattice(const VxSpatialData& data)
{
    const auto* field = kx_type_cast<VxRegScalarField3>(&data);
    return field && (field->coordType() == VX_COORD_UNIFORM || field->coordType() == VX_COORD_RECTILINEAR)
               ? field
               : nullptr;
}

// The slice: an ortho slice through a lattice's nodes, else a cut through the middle of the field
// (or through the plane given) that any field the module takes can be sampled on.
void setUpSlice(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data)
{
    const VxRegScalarField3* lattice = o.sliceAxis ? orthoLattice(data) : nullptr;
    if (lattice) {
        const int axis = o.sliceAxis - 'x';
        const long long nodes = lattice->getDims()[axis];
        if (o.sliceIndex >= nodes)
            throw VxisoUsageError{"--slice " + std::string(1, o.sliceAxis) + " " +
                                  std::to_string(o.sliceIndex) + ": the volume has " + std::to_string(nodes) +
                                  " nodes along " + std::string(1, o.sliceAxis) + " (0 to " +
                                  std::to_string(nodes - 1) + ")"};
        host.run({"create", "VxOrthoSlice", "slice"}, "cannot create the slice");
        host.run({"slice", "data", "connect", "volume"}, "the slice does not take the volume");
        // Orientations xy, xz, yz: the normal along z, y, x.
        host.run({"slice", "sliceOrientation", "setValue", QString::number(2 - axis)}, "cannot set --slice");
        const long long index = o.sliceIndex >= 0 ? o.sliceIndex : nodes / 2;
        host.run({"slice", "sliceNumber", "setValue", QString::number(index)}, "cannot set --slice");
        host.run({"slice", "fire"}, "the slice did not run");
        return;
    }
    if (o.sliceIndex >= 0)
        throw VxisoUsageError{"--slice " + std::string(1, o.sliceAxis) +
                              " INDEX counts the nodes of a uniform or rectilinear volume; this input has "
                              "none: leave INDEX out for the middle, or give --plane"};
    double origin[3], normal[3] = {0, 0, 0};
    const KxBox3f box = data.getBoundingBox();
    if (o.havePlane) {
        std::copy(o.planeOrigin, o.planeOrigin + 3, origin);
        std::copy(o.planeNormal, o.planeNormal + 3, normal);
    } else {
        for (int a = 0; a < 3; ++a) origin[a] = (double(box.min(a)) + box.max(a)) / 2;
        // The normals of the ortho slices, so that u and v run as they do there.
        normal[o.sliceAxis - 'x'] = o.sliceAxis == 'y' ? -1 : 1;
    }
    host.run({"create", "VxArbitraryCut", "slice"}, "cannot create the slice");
    host.run({"slice", "data", "connect", "volume"}, "the slice does not take the input");
    for (int a = 0; a < 3; ++a) {
        host.run({"slice", "origin", "setValue", QString::number(a), number(origin[a])},
                 "cannot set --plane");
        host.run({"slice", "normal", "setValue", QString::number(a), number(normal[a])},
                 "cannot set --plane");
    }
    host.run({"slice", "fire"}, "the slice did not run");
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
    host.run({"colors", "setSamples", "0.19 0.07 0.55 1", "0.16 0.45 0.95 1", "0.1 0.75 0.75 1",
              "0.45 0.85 0.2 1", "0.95 0.75 0.1 1", "0.9 0.3 0.05 1", "0.55 0.02 0.02 1"},
             "cannot set the colour map");
}

// A slider set beyond its range widens it, as a script would with "setMinMax".
void setSlider(VxHostSession& host, const QString& port, double value, const QString& what)
{
    const double min = host.run({"contours", port, "getMinValue"}, what).toDouble();
    const double max = host.run({"contours", port, "getMaxValue"}, what).toDouble();
    if (value < min || value > max)
        host.run({"contours", port, "setMinMax", number(std::min(value, min)), number(std::max(value, max))},
                 what);
    host.run({"contours", port, "setValue", number(value)}, what);
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
    setSlider(host, "textScale", o.textScale > 0 ? o.textScale : width / 300, "cannot set --text-scale");
    setSlider(host, "textSpacing", o.textSpacing >= 0 ? o.textSpacing : width / 8,
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
    if (o.haveUniform) {
        host.run({"contours", "spacing", "setValue", "0"}, "cannot set --uniform");
        const QString settings[3] = {number(o.uniformMin), number(o.uniformMax),
                                     QString::number(o.uniformCount)};
        for (int i = 0; i < 3; ++i)
            host.run({"contours", "uniform", "setValue", QString::number(i), settings[i]},
                     "cannot set --uniform");
    } else {
        QStringList words;
        for (float v : values) words << number(v);
        host.run({"contours", "spacing", "setValue", "1"}, "cannot set --values");
        host.run({"contours", "explicit", "setValue", words.join(' ')}, "cannot set --values");
    }

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
    SoNode* scene = module ? module->getOverlayNode() : nullptr;
    if (!scene) throw KxException(QString("cannot write %1: the isoline module has no scene").arg(path));
    QString error;
    KxTempFile file(path);
    if (!file.open(&error)) throw KxException(error);
    VxChunkWriter w(file.fd());
    VxInventorWriter::write(scene, w);
    if (!w.flush()) file.fail(&error, w.error());
    if (!w.ok() || !file.commit(&error)) throw KxException(error);
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

// Straight at the slice from the side its labels are written on (along its normal, as the SVG
// drawing shows it: v up, u to the left), unless the command line chose.
void drawPicture(VxHostSession& host, VxisoOptions o)
{
    const auto* slice = dynamic_cast<const VxPlanarModBase*>(host.find("slice"));
    if (!o.haveView && slice && slice->hasPlane()) {
        SbMatrix m;
        slice->getTransform(m);
        SbVec3f view, up;
        m.multDirMatrix(slice->normal(), view);
        m.multDirMatrix(slice->vVec(), up);
        for (int a = 0; a < 3; ++a) o.view[a] = view[a], o.up[a] = up[a];
    }
    host.run({"snapshot", QString::fromStdString(o.picture), "-view", number(o.view[0]), number(o.view[1]),
              number(o.view[2]), "-up", number(o.up[0]), number(o.up[1]), number(o.up[2])},
             QString("cannot draw %1").arg(QString::fromStdString(o.picture)));
}

} // namespace

int vxisoIsolines(const std::vector<std::string>& args)
{
    VxisoOptions o = vxisoParseOptions(args, VxisoCommand::Isolines);
    vxisoChooseInput(o);
    checkIsolineOptions(o);
    vxisoRefuseOverwritingInputs(o, {{"-o", &o.output}, {"--png", &o.picture}});
    vxisoCheckWritable(o.output);
    if (!o.picture.empty()) vxisoCheckWritable(o.picture);
    VxVolumeInfo info;
    const KxHandle<VxSpatialData> data = vxisoReadInput(o, info);
    if (!kx_type_cast<VxScalarField3>(data.get()))
        throw KxException(QString("%1 holds no scalar field").arg(QString::fromStdString(o.inputs.at(0))));
    const std::vector<float> values = isoValues(o);

    VxHostSession host;
    VxApplication::instance()->message()->setErrorConsole(nullptr);
    host.loadPackage("libvxiso.so");
    VxApplication::instance()->message()->setConsole(nullptr);
    host.add(data.get(), "volume");
    setUpSlice(host, o, *data);
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
    if (!o.picture.empty()) drawPicture(host, o);
    std::fflush(stdout);
    return 0;
}
