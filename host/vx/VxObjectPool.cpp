#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxInterpreter.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>

#include <algorithm>

namespace {

VxInterpreter* interpreter()
{
    return VxApplication::instance()->interpreter();
}

// Characters that would break the quoted names of saved networks or clash with Tcl's syntax; "::"
// would put the command into a namespace under another name than the label.
bool validCharacters(const QString& name)
{
    if (name.isEmpty() || name.contains("::")) return false;
    for (QChar c : name)
        if (c.unicode() < 32 || QString("\"[]${}\\;").contains(c)) return false;
    return true;
}

} // namespace

VxObjectPool::~VxObjectPool()
{
    removeAll();
}

bool VxObjectPool::mayTakeName(const QString& name, const VxObject* self, QString* why) const
{
    QString problem;
    if (!validCharacters(name))
        problem =
            QString("\"%1\" is not a valid object name (no quotes, brackets, braces, dollars, backslashes, "
                    "semicolons, control characters or \"::\")")
                .arg(name);
    else if (VxObject* other = findObject(name); other && other != self)
        problem = QString("an object named \"%1\" exists").arg(name);
    else if (interpreter()->hasCommand(name, self))
        problem = QString("\"%1\" is a command of the interpreter; choose another name").arg(name);
    if (why) *why = problem;
    return problem.isEmpty();
}

QString VxObjectPool::makeUniqueLabel(const QString& label) const
{
    // A file name, say, that no object may have gives way to a plain one.
    const QString base = validCharacters(label) ? label : QString("Data");
    if (mayTakeName(base)) return base;
    int& next = m_nextNumber[base];
    next = std::max(next, 2);
    while (m_byLabel.contains(base + QString::number(next))) ++next;
    // Past the objects, a name may still be an interpreter's command: skip those without moving
    // the hint, since they are no object's.
    for (int n = next;; ++n)
        if (mayTakeName(base + QString::number(n))) return base + QString::number(n);
}

void VxObjectPool::forgetLabel(const QString& label)
{
    // The label may be a base's numbered one ("Data12" of "Data1" or of "Data"): lower every such
    // base's hint, so that the freed number is the next one given, as the lowest free one.
    for (int i = label.size() - 1; i > 0 && label[i].isDigit(); --i) {
        if (label[i] == '0') continue;
        bool ok = false;
        const int n = label.mid(i).toInt(&ok);
        auto it = m_nextNumber.find(label.left(i));
        if (ok && n >= 2 && it != m_nextNumber.end() && it.value() > n) it.value() = n;
    }
}

bool VxObjectPool::addObject(VxObject* object, bool selected)
{
    if (!object || contains(object)) return false;
    if (!mayTakeName(object->getLabel(), object)) object->setLabel(makeUniqueLabel(object->getLabel()));
    if (selected) m_selected = {object};
    object->ref();
    m_objects.append(object);
    m_byLabel.insert(object->getLabel(), object);
    interpreter()->addObjectCommand(object);
    return true;
}

void VxObjectPool::relabel(VxObject* object, const QString& label)
{
    if (!contains(object) || label == object->getLabel()) return;
    m_byLabel.remove(object->getLabel());
    forgetLabel(object->getLabel());
    object->setLabel(label);
    m_byLabel.insert(label, object);
}

void VxObjectPool::removeObject(VxObject* object)
{
    if (!contains(object)) return;
    // From the end: removeAll takes the newest first.
    m_objects.removeAt(m_objects.lastIndexOf(object));
    m_byLabel.remove(object->getLabel());
    m_selected.remove(object);
    forgetLabel(object->getLabel());
    interpreter()->removeObjectCommand(object);
    // Readers lose their source now, not when the last handle goes.
    for (VxConnection* c : QList<VxConnection*>(object->getDownstreamConnections())) c->disconnect();
    // Its own inputs let go too, so objects it reads are not kept alive by a removed one.
    for (VxPort* p : object->getAllPorts())
        if (auto* c = dynamic_cast<VxConnection*>(p)) c->disconnect();
    object->unref();
}

void VxObjectPool::removeAll()
{
    // Newest first: readers go before what they read.
    while (!m_objects.isEmpty()) removeObject(m_objects.last());
}

VxObject* VxObjectPool::findObject(const QString& label) const
{
    return m_byLabel.value(label);
}

bool VxObjectPool::contains(const VxObject* object) const
{
    return object && m_byLabel.value(object->getLabel()) == object;
}

QList<VxObject*> VxObjectPool::getObjects(const KxTypeInfo* type) const
{
    QList<VxObject*> found;
    for (VxObject* o : m_objects)
        if (!type || o->isOfType(type)) found.append(o);
    return found;
}

QList<VxObject*> VxObjectPool::getSelected() const
{
    QList<VxObject*> selected;
    for (VxObject* o : m_objects)
        if (m_selected.contains(o)) selected.append(o);
    return selected;
}

void VxObjectPool::setSelected(VxObject* object, bool on)
{
    if (!contains(object)) return;
    if (on)
        m_selected.insert(object);
    else
        m_selected.remove(object);
}
