#pragma once
#include <QString>
#include <QStringList>

#include <tcl.h>

#include <functional>

class VxObject;

// A port: one named, script-addressable piece of a module's state (a slider, a toggle list, a
// button, a connection). Ports carry change flags that the framework clears after each compute(),
// so a module's update() and compute() can ask what changed since its last run.
class VxPort
{
public:
    // Change flags; isNew(mask) tests any of them. A value change is the common case.
    enum ChangeFlag : unsigned
    {
        NEW_VALUE = 1u << 0,
        NEW_RANGE = 1u << 1,
        NEW_SOURCE = 1u << 2, // a connection got another source (or none)
        NEW_DATA = 1u << 3,   // the connected object's contents changed
        NEW_ITEMS = 1u << 4,  // labels, item count, sensitivity
        NEW_ALL = ~0u
    };

    // Registers the port with its owner, at the end of the owner's list (display order).
    VxPort(VxObject* owner, const QString& label, const QString& name);
    virtual ~VxPort();
    VxPort(const VxPort&) = delete;
    VxPort& operator=(const VxPort&) = delete;

    VxObject* getOwner() const { return m_owner; }
    const QString& getName() const { return m_name; }
    const QString& getLabel() const { return m_label; }
    void setLabel(const QString& label);
    // A second script name the port answers to.
    void setAliasName(const QString& alias) { m_alias = alias; }
    const QString& getAliasName() const { return m_alias; }
    bool answersTo(const QString& word) const { return word == m_name || (!m_alias.isEmpty() && word == m_alias); }
    void setToolTip(const QString& text) { m_toolTip = text; }
    const QString& getToolTip() const { return m_toolTip; }

    bool isNew(unsigned mask = NEW_ALL) const { return (m_flags & mask) != 0; }
    unsigned getFlags() const { return m_flags; }
    // Marks the port changed and tells the owner that it needs to run again.
    void touch(unsigned mask = NEW_VALUE);
    // Clears the change flags (the framework does so after compute()).
    virtual void untouch(bool all = true);

    // Visibility is a counter, so independent reasons to hide a port can nest.
    void show() { m_hideMask = 0; }
    void hide() { m_hideMask = m_hideMask ? m_hideMask : 1; }
    void setVisible(bool on) { on ? show() : hide(); }
    bool isVisible() const { return m_hideMask == 0; }
    void hideMaskIncrease() { ++m_hideMask; }
    void hideMaskDecrease()
    {
        if (m_hideMask > 0) --m_hideMask;
    }
    int getHideMask() const { return m_hideMask; }

    // Whether the user may change the port (a port can be shown greyed out).
    void setSensitive(bool on) { m_sensitive = on; }
    bool isSensitive() const { return m_sensitive; }

    // Withdraws the port from its owner's list: it is no longer listed, addressed or saved.
    void removeFromOwnerAllPorts();

    // Script command on the port: argv[0] is the port's name, argv[1] the verb. Sets the result
    // and returns TCL_OK or TCL_ERROR. Derived ports handle their own verbs and pass the rest here.
    virtual int parse(Tcl_Interp* interp, int argc, char** argv);

    // The commands (verb and arguments, without the object and port names) that bring a fresh port
    // to this port's state; saved networks replay them.
    virtual QStringList saveState() const { return {}; }
    // Whether saved networks record this port. Hidden ports are not saved.
    virtual bool isSaved() const { return isVisible(); }

    // The verbs parse() understands, for error messages and help.
    virtual QStringList verbs() const;

protected:
    // Sets an error result "port "name": <text>" and returns TCL_ERROR.
    int error(Tcl_Interp* interp, const QString& text) const;
    // Sets a usage error for the verb and returns TCL_ERROR.
    int usage(Tcl_Interp* interp, const char* verb, const char* arguments) const;
    // "setLabel INDEX TEXT" of ports with count labelled items: checks the words, then set(index, text).
    int parseSetLabel(Tcl_Interp* interp, int argc, char** argv, int count,
                      const std::function<void(int, const QString&)>& set) const;

private:
    friend class VxObject;
    VxObject* m_owner;
    QString m_label;
    QString m_name;
    QString m_alias;
    QString m_toolTip;
    unsigned m_flags = 0;
    int m_hideMask = 0;
    bool m_sensitive = true;
    bool m_listed = false;
};

// Helpers for the script verbs of ports.
namespace vxscript {
// Parses a number; false (and an error result naming the port and word) when it is not one.
bool toInt(Tcl_Interp* interp, const VxPort& port, const char* word, int& value);
bool toFloat(Tcl_Interp* interp, const VxPort& port, const char* word, float& value);
bool toDouble(Tcl_Interp* interp, const VxPort& port, const char* word, double& value);
bool toBool(Tcl_Interp* interp, const VxPort& port, const char* word, bool& value);
// Parses an item index in [0, count); false (and an error result naming the range) when it is not.
bool toIndex(Tcl_Interp* interp, const VxPort& port, const char* word, int count, int& index);
// The words of argv[first..argc): a single word is read as a Tcl list, so that a state obtained as
// one result can be given back as it is. False (and an error result) when it is no proper list.
bool toWords(Tcl_Interp* interp, const VxPort& port, int argc, char** argv, int first, QStringList& words);
// Sets the interpreter's result.
void setResult(Tcl_Interp* interp, const QString& text);
// A number as the shortest text that reads back to the same value.
QString number(double v);
QString number(float v);
// Joins words into one Tcl command line, quoting where a word needs it.
QString join(const QStringList& words);
} // namespace vxscript
