#include <vx/VxApplication.h>
#include <vx/VxModule.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPreferences.h>

void VxSettingsMgr::setPreferences(const VxPreferences& prefs)
{
    VxPreferences old = m_prefs;
    m_prefs = prefs;
    if (old == prefs) return;
    for (VxObject* o : VxApplication::instance()->objectPool()->getObjects(VxModule::getClassTypeId()))
        static_cast<VxModule*>(o)->preferencesChanged(old, prefs);
}
