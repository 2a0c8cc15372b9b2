#pragma once
#include <vx/VxPort.h>

#include <QStringList>

// A group of radio buttons: exactly one is selected (none when the group is empty).
class VxPortRadioBox : public VxPort
{
public:
    VxPortRadioBox(VxObject* owner, const QString& label, const QString& name, int count);

    int getNum() const { return m_labels.size(); }
    // Changes the number of buttons (new ones unlabelled); a selection past the end moves to the
    // last button. Touches NEW_ITEMS.
    void setNum(int count);

    int getIndex() const { return m_index; }
    // Out-of-range indices are ignored; touches NEW_VALUE only when the selection changes.
    void setIndex(int index);
    int getValue() const { return getIndex(); }
    void setValue(int index) { setIndex(index); }

    using VxPort::getLabel;
    using VxPort::setLabel;
    QString getLabel(int index) const { return m_labels.value(index); }
    void setLabel(int index, const QString& label);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    QStringList m_labels;
    int m_index = 0;
};
