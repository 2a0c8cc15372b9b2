#pragma once
#include <vx/VxPort.h>

// A line of text.
class VxPortText : public VxPort
{
public:
    VxPortText(VxObject* owner, const QString& label, const QString& name) : VxPort(owner, label, name) {}

    const QString& getValue() const { return m_value; }
    // Touches NEW_VALUE only when the text changes.
    void setValue(const QString& text);

    // "setValue TEXT": several words are joined with single blanks, so "setValue 1 2 3" and
    // "setValue {1 2 3}" give the same text.
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    QStringList verbs() const override;

private:
    QString m_value;
};
