#pragma once
#include <QString>
#include <QStringList>

class SoTriSurface;

// How to write a surface beyond what the file name says.
struct VxSurfaceWriteOptions
{
    // Text instead of binary, for the formats that have both (PLY, STL, VTK); the others are
    // always text (OBJ, OFF, Open Inventor).
    bool ascii = false;
};

// Writes a triangle surface to a mesh file whose format follows from the file name's extension
// (case-insensitive): PLY (binary little-endian or ASCII), STL (binary or ASCII), Wavefront OBJ,
// OFF, VTK legacy polydata (binary or ASCII) or ASCII Open Inventor. Vertices and triangles keep
// the surface's order; normals go along where the format has room for them. The file appears
// complete or not at all: it is written under a temporary name next to the target and renamed
// over it at the end, so a failed write leaves an existing file untouched.
class VxSurfaceWriter
{
public:
    enum Format
    {
        UNKNOWN = 0,
        PLY,
        STL,
        OFF,
        IV,
        OBJ,
        VTK
    };

    // The format for a file name, UNKNOWN when the extension names none.
    static Format formatForPath(const QString& path);
    // Extensions with their dot, lower case, in the order messages list them: ".ply", ".stl", ...
    static QStringList supportedExtensions();
    // "(use .ply, .stl, .off, .iv, .obj or .vtk)", for messages about a wrong name.
    static QString extensionHint();

    // Returns false and, when error is given, one sentence naming the file and the problem.
    static bool write(const SoTriSurface& surface, const QString& path, const VxSurfaceWriteOptions& options,
                      QString* error = nullptr);
    static bool write(const SoTriSurface& surface, const QString& path, QString* error = nullptr)
    {
        return write(surface, path, VxSurfaceWriteOptions(), error);
    }
};
