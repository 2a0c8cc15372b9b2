#pragma once
#include <vx/VxPort.h>

#include <QVector>

// A row of check boxes. Each item keeps its own change flag, so a module can tell which toggle
// the user changed (isItemNew) besides whether any did (isNew).
class VxPortToggleList : public VxPort
{
public:
    VxPortToggleList(VxObject* owner, const QString& label, const QString& name, int count);

    int getNum() const { return m_items.size(); }
    // Grows with unchecked, unlabelled items or drops items from the end; touches NEW_ITEMS.
    void setNum(int count);

    // Out-of-range indices read false and are ignored when written.
    bool getValue(int index) const;
    // Touches NEW_VALUE and marks the item new only when its value changes.
    void setValue(int index, bool on);
    // The first item (ports with one toggle).
    void setValue(bool on) { setValue(0, on); }

    using VxPort::getLabel;
    using VxPort::setLabel;
    QString getLabel(int index) const;
    void setLabel(int index, const QString& label);
    // A greyed-out item cannot be changed by the user.
    void setSensitivity(int index, bool sensitive);
    bool getSensitivity(int index) const;

    bool isItemNew(int index) const;
    // Clears the port's and every item's change flags.
    void untouch(bool all = true) override;

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    struct Item
    {
        bool value = false;
        bool isNew = false;
        bool sensitive = true;
        QString label;
    };
    QVector<Item> m_items;
};
