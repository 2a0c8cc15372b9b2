#pragma once
// Small modules that exercise the framework the way real modules do; they ship in a test-only
// package library (libvxtestpkg.so) that the tests load like any package.
#include <vx/VxModule.h>
#include <vx/VxPortDoIt.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>
#include <vx/VxTriBase.h>

// A sphere made of triangles. It follows the usual module pattern: ports changed since the last
// computation make it stale, "Apply" computes when stale, and a saved network says "doIt hit" when it
// had computed. It has a module command of its own ("setScale", which only answers its usage) and counts its
// computations and the preference changes it hears of.
class VxTestSphere : public VxTriBase
{
    KX_HEADER(VxTestSphere)

public:
    VxTestSphere();
    VxPortFloatSlider portRadius;
    VxPortIntSlider portSubdivisions;
    VxPortDoIt portDoIt;

    void compute() override;
    void savePorts(FILE* fp) override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    void preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs) override;

    bool computed = false;
    int computeCount = 0, preferenceChanges = 0;
};

// Ports of several kinds (every kind is saved and restored in PortsTest). Each run records which ports
// update() and compute() found new. It fails on demand: compute() throws while "text" says "throw", the
// constructor while the environment has VXTEST_THROW_IN_CONSTRUCTOR.
class VxTestAllPorts : public VxModule
{
    KX_HEADER(VxTestAllPorts)

public:
    VxTestAllPorts();
    VxPortFloatSlider portFloat;
    VxPortIntSlider portInt;
    VxPortToggleList portToggles;
    VxPortText portText;
    VxPortFloatSlider portHidden;
    VxPortDoIt portDoIt;

    void update() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;

    QStringList newInUpdate, newInCompute;
    int computeCount = 0;
};
