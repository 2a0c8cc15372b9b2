#pragma once
#include <kx/KxColor.h>
#include <vx/VxPort.h>

#include <QVector>

// A list of labelled colour buttons.
class VxPortColorList : public VxPort
{
public:
    VxPortColorList(VxObject* owner, const QString& label, const QString& name, int count);

    int getNum() const { return m_items.size(); }
    // Out-of-range indices leave the colour as it is (and return false).
    bool getColor(KxColor& color, int index = 0) const;
    // Components are clamped into [0, 1]; NaN is ignored. A change touches NEW_VALUE.
    void setColor(const KxColor& color, int index = 0);

    using VxPort::getLabel;
    using VxPort::setLabel;
    QString getLabel(int index) const
    {
        return index >= 0 && index < m_items.size() ? m_items[index].label : QString();
    }
    void setLabel(int index, const QString& label);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    struct Item
    {
        KxColor color{1.f, 1.f, 1.f};
        QString label;
    };
    QVector<Item> m_items;
};
