#pragma once
#include <functional>

// Source of a value range for a slider (the range of the data a module reads). The slider that
// holds the provider registers a handler; reset() asks it to take the provider's range again.
class VxRangeProvider
{
public:
    virtual ~VxRangeProvider() = default;

    // The range; false when there is none (nothing connected, no values).
    virtual bool getRange(double& min, double& max) const = 0;
    // Whether the range holds whole numbers only (integer data), so a slider may step by one.
    virtual bool isDiscrete() const { return false; }

    // Tells the slider that holds this provider to take its range (and a fresh value) again.
    void reset()
    {
        if (m_onReset) m_onReset();
    }
    void setResetHandler(std::function<void()> handler) { m_onReset = std::move(handler); }

private:
    std::function<void()> m_onReset;
};
