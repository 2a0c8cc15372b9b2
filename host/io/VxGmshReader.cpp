#include <io/VxGmshReader.h>

#include <io/VxHeaderText.h>
#include <io/VxInputFile.h>
#include <io/VxMeshAssembly.h>
#include <io/VxStoredNumbers.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace VxHeaderText;
using Association = VxUnstructuredMesh::Association;
using Shape = VxMeshAssembly::Shape;

namespace {

// Nodes and dimension of Gmsh's element types; 0 nodes for a type it does not define.
struct ElementKind
{
    int nodes, dimension;
};

ElementKind elementKind(int64_t type)
{
    static const ElementKind kinds[] = {
        {0, 0},  {2, 1},  {3, 2},  {4, 2},  {4, 3}, {8, 3}, {6, 3},  {5, 3},  {3, 1},  {6, 2}, {9, 2},
        {10, 3}, {27, 3}, {18, 3}, {14, 3}, {1, 0}, {8, 2}, {20, 3}, {15, 3}, {13, 3}, {9, 2}, {10, 2},
        {12, 2}, {15, 2}, {15, 2}, {21, 2}, {4, 1}, {5, 1}, {6, 1},  {20, 3}, {35, 3}, {56, 3}};
    if (type >= 0 && type < int64_t(std::size(kinds))) return kinds[type];
    if (type == 92) return {64, 3};
    if (type == 93) return {125, 3};
    return {0, 0};
}

// Tags to indices: a table when the tags are dense enough, else a sorted list.
class TagIndex
{
public:
    void build(const std::vector<int64_t>& tags, const VxMeshAssembly& mesh, const char* what)
    {
        m_dense.clear();
        m_sorted.clear();
        int64_t top = 0;
        for (int64_t t : tags) {
            if (t < 0) mesh.fail(QString("gives one of its %1 the negative tag %2").arg(what).arg(t));
            top = std::max(top, t);
        }
        if (uint64_t(top) <= 2 * tags.size() + 1024) {
            m_dense.assign(std::size_t(top) + 1, -1);
            for (std::size_t i = 0; i < tags.size(); ++i) {
                int64_t& slot = m_dense[std::size_t(tags[i])];
                if (slot >= 0) mesh.fail(QString("has two %1 with the tag %2").arg(what).arg(tags[i]));
                slot = int64_t(i);
            }
            return;
        }
        for (std::size_t i = 0; i < tags.size(); ++i) m_sorted.emplace_back(tags[i], int64_t(i));
        std::sort(m_sorted.begin(), m_sorted.end());
        for (std::size_t i = 1; i < m_sorted.size(); ++i)
            if (m_sorted[i].first == m_sorted[i - 1].first)
                mesh.fail(QString("has two %1 with the tag %2").arg(what).arg(m_sorted[i].first));
    }
    // The index of the tag, or -1.
    int64_t find(int64_t tag) const
    {
        if (!m_dense.empty() || m_sorted.empty())
            return tag >= 0 && tag < int64_t(m_dense.size()) ? m_dense[std::size_t(tag)] : -1;
        const auto it = std::lower_bound(m_sorted.begin(), m_sorted.end(), std::make_pair(tag, int64_t(-1)));
        return it != m_sorted.end() && it->first == tag ? it->second : -1;
    }

private:
    std::vector<int64_t> m_dense;
    std::vector<std::pair<int64_t, int64_t>> m_sorted;
};

class Parser
{
public:
    Parser(const QString& path, const QString& field)
        : m_file(path, "a Gmsh file"), m_mesh(path, field, "Gmsh")
    {
    }

    std::unique_ptr<VxUnstructuredMesh> read()
    {
        readFormat();
        std::string line;
        bool nodes = false, elements = false;
        while (m_file.readLine(line, 1 << 12)) {
            const std::string section = trim(line);
            if (section.empty()) continue;
            if (section == "$Nodes") {
                m_version == 4 ? readNodes4() : readNodes2();
                nodes = true;
            } else if (section == "$Elements") {
                if (!nodes) fail("$Elements comes before $Nodes");
                m_version == 4 ? readElements4() : readElements2();
                elements = true;
            } else if (section == "$NodeData" || section == "$ElementData") {
                if (!elements) fail(QString("%1 comes before $Nodes and $Elements").arg(quote(section)));
                readData(section == "$NodeData" ? Association::Node : Association::Cell);
            } else if (section[0] == '$') {
                skipSection(section.substr(1));
            } else {
                fail(QString("has '%1' where a section belongs").arg(quote(section)));
            }
            expectEnd(section.substr(1));
        }
        if (!elements) fail(nodes ? "has no $Elements" : "has no $Nodes and $Elements");
        return m_mesh.finish();
    }

private:
    [[noreturn]] void fail(const QString& why) const { m_file.fail(why); }

    void readFormat()
    {
        std::string line;
        if (!m_file.readLine(line, 256) || trim(line) != "$MeshFormat")
            fail("not a Gmsh file: it does not start with $MeshFormat");
        if (!m_file.readLine(line, 256)) fail("ends within $MeshFormat");
        const std::vector<std::string> w = words(line);
        double version = 0;
        int64_t type = -1, size = 0;
        if (w.size() < 3 || !toDouble(w[0], version) || !toInt(w[1], type) || !toInt(w[2], size))
            fail(QString("$MeshFormat says '%1', not a version, file type and data size").arg(quote(line)));
        if (!(version >= 2 && version < 3) && version != 4.1)
            fail(QString("is of format %1; formats 2.2 and 4.1 are read").arg(quote(w[0])));
        m_version = int(version);
        m_mesh.setFormat(m_version == 4 ? "Gmsh 4.1" : "Gmsh " + w[0]);
        m_binary = type == 1;
        if (m_binary && size != 8)
            fail(QString("has the data size %1; binary files of data size 8 are read").arg(size));
        if (m_binary) {
            unsigned char one[4];
            if (m_file.read(one, 4) < 4) fail("ends within $MeshFormat");
            m_swap = one[0] == 0 && one[3] == 1;
            if (!m_swap && !(one[0] == 1 && one[3] == 0))
                fail("the binary $MeshFormat does not hold the number 1");
            m_file.skipLine();
        }
        expectEnd("MeshFormat");
    }

    void expectEnd(const std::string& name)
    {
        std::string word;
        if (!m_file.readToken(word, 256) || word != "$End" + name)
            fail(QString("has '%1' where $End%2 belongs").arg(quote(word), QString::fromStdString(name)));
        m_file.skipLine();
    }

    // Sections of no use here (physical names, entities, periodicity, ...) may be binary: looked
    // through for their end marker.
    void skipSection(const std::string& name)
    {
        const std::string marker = "\n$End" + name;
        std::string window = "\n";
        std::vector<char> block(1 << 16);
        for (;;) {
            const uint64_t start = m_file.tell() - (window.size());
            const uint64_t got = m_file.read(block.data(), block.size());
            if (got == 0) fail(QString("ends within $%1").arg(QString::fromStdString(name)));
            window.append(block.data(), std::size_t(got));
            const std::size_t at = window.find(marker);
            if (at != std::string::npos) {
                m_file.seek(start + at + 1);
                return;
            }
            window.erase(0, window.size() - std::min(window.size(), marker.size()));
        }
    }

    // --- Numbers: words in ASCII files, native-width values in binary ones ---

    uint64_t left() const { return m_file.size() - std::min(m_file.size(), m_file.tell()); }

    int64_t textInteger(const char* what)
    {
        std::string word;
        int64_t v;
        if (!m_file.readToken(word)) fail(QString("ends where %1 belongs; the file is truncated").arg(what));
        if (!toInt(word, v)) fail(QString("has '%1' where %2 belongs").arg(quote(word), what));
        return v;
    }

    // A count alone on its line, as text in binary files too.
    int64_t textCount(const char* what)
    {
        const int64_t n = textInteger(what);
        if (n < 0 || uint64_t(n) > left())
            fail(QString("%1 is %2, more than the file holds").arg(what).arg(n));
        m_file.skipLine();
        return n;
    }

    int64_t integer(int width, const char* what)
    {
        if (!m_binary) return textInteger(what);
        unsigned char b[8];
        if (m_file.read(b, uint64_t(width)) < uint64_t(width))
            fail(QString("ends where %1 belongs; the file is truncated").arg(what));
        int64_t v;
        VxStoredNumbers::toIntegers(b, 1, {width == 8 ? 'u' : 'i', width}, m_swap, &v);
        return v;
    }

    double real(const char* what)
    {
        if (!m_binary) {
            std::string word;
            double v;
            if (!m_file.readToken(word))
                fail(QString("ends where %1 belongs; the file is truncated").arg(what));
            if (!toDouble(word, v)) fail(QString("has '%1' where %2 belongs").arg(quote(word), what));
            return v;
        }
        unsigned char b[8];
        if (m_file.read(b, 8) < 8) fail(QString("ends where %1 belongs; the file is truncated").arg(what));
        if (m_swap) std::reverse(b, b + 8);
        double v;
        std::memcpy(&v, b, 8);
        return v;
    }

    // A count of things the rest of the file holds, each in a byte at least.
    int64_t count(int width, const char* what)
    {
        const int64_t n = integer(width, what);
        if (n < 0 || uint64_t(n) > left())
            fail(QString("%1 is %2, more than the file holds").arg(what).arg(n));
        return n;
    }

    // --- Nodes ---

    void addNode(int64_t tag)
    {
        double xyz[3];
        for (double& c : xyz) c = real("a node's coordinates");
        for (double c : xyz) m_mesh.points().push_back(float(c));
        m_nodeTags.push_back(tag);
    }

    void readNodes2()
    {
        const int64_t n = textCount("the number of nodes");
        for (int64_t i = 0; i < n; ++i) addNode(integer(4, "a node's tag"));
        m_nodes.build(m_nodeTags, m_mesh, "nodes");
    }

    void readNodes4()
    {
        const int64_t blocks = count(8, "the number of node blocks");
        count(8, "the number of nodes");
        integer(8, "the lowest node tag"), integer(8, "the highest node tag");
        std::vector<int64_t> tags;
        for (int64_t b = 0; b < blocks; ++b) {
            const int64_t dim = integer(4, "a node block's dimension");
            integer(4, "a node block's entity");
            const int64_t parametric = integer(4, "a node block's parametric flag");
            const int64_t n = count(8, "the number of nodes in a block");
            tags.resize(std::size_t(n));
            for (int64_t& t : tags) t = integer(8, "a node's tag");
            for (int64_t t : tags) {
                addNode(t);
                for (int64_t p = 0; parametric && p < std::min<int64_t>(dim, 3); ++p)
                    real("a parametric coordinate");
            }
        }
        m_nodes.build(m_nodeTags, m_mesh, "nodes");
    }

    // --- Elements ---

    void addElement(int64_t tag, int64_t type, int tagWidth)
    {
        const ElementKind kind = elementKind(type);
        if (kind.nodes == 0) fail(QString("element %1 is of the unknown type %2").arg(tag).arg(type));
        int64_t nodes[125];
        for (int i = 0; i < kind.nodes; ++i) {
            const int64_t t = integer(tagWidth, "an element's node");
            nodes[i] = m_nodes.find(t);
            if (nodes[i] < 0)
                fail(QString("element %1 refers to node %2, which does not exist").arg(tag).arg(t));
        }
        m_elementTags.push_back(tag);
        if (kind.dimension < 3) return m_mesh.addCell(Shape::Lower, nullptr);
        if (type != 4 && type != 5)
            fail(QString("element %1 is of Gmsh type %2; tetrahedra (4) and hexahedra (5) are read")
                     .arg(tag)
                     .arg(type));
        m_mesh.addCell(type == 4 ? Shape::Tetrahedron : Shape::Hexahedron, nodes);
    }

    void readElements2()
    {
        const int64_t n = textCount("the number of elements");
        for (int64_t done = 0; done < n;) {
            if (!m_binary) {
                const int64_t tag = integer(4, "an element's tag"), type = integer(4, "an element's type");
                const int64_t tags = count(4, "the number of an element's tags");
                for (int64_t t = 0; t < tags; ++t) integer(4, "an element's tag");
                addElement(tag, type, 4);
                ++done;
                continue;
            }
            // Binary: blocks of elements of one type with one number of tags.
            const int64_t type = integer(4, "an element block's type");
            const int64_t k = count(4, "the number of elements in a block");
            const int64_t tags = count(4, "the number of an element's tags");
            if (k > n - done)
                fail(QString("its element blocks hold more than the %1 elements it gives").arg(n));
            for (int64_t e = 0; e < k; ++e) {
                const int64_t tag = integer(4, "an element's tag");
                for (int64_t t = 0; t < tags; ++t) integer(4, "an element's tag");
                addElement(tag, type, 4);
            }
            done += std::max<int64_t>(k, 1);
        }
        m_elements.build(m_elementTags, m_mesh, "elements");
    }

    void readElements4()
    {
        const int64_t blocks = count(8, "the number of element blocks");
        count(8, "the number of elements");
        integer(8, "the lowest element tag"), integer(8, "the highest element tag");
        for (int64_t b = 0; b < blocks; ++b) {
            integer(4, "an element block's dimension"), integer(4, "an element block's entity");
            const int64_t type = integer(4, "an element block's type");
            const int64_t n = count(8, "the number of elements in a block");
            for (int64_t e = 0; e < n; ++e) addElement(integer(8, "an element's tag"), type, 8);
        }
        m_elements.build(m_elementTags, m_mesh, "elements");
    }

    // --- Fields ---

    void readData(Association a)
    {
        std::string line, name;
        const int64_t strings = textCount("the number of string tags");
        for (int64_t i = 0; i < strings; ++i) {
            if (!m_file.readLine(line, 1 << 12)) fail("ends within a data section's string tags");
            if (i == 0) name = trim(line);
        }
        if (name.size() >= 2 && name.front() == '"' && name.back() == '"')
            name = name.substr(1, name.size() - 2);
        const int64_t reals = textCount("the number of real tags");
        for (int64_t i = 0; i < reals; ++i) m_file.skipLine();
        const int64_t integers = textCount("the number of integer tags");
        int64_t tags[4] = {0, 1, 0, 0};
        for (int64_t i = 0; i < integers; ++i) {
            const int64_t v = textInteger("an integer tag");
            if (i < 4) tags[i] = v;
        }
        // The integer tags: time step, components, rows (and partition).
        const int64_t components = tags[1], rows = tags[2];
        if (integers > 0) m_file.skipLine();
        if (components < 1 || rows < 0 || uint64_t(rows) > left())
            fail(QString("the field '%1' has %2 components and %3 rows")
                     .arg(quote(name))
                     .arg(components)
                     .arg(rows));
        const bool take = components == 1 && m_mesh.wants(name, a);
        const int64_t size = a == Association::Node ? int64_t(m_nodeTags.size()) : m_mesh.fileCells();
        std::vector<float> values(take ? std::size_t(size) : 0);
        std::vector<bool> seen(values.size());
        for (int64_t r = 0; r < rows; ++r) {
            const int64_t tag = integer(4, "a data row's tag");
            for (int64_t c = 0; c < components; ++c) {
                const double v = real("a field value");
                if (!take) continue;
                const int64_t i = (a == Association::Node ? m_nodes : m_elements).find(tag);
                if (i < 0)
                    fail(QString("the field '%1' gives a value for %2 %3, which does not exist")
                             .arg(quote(name), a == Association::Node ? "node" : "element")
                             .arg(tag));
                values[std::size_t(i)] = float(v);
                seen[std::size_t(i)] = true;
            }
        }
        if (!m_binary) m_file.skipLine();
        if (!take) return;
        for (int64_t i = 0; i < size; ++i)
            if (!seen[std::size_t(i)] && (a == Association::Node || m_mesh.kept(i)))
                fail(QString("the field '%1' has no value for %2 %3")
                         .arg(quote(name), a == Association::Node ? "node" : "element")
                         .arg(a == Association::Node ? m_nodeTags[std::size_t(i)]
                                                     : m_elementTags[std::size_t(i)]));
        m_mesh.setField(std::move(values), "double", name, a);
    }

    VxInputFile m_file;
    VxMeshAssembly m_mesh;
    int m_version = 0;
    bool m_binary = false, m_swap = false;
    std::vector<int64_t> m_nodeTags, m_elementTags;
    TagIndex m_nodes, m_elements;
};

} // namespace

std::unique_ptr<VxUnstructuredMesh> VxGmshReader::read(const QString& path, const QString& field)
{
    return Parser(path, field).read();
}
