#include <vx/VxPortButtonList.h>

#include <algorithm>
#include <cstring>

VxPortButtonList::VxPortButtonList(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name), m_buttons(std::max(count, 0))
{
}

void VxPortButtonList::setNum(int count)
{
    count = std::max(count, 0);
    if (count == m_buttons.size()) return;
    m_buttons.resize(count);
    touch(NEW_ITEMS);
}

void VxPortButtonList::hit(int index)
{
    if (index < 0 || index >= m_buttons.size()) return;
    m_buttons[index].hit = true;
    touch(NEW_VALUE);
}

bool VxPortButtonList::wasHit(int index) const
{
    return index >= 0 && index < m_buttons.size() && (m_buttons[index].hit || m_buttons[index].snapped);
}

int VxPortButtonList::getValue() const
{
    for (int i = 0; i < m_buttons.size(); ++i)
        if (wasHit(i)) return i;
    return -1;
}

void VxPortButtonList::snap(int index, bool on)
{
    if (index < 0 || index >= m_buttons.size() || m_buttons[index].snapped == on) return;
    m_buttons[index].snapped = on;
    if (on) touch(NEW_VALUE);
}

bool VxPortButtonList::isSnapped(int index) const
{
    return index >= 0 && index < m_buttons.size() && m_buttons[index].snapped;
}

QString VxPortButtonList::getLabel(int index) const
{
    return index >= 0 && index < m_buttons.size() ? m_buttons[index].label : QString();
}

void VxPortButtonList::setLabel(int index, const QString& label)
{
    if (index < 0 || index >= m_buttons.size() || m_buttons[index].label == label) return;
    m_buttons[index].label = label;
    touch(NEW_ITEMS);
}

void VxPortButtonList::untouch(bool all)
{
    for (Button& b : m_buttons) b.hit = false;
    VxPort::untouch(all);
}

QStringList VxPortButtonList::verbs() const
{
    return QStringList{"hit", "wasHit", "getValue", "snap", "isSnapped", "setLabel", "getLabel", "getNum"} +
           VxPort::verbs();
}

int VxPortButtonList::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    const int n = m_buttons.size();
    int index;

    if (is("hit") || is("wasHit") || is("isSnapped") || (is("getLabel") && argc == 3)) {
        // The index defaults to the first button.
        if (!optionalIndex(interp, argc, argv, 3, n, "[INDEX]", index)) return TCL_ERROR;
        if (is("hit"))
            hit(index);
        else if (is("getLabel"))
            setResult(interp, getLabel(index));
        else
            setResult(interp, (is("wasHit") ? wasHit(index) : isSnapped(index)) ? "1" : "0");
        return TCL_OK;
    }
    if (is("snap")) return parseSetFlag(interp, argc, argv, n, [this](int i, bool on) { snap(i, on); });
    if (is("setLabel"))
        return parseSetLabel(interp, argc, argv, n,
                             [this](int i, const QString& text) { setLabel(i, text); });
    if (is("getValue") || is("getNum"))
        return reply(interp, argc, argv, QString::number(is("getNum") ? n : getValue()));
    return VxPort::parse(interp, argc, argv);
}
