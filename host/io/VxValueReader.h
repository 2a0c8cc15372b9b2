#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <QString>

#include <cstdint>

class VxInputFile;

// How the values of a volume are stored after its header.
enum class VxEncoding
{
    Raw,  // the bytes themselves
    Gzip, // a gzip or zlib stream of those bytes
    Ascii // numbers as text, separated by blanks
};

// Reads the values of a volume from where a file stands into a new kxmalloc'd block in native byte
// order. Checks what it can before allocating, so that a header which lies about the size of its
// data gives an error, not a huge allocation or a crash.
class VxValueReader
{
public:
    // dims x type values in the encoding; bigEndian says the stored byte order (ignored for text).
    static void* read(VxInputFile& file, const KxDim3l& dims, KxPrimType type, VxEncoding encoding,
                      bool bigEndian);
    // count numbers of any type as floats (coordinates of grids); type gives the stored width.
    static void readFloats(VxInputFile& file, float* out, uint64_t count, KxPrimType type, bool ascii,
                           bool bigEndian, const QString& what);
    // Bytes that dims values of type occupy; fails naming the sizes when they are too large.
    static uint64_t byteCount(VxInputFile& file, const KxDim3l& dims, KxPrimType type);
    static void swapBytes(void* data, uint64_t count, std::size_t width);
    // "5x4x3 int16"
    static QString describe(const KxDim3l& dims, KxPrimType type);
    // Positive dimensions whose nodes (and values of type, when known) can be counted and indexed,
    // or a message naming them.
    static QString checkDims(const KxDim3l& dims, KxPrimType type = KxPrimType::UNKNOWN);
};
