#pragma once
#include <vx/VxPort.h>

#include <QStringList>
#include <QVector>

// A row of drop-down menus, each with its own label, items and selected item.
class VxPortMultiMenu : public VxPort
{
public:
    VxPortMultiMenu(VxObject* owner, const QString& label, const QString& name, int count);

    int getNum() const { return m_menus.size(); }
    // The selected item of a menu (-1 for a menu without items or a bad index).
    int getValue(int menu = 0) const;
    // Out-of-range menus or items are ignored; touches NEW_VALUE only on a change.
    void setValue(int menu, int item);
    void setValue(int item) { setValue(0, item); }

    // The menu's items; the selection is kept when it still exists, else the first item.
    void setItems(int menu, const QStringList& items);
    QStringList getItems(int menu) const;
    int getNumItems(int menu) const { return valid(menu) ? m_menus[menu].items.size() : 0; }

    using VxPort::getLabel;
    using VxPort::setLabel;
    // The label shown beside a menu.
    QString getLabel(int menu) const { return valid(menu) ? m_menus[menu].label : QString(); }
    void setLabel(int menu, const QString& label);
    // The text of one item of a menu.
    void setLabel(int menu, int item, const QString& label);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    struct Menu
    {
        QString label;
        QStringList items;
        int value = -1;
    };
    bool valid(int menu) const { return menu >= 0 && menu < m_menus.size(); }
    QVector<Menu> m_menus;
};
