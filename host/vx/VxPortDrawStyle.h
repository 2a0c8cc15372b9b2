#pragma once
#include <vx/VxPort.h>

// How a surface is drawn. The values are those of SoTriSurface::DrawStyle. Modules whose surfaces
// are closed may offer back-face culling (cullingControls()).
class VxPortDrawStyle : public VxPort
{
public:
    enum Style
    {
        WIREFRAME = 0,
        SHADED = 1,
        SHADED_OUTLINED = 2,
        POINTS = 3,
        NUM_STYLES = 4
    };

    VxPortDrawStyle(VxObject* owner, const QString& label, const QString& name);

    int getValue() const { return m_style; }
    // Values outside the styles are ignored; touches NEW_VALUE only on a change.
    void setValue(int style);
    // The script names of the styles: "lines", "shaded", "outlined", "points".
    static const char* styleName(int style);

    // Offers the back-face culling switch (off until the user turns it on).
    void cullingControls(bool on = true);
    bool hasCullingControls() const { return m_cullingControls; }
    // Ignored while the module offers no culling.
    void setCulling(bool on);
    bool isCulling() const { return m_cullingControls && m_culling; }

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    int m_style = SHADED;
    bool m_cullingControls = false;
    bool m_culling = false;
};
