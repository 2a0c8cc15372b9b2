#pragma once
#include <vx/VxArbitraryCut.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortIntTextN.h>

// An arbitrary cut whose sampling the user chooses: "Sampling" offers "coarse" (half the native
// resolution), "native" (about one sample per cell, see getNativeResolution), "fine" (twice it) and
// "custom" (the two fields of "Resolution", along u and v). The drawing uses the chosen sampling.
class VxObliqueSlice : public VxArbitraryCut
{
    KX_HEADER(VxObliqueSlice)

public:
    enum Sampling
    {
        COARSE = 0,
        NATIVE = 1,
        FINE = 2,
        CUSTOM = 3
    };

    VxObliqueSlice();

    // The sampling combo box: item 0.
    VxPortGeneric portSampling;
    VxPortIntTextN portResolution;

    void update() override;
    void compute() override;

    int getSampling() const { return portSampling.getValue(0); }
    QStringList getSamplingChoices() const { return portSampling.getEntries(0); }
    // Sample counts along u and v of a sampling choice, each in [2, 4096]; (0, 0) for a choice
    // that does not exist.
    SbVec2s getResolution(int choice) const;

protected:
    void getDrawingResolution(int& nu, int& nv) const override;
};
