#pragma once
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

class KxTypeInfo;
class VxObject;

// The objects of the current project, in the order they were added. The pool holds a reference to
// each; every object is also a command of the interpreter, named by its label.
class VxObjectPool
{
public:
    ~VxObjectPool();
    // Adds the object under its label, made unique by a number when taken ("IsoLines2"); selected
    // makes it the selected object (a user's new object), otherwise the selection stays as it is
    // (an object a module exports). False only for null or an object already in the pool.
    bool addObject(VxObject* object, bool selected = true);

    // The selected objects, in pool order.
    QList<VxObject*> getSelected() const;
    bool isSelected(const VxObject* object) const { return m_selected.contains(object); }
    void setSelected(VxObject* object, bool on);
    // Disconnects every reader of the object and drops it.
    void removeObject(VxObject* object);
    void removeAll();

    VxObject* findObject(const QString& label) const;
    const QList<VxObject*>& getObjects() const { return m_objects; }
    QList<VxObject*> getObjects(const KxTypeInfo* type) const;
    bool contains(const VxObject* object) const;

    // Whether an object (self, or a new one when null) may take the name: no characters that
    // would break a saved network or Tcl's syntax, no other object of that name, and no command of
    // the interpreter that the object's command would replace. False, with a sentence naming the
    // problem in *why, otherwise. Every way an object gets a name goes through here.
    bool mayTakeName(const QString& name, const VxObject* self = nullptr, QString* why = nullptr) const;
    // A name a new object may take, based on the given one: the label itself, else the label with
    // the lowest number from 2 on that is free ("Isosurface2"); "Data" stands in for a label of
    // characters that no name may have.
    QString makeUniqueLabel(const QString& label) const;
    // Gives a pooled object another label (its command was renamed).
    void relabel(VxObject* object, const QString& label);

private:
    void forgetLabel(const QString& label);

    QList<VxObject*> m_objects;
    QHash<QString, VxObject*> m_byLabel;
    QSet<const VxObject*> m_selected;
    // Per base label, a number below which every numbered label is an object's: automatic names
    // start looking there, so that thousands of them stay cheap. Lowered when a label is freed.
    mutable QHash<QString, int> m_nextNumber;
};
