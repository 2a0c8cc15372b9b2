#pragma once
#include <kx/KxVec3.h>

#include <QString>

#include <cstddef>

// What a module's last extraction did, for tools that report on a run (vxiso --verbose). Modules
// that extract geometry offer it beside their class; callers find it with a dynamic_cast, so a tool
// needs the host's headers only, not the package that defines the module.
class VxExtractionReport
{
public:
    struct Figures
    {
        int splitAxis = -1;    // 0, 1, 2 for x, y, z; -1 when the run was sequential
        std::size_t slabs = 0; // pieces the volume was cut into (1 when sequential)
        double seconds = 0;    // the extraction alone, without reading or resampling
        KxDim3l nodes;         // of the field extracted from: fewer than the data's when down-sampled
    };

    virtual ~VxExtractionReport();
    virtual Figures lastExtraction() const = 0;
    // Why the last extraction failed, in one line without advice (the module's own message may say
    // more); empty when it succeeded.
    virtual QString lastFailure() const = 0;
};
