#include "VxisoSlicing.h"

#include "VxHostSession.h"
#include "VxisoChecks.h"
#include "VxisoInputs.h"

#include <io/VxChunkWriter.h>
#include <io/VxInventorWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <kx/KxTempFile.h>
#include <vx/VxApplication.h>
#include <vx/VxMessage.h>
#include <vx/VxPlanarModBase.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace {

QString number(double v)
{
    return vxisoNumber(v);
}

std::string axisName(char axis)
{
    return std::string(1, axis);
}

} // namespace

void vxisoCheckSliceOptions(const VxisoOptions& o, const char* what, const QStringList& formats,
                            bool pictureWillDo)
{
    if (!o.sliceAxis == !o.havePlane)
        throw VxisoUsageError{o.havePlane
                                  ? "give either --slice or --plane, not both"
                                  : "no slice: give --slice x|y|z [INDEX] or --plane OX OY OZ NX NY NZ"};
    if (o.isoValues.empty() == !o.haveUniform)
        throw VxisoUsageError{o.haveUniform ? "give either --values or --uniform, not both"
                                            : "no iso values: give --values V... or --uniform MIN MAX N"};
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
    if (o.output.empty() && !(pictureWillDo && !o.picture.empty()))
        throw VxisoUsageError{pictureWillDo ? "no output: give -o FILE or --png PICTURE"
                                            : "no output: give -o FILE"};
    if (!o.output.empty() &&
        !formats.contains(QFileInfo(QString::fromStdString(o.output)).suffix().toLower())) {
        QStringList dotted;
        for (const QString& f : formats) dotted << "." + f;
        const QString last = dotted.takeLast();
        throw VxisoUsageError{"cannot write '" + o.output + "': " + what + " written as " +
                              (dotted.join(", ") + " or " + last).toStdString()};
    }
    vxisoCheckPicture(o);
}

std::vector<float> vxisoIsoValues(const VxisoOptions& o)
{
    std::vector<float> values;
    for (double v : o.isoValues) values.push_back(float(v));
    if (!o.haveUniform) return values;
    const float min = float(o.uniformMin), max = float(o.uniformMax);
    const int n = int(o.uniformCount);
    for (int i = 0; i < n; ++i) values.push_back(n == 1 ? min : float(i) / float(n - 1) * (max - min) + min);
    return values;
}

const VxRegScalarField3* vxisoOrthoLattice(const VxSpatialData& data)
{
    const auto* field = kx_type_cast<VxRegScalarField3>(&data);
    return field && (field->coordType() == VX_COORD_UNIFORM || field->coordType() == VX_COORD_RECTILINEAR)
               ? field
               : nullptr;
}

void vxisoSetUpSlice(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data,
                     const QString& cut, const QString& name, bool ortho)
{
    const VxRegScalarField3* lattice = o.sliceAxis ? vxisoOrthoLattice(data) : nullptr;
    const int axis = o.sliceAxis ? o.sliceAxis - 'x' : 0;
    long long index = -1;
    if (lattice) {
        const long long nodes = lattice->getDims()[axis];
        if (o.sliceIndex >= nodes)
            throw VxisoUsageError{"--slice " + axisName(o.sliceAxis) + " " + std::to_string(o.sliceIndex) +
                                  ": the volume has " + std::to_string(nodes) + " nodes along " +
                                  axisName(o.sliceAxis) + " (0 to " + std::to_string(nodes - 1) + ")"};
        index = o.sliceIndex >= 0 ? o.sliceIndex : nodes / 2;
    } else if (o.sliceIndex >= 0) {
        throw VxisoUsageError{"--slice " + axisName(o.sliceAxis) +
                              " INDEX counts the nodes of a uniform or rectilinear volume; this input has "
                              "none: leave INDEX out for the middle, or give --plane"};
    }
    if (lattice && ortho) {
        host.run({"create", "VxOrthoSlice", name}, "cannot create the slice");
        host.run({name, "data", "connect", "volume"}, "the slice does not take the volume");
        // Orientations xy, xz, yz: the normal along z, y, x.
        host.run({name, "sliceOrientation", "setValue", QString::number(2 - axis)}, "cannot set --slice");
        host.run({name, "sliceNumber", "setValue", QString::number(index)}, "cannot set --slice");
        host.run({name, "fire"}, "the slice did not run");
        return;
    }
    double origin[3], normal[3] = {0, 0, 0};
    const KxBox3f box = data.getBoundingBox();
    if (o.havePlane) {
        std::copy(o.planeOrigin, o.planeOrigin + 3, origin);
        std::copy(o.planeNormal, o.planeNormal + 3, normal);
    } else {
        for (int a = 0; a < 3; ++a) origin[a] = (double(box.min(a)) + box.max(a)) / 2;
        // Through the node, where there are nodes.
        if (lattice) {
            int64_t ijk[3] = {0, 0, 0};
            ijk[axis] = index;
            origin[axis] = lattice->lattice().coords()->pos(ijk[0], ijk[1], ijk[2])[axis];
        }
        // The normals of the ortho slices, so that u and v run as they do there.
        normal[axis] = o.sliceAxis == 'y' ? -1 : 1;
    }
    host.run({"create", cut, name}, "cannot create the slice");
    host.run({name, "data", "connect", "volume"}, "the slice does not take the input");
    for (int a = 0; a < 3; ++a) {
        host.run({name, "origin", "setValue", QString::number(a), number(origin[a])}, "cannot set --plane");
        host.run({name, "normal", "setValue", QString::number(a), number(normal[a])}, "cannot set --plane");
    }
    host.run({name, "fire"}, "the slice did not run");
}

KxHandle<VxSpatialData> vxisoReadField(const VxisoOptions& o)
{
    vxisoRefuseOverwritingInputs(o, {{"-o", &o.output}, {"--png", &o.picture}});
    if (!o.output.empty()) vxisoCheckWritable(o.output);
    if (!o.picture.empty()) vxisoCheckWritable(o.picture);
    VxVolumeInfo info;
    KxHandle<VxSpatialData> data = vxisoReadInput(o, info);
    if (!kx_type_cast<VxScalarField3>(data.get()))
        throw KxException(QString("%1 holds no scalar field").arg(QString::fromStdString(o.inputs.at(0))));
    return data;
}

void vxisoStartHost(VxHostSession& host, VxSpatialData* data)
{
    VxApplication::instance()->message()->setErrorConsole(nullptr);
    host.loadPackage("libvxiso.so");
    VxApplication::instance()->message()->setConsole(nullptr);
    host.add(data, "volume");
}

void vxisoSetIsoValuePorts(VxHostSession& host, const QString& module, const VxisoOptions& o,
                           const std::vector<float>& values)
{
    if (o.haveUniform) {
        const QString settings[3] = {number(o.uniformMin), number(o.uniformMax),
                                     QString::number(o.uniformCount)};
        host.run({module, "spacing", "setValue", "0"}, "cannot set --uniform");
        for (int i = 0; i < 3; ++i)
            host.run({module, "uniform", "setValue", QString::number(i), settings[i]},
                     "cannot set --uniform");
        return;
    }
    QStringList words;
    for (float v : values) words << number(v);
    host.run({module, "spacing", "setValue", "1"}, "cannot set --values");
    host.run({module, "explicit", "setValue", words.join(' ')}, "cannot set --values");
}

void vxisoSetSlider(VxHostSession& host, const QString& module, const QString& port, double value,
                    const QString& what)
{
    const double min = host.run({module, port, "getMinValue"}, what).toDouble();
    const double max = host.run({module, port, "getMaxValue"}, what).toDouble();
    if (value < min || value > max)
        host.run({module, port, "setMinMax", number(std::min(value, min)), number(std::max(value, max))},
                 what);
    host.run({module, port, "setValue", number(value)}, what);
}

void vxisoWriteScene(SoNode* scene, const QString& path)
{
    if (!scene) throw KxException(QString("cannot write %1: there is no scene").arg(path));
    QString error;
    KxTempFile file(path);
    if (!file.open(&error)) throw KxException(error);
    VxChunkWriter w(file.fd());
    VxInventorWriter::write(scene, w);
    if (!w.flush()) file.fail(&error, w.error());
    if (!w.ok() || !file.commit(&error)) throw KxException(error);
}

void vxisoDrawPicture(VxHostSession& host, VxisoOptions o, const VxPlanarModBase* slice, bool front)
{
    if (!o.haveView && slice && slice->hasPlane()) {
        SbMatrix m;
        slice->getTransform(m);
        SbVec3f view, up;
        m.multDirMatrix(front ? -slice->normal() : slice->normal(), view);
        m.multDirMatrix(slice->vVec(), up);
        for (int a = 0; a < 3; ++a) o.view[a] = view[a], o.up[a] = up[a];
    }
    host.run({"snapshot", QString::fromStdString(o.picture), "-view", number(o.view[0]), number(o.view[1]),
              number(o.view[2]), "-up", number(o.up[0]), number(o.up[1]), number(o.up[2])},
             QString("cannot draw %1").arg(QString::fromStdString(o.picture)));
}
