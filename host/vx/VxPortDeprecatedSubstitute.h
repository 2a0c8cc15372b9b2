#pragma once
#include <kx/KxEnvironment.h>
#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObject.h>

#include <QCoreApplication>

#include <cstring>

// A redesigned port that still serves scripts written for its old design. It is the new port, shown
// and saved as usual, and carries a hidden instance of the old port under the same owner. Script
// commands from scripts declaring a compatibility version below FirstNewVersion go to the old port
// (with a warning, once per port); the module copies the old port's values over in its update().
// RemovalVersion records when the old design is to be dropped.
template <class NewPort, class OldPort, int FirstNewVersion, int RemovalVersion>
class VxPortDeprecatedSubstitute : public NewPort
{
public:
    static constexpr int firstNewVersion = FirstNewVersion;
    static constexpr int removalVersion = RemovalVersion;

    VxPortDeprecatedSubstitute(VxObject* owner, const QString& label, const QString& name)
        : NewPort(owner, label, name, 1), m_deprecatedPort(owner, label, name, 1)
    {
        commonInit();
    }
    // A port that was renamed: old scripts address it by its former name, which becomes an alias.
    VxPortDeprecatedSubstitute(VxObject* owner, const QString& label, const QString& name,
                               const QString& deprecatedName)
        : NewPort(owner, label, name, 1), m_deprecatedPort(owner, label, deprecatedName, 1)
    {
        if (deprecatedName != name) this->setAliasName(deprecatedName);
        commonInit();
    }

    OldPort& getDeprecatedPort() { return m_deprecatedPort; }
    const OldPort& getDeprecatedPort() const { return m_deprecatedPort; }
    bool isWarningShown() const { return m_warningShown; }

    void untouch(bool all = true) override
    {
        NewPort::untouch(all);
        if (m_deprecatedPort.isNew()) m_deprecatedPort.untouch(all);
    }

    int parse(Tcl_Interp* interp, int argc, char** argv) override
    {
        VxApplication* app = VxApplication::instance();
        VxInterpreter* interpreter = app->interpreter();
        if (interpreter->getCompatibilityVersion() > FirstNewVersion - 1)
            return NewPort::parse(interp, argc, argv);

        if (!KxEnvironment::exists("RUNNING_TEST") && !m_warningShown &&
            interpreter->isDeprecationWarningAllowed()) {
            m_warningShown = true;
            app->message()->printf(
                QCoreApplication::translate("VxPortDeprecatedSubstitute",
                                            "WARNING: You are using a deprecated port. Please see Section "
                                            "\"Versioning of Script Objects and "
                                            "backward compatibility\" for compatibility details.\n%1\nPlease "
                                            "see \"%2\" documentation for a "
                                            "recent port list. \n")
                    .arg(deprecatedWarningMessage(), ownerLabel()));
        }
        // Old scripts pin ports in the user interface; that has no meaning here.
        if (argc >= 2 && !strcmp(argv[1], "setPin")) return TCL_OK;
        return m_deprecatedPort.parse(interp, argc, argv);
    }

    virtual QString deprecatedWarningMessage() const
    {
        const QString oldName = m_deprecatedPort.getName();
        const QString newName = this->getName();
        const QString how =
            oldName != newName
                ? QCoreApplication::translate("VxPortDeprecatedSubstitute", "replaced by port \"%1\"")
                      .arg(newName)
                : QCoreApplication::translate("VxPortDeprecatedSubstitute", "modified");
        return QCoreApplication::translate(
                   "VxPortDeprecatedSubstitute",
                   "Port \"%1\" from module \"%2\" has been %3 in the current version.")
            .arg(oldName, ownerLabel(), how);
    }

private:
    void commonInit()
    {
        // The old port is never shown, listed or saved: it only receives old scripts' commands.
        m_deprecatedPort.hideMaskIncrease();
        m_deprecatedPort.removeFromOwnerAllPorts();
    }
    QString ownerLabel() const { return this->getOwner() ? this->getOwner()->getLabel() : QString(); }

    // Declared after the base: destroyed first.
    OldPort m_deprecatedPort;
    bool m_warningShown = false;
};
