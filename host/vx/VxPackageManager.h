#pragma once
#include <QList>
#include <QString>
#include <QStringList>

// Package libraries: shared libraries named lib<name>.so that export corvapackage_<name>_init,
// corvapackage_<name>_finish and corvapackage_<name>. Loading one runs its static constructors,
// which register its classes; the host then calls its init (a no-op when already done). Unloading
// calls finish and closes the library, whose static destructors withdraw what is left.
class VxPackageManager
{
public:
    struct Package
    {
        QString name;
        QString path;
        QString version;
        void* handle = nullptr;
    };

    ~VxPackageManager() { unloadAll(); }

    // The folder of the running executable, then the folders of VXHOST_PACKAGE_PATH (colon-separated).
    static QStringList defaultDirectories();
    // Loads every package library in the folders, in name order. A library that cannot be loaded or
    // is no package gets a warning naming it and why; the others load regardless. Returns how many
    // packages are loaded now.
    int loadAll(const QStringList& directories);
    // Loads one library; false with a sentence in *why.
    bool load(const QString& path, QString* why);
    // Finishes and closes the packages, the last loaded first.
    void unloadAll();

    const QList<Package>& packages() const { return m_packages; }

private:
    QList<Package> m_packages;
};
