#pragma once
#include <QString>
#include <QStringList>
#include <QVector>

#include <tcl.h>

#include <cstring>
#include <functional>
#include <utility>

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
    bool answersTo(const QString& word) const
    {
        return word == m_name || (!m_alias.isEmpty() && word == m_alias);
    }
    void setToolTip(const QString& text) { m_toolTip = text; }
    const QString& getToolTip() const { return m_toolTip; }

    bool isNew(unsigned mask = NEW_ALL) const { return (m_flags & mask) != 0; }
    unsigned getFlags() const { return m_flags; }
    // Marks the port changed and tells the owner that it needs to run again.
    void touch(unsigned mask = NEW_VALUE);
    // Clears the change flags (the framework does so after compute()).
    virtual void untouch(bool all = true);

    // Two kinds of hiding. show(), hide() and setVisible() are the module's own switch: modules set
    // it on every update(), so it is a flag, not a count. hideMaskIncrease() and hideMaskDecrease()
    // count further, independent reasons to hide the port, which nest. A port is visible when its
    // own switch is on and no reason is left; show() never lifts the counted reasons.
    void show() { m_hidden = false; }
    void hide() { m_hidden = true; }
    void setVisible(bool on) { m_hidden = !on; }
    bool isVisible() const { return !m_hidden && m_hideMask == 0; }
    void hideMaskIncrease() { ++m_hideMask; }
    void hideMaskDecrease()
    {
        if (m_hideMask > 0) --m_hideMask;
    }
    // How many reasons hide the port: the counted ones, and one for the switch when it is off.
    int getHideMask() const { return m_hideMask + (m_hidden ? 1 : 0); }

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
    // A verb without arguments that answers text: a usage error unless argc is 2, else the result.
    int reply(Tcl_Interp* interp, int argc, char** argv, const QString& text) const;
    // The item index of "VERB [INDEX] ...": argv[2] when argc is full, the first item when argc is one
    // less. False, with a usage or range error, otherwise.
    bool optionalIndex(Tcl_Interp* interp, int argc, char** argv, int full, int count, const char* arguments,
                       int& index) const;
    // "setLabel INDEX TEXT" and "VERB INDEX ON" of ports with count items: checks the words, then
    // set(index, text or on).
    int parseSetLabel(Tcl_Interp* interp, int argc, char** argv, int count,
                      const std::function<void(int, const QString&)>& set) const;
    int parseSetFlag(Tcl_Interp* interp, int argc, char** argv, int count,
                     const std::function<void(int, bool)>& set) const;
    // "setNum COUNT" of ports whose items can be added and removed.
    int parseSetNum(Tcl_Interp* interp, int argc, char** argv, const std::function<void(int)>& set) const;
    // "setState V1 V2 ..." (the words, or one list of them) of ports with count items: read(i, word,
    // value) parses each, set(i, value) applies them. Every word is read before any is set, so that a
    // bad one changes nothing; what names the words in the message on a wrong count
    // ("values, one per toggle").
    template <class T, class Read, class Set>
    int parseState(Tcl_Interp* interp, int argc, char** argv, int count, const char* what, Read read,
                   Set set) const;
    // The sliders' "setMinMax MIN MAX" and "setState MIN MAX VALUE" (the words, or one list of them):
    // setRange(min, max), then for setState setValue(value).
    template <class T, class SetRange, class SetValue>
    int parseRange(Tcl_Interp* interp, int argc, char** argv, SetRange setRange, SetValue setValue) const;
    // False, with an error result, when the minimum is above the maximum.
    template <class T> bool checkMinMax(Tcl_Interp* interp, T min, T max) const;
    // Takes [min, max] (reversed bounds swapped) into lo and hi; touches NEW_RANGE on a change.
    template <class T> void takeRange(T& lo, T& hi, T min, T max)
    {
        if (min > max) std::swap(min, max);
        if (min == lo && max == hi) return;
        lo = min;
        hi = max;
        touch(NEW_RANGE);
    }

private:
    friend class VxObject;
    VxObject* m_owner;
    QString m_label;
    QString m_name;
    QString m_alias;
    QString m_toolTip;
    unsigned m_flags = 0;
    int m_hideMask = 0;
    bool m_hidden = false;
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
inline QString number(int v)
{
    return QString::number(v);
}
// toInt or toFloat by the type of value, for code written once for both.
inline bool toNumber(Tcl_Interp* interp, const VxPort& port, const char* word, int& value)
{
    return toInt(interp, port, word, value);
}
inline bool toNumber(Tcl_Interp* interp, const VxPort& port, const char* word, float& value)
{
    return toFloat(interp, port, word, value);
}
// Joins words into one Tcl command line, quoting where a word needs it.
QString join(const QStringList& words);
} // namespace vxscript

template <class T, class Read, class Set>
int VxPort::parseState(Tcl_Interp* interp, int argc, char** argv, int count, const char* what, Read read,
                       Set set) const
{
    QStringList words;
    if (!vxscript::toWords(interp, *this, argc, argv, 2, words)) return TCL_ERROR;
    if (words.size() != count)
        return error(interp, QString("setState needs %1 %2, not %3")
                                 .arg(QString::number(count), what, QString::number(words.size())));
    QVector<T> values(count);
    for (int i = 0; i < count; ++i)
        if (!read(i, words[i].toUtf8().constData(), values[i])) return TCL_ERROR;
    for (int i = 0; i < count; ++i) set(i, values[i]);
    return TCL_OK;
}

template <class T, class SetRange, class SetValue>
int VxPort::parseRange(Tcl_Interp* interp, int argc, char** argv, SetRange setRange, SetValue setValue) const
{
    QStringList words;
    if (!vxscript::toWords(interp, *this, argc, argv, 2, words)) return TCL_ERROR;
    const bool withValue = !strcmp(argv[1], "setState");
    if (words.size() != (withValue ? 3 : 2))
        return usage(interp, argv[1], withValue ? "MIN MAX VALUE" : "MIN MAX");
    T v[3] = {};
    for (int i = 0; i < words.size(); ++i)
        if (!vxscript::toNumber(interp, *this, words[i].toUtf8().constData(), v[i])) return TCL_ERROR;
    if (!checkMinMax(interp, v[0], v[1])) return TCL_ERROR;
    setRange(v[0], v[1]);
    if (withValue) setValue(v[2]);
    return TCL_OK;
}

template <class T> bool VxPort::checkMinMax(Tcl_Interp* interp, T min, T max) const
{
    if (!(min > max)) return true;
    error(interp, QString("the minimum %1 is greater than the maximum %2")
                      .arg(vxscript::number(min), vxscript::number(max)));
    return false;
}
