#pragma once
#include <kx/KxException.h>

#include <QString>

#include <cstddef>
#include <vector>

// What the fields on tetrahedral and hexahedral grids share: checking how many values an encoding
// takes, and the range of the values.
namespace vxcells {

// Throws unless there are no values or one for each of the `expected` places the encoding has
// (`places`: "nodes", "tetrahedra", ...).
inline void checkValueCount(const char* kind, std::size_t have, std::size_t expected, const char* places)
{
    if (have != 0 && have != expected)
        throw KxException(QString("%1: %2 values for %3 %4")
                              .arg(kind)
                              .arg(qulonglong(have))
                              .arg(qulonglong(expected))
                              .arg(places));
}

// Smallest and largest value, NaN left out; false (and 0, 0) when there is none.
inline bool rangeOf(const std::vector<float>& v, double& min, double& max)
{
    float lo = 0, hi = 0;
    bool any = false;
    for (float x : v) {
        if (x != x) continue;
        if (!any) lo = hi = x, any = true;
        lo = x < lo ? x : lo;
        hi = x > hi ? x : hi;
    }
    min = any ? lo : 0, max = any ? hi : 0;
    return any;
}

} // namespace vxcells
