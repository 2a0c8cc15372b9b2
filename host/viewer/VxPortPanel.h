#pragma once
#include <QStringList>
#include <QWidget>

#include <functional>

class VxObject;
class VxPort;

// The ports of one object as widgets, made from the ports themselves: sliders with a text field,
// text fields, toggles, radio buttons, menus, buttons, colours, fonts, the generic port's items and
// the connections' source menus. Hidden ports are left out and insensitive ones greyed. A change
// from a widget is a script command (the same port code as a script, so saved networks record it);
// the panel is made again from the ports after each command.
class VxPortPanel : public QWidget
{
    Q_OBJECT

public:
    // run: carries out one script command (its words, quoted as needed) and reports failures.
    using Run = std::function<void(const QStringList& words)>;
    VxPortPanel(Run run, QWidget* parent = nullptr);

    // Shows the object's ports (none for null).
    void setObject(VxObject* object);
    VxObject* object() const { return m_object; }
    // Makes the widgets again from the ports' current state.
    void refresh();

private:
    QWidget* widgetFor(VxPort* port);
    void command(VxPort* port, const QStringList& words);

    Run m_run;
    VxObject* m_object = nullptr;
    QWidget* m_body = nullptr;
};
