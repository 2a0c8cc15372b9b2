#include "VxHostSession.h"

#include "VxHostFormats.h"

#include <kx/KxException.h>
#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>
#include <vx/VxTerminalProgress.h>

#include <QByteArray>
#include <QFileInfo>
#include <QRegularExpression>

#include <memory>
#include <vector>

VxHostSession::VxHostSession()
{
    VxApplication* app = VxApplication::instance();
    app->setProgress(std::make_unique<VxTerminalProgress>());
    vxhostInstallFormats(app);
}

VxHostSession::~VxHostSession()
{
    VxApplication::destroy();
    m_packages.unloadAll();
}

void VxHostSession::loadPackages()
{
    m_packages.loadAll(VxPackageManager::defaultDirectories());
}

void VxHostSession::loadPackage(const QString& library)
{
    QStringList looked;
    for (const QString& dir : VxPackageManager::defaultDirectories()) {
        looked << dir;
        if (!QFileInfo::exists(dir + "/" + library)) continue;
        QString why;
        if (!m_packages.load(dir + "/" + library, &why)) throw KxException(why);
        return;
    }
    throw KxException("the package " + library + " is not in " + looked.join(" or ") +
                      "; add its folder to VXHOST_PACKAGE_PATH");
}

void VxHostSession::releaseFromScript()
{
    VxApplication::instance()->objectPool()->removeAll();
    m_packages.unloadAll();
}

void VxHostSession::add(VxObject* object, const QString& name)
{
    object->setLabel(name);
    VxApplication::instance()->objectPool()->addObject(object, false);
}

VxObject* VxHostSession::find(const QString& name) const
{
    return VxApplication::instance()->objectPool()->findObject(name);
}

QString VxHostSession::run(const QStringList& words, const QString& what)
{
    std::vector<QByteArray> utf8;
    for (const QString& w : words) utf8.push_back(w.toUtf8());
    std::vector<const char*> argv;
    for (const QByteArray& w : utf8) argv.push_back(w.constData());
    char* merged = Tcl_Merge(int(argv.size()), argv.data());
    const QString command = QString::fromUtf8(merged);
    Tcl_Free(merged);
    QString result;
    if (VxApplication::instance()->interpreter()->eval(command, &result) != TCL_OK) {
        result.remove(QRegularExpression("^(\"[^\"]*\"( port \"[^\"]*\")?|[a-z]+): "));
        throw KxException(what.isEmpty() ? result : what + ": " + result);
    }
    return result;
}
