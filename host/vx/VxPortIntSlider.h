#pragma once
#include <vx/VxPort.h>

// A slider over an integer range. The value always lies inside [min, max].
class VxPortIntSlider : public VxPort
{
public:
    VxPortIntSlider(VxObject* owner, const QString& label, const QString& name);

    int getValue() const { return m_value; }
    // Clamps into the range; touches NEW_VALUE only when the value changes.
    void setValue(int value);
    int getMinValue() const { return m_min; }
    int getMaxValue() const { return m_max; }
    // Reversed bounds are swapped. A changed range touches NEW_RANGE and clamps the value.
    void setMinMax(int min, int max);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    int m_value = 0;
    int m_min = 0;
    int m_max = 100;
};
