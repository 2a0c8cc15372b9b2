#pragma once
#include <vx/VxObject.h>

#include <QVector>

// A colour map: RGBA samples spread evenly over a value range and interpolated linearly between
// them. Values outside the range take the colour of its nearest end. A new map runs from black to
// white, opaque, over [0, 1].
class VxColormap : public VxObject
{
    KX_HEADER(VxColormap)

public:
    struct RGBA
    {
        float r, g, b, a;
        bool operator==(const RGBA& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
    };

    VxColormap();

    float getMinValue() const { return m_min; }
    float getMaxValue() const { return m_max; }
    // Reversed bounds are swapped; NaN bounds are ignored. Readers are told of the change.
    void setRange(float min, float max);

    int getNumSamples() const { return m_samples.size(); }
    const QVector<RGBA>& getSamples() const { return m_samples; }
    // Components are clamped into [0, 1]; an empty table is ignored.
    void setSamples(const QVector<RGBA>& samples);

    // Colour and alpha at a value (NaN takes the minimum's colour).
    RGBA getRGBA(float value) const;

    // Names of the built-in maps: "grey", "viridis", "coolwarm" (diverging, blue-white-red),
    // "rainbow". All opaque.
    static QStringList presets();
    // Replaces the samples by a built-in map's, keeping the range; false (map unchanged) for a
    // name that is not one of presets().
    bool setPreset(const QString& name);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    void savePorts(FILE* fp) override;
    QStringList commands() const override;

private:
    float m_min = 0.f;
    float m_max = 1.f;
    QVector<RGBA> m_samples;
};
