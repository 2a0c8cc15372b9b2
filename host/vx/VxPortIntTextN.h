#pragma once
#include <vx/VxPortTextN.h>

// A row of integer fields.
class VxPortIntTextN : public VxPortTextN<int>
{
public:
    using VxPortTextN<int>::VxPortTextN;
};
