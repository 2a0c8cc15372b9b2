#include <io/VxVtkReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumePlacement.h>
#include <io/VxVtkLegacyParser.h>
#include <kx/KxException.h>
#include <kx/KxMemory.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

#include <algorithm>
#include <cmath>
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

const char* kSupportedTypes =
    "unsigned_char, char, unsigned_short, short, unsigned_int, int, float and double";

class Parser : public VxVtkLegacyParser
{
public:
    explicit Parser(const QString& path) : VxVtkLegacyParser(path) {}

    VxRegScalarField3* read()
    {
        const std::string kind = readPreamble();
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

    // VTK writes unsigned char scalars as colour scalars of one component: bytes in binary files,
    // fractions of 255 in text. Others are skipped (null).
    void* readColourScalars(int64_t n)
    {
        token("the colour scalars' name");
        const int64_t comps = count("the colour components");
        if (comps != 1) {
            skipValues(uint64_t(n) * uint64_t(comps), colourType(), "colour scalars");
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
        for (int64_t i = 0; i < n; ++i) out[i] = colourByte(f[i]);
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
