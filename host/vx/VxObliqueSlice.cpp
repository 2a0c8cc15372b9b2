#include <vx/VxObliqueSlice.h>

#include <algorithm>

KX_SOURCE(VxObliqueSlice, VxArbitraryCut)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxObliqueSlice", text);
}

} // namespace

VxObliqueSlice::VxObliqueSlice()
    : portSampling(this, tr("Sampling"), "sampling"), portResolution(this, tr("Resolution"), "resolution", 2)
{
    portSampling.insertComboBox(0, {tr("coarse"), tr("native"), tr("fine"), tr("custom")}, NATIVE);
    portResolution.setLabel(0, "u");
    portResolution.setLabel(1, "v");
    portResolution.setMinMax(2, 4096);
    portResolution.setValue(0, 256);
    portResolution.setValue(1, 256);
}

void VxObliqueSlice::update()
{
    VxArbitraryCut::update();
    portResolution.setVisible(getSampling() == CUSTOM);
}

void VxObliqueSlice::compute()
{
    if (portSampling.isNew() || (getSampling() == CUSTOM && portResolution.isNew())) planeTouch();
    VxArbitraryCut::compute();
}

SbVec2s VxObliqueSlice::getResolution(int choice) const
{
    const SbVec2s native = getNativeResolution();
    auto scaled = [](int n, double f) { return short(std::clamp<double>((n - 1) * f + 1, 2, 4096)); };
    switch (choice) {
    case COARSE:
        return SbVec2s(scaled(native[0], 0.5), scaled(native[1], 0.5));
    case NATIVE:
        return native;
    case FINE:
        return SbVec2s(scaled(native[0], 2), scaled(native[1], 2));
    case CUSTOM:
        return SbVec2s(short(portResolution.getValue(0)), short(portResolution.getValue(1)));
    default:
        return SbVec2s(0, 0);
    }
}

void VxObliqueSlice::getDrawingResolution(int& nu, int& nv) const
{
    const SbVec2s n = getResolution(getSampling());
    nu = n[0], nv = n[1];
}
