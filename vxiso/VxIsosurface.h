#pragma once
#include <vx/VxExtractionReport.h>
#include <vx/VxPortDeprecatedSubstitute.h>
#include <vx/VxPortDoIt.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortOnOff.h>
#include <vx/VxPortRangeTplSlider.h>
#include <vx/VxPortToggleList.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxSlabPlan.h>
#include <vx/VxTriBase.h>

class VxIsosurfaceExtractor;

// The isosurface of a scalar field on a regular lattice (or of a multi-block field) where it
// equals "Threshold", extracted when "Apply" is hit. While the threshold is dragged on a large
// uniform field it may extract from a down-sampled copy; "Down Sample" does so always.
class VxIsosurface : public VxTriBase, public VxExtractionReport, public VxSlabPlan
{
    KX_PACKAGE_HEADER(VxIsosurface)

public:
    using IntersectionCallback = float (*)(int, int, VxObject*);

    VxIsosurface();
    ~VxIsosurface() override;

    VxPortRangeTplSlider<VxPortFloatSlider> portThreshold;
    VxPortDeprecatedSubstitute<VxPortToggleList, VxPortToggleList, 920, 1100> portOptions;
    VxPortOnOff portDownSample;
    VxPortIntTextN portResolution;
    VxConnection portPointProbe;
    VxPortIntSlider portNumberOfCores;
    VxPortDoIt portDoIt;

    void update() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    void savePorts(FILE* fp) override;
    void preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs) override;

    // Whether to extract from a down-sampled copy of the field.
    bool shouldResample(const VxRegScalarField3* field) const;
    // Builds the down-sampled copy.
    void resample();
    // Tool tip and interactive tracking of the threshold slider after the host preference.
    void updatePortThreshold();
    void setIntersectionCallback(IntersectionCallback callback, VxObject* object)
    {
        m_intersectionCallback = callback;
        m_intersectionObject = object;
    }

    bool isComputed() const { return computed; }
    float getCompactCubesParameter() const { return m_paramCC; }
    const VxRegScalarField3* getResampledField() const { return m_resampled.get(); }
    // The averaging factor of the down-sampled copy along an axis (0, 1, 2).
    int getResampleFactor(int axis) const { return m_resampleFactors[axis]; }
    Figures lastExtraction() const override { return m_lastRun; }
    QString lastFailure() const override { return m_lastFailure; }
    void setSlabCount(std::size_t slabs) override { m_slabCount = slabs; }

protected:
    // Runs the extractor; the default node filter skips cubes touching undefined values.
    virtual void extractIsoSurfaceFromRegField3(const VxRegScalarField3* field,
                                                VxIsosurfaceExtractor& extractor);
    void computeRegScalarField3();
    void computeBlockScalarField3();

    // The surface is up to date with the ports.
    bool computed = false;

private:
    bool compactify() const { return portOptions.getValue(0); }
    void report(unsigned long kept, unsigned long long removed);
    // Shows the module's error message and keeps the cause for lastFailure().
    void fail(const QString& message, const QString& cause);

    bool m_firstData = true;
    float m_paramCC = 0.5f;
    KxHandle<VxRegScalarField3> m_resampled;
    int m_resampleFactors[3] = {1, 1, 1};
    Figures m_lastRun;
    std::size_t m_slabCount = 0;
    QString m_lastFailure;
    IntersectionCallback m_intersectionCallback = nullptr;
    VxObject* m_intersectionObject = nullptr;
};

void kxInitClass_VxIsosurface();
void kxExitClass_VxIsosurface();

namespace vxDeprecation {
void initDeprecatedPorts(VxIsosurface* module);
void updateDeprecatedPorts(VxIsosurface* module);
} // namespace vxDeprecation
