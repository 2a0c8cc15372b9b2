#include "TestModules.h"

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxPreferences.h>
#include <vx/VxMessage.h>

#include <QCoreApplication>

#include <cmath>
#include <cstring>
#include <map>
#include <vector>

KX_SOURCE(VxTestSphere, VxTriBase)
KX_SOURCE(VxTestAllPorts, VxModule)

VxTestSphere::VxTestSphere()
    : VxTriBase(VxObject::getClassTypeId()),
      portRadius(this, "Radius", "radius"),
      portSubdivisions(this, "Subdivisions", "subdivisions"),
      portDoIt(this, "Action", "doIt")
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

namespace {

// Octahedron subdivided n times, vertices on the sphere of radius r; edges shared, so the result
// is closed.
void makeSphere(float r, int n, std::vector<SbVec3f>& points, std::vector<int32_t>& tris)
{
    points = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    tris = {0, 2, 4, 2, 1, 4, 1, 3, 4, 3, 0, 4, 2, 0, 5, 1, 2, 5, 3, 1, 5, 0, 3, 5};
    for (int level = 0; level < n; ++level) {
        std::map<std::pair<int, int>, int> mid;
        auto middle = [&](int a, int b) {
            auto key = std::minmax(a, b);
            auto it = mid.find(key);
            if (it != mid.end()) return it->second;
            SbVec3f m = points[a] + points[b];
            m.normalize();
            points.push_back(m);
            return mid[key] = int(points.size()) - 1;
        };
        std::vector<int32_t> next;
        for (size_t t = 0; t < tris.size(); t += 3) {
            int a = tris[t], b = tris[t + 1], c = tris[t + 2];
            int ab = middle(a, b), bc = middle(b, c), ca = middle(c, a);
            next.insert(next.end(), {a, ab, ca, ab, b, bc, ca, bc, c, ab, bc, ca});
        }
        tris.swap(next);
    }
    for (SbVec3f& p : points) p *= r;
}

} // namespace

void VxTestSphere::compute()
{
    VxTriBase::compute();
    if (portRadius.isNew() || portSubdivisions.isNew()) computed = false;
    if (!portDoIt.wasHit(0) || computed) return;
    std::vector<SbVec3f> points;
    std::vector<int32_t> tris;
    makeSphere(portRadius.getValue(), portSubdivisions.getValue(), points, tris);
    m_surface->clearGeometry();
    m_surface->coords.setValues(0, int(points.size()), points.data());
    std::vector<SbVec3f> normals(points);
    for (SbVec3f& v : normals) v.normalize();
    m_surface->normals.setValues(0, int(normals.size()), normals.data());
    m_surface->triangles.setNum(int(tris.size() / 3));
    SbVec3i32* t = m_surface->triangles.startEditing();
    for (size_t i = 0; i < tris.size(); i += 3) t[i / 3].setValue(tris[i], tris[i + 1], tris[i + 2]);
    m_surface->triangles.finishEditing();
    VxApplication::instance()->message()->printf("TestSphere contains %d triangles", m_surface->getNumTriangles());
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
    : portFloat(this, "Float", "float"),
      portInt(this, "Int", "int"),
      portToggles(this, "Toggles", "toggles", 3),
      portOnOff(this, "On Off", "onOff"),
      portRadio(this, "Radio", "radio", 3),
      portInts(this, "Ints", "ints", 3),
      portFloats(this, "Floats", "floats", 2),
      portMenu(this, "Menu", "menu", 2),
      portColors(this, "Colors", "colors", 2),
      portText(this, "Text", "text"),
      portHidden(this, "Hidden", "hidden"),
      portOptions(this, "Options", "options"),
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
