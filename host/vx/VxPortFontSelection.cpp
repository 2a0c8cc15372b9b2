#include <vx/VxPortFontSelection.h>

#include <QFont>

#include <algorithm>
#include <cmath>
#include <cstring>

VxPortFontSelection::VxPortFontSelection(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

QString VxPortFontSelection::getFontDescription() const
{
    bool bold = m_weight >= BOLD_WEIGHT;
    if (!bold && !m_italic) return m_family;
    return m_family + (bold && m_italic ? ":Bold Italic" : bold ? ":Bold" : ":Italic");
}

void VxPortFontSelection::setFont(const QFont* font)
{
    if (!font) return;
    int size = font->pointSize() > 0 ? font->pointSize() : font->pixelSize();
    setFont(font->family(), size, font->weight(), font->italic());
}

void VxPortFontSelection::setFont(const QString& family, int size, int weight, bool italic)
{
    size = std::max(size, 1);
    weight = std::min(std::max(weight, 0), 99);
    if (family == m_family && size == m_size && weight == m_weight && italic == m_italic) return;
    m_family = family;
    m_size = size;
    m_weight = weight;
    m_italic = italic;
    touch(NEW_VALUE);
}

void VxPortFontSelection::setFontColor(const KxColor& color)
{
    KxColor c;
    for (int i = 0; i < 3; ++i) {
        if (std::isnan(color[i])) return;
        c[i] = std::min(1.f, std::max(0.f, color[i]));
    }
    if (c == m_color) return;
    m_color = c;
    touch(NEW_VALUE);
}

QStringList VxPortFontSelection::verbs() const
{
    return QStringList{"setFont",      "getFont",      "getFontDescription", "getFontSize",
                       "setFontColor", "getFontColor", "setState",           "getState"} +
           VxPort::verbs();
}

static QString colorText(const KxColor& c)
{
    using vxscript::number;
    return QString("%1 %2 %3").arg(number(c.r), number(c.g), number(c.b));
}

QStringList VxPortFontSelection::saveState() const
{
    return {vxscript::join({"setFont", m_family, QString::number(m_size), QString::number(m_weight),
                            m_italic ? "1" : "0"}),
            "setFontColor " + colorText(m_color)};
}

int VxPortFontSelection::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    const char* fontUsage = "FAMILY SIZE [WEIGHT [ITALIC]]";

    // setFont FAMILY SIZE [WEIGHT [ITALIC]] and setFontColor R G B; the state is all seven words.
    if (is("setFont") || is("setFontColor") || is("setState")) {
        QStringList w;
        if (!vxscript::toWords(interp, *this, argc, argv, 2, w)) return TCL_ERROR;
        const bool font = is("setFont"), color = is("setFontColor");
        if (font && (w.size() < 2 || w.size() > 4)) return usage(interp, verb, fontUsage);
        if (color && w.size() != 3) return usage(interp, verb, "R G B");
        if (!font && !color && w.size() != 7) return usage(interp, verb, "FAMILY SIZE WEIGHT ITALIC R G B");
        int size = m_size, weight = NORMAL_WEIGHT;
        bool italic = false;
        KxColor c = m_color;
        auto arg = [&w](int i) { return w[i].toUtf8(); };
        if (!color) {
            if (w[0].isEmpty()) return error(interp, "the font family is empty");
            if (!vxscript::toInt(interp, *this, arg(1).constData(), size)) return TCL_ERROR;
            if (size < 1) return error(interp, QString("the font size %1 is not positive").arg(size));
            if (w.size() > 2 && !vxscript::toInt(interp, *this, arg(2).constData(), weight)) return TCL_ERROR;
            if (weight < 0 || weight > 99)
                return error(interp, QString("the font weight %1 is out of range 0..99").arg(weight));
            if (w.size() > 3 && !vxscript::toBool(interp, *this, arg(3).constData(), italic))
                return TCL_ERROR;
        }
        if (!font) {
            const int first = color ? 0 : 4;
            for (int i = 0; i < 3; ++i)
                if (!vxscript::toFloat(interp, *this, arg(first + i).constData(), c[i])) return TCL_ERROR;
        }
        if (!color) setFont(w[0], size, weight, italic);
        if (!font) setFontColor(c);
        return TCL_OK;
    }
    if (argc != 2 && (is("getFont") || is("getFontDescription") || is("getFontSize") || is("getFontColor") ||
                      is("getState")))
        return usage(interp, verb, "");
    if (is("getFont"))
        setResult(interp, vxscript::join({m_family, QString::number(m_size), QString::number(m_weight),
                                          m_italic ? "1" : "0"}));
    else if (is("getFontDescription"))
        setResult(interp, getFontDescription());
    else if (is("getFontSize"))
        setResult(interp, QString::number(m_size));
    else if (is("getFontColor"))
        setResult(interp, colorText(m_color));
    else if (is("getState"))
        setResult(interp, vxscript::join({m_family, QString::number(m_size), QString::number(m_weight),
                                          m_italic ? "1" : "0", vxscript::number(m_color.r),
                                          vxscript::number(m_color.g), vxscript::number(m_color.b)}));
    else
        return VxPort::parse(interp, argc, argv);
    return TCL_OK;
}
