#pragma once
#include <vx/VxSpatialData.h>

#include <vector>

// Values measured at one point of space (by a probe on a field, or set by a script). Modules read
// its values; the first one can drive a threshold.
class VxPointProbe : public VxSpatialData
{
    KX_HEADER(VxPointProbe)

public:
    VxPointProbe();

    int getNumValues() const { return int(m_values.size()); }
    // Value i; 0 when there is no such value.
    double getValue(int i) const { return i >= 0 && i < getNumValues() ? m_values[std::size_t(i)] : 0.0; }
    const std::vector<double>& getValues() const { return m_values; }
    // Readers are told of the change.
    void setValues(const std::vector<double>& values);

    const KxVec3f& getPosition() const { return m_position; }
    void setPosition(const KxVec3f& p);
    KxBox3f getBoundingBox() const override
    {
        return KxBox3f(m_position.x, m_position.x, m_position.y, m_position.y, m_position.z, m_position.z);
    }

    // Script words: "setValues ?V ...?", "getValues", "setPosition X Y Z", "getPosition".
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    void savePorts(FILE* fp) override;
    QStringList commands() const override;

private:
    std::vector<double> m_values;
    KxVec3f m_position;
};
