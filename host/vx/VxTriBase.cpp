#include <vx/VxApplication.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxTriBase.h>

#include <Inventor/nodes/SoSeparator.h>

#include <cmath>
#include <cstring>

KX_ABSTRACT_SOURCE(VxTriBase, VxViewBase)

VxTriBase::VxTriBase(const KxTypeInfo* dataType)
    : VxViewBase(dataType), m_surface(new SoTriSurface),
      m_colormap(new VxPortColormap(this, translate("VxTriBase", "Colormap"), "colormap")),
      m_drawStyle(new VxPortDrawStyle(this, translate("VxTriBase", "Draw Style"), "drawStyle"))
{
    m_colormap->hide();
}

void VxTriBase::useIsosurfaceLook()
{
    m_drawStyle->setValue(1);
    m_drawStyle->cullingControls();
    m_colormap->setDefaultColor(SbColor(1.0f, 0.8f, 0.4f));
    m_colormap->setDefaultAlpha(0.5f);
    m_surface->drawStyle = 1;
    m_surface->twoSidedLighting = TRUE;
}

VxTriBase::~VxTriBase()
{
    delete m_drawStyle;
    delete m_colormap;
}

void VxTriBase::compute()
{
    VxViewBase::compute();
    handleDrawStyle();
    handlePseudoColor(0);
    // Shown by default; a module hides it when it has nothing to show.
    showGeom(m_surface.get());
}

void VxTriBase::replaceTriSurface(SoTriSurface* surface)
{
    KxHandle<SoTriSurface> keep(surface);
    surface->drawStyle = m_surface->drawStyle.getValue();
    surface->twoSidedLighting = m_surface->twoSidedLighting.getValue();
    surface->colors = m_surface->colors;
    surface->materialBinding = m_surface->materialBinding.getValue();
    SoSeparator* sep = getSeparator();
    const int at = sep->findChild(m_surface.get());
    if (at >= 0) sep->replaceChild(at, surface);
    m_surface = keep;
}

void VxTriBase::handleDrawStyle()
{
    int style = m_drawStyle->getValue();
    if (style >= SoTriSurface::WIREFRAME && style <= SoTriSurface::POINTS &&
        m_surface->drawStyle.getValue() != style)
        m_surface->drawStyle = style;
}

bool VxTriBase::handlePseudoColor(int)
{
    const int points = m_surface->getNumPoints();
    if (points > 0 && m_surface->materialBinding.getValue() == SoTriSurface::PER_VERTEX &&
        m_surface->colors.getNum() == points)
        return true;
    SbColor c = m_colormap->getDefaultColor();
    float alpha = m_colormap->isAlphaEnabled() ? m_colormap->getDefaultAlpha() : 1.f;
    auto byte = [](float v) { return uint32_t(std::lround(std::min(1.f, std::max(0.f, v)) * 255.f)); };
    uint32_t packed = byte(c[0]) << 24 | byte(c[1]) << 16 | byte(c[2]) << 8 | byte(alpha);
    if (m_surface->colors.getNum() != 1 || m_surface->colors[0] != packed) m_surface->colors.setValue(packed);
    return false;
}

QStringList VxTriBase::commands() const
{
    return QStringList{"getNumTriangles", "getNumPoints", "exportData", "save"} + VxViewBase::commands();
}

int VxTriBase::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc >= 2 && !findPort(QString::fromUtf8(argv[1]))) {
        const char* word = argv[1];
        if (!strcmp(word, "getNumTriangles") || !strcmp(word, "getNumPoints")) {
            int n =
                !strcmp(word, "getNumTriangles") ? m_surface->getNumTriangles() : m_surface->getNumPoints();
            vxscript::setResult(interp, QString::number(n));
            return TCL_OK;
        }
        if (!strcmp(word, "exportData") || !strcmp(word, "save")) {
            const auto& writer = VxApplication::instance()->surfaceExporter();
            if (!writer) {
                vxscript::setResult(interp,
                                    QString("\"%1\": this host has no surface writers").arg(getName()));
                return TCL_ERROR;
            }
            return parseExport(interp, argc, argv,
                               [&](const QString& format, const QString& path, QString* why) {
                                   return writer(*m_surface, format, path, why);
                               });
        }
    }
    return VxViewBase::parse(interp, argc, argv);
}
