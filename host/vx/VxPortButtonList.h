#pragma once
#include <vx/VxPort.h>

#include <QVector>

// A row of push buttons. A hit lasts until the module has run (the framework untouches the port
// after compute()); a snapped button counts as hit on every run until it is unsnapped.
// Hits are events, not settings: the port saves nothing.
class VxPortButtonList : public VxPort
{
public:
    VxPortButtonList(VxObject* owner, const QString& label, const QString& name, int count);

    int getNum() const { return m_buttons.size(); }
    void setNum(int count);

    // Presses the button; always touches NEW_VALUE, since pressing again means "run again".
    void hit(int index = 0);
    bool wasHit(int index = 0) const;
    // The first button hit (or snapped), or -1.
    int getValue() const;

    // A snapped button stays pressed. Snapping touches NEW_VALUE so the module runs.
    void snap(int index, bool on);
    bool isSnapped(int index) const;

    using VxPort::getLabel;
    using VxPort::setLabel;
    QString getLabel(int index) const;
    void setLabel(int index, const QString& label);

    // Releases the buttons that are not snapped.
    void untouch(bool all = true) override;

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList verbs() const override;

private:
    struct Button
    {
        bool hit = false;
        bool snapped = false;
        QString label;
    };
    QVector<Button> m_buttons;
};
