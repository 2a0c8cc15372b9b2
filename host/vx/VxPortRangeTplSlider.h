#pragma once
#include <vx/VxPort.h>
#include <vx/VxRangeProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>

// A slider (VxPortFloatSlider or VxPortIntSlider) whose range follows a range provider, typically
// the range of the module's input data.
//
// reset() (also reached through the provider's reset()) takes the provider's range. A value that
// a script or the user set since the module last ran is kept, and the range widened to hold it;
// any other value moves to the middle of the new range, a useful start on data seen for the first
// time. Script verb: "resetRange".
template <class Slider> class VxPortRangeTplSlider : public Slider
{
public:
    using Value = decltype(std::declval<const Slider&>().getValue());

    VxPortRangeTplSlider(VxObject* owner, const QString& label, const QString& name,
                         VxRangeProvider* provider = nullptr)
        : Slider(owner, label, name)
    {
        setRangeProvider(provider);
    }
    ~VxPortRangeTplSlider() override
    {
        if (m_provider) m_provider->setResetHandler(nullptr);
    }

    // Takes ownership of the provider (null removes it).
    void setRangeProvider(VxRangeProvider* provider)
    {
        if (m_provider) m_provider->setResetHandler(nullptr);
        m_provider.reset(provider);
        if (m_provider) m_provider->setResetHandler([this] { reset(); });
    }
    VxRangeProvider* getRangeProvider() const { return m_provider.get(); }

    // Takes the provider's range; false (and no change) when it has none.
    bool reset()
    {
        double lo, hi;
        if (!m_provider || !m_provider->getRange(lo, hi)) return false;
        reset(lo, hi);
        return true;
    }
    // The same with the range [lo, hi] the caller already has from the provider's data: a scan of
    // a large field spared.
    void reset(double lo, double hi)
    {
        const double value = double(this->getValue());
        if (m_valueChosen) {
            lo = std::min(lo, value);
            hi = std::max(hi, value);
        }
        this->setMinMax(Value(lo), Value(hi));
        if (!m_valueChosen) this->setValue(Value(lo + (hi - lo) / 2));
    }

    void untouch(bool all = true) override
    {
        m_valueChosen = false;
        Slider::untouch(all);
    }

    int parse(Tcl_Interp* interp, int argc, char** argv) override
    {
        if (argc >= 2 && !strcmp(argv[1], "resetRange")) {
            if (argc != 2) return this->usage(interp, "resetRange", "");
            if (!reset()) return this->error(interp, "there is no data to take a range from");
            return TCL_OK;
        }
        int result = Slider::parse(interp, argc, argv);
        if (result == TCL_OK && argc >= 2 &&
            (!strcmp(argv[1], "setValue") || !strcmp(argv[1], "setState") || !strcmp(argv[1], "drag")))
            m_valueChosen = true;
        return result;
    }
    QStringList verbs() const override { return QStringList{"resetRange"} + Slider::verbs(); }

private:
    std::unique_ptr<VxRangeProvider> m_provider;
    bool m_valueChosen = false;
};
