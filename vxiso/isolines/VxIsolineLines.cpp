#include <vxiso/isolines/VxIsolineLines.h>

#include <vx/VxLineSet.h>

#include <Inventor/fields/SoMFInt32.h>
#include <Inventor/fields/SoMFVec3f.h>

#include <numeric>
#include <vector>

void VxIsolineLines::clear()
{
    points.clear();
    numVertices.clear();
    lineValues.clear();
    lineColors.clear();
}

void VxIsolineLines::handTo(SoMFVec3f& vertex, SoMFInt32& counts)
{
    if (points.empty() || numVertices.empty()) return;
    const int nPoints = getNumPoints(), nLines = getNumLines();
    // The fields free the blocks with delete[], which is how the foundation's arrays allocate them.
    vertex.setValuesPointer(nPoints, points.release());
    vertex.enableDeleteValues();
    counts.setValuesPointer(nLines, numVertices.release());
    counts.enableDeleteValues();
}

VxLineSet* VxIsolineLines::makeLineSet() const
{
    VxLineSet* set = new VxLineSet(getNumPoints(), 0, 1);
    std::vector<int> indices;
    int first = 0;
    for (int line = 0; line < getNumLines(); ++line) {
        const int n = numVertices[std::size_t(line)];
        indices.resize(std::size_t(n));
        std::iota(indices.begin(), indices.end(), first);
        for (int i = first; i < first + n; ++i) {
            const SbVec3f& p = points[std::size_t(i)];
            set->setPoint(i, p[0], p[1], p[2]);
            set->getPointData(0)[i] = lineValues[std::size_t(line)];
        }
        set->addLine(indices.data(), n);
        set->getLineData(0)[line] = lineValues[std::size_t(line)];
        first += n;
    }
    return set;
}
