#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxInterpreter.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>

VxObjectPool::~VxObjectPool()
{
    removeAll();
}

QString VxObjectPool::makeUniqueLabel(const QString& label) const
{
    if (!findObject(label)) return label;
    for (int i = 2;; ++i) {
        QString candidate = label + QString::number(i);
        if (!findObject(candidate)) return candidate;
    }
}

bool VxObjectPool::addObject(VxObject* object, bool uniqueLabel)
{
    if (!object || contains(object)) return false;
    if (findObject(object->getLabel())) {
        if (!uniqueLabel) return false;
        object->setLabel(makeUniqueLabel(object->getLabel()));
    }
    object->ref();
    m_objects.append(object);
    VxApplication::instance()->interpreter()->addObjectCommand(object);
    return true;
}

void VxObjectPool::removeObject(VxObject* object)
{
    if (!contains(object)) return;
    m_objects.removeOne(object);
    VxApplication::instance()->interpreter()->removeObjectCommand(object);
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
    for (VxObject* o : m_objects)
        if (o->getLabel() == label) return o;
    return nullptr;
}

QList<VxObject*> VxObjectPool::getObjects(const KxTypeInfo* type) const
{
    QList<VxObject*> found;
    for (VxObject* o : m_objects)
        if (!type || o->isOfType(type)) found.append(o);
    return found;
}
