#pragma once
#include <vx/VxModule.h>

class VxPortButtonList;

// A module that shows geometry. Its "Buffer" buttons keep copies of the current geometry on
// screen ("Add"), drop them ("Clear"), or show and hide them; compute() of derived classes calls
// the base first so the view's own ports take effect.
class VxViewBase : public VxModule
{
    KX_HEADER(VxViewBase)

public:
    ~VxViewBase() override;
    void update() override;
    void compute() override;

    // The node that Add copies into the buffer; null when the view shows nothing.
    virtual SoNode* getGeometry() const { return nullptr; }
    // Applies the buffer buttons.
    void handleBuffer();
    // Applies the draw style (derived views own the style port).
    virtual void handleDrawStyle() {}
    // Applies the colouring; the argument says which colouring the derived view asks for. Returns
    // whether the geometry is pseudo-coloured (coloured by other data), in which case a module that
    // colours its geometry itself leaves the colours alone.
    virtual bool handlePseudoColor(int mode)
    {
        (void)mode;
        return false;
    }

    VxPortButtonList& portBuffer() { return *m_buffer; }
    int getNumBuffered() const;

protected:
    explicit VxViewBase(const KxTypeInfo* dataType = nullptr);

private:
    VxPortButtonList* m_buffer;
    KxHandle<SoSeparator> m_bufferRoot;
};
