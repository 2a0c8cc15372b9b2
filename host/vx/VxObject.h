#pragma once
#include <kx/KxInterface.h>
#include <kx/KxTypedObject.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdio>
#include <functional>

class VxPort;
class VxConnection;
// The interpreter's handles are only passed through here; tcl.h is for the sources that use them.
struct Tcl_Interp;
typedef struct Tcl_Command_* Tcl_Command;

// Base of every module and data object: a typed, reference-counted object with a label (its name
// in scripts), a list of ports in display order, and the connections of other objects that read it.
class VxObject : public KxTypedObject
{
    KX_HEADER(VxObject)

public:
    void ref() const { m_refCount.fetch_add(1, std::memory_order_relaxed); }
    void unref() const
    {
        if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    int getRefCount() const { return m_refCount.load(); }

    const QString& getLabel() const { return m_label; }
    // Names the object before it joins the pool; the pool renames the objects it holds
    // (VxObjectPool::relabel), since it finds them by their labels.
    void setLabel(const QString& label) { m_label = label; }
    // The name scripts use; the same as the label.
    const QString& getName() const { return m_label; }
    // The object's command in the interpreter, null while it has none.
    Tcl_Command getCommand() const { return m_command; }

    // Ports in display order (connections included).
    const QList<VxPort*>& getAllPorts() const { return m_ports; }
    // The port answering to that script name (or alias), or null.
    VxPort* findPort(const QString& name) const;
    void setTreeViewAccessiblePort(VxPort* port) { m_treeViewPort = port; }
    VxPort* getTreeViewAccessiblePort() const { return m_treeViewPort; }

    // Script command on the object: argv[0] is the object's name. The base understands
    // "<port> <verb> ..." and the object verbs listed by commands(); derived classes handle their
    // own words first and pass the rest on.
    virtual int parse(Tcl_Interp* interp, int argc, char** argv);
    // Writes the script lines that restore the object's ports ("\"name\" port verb args").
    virtual void savePorts(FILE* fp);

    // Called when a port of this object was touched. Modules schedule themselves to run again.
    virtual void portTouched(VxPort* port) { (void)port; }
    // Clears the change flags of all ports.
    void untouchAllPorts();

    // Tells every connection that reads this object that its contents changed.
    void touchDownstream();
    const QList<VxConnection*>& getDownstreamConnections() const { return m_downstream; }

    // The script command that recreates this object in a saved network (a data object read from a
    // file: "load FILE"); empty for objects that are made otherwise.
    void setLoadCommand(const QString& command) { m_loadCommand = command; }
    const QString& getLoadCommand() const { return m_loadCommand; }
    // What was done to the contents since the object was made, as the words after its name of the
    // script lines that do it again ("keepLabel 37"); a saved network replays them after the load.
    const QStringList& getEdits() const { return m_edits; }

    // The object verbs handled by VxObject::parse, for help and error messages.
    virtual QStringList commands() const;

    // Interfaces the object offers to others (coordinate access, ...). The object holds a reference
    // to each until it is destroyed.
    void addInterface(KxInterface* i);
    // The first offered interface of that type (or derived from it), or null.
    KxInterface* getInterface(const KxTypeInfo* type) const;
    template <class T> T* getInterface() const
    {
        return kxinterface_cast<T>(getInterface(T::getClassInterfaceType()));
    }

protected:
    using Writer = std::function<bool(const QString& format, const QString& path, QString* why)>;
    // The "exportData" and "save" words (argv[1]) with their arguments, written by write.
    int parseExport(Tcl_Interp* interp, int argc, char** argv, const Writer& write);

    // Records a change of the contents (see getEdits); every verb that changes them records itself.
    void recordEdit(const QString& words) { m_edits.append(words); }

    VxObject() = default;
    ~VxObject() override;

private:
    friend class VxPort;
    friend class VxConnection;
    friend class VxInterpreter;
    void addPort(VxPort* port);
    void removePort(VxPort* port);

    mutable std::atomic<int> m_refCount{0};
    QString m_label;
    QList<VxPort*> m_ports;
    VxPort* m_treeViewPort = nullptr;
    QList<VxConnection*> m_downstream;
    QString m_loadCommand;
    QStringList m_edits;
    Tcl_Command m_command = nullptr;
    QList<KxInterface*> m_interfaces;
};
