#pragma once
// Small modules that exercise the framework the way real modules do; they ship in a test-only
// package library (libvxtestpkg.so) that the tests load like any package.
#include <vx/VxModule.h>
#include <vx/VxPortButtonList.h>
#include <vx/VxPortColorList.h>
#include <vx/VxPortDeprecatedSubstitute.h>
#include <vx/VxPortDoIt.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortMultiMenu.h>
#include <vx/VxPortOnOff.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>
#include <vx/VxTriBase.h>

// A sphere made of triangles: an icosahedron subdivided and pushed onto the sphere. It follows the
// usual module pattern: ports changed since the last computation make it stale, "Apply" computes
// when stale, and a saved network says "doIt hit" when it had computed.
class VxTestSphere : public VxTriBase
{
    KX_HEADER(VxTestSphere)

public:
    VxTestSphere();
    VxPortFloatSlider portRadius;
    VxPortIntSlider portSubdivisions;
    VxPortDoIt portDoIt;

    void update() override;
    void compute() override;
    void savePorts(FILE* fp) override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;

    void preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs) override;

    bool computed = false;
    int computeCount = 0;
    float scale = 1.f;
    int preferenceChanges = 0;
};

// One port of every kind, and a redesigned port kept for old scripts. Each run records which
// ports update() and compute() found new. It fails on demand: compute() throws while "text" says
// "throw", the constructor while the environment has VXTEST_THROW_IN_CONSTRUCTOR.
class VxTestAllPorts : public VxModule
{
    KX_HEADER(VxTestAllPorts)

public:
    VxTestAllPorts();
    ~VxTestAllPorts() override;
    VxPortFloatSlider portFloat;
    VxPortIntSlider portInt;
    VxPortToggleList portToggles;
    VxPortOnOff portOnOff;
    VxPortRadioBox portRadio;
    VxPortIntTextN portInts;
    VxPortFloatTextN portFloats;
    VxPortMultiMenu portMenu;
    VxPortColorList portColors;
    VxPortText portText;
    VxPortFloatSlider portHidden;
    VxPortDeprecatedSubstitute<VxPortToggleList, VxPortToggleList, 920, 1100> portOptions;
    VxPortDoIt portDoIt;

    void update() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;

    QStringList newInUpdate;
    QStringList newInCompute;
    int computeCount = 0;
};
