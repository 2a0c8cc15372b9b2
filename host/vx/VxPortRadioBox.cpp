#include <vx/VxPortRadioBox.h>

#include <algorithm>
#include <cstring>

VxPortRadioBox::VxPortRadioBox(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name)
{
    for (int i = 0; i < count; ++i) m_labels << QString();
}

void VxPortRadioBox::setNum(int count)
{
    count = std::max(count, 0);
    if (count == m_labels.size()) return;
    while (m_labels.size() < count) m_labels << QString();
    while (m_labels.size() > count) m_labels.removeLast();
    touch(NEW_ITEMS);
    if (m_index >= count && count > 0) {
        m_index = count - 1;
        touch(NEW_VALUE);
    }
}

void VxPortRadioBox::setIndex(int index)
{
    if (index < 0 || index >= m_labels.size() || index == m_index) return;
    m_index = index;
    touch(NEW_VALUE);
}

void VxPortRadioBox::setLabel(int index, const QString& label)
{
    if (index < 0 || index >= m_labels.size() || m_labels[index] == label) return;
    m_labels[index] = label;
    touch(NEW_ITEMS);
}

QStringList VxPortRadioBox::verbs() const
{
    return QStringList{"setValue", "getValue", "setIndex", "getIndex", "setNum",
                       "getNum",   "setLabel", "getLabel", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortRadioBox::saveState() const
{
    return {QString("setIndex %1").arg(m_index)};
}

int VxPortRadioBox::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    int index;

    if (is("setValue") || is("setIndex") || is("setState")) {
        if (argc != 3) return usage(interp, verb, "INDEX");
        if (!vxscript::toIndex(interp, *this, argv[2], getNum(), index)) return TCL_ERROR;
        setIndex(index);
        return TCL_OK;
    }
    if (is("getValue") || is("getIndex") || is("getState"))
        return reply(interp, argc, argv, QString::number(m_index));
    if (is("setNum")) return parseSetNum(interp, argc, argv, [this](int count) { setNum(count); });
    if (is("getNum")) return reply(interp, argc, argv, QString::number(getNum()));
    if (is("setLabel"))
        return parseSetLabel(interp, argc, argv, getNum(),
                             [this](int i, const QString& text) { setLabel(i, text); });
    if (is("getLabel") && argc == 3) {
        if (!vxscript::toIndex(interp, *this, argv[2], getNum(), index)) return TCL_ERROR;
        setResult(interp, m_labels[index]);
        return TCL_OK;
    }
    return VxPort::parse(interp, argc, argv);
}
