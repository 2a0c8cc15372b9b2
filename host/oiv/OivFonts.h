#pragma once
#include <QString>

// Fonts for Open Inventor text, which Coin draws through FreeType with the fonts fontconfig knows.
// A family that is not installed would silently come out in some other font; this says which.

// The installed family that text in `family` is drawn with: the family itself when installed
// (installed = true), else fontconfig's best substitute for it (installed = false). Empty when
// fontconfig knows no font at all.
QString oivInstalledFontFamily(const QString& family, bool* installed = nullptr);
