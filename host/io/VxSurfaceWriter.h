#pragma once
#include <QString>
#include <QStringList>

class SoTriSurface;

// Writes a triangle surface to a mesh file whose format follows from the file name's extension
// (case-insensitive): binary little-endian PLY, binary STL, ASCII OFF or ASCII Open Inventor.
// Vertices and triangles keep the surface's order. The file appears complete or not at all: it is
// written under a temporary name next to the target and renamed over it at the end, so a failed
// write leaves an existing file untouched.
class VxSurfaceWriter
{
public:
    enum Format
    {
        UNKNOWN = 0,
        PLY,
        STL,
        OFF,
        IV
    };

    // The format for a file name, UNKNOWN when the extension names none.
    static Format formatForPath(const QString& path);
    // Extensions with their dot, lower case, in the order messages list them: ".ply", ".stl", ...
    static QStringList supportedExtensions();

    // Returns false and, when error is given, one sentence naming the file and the problem.
    static bool write(const SoTriSurface& surface, const QString& path, QString* error = nullptr);
};
