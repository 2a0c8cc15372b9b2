#pragma once

// The host's preferences that modules read.
struct VxPreferences
{
    // Draw cheaper geometry while the user drags a slider (modules may down-sample).
    bool simplifiedRenderingDuringInteraction = true;

    bool operator==(const VxPreferences& o) const
    {
        return simplifiedRenderingDuringInteraction == o.simplifiedRenderingDuringInteraction;
    }
    bool operator!=(const VxPreferences& o) const { return !(*this == o); }
};

// Holds the preferences and tells the modules when they change.
class VxSettingsMgr
{
public:
    const VxPreferences& getPreferences() const { return m_prefs; }
    // Replaces the preferences and calls preferencesChanged(old, new) on every module.
    void setPreferences(const VxPreferences& prefs);

private:
    VxPreferences m_prefs;
};
