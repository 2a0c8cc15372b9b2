#pragma once
#include <QString>
#include <QStringList>

class VxLineSet;

// Writes a line set by the file name's extension (case-insensitive): VTK legacy polydata (.vtk,
// ASCII: the points, one LINES cell per line and, when the set has data values, the first one as
// point and cell scalars "value") or ASCII Open Inventor (.iv: coordinates in line order and an SoLineSet
// with one vertex count per line). Written under a temporary name and renamed when complete.
class VxLineSetWriter
{
public:
    static QStringList supportedExtensions();
    // Returns false and, when error is given, one sentence naming the file and the problem.
    static bool write(const VxLineSet& lines, const QString& path, QString* error = nullptr);
};
