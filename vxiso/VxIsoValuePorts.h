#pragma once
#include <vector>

class VxPortFloatTextN;
class VxPortRadioBox;
class VxPortText;
class VxScalarField3;

// The iso values of the isoline modules, from their three ports: "spacing" (0 uniform, 1 explicit),
// "uniform" (minimum, maximum, count) and "explicit" (a list).

// Uniform: the count (negative counts as 0) spread from minimum to maximum, in single precision;
// with a count of 1 the minimum alone. Explicit: the words of the list, a word that is no number
// counting as 0.
std::vector<float> vxIsoValues(const VxPortRadioBox& spacing, const VxPortFloatTextN& uniform,
                               const VxPortText& explicitValues);

// The ports' labels, ranges and defaults, and those of the "resolution" and "line width [px]"
// fields of "parameters", translated in the module's context.
void vxInitIsoValuePorts(VxPortRadioBox& spacing, VxPortFloatTextN& uniform, VxPortFloatTextN& parameters,
                         const char* context);

// Minimum and maximum from the field's value range; the list to its quarter and three quarters.
void vxResetIsoValueRange(const VxScalarField3* field, VxPortFloatTextN& uniform, VxPortText& explicitValues);
