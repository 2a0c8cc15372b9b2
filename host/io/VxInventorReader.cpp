#include <io/VxInventorReader.h>

#include <oiv/OivInit.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/errors/SoReadError.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QFileInfo>

#include <mutex>

namespace {

// The reader's complaints, kept for the error instead of printed; the handler is global to Open
// Inventor, so one read at a time.
std::mutex g_reading;
QString g_readErrors;

void keepReadError(const SoError* error, void*)
{
    if (g_readErrors.isEmpty())
        g_readErrors = QString::fromUtf8(error->getDebugString().getString()).simplified();
}

} // namespace

bool VxInventorReader::isScenePath(const QString& path)
{
    return QFileInfo(path).suffix().compare("iv", Qt::CaseInsensitive) == 0;
}

SoSeparator* VxInventorReader::read(const QString& path, QString* error)
{
    oivInit();
    const std::lock_guard<std::mutex> lock(g_reading);
    auto fail = [&](const QString& why) -> SoSeparator* {
        if (error) *error = QString("\"%1\": %2").arg(path, why);
        return nullptr;
    };
    if (!QFileInfo(path).isFile()) return fail("no such file");
    SoInput in;
    if (!in.openFile(path.toLocal8Bit().constData(), TRUE)) return fail("cannot be opened");
    if (!in.isValidFile()) return fail("is not an Open Inventor file (it lacks the \"#Inventor\" header)");
    g_readErrors.clear();
    SoErrorCB* previous = SoReadError::getHandlerCallback();
    void* previousData = SoReadError::getHandlerData();
    SoReadError::setHandlerCallback(keepReadError, nullptr);
    SoSeparator* scene = SoDB::readAll(&in);
    SoReadError::setHandlerCallback(previous, previousData);
    if (!scene) return fail(g_readErrors.isEmpty() ? QString("cannot be read") : g_readErrors);
    return scene;
}
