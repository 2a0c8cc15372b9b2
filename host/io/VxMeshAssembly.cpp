#include <io/VxMeshAssembly.h>

#include <io/VxInputFile.h>

#include <algorithm>
#include <cmath>

using Association = VxUnstructuredMesh::Association;

VxMeshAssembly::VxMeshAssembly(const QString& path, const QString& wantedField, const char* format)
    : m_path(path), m_wanted(wantedField), m_mesh(std::make_unique<VxUnstructuredMesh>())
{
    m_mesh->format = format;
}

void VxMeshAssembly::fail(const QString& why) const
{
    throw VxReadFailure{m_path, why};
}

void VxMeshAssembly::addCell(Shape shape, const int64_t* nodes)
{
    const int64_t index = fileCells();
    m_kept.push_back(shape != Shape::Lower);
    if (shape == Shape::Lower) {
        ++m_mesh->skippedCells;
        return;
    }
    if (m_shape == Shape::Lower) {
        m_shape = shape;
        m_firstVolumeCell = index;
        m_mesh->cellType = shape == Shape::Tetrahedron ? VxUnstructuredMesh::CellType::Tetrahedron
                                                       : VxUnstructuredMesh::CellType::Hexahedron;
    } else if (shape != m_shape) {
        fail(QString("holds both tetrahedra and hexahedra (cells %1 and %2); one grid takes one kind")
                 .arg(m_firstVolumeCell)
                 .arg(index));
    }
    const int n = shape == Shape::Tetrahedron ? 4 : 8;
    for (int i = 0; i < n; ++i) {
        // Checked against the node count in finish(); a value past int32 fails here already.
        if (nodes[i] < 0 || nodes[i] > INT32_MAX)
            fail(QString("cell %1 refers to node %2, which does not exist").arg(index).arg(nodes[i]));
        m_mesh->cells.push_back(int32_t(nodes[i]));
    }
    ++m_keptCount;
}

bool VxMeshAssembly::wants(const std::string& name, Association a)
{
    if (std::find(m_fields.begin(), m_fields.end(), name) == m_fields.end()) m_fields.push_back(name);
    if (!m_wanted.isEmpty()) return !m_haveField && QString::fromStdString(name) == m_wanted;
    return !m_haveField || (m_mesh->association == Association::Cell && a == Association::Node);
}

void VxMeshAssembly::setField(std::vector<float> values, const std::string& type, const std::string& name,
                              Association a)
{
    m_mesh->values = std::move(values);
    m_mesh->valueType = type;
    m_mesh->fieldName = name;
    m_mesh->association = a;
    m_haveField = true;
}

std::unique_ptr<VxUnstructuredMesh> VxMeshAssembly::finish()
{
    VxUnstructuredMesh& m = *m_mesh;
    if (m.points.size() % 3) fail("holds a point with fewer than three coordinates");
    for (std::size_t i = 0; i < m.points.size(); ++i)
        if (!std::isfinite(m.points[i]))
            fail(QString("point %1 has a coordinate that is not a finite number in single precision")
                     .arg(i / 3));
    if (m_keptCount == 0)
        fail(m.skippedCells ? QString("holds no tetrahedra or hexahedra, only %1 lower-dimensional cells")
                                  .arg(m.skippedCells)
                            : QString("holds no cells"));
    const int64_t nodes = m.nodeCount();
    for (std::size_t i = 0; i < m.cells.size(); ++i)
        if (m.cells[i] >= nodes)
            fail(QString("cell %1 refers to node %2, but there are %3 nodes")
                     .arg(i / std::size_t(m.nodesPerCell()))
                     .arg(m.cells[i])
                     .arg(nodes));
    if (!m_haveField) {
        QString known;
        for (const std::string& f : m_fields)
            known += (known.isEmpty() ? "" : ", ") + QString::fromStdString(f);
        if (!m_wanted.isEmpty())
            fail(QString("holds no one-component field named '%1'%2")
                     .arg(m_wanted, known.isEmpty() ? QString() : "; it holds " + known));
        fail("holds no one-component node or cell field to take values from");
    }
    for (const std::string& f : m_fields)
        if (f != m.fieldName) m.otherFields.push_back(f);
    const bool perCell = m.association == Association::Cell;
    const int64_t want = perCell ? fileCells() : nodes;
    if (int64_t(m.values.size()) != want)
        fail(QString("field '%1' holds %2 values for %3 %4")
                 .arg(QString::fromStdString(m.fieldName))
                 .arg(m.values.size())
                 .arg(want)
                 .arg(perCell ? "cells" : "nodes"));
    if (perCell && m.skippedCells) {
        std::size_t out = 0;
        for (std::size_t i = 0; i < m.values.size(); ++i)
            if (m_kept[i]) m.values[out++] = m.values[i];
        m.values.resize(out);
        m.values.shrink_to_fit();
    }
    return std::move(m_mesh);
}
