#include <io/VxNrrdReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumeLayout.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

using namespace VxHeaderText;

namespace {

struct Header
{
    int64_t dimension = 0;
    std::vector<int64_t> sizes;
    KxPrimType type;
    bool haveType = false, haveEncoding = false, haveEndian = false, bigEndian = false;
    VxEncoding encoding = VxEncoding::Raw;
    std::string dataFile;
    int64_t lineSkip = 0, byteSkip = 0;
    std::vector<double> spacings, axisMins;
    int64_t spaceDimension = 0;
    std::vector<std::string> directions; // one entry per axis: "(x,y,z)" or "none"
    std::string spaceOrigin;
    bool attached = false; // the header ended with a blank line: data follows
};

KxPrimType typeNamed(const std::string& name)
{
    static const struct
    {
        const char* name;
        KxPrimType::Type type;
    } names[] = {
        {"signed char", KxPrimType::INT8},
        {"int8", KxPrimType::INT8},
        {"int8_t", KxPrimType::INT8},
        {"uchar", KxPrimType::UINT8},
        {"unsigned char", KxPrimType::UINT8},
        {"uint8", KxPrimType::UINT8},
        {"uint8_t", KxPrimType::UINT8},
        {"short", KxPrimType::INT16},
        {"short int", KxPrimType::INT16},
        {"signed short", KxPrimType::INT16},
        {"signed short int", KxPrimType::INT16},
        {"int16", KxPrimType::INT16},
        {"int16_t", KxPrimType::INT16},
        {"ushort", KxPrimType::UINT16},
        {"unsigned short", KxPrimType::UINT16},
        {"unsigned short int", KxPrimType::UINT16},
        {"uint16", KxPrimType::UINT16},
        {"uint16_t", KxPrimType::UINT16},
        {"int", KxPrimType::INT32},
        {"signed int", KxPrimType::INT32},
        {"int32", KxPrimType::INT32},
        {"int32_t", KxPrimType::INT32},
        {"uint", KxPrimType::UINT32},
        {"unsigned int", KxPrimType::UINT32},
        {"uint32", KxPrimType::UINT32},
        {"uint32_t", KxPrimType::UINT32},
        {"float", KxPrimType::FLOAT},
        {"double", KxPrimType::DOUBLE},
    };
    // Blanks inside a name count as one.
    std::string canonical;
    for (const std::string& w : words(lower(name))) canonical += (canonical.empty() ? "" : " ") + w;
    for (const auto& n : names)
        if (canonical == n.name) return n.type;
    return KxPrimType::UNKNOWN;
}

void parseField(VxInputFile& f, Header& h, const std::string& field, const std::string& value)
{
    auto bad = [&](const char* what) {
        f.fail(QString("the header's \"%1\" is '%2', not %3")
                   .arg(QString::fromStdString(field), quote(value), what));
    };
    if (field == "dimension") {
        if (!toInt(value, h.dimension)) bad("a number");
    } else if (field == "type") {
        h.type = typeNamed(value);
        if (!h.type.isValid())
            f.fail(
                QString(
                    "unsupported value type '%1'; supported are int8, uint8, int16, uint16, int32, uint32, "
                    "float and double")
                    .arg(quote(value)));
        h.haveType = true;
    } else if (field == "sizes") {
        if (!toInts(value, h.sizes)) bad("a list of whole numbers");
    } else if (field == "encoding") {
        const std::string e = lower(value);
        if (e == "raw")
            h.encoding = VxEncoding::Raw;
        else if (e == "gzip" || e == "gz")
            h.encoding = VxEncoding::Gzip;
        else if (e == "ascii" || e == "text" || e == "txt")
            h.encoding = VxEncoding::Ascii;
        else
            f.fail(QString("unsupported encoding '%1'; supported are raw, gzip and ascii").arg(quote(value)));
        h.haveEncoding = true;
    } else if (field == "endian") {
        const std::string e = lower(value);
        if (e != "little" && e != "big") bad("little or big");
        h.bigEndian = e == "big";
        h.haveEndian = true;
    } else if (field == "data file" || field == "datafile") {
        if (value.empty()) f.fail("the header's data file names no file");
        h.dataFile = value;
    } else if (field == "line skip" || field == "lineskip") {
        if (!toInt(value, h.lineSkip) || h.lineSkip < 0) bad("a count of lines");
    } else if (field == "byte skip" || field == "byteskip") {
        if (!toInt(value, h.byteSkip) || h.byteSkip < -1) bad("a count of bytes or -1");
    } else if (field == "spacings") {
        if (!toDoubles(value, h.spacings)) bad("a list of numbers");
    } else if (field == "axis mins" || field == "axismins") {
        if (!toDoubles(value, h.axisMins)) bad("a list of numbers");
    } else if (field == "space dimension") {
        if (!toInt(value, h.spaceDimension)) bad("a number");
    } else if (field == "space") {
        // Named spaces of three axes; those with time are four-dimensional.
        const std::string s = lower(value);
        const bool timed = s.find("time") != std::string::npos || s == "rast" || s == "last" || s == "lpst";
        h.spaceDimension = timed ? 4 : 3;
    } else if (field == "space directions") {
        h.directions.clear();
        // Vectors may hold blanks: split at ')' and at "none".
        std::string rest = trim(value);
        while (!rest.empty()) {
            if (lower(rest.substr(0, 4)) == "none") {
                h.directions.push_back("none");
                rest = trim(rest.substr(4));
                continue;
            }
            const std::size_t close = rest.find(')');
            if (rest[0] != '(' || close == std::string::npos) bad("a list of vectors (x,y,z) or none");
            h.directions.push_back(rest.substr(0, close + 1));
            rest = trim(rest.substr(close + 1));
        }
    } else if (field == "space origin") {
        h.spaceOrigin = value;
    }
    // Other fields (content, kinds, centers, units, labels, min, max, ...) do not change the values.
}

Header parseHeader(VxInputFile& f)
{
    std::string line;
    if (!f.readLine(line, 256) || line.size() != 8 || line.compare(0, 7, "NRRD000") != 0 || line[7] < '1' ||
        line[7] > '9')
        f.fail("not a NRRD file: it does not start with the line NRRD0001 to NRRD0005");
    Header h;
    int number = 1;
    while (f.readLine(line)) {
        ++number;
        if (trim(line).empty()) {
            h.attached = true;
            break;
        }
        if (line[0] == '#') continue;
        if (line.find(":=") != std::string::npos) continue; // key/value pairs: free text
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0)
            f.fail(
                QString("header line %1 '%2' is not a \"field: value\" line").arg(number).arg(quote(line)));
        parseField(f, h, lower(trim(line.substr(0, colon))), trim(line.substr(colon + 1)));
    }
    return h;
}

// Checks the header and works out the dimensions, dropping a leading axis of size one.
KxDim3l dimensionsOf(VxInputFile& f, Header& h)
{
    if (h.dimension == 0) f.fail("the header gives no dimension");
    if (!h.haveType) f.fail("the header gives no type");
    if (!h.haveEncoding) f.fail("the header gives no encoding");
    if (int64_t(h.sizes.size()) != h.dimension)
        f.fail(QString("the header gives %1 sizes for dimension %2").arg(h.sizes.size()).arg(h.dimension));
    for (int64_t s : h.sizes)
        if (s <= 0) {
            QString list;
            for (int64_t t : h.sizes) list += QString(list.isEmpty() ? "%1" : " %1").arg(t);
            f.fail(QString("sizes must be positive, not %1").arg(list));
        }
    const bool leadingOne = h.dimension == 4 && h.sizes[0] == 1;
    if (h.dimension != 3 && !leadingOne)
        f.fail(QString("holds a %1-dimensional array; only 3-D volumes are supported").arg(h.dimension));
    if (leadingOne) {
        h.sizes.erase(h.sizes.begin());
        if (h.spacings.size() == 4) h.spacings.erase(h.spacings.begin());
        if (h.axisMins.size() == 4) h.axisMins.erase(h.axisMins.begin());
        if (h.directions.size() == 4) h.directions.erase(h.directions.begin());
    }
    const KxDim3l dims(h.sizes[0], h.sizes[1], h.sizes[2]);
    const QString bad = VxValueReader::checkDims(dims, h.type);
    if (!bad.isEmpty()) f.fail(bad);
    if (h.type.size() > 1 && h.encoding != VxEncoding::Ascii && !h.haveEndian)
        f.fail(QString("the header gives no endian for its %1 values").arg(h.type.name()));
    return dims;
}

VxVolumePlacement placementOf(VxInputFile& f, const Header& h, const KxDim3l& dims)
{
    VxVolumePlacement p;
    if (!h.directions.empty()) {
        if (h.spaceDimension != 3)
            f.fail(QString("space directions need a 3-D space, but the space has %1 dimensions")
                       .arg(h.spaceDimension));
        if (h.directions.size() != 3) f.fail("the header's space directions do not give one vector per axis");
        for (int a = 0; a < 3; ++a) {
            if (!toVector(h.directions[std::size_t(a)], 3, p.axis[a]))
                f.fail(QString("the space direction of axis %1 is '%2', not a vector (x,y,z)")
                           .arg(a + 1)
                           .arg(quote(h.directions[std::size_t(a)])));
            p.spacing[a] = 1;
        }
        if (!h.spaceOrigin.empty() && !toVector(h.spaceOrigin, 3, p.origin))
            f.fail(QString("the space origin is '%1', not a point (x,y,z)").arg(quote(h.spaceOrigin)));
    } else {
        if (!h.spacings.empty() && h.spacings.size() != 3)
            f.fail("the header's spacings do not give one per axis");
        if (!h.axisMins.empty() && h.axisMins.size() != 3)
            f.fail("the header's axis mins do not give one per axis");
        for (int a = 0; a < 3; ++a) {
            // NaN marks an axis without spacing: unit spacing then.
            if (!h.spacings.empty() && !std::isnan(h.spacings[std::size_t(a)]))
                p.spacing[a] = h.spacings[std::size_t(a)];
            if (!h.axisMins.empty() && !std::isnan(h.axisMins[std::size_t(a)]))
                p.origin[a] = h.axisMins[std::size_t(a)];
        }
    }
    const QString bad = p.normalise(dims);
    if (!bad.isEmpty()) f.fail(bad);
    return p;
}

// The detached data file: one file, beside the header unless its name is absolute.
std::unique_ptr<VxInputFile> openDataFile(const VxInputFile& f, const std::string& name)
{
    if (name == "LIST" || words(name).size() > 1 || name.find('%') != std::string::npos)
        f.fail(QString("data split over several files (data file '%1') is not supported").arg(quote(name)));
    return VxReadSupport::openDataFile(f, name);
}

// Moves to the first value: past the lines and bytes the header says to skip.
void seekValues(VxInputFile& data, const Header& h, const KxDim3l& dims)
{
    for (int64_t i = 0; i < h.lineSkip; ++i)
        if (!data.skipLine())
            data.fail(QString("ends within the %1 lines the header says to skip").arg(h.lineSkip));
    if (h.byteSkip == -1) {
        if (h.encoding != VxEncoding::Raw) data.fail("byte skip -1 is only meaningful for raw encoding");
        const uint64_t bytes = VxValueReader::byteCount(data, dims, h.type);
        if (data.size() < bytes)
            data.fail(
                QString("file holds %1 bytes, but the %2 values need %3; the file is truncated or its header "
                        "is wrong")
                    .arg(data.size())
                    .arg(VxValueReader::describe(dims, h.type))
                    .arg(bytes));
        data.seek(data.size() - bytes);
    } else if (h.byteSkip > 0) {
        if (h.encoding == VxEncoding::Gzip)
            data.fail("byte skip inside gzip-compressed data is not supported");
        if (uint64_t(h.byteSkip) > data.size() - std::min(data.size(), data.tell()))
            data.fail(QString("file holds %1 bytes, fewer than the %2 bytes the header says to skip")
                          .arg(data.size())
                          .arg(h.byteSkip));
        data.seek(data.tell() + uint64_t(h.byteSkip));
    }
}

// The header understood and the values' file standing at the first value: what read() reads on
// from and locate() reports.
template <class Use> auto withValues(const QString& path, Use use)
{
    VxInputFile file(path, "a NRRD file");
    Header h = parseHeader(file);
    const KxDim3l dims = dimensionsOf(file, h);
    const VxVolumePlacement where = placementOf(file, h, dims);
    if (!h.dataFile.empty()) {
        std::unique_ptr<VxInputFile> data = openDataFile(file, h.dataFile);
        seekValues(*data, h, dims);
        return use(*data, h, dims, where);
    }
    if (!h.attached)
        file.fail("the header names no data file and ends without the blank line before the data");
    seekValues(file, h, dims);
    return use(file, h, dims, where);
}

VxUniformScalarField3* readNrrd(const QString& path)
{
    return withValues(
        path, [&](VxInputFile& data, const Header& h, const KxDim3l& dims, const VxVolumePlacement& where) {
            void* values = VxValueReader::read(data, dims, h.type, h.encoding, h.bigEndian);
            return VxReadSupport::uniformField(dims, h.type, values, where, path);
        });
}

} // namespace

VxUniformScalarField3* VxNrrdReader::read(const QString& path, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] { return readNrrd(path); });
}

bool VxNrrdReader::locate(const QString& path, VxVolumeLayout& layout, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] {
               return withValues(path, [&](VxInputFile& data, const Header& h, const KxDim3l& dims,
                                           const VxVolumePlacement& where) {
                   layout.format = "NRRD";
                   layout.dataPath = data.path();
                   layout.offset = data.tell();
                   layout.dims = dims;
                   layout.type = h.type;
                   layout.encoding = h.encoding;
                   layout.bigEndian = h.bigEndian;
                   layout.placement = where;
                   return &layout;
               });
           }) != nullptr;
}
