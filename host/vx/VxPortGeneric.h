#pragma once
#include <vx/VxPort.h>

#include <QStringList>
#include <QVector>

#include <cstdint>

// A port assembled from widgets, each inserted under an id of the module's choosing: check boxes,
// combo boxes, integer fields and labels, shown in the order of insertion. Every item but a
// label holds an integer value: 0 or 1, the selected entry, or the number.
class VxPortGeneric : public VxPort
{
public:
    enum Kind
    {
        CHECK_BOX,
        COMBO_BOX,
        INT_TEXT,
        LABEL
    };

    VxPortGeneric(VxObject* owner, const QString& label, const QString& name);

    // Inserting under an id that exists replaces that item in place.
    void insertCheckBox(int id, const QString& label, int value = 0);
    void insertComboBox(int id, const QStringList& entries, int value = 0);
    // width: the field's width in characters (0: the default).
    void insertIntText(int id, int value, int width = 0);
    // width: the label's minimum width in characters (0: as wide as its text).
    void insertLabel(int id, const QString& text, int width = 0);
    void removeItem(int id);

    // The item's position in the port, or -1 when there is none with that id.
    int findItem(int id) const;
    int getNumItems() const { return m_items.size(); }
    Kind getKind(int id) const;
    // Entries of a combo box, or the text of a check box or label.
    QStringList getEntries(int id) const;

    // The item's value (0 for labels and unknown ids).
    int getValue(int id) const;
    // Check boxes take any nonzero value as 1; a combo box ignores an entry it does not have; an
    // integer field clamps into its range. Touches NEW_VALUE only on a change.
    void setValue(int id, int value);
    // Range of an integer field (unbounded until set).
    void setMinMax(int id, int min, int max);
    void setVisible(int id, bool on);
    bool isItemVisible(int id) const;
    using VxPort::setVisible;

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    struct Item
    {
        int id = 0;
        Kind kind = LABEL;
        QStringList entries; // combo entries; [0] is the text of a check box or label
        int value = 0;
        int min = INT32_MIN;
        int max = INT32_MAX;
        int width = 0;
        bool visible = true;
    };
    void insert(const Item& item);
    // The value the item can hold that is nearest to v.
    static int accepted(const Item& item, int v);
    QVector<Item> m_items;
};
