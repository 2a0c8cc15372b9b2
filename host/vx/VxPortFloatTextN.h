#pragma once
#include <vx/VxPortTextN.h>

// A row of floating-point fields.
class VxPortFloatTextN : public VxPortTextN<float>
{
public:
    using VxPortTextN<float>::VxPortTextN;
};
