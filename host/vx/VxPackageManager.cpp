#include <vx/VxApplication.h>
#include <vx/VxMessage.h>
#include <vx/VxPackageManager.h>

#include <QDir>
#include <QFileInfo>

#include <dlfcn.h>

namespace {
using EntryPoint = void (*)();
using VersionPoint = const char* (*)();
} // namespace

QStringList VxPackageManager::defaultDirectories()
{
    QStringList dirs;
    QFileInfo exe(QString::fromUtf8("/proc/self/exe"));
    QString self = exe.symLinkTarget();
    if (!self.isEmpty()) dirs << QFileInfo(self).absolutePath();
    if (const char* extra = getenv("VXHOST_PACKAGE_PATH"))
        for (const QString& d : QString::fromUtf8(extra).split(':', Qt::SkipEmptyParts))
            if (!dirs.contains(QFileInfo(d).absoluteFilePath())) dirs << QFileInfo(d).absoluteFilePath();
    return dirs;
}

int VxPackageManager::loadAll(const QStringList& directories)
{
    for (const QString& dir : directories) {
        QDir d(dir);
        if (!d.exists()) {
            VxApplication::instance()->message()->warning(
                QString("package folder \"%1\" does not exist").arg(dir));
            continue;
        }
        for (const QFileInfo& f : d.entryInfoList({"lib*.so"}, QDir::Files, QDir::Name)) {
            QString why;
            if (!load(f.absoluteFilePath(), &why)) VxApplication::instance()->message()->warning(why);
        }
    }
    return m_packages.size();
}

bool VxPackageManager::load(const QString& path, QString* why)
{
    QString base = QFileInfo(path).fileName();
    QString name = base.mid(3, base.size() - 6); // lib<name>.so
    for (const Package& p : m_packages)
        if (p.name == name) {
            if (why)
                *why = QString("package library \"%1\" skipped: package \"%2\" is already loaded from \"%3\"")
                           .arg(path, name, p.path);
            return false;
        }
    dlerror();
    void* handle = dlopen(path.toUtf8().constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        if (why)
            *why = QString("cannot load package library \"%1\": %2").arg(path, QString::fromUtf8(dlerror()));
        return false;
    }
    QByteArray prefix = "corvapackage_" + name.toUtf8();
    auto init = reinterpret_cast<EntryPoint>(dlsym(handle, (prefix + "_init").constData()));
    auto finish = reinterpret_cast<EntryPoint>(dlsym(handle, (prefix + "_finish").constData()));
    auto version = reinterpret_cast<VersionPoint>(dlsym(handle, prefix.constData()));
    if (!init || !finish) {
        dlclose(handle);
        if (why)
            *why = QString("\"%1\" is not a package library: it has no %2_init and %2_finish")
                       .arg(path, QString::fromUtf8(prefix));
        return false;
    }
    init();
    Package p;
    p.name = name;
    p.path = path;
    p.handle = handle;
    if (version) p.version = QString::fromUtf8(version());
    m_packages.append(p);
    return true;
}

void VxPackageManager::unloadAll()
{
    while (!m_packages.isEmpty()) {
        Package p = m_packages.takeLast();
        QByteArray finishName = "corvapackage_" + p.name.toUtf8() + "_finish";
        if (auto finish = reinterpret_cast<EntryPoint>(dlsym(p.handle, finishName.constData()))) finish();
        dlclose(p.handle);
    }
}
