#pragma once
#include <vx/VxPortToggleList.h>

// A single on/off toggle; scripts address it like a toggle list of one ("setValue 1").
class VxPortOnOff : public VxPortToggleList
{
public:
    VxPortOnOff(VxObject* owner, const QString& label, const QString& name)
        : VxPortToggleList(owner, label, name, 1)
    {
    }

    using VxPortToggleList::getValue;
    using VxPortToggleList::setValue;
    bool getValue() const { return getValue(0); }
};
