#include <vx/VxApplication.h>

#include <meshkit/MeshKit.h>
#include <vx/VxHostClasses.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPreferences.h>

#include <kx/KxProgressInterface.h>
#include <oiv/OivInit.h>

#include <Inventor/nodes/SoSeparator.h>

namespace {

// The default progress sink keeps the value and the phase's text; nothing is drawn.
class SilentProgress : public KxProgressInterface
{
public:
    void startWorking(const QString&) override { m_value = 0.f; }
    void stopWorking() override {}
    void setProgressValue(float v) override { m_value = v; }
    float getProgressValue() const override { return m_value; }

private:
    float m_value = 0.f;
};

VxApplication* g_instance = nullptr;

} // namespace

VxApplication* VxApplication::instance()
{
    if (!g_instance) {
        g_instance = new VxApplication;
        // The interpreter's commands reach the application through instance(): make it after.
        g_instance->m_interpreter = std::make_unique<VxInterpreter>();
    }
    return g_instance;
}

void VxApplication::destroy()
{
    delete g_instance;
    g_instance = nullptr;
}

VxApplication::VxApplication()
    : m_message(std::make_unique<VxMessage>()), m_progress(std::make_unique<SilentProgress>()),
      m_settings(std::make_unique<VxSettingsMgr>()), m_pool(std::make_unique<VxObjectPool>())
{
    oivInit();
    meshkit::init();
    vxInitHostClasses();
    m_sceneRoot = new SoSeparator;
    m_sceneRoot->ref();
}

VxApplication::~VxApplication()
{
    // Objects first: their destructors reach the interpreter and the scene through instance().
    m_pool->removeAll();
    m_interpreter.reset();
    m_sceneRoot->unref();
}

const VxPreferences& VxApplication::getPreferences() const
{
    return m_settings->getPreferences();
}

void VxApplication::setProgress(std::unique_ptr<KxProgressInterface> progress)
{
    if (progress) m_progress = std::move(progress);
}
