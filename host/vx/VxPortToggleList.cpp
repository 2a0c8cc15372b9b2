#include <vx/VxPortToggleList.h>

#include <cstring>

VxPortToggleList::VxPortToggleList(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name), m_items(std::max(count, 0))
{
}

void VxPortToggleList::setNum(int count)
{
    count = std::max(count, 0);
    if (count == m_items.size()) return;
    m_items.resize(count);
    touch(NEW_ITEMS);
}

bool VxPortToggleList::getValue(int index) const
{
    return index >= 0 && index < m_items.size() && m_items[index].value;
}

void VxPortToggleList::setValue(int index, bool on)
{
    if (index < 0 || index >= m_items.size() || m_items[index].value == on) return;
    m_items[index].value = on;
    m_items[index].isNew = true;
    touch(NEW_VALUE);
}

QString VxPortToggleList::getLabel(int index) const
{
    return index >= 0 && index < m_items.size() ? m_items[index].label : QString();
}

void VxPortToggleList::setLabel(int index, const QString& label)
{
    if (index < 0 || index >= m_items.size() || m_items[index].label == label) return;
    m_items[index].label = label;
    touch(NEW_ITEMS);
}

void VxPortToggleList::setSensitivity(int index, bool sensitive)
{
    if (index < 0 || index >= m_items.size() || m_items[index].sensitive == sensitive) return;
    m_items[index].sensitive = sensitive;
    touch(NEW_ITEMS);
}

bool VxPortToggleList::getSensitivity(int index) const
{
    return index >= 0 && index < m_items.size() && m_items[index].sensitive;
}

bool VxPortToggleList::isItemNew(int index) const
{
    return index >= 0 && index < m_items.size() && m_items[index].isNew;
}

void VxPortToggleList::untouch(bool all)
{
    for (Item& item : m_items) item.isNew = false;
    VxPort::untouch(all);
}

QStringList VxPortToggleList::verbs() const
{
    return QStringList{"setValue",       "getValue",       "setNum",    "getNum",   "setLabel", "getLabel",
                       "setSensitivity", "getSensitivity", "isItemNew", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortToggleList::saveState() const
{
    QStringList lines;
    for (int i = 0; i < m_items.size(); ++i)
        lines << QString("setValue %1 %2").arg(i).arg(int(m_items[i].value));
    return lines;
}

int VxPortToggleList::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    const int n = m_items.size();
    int index = 0;

    if (is("setValue")) {
        // "setValue ON" sets the first toggle, "setValue INDEX ON" any.
        bool on;
        if (!optionalIndex(interp, argc, argv, 4, n, "[INDEX] ON", index)) return TCL_ERROR;
        if (!vxscript::toBool(interp, *this, argv[argc - 1], on)) return TCL_ERROR;
        setValue(index, on);
        return TCL_OK;
    }
    if (is("getValue") || is("getSensitivity") || is("isItemNew") || (is("getLabel") && argc == 3)) {
        if (!optionalIndex(interp, argc, argv, 3, n, "[INDEX]", index)) return TCL_ERROR;
        if (is("getLabel"))
            setResult(interp, getLabel(index));
        else {
            bool v = is("getValue")    ? getValue(index)
                     : is("isItemNew") ? isItemNew(index)
                                       : getSensitivity(index);
            setResult(interp, v ? "1" : "0");
        }
        return TCL_OK;
    }
    if (is("setSensitivity"))
        return parseSetFlag(interp, argc, argv, n, [this](int i, bool on) { setSensitivity(i, on); });
    if (is("setLabel"))
        return parseSetLabel(interp, argc, argv, n,
                             [this](int i, const QString& text) { setLabel(i, text); });
    if (is("setNum")) return parseSetNum(interp, argc, argv, [this](int count) { setNum(count); });
    if (is("getNum")) return reply(interp, argc, argv, QString::number(n));
    if (is("setState"))
        return parseState<bool>(
            interp, argc, argv, n, "values, one per toggle",
            [&](int, const char* word, bool& on) { return vxscript::toBool(interp, *this, word, on); },
            [this](int i, bool on) { setValue(i, on); });
    if (is("getState")) {
        QStringList values;
        for (const Item& item : m_items) values << (item.value ? "1" : "0");
        return reply(interp, argc, argv, values.join(' '));
    }
    return VxPort::parse(interp, argc, argv);
}
