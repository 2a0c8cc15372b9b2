#pragma once
#include <QString>
#include <QStringList>

// The files that reading a volume opens: the named file, the other half of a NIfTI header and
// image pair, the detached data file a NRRD or MetaImage header names, and the block files of a
// multi-block description. Only files that exist are listed.
QStringList vxInputFiles(const QString& path);

// True when both names lead to one file, through symbolic and hard links alike. A name that does
// not exist yet is the same as another only when both name one entry of one folder.
bool vxSameFile(const QString& a, const QString& b);
