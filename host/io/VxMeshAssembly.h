#pragma once
#include <io/VxUnstructuredMesh.h>

#include <QString>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What the mesh readers do alike once they parse: keep the volume cells of a file in file order,
// skip and count the lower-dimensional ones (boundary triangles, lines, vertices), refuse a mix of
// tetrahedra and hexahedra, choose the field, and check the whole before handing it out. Failures
// are VxReadFailure naming the file.
class VxMeshAssembly
{
public:
    enum class Shape
    {
        Lower, // skipped
        Tetrahedron,
        Hexahedron
    };

    VxMeshAssembly(const QString& path, const QString& wantedField, const char* format);

    const QString& path() const { return m_path; }
    [[noreturn]] void fail(const QString& why) const;

    std::vector<float>& points() { return m_mesh->points; }
    void setFormat(const std::string& format) { m_mesh->format = format; }

    // The next cell of the file; nodes holds 4 or 8 node indices for a volume cell, checked later.
    void addCell(Shape shape, const int64_t* nodes);
    int64_t fileCells() const { return int64_t(m_kept.size()); }
    bool kept(int64_t fileCell) const { return m_kept[std::size_t(fileCell)]; }
    int64_t keptCells() const { return m_keptCount; }

    // Whether the one-component field name of association a is the one to read; notes the name.
    // Without a wanted name, a node field replaces a cell field read before it.
    bool wants(const std::string& name, VxUnstructuredMesh::Association a);
    // The field's values: one per node, or one per cell of the file (only the kept cells' stay).
    void setField(std::vector<float> values, const std::string& type, const std::string& name,
                  VxUnstructuredMesh::Association a);

    // Checks node indices, counts and the field, then hands the mesh out.
    std::unique_ptr<VxUnstructuredMesh> finish();

private:
    QString m_path, m_wanted;
    std::unique_ptr<VxUnstructuredMesh> m_mesh;
    std::vector<bool> m_kept; // per cell of the file
    int64_t m_keptCount = 0;
    int64_t m_firstVolumeCell = -1;
    Shape m_shape = Shape::Lower;
    std::vector<std::string> m_fields; // every one-component field, in file order
    bool m_haveField = false;
};
