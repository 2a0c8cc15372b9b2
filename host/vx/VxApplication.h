#pragma once
#include <QString>

#include <functional>
#include <memory>

class KxProgressInterface;
class SoSeparator;
class SoTriSurface;
class VxInterpreter;
class VxMessage;
class VxObject;
class VxObjectPool;
class VxSettingsMgr;
struct VxPreferences;

// The host's services, reached through instance(): console, progress, interpreter, preferences and
// the project's objects. One per process, made on first use, on the main thread.
class VxApplication
{
public:
    static VxApplication* instance();
    // Drops the project and the services (at exit, or between tests).
    static void destroy();

    VxMessage* message() { return m_message.get(); }
    KxProgressInterface* progress() { return m_progress.get(); }
    VxInterpreter* interpreter() { return m_interpreter.get(); }
    VxSettingsMgr* settings() { return m_settings.get(); }
    const VxPreferences& getPreferences() const;
    VxObjectPool* objectPool() { return m_pool.get(); }
    // The scene that modules show their geometry in.
    SoSeparator* getSceneRoot() const { return m_sceneRoot; }

    // File formats come from a library above this one; the host program installs them.
    // Reads a data file into a new object (labels: as a label field); null and *error on failure.
    using Loader = std::function<VxObject*(const QString& path, bool labels, QString* error)>;
    // Writes a surface; the format is a name such as "ply" or empty for the file's extension.
    using SurfaceExporter = std::function<bool(const SoTriSurface& surface, const QString& format,
                                               const QString& path, QString* error)>;
    // Writes a data object (a line set, a field) where its format allows; false and *error if not.
    using DataExporter = std::function<bool(const VxObject& object, const QString& format,
                                            const QString& path, QString* error)>;
    void setLoader(Loader f) { m_loader = std::move(f); }
    void setSurfaceExporter(SurfaceExporter f) { m_surfaceExporter = std::move(f); }
    void setDataExporter(DataExporter f) { m_dataExporter = std::move(f); }
    const Loader& loader() const { return m_loader; }
    const SurfaceExporter& surfaceExporter() const { return m_surfaceExporter; }
    const DataExporter& dataExporter() const { return m_dataExporter; }

    // Replaces the progress sink (the host program installs a terminal progress bar).
    void setProgress(std::unique_ptr<KxProgressInterface> progress);

private:
    VxApplication();
    ~VxApplication();

    std::unique_ptr<VxMessage> m_message;
    std::unique_ptr<KxProgressInterface> m_progress;
    std::unique_ptr<VxSettingsMgr> m_settings;
    std::unique_ptr<VxObjectPool> m_pool;
    std::unique_ptr<VxInterpreter> m_interpreter;
    SoSeparator* m_sceneRoot = nullptr;
    Loader m_loader;
    SurfaceExporter m_surfaceExporter;
    DataExporter m_dataExporter;
};
