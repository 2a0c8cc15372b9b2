#pragma once
#include <vx/VxViewBase.h>

#include <oiv/SoTriSurface.h>

class VxPortColormap;
class VxPortDrawStyle;

// A view whose output is one triangle surface: its draw style and colour come from the
// "Draw Style" and "Colormap" ports. Derived modules fill the surface in compute().
class VxTriBase : public VxViewBase
{
    KX_HEADER(VxTriBase)

public:
    ~VxTriBase() override;
    void compute() override;
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList commands() const override;

    SoTriSurface* getTriSurface() const { return m_surface.get(); }
    // Puts a newly made surface in the old one's place, in the scene too, with its draw style and
    // colours: work done into a fresh node replaces the output only when it succeeded.
    void replaceTriSurface(SoTriSurface* surface);
    SoNode* getGeometry() const override { return m_surface.get(); }
    void handleDrawStyle() override;
    // A surface with one colour per vertex is pseudo-coloured: it keeps its colours and the answer is
    // true. Otherwise it gets the colour map's default colour and alpha, and the answer is false.
    bool handlePseudoColor(int mode) override;

    VxPortColormap& portColormap() { return *m_colormap; }
    VxPortDrawStyle& portDrawStyle() { return *m_drawStyle; }

protected:
    explicit VxTriBase(const KxTypeInfo* dataType);
    // The look of an isosurface: solid, with culling choices, two-sided lighting and a half-clear
    // warm default colour.
    void useIsosurfaceLook();

    KxHandle<SoTriSurface> m_surface;

private:
    VxPortColormap* m_colormap;
    VxPortDrawStyle* m_drawStyle;
};
