#pragma once
#include <vx/VxConnection.h>

#include <Inventor/SbColor.h>

class VxColormap;

// The colour map a module colours with: a connection to a VxColormap. Without one, every value
// gets the default colour and alpha. With alpha disabled every colour is opaque.
class VxPortColormap : public VxConnection
{
public:
    VxPortColormap(VxObject* owner, const QString& label, const QString& name);

    VxColormap* getColormap() const;
    SbColor getColor(float value) const;
    float getAlpha(float value) const;
    // 0xRRGGBBAA, each component rounded to 8 bits.
    uint32_t getPackedColor(float value) const;

    // Components are clamped into [0, 1] (NaN ignored); a change touches NEW_VALUE.
    void setDefaultColor(const SbColor& color);
    const SbColor& getDefaultColor() const { return m_defaultColor; }
    void setDefaultAlpha(float alpha);
    float getDefaultAlpha() const { return m_defaultAlpha; }
    void enableAlpha(bool on);
    bool isAlphaEnabled() const { return m_alphaEnabled; }

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    // The connection (if any) and the defaults.
    QStringList saveState() const override;
    // Saved when shown or connected: the defaults are settings, the connection is structure.
    bool isSaved() const override { return isVisible() || getSource(); }
    QStringList verbs() const override;

private:
    SbColor m_defaultColor{1.f, 1.f, 1.f};
    float m_defaultAlpha = 1.f;
    bool m_alphaEnabled = true;
};
