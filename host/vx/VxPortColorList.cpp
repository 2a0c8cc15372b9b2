#include <vx/VxPortColorList.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
QString colorText(const KxColor& c)
{
    using vxscript::number;
    return QString("%1 %2 %3").arg(number(c.r), number(c.g), number(c.b));
}
} // namespace

VxPortColorList::VxPortColorList(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name), m_items(std::max(count, 0))
{
}

bool VxPortColorList::getColor(KxColor& color, int index) const
{
    if (index < 0 || index >= m_items.size()) return false;
    color = m_items[index].color;
    return true;
}

void VxPortColorList::setColor(const KxColor& color, int index)
{
    if (index < 0 || index >= m_items.size()) return;
    KxColor c;
    for (int i = 0; i < 3; ++i) {
        if (std::isnan(color[i])) return;
        c[i] = std::min(1.f, std::max(0.f, color[i]));
    }
    if (c == m_items[index].color) return;
    m_items[index].color = c;
    touch(NEW_VALUE);
}

void VxPortColorList::setLabel(int index, const QString& label)
{
    if (index < 0 || index >= m_items.size() || m_items[index].label == label) return;
    m_items[index].label = label;
    touch(NEW_ITEMS);
}

QStringList VxPortColorList::verbs() const
{
    return QStringList{"setColor", "getColor", "setValue", "getValue", "setLabel",
                       "getLabel", "getNum",   "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortColorList::saveState() const
{
    QStringList lines;
    for (int i = 0; i < m_items.size(); ++i)
        lines << QString("setColor %1 %2").arg(i).arg(colorText(m_items[i].color));
    return lines;
}

int VxPortColorList::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    const int n = m_items.size();
    int index = 0;
    auto toColor = [&](const QStringList& words, KxColor& c) {
        for (int i = 0; i < 3; ++i)
            if (!vxscript::toFloat(interp, *this, words[i].toUtf8().constData(), c[i])) return false;
        return true;
    };

    if (is("setColor") || is("setValue")) {
        // "setColor INDEX R G B" or "setColor INDEX {R G B}".
        QStringList words;
        if (argc < 4) return usage(interp, verb, "INDEX R G B");
        if (!vxscript::toIndex(interp, *this, argv[2], n, index)) return TCL_ERROR;
        if (!vxscript::toWords(interp, *this, argc, argv, 3, words)) return TCL_ERROR;
        KxColor c;
        if (words.size() != 3) return usage(interp, verb, "INDEX R G B");
        if (!toColor(words, c)) return TCL_ERROR;
        setColor(c, index);
        return TCL_OK;
    }
    if (is("getColor") || is("getValue") || (is("getLabel") && argc == 3)) {
        if (!optionalIndex(interp, argc, argv, 3, n, "[INDEX]", index)) return TCL_ERROR;
        setResult(interp, is("getLabel") ? m_items[index].label : colorText(m_items[index].color));
        return TCL_OK;
    }
    if (is("setLabel"))
        return parseSetLabel(interp, argc, argv, n,
                             [this](int i, const QString& text) { setLabel(i, text); });
    if (is("getNum")) return reply(interp, argc, argv, QString::number(n));
    if (is("setState")) {
        // One {R G B} per item.
        auto read = [&](int i, const char* item, KxColor& c) {
            QByteArray text(item);
            char* one[] = {text.data()};
            QStringList words;
            if (!vxscript::toWords(interp, *this, 1, one, 0, words)) return false;
            if (words.size() == 3) return toColor(words, c);
            error(interp,
                  QString("colour %1 \"%2\" is not three numbers R G B").arg(i).arg(QString::fromUtf8(item)));
            return false;
        };
        return parseState<KxColor>(interp, argc, argv, n, "colours {R G B}, one per item", read,
                                   [this](int i, const KxColor& c) { setColor(c, i); });
    }
    if (is("getState")) {
        QStringList items;
        for (const Item& item : m_items) items << colorText(item.color);
        return reply(interp, argc, argv, vxscript::join(items));
    }
    return VxPort::parse(interp, argc, argv);
}
