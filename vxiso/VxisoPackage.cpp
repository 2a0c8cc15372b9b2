// The package's entry points. Loading the library registers its module classes with the host's
// type registry; unloading withdraws them. Each module class joins the two lists below, in this
// order, when it is added to the package.
#include <vxiso/SoText3FacingCamera.h>
#include <vxiso/VxAnnotatedIsolines.h>
#include <vxiso/VxIsoHexa.h>
#include <vxiso/VxIsoTetra.h>
#include <vxiso/VxIsolines.h>
#include <vxiso/VxIsosurface.h>
#include <vxiso/VxMaskedLabelIsosurface.h>

#include <tbb/global_control.h>

#include <new>

extern "C" {
void corvapackage_vxiso_init();
void corvapackage_vxiso_finish();
const char* corvapackage_vxiso();
}

namespace {

// The first 13 characters are the record's tag; corvapackage_vxiso() returns what follows.
const char g_versionRecord[] = "@(#)package: vxiso 0.4 (" __DATE__ " " __TIME__ ")";

} // namespace

// The version record; the entry point of the same name reads it.
struct corvapackage_vxiso
{
    static const char* version;
};
const char* corvapackage_vxiso::version = g_versionRecord;

namespace {

// Once finished, the package registers nothing more: its code is about to be unloaded.
bool g_finished = false;

void registerModules()
{
    static bool isInitialized = false;
    if (isInitialized) return;
    isInitialized = true;
    // The derived class first: its type record makes its parent's on the way.
    kxInitClass_VxMaskedLabelIsosurface();
    kxInitClass_VxIsosurface();
    kxInitClass_VxIsolines();
    kxInitClass_VxIsoTetra();
    kxInitClass_VxIsoHexa();
    kxInitClass_VxAnnotatedIsolines();
}

} // namespace

void corvapackage_vxiso_init()
{
    registerModules();
    // The text node registers when the host initialises the package, so that scenes with labels
    // can be read before any label is made; not while the library is being loaded (below), when
    // its type record is yet to be initialised and would be reset after registering.
    if (!g_finished) SoText3FacingCamera::initClass();
}

void corvapackage_vxiso_finish()
{
    static bool isFinished = false;
    if (isFinished) return;
    isFinished = true;
    g_finished = true;
    SoText3FacingCamera::exitClass();
    kxExitClass_VxAnnotatedIsolines();
    kxExitClass_VxIsoHexa();
    kxExitClass_VxIsoTetra();
    kxExitClass_VxIsolines();
    kxExitClass_VxIsosurface();
    kxExitClass_VxMaskedLabelIsosurface();
}

const char* corvapackage_vxiso()
{
    return ::corvapackage_vxiso::version + 13;
}

void soconstructor_vxiso()
{
    registerModules();
}

void sodestructor_vxiso()
{
    corvapackage_vxiso_finish();
}

namespace {

// Constructed before the library's other statics (and so destroyed after them): registration
// must not depend on anything another source file builds at load time.
//
// The engine's scheduler keeps worker threads after an extraction. In a host that does not use the
// scheduler itself, unloading the package unloads the scheduler's library too, under threads that
// still run in it: unloading therefore waits for them to end first. Where the host uses the
// scheduler as well, the wait is declined and the library stays.
struct PackageLifetime
{
    PackageLifetime() { soconstructor_vxiso(); }
    ~PackageLifetime()
    {
        sodestructor_vxiso();
        tbb::finalize(scheduler, std::nothrow);
    }
    tbb::task_scheduler_handle scheduler{tbb::attach{}};
};
__attribute__((init_priority(101))) PackageLifetime g_packageLifetime;

} // namespace
