#pragma once
#include <vx/VxConnection.h>
#include <vx/VxObject.h>

#include <kx/KxHandle.h>

#include <QString>

#include <cstdio>

class SoNode;
class SoSeparator;
class VxDisplay;
struct VxPreferences;

// Base of every module: an object with ports that the host runs. After any port or input change
// the host calls update() (visibility and ranges), then compute() (the work), then clears the
// change flags. Everything runs on the main thread.
class VxModule : public VxObject
{
    KX_HEADER(VxModule)

public:
    // The main input; it accepts the given type (others are added with addType).
    VxConnection portData;

    virtual void update() {}
    virtual void compute() {}
    // update(), compute(), then clears every change flag; the module is no longer pending, also
    // when update() or compute() throws (the exception goes on to the caller).
    void fire();
    // Whether a port changed since the module last ran (or the module is new).
    bool isPending() const { return m_pending; }
    void portTouched(VxPort* port) override;

    // Connects the main input to a proposed data object when it accepts it.
    virtual bool autoConnect(VxObject* data);
    virtual void preferencesChanged(const VxPreferences& oldPrefs, const VxPreferences& newPrefs);

    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList commands() const override;

    // Where the module's geometry hangs in the scene (made on first use, shown while non-empty).
    SoSeparator* getSeparator();
    void showGeom(SoNode* node);
    void hideGeom(SoNode* node);
    VxDisplay* getDisplay() const { return m_display; }
    void setDisplay(VxDisplay* display) { m_display = display; }
    QString getLabel(bool withDecoration) const;
    QString getName(bool withDecoration) const { return getLabel(withDecoration); }
    using VxObject::getLabel;
    using VxObject::getName;
    // The data object this module works on: the main input's source.
    VxObject* getControllingData() const { return portData.getSource(); }
    // Translates a user-visible text; the context is the module's class name.
    static QString translate(const char* context, const char* text, const char* comment = nullptr);

protected:
    explicit VxModule(const KxTypeInfo* dataType = nullptr);
    ~VxModule() override;

private:
    bool m_pending = true;
    VxDisplay* m_display = nullptr;
    KxHandle<SoSeparator> m_separator;
};
