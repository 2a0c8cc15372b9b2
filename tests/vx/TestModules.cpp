#include "TestModules.h"

#include "../support/TestSurfaces.h"

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>

#include <kx/KxException.h>

#include <cstdlib>
#include <cstring>

KX_SOURCE(VxTestSphere, VxTriBase)
KX_SOURCE(VxTestAllPorts, VxModule)

namespace {

// Answers "OBJECT NAME" with the value; false when the command is another.
bool answer(Tcl_Interp* interp, int argc, char** argv, const char* name, const QString& value)
{
    if (argc != 2 || strcmp(argv[1], name)) return false;
    vxscript::setResult(interp, value);
    return true;
}

} // namespace

VxTestSphere::VxTestSphere()
    : VxTriBase(VxObject::getClassTypeId()), portRadius(this, "Radius", "radius"),
      portSubdivisions(this, "Subdivisions", "subdivisions"), portDoIt(this, "Action", "doIt")
{
    portData.setOptional(true);
    portRadius.setMinMax(0.1f, 10.f);
    portRadius.setValue(1.f);
    portSubdivisions.setMinMax(0, 5);
    portSubdivisions.setValue(1);
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
    VxInterpreter* vi = VxApplication::instance()->interpreter();
    if (argc >= 2 && vi->cmdCheck(argv[1], "setScale", "VALUE"))
        return vi->cmdHelp(interp, "setScale", true, argc, argv), TCL_OK;
    if (answer(interp, argc, argv, "preferenceChanges", QString::number(preferenceChanges)) ||
        answer(interp, argc, argv, "computeCount", QString::number(computeCount)))
        return TCL_OK;
    return VxTriBase::parse(interp, argc, argv);
}

VxTestAllPorts::VxTestAllPorts()
    : portFloat(this, "Float", "float"), portInt(this, "Int", "int"),
      portToggles(this, "Toggles", "toggles", 3), portText(this, "Text", "text"),
      portHidden(this, "Hidden", "hidden"), portDoIt(this, "Action", "doIt")
{
    portData.setOptional(true);
    portFloat.setMinMax(-10.f, 10.f);
    portInt.setMinMax(0, 20);
    portInt.setValue(5);
    portHidden.setValue(0.25f);
    portHidden.hide();
    if (getenv("VXTEST_THROW_IN_CONSTRUCTOR")) throw KxException("told to throw in the constructor");
}

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
    if (answer(interp, argc, argv, "newInUpdate", vxscript::join(newInUpdate)) ||
        answer(interp, argc, argv, "newInCompute", vxscript::join(newInCompute)) ||
        answer(interp, argc, argv, "computeCount", QString::number(computeCount)))
        return TCL_OK;
    return VxModule::parse(interp, argc, argv);
}
