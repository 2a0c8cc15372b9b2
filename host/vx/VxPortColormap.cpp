#include <vx/VxColormap.h>
#include <vx/VxPortColormap.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
float unit(float v)
{
    return std::min(1.f, std::max(0.f, v));
}
} // namespace

VxPortColormap::VxPortColormap(VxObject* owner, const QString& label, const QString& name)
    : VxConnection(owner, label, name, VxColormap::getClassTypeId())
{
    setOptional(true);
}

VxColormap* VxPortColormap::getColormap() const
{
    return vxconnection_cast<VxColormap>(*this);
}

SbColor VxPortColormap::getColor(float value) const
{
    VxColormap* map = getColormap();
    if (!map) return m_defaultColor;
    VxColormap::RGBA c = map->getRGBA(value);
    return SbColor(c.r, c.g, c.b);
}

float VxPortColormap::getAlpha(float value) const
{
    if (!m_alphaEnabled) return 1.f;
    VxColormap* map = getColormap();
    return map ? map->getRGBA(value).a : m_defaultAlpha;
}

uint32_t VxPortColormap::getPackedColor(float value) const
{
    SbColor c = getColor(value);
    auto byte = [](float v) { return uint32_t(std::lround(unit(v) * 255.f)); };
    return byte(c[0]) << 24 | byte(c[1]) << 16 | byte(c[2]) << 8 | byte(getAlpha(value));
}

void VxPortColormap::setDefaultColor(const SbColor& color)
{
    if (std::isnan(color[0]) || std::isnan(color[1]) || std::isnan(color[2])) return;
    SbColor c(unit(color[0]), unit(color[1]), unit(color[2]));
    if (c == m_defaultColor) return;
    m_defaultColor = c;
    touch(NEW_VALUE);
}

void VxPortColormap::setDefaultAlpha(float alpha)
{
    if (std::isnan(alpha) || unit(alpha) == m_defaultAlpha) return;
    m_defaultAlpha = unit(alpha);
    touch(NEW_VALUE);
}

void VxPortColormap::enableAlpha(bool on)
{
    if (on == m_alphaEnabled) return;
    m_alphaEnabled = on;
    touch(NEW_VALUE);
}

QStringList VxPortColormap::verbs() const
{
    return QStringList{"setDefaultColor", "getDefaultColor", "setDefaultAlpha", "getDefaultAlpha",
                       "getColor",        "getAlpha",        "setState",        "getState"} +
           VxConnection::verbs();
}

QStringList VxPortColormap::saveState() const
{
    using vxscript::number;
    return VxConnection::saveState() +
           QStringList{
               QString("setDefaultColor %1 %2 %3")
                   .arg(number(m_defaultColor[0]), number(m_defaultColor[1]), number(m_defaultColor[2])),
               "setDefaultAlpha " + number(m_defaultAlpha)};
}

int VxPortColormap::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::number;
    using vxscript::setResult;
    if (argc < 2) return VxConnection::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };

    if (is("setDefaultColor") || is("setState")) {
        // The state is the default colour and alpha: R G B A.
        QStringList words;
        const int expected = is("setState") ? 4 : 3;
        if (!vxscript::toWords(interp, *this, argc, argv, 2, words)) return TCL_ERROR;
        if (words.size() != expected) return usage(interp, verb, expected == 4 ? "R G B A" : "R G B");
        float c[4];
        for (int i = 0; i < expected; ++i)
            if (!vxscript::toFloat(interp, *this, words[i].toUtf8().constData(), c[i])) return TCL_ERROR;
        setDefaultColor(SbColor(c[0], c[1], c[2]));
        if (expected == 4) setDefaultAlpha(c[3]);
        return TCL_OK;
    }
    if (is("setDefaultAlpha")) {
        float a;
        if (argc != 3) return usage(interp, verb, "ALPHA");
        if (!vxscript::toFloat(interp, *this, argv[2], a)) return TCL_ERROR;
        setDefaultAlpha(a);
        return TCL_OK;
    }
    if (is("getColor") || is("getAlpha")) {
        float v;
        if (argc != 3) return usage(interp, verb, "VALUE");
        if (!vxscript::toFloat(interp, *this, argv[2], v)) return TCL_ERROR;
        SbColor c = getColor(v);
        setResult(interp, is("getAlpha") ? number(getAlpha(v))
                                         : QString("%1 %2 %3").arg(number(c[0]), number(c[1]), number(c[2])));
        return TCL_OK;
    }
    const SbColor& c = m_defaultColor;
    if (argc != 2 && (is("getDefaultColor") || is("getDefaultAlpha") || is("getState")))
        return usage(interp, verb, "");
    if (is("getDefaultColor"))
        setResult(interp, QString("%1 %2 %3").arg(number(c[0]), number(c[1]), number(c[2])));
    else if (is("getDefaultAlpha"))
        setResult(interp, number(m_defaultAlpha));
    else if (is("getState"))
        setResult(
            interp,
            QString("%1 %2 %3 %4").arg(number(c[0]), number(c[1]), number(c[2]), number(m_defaultAlpha)));
    else
        return VxConnection::parse(interp, argc, argv);
    return TCL_OK;
}
