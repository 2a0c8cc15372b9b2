#include <io/VxVtkGridReader.h>

#include <io/VxHeaderText.h>
#include <io/VxMeshAssembly.h>
#include <io/VxVtkLegacyParser.h>

#include <algorithm>

using namespace VxHeaderText;
using Association = VxUnstructuredMesh::Association;
using Shape = VxMeshAssembly::Shape;

namespace {

// VTK cell types of fewer than three dimensions: vertices, lines, polygons and their quadratic,
// Lagrange and Bezier kin. Mesh files carry them as boundaries.
bool lowerDimensional(int64_t type)
{
    static const int64_t lower[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  21, 22, 23, 28,
                                    30, 34, 35, 36, 60, 61, 62, 63, 68, 69, 70, 75, 76, 77};
    return std::find(std::begin(lower), std::end(lower), type) != std::end(lower);
}

class Parser : public VxVtkLegacyParser
{
public:
    Parser(const QString& path, const QString& field)
        : VxVtkLegacyParser(path), m_mesh(path, field, "VTK legacy")
    {
    }

    std::unique_ptr<VxUnstructuredMesh> read()
    {
        const std::string kind = readPreamble();
        if (kind != "unstructured_grid")
            fail(QString("holds a %1 dataset, not an UNSTRUCTURED_GRID").arg(quote(kind).toUpper()));
        std::string word;
        bool points = false, cells = false, types = false;
        while (m_file.readToken(word)) {
            word = lower(word);
            if (word == "points") {
                const int64_t n = storedCount("the number of points");
                const TypeName t = type("the points");
                checkRoom(3 * uint64_t(n), t, "point coordinates");
                m_mesh.points().resize(3 * std::size_t(n));
                readNumbers(m_mesh.points().data(), 3 * uint64_t(n), t, "point coordinates");
                points = true;
            } else if (word == "cells") {
                version() >= 5 ? readOffsetsAndConnectivity() : readCellList();
                cells = true;
            } else if (word == "cell_types") {
                const int64_t n = storedCount("the number of cell types");
                checkRoom(uint64_t(n), kInt32, "cell types");
                m_types.resize(std::size_t(n));
                readNumbers(m_types.data(), uint64_t(n), kInt32, "cell types");
                types = true;
            } else if (word == "field") {
                skipFieldData();
            } else if (word == "metadata") {
                skipMetadata();
            } else if (word == "point_data" || word == "cell_data") {
                readAttributes(word == "point_data" ? Association::Node : Association::Cell,
                               storedCount("the number of values"));
            } else {
                fail(QString("has '%1' where a keyword of an unstructured grid belongs").arg(quote(word)));
            }
        }
        if (!points || !cells || !types)
            fail(QString("unstructured grid without %1")
                     .arg(!points  ? "POINTS"
                          : !cells ? "CELLS"
                                   : "CELL_TYPES"));
        if (m_types.size() != m_ends.size())
            fail(QString("CELL_TYPES gives %1 types for %2 cells").arg(m_types.size()).arg(m_ends.size()));
        VxVtkGridReader::addCells(m_mesh, m_ends, m_connectivity, m_types);
        return m_mesh.finish();
    }

private:
    // A count of things the file stores, each in a byte at least: larger ones are lies.
    int64_t storedCount(const char* what)
    {
        const int64_t n = count(what);
        if (uint64_t(n) > m_file.size())
            fail(QString("%1 is %2, more than the file could hold").arg(what).arg(n));
        return n;
    }

    // Up to version 4.2: for each cell its node count, then its nodes.
    void readCellList()
    {
        const int64_t n = storedCount("the number of cells");
        const int64_t size = storedCount("the size of the cell list");
        checkRoom(uint64_t(size), kInt32, "cell list entries");
        std::vector<int64_t> list(static_cast<std::size_t>(size));
        readNumbers(list.data(), uint64_t(size), kInt32, "cell list entries");
        std::size_t at = 0;
        for (int64_t c = 0; c < n; ++c) {
            const int64_t k = at < list.size() ? list[at] : -1;
            if (k < 0 || uint64_t(k) >= list.size() - at)
                fail(QString("the cell list ends within cell %1 of %2").arg(c).arg(n));
            m_connectivity.insert(m_connectivity.end(), list.begin() + long(at + 1),
                                  list.begin() + long(at + 1 + k));
            m_ends.push_back(int64_t(m_connectivity.size()));
            at += std::size_t(k) + 1;
        }
        if (at != list.size())
            fail(QString("CELLS gives a list of %1 numbers, but its %2 cells take %3")
                     .arg(size)
                     .arg(n)
                     .arg(at));
    }

    // Version 5: OFFSETS (one more than there are cells, from 0) and CONNECTIVITY.
    void readOffsetsAndConnectivity()
    {
        const int64_t offsets = storedCount("the number of offsets");
        const int64_t size = storedCount("the size of the connectivity");
        for (const char* keyword : {"offsets", "connectivity"}) {
            const std::string word = lower(token(keyword));
            if (word != keyword)
                fail(QString("has '%1' where %2 belongs").arg(quote(word), QString(keyword).toUpper()));
            const TypeName t = type(keyword);
            const int64_t n = word == "offsets" ? offsets : size;
            checkRoom(uint64_t(n), t, keyword);
            std::vector<int64_t>& to = word == "offsets" ? m_ends : m_connectivity;
            to.resize(std::size_t(n));
            readNumbers(to.data(), uint64_t(n), t, keyword);
        }
        if (m_ends.empty() || m_ends.front() != 0) fail("OFFSETS does not start at 0");
        m_ends.erase(m_ends.begin());
    }

    // The attributes of POINT_DATA or CELL_DATA, up to the next of those or the end.
    void readAttributes(Association a, int64_t n)
    {
        for (;;) {
            const uint64_t at = m_file.tell();
            std::string word;
            if (!m_file.readToken(word)) return;
            word = lower(word);
            if (word == "point_data" || word == "cell_data") {
                m_file.seek(at);
                return;
            }
            if (word == "scalars") {
                const std::string name = token("the scalars' name");
                const std::string typeName = token("the scalars' type");
                TypeName t;
                if (!typeNamed(typeName, t))
                    fail(QString("unknown value type '%1' of the scalars").arg(quote(typeName)));
                const int64_t comps = scalarsComponents();
                if (comps != 1 || !offer(name, typeName, t, a, n))
                    skipValues(uint64_t(n) * uint64_t(comps), t, "scalars");
            } else if (word == "color_scalars") {
                readColourScalars(a, n);
            } else if (word == "field") {
                readFieldData([&](const std::string& name, int64_t comps, int64_t tuples,
                                  const std::string& typeName, const TypeName& t) {
                    return comps == 1 && tuples == n && offer(name, typeName, t, a, n);
                });
            } else {
                skipAttribute(word, n);
            }
        }
    }

    // Unsigned char scalars, as VTK writes them.
    void readColourScalars(Association a, int64_t n)
    {
        const std::string name = token("the colour scalars' name");
        const int64_t comps = count("the colour components");
        if (comps != 1 || !m_mesh.wants(name, a))
            return skipValues(uint64_t(n) * uint64_t(comps), colourType(), "colour scalars");
        checkRoom(uint64_t(n), colourType(), "colour scalars");
        std::vector<float> values(static_cast<std::size_t>(n));
        readNumbers(values.data(), uint64_t(n), colourType(), "colour scalars");
        if (!m_binary)
            for (float& v : values) v = colourByte(v);
        m_mesh.setField(std::move(values), "unsigned_char", name, a);
    }

    // Reads the values of a one-component array when it is the field to take.
    bool offer(const std::string& name, const std::string& typeName, const TypeName& t, Association a,
               int64_t n)
    {
        if (!t.number.isValid() || !m_mesh.wants(name, a)) return false;
        checkRoom(uint64_t(n), t, "values");
        std::vector<float> values(static_cast<std::size_t>(n));
        readNumbers(values.data(), uint64_t(n), t, "values");
        m_mesh.setField(std::move(values), typeName, name, a);
        return true;
    }

    VxMeshAssembly m_mesh;
    std::vector<int64_t> m_ends, m_connectivity, m_types;
};

} // namespace

std::unique_ptr<VxUnstructuredMesh> VxVtkGridReader::read(const QString& path, const QString& field)
{
    return Parser(path, field).read();
}

void VxVtkGridReader::addCells(VxMeshAssembly& mesh, const std::vector<int64_t>& ends,
                               const std::vector<int64_t>& connectivity, const std::vector<int64_t>& types)
{
    if (ends.size() < types.size())
        mesh.fail(QString("gives %1 cell types for %2 cells").arg(types.size()).arg(ends.size()));
    int64_t begin = 0;
    for (std::size_t c = 0; c < types.size(); ++c) {
        const int64_t end = ends[c];
        if (end < begin || end > int64_t(connectivity.size()))
            mesh.fail(QString("the offset %1 of cell %2 lies outside the %3 entries of the connectivity")
                          .arg(end)
                          .arg(c)
                          .arg(connectivity.size()));
        const int64_t type = types[c], nodes = end - begin;
        const int64_t* p = connectivity.data() + begin;
        begin = end;
        if (lowerDimensional(type)) {
            mesh.addCell(Shape::Lower, nullptr);
            continue;
        }
        const int want = type == 10 ? 4 : type == 11 || type == 12 ? 8 : 0;
        if (want == 0)
            mesh.fail(QString("cell %1 is of VTK cell type %2; tetrahedra (10) and hexahedra (12) are read")
                          .arg(c)
                          .arg(type));
        if (nodes != want)
            mesh.fail(QString("cell %1 of VTK cell type %2 lists %3 nodes, not %4")
                          .arg(c)
                          .arg(type)
                          .arg(nodes)
                          .arg(want));
        if (type == 11) {
            // A voxel numbers its nodes x fastest; a hexahedron goes round each face.
            const int64_t hexa[8] = {p[0], p[1], p[3], p[2], p[4], p[5], p[7], p[6]};
            mesh.addCell(Shape::Hexahedron, hexa);
        } else {
            mesh.addCell(want == 4 ? Shape::Tetrahedron : Shape::Hexahedron, p);
        }
    }
}
