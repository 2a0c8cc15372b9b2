#pragma once
#include <vx/VxPort.h>

#include <QList>

class KxTypeInfo;
class VxObject;

// An input of a module: a port that refers to another object (its source). It accepts sources of
// the given types only, optionally subject to a predicate; connecting or disconnecting touches it
// with NEW_SOURCE, a change of the source's contents with NEW_DATA.
class VxConnection : public VxPort
{
public:
    using SourceCheck = int (*)(void* userData, VxObject* source);

    VxConnection(VxObject* owner, const QString& label, const QString& name);
    VxConnection(VxObject* owner, const QString& label, const QString& name, const KxTypeInfo* type);
    ~VxConnection() override;

    void addType(const KxTypeInfo* type);
    const QList<const KxTypeInfo*>& getTypes() const { return m_types; }
    void setOptional(bool on) { m_optional = on; }
    bool isOptional() const { return m_optional; }
    // Installs a predicate that accepts (nonzero) or rejects (zero) a proposed source.
    void setSourceCheck(SourceCheck check, void* userData)
    {
        m_check = check;
        m_checkData = userData;
    }

    // Whether the object may become the source: of an accepted type and passing the check.
    bool validSource(VxObject* source) const;
    // Connects to the source; false (with a sentence in *why) when it is not valid.
    bool connect(VxObject* source, QString* why = nullptr);
    void disconnect();

    VxObject* getSource() const { return m_source; }
    // The source when it is of that type, else null.
    VxObject* getSource(const KxTypeInfo* type) const;

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList saveState() const override;
    // A connection is saved whenever it has a source, shown or not: it is structure, not a setting.
    bool isSaved() const override { return m_source != nullptr; }
    QStringList verbs() const override;

private:
    QList<const KxTypeInfo*> m_types;
    bool m_optional = false;
    SourceCheck m_check = nullptr;
    void* m_checkData = nullptr;
    VxObject* m_source = nullptr;
};

// The connection's source as a T, or null when it has none or one of another type.
template <class T> T* vxconnection_cast(const VxConnection& c)
{
    return static_cast<T*>(c.getSource(T::getClassTypeId()));
}
