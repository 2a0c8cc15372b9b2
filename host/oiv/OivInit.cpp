#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/SoDB.h>
#include <Inventor/nodekits/SoNodeKit.h>

#include <cstdlib>
#include <mutex>

namespace {

// The toolkit loads FreeType and fontconfig at run time under their unversioned names, which only the
// development packages provide. Point it at the runtime libraries so that 3-D text uses real fonts on
// a machine without them; a value the user has set wins.
void preferRuntimeFontLibraries()
{
    setenv("COIN_FREETYPE2_LIBNAME", "libfreetype.so.6", 0);
    setenv("COIN_FONTCONFIG_LIBNAME", "libfontconfig.so.1", 0);
}

} // namespace

void oivInit()
{
    static std::once_flag once;
    std::call_once(once, [] {
        preferRuntimeFontLibraries();
        SoDB::init();
        SoNodeKit::init();
        SoTriSurface::initClass();
    });
}
