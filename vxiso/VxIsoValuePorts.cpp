#include <vxiso/VxIsoValuePorts.h>

#include <vx/VxModule.h>
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

void vxInitIsoValuePorts(VxPortRadioBox& spacing, VxPortFloatTextN& uniform, VxPortFloatTextN& parameters,
                         const char* context)
{
    auto tr = [context](const char* text) { return VxModule::translate(context, text); };
    spacing.setLabel(0, tr("uniform"));
    spacing.setLabel(1, tr("explicit"));
    spacing.setValue(0);
    uniform.setLabel(2, tr("num"));
    uniform.setMinMax(2, 1, 200);
    uniform.setValue(2, 5);
    parameters.setLabel(0, tr("resolution"));
    parameters.setMinMax(0, 16, 4096);
    parameters.setValue(0, 128);
    parameters.setLabel(1, tr("line width [px]"));
    parameters.setMinMax(1, 0, 10);
    parameters.setValue(1, 2);
}
