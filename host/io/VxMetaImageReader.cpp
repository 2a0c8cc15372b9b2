#include <io/VxMetaImageReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumeLayout.h>
#include <io/VxVolumePlacement.h>
#include <vx/VxRegScalarField3.h>

#include <map>
#include <string>
#include <vector>

using namespace VxHeaderText;

namespace {

KxPrimType elementType(const std::string& name)
{
    static const std::map<std::string, KxPrimType::Type> types = {
        {"MET_UCHAR", KxPrimType::UINT8},   {"MET_CHAR", KxPrimType::INT8},
        {"MET_USHORT", KxPrimType::UINT16}, {"MET_SHORT", KxPrimType::INT16},
        {"MET_UINT", KxPrimType::UINT32},   {"MET_INT", KxPrimType::INT32},
        {"MET_FLOAT", KxPrimType::FLOAT},   {"MET_DOUBLE", KxPrimType::DOUBLE},
    };
    const auto it = types.find(name);
    return it == types.end() ? KxPrimType(KxPrimType::UNKNOWN) : KxPrimType(it->second);
}

// The header's lines as key and value, up to and including ElementDataFile, which ends it.
std::map<std::string, std::string> parseHeader(VxInputFile& f)
{
    std::map<std::string, std::string> keys;
    std::string line;
    int number = 0;
    while (f.readLine(line, 1 << 14)) {
        ++number;
        if (trim(line).empty()) continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos || trim(line.substr(0, eq)).empty()) {
            if (number == 1) f.fail("not a MetaImage file: its first line is not a \"Key = Value\" line");
            f.fail(QString("header line %1 '%2' is not a \"Key = Value\" line").arg(number).arg(quote(line)));
        }
        const std::string key = trim(line.substr(0, eq));
        keys[key] = trim(line.substr(eq + 1));
        if (key == "ElementDataFile") return keys;
    }
    if (number == 0) f.fail("is empty, not a MetaImage file");
    f.fail("the header ends without ElementDataFile, so there are no values");
}

bool isTrue(VxInputFile& f, const std::map<std::string, std::string>& keys, const char* key)
{
    const auto it = keys.find(key);
    if (it == keys.end()) return false;
    const std::string v = lower(it->second);
    if (v == "true" || v == "1") return true;
    if (v == "false" || v == "0") return false;
    f.fail(QString("%1 is '%2', not True or False").arg(key, quote(it->second)));
}

// The numbers under the first of the keys present, which must be n of them; false when none is.
bool numbers(VxInputFile& f, const std::map<std::string, std::string>& keys,
             std::initializer_list<const char*> names, std::size_t n, std::vector<double>& out)
{
    for (const char* name : names) {
        const auto it = keys.find(name);
        if (it == keys.end()) continue;
        if (!toDoubles(it->second, out) || out.size() != n)
            f.fail(QString("%1 is '%2', not %3 numbers").arg(name, quote(it->second)).arg(n));
        return true;
    }
    return false;
}

// The header understood and the values' file standing at the first value: what read() reads on
// from and locate() reports, as use(file, dims, type, encoding, msb, placement).
template <class Use> auto withValues(const QString& path, Use use)
{
    VxInputFile file(path, "a MetaImage file");
    const std::map<std::string, std::string> keys = parseHeader(file);
    auto need = [&](const char* key) -> const std::string& {
        const auto it = keys.find(key);
        if (it == keys.end()) file.fail(QString("the header gives no %1").arg(key));
        return it->second;
    };

    const auto object = keys.find("ObjectType");
    if (object != keys.end() && lower(object->second) != "image")
        file.fail(QString("holds a MetaIO object of type '%1', not an Image").arg(quote(object->second)));
    int64_t ndims = 0;
    if (!toInt(need("NDims"), ndims))
        file.fail(QString("NDims is '%1', not a number").arg(quote(need("NDims"))));
    if (ndims != 3)
        file.fail(QString("holds a %1-dimensional image; only 3-D volumes are supported").arg(ndims));
    std::vector<int64_t> size;
    if (!toInts(need("DimSize"), size) || size.size() != 3)
        file.fail(QString("DimSize is '%1', not 3 whole numbers").arg(quote(need("DimSize"))));
    const KxDim3l dims(size[0], size[1], size[2]);
    const KxPrimType type = elementType(need("ElementType"));
    if (!type.isValid())
        file.fail(
            QString("unsupported ElementType '%1'; supported are MET_UCHAR, MET_CHAR, MET_USHORT, MET_SHORT, "
                    "MET_UINT, MET_INT, MET_FLOAT and MET_DOUBLE")
                .arg(quote(need("ElementType"))));
    const QString badDims = VxValueReader::checkDims(dims, type);
    if (!badDims.isEmpty()) file.fail(badDims);
    const auto channels = keys.find("ElementNumberOfChannels");
    if (channels != keys.end() && trim(channels->second) != "1")
        file.fail(QString("holds %1 values per voxel; only scalar volumes are supported")
                      .arg(quote(channels->second)));

    VxVolumePlacement where;
    std::vector<double> v;
    if (numbers(file, keys, {"ElementSpacing", "ElementSize"}, 3, v))
        for (int a = 0; a < 3; ++a) where.spacing[a] = v[std::size_t(a)];
    if (numbers(file, keys, {"Offset", "Position", "Origin"}, 3, v))
        for (int a = 0; a < 3; ++a) where.origin[a] = v[std::size_t(a)];
    // Each row is the direction of one index axis, as the writers of the format store it.
    if (numbers(file, keys, {"TransformMatrix", "Rotation", "Orientation"}, 9, v))
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c) where.axis[a][c] = v[std::size_t(3 * a + c)];
    const QString badPlace = where.normalise(dims);
    if (!badPlace.isEmpty()) file.fail(badPlace);

    const bool binary = keys.count("BinaryData") ? isTrue(file, keys, "BinaryData") : true;
    const bool compressed = isTrue(file, keys, "CompressedData");
    const bool msb =
        isTrue(file, keys, "BinaryDataByteOrderMSB") || isTrue(file, keys, "ElementByteOrderMSB");
    const VxEncoding encoding = !binary ? VxEncoding::Ascii : compressed ? VxEncoding::Gzip : VxEncoding::Raw;
    int64_t headerSize = 0;
    const auto hs = keys.find("HeaderSize");
    if (hs != keys.end() && (!toInt(hs->second, headerSize) || headerSize < -1))
        file.fail(QString("HeaderSize is '%1', not a count of bytes or -1").arg(quote(hs->second)));

    const std::string& dataName = need("ElementDataFile");
    std::unique_ptr<VxInputFile> detached;
    VxInputFile* data = &file;
    if (dataName.empty()) file.fail("ElementDataFile names no file");
    if (dataName != "LOCAL" && dataName != "Local" && dataName != "local") {
        if (dataName.compare(0, 4, "LIST") == 0 || dataName.find('%') != std::string::npos ||
            words(dataName).size() > 1)
            file.fail(QString("values split over several files (ElementDataFile '%1') are not supported")
                          .arg(quote(dataName)));
        detached = VxReadSupport::openDataFile(file, dataName);
        data = detached.get();
    }
    if (headerSize == -1) {
        // The values are the file's last bytes.
        if (encoding != VxEncoding::Raw)
            file.fail("HeaderSize -1 is only meaningful for uncompressed binary values");
        const uint64_t bytes = VxValueReader::byteCount(*data, dims, type);
        if (data->size() < bytes)
            data->fail(
                QString("file holds %1 bytes, but the %2 values need %3; the file is truncated or its header "
                        "is wrong")
                    .arg(data->size())
                    .arg(VxValueReader::describe(dims, type))
                    .arg(bytes));
        data->seek(data->size() - bytes);
    } else if (headerSize > 0) {
        if (uint64_t(headerSize) > data->size() - std::min(data->size(), data->tell()))
            data->fail(QString("file holds %1 bytes, fewer than the HeaderSize of %2")
                           .arg(data->size())
                           .arg(headerSize));
        data->seek(data->tell() + uint64_t(headerSize));
    }
    return use(*data, dims, type, encoding, msb, where);
}

VxUniformScalarField3* readMeta(const QString& path)
{
    return withValues(path, [&](VxInputFile& data, const KxDim3l& dims, KxPrimType type, VxEncoding encoding,
                                bool msb, const VxVolumePlacement& where) {
        void* values = VxValueReader::read(data, dims, type, encoding, msb);
        return VxReadSupport::uniformField(dims, type, values, where, path);
    });
}

} // namespace

VxUniformScalarField3* VxMetaImageReader::read(const QString& path, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] { return readMeta(path); });
}

bool VxMetaImageReader::locate(const QString& path, VxVolumeLayout& layout, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] {
               return withValues(path, [&](VxInputFile& data, const KxDim3l& dims, KxPrimType type,
                                           VxEncoding encoding, bool msb, const VxVolumePlacement& where) {
                   layout.format = "MetaImage";
                   layout.dataPath = data.path();
                   layout.offset = data.tell();
                   layout.dims = dims;
                   layout.type = type;
                   layout.encoding = encoding;
                   layout.bigEndian = msb;
                   layout.placement = where;
                   return &layout;
               });
           }) != nullptr;
}
