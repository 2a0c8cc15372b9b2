#include "TestModules.h"

#include "../support/TestSurfaces.h"

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPreferences.h>

#include <kx/KxException.h>

#include <QCoreApplication>

#include <cstdlib>
#include <cstring>

KX_SOURCE(VxTestSphere, VxTriBase)
KX_SOURCE(VxTestAllPorts, VxModule)

VxTestSphere::VxTestSphere()
    : VxTriBase(VxObject::getClassTypeId()), portRadius(this, "Radius", "radius"),
      portSubdivisions(this, "Subdivisions", "subdivisions"), portDoIt(this, "Action", "doIt")
{
    portData.setOptional(true);
    portRadius.setMinMax(0.1f, 10.f);
    portRadius.setValue(1.f);
    portSubdivisions.setMinMax(0, 5);
    portSubdivisions.setValue(1);
    portDoIt.setLabel(0, "Apply");
}

void VxTestSphere::update()
{
    VxTriBase::update();
}

void VxTestSphere::compute()
{
    VxTriBase::compute();
    if (portRadius.isNew() || portSubdivisions.isNew()) computed = false;
    if (!portDoIt.wasHit(0) || computed) return;
    TestMesh mesh = makeIcosphere(portSubdivisions.getValue());
    for (float& x : mesh.coords) x *= portRadius.getValue();
    m_surface->adoptCoords(mesh.numPoints(), copyToBlock(mesh.coords));
    m_surface->adoptNormals(mesh.numPoints(), copyToBlock(mesh.normals));
    m_surface->adoptTriangles(mesh.numTriangles(), copyToBlock(mesh.triangles));
    VxApplication::instance()->message()->printf("TestSphere contains %d triangles",
                                                 m_surface->getNumTriangles());
    computed = true;
    ++computeCount;
}

void VxTestSphere::savePorts(FILE* fp)
{
    VxTriBase::savePorts(fp);
    if (computed) fprintf(fp, "\"%s\" doIt hit\n", getName().toUtf8().constData());
}

void VxTestSphere::preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs)
{
    VxTriBase::preferencesChanged(oldPrefs, newPrefs);
    ++preferenceChanges;
}

int VxTestSphere::parse(Tcl_Interp* interp, int argc, char** argv)
{
    // A module command of its own, with help when its value is missing.
    VxInterpreter* vi = VxApplication::instance()->interpreter();
    if (argc >= 2 && vi->cmdCheck(argv[1], "setScale", "VALUE")) {
        if (argc < 3) {
            vi->cmdHelp(interp, "setScale", true, argc, argv);
            return TCL_OK;
        }
        scale = float(strtod(argv[2], nullptr));
        return TCL_OK;
    }
    if (argc == 2 && !strcmp(argv[1], "getScale")) {
        Tcl_VaSetResult(interp, "%g", scale);
        return TCL_OK;
    }
    if (argc == 2 && !strcmp(argv[1], "preferenceChanges")) {
        Tcl_VaSetResult(interp, "%d", preferenceChanges);
        return TCL_OK;
    }
    if (argc == 2 && !strcmp(argv[1], "computeCount")) {
        Tcl_VaSetResult(interp, "%d", computeCount);
        return TCL_OK;
    }
    return VxTriBase::parse(interp, argc, argv);
}

VxTestAllPorts::VxTestAllPorts()
    : portFloat(this, "Float", "float"), portInt(this, "Int", "int"),
      portToggles(this, "Toggles", "toggles", 3), portOnOff(this, "On Off", "onOff"),
      portRadio(this, "Radio", "radio", 3), portInts(this, "Ints", "ints", 3),
      portFloats(this, "Floats", "floats", 2), portMenu(this, "Menu", "menu", 2),
      portColors(this, "Colors", "colors", 2), portText(this, "Text", "text"),
      portHidden(this, "Hidden", "hidden"), portOptions(this, "Options", "options"),
      portDoIt(this, "Action", "doIt")
{
    portData.setOptional(true);
    portFloat.setMinMax(-10.f, 10.f);
    portInt.setMinMax(0, 20);
    portInt.setValue(5);
    portInts.setMinMax(1, 8);
    portMenu.setItems(0, {"low", "high"});
    portMenu.setItems(1, {"a", "b", "c"});
    portHidden.setValue(0.25f);
    portHidden.hide();
    portOptions.setLabel(0, "compactify");
    portOptions.setValue(0, true);
    // Old scripts knew "options" with two toggles.
    portOptions.getDeprecatedPort().setNum(2);
    portOptions.getDeprecatedPort().setValue(0, true);
    portOptions.getDeprecatedPort().setValue(1, false);
    portOptions.getDeprecatedPort().untouch();
    // For tests of how the host survives modules that fail.
    if (getenv("VXTEST_THROW_IN_CONSTRUCTOR")) throw KxException("told to throw in the constructor");
}

VxTestAllPorts::~VxTestAllPorts() = default;

namespace {
QStringList newPorts(const VxObject& o)
{
    QStringList names;
    for (VxPort* p : o.getAllPorts())
        if (p->isNew()) names << p->getName();
    return names;
}
} // namespace

void VxTestAllPorts::update()
{
    // An old script's settings move to the new ports.
    VxPortToggleList& old = portOptions.getDeprecatedPort();
    if (old.isItemNew(0)) portOptions.setValue(0, old.getValue(0));
    if (old.isItemNew(1)) portOnOff.setValue(old.getValue(1));
    newInUpdate = newPorts(*this);
}

void VxTestAllPorts::compute()
{
    newInCompute = newPorts(*this);
    ++computeCount;
    if (portText.getValue() == "throw") throw KxException("told to throw");
}

int VxTestAllPorts::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc == 2 && !strcmp(argv[1], "newInUpdate")) {
        vxscript::setResult(interp, vxscript::join(newInUpdate));
        return TCL_OK;
    }
    if (argc == 2 && !strcmp(argv[1], "newInCompute")) {
        vxscript::setResult(interp, vxscript::join(newInCompute));
        return TCL_OK;
    }
    if (argc == 2 && !strcmp(argv[1], "computeCount")) {
        Tcl_VaSetResult(interp, "%d", computeCount);
        return TCL_OK;
    }
    return VxModule::parse(interp, argc, argv);
}
