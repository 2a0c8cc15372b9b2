#pragma once
#include <vx/VxPort.h>

#include <Inventor/SbVec3f.h>

#include <vector>

// A list of points in space (probe positions, seeds, markers).
class VxPort3DPointList : public VxPort
{
public:
    VxPort3DPointList(VxObject* owner, const QString& label, const QString& name, int count = 0);

    const std::vector<SbVec3f>& getValue() const { return m_points; }
    int getNum() const { return int(m_points.size()); }
    // Grows with points at the origin or drops points from the end.
    void setNum(int count);
    // Out-of-range indices read the origin and are ignored when written; points with a NaN
    // coordinate are ignored. Changes touch NEW_VALUE.
    SbVec3f getValue(int index) const;
    void setValue(int index, const SbVec3f& point);
    void setValue(const std::vector<SbVec3f>& points);
    void appendPoint(const SbVec3f& point);
    void removePoint(int index);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    std::vector<SbVec3f> m_points;
};
