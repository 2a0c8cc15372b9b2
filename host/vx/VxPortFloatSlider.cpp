#include <vx/VxPortFloatSlider.h>

#include <algorithm>
#include <cmath>
#include <cstring>

VxPortFloatSlider::VxPortFloatSlider(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

void VxPortFloatSlider::setValue(float value)
{
    if (std::isnan(value)) return;
    value = std::min(std::max(value, m_min), m_max);
    if (value == m_value) return;
    m_value = value;
    touch(NEW_VALUE);
}

void VxPortFloatSlider::setMinMax(float min, float max)
{
    if (std::isnan(min) || std::isnan(max)) return;
    takeRange(m_min, m_max, min, max);
    setValue(m_value);
}

bool VxPortFloatSlider::isFloatFormat(const QString& format)
{
    QByteArray f = format.toLatin1();
    int conversions = 0;
    for (int i = 0; i < f.size(); ++i) {
        if (f[i] != '%') continue;
        if (++i < f.size() && f[i] == '%') continue;
        while (i < f.size() && strchr("-+ #0", f[i])) ++i;
        while (i < f.size() && isdigit(uchar(f[i]))) ++i;
        if (i < f.size() && f[i] == '.') {
            ++i;
            while (i < f.size() && isdigit(uchar(f[i]))) ++i;
        }
        if (i >= f.size() || !strchr("eEfFgG", f[i])) return false;
        ++conversions;
    }
    return conversions == 1 && format.toLatin1() == format.toUtf8();
}

bool VxPortFloatSlider::setFormat(const QString& format)
{
    if (!isFloatFormat(format)) return false;
    m_format = format;
    return true;
}

QString VxPortFloatSlider::formatValue(float value) const
{
    return QString::asprintf(m_format.toLatin1().constData(), double(value));
}

void VxPortFloatSlider::setIncrement(float increment)
{
    if (std::isfinite(increment) && increment >= 0.f) m_increment = increment;
}

void VxPortFloatSlider::setInteractiveTracking(bool tracking, bool interactive)
{
    m_tracking = tracking;
    m_reportInteractive = interactive;
}

void VxPortFloatSlider::drag(float value)
{
    if (std::isnan(value)) return;
    bool started = !m_dragging;
    m_dragging = true;
    if (!m_tracking) {
        m_dragValue = value;
        return;
    }
    float before = m_value;
    setValue(value);
    // The first move of an interactive drag must reach the module even when the value stays.
    if (started && m_reportInteractive && before == m_value) touch(NEW_VALUE);
}

void VxPortFloatSlider::release()
{
    if (!m_dragging) return;
    m_dragging = false;
    if (!m_tracking) {
        setValue(m_dragValue);
        return;
    }
    // The module may have computed a cheaper result during the drag: let it run once more.
    if (m_reportInteractive) touch(NEW_VALUE);
}

QStringList VxPortFloatSlider::verbs() const
{
    return QStringList{"setValue",  "getValue",      "setMinMax",    "getMinValue",  "getMaxValue",
                       "setFormat", "getFormat",     "setIncrement", "getIncrement", "drag",
                       "release",   "isInteractive", "setState",     "getState"} +
           VxPort::verbs();
}

QStringList VxPortFloatSlider::saveState() const
{
    using vxscript::number;
    return {QString("setMinMax %1 %2").arg(number(m_min), number(m_max)), "setValue " + number(m_value)};
}

int VxPortFloatSlider::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::number;
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };

    if (is("setValue") || is("drag")) {
        float v;
        if (argc != 3) return usage(interp, verb, "VALUE");
        if (!vxscript::toFloat(interp, *this, argv[2], v)) return TCL_ERROR;
        is("drag") ? drag(v) : setValue(v);
        return TCL_OK;
    }
    if (is("release")) {
        release();
        return TCL_OK;
    }
    if (is("setMinMax") || is("setState"))
        return parseRange<float>(
            interp, argc, argv, [this](float min, float max) { setMinMax(min, max); },
            [this](float v) { setValue(v); });
    if (is("setFormat")) {
        if (argc != 3) return usage(interp, verb, "FORMAT");
        if (!setFormat(QString::fromUtf8(argv[2])))
            return error(
                interp,
                QString("\"%1\" is not a format for one floating-point number, such as \"%g\" or \"%.2f\"")
                    .arg(QString::fromUtf8(argv[2])));
        return TCL_OK;
    }
    if (is("setIncrement")) {
        float v;
        if (argc != 3) return usage(interp, verb, "STEP");
        if (!vxscript::toFloat(interp, *this, argv[2], v)) return TCL_ERROR;
        if (!std::isfinite(v) || v < 0.f)
            return error(interp, QString("the increment %1 is negative or infinite").arg(argv[2]));
        setIncrement(v);
        return TCL_OK;
    }
    if (argc != 2 && (is("getValue") || is("getMinValue") || is("getMaxValue") || is("getFormat") ||
                      is("getIncrement") || is("isInteractive") || is("getState")))
        return usage(interp, verb, "");
    if (is("getValue"))
        setResult(interp, number(m_value));
    else if (is("getMinValue"))
        setResult(interp, number(m_min));
    else if (is("getMaxValue"))
        setResult(interp, number(m_max));
    else if (is("getFormat"))
        setResult(interp, m_format);
    else if (is("getIncrement"))
        setResult(interp, number(m_increment));
    else if (is("isInteractive"))
        setResult(interp, isInteractive() ? "1" : "0");
    else if (is("getState"))
        setResult(interp, vxscript::join({number(m_min), number(m_max), number(m_value)}));
    else
        return VxPort::parse(interp, argc, argv);
    return TCL_OK;
}
