#pragma once
#include <vx/VxPortButtonList.h>

// The button that starts a module's computation ("Apply"); scripts write "NAME doIt hit".
class VxPortDoIt : public VxPortButtonList
{
public:
    VxPortDoIt(VxObject* owner, const QString& label, const QString& name, int count = 1)
        : VxPortButtonList(owner, label, name, count)
    {
        setLabel(0, "DoIt");
    }
};
