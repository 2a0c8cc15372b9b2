#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxModule.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>

#include <cstring>

VxConnection::VxConnection(VxObject* owner, const QString& label, const QString& name)
    : VxPort(owner, label, name)
{
}

VxConnection::VxConnection(VxObject* owner, const QString& label, const QString& name, const KxTypeInfo* type)
    : VxPort(owner, label, name)
{
    addType(type);
}

VxConnection::~VxConnection()
{
    if (m_source) {
        m_source->m_downstream.removeOne(this);
        m_source->unref();
    }
}

void VxConnection::addType(const KxTypeInfo* type)
{
    if (type && !m_types.contains(type)) m_types.append(type);
}

bool VxConnection::validSource(VxObject* source) const
{
    if (!source || source == getOwner()) return false;
    bool typeOk = m_types.isEmpty();
    for (const KxTypeInfo* t : m_types) typeOk = typeOk || source->isOfType(t);
    if (!typeOk) return false;
    return !m_check || m_check(m_checkData, source) != 0;
}

bool VxConnection::connect(VxObject* source, QString* why)
{
    if (source == m_source) return true;
    if (!validSource(source)) {
        if (why) {
            QStringList types;
            for (const KxTypeInfo* t : m_types) types << QString::fromUtf8(t->getName());
            if (!source)
                *why = "no such object";
            else if (source == getOwner())
                *why = "an object cannot read itself";
            else
                *why = QString("\"%1\" (%2) is not accepted here; accepted: %3")
                           .arg(source->getName(), QString::fromUtf8(source->getTypeId()->getName()),
                                types.isEmpty() ? QString("any object") : types.join(", "));
        }
        return false;
    }
    if (m_source) {
        m_source->m_downstream.removeOne(this);
        m_source->unref();
    }
    m_source = source;
    m_source->ref();
    m_source->m_downstream.append(this);
    touch(NEW_SOURCE | NEW_DATA);
    return true;
}

void VxConnection::disconnect()
{
    if (!m_source) return;
    m_source->m_downstream.removeOne(this);
    VxObject* old = m_source;
    m_source = nullptr;
    old->unref();
    touch(NEW_SOURCE | NEW_DATA);
}

VxObject* VxConnection::getSource(const KxTypeInfo* type) const
{
    return m_source && m_source->isOfType(type) ? m_source : nullptr;
}

QStringList VxConnection::verbs() const
{
    return QStringList{"connect", "disconnect", "source", "getSource"} + VxPort::verbs();
}

int VxConnection::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc >= 2 && !strcmp(argv[1], "connect")) {
        if (argc != 3) return usage(interp, "connect", "OBJECT");
        VxObject* source = VxApplication::instance()->objectPool()->findObject(QString::fromUtf8(argv[2]));
        if (!source) return error(interp, QString("cannot connect: there is no object \"%1\"").arg(argv[2]));
        QString why;
        if (!connect(source, &why)) return error(interp, "cannot connect: " + why);
        // The module adapts its ports to the new input at once (ranges above all), so that the
        // script's next commands set values against the data's range, not the defaults.
        if (auto* module = kx_type_cast<VxModule>(getOwner())) module->update();
        return TCL_OK;
    }
    if (argc >= 2 && !strcmp(argv[1], "disconnect")) {
        disconnect();
        return TCL_OK;
    }
    if (argc >= 2 && (!strcmp(argv[1], "source") || !strcmp(argv[1], "getSource"))) {
        vxscript::setResult(interp, m_source ? m_source->getName() : QString());
        return TCL_OK;
    }
    return VxPort::parse(interp, argc, argv);
}

QStringList VxConnection::saveState() const
{
    if (!m_source) return {};
    return {vxscript::join({"connect", m_source->getName()})};
}
