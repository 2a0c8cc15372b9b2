#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxObject.h>
#include <vx/VxPort.h>

#include <cstring>

KX_ABSTRACT_SOURCE(VxObject, KxTypedObject)

VxObject::~VxObject()
{
    // Readers lose their source; ports that outlive us (members are destroyed after this body)
    // must not call back.
    for (VxConnection* c : QList<VxConnection*>(m_downstream)) c->disconnect();
    for (VxPort* p : m_ports) p->m_listed = false;
    m_ports.clear();
    for (KxInterface* i : m_interfaces) i->unref();
}

void VxObject::addInterface(KxInterface* i)
{
    if (!i || m_interfaces.contains(i)) return;
    i->ref();
    m_interfaces.append(i);
}

KxInterface* VxObject::getInterface(const KxTypeInfo* type) const
{
    for (KxInterface* i : m_interfaces)
        if (i->implements(type)) return i;
    return nullptr;
}

void VxObject::addPort(VxPort* port)
{
    m_ports.append(port);
    port->m_listed = true;
}

void VxObject::removePort(VxPort* port)
{
    m_ports.removeOne(port);
    port->m_listed = false;
    if (m_treeViewPort == port) m_treeViewPort = nullptr;
}

VxPort* VxObject::findPort(const QString& name) const
{
    for (VxPort* p : m_ports)
        if (p->answersTo(name)) return p;
    return nullptr;
}

void VxObject::untouchAllPorts()
{
    for (VxPort* p : m_ports) p->untouch();
}

void VxObject::touchDownstream()
{
    for (VxConnection* c : QList<VxConnection*>(m_downstream)) c->touch(VxPort::NEW_DATA);
}

QStringList VxObject::commands() const
{
    return {"getLabel", "getTypeId", "isOfType", "ports", "help"};
}

int VxObject::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc < 2) {
        vxscript::setResult(interp, QString("\"%1\": a command is missing; commands: %2; ports: %3")
                                        .arg(getName(), commands().join(", "))
                                        .arg([this] {
                                            QStringList n;
                                            for (VxPort* p : m_ports) n << p->getName();
                                            return n.join(", ");
                                        }()));
        return TCL_ERROR;
    }
    const char* word = argv[1];
    if (VxPort* port = findPort(QString::fromUtf8(word))) return port->parse(interp, argc - 1, argv + 1);
    if ((!strcmp(word, "exportData") || !strcmp(word, "save")) && VxApplication::instance()->dataExporter())
        return parseExport(interp, argc, argv,
                           [this](const QString& format, const QString& path, QString* why) {
                               return VxApplication::instance()->dataExporter()(*this, format, path, why);
                           });
    if (!strcmp(word, "getLabel")) {
        vxscript::setResult(interp, getLabel());
        return TCL_OK;
    }
    if (!strcmp(word, "getTypeId")) {
        vxscript::setResult(interp, QString::fromUtf8(getTypeId()->getName()));
        return TCL_OK;
    }
    if (!strcmp(word, "isOfType")) {
        if (argc != 3) {
            vxscript::setResult(interp, QString("usage: %1 isOfType TYPE").arg(getName()));
            return TCL_ERROR;
        }
        const KxTypeInfo* t = KxTypeInfo::fromName(argv[2]);
        vxscript::setResult(interp, t && isOfType(t) ? "1" : "0");
        return TCL_OK;
    }
    if (!strcmp(word, "ports")) {
        QStringList names;
        for (VxPort* p : m_ports) names << p->getName();
        vxscript::setResult(interp, vxscript::join(names));
        return TCL_OK;
    }
    if (!strcmp(word, "help")) {
        QStringList names;
        for (VxPort* p : m_ports) names << p->getName();
        vxscript::setResult(interp,
                            QString("commands: %1\nports: %2").arg(commands().join(" "), names.join(" ")));
        return TCL_OK;
    }
    QStringList names;
    for (VxPort* p : m_ports) names << p->getName();
    vxscript::setResult(
        interp, QString("\"%1\" has no port or command \"%2\"; ports: %3; commands: %4")
                    .arg(getName(), QString::fromUtf8(word), names.join(", "), commands().join(", ")));
    return TCL_ERROR;
}

void VxObject::savePorts(FILE* fp)
{
    QByteArray name = getName().toUtf8();
    for (VxPort* p : m_ports) {
        if (!p->isSaved()) continue;
        for (const QString& cmd : p->saveState())
            fprintf(fp, "\"%s\" %s %s\n", name.constData(), p->getName().toUtf8().constData(),
                    cmd.toUtf8().constData());
    }
}

int VxObject::parseExport(Tcl_Interp* interp, int argc, char** argv, const Writer& write)
{
    // "exportData FORMAT FILE", or "save FILE" with the format taken from the extension.
    const bool exportData = !strcmp(argv[1], "exportData");
    if (argc != (exportData ? 4 : 3)) {
        vxscript::setResult(interp, exportData ? QString("usage: %1 exportData FORMAT FILE").arg(getName())
                                               : QString("usage: %1 save FILE").arg(getName()));
        return TCL_ERROR;
    }
    const QString path = QString::fromUtf8(argv[exportData ? 3 : 2]);
    QString why;
    if (!write(exportData ? QString::fromUtf8(argv[2]) : QString(), path, &why)) {
        vxscript::setResult(interp, QString("\"%1\": %2").arg(getName(), why));
        return TCL_ERROR;
    }
    vxscript::setResult(interp, path);
    return TCL_OK;
}
