#include <oiv/SoTriSurface.h>
#include <vx/VxPortDrawStyle.h>

#include <cstring>

static_assert(int(VxPortDrawStyle::WIREFRAME) == int(SoTriSurface::WIREFRAME) &&
                  int(VxPortDrawStyle::SHADED) == int(SoTriSurface::SHADED) &&
                  int(VxPortDrawStyle::SHADED_OUTLINED) == int(SoTriSurface::SHADED_OUTLINED) &&
                  int(VxPortDrawStyle::POINTS) == int(SoTriSurface::POINTS),
              "the port's styles are the surface's");

namespace {
const char* const g_styleNames[VxPortDrawStyle::NUM_STYLES] = {"lines", "shaded", "outlined", "points"};
}

VxPortDrawStyle::VxPortDrawStyle(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

const char* VxPortDrawStyle::styleName(int style)
{
    return style >= 0 && style < NUM_STYLES ? g_styleNames[style] : "";
}

void VxPortDrawStyle::setValue(int style)
{
    if (style < 0 || style >= NUM_STYLES || style == m_style) return;
    m_style = style;
    touch(NEW_VALUE);
}

void VxPortDrawStyle::cullingControls(bool on)
{
    if (on == m_cullingControls) return;
    m_cullingControls = on;
    touch(NEW_ITEMS);
}

void VxPortDrawStyle::setCulling(bool on)
{
    if (!m_cullingControls || on == m_culling) return;
    m_culling = on;
    touch(NEW_VALUE);
}

QStringList VxPortDrawStyle::verbs() const
{
    return QStringList{"setValue", "getValue", "setCulling", "getCulling", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortDrawStyle::saveState() const
{
    QStringList lines{QString("setValue %1").arg(m_style)};
    if (m_cullingControls) lines << QString("setCulling %1").arg(int(m_culling));
    return lines;
}

int VxPortDrawStyle::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    // A style by number or by name.
    auto toStyle = [&](const char* word, int& style) {
        for (style = 0; style < NUM_STYLES; ++style)
            if (!strcmp(word, g_styleNames[style])) return true;
        return vxscript::toIndex(interp, *this, word, NUM_STYLES, style);
    };
    auto toCulling = [&](const char* word, bool& on) {
        if (!vxscript::toBool(interp, *this, word, on)) return false;
        if (!m_cullingControls && on) {
            error(interp, "this module offers no back-face culling");
            return false;
        }
        return true;
    };
    int style;
    bool on;

    if (is("setValue")) {
        if (argc != 3) return usage(interp, verb, "STYLE (0 lines, 1 shaded, 2 outlined, 3 points)");
        if (!toStyle(argv[2], style)) return TCL_ERROR;
        setValue(style);
        return TCL_OK;
    }
    if (is("setCulling")) {
        if (argc != 3) return usage(interp, verb, "ON");
        if (!toCulling(argv[2], on)) return TCL_ERROR;
        setCulling(on);
        return TCL_OK;
    }
    if (is("setState")) {
        // STYLE CULLING
        QStringList words;
        if (!vxscript::toWords(interp, *this, argc, argv, 2, words)) return TCL_ERROR;
        if (words.size() != 2) return usage(interp, verb, "STYLE CULLING");
        if (!toStyle(words[0].toUtf8().constData(), style) || !toCulling(words[1].toUtf8().constData(), on))
            return TCL_ERROR;
        setValue(style);
        setCulling(on);
        return TCL_OK;
    }
    if (argc != 2 && (is("getValue") || is("getCulling") || is("getState"))) return usage(interp, verb, "");
    if (is("getValue"))
        setResult(interp, QString::number(m_style));
    else if (is("getCulling"))
        setResult(interp, isCulling() ? "1" : "0");
    else if (is("getState"))
        setResult(interp, QString("%1 %2").arg(m_style).arg(int(isCulling())));
    else
        return VxPort::parse(interp, argc, argv);
    return TCL_OK;
}
