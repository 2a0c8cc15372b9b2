#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxModule.h>
#include <vx/VxPreferences.h>

#include <Inventor/nodes/SoSeparator.h>

#include <QCoreApplication>

#include <cstring>

KX_ABSTRACT_SOURCE(VxModule, VxObject)

VxModule::VxModule(const KxTypeInfo* dataType)
    : portData(this, translate("VxModule", "Data"), "data", dataType)
{
}

VxModule::~VxModule()
{
    if (m_separator) {
        SoSeparator* root = VxApplication::instance()->getSceneRoot();
        if (root && root->findChild(m_separator.get()) >= 0) root->removeChild(m_separator.get());
    }
}

void VxModule::portTouched(VxPort*)
{
    m_pending = true;
}

void VxModule::fire()
{
    // A run that throws is a run too: the module is no longer pending, so its error is reported
    // once, and it runs again when a port changes again.
    struct Done
    {
        VxModule* module;
        ~Done()
        {
            module->untouchAllPorts();
            module->m_pending = false;
        }
    } done{this};
    update();
    compute();
}

bool VxModule::autoConnect(VxObject* data)
{
    return portData.connect(data);
}

void VxModule::preferencesChanged(const VxPreferences&, const VxPreferences&) {}

QStringList VxModule::commands() const
{
    return QStringList{"fire", "update", "compute", "isPending"} + VxObject::commands();
}

int VxModule::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc >= 2 && !findPort(QString::fromUtf8(argv[1]))) {
        const char* word = argv[1];
        if (!strcmp(word, "fire")) {
            fire();
            return TCL_OK;
        }
        if (!strcmp(word, "update")) {
            update();
            return TCL_OK;
        }
        if (!strcmp(word, "compute")) {
            compute();
            return TCL_OK;
        }
        if (!strcmp(word, "isPending")) {
            vxscript::setResult(interp, m_pending ? "1" : "0");
            return TCL_OK;
        }
    }
    return VxObject::parse(interp, argc, argv);
}

SoSeparator* VxModule::getSeparator()
{
    if (!m_separator) {
        m_separator = new SoSeparator;
        m_separator->setName(SbName(QByteArray("module_" + getLabel().toUtf8().toHex()).constData()));
        if (SoSeparator* root = VxApplication::instance()->getSceneRoot()) root->addChild(m_separator.get());
    }
    return m_separator.get();
}

void VxModule::showGeom(SoNode* node)
{
    SoSeparator* sep = getSeparator();
    if (sep->findChild(node) < 0) sep->addChild(node);
}

void VxModule::hideGeom(SoNode* node)
{
    if (!m_separator) return;
    int i = m_separator->findChild(node);
    if (i >= 0) m_separator->removeChild(i);
}

QString VxModule::getLabel(bool withDecoration) const
{
    // The decoration a viewer shows is the class name beside the label.
    return withDecoration ? QString("%1 (%2)").arg(getLabel(), QString::fromUtf8(getTypeId()->getName()))
                          : getLabel();
}

QString VxModule::translate(const char* context, const char* text, const char* comment)
{
    return QCoreApplication::translate(context, text, comment);
}
