// Entry points of the test package; the host finds them by the library's name.
#include "TestModules.h"

extern "C" {
void corvapackage_vxtestpkg_init();
void corvapackage_vxtestpkg_finish();
const char* corvapackage_vxtestpkg();
}

void corvapackage_vxtestpkg_init()
{
    static bool isInitialized = false;
    if (isInitialized) return;
    isInitialized = true;
    VxTestSphere::getClassTypeId();
    VxTestAllPorts::getClassTypeId();
}

void corvapackage_vxtestpkg_finish()
{
    static bool isFinished = false;
    if (isFinished) return;
    isFinished = true;
    KxTypeInfo::removeType("VxTestAllPorts");
    KxTypeInfo::removeType("VxTestSphere");
}

const char* corvapackage_vxtestpkg()
{
    return "test package";
}

namespace {
struct Lifetime
{
    Lifetime() { corvapackage_vxtestpkg_init(); }
    ~Lifetime() { corvapackage_vxtestpkg_finish(); }
} g_lifetime;
} // namespace
