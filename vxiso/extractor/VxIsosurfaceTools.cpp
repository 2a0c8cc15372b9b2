#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxException.h>

#include <QStringList>

#include <atomic>
#include <climits>

namespace vxiso::tools {

namespace {
std::atomic<uint64_t> g_maxSurfaceElements{0};
}

uint64_t maxSurfaceElements()
{
    const uint64_t lowered = g_maxSurfaceElements;
    return lowered ? lowered : uint64_t(INT_MAX);
}

void setMaxSurfaceElements(uint64_t limit)
{
    g_maxSurfaceElements = limit;
}

void checkSurfaceSize(uint64_t vertices, uint64_t triangles)
{
    const uint64_t limit = maxSurfaceElements();
    if (vertices <= limit && triangles <= limit) return;
    QStringList counts;
    if (vertices > limit) counts << QString("%1 vertices").arg(vertices);
    if (triangles > limit) counts << QString("%1 triangles").arg(triangles);
    throw KxException(QString("the surface would have %1; a surface holds at most %2 of each (choose another "
                              "threshold, down-sample or cut the volume)")
                          .arg(counts.join(" and "))
                          .arg(limit));
}

void checkSlabCount(uint64_t nodes, uint64_t slabs, int axis)
{
    const uint64_t cells = nodes > 0 ? nodes - 1 : 0;
    if (slabs >= 1 && slabs <= cells) return;
    throw KxException(QString("cannot cut the %1 cell layers along %2 into %3 slabs: a slab needs one cell "
                              "layer or more")
                          .arg(cells)
                          .arg(QChar("xyz"[axis]))
                          .arg(slabs));
}

} // namespace vxiso::tools
