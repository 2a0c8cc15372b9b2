#include <vx/VxPortIntSlider.h>

#include <algorithm>
#include <cstring>

VxPortIntSlider::VxPortIntSlider(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

void VxPortIntSlider::setValue(int value)
{
    value = std::min(std::max(value, m_min), m_max);
    if (value == m_value) return;
    m_value = value;
    touch(NEW_VALUE);
}

void VxPortIntSlider::setMinMax(int min, int max)
{
    takeRange(m_min, m_max, min, max);
    setValue(m_value);
}

QStringList VxPortIntSlider::verbs() const
{
    return QStringList{"setValue",    "getValue", "setMinMax", "getMinValue",
                       "getMaxValue", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortIntSlider::saveState() const
{
    return {QString("setMinMax %1 %2").arg(m_min).arg(m_max), QString("setValue %1").arg(m_value)};
}

int VxPortIntSlider::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };

    if (is("setValue")) {
        int v;
        if (argc != 3) return usage(interp, verb, "VALUE");
        if (!vxscript::toInt(interp, *this, argv[2], v)) return TCL_ERROR;
        setValue(v);
        return TCL_OK;
    }
    if (is("setMinMax") || is("setState"))
        return parseRange<int>(
            interp, argc, argv, [this](int min, int max) { setMinMax(min, max); },
            [this](int v) { setValue(v); });
    if (argc != 2 && (is("getValue") || is("getMinValue") || is("getMaxValue") || is("getState")))
        return usage(interp, verb, "");
    if (is("getValue"))
        setResult(interp, QString::number(m_value));
    else if (is("getMinValue"))
        setResult(interp, QString::number(m_min));
    else if (is("getMaxValue"))
        setResult(interp, QString::number(m_max));
    else if (is("getState"))
        setResult(interp, QString("%1 %2 %3").arg(m_min).arg(m_max).arg(m_value));
    else
        return VxPort::parse(interp, argc, argv);
    return TCL_OK;
}
