#include <vxiso/VxIsoValuePorts.h>

#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxSpatialData.h>

#include <algorithm>

std::vector<float> vxIsoValues(const VxPortRadioBox& spacing, const VxPortFloatTextN& uniform,
                               const VxPortText& explicitValues)
{
    std::vector<float> values;
    if (spacing.getValue() == 0) {
        const float min = uniform.getValue(0), max = uniform.getValue(1);
        const int n = std::max(int(uniform.getValue(2)), 0);
        if (n == 1) return {min};
        for (int i = 0; i < n; ++i) values.push_back(float(i) / float(n - 1) * (max - min) + min);
        return values;
    }
    // As written: a word that is no number counts as 0.
    for (const QString& word : explicitValues.getValue().split(' ', Qt::SkipEmptyParts))
        values.push_back(word.toFloat());
    return values;
}

void vxResetIsoValueRange(const VxScalarField3* field, VxPortFloatTextN& uniform, VxPortText& explicitValues)
{
    double min = 0, max = 0;
    VxRangeProviderSpatialData::rangeOf(field, min, max);
    uniform.setValue(0, float(min));
    uniform.setValue(1, float(max));
    explicitValues.setValue(QString::asprintf("%g %g", min + (max - min) * 0.25, min + (max - min) * 0.75));
}
