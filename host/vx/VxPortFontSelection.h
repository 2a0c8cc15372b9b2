#pragma once
#include <kx/KxColor.h>
#include <vx/VxPort.h>

class QFont;

// A font (family, point size, weight, slant) and a text colour. The port keeps the font's
// properties itself rather than a QFont, so it works in a host without a GUI application; a QFont
// given to setFont() is only read.
class VxPortFontSelection : public VxPort
{
public:
    // Weights on the 0..99 scale of QFont (50 normal, 75 bold).
    enum
    {
        NORMAL_WEIGHT = 50,
        BOLD_WEIGHT = 75
    };

    VxPortFontSelection(VxObject* owner, const QString& label, const QString& name);

    // The font's name for Open Inventor: the family, with ":Bold", ":Italic" or ":Bold Italic".
    QString getFontDescription() const;
    const QString& getFontFamily() const { return m_family; }
    int getFontSize() const { return m_size; }
    int getFontWeight() const { return m_weight; }
    bool isFontItalic() const { return m_italic; }
    const KxColor& getFontColor() const { return m_color; }

    // Takes family, size, weight and slant from the font (null is ignored). A size given in
    // pixels only is taken as points.
    void setFont(const QFont* font);
    // A size below 1 becomes 1; the weight is clamped into 0..99. A change touches NEW_VALUE.
    void setFont(const QString& family, int size, int weight = NORMAL_WEIGHT, bool italic = false);
    // Components are clamped into [0, 1]; NaN is ignored.
    void setFontColor(const KxColor& color);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    QString m_family = "Helvetica";
    int m_size = 12;
    int m_weight = NORMAL_WEIGHT;
    bool m_italic = false;
    KxColor m_color{1.f, 1.f, 1.f};
};
