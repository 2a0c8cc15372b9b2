// Entry points of the test package; the host finds them by the library's name and calls them when
// it loads and unloads the library.
#include "TestModules.h"

extern "C" {
void corvapackage_vxtestpkg_init()
{
    VxTestSphere::getClassTypeId();
    VxTestAllPorts::getClassTypeId();
}

void corvapackage_vxtestpkg_finish()
{
    KxTypeInfo::removeType("VxTestAllPorts");
    KxTypeInfo::removeType("VxTestSphere");
}

const char* corvapackage_vxtestpkg()
{
    return "test package";
}
}
