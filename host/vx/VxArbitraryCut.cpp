#include <vx/VxApplication.h>
#include <vx/VxArbitraryCut.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxMessage.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>

#include <algorithm>
#include <cmath>

KX_SOURCE(VxArbitraryCut, VxPlanarModBase)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxArbitraryCut", text);
}

// Node spacing per axis (0 where the field has no extent): the lattice's for a regular field, the
// mean spacing of the nodes for other grids.
KxVec3f nodeSpacing(const VxScalarField3& field)
{
    const KxVec3f size = field.getBoundingBox().getSize();
    if (auto* r = kx_type_cast<VxRegScalarField3>(&field))
        return field.getBoundingBox().getVoxelSize(r->getDims());
    double nodes = 0;
    if (auto* b = kx_type_cast<VxBlockStructuredScalarField3>(&field))
        for (int i = 0; i < b->getNumBlocks(); ++i) nodes += double(b->getField(i)->getDims().count());
    if (auto* t = kx_type_cast<VxTetraScalarField3>(&field)) nodes = t->getGrid()->getNumNodes();
    if (auto* h = kx_type_cast<VxHexaScalarField3>(&field)) nodes = h->grid()->getNumNodes();
    double volume = 1;
    int dims = 0;
    for (int a = 0; a < 3; ++a)
        if (size[a] > 0) volume *= size[a], ++dims;
    const float step = nodes > 1 && dims > 0 ? float(std::pow(volume / nodes, 1.0 / dims)) : 0.f;
    return {size.x > 0 ? step : 0.f, size.y > 0 ? step : 0.f, size.z > 0 ? step : 0.f};
}

// Fields that cannot be evaluated between their nodes have nothing to show on a plane.
int evaluable(void*, VxObject* source)
{
    auto* field = kx_type_cast<VxScalarField3>(source);
    return field && field->createLocation() != nullptr;
}

} // namespace

VxArbitraryCut::VxArbitraryCut() : VxArbitraryCut(VxScalarField3::getClassTypeId()) {}

VxArbitraryCut::VxArbitraryCut(const KxTypeInfo* dataType)
    : VxPlanarModBase(dataType), portOrigin(this, tr("Origin"), "origin", 3),
      portNormal(this, tr("Normal"), "normal", 3)
{
    for (int i = 0; i < 3; ++i) {
        portOrigin.setLabel(i, QString(QChar('x' + i)));
        portNormal.setLabel(i, QString(QChar('x' + i)));
    }
    portNormal.setValue(2, 1.f);
    portData.setSourceCheck(evaluable, nullptr);
}

void VxArbitraryCut::update()
{
    VxScalarField3* field = getField();
    if (field && portData.isNew(VxPort::NEW_SOURCE) && !portOrigin.isNew(VxPort::NEW_VALUE)) {
        const KxBox3f b = field->getBoundingBox();
        for (int a = 0; a < 3; ++a) portOrigin.setValue(a, (b.min(a) + b.max(a)) / 2);
    }
}

void VxArbitraryCut::compute()
{
    const SbVec3f o(portOrigin.getValue(0), portOrigin.getValue(1), portOrigin.getValue(2));
    SbVec3f n(portNormal.getValue(0), portNormal.getValue(1), portNormal.getValue(2));
    const float length = n.length();
    if (!getField()) {
        clearPlane();
    } else if (!(length > 0) || !std::isfinite(length)) {
        if (portNormal.isNew())
            VxApplication::instance()->message()->error(
                QString("%1: the normal (%2 %3 %4) has no direction; the slice shows nothing")
                    .arg(getName())
                    .arg(double(n[0]))
                    .arg(double(n[1]))
                    .arg(double(n[2])));
        clearPlane();
    } else {
        n /= length;
        // The x axis seen in the plane, exact for planes through a coordinate axis.
        const SbVec3f axis = std::fabs(n[0]) > 0.9f ? SbVec3f(0, 1, 0) : SbVec3f(1, 0, 0);
        SbVec3f u = axis - n * n.dot(axis);
        u.normalize();
        setPlane(o, u, n.cross(u));
    }
    VxPlanarModBase::compute();
}

SbVec2s VxArbitraryCut::getNativeResolution() const
{
    VxScalarField3* field = getField();
    SbVec3f o, du, dv;
    if (!field || !VxPlanarModBase::getSampling(2, 2, o, du, dv)) return SbVec2s(2, 2);
    const KxVec3f spacing = nodeSpacing(*field);
    auto count = [&](const SbVec3f& side) {
        // Cells crossed along the side: its extent along each axis over that axis's spacing.
        double cells = 0;
        for (int a = 0; a < 3; ++a)
            if (spacing[a] > 0) cells += std::fabs(double(side[a])) / spacing[a];
        return short(std::clamp<double>(std::round(cells) + 1, 2, 4096));
    };
    return SbVec2s(count(du), count(dv));
}

void VxArbitraryCut::getDrawingResolution(int& nu, int& nv) const
{
    const SbVec2s n = getNativeResolution();
    nu = std::min<int>(n[0], 1024), nv = std::min<int>(n[1], 1024);
}
