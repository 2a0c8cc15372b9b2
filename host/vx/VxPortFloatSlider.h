#pragma once
#include <vx/VxPort.h>

#include <QMap>

// A slider with a text field over a float range. The value always lies inside [min, max].
//
// Dragging: while the user drags the slider, isInteractive() is true (when the module asked for
// interactive reports), so a module may compute a cheaper result and compute again at full quality
// when the slider is released. Scripts simulate a drag with the verbs "drag VALUE" (a move of the
// slider; repeat it for more moves) and "release" (the user lets go).
class VxPortFloatSlider : public VxPort
{
public:
    VxPortFloatSlider(VxObject* owner, const QString& label, const QString& name);

    float getValue() const { return m_value; }
    // Clamps into the range; NaN is ignored. Touches NEW_VALUE only when the value changes, so
    // setting the current value again does not make the module run.
    void setValue(float value);
    float getMinValue() const { return m_min; }
    float getMaxValue() const { return m_max; }
    // Reversed bounds are swapped, NaN bounds ignored. A changed range touches NEW_RANGE and
    // clamps the value into it.
    void setMinMax(float min, float max);

    // A printf format for one floating-point number, such as "%g" or "%.2f"; false (and no
    // change) for anything else, since the format is handed to printf.
    bool setFormat(const QString& format);
    const QString& getFormat() const { return m_format; }
    QString formatValue(float value) const;
    // Step of the arrow buttons; 0 lets the slider choose one from its range.
    void setIncrement(float increment);
    float getIncrement() const { return m_increment; }

    // tracking: the value follows the slider while it is dragged (else it is set on release).
    // interactive: isInteractive() reports the drag.
    void setInteractiveTracking(bool tracking, bool interactive);
    bool isTracking() const { return m_tracking; }
    bool isInteractive() const { return m_dragging && m_reportInteractive; }
    // The slider is moved by the user to the value, or let go.
    void drag(float value);
    void release();

    void setItemToolTip(unsigned item, const QString& text) { m_itemToolTips[item] = text; }
    QString getItemToolTip(unsigned item) const { return m_itemToolTips.value(item); }

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    // The range, then the value: the value must find its range in place.
    QStringList saveState() const override;
    QStringList verbs() const override;

    // Whether the text is a printf format for exactly one floating-point number.
    static bool isFloatFormat(const QString& format);

private:
    float m_value = 0.f;
    float m_min = 0.f;
    float m_max = 1.f;
    QString m_format = "%g";
    float m_increment = 0.f;
    bool m_tracking = false;
    bool m_reportInteractive = false;
    bool m_dragging = false;
    float m_dragValue = 0.f;
    QMap<unsigned, QString> m_itemToolTips;
};
