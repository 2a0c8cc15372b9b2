#include <io/VxVtkLegacyParser.h>

#include <io/VxHeaderText.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <type_traits>
#include <vector>

using namespace VxHeaderText;

bool VxVtkLegacyParser::typeNamed(const std::string& name, TypeName& t)
{
    static const std::map<std::string, TypeName> types = {
        {"unsigned_char", {KxPrimType::UINT8, 1, {'u', 1}}},
        {"char", {KxPrimType::INT8, 1, {'i', 1}}},
        {"signed_char", {KxPrimType::INT8, 1, {'i', 1}}},
        {"unsigned_short", {KxPrimType::UINT16, 2, {'u', 2}}},
        {"short", {KxPrimType::INT16, 2, {'i', 2}}},
        {"unsigned_int", {KxPrimType::UINT32, 4, {'u', 4}}},
        {"int", {KxPrimType::INT32, 4, {'i', 4}}},
        {"float", {KxPrimType::FLOAT, 4, {'f', 4}}},
        {"double", {KxPrimType::DOUBLE, 8, {'f', 8}}},
        {"vtktypeint8", {KxPrimType::INT8, 1, {'i', 1}}},
        {"vtktypeuint8", {KxPrimType::UINT8, 1, {'u', 1}}},
        {"vtktypeint16", {KxPrimType::INT16, 2, {'i', 2}}},
        {"vtktypeuint16", {KxPrimType::UINT16, 2, {'u', 2}}},
        {"vtktypeint32", {KxPrimType::INT32, 4, {'i', 4}}},
        {"vtktypeuint32", {KxPrimType::UINT32, 4, {'u', 4}}},
        {"vtktypefloat32", {KxPrimType::FLOAT, 4, {'f', 4}}},
        {"vtktypefloat64", {KxPrimType::DOUBLE, 8, {'f', 8}}},
        {"long", {KxPrimType::UNKNOWN, 8, {'i', 8}}},
        {"unsigned_long", {KxPrimType::UNKNOWN, 8, {'u', 8}}},
        {"vtktypeint64", {KxPrimType::UNKNOWN, 8, {'i', 8}}},
        {"vtktypeuint64", {KxPrimType::UNKNOWN, 8, {'u', 8}}},
        {"vtkidtype", {KxPrimType::UNKNOWN, 8, {'i', 8}}},
        {"long_long", {KxPrimType::UNKNOWN, 8, {'i', 8}}},
        {"unsigned_long_long", {KxPrimType::UNKNOWN, 8, {'u', 8}}},
        {"bit", {KxPrimType::UNKNOWN, 0, {}}},
    };
    const auto it = types.find(lower(name));
    if (it == types.end()) return false;
    t = it->second;
    return true;
}

const VxVtkLegacyParser::TypeName VxVtkLegacyParser::kUInt8{KxPrimType::UINT8, 1, {'u', 1}};
const VxVtkLegacyParser::TypeName VxVtkLegacyParser::kInt32{KxPrimType::INT32, 4, {'i', 4}};
const VxVtkLegacyParser::TypeName VxVtkLegacyParser::kFloat32{KxPrimType::FLOAT, 4, {'f', 4}};

VxVtkLegacyParser::VxVtkLegacyParser(const QString& path) : m_file(path, "a VTK file") {}

std::string VxVtkLegacyParser::token(const char* what)
{
    std::string t;
    if (!m_file.readToken(t)) fail(QString("ends where %1 belongs").arg(what));
    return t;
}

int64_t VxVtkLegacyParser::count(const char* what)
{
    const std::string t = token(what);
    int64_t n;
    if (!toInt(t, n) || n < 0) fail(QString("%1 is '%2', not a count").arg(what, quote(t)));
    return n;
}

double VxVtkLegacyParser::number(const char* what)
{
    const std::string t = token(what);
    double v;
    if (!toDouble(t, v) || !std::isfinite(v))
        fail(QString("%1 is '%2', not a finite number").arg(what, quote(t)));
    return v;
}

VxVtkLegacyParser::TypeName VxVtkLegacyParser::type(const char* what)
{
    const std::string t = token(what);
    TypeName n;
    if (!typeNamed(t, n)) fail(QString("unknown value type '%1' of %2").arg(quote(t), what));
    return n;
}

// What follows the type of SCALARS: an optional count of components, then LOOKUP_TABLE and the
// table's name. Returns the count.
int64_t VxVtkLegacyParser::scalarsComponents()
{
    int64_t comps = 1;
    std::string next = token("LOOKUP_TABLE");
    if (lower(next) != "lookup_table") {
        if (!toInt(next, comps) || comps < 1)
            fail(QString("has '%1' where LOOKUP_TABLE belongs").arg(quote(next)));
        next = token("LOOKUP_TABLE");
    }
    if (lower(next) != "lookup_table") fail(QString("has '%1' where LOOKUP_TABLE belongs").arg(quote(next)));
    token("the lookup table's name");
    return comps;
}

// Binary values start on the line after their keyword line.
void VxVtkLegacyParser::toBinaryStart()
{
    if (m_binary) m_file.skipLine();
}

std::string VxVtkLegacyParser::datasetOf(const QString& path)
{
    try {
        return VxVtkLegacyParser(path).readPreamble();
    } catch (const VxReadFailure&) {
        return std::string();
    }
}

std::string VxVtkLegacyParser::readPreamble()
{
    std::string line;
    if (!m_file.readLine(line, 256) || lower(line).compare(0, 22, "# vtk datafile version") != 0)
        fail("not a VTK legacy file: it does not start with \"# vtk DataFile Version\"");
    int64_t major = 0;
    const std::vector<std::string> head = words(line.substr(22));
    if (!head.empty()) toInt(head[0].substr(0, head[0].find('.')), major);
    m_version = int(major);
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
    return lower(token("the dataset type"));
}

// Fails unless the rest of the file can hold n values: checked before anything is allocated.
void VxVtkLegacyParser::checkRoom(uint64_t n, const TypeName& t, const char* what)
{
    const uint64_t left = m_file.size() - std::min(m_file.size(), m_file.tell());
    const double need =
        m_binary ? double(n) * double(std::max<std::size_t>(t.width, 1)) : 2.0 * double(n) - 1;
    if (double(left) < need)
        fail(QString("file is too short for its %1 %2; the file is truncated or its header is wrong")
                 .arg(n)
                 .arg(what));
}

unsigned char VxVtkLegacyParser::colourByte(float fraction)
{
    return (unsigned char)std::lround(std::min(1.f, std::max(0.f, fraction)) * 255.f);
}

// Skips n values of a type, as text or binary.
void VxVtkLegacyParser::skipValues(uint64_t n, const TypeName& t, const char* what)
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

void VxVtkLegacyParser::readFieldData(const FieldArray& take)
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
        if (!take || !take(name, comps, tuples, typeName, t))
            skipValues(uint64_t(comps) * uint64_t(tuples), t, "field data");
    }
}

void VxVtkLegacyParser::skipFieldData()
{
    readFieldData(nullptr);
}

template <class Out>
void VxVtkLegacyParser::readNumbers(Out* out, uint64_t n, const TypeName& t, const char* what)
{
    if (!t.number.isValid()) fail(QString("%1 are bits, which cannot be read as numbers").arg(what));
    checkRoom(n, t, what);
    if (!m_binary) {
        std::string word;
        for (uint64_t i = 0; i < n; ++i) {
            if (!m_file.readToken(word))
                fail(QString("ends after %1 of the %2 %3; the file is truncated").arg(i).arg(n).arg(what));
            bool good;
            if constexpr (std::is_integral<Out>::value) {
                good = toInt(word, out[i]);
            } else {
                double v;
                good = toDouble(word, v);
                out[i] = Out(v);
            }
            if (!good)
                fail(QString("value %1 of the %2 is '%3', not a number of their type")
                         .arg(i)
                         .arg(what, quote(word)));
        }
        return;
    }
    toBinaryStart();
    // In blocks, so that the stored bytes never need a second copy of the whole array.
    std::vector<unsigned char> block(std::size_t(1 << 16) * t.width);
    for (uint64_t done = 0; done < n;) {
        const uint64_t step = std::min<uint64_t>(n - done, 1 << 16);
        if (m_file.read(block.data(), step * t.width) < step * t.width)
            fail(QString("ends within the %1; the file is truncated").arg(what));
        if constexpr (std::is_integral<Out>::value)
            VxStoredNumbers::toIntegers(block.data(), step, t.number, !VxStoredNumbers::kHostBigEndian,
                                        out + done);
        else
            VxStoredNumbers::toFloats(block.data(), step, t.number, !VxStoredNumbers::kHostBigEndian,
                                      out + done);
        done += step;
    }
}

template void VxVtkLegacyParser::readNumbers(float*, uint64_t, const TypeName&, const char*);
template void VxVtkLegacyParser::readNumbers(int64_t*, uint64_t, const TypeName&, const char*);

// Information blocks of newer writers: lines up to a blank one.
void VxVtkLegacyParser::skipMetadata()
{
    std::string line;
    m_file.skipLine();
    while (m_file.readLine(line, 1 << 20) && !trim(line).empty()) {
    }
}

// Skips the attributes of a section of n tuples up to the keyword `until` (or the end).
void VxVtkLegacyParser::skipAttributes(int64_t n, const char* until)
{
    for (;;) {
        std::string word;
        if (!m_file.readToken(word)) return;
        word = lower(word);
        if (word == until) return;
        skipAttribute(word, n);
    }
}

void VxVtkLegacyParser::skipAttribute(const std::string& word, int64_t n)
{
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
        skipValues(uint64_t(n) * uint64_t(comps), colourType(), "colour scalars");
    } else if (word == "lookup_table") {
        token("the lookup table's name");
        const int64_t size = count("the lookup table's size");
        skipValues(4 * uint64_t(size), colourType(), "a lookup table");
    } else if (word == "field") {
        skipFieldData();
    } else if (word == "metadata") {
        skipMetadata();
    } else {
        fail(QString("has '%1' where a data attribute belongs").arg(quote(word)));
    }
}
