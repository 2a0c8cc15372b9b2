#pragma once
#include <QList>
#include <QString>

class KxTypeInfo;
class VxObject;

// The objects of the current project, in the order they were added. The pool holds a reference to
// each; every object is also a command of the interpreter, named by its label.
class VxObjectPool
{
public:
    ~VxObjectPool();
    // Adds the object under its label, made unique by a number when taken ("Isosurface2").
    // uniqueLabel false keeps the label and fails (returns false) when it is taken.
    bool addObject(VxObject* object, bool uniqueLabel = true);
    // Disconnects every reader of the object and drops it.
    void removeObject(VxObject* object);
    void removeAll();

    VxObject* findObject(const QString& label) const;
    const QList<VxObject*>& getObjects() const { return m_objects; }
    QList<VxObject*> getObjects(const KxTypeInfo* type) const;
    bool contains(const VxObject* object) const { return m_objects.contains(const_cast<VxObject*>(object)); }
    // A label not yet taken, based on the given one.
    QString makeUniqueLabel(const QString& label) const;

private:
    QList<VxObject*> m_objects;
};
