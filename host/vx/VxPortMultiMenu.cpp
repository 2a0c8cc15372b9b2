#include <vx/VxPortMultiMenu.h>

#include <algorithm>
#include <cstring>

VxPortMultiMenu::VxPortMultiMenu(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name), m_menus(std::max(count, 0))
{
}

int VxPortMultiMenu::getValue(int menu) const
{
    return valid(menu) ? m_menus[menu].value : -1;
}

void VxPortMultiMenu::setValue(int menu, int item)
{
    if (!valid(menu) || item < 0 || item >= m_menus[menu].items.size() || m_menus[menu].value == item) return;
    m_menus[menu].value = item;
    touch(NEW_VALUE);
}

void VxPortMultiMenu::setItems(int menu, const QStringList& items)
{
    if (!valid(menu)) return;
    Menu& m = m_menus[menu];
    if (m.items != items) {
        m.items = items;
        touch(NEW_ITEMS);
    }
    int value = m.value >= 0 && m.value < items.size() ? m.value : (items.isEmpty() ? -1 : 0);
    if (value != m.value) {
        m.value = value;
        touch(NEW_VALUE);
    }
}

QStringList VxPortMultiMenu::getItems(int menu) const
{
    return valid(menu) ? m_menus[menu].items : QStringList();
}

void VxPortMultiMenu::setLabel(int menu, const QString& label)
{
    if (!valid(menu) || m_menus[menu].label == label) return;
    m_menus[menu].label = label;
    touch(NEW_ITEMS);
}

void VxPortMultiMenu::setLabel(int menu, int item, const QString& label)
{
    if (!valid(menu) || item < 0 || item >= m_menus[menu].items.size() || m_menus[menu].items[item] == label)
        return;
    m_menus[menu].items[item] = label;
    touch(NEW_ITEMS);
}

QStringList VxPortMultiMenu::verbs() const
{
    return QStringList{"setValue",    "getValue", "setIndex", "getIndex", "getNum",
                       "getNumItems", "getItems", "getLabel", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortMultiMenu::saveState() const
{
    QStringList lines;
    for (int i = 0; i < m_menus.size(); ++i)
        if (m_menus[i].value >= 0) lines << QString("setValue %1 %2").arg(i).arg(m_menus[i].value);
    return lines;
}

int VxPortMultiMenu::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    const int n = m_menus.size();
    int menu = 0, item;

    if (is("setValue") || is("setIndex")) {
        // "setValue ITEM" selects in the first menu, "setValue MENU ITEM" in any.
        if (!optionalIndex(interp, argc, argv, 4, n, "[MENU] ITEM", menu)) return TCL_ERROR;
        if (!vxscript::toIndex(interp, *this, argv[argc - 1], m_menus[menu].items.size(), item))
            return TCL_ERROR;
        setValue(menu, item);
        return TCL_OK;
    }
    if (is("getValue") || is("getIndex") || is("getNumItems") || is("getItems") ||
        (is("getLabel") && argc == 3)) {
        if (!optionalIndex(interp, argc, argv, 3, n, "[MENU]", menu)) return TCL_ERROR;
        const Menu& m = m_menus[menu];
        if (is("getLabel"))
            setResult(interp, m.label);
        else if (is("getItems"))
            setResult(interp, vxscript::join(m.items));
        else
            setResult(interp, QString::number(is("getNumItems") ? m.items.size() : m.value));
        return TCL_OK;
    }
    if (is("getNum")) return reply(interp, argc, argv, QString::number(n));
    if (is("setState")) {
        // A menu without items keeps its "no selection".
        auto read = [&](int i, const char* word, int& value) {
            if (!strcmp(word, "-1") && m_menus[i].items.isEmpty()) {
                value = -1;
                return true;
            }
            return vxscript::toIndex(interp, *this, word, m_menus[i].items.size(), value);
        };
        return parseState<int>(interp, argc, argv, n, "items, one per menu", read,
                               [this](int i, int value) { setValue(i, value); });
    }
    if (is("getState")) {
        QStringList values;
        for (const Menu& m : m_menus) values << QString::number(m.value);
        return reply(interp, argc, argv, values.join(' '));
    }
    return VxPort::parse(interp, argc, argv);
}
