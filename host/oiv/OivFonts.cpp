#include <oiv/OivFonts.h>

#include <fontconfig/fontconfig.h>

#include <mutex>

namespace {

QString familyOf(FcPattern* pattern)
{
    FcChar8* name = nullptr;
    if (FcPatternGetString(pattern, FC_FAMILY, 0, &name) != FcResultMatch || !name) return QString();
    return QString::fromUtf8(reinterpret_cast<const char*>(name));
}

} // namespace

QString oivInstalledFontFamily(const QString& family, bool* installed)
{
    // fontconfig's calls are not safe under concurrent first use of its configuration.
    static std::mutex lock;
    const std::lock_guard<std::mutex> guard(lock);
    if (installed) *installed = false;
    FcConfig* config = FcConfigGetCurrent();
    if (!config) return QString();
    const QByteArray name = family.toUtf8();

    // Installed: some font file declares the family (case and spacing as fontconfig compares them).
    FcPattern* wanted = FcPatternCreate();
    FcPatternAddString(wanted, FC_FAMILY, reinterpret_cast<const FcChar8*>(name.constData()));
    FcObjectSet* families = FcObjectSetBuild(FC_FAMILY, nullptr);
    FcFontSet* listed = FcFontList(config, wanted, families);
    const bool found = listed && listed->nfont > 0;
    QString result = found ? familyOf(listed->fonts[0]) : QString();
    if (listed) FcFontSetDestroy(listed);
    FcObjectSetDestroy(families);
    if (found) {
        FcPatternDestroy(wanted);
        if (installed) *installed = true;
        return result.isEmpty() ? family : result;
    }

    // Otherwise the font that fontconfig's aliases and defaults give for the name.
    FcConfigSubstitute(config, wanted, FcMatchPattern);
    FcDefaultSubstitute(wanted);
    FcResult matched = FcResultNoMatch;
    FcPattern* match = FcFontMatch(config, wanted, &matched);
    if (match) {
        result = familyOf(match);
        FcPatternDestroy(match);
    }
    FcPatternDestroy(wanted);
    return result;
}
