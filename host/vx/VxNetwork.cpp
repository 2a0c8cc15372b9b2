#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxModule.h>
#include <vx/VxNetwork.h>
#include <vx/VxObjectPool.h>

#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace VxNetwork {

static void writeBody(FILE* fp)
{
    VxObjectPool* pool = VxApplication::instance()->objectPool();
    fprintf(fp, "# vxhost network\n");
    fprintf(fp, "compatibilityVersion %d\n\n", VxInterpreter::CURRENT_VERSION);
    for (VxObject* o : pool->getObjects()) {
        QByteArray name = o->getName().toUtf8();
        QByteArray type = o->getTypeId()->getName();
        if (!o->getLoadCommand().isEmpty()) {
            fprintf(fp, "%s \"%s\"\n", o->getLoadCommand().toUtf8().constData(), name.constData());
            // The file holds the contents as they were read; scripts may have changed them since.
            for (const QString& edit : o->getEdits())
                fprintf(fp, "\"%s\" %s\n", name.constData(), edit.toUtf8().constData());
        } else if (o->isOfType(VxModule::getClassTypeId()))
            fprintf(fp, "create %s \"%s\"\n", type.constData(), name.constData());
        else
            fprintf(fp, "# \"%s\" (%s) is not saved: it was not read from a file\n", name.constData(),
                    type.constData());
    }
    // Ports after every object exists, so a connection may name any of them.
    for (VxObject* o : pool->getObjects()) {
        if (!o->isOfType(VxModule::getClassTypeId()) && o->getLoadCommand().isEmpty()) continue;
        fprintf(fp, "\n");
        o->savePorts(fp);
    }
}

bool save(const QString& path, QString* why)
{
    QByteArray target = QFileInfo(path).absoluteFilePath().toUtf8();
    QByteArray temp = target + ".tmp";
    FILE* fp = fopen(temp.constData(), "w");
    if (!fp) {
        if (why) *why = QString("cannot write network \"%1\": %2").arg(path, strerror(errno));
        return false;
    }
    writeBody(fp);
    bool ok = !ferror(fp);
    ok = (fclose(fp) == 0) && ok;
    if (!ok || rename(temp.constData(), target.constData()) != 0) {
        int e = errno;
        unlink(temp.constData());
        if (why) *why = QString("cannot write network \"%1\": %2").arg(path, strerror(e));
        return false;
    }
    return true;
}

} // namespace VxNetwork
