#pragma once
#include <cstddef>

// How a module's next extractions cut a volume into slabs, for tools that need a cut they can repeat
// elsewhere (vxiso surface --slabs, to match a run spread over processes). Modules that extract in
// slabs offer it beside their class; callers find it with a dynamic_cast, as VxExtractionReport.
class VxSlabPlan
{
public:
    virtual ~VxSlabPlan();
    // Exactly `slabs` even slabs along the split axis; 0 lets the hardware threads decide.
    virtual void setSlabCount(std::size_t slabs) = 0;
};
