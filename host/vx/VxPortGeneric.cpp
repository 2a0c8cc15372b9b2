#include <vx/VxPortGeneric.h>

#include <algorithm>
#include <cstring>

VxPortGeneric::VxPortGeneric(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

void VxPortGeneric::insert(const Item& item)
{
    int at = findItem(item.id);
    if (at >= 0)
        m_items[at] = item;
    else
        m_items.append(item);
    touch(NEW_ITEMS);
}

void VxPortGeneric::insertCheckBox(int id, const QString& label, int value)
{
    Item item;
    item.id = id;
    item.kind = CHECK_BOX;
    item.entries << label;
    item.value = value != 0;
    insert(item);
}

void VxPortGeneric::insertComboBox(int id, const QStringList& entries, int value)
{
    Item item;
    item.id = id;
    item.kind = COMBO_BOX;
    item.entries = entries;
    item.value = entries.isEmpty() ? -1 : std::min(std::max(value, 0), int(entries.size()) - 1);
    insert(item);
}

void VxPortGeneric::insertIntText(int id, int value, int width)
{
    Item item;
    item.id = id;
    item.kind = INT_TEXT;
    item.value = value;
    item.width = std::max(width, 0);
    insert(item);
}

void VxPortGeneric::insertLabel(int id, const QString& text, int width)
{
    Item item;
    item.id = id;
    item.kind = LABEL;
    item.entries << text;
    item.width = std::max(width, 0);
    insert(item);
}

void VxPortGeneric::removeItem(int id)
{
    int at = findItem(id);
    if (at < 0) return;
    m_items.remove(at);
    touch(NEW_ITEMS);
}

int VxPortGeneric::findItem(int id) const
{
    for (int i = 0; i < m_items.size(); ++i)
        if (m_items[i].id == id) return i;
    return -1;
}

VxPortGeneric::Kind VxPortGeneric::getKind(int id) const
{
    int at = findItem(id);
    return at >= 0 ? m_items[at].kind : LABEL;
}

QStringList VxPortGeneric::getEntries(int id) const
{
    int at = findItem(id);
    return at >= 0 ? m_items[at].entries : QStringList();
}

int VxPortGeneric::getValue(int id) const
{
    int at = findItem(id);
    return at >= 0 && m_items[at].kind != LABEL ? m_items[at].value : 0;
}

int VxPortGeneric::accepted(const Item& item, int v)
{
    switch (item.kind) {
    case CHECK_BOX:
        return v != 0;
    case COMBO_BOX:
        return v >= 0 && v < item.entries.size() ? v : item.value;
    case INT_TEXT:
        return std::min(std::max(v, item.min), item.max);
    case LABEL:
        break;
    }
    return item.value;
}

void VxPortGeneric::setValue(int id, int value)
{
    int at = findItem(id);
    if (at < 0) return;
    Item& item = m_items[at];
    value = accepted(item, value);
    if (value == item.value) return;
    item.value = value;
    touch(NEW_VALUE);
}

void VxPortGeneric::setMinMax(int id, int min, int max)
{
    int at = findItem(id);
    if (at < 0 || m_items[at].kind != INT_TEXT) return;
    takeRange(m_items[at].min, m_items[at].max, min, max);
    setValue(id, m_items[at].value);
}

void VxPortGeneric::setVisible(int id, bool on)
{
    int at = findItem(id);
    if (at < 0 || m_items[at].visible == on) return;
    m_items[at].visible = on;
    touch(NEW_ITEMS);
}

bool VxPortGeneric::isItemVisible(int id) const
{
    int at = findItem(id);
    return at >= 0 && m_items[at].visible;
}

QStringList VxPortGeneric::verbs() const
{
    return QStringList{"setValue", "getValue", "setItemVisible", "isItemVisible",
                       "getItems", "setState", "getState"} +
           VxPort::verbs();
}

QStringList VxPortGeneric::saveState() const
{
    QStringList lines;
    for (const Item& item : m_items)
        if (item.kind != LABEL) lines << QString("setValue %1 %2").arg(item.id).arg(item.value);
    return lines;
}

int VxPortGeneric::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    // An id that names an item holding a value; else an error result.
    auto itemOf = [&](const char* word, bool withValue) -> Item* {
        int id;
        if (!vxscript::toInt(interp, *this, word, id)) return nullptr;
        int at = findItem(id);
        if (at < 0 || (withValue && m_items[at].kind == LABEL)) {
            QStringList ids;
            for (const Item& i : m_items)
                if (!withValue || i.kind != LABEL) ids << QString::number(i.id);
            error(interp, QString("there is no item %1%2; items: %3")
                              .arg(id)
                              .arg(withValue ? " with a value" : "")
                              .arg(ids.isEmpty() ? QString("none") : ids.join(", ")));
            return nullptr;
        }
        return &m_items[at];
    };
    // Checks a value against the item: a combo entry must exist; fields clamp.
    auto checkValue = [&](const Item& item, const char* word, int& v) {
        if (!vxscript::toInt(interp, *this, word, v)) return false;
        if (item.kind == COMBO_BOX && (v < 0 || v >= item.entries.size())) {
            error(interp, QString("index %1 is out of range 0..%2 of item %3")
                              .arg(v)
                              .arg(item.entries.size() - 1)
                              .arg(item.id));
            return false;
        }
        return true;
    };

    if (is("setValue")) {
        int v;
        if (argc != 4) return usage(interp, verb, "ID VALUE");
        Item* item = itemOf(argv[2], true);
        if (!item || !checkValue(*item, argv[3], v)) return TCL_ERROR;
        setValue(item->id, v);
        return TCL_OK;
    }
    if (is("getValue") || is("isItemVisible") || is("getItems")) {
        if (argc != 3) return usage(interp, verb, "ID");
        Item* item = itemOf(argv[2], is("getValue"));
        if (!item) return TCL_ERROR;
        if (is("getItems"))
            setResult(interp, vxscript::join(item->entries));
        else
            setResult(interp, QString::number(is("getValue") ? item->value : int(item->visible)));
        return TCL_OK;
    }
    if (is("setItemVisible")) {
        bool on;
        if (argc != 4) return usage(interp, verb, "ID ON");
        Item* item = itemOf(argv[2], false);
        if (!item || !vxscript::toBool(interp, *this, argv[3], on)) return TCL_ERROR;
        setVisible(item->id, on);
        return TCL_OK;
    }
    // The state: the values of the items that hold one, in the order shown.
    QVector<Item*> valued;
    for (Item& item : m_items)
        if (item.kind != LABEL) valued << &item;
    if (is("setState"))
        return parseState<int>(
            interp, argc, argv, valued.size(), "values, one per item with a value",
            [&](int i, const char* word, int& v) { return checkValue(*valued[i], word, v); },
            [&](int i, int v) { setValue(valued[i]->id, v); });
    if (is("getState")) {
        QStringList values;
        for (const Item* item : valued) values << QString::number(item->value);
        return reply(interp, argc, argv, values.join(' '));
    }
    return VxPort::parse(interp, argc, argv);
}
