#include <io/VxVtuReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxMeshAssembly.h>
#include <io/VxStoredNumbers.h>
#include <io/VxVtkGridReader.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <type_traits>

#include <zlib.h>

using namespace VxHeaderText;
using Association = VxUnstructuredMesh::Association;

namespace {

using Attributes = std::map<std::string, std::string>;

struct DataArray
{
    Attributes attributes;
    std::string parent;                   // the element holding it: PointData, Cells, ...
    std::size_t contentBegin, contentEnd; // its text

    std::string get(const std::string& key) const
    {
        const auto it = attributes.find(key);
        return it == attributes.end() ? std::string() : it->second;
    }
};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

VxNumberType numberType(const std::string& name)
{
    static const std::map<std::string, VxNumberType> types = {
        {"Int8", {'i', 1}},    {"UInt8", {'u', 1}},  {"Int16", {'i', 2}}, {"UInt16", {'u', 2}},
        {"Int32", {'i', 4}},   {"UInt32", {'u', 4}}, {"Int64", {'i', 8}}, {"UInt64", {'u', 8}},
        {"Float32", {'f', 4}}, {"Float64", {'f', 8}}};
    const auto it = types.find(name);
    return it == types.end() ? VxNumberType() : it->second;
}

int base64Digit(char c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

// The bytes of one array: raw from the file, or decoded from base64 as they are asked for. Base64
// is taken in groups of four characters, each complete in itself, so that a header and data
// encoded one after the other (with padding between, as VTK writes compressed arrays) read as the
// bytes that were encoded.
class ByteSource
{
public:
    ByteSource(const std::string& text, std::size_t begin, std::size_t end, bool base64)
        : m_text(text), m_at(begin), m_end(end), m_base64(base64)
    {
    }

    // An upper bound of the bytes left.
    uint64_t left() const { return m_have + (m_base64 ? (m_end - m_at) / 4 * 3 : m_end - m_at); }

    // n bytes, or a reason why they are not there.
    bool read(unsigned char* to, uint64_t n, QString& why)
    {
        if (n == 0) return true;
        if (!m_base64) {
            if (n > m_end - m_at) return why = "the data ends early; the file is truncated", false;
            std::memcpy(to, m_text.data() + m_at, n);
            m_at += n;
            return true;
        }
        for (uint64_t done = 0; done < n;) {
            if (m_next == m_have && !decodeGroup(why)) return false;
            const std::size_t step = std::size_t(std::min<uint64_t>(n - done, m_have - m_next));
            std::memcpy(to + done, m_group + m_next, step);
            m_next += step;
            done += step;
        }
        return true;
    }

private:
    bool decodeGroup(QString& why)
    {
        char c[4];
        for (int i = 0; i < 4; ++i) {
            while (m_at < m_end && isSpace(m_text[m_at])) ++m_at;
            if (m_at == m_end) return why = "the base64 data ends early; the file is truncated", false;
            c[i] = m_text[m_at++];
        }
        int d[4];
        for (int i = 0; i < 4; ++i) d[i] = base64Digit(c[i]);
        const int pad = c[3] != '=' ? 0 : c[2] != '=' ? 1 : 2;
        const bool valid = d[0] >= 0 && d[1] >= 0 && (pad == 2 || d[2] >= 0) && (pad >= 1 || d[3] >= 0);
        if (!valid) return why = QString("bad base64 data: '%1'").arg(quote(std::string(c, 4))), false;
        const uint32_t v = uint32_t(d[0]) << 18 | uint32_t(d[1]) << 12 | uint32_t(std::max(d[2], 0)) << 6 |
                           uint32_t(std::max(d[3], 0));
        m_group[0] = (unsigned char)(v >> 16), m_group[1] = (unsigned char)(v >> 8),
        m_group[2] = (unsigned char)v;
        m_next = 0;
        m_have = std::size_t(3 - pad);
        return true;
    }

    const std::string& m_text;
    std::size_t m_at, m_end;
    bool m_base64;
    unsigned char m_group[3] = {};
    std::size_t m_next = 0, m_have = 0;
};

class Parser
{
public:
    Parser(const QString& path, const QString& field)
        : m_file(path, "a VTK XML file"), m_mesh(path, field, "VTK XML")
    {
    }

    std::unique_ptr<VxUnstructuredMesh> read()
    {
        m_text.resize(std::size_t(m_file.size()));
        if (m_file.read(&m_text[0], m_text.size()) < m_text.size()) fail("cannot be read to its end");
        scan();
        if (m_fileType != "UnstructuredGrid")
            fail(m_fileType.empty()
                     ? QString("not a VTK XML file: it has no VTKFile element")
                     : QString("holds a VTK XML '%1', not an UnstructuredGrid").arg(quote(m_fileType)));
        if (m_pieces != 1) fail(QString("holds %1 pieces; files of one piece are read").arg(m_pieces));
        const int64_t points = attributeCount(m_piece, "NumberOfPoints");
        const int64_t cells = attributeCount(m_piece, "NumberOfCells");

        const DataArray* pointArray = nullptr;
        const DataArray *connectivity = nullptr, *offsets = nullptr, *types = nullptr;
        for (const DataArray& a : m_arrays) {
            const std::string name = a.get("Name");
            if (a.parent == "Points" && !pointArray) pointArray = &a;
            if (a.parent == "Cells" && name == "connectivity") connectivity = &a;
            if (a.parent == "Cells" && name == "offsets") offsets = &a;
            if (a.parent == "Cells" && name == "types") types = &a;
        }
        if (!pointArray) fail("the piece has no Points");
        if (!connectivity || !offsets || !types)
            fail("the piece's Cells lack the connectivity, offsets or types array");
        if (components(*pointArray) != 3) fail("the points do not have three components");
        decode(*pointArray, m_mesh.points(), 3 * points);
        std::vector<int64_t> ends, nodes, kinds;
        decode(*offsets, ends, cells);
        decode(*types, kinds, cells);
        decode(*connectivity, nodes, -1);
        VxVtkGridReader::addCells(m_mesh, ends, nodes, kinds);

        for (const DataArray& a : m_arrays) {
            const Association as = a.parent == "PointData" ? Association::Node : Association::Cell;
            if ((a.parent != "PointData" && a.parent != "CellData") || components(a) != 1 ||
                !m_mesh.wants(a.get("Name"), as))
                continue;
            std::vector<float> values;
            decode(a, values, as == Association::Node ? points : cells);
            m_mesh.setField(std::move(values), a.get("type"), a.get("Name"), as);
        }
        return m_mesh.finish();
    }

private:
    [[noreturn]] void fail(const QString& why) const { m_file.fail(why); }

    // --- The scanner: elements and attributes up to the appended data ---

    void scan()
    {
        std::vector<std::string> open;
        std::size_t at = 0;
        for (;;) {
            const std::size_t lt = m_text.find('<', at);
            if (lt == std::string::npos) break;
            if (m_text.compare(lt, 4, "<!--") == 0) {
                at = skipPast(lt, "-->");
            } else if (m_text.compare(lt, 2, "<?") == 0) {
                at = skipPast(lt, "?>");
            } else if (m_text.compare(lt, 2, "<!") == 0) {
                at = skipPast(lt, ">");
            } else if (m_text.compare(lt, 2, "</") == 0) {
                const std::size_t gt = skipPast(lt, ">");
                const std::string name = trim(m_text.substr(lt + 2, gt - 1 - (lt + 2)));
                if (open.empty() || open.back() != name)
                    fail(QString("closes the element '%1', which is not open").arg(quote(name)));
                open.pop_back();
                at = gt;
            } else {
                Attributes attributes;
                bool empty = false;
                std::string name;
                at = readTag(lt + 1, name, attributes, empty);
                if (!element(name, attributes, open, at, empty)) return;
                if (!empty) open.push_back(name);
            }
        }
        if (!open.empty())
            fail(QString("ends inside the element '%1'; the file is truncated").arg(quote(open.back())));
    }

    std::size_t skipPast(std::size_t from, const char* marker)
    {
        const std::size_t at = m_text.find(marker, from);
        if (at == std::string::npos) fail("ends inside a tag; the file is truncated");
        return at + std::strlen(marker);
    }

    // The tag's name and attributes from just behind its '<'; returns where the tag ends.
    std::size_t readTag(std::size_t at, std::string& name, Attributes& attributes, bool& empty)
    {
        const std::size_t n = m_text.size();
        auto nameEnd = [&](std::size_t p) {
            while (p < n && !isSpace(m_text[p]) && m_text[p] != '=' && m_text[p] != '>' && m_text[p] != '/')
                ++p;
            return p;
        };
        std::size_t p = nameEnd(at);
        name = m_text.substr(at, p - at);
        if (name.empty()) fail("holds a '<' that starts no element");
        for (;;) {
            while (p < n && isSpace(m_text[p])) ++p;
            if (p >= n) fail(QString("ends inside the tag '%1'; the file is truncated").arg(quote(name)));
            if (m_text[p] == '>') return p + 1;
            if (m_text.compare(p, 2, "/>") == 0) return empty = true, p + 2;
            const std::size_t keyEnd = nameEnd(p);
            const std::string key = m_text.substr(p, keyEnd - p);
            p = keyEnd;
            while (p < n && isSpace(m_text[p])) ++p;
            if (key.empty() || p >= n || m_text[p] != '=')
                fail(QString("has a malformed attribute in the tag '%1'").arg(quote(name)));
            ++p;
            while (p < n && isSpace(m_text[p])) ++p;
            const char q = p < n ? m_text[p] : '\0';
            const std::size_t close = q == '"' || q == '\'' ? m_text.find(q, p + 1) : std::string::npos;
            if (close == std::string::npos)
                fail(QString("has an unquoted or unterminated attribute '%1' in the tag '%2'")
                         .arg(quote(key), quote(name)));
            attributes[key] = unescape(m_text.substr(p + 1, close - p - 1));
            p = close + 1;
        }
    }

    static std::string unescape(const std::string& s)
    {
        static const std::pair<const char*, char> entities[] = {
            {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
        std::string out;
        for (std::size_t i = 0; i < s.size();) {
            bool replaced = false;
            for (const auto& [entity, c] : entities)
                if (s.compare(i, std::strlen(entity), entity) == 0) {
                    out += c, i += std::strlen(entity), replaced = true;
                    break;
                }
            if (!replaced) out += s[i++];
        }
        return out;
    }

    // Notes what an element says; false when the scan stops (at the appended data).
    bool element(const std::string& name, const Attributes& attributes, std::vector<std::string>& open,
                 std::size_t& at, bool& empty)
    {
        auto get = [&](const char* key) {
            const auto it = attributes.find(key);
            return it == attributes.end() ? std::string() : it->second;
        };
        if (name == "VTKFile") {
            m_fileType = get("type");
            m_bigEndian = get("byte_order") == "BigEndian";
            const std::string header = get("header_type"), compressor = get("compressor");
            if (!header.empty() && header != "UInt32" && header != "UInt64")
                fail(QString("header_type '%1' is neither UInt32 nor UInt64").arg(quote(header)));
            m_headerWidth = header == "UInt64" ? 8 : 4;
            if (!compressor.empty() && compressor != "vtkZLibDataCompressor")
                fail(QString("its data is compressed by '%1'; vtkZLibDataCompressor is read")
                         .arg(quote(compressor)));
            m_compressed = !compressor.empty();
        } else if (name == "Piece") {
            ++m_pieces;
            m_piece = attributes;
        } else if (name == "DataArray") {
            DataArray a{attributes, open.empty() ? std::string() : open.back(), at, at};
            if (!empty) {
                // The values run up to the first tag: the array's end, or information keys
                // (ranges VTK notes for arrays of several components) before it.
                const std::size_t lt = m_text.find('<', at), close = m_text.find("</DataArray>", at);
                if (close == std::string::npos) fail("ends inside a DataArray; the file is truncated");
                a.contentEnd = lt;
                at = close + 12;
                empty = true;
            }
            m_arrays.push_back(std::move(a));
        } else if (name == "AppendedData") {
            const std::string encoding = get("encoding");
            if (encoding != "raw" && encoding != "base64")
                fail(QString("AppendedData has the encoding '%1', not raw or base64").arg(quote(encoding)));
            m_appendedBase64 = encoding == "base64";
            while (at < m_text.size() && isSpace(m_text[at])) ++at;
            if (at >= m_text.size() || m_text[at] != '_') fail("AppendedData does not start with '_'");
            m_appended = at + 1;
            return false;
        }
        return true;
    }

    // --- Arrays ---

    int64_t attributeCount(const Attributes& attributes, const char* key) const
    {
        const auto it = attributes.find(key);
        int64_t n = -1;
        if (it == attributes.end() || !toInt(it->second, n) || n < 0 || uint64_t(n) > m_file.size())
            fail(QString("the piece's %1 is %2, not a count the file can hold")
                     .arg(key, it == attributes.end() ? QString("missing") : "'" + quote(it->second) + "'"));
        return n;
    }

    int64_t components(const DataArray& a) const
    {
        const std::string c = a.get("NumberOfComponents");
        int64_t n = 1;
        if (!c.empty() && (!toInt(c, n) || n < 1))
            fail(QString("the array %1 has '%2' components").arg(quote(a.get("Name")), quote(c)));
        return n;
    }

    QString arrayName(const DataArray& a) const
    {
        const std::string name = a.get("Name");
        return name.empty() ? QString("of %1").arg(QString::fromStdString(a.parent))
                            : "'" + quote(name) + "'";
    }

    // The array's values as Out (float or int64_t); expected of them, or any number when negative.
    template <class Out> void decode(const DataArray& a, std::vector<Out>& out, int64_t expected)
    {
        const VxNumberType t = numberType(a.get("type"));
        if (!t.isValid())
            fail(QString("the array %1 has the unknown type '%2'").arg(arrayName(a), quote(a.get("type"))));
        const std::string format = a.get("format");
        if (format == "ascii") {
            decodeText(a, out);
        } else if (format == "binary" || format == "appended") {
            std::vector<unsigned char> bytes;
            decodeBinary(a, format == "appended", bytes);
            if (bytes.size() % std::size_t(t.width))
                fail(QString("the array %1 holds %2 bytes, not a whole number of values")
                         .arg(arrayName(a))
                         .arg(bytes.size()));
            out.resize(bytes.size() / std::size_t(t.width));
            const bool swap = m_bigEndian != VxStoredNumbers::kHostBigEndian;
            if constexpr (std::is_integral<Out>::value)
                VxStoredNumbers::toIntegers(bytes.data(), out.size(), t, swap, out.data());
            else
                VxStoredNumbers::toFloats(bytes.data(), out.size(), t, swap, out.data());
        } else {
            fail(QString("the array %1 has the format '%2', not ascii, binary or appended")
                     .arg(arrayName(a), quote(format)));
        }
        if (expected >= 0 && int64_t(out.size()) != expected)
            fail(QString("the array %1 holds %2 values, not %3")
                     .arg(arrayName(a))
                     .arg(out.size())
                     .arg(expected));
    }

    template <class Out> void decodeText(const DataArray& a, std::vector<Out>& out)
    {
        std::size_t p = a.contentBegin;
        std::string word;
        while (p < a.contentEnd) {
            while (p < a.contentEnd && isSpace(m_text[p])) ++p;
            const std::size_t start = p;
            while (p < a.contentEnd && !isSpace(m_text[p])) ++p;
            if (start == p) break;
            word.assign(m_text, start, std::min<std::size_t>(p - start, 64));
            bool good;
            if constexpr (std::is_integral<Out>::value) {
                int64_t v = 0;
                good = toInt(word, v);
                out.push_back(v);
            } else {
                double v = 0;
                good = toDouble(word, v);
                out.push_back(float(v));
            }
            if (!good)
                fail(QString("value %1 of the array %2 is '%3', not a number")
                         .arg(out.size() - 1)
                         .arg(arrayName(a), quote(word)));
        }
    }

    void decodeBinary(const DataArray& a, bool appended, std::vector<unsigned char>& bytes)
    {
        std::size_t begin = a.contentBegin, end = a.contentEnd;
        bool base64 = true;
        if (appended) {
            int64_t offset = -1;
            if (m_appended == 0)
                fail(QString("the array %1 is appended, but the file has no AppendedData").arg(arrayName(a)));
            if (!toInt(a.get("offset"), offset) || offset < 0 ||
                uint64_t(offset) > m_text.size() - m_appended)
                fail(QString("the appended array %1 has the offset %2, outside the data")
                         .arg(arrayName(a), quote(a.get("offset"))));
            begin = m_appended + std::size_t(offset);
            end = m_text.size();
            base64 = m_appendedBase64;
        }
        ByteSource in(m_text, begin, end, base64);
        const QString what = QString("the array %1").arg(arrayName(a));
        QString why;
        auto take = [&](unsigned char* to, uint64_t n) {
            if (!in.read(to, n, why)) fail(what + ": " + why);
        };
        auto word = [&]() {
            unsigned char b[8];
            take(b, uint64_t(m_headerWidth));
            int64_t v;
            VxStoredNumbers::toIntegers(b, 1, {'u', m_headerWidth},
                                        m_bigEndian != VxStoredNumbers::kHostBigEndian, &v);
            if (v < 0) fail(what + ": its header gives a size past 63 bits");
            return uint64_t(v);
        };
        if (!m_compressed) {
            const uint64_t n = word();
            if (n > in.left())
                fail(QString("%1: its header says %2 bytes, but the file holds fewer; the file is truncated")
                         .arg(what)
                         .arg(n));
            bytes.resize(std::size_t(n));
            take(bytes.data(), n);
            return;
        }
        // vtkZLibDataCompressor: block count, block size, size of the last block (0: a full one),
        // the compressed size of each block, then the blocks.
        const uint64_t blocks = word(), blockSize = word(), lastSize = word();
        if (blocks > in.left() / uint64_t(m_headerWidth))
            fail(QString("%1: its header lists %2 compressed blocks, more than the file holds")
                     .arg(what)
                     .arg(blocks));
        std::vector<uint64_t> packed(static_cast<std::size_t>(blocks));
        uint64_t packedTotal = 0;
        for (uint64_t& s : packed) {
            s = word();
            if (s > in.left() || (packedTotal += s) > in.left())
                fail(QString("%1: its compressed blocks are larger than the file; the file is truncated")
                         .arg(what));
        }
        const uint64_t last = blocks == 0 ? 0 : lastSize ? lastSize : blockSize;
        if (blocks && (lastSize > blockSize || blockSize > (uint64_t(1) << 40)))
            fail(QString("%1: its header gives blocks of %2 bytes and a last one of %3")
                     .arg(what)
                     .arg(blockSize)
                     .arg(lastSize));
        const double total = blocks ? double(blocks - 1) * double(blockSize) + double(last) : 0;
        // No deflate stream expands more than about 1032 times.
        if (total > double(packedTotal) * 1032.0 + 64.0 * double(blocks))
            fail(QString("%1: %2 compressed bytes cannot hold the %3 bytes its header gives")
                     .arg(what)
                     .arg(packedTotal)
                     .arg(total));
        bytes.resize(std::size_t(total));
        std::vector<unsigned char> block;
        for (uint64_t b = 0; b < blocks; ++b) {
            block.resize(std::size_t(packed[std::size_t(b)]));
            take(block.data(), block.size());
            const uLongf want = uLongf(b + 1 == blocks ? last : blockSize);
            uLongf got = want;
            const int status =
                uncompress(bytes.data() + b * blockSize, &got, block.data(), uLong(block.size()));
            if (status != Z_OK || got != want)
                fail(QString("%1: compressed block %2 of %3 is damaged (%4)")
                         .arg(what)
                         .arg(b)
                         .arg(blocks)
                         .arg(status == Z_OK ? QString("it inflates to %1 bytes, not %2").arg(got).arg(want)
                              : status == Z_BUF_ERROR
                                  ? QString("it inflates to more than %1 bytes, or is cut short").arg(want)
                                  : QString("zlib: %1").arg(zError(status))));
        }
    }

    VxInputFile m_file;
    VxMeshAssembly m_mesh;
    std::string m_text;
    std::string m_fileType;
    bool m_bigEndian = false, m_compressed = false, m_appendedBase64 = false;
    int m_headerWidth = 4;
    int m_pieces = 0;
    Attributes m_piece;
    std::vector<DataArray> m_arrays;
    std::size_t m_appended = 0; // where the appended data starts, behind its '_'
};

} // namespace

std::unique_ptr<VxUnstructuredMesh> VxVtuReader::read(const QString& path, const QString& field)
{
    return Parser(path, field).read();
}
