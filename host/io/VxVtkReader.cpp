#include <io/VxVtkReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxException.h>
#include <kx/KxMemory.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>

using namespace VxHeaderText;

namespace {

enum class Dataset
{
    Points,
    Rectilinear,
    Curvilinear
};

// Value types by their VTK names, with their widths for skipping; UNKNOWN for types the volume
// cannot hold (64-bit integers, bits), which may still be skipped.
struct TypeName
{
    KxPrimType type;
    std::size_t width; // 0 for bits
};

bool typeNamed(const std::string& name, TypeName& t)
{
    static const std::map<std::string, TypeName> types = {
        {"unsigned_char", {KxPrimType::UINT8, 1}},
        {"char", {KxPrimType::INT8, 1}},
        {"signed_char", {KxPrimType::INT8, 1}},
        {"unsigned_short", {KxPrimType::UINT16, 2}},
        {"short", {KxPrimType::INT16, 2}},
        {"unsigned_int", {KxPrimType::UINT32, 4}},
        {"int", {KxPrimType::INT32, 4}},
        {"float", {KxPrimType::FLOAT, 4}},
        {"double", {KxPrimType::DOUBLE, 8}},
        {"vtktypeint8", {KxPrimType::INT8, 1}},
        {"vtktypeuint8", {KxPrimType::UINT8, 1}},
        {"vtktypeint16", {KxPrimType::INT16, 2}},
        {"vtktypeuint16", {KxPrimType::UINT16, 2}},
        {"vtktypeint32", {KxPrimType::INT32, 4}},
        {"vtktypeuint32", {KxPrimType::UINT32, 4}},
        {"vtktypefloat32", {KxPrimType::FLOAT, 4}},
        {"vtktypefloat64", {KxPrimType::DOUBLE, 8}},
        {"long", {KxPrimType::UNKNOWN, 8}},
        {"unsigned_long", {KxPrimType::UNKNOWN, 8}},
        {"vtktypeint64", {KxPrimType::UNKNOWN, 8}},
        {"vtktypeuint64", {KxPrimType::UNKNOWN, 8}},
        {"vtkidtype", {KxPrimType::UNKNOWN, 8}},
        {"long_long", {KxPrimType::UNKNOWN, 8}},
        {"unsigned_long_long", {KxPrimType::UNKNOWN, 8}},
        {"bit", {KxPrimType::UNKNOWN, 0}},
    };
    const auto it = types.find(lower(name));
    if (it == types.end()) return false;
    t = it->second;
    return true;
}

const char* kSupportedTypes =
    "unsigned_char, char, unsigned_short, short, unsigned_int, int, float and double";

class Parser
{
public:
    explicit Parser(const QString& path) : m_file(path, "a VTK file") {}

    VxRegScalarField3* read()
    {
        readPreamble();
        readGeometry();
        void* values = readPointData();
        std::unique_ptr<void, void (*)(void*)> guard(values, &kxfree);
        if (m_dataset == Dataset::Points)
            return VxReadSupport::uniformField(m_dims, m_type, guard.release(), m_place, m_file.path());
        // The coordinates check their positions: a NaN or an overflowing span names its point.
        VxRegScalarField3* field = nullptr;
        try {
            VxCoord3* coords = nullptr;
            if (m_dataset == Dataset::Rectilinear)
                coords = new VxRectilinearCoord3(m_dims, std::move(m_axes[0]), std::move(m_axes[1]),
                                                 std::move(m_axes[2]));
            else
                coords = new VxCurvilinearCoord3(m_dims, std::move(m_points));
            field = new VxRegScalarField3(m_dims, m_type, coords, guard.release());
        } catch (const KxException& e) {
            fail(e.text());
        }
        field->setLabel(QFileInfo(m_file.path()).fileName());
        return field;
    }

private:
    [[noreturn]] void fail(const QString& why) { m_file.fail(why); }

    std::string token(const char* what)
    {
        std::string t;
        if (!m_file.readToken(t)) fail(QString("ends where %1 belongs").arg(what));
        return t;
    }
    int64_t count(const char* what)
    {
        const std::string t = token(what);
        int64_t n;
        if (!toInt(t, n) || n < 0) fail(QString("%1 is '%2', not a count").arg(what, quote(t)));
        return n;
    }
    double number(const char* what)
    {
        const std::string t = token(what);
        double v;
        if (!toDouble(t, v) || !std::isfinite(v))
            fail(QString("%1 is '%2', not a finite number").arg(what, quote(t)));
        return v;
    }
    TypeName type(const char* what)
    {
        const std::string t = token(what);
        TypeName n;
        if (!typeNamed(t, n)) fail(QString("unknown value type '%1' of %2").arg(quote(t), what));
        return n;
    }
    // What follows the type of SCALARS: an optional count of components, then LOOKUP_TABLE and the
    // table's name. Returns the count.
    int64_t scalarsComponents()
    {
        int64_t comps = 1;
        std::string next = token("LOOKUP_TABLE");
        if (lower(next) != "lookup_table") {
            if (!toInt(next, comps) || comps < 1)
                fail(QString("has '%1' where LOOKUP_TABLE belongs").arg(quote(next)));
            next = token("LOOKUP_TABLE");
        }
        if (lower(next) != "lookup_table")
            fail(QString("has '%1' where LOOKUP_TABLE belongs").arg(quote(next)));
        token("the lookup table's name");
        return comps;
    }
    // Binary values start on the line after their keyword line.
    void toBinaryStart()
    {
        if (m_binary) m_file.skipLine();
    }

    void readPreamble()
    {
        std::string line;
        if (!m_file.readLine(line, 256) || lower(line).compare(0, 22, "# vtk datafile version") != 0)
            fail("not a VTK legacy file: it does not start with \"# vtk DataFile Version\"");
        if (!m_file.readLine(line, 1 << 12)) fail("ends after its first line");
        if (!m_file.readLine(line, 256)) fail("ends before the line that says ASCII or BINARY");
        const std::string mode = lower(trim(line));
        if (mode != "ascii" && mode != "binary")
            fail(QString("third line is '%1', not ASCII or BINARY").arg(quote(line)));
        m_binary = mode == "binary";
        std::string word = lower(token("DATASET"));
        while (word == "field") {
            skipFieldData();
            word = lower(token("DATASET"));
        }
        if (word != "dataset") fail(QString("has '%1' where DATASET belongs").arg(quote(word)));
        const std::string kind = lower(token("the dataset type"));
        if (kind == "structured_points")
            m_dataset = Dataset::Points;
        else if (kind == "rectilinear_grid")
            m_dataset = Dataset::Rectilinear;
        else if (kind == "structured_grid")
            m_dataset = Dataset::Curvilinear;
        else
            fail(QString("holds a %1 dataset; supported are STRUCTURED_POINTS, RECTILINEAR_GRID and "
                         "STRUCTURED_GRID")
                     .arg(quote(kind)));
    }

    void readDims()
    {
        for (int a = 0; a < 3; ++a) {
            const std::string t = token("DIMENSIONS");
            if (!toInt(t, m_dims[a]))
                fail(QString("DIMENSIONS holds '%1', not a whole number").arg(quote(t)));
        }
        const QString bad = VxValueReader::checkDims(m_dims);
        if (!bad.isEmpty()) fail(bad);
        m_haveDims = true;
    }

    void needDims(const char* keyword)
    {
        if (!m_haveDims) fail(QString("%1 comes before DIMENSIONS").arg(keyword));
    }

    // Fails unless the rest of the file can hold n values: checked before anything is allocated.
    void checkRoom(uint64_t n, const TypeName& t, const char* what)
    {
        const uint64_t left = m_file.size() - std::min(m_file.size(), m_file.tell());
        const double need =
            m_binary ? double(n) * double(std::max<std::size_t>(t.width, 1)) : 2.0 * double(n) - 1;
        if (double(left) < need)
            fail(QString("file is too short for its %1 %2; the file is truncated or its header is wrong")
                     .arg(n)
                     .arg(what));
    }

    void readFloats(float* out, int64_t n, const TypeName& t, const char* what)
    {
        if (!t.type.isValid())
            fail(QString("%1 are of a type that cannot be read as positions; use float or double").arg(what));
        toBinaryStart();
        VxValueReader::readFloats(m_file, out, uint64_t(n), t.type, !m_binary, true, what);
    }

    void readGeometry()
    {
        bool spacing = false, origin = false, axes[3] = {}, points = false;
        for (;;) {
            std::string word;
            if (!m_file.readToken(word)) fail("ends before its POINT_DATA");
            word = lower(word);
            if (word == "dimensions") {
                readDims();
            } else if ((word == "spacing" || word == "aspect_ratio") && m_dataset == Dataset::Points) {
                for (int a = 0; a < 3; ++a) m_place.spacing[a] = number("SPACING");
                spacing = true;
            } else if (word == "origin" && m_dataset == Dataset::Points) {
                for (int a = 0; a < 3; ++a) m_place.origin[a] = number("ORIGIN");
                origin = true;
            } else if (m_dataset == Dataset::Rectilinear && word.size() == 13 &&
                       word.compare(1, 12, "_coordinates") == 0 && word[0] >= 'x' && word[0] <= 'z') {
                const int a = word[0] - 'x';
                needDims("coordinates");
                const int64_t n = count("the number of coordinates");
                if (n != m_dims[a])
                    fail(QString("%1 lists %2 positions for %3 nodes")
                             .arg(QString::fromStdString(word).toUpper())
                             .arg(n)
                             .arg(m_dims[a]));
                const TypeName t = type("the coordinates");
                checkRoom(uint64_t(n), t, "coordinates");
                m_axes[a].resize(std::size_t(n));
                readFloats(m_axes[a].data(), n, t, "coordinates");
                axes[a] = true;
            } else if (word == "points" && m_dataset == Dataset::Curvilinear) {
                needDims("POINTS");
                const int64_t n = count("the number of points");
                if (n != m_dims.count())
                    fail(QString("POINTS lists %1 points, but DIMENSIONS %2 %3 %4 make %5 nodes")
                             .arg(n)
                             .arg(m_dims.nx)
                             .arg(m_dims.ny)
                             .arg(m_dims.nz)
                             .arg(m_dims.count()));
                const TypeName t = type("the points");
                checkRoom(3 * uint64_t(n), t, "point coordinates");
                m_points.resize(std::size_t(3 * n));
                readFloats(m_points.data(), 3 * n, t, "points");
                points = true;
            } else if (word == "field") {
                skipFieldData();
            } else if (word == "metadata") {
                skipMetadata();
            } else if (word == "cell_data") {
                needDims("CELL_DATA");
                const int64_t n = count("the number of cells");
                skipAttributes(n, "point_data");
                break;
            } else if (word == "point_data") {
                break;
            } else {
                fail(QString("has '%1' where a keyword of its dataset belongs").arg(quote(word)));
            }
        }
        needDims("POINT_DATA");
        if (m_dataset == Dataset::Points) {
            if (!spacing || !origin)
                fail(QString("structured points without %1").arg(!spacing ? "SPACING" : "ORIGIN"));
            const QString bad = m_place.normalise(m_dims);
            if (!bad.isEmpty()) fail(bad);
        } else if (m_dataset == Dataset::Rectilinear && !(axes[0] && axes[1] && axes[2])) {
            fail("the rectilinear grid lacks X_COORDINATES, Y_COORDINATES or Z_COORDINATES");
        } else if (m_dataset == Dataset::Curvilinear && !points) {
            fail("the structured grid has no POINTS");
        }
    }

    // Skips n values of a type, as text or binary.
    void skipValues(uint64_t n, const TypeName& t, const char* what)
    {
        if (!m_binary) {
            std::string ignored;
            for (uint64_t i = 0; i < n; ++i)
                if (!m_file.readToken(ignored)) fail(QString("ends within the values of %1").arg(what));
            return;
        }
        toBinaryStart();
        const uint64_t bytes = t.width ? n * t.width : (n + 7) / 8;
        if (bytes > m_file.size() - std::min(m_file.size(), m_file.tell()))
            fail(QString("ends within the values of %1; the file is truncated").arg(what));
        m_file.seek(m_file.tell() + bytes);
    }

    void skipFieldData()
    {
        token("the field data's name");
        const int64_t arrays = count("the number of field arrays");
        for (int64_t a = 0; a < arrays; ++a) {
            const std::string name = token("a field array");
            if (lower(name) == "null_array") continue;
            if (lower(name) == "metadata") {
                skipMetadata();
                --a;
                continue;
            }
            const int64_t comps = count("the components of a field array");
            const int64_t tuples = count("the tuples of a field array");
            const std::string typeName = token("the type of a field array");
            TypeName t;
            if (!typeNamed(typeName, t))
                fail(QString("holds field data of type '%1', which cannot be skipped").arg(quote(typeName)));
            skipValues(uint64_t(comps) * uint64_t(tuples), t, "field data");
        }
    }

    // Information blocks of newer writers: lines up to a blank one.
    void skipMetadata()
    {
        std::string line;
        m_file.skipLine();
        while (m_file.readLine(line, 1 << 20) && !trim(line).empty()) {
        }
    }

    // Skips the attributes of a section of n tuples up to the keyword `until` (or the end).
    void skipAttributes(int64_t n, const char* until)
    {
        for (;;) {
            std::string word;
            if (!m_file.readToken(word)) return;
            word = lower(word);
            if (word == until) return;
            skipAttribute(word, n);
        }
    }

    void skipAttribute(const std::string& word, int64_t n)
    {
        static const TypeName floats{KxPrimType::FLOAT, 4}, bytes{KxPrimType::UINT8, 1};
        if (word == "scalars") {
            token("the scalars' name");
            const TypeName t = type("the scalars");
            const int64_t comps = scalarsComponents();
            skipValues(uint64_t(n) * uint64_t(comps), t, "scalars");
        } else if (word == "vectors" || word == "normals" || word == "tensors" || word == "tensors6" ||
                   word == "global_ids" || word == "pedigree_ids") {
            token("the attribute's name");
            const TypeName t = type("an attribute");
            const int comps = word == "tensors"                  ? 9
                              : word == "tensors6"               ? 6
                              : word[0] == 'v' || word[0] == 'n' ? 3
                                                                 : 1;
            skipValues(uint64_t(n) * uint64_t(comps), t, "an attribute");
        } else if (word == "texture_coordinates") {
            token("the texture coordinates' name");
            const int64_t dim = count("the texture dimension");
            const TypeName t = type("texture coordinates");
            skipValues(uint64_t(n) * uint64_t(dim), t, "texture coordinates");
        } else if (word == "color_scalars") {
            token("the colour scalars' name");
            const int64_t comps = count("the colour components");
            skipValues(uint64_t(n) * uint64_t(comps), m_binary ? bytes : floats, "colour scalars");
        } else if (word == "lookup_table") {
            token("the lookup table's name");
            const int64_t size = count("the lookup table's size");
            skipValues(4 * uint64_t(size), m_binary ? bytes : floats, "a lookup table");
        } else if (word == "field") {
            skipFieldData();
        } else if (word == "metadata") {
            skipMetadata();
        } else {
            fail(QString("has '%1' where a data attribute belongs").arg(quote(word)));
        }
    }

    // VTK writes unsigned char scalars as colour scalars of one component: bytes in binary files,
    // fractions of 255 in text. Others are skipped (null).
    void* readColourScalars(int64_t n)
    {
        token("the colour scalars' name");
        const int64_t comps = count("the colour components");
        static const TypeName bytes{KxPrimType::UINT8, 1}, floats{KxPrimType::FLOAT, 4};
        if (comps != 1) {
            skipValues(uint64_t(n) * uint64_t(comps), m_binary ? bytes : floats, "colour scalars");
            return nullptr;
        }
        m_type = KxPrimType::UINT8;
        if (m_binary) {
            toBinaryStart();
            return VxValueReader::read(m_file, m_dims, m_type, VxEncoding::Raw, true);
        }
        std::unique_ptr<void, void (*)(void*)> fractions(
            VxValueReader::read(m_file, m_dims, KxPrimType::FLOAT, VxEncoding::Ascii, true), &kxfree);
        auto* out = static_cast<unsigned char*>(kxmalloc(std::size_t(n)));
        const float* f = static_cast<const float*>(fractions.get());
        for (int64_t i = 0; i < n; ++i)
            out[i] = (unsigned char)std::lround(std::min(1.f, std::max(0.f, f[i])) * 255.f);
        return out;
    }

    void* readPointData()
    {
        const int64_t n = count("the number of point values");
        if (n != m_dims.count())
            fail(QString("POINT_DATA gives %1 values, but DIMENSIONS %2 %3 %4 make %5 nodes")
                     .arg(n)
                     .arg(m_dims.nx)
                     .arg(m_dims.ny)
                     .arg(m_dims.nz)
                     .arg(m_dims.count()));
        for (;;) {
            std::string word;
            if (!m_file.readToken(word)) fail("holds no one-component SCALARS in its POINT_DATA");
            word = lower(word);
            if (word == "color_scalars") {
                if (void* values = readColourScalars(n)) return values;
                continue;
            }
            if (word != "scalars") {
                skipAttribute(word, n);
                continue;
            }
            const std::string name = token("the scalars' name");
            const std::string typeName = token("the scalars' type");
            TypeName t;
            if (!typeNamed(typeName, t))
                fail(QString("unknown value type '%1'; supported are %2")
                         .arg(quote(typeName), kSupportedTypes));
            const int64_t comps = scalarsComponents();
            if (comps != 1) {
                // Colours or vectors stored as scalars: look further for a plain one.
                skipValues(uint64_t(n) * uint64_t(comps), t, "scalars");
                continue;
            }
            if (!t.type.isValid())
                fail(QString("unsupported value type '%1' of the scalars; supported are %2")
                         .arg(quote(typeName), kSupportedTypes));
            m_type = t.type;
            toBinaryStart();
            return VxValueReader::read(m_file, m_dims, m_type, m_binary ? VxEncoding::Raw : VxEncoding::Ascii,
                                       true);
        }
    }

    VxInputFile m_file;
    bool m_binary = false;
    Dataset m_dataset = Dataset::Points;
    KxDim3l m_dims;
    bool m_haveDims = false;
    KxPrimType m_type;
    VxVolumePlacement m_place;
    KxDArray<float> m_axes[3];
    KxDArray<float> m_points;
};

} // namespace

VxRegScalarField3* VxVtkReader::read(const QString& path, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] { return Parser(path).read(); });
}
