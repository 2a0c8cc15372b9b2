#pragma once
#include <io/VxInputFile.h>
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <QString>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

class VxUniformScalarField3;
struct VxVolumePlacement;

// What the volume readers do alike once their header is understood.
namespace VxReadSupport {

// Opens the data file a header names: an absolute name as it is, else beside the header.
std::unique_ptr<VxInputFile> openDataFile(const VxInputFile& header, const std::string& name);
// The first of base + suffix that is a file (not a folder), or an empty string.
QString firstFile(const QString& base, std::initializer_list<const char*> suffixes);

// A kxmalloc'd block for values, freed unless released.
using Values = std::unique_ptr<void, void (*)(void*)>;
// bytes for the values `what` ("5x4x3 int16") of the file at path; fails saying so when memory is
// short.
Values allocateValues(const QString& path, uint64_t bytes, const QString& what);

// A uniform field taking over the values (freed when it fails), placed where `where` says (which
// must have been normalised for dims), and labelled with the file's name.
VxUniformScalarField3* uniformField(const KxDim3l& dims, KxPrimType type, void* values,
                                    const VxVolumePlacement& where, const QString& path);

// Runs a reader's body: its result, or null with "<file>: <why>" in *error when it fails.
template <class Read> auto reportFailure(QString* error, Read read) -> decltype(read())
{
    try {
        return read();
    } catch (const VxReadFailure& f) {
        if (error) *error = QString("%1: %2").arg(f.file, f.why);
        return nullptr;
    }
}

} // namespace VxReadSupport
