#pragma once
#include <io/VxInputFile.h>
#include <io/VxStoredNumbers.h>
#include <kx/KxPrimType.h>

#include <QString>

#include <cstdint>
#include <functional>
#include <string>

// The words of a VTK legacy file (.vtk) that every dataset shares: the preamble, keywords and
// counts, value types, and the attributes a reader passes over. The structured and unstructured
// readers build on it. Binary values are big-endian and start on the line after their keyword.
class VxVtkLegacyParser
{
public:
    // A value type by its VTK name. type is UNKNOWN for those a volume cannot hold (64-bit
    // integers, bits), which may still be skipped or converted.
    struct TypeName
    {
        KxPrimType type;
        std::size_t width; // 0 for bits
        VxNumberType number;
    };
    static bool typeNamed(const std::string& name, TypeName& t);
    static const TypeName kUInt8, kInt32, kFloat32;

    explicit VxVtkLegacyParser(const QString& path);

    // The dataset type of the file, lower-case ("structured_points", "unstructured_grid"), or an
    // empty string when it is not a readable VTK legacy file.
    static std::string datasetOf(const QString& path);

    [[noreturn]] void fail(const QString& why) const { m_file.fail(why); }

protected:
    // Reads the three header lines and any dataset-level FIELD up to the dataset's type, which it
    // returns lower-case.
    std::string readPreamble();
    // The major version of "# vtk DataFile Version 5.1".
    int version() const { return m_version; }

    std::string token(const char* what);
    int64_t count(const char* what);
    double number(const char* what);
    TypeName type(const char* what);
    // What follows the type of SCALARS: an optional count of components, LOOKUP_TABLE and its name.
    int64_t scalarsComponents();
    void toBinaryStart();
    // Fails unless the rest of the file can hold n values of t.
    void checkRoom(uint64_t n, const TypeName& t, const char* what);

    // n numbers of type t, as text or binary, into out (float or int64_t).
    template <class Out> void readNumbers(Out* out, uint64_t n, const TypeName& t, const char* what);

    // COLOR_SCALARS hold bytes in binary files and fractions of 255 in text ones.
    const TypeName& colourType() const { return m_binary ? kUInt8 : kFloat32; }
    static unsigned char colourByte(float fraction);

    void skipValues(uint64_t n, const TypeName& t, const char* what);
    // FIELD data: each array (name, components, tuples, the type as written) goes to take, which
    // reads its values and returns true, or returns false to have them skipped.
    using FieldArray = std::function<bool(const std::string& name, int64_t comps, int64_t tuples,
                                          const std::string& typeName, const TypeName& t)>;
    void readFieldData(const FieldArray& take);
    void skipFieldData();
    void skipMetadata();
    // Skips the attributes of a section of n tuples up to the keyword `until` (or the end).
    void skipAttributes(int64_t n, const char* until);
    void skipAttribute(const std::string& word, int64_t n);

    VxInputFile m_file;
    bool m_binary = false;

private:
    int m_version = 0;
};
