#include <vx/VxHexaGrid.h>

#include <algorithm>
#include <array>

KX_ABSTRACT_SOURCE(VxHexaGrid, VxUnstructuredGrid)

// Bottom, top, then the four sides, each turning outwards by the right-hand rule.
const int VxHexaGrid::g_faceNodes[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                           {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};

VxHexaGrid::VxHexaGrid(std::vector<float> xyz, const std::vector<int32_t>& hexaNodes)
    : VxUnstructuredGrid("hexahedral grid", std::move(xyz))
{
    const int32_t n = checkCells(hexaNodes, 8, "hexahedron", "hexahedra");
    m_hexas.resize(std::size_t(n));
    for (std::size_t h = 0; h < std::size_t(n); ++h)
        std::copy_n(hexaNodes.begin() + std::ptrdiff_t(8 * h), 8, m_hexas[h].nodes);
}

const std::vector<VxHexaGrid::Face>& VxHexaGrid::getFaces() const
{
    std::call_once(m_facesBuilt, [this] { buildFaces(); });
    return m_faces;
}

// Faces are matched by their sorted nodes; sorting (key, then the slot 6 * cell + local face)
// groups each face's cells in grid order, and a final sort by the first slot gives the order of
// first occurrence whatever the keys were.
void VxHexaGrid::buildFaces() const
{
    struct Key
    {
        std::array<int32_t, 4> nodes;
        int64_t slot;
        bool operator<(const Key& o) const { return nodes != o.nodes ? nodes < o.nodes : slot < o.slot; }
    };
    std::vector<Key> keys(m_hexas.size() * 6);
    for (std::size_t h = 0; h < m_hexas.size(); ++h)
        for (int f = 0; f < 6; ++f) {
            Key& k = keys[6 * h + std::size_t(f)];
            for (int i = 0; i < 4; ++i) k.nodes[std::size_t(i)] = m_hexas[h].nodes[g_faceNodes[f][i]];
            std::sort(k.nodes.begin(), k.nodes.end());
            k.slot = int64_t(6 * h) + f;
        }
    std::sort(keys.begin(), keys.end());

    struct Found
    {
        int64_t first, second;
    };
    std::vector<Found> found;
    found.reserve(keys.size() / 2 + 1);
    for (std::size_t i = 0; i < keys.size();) {
        std::size_t j = i + 1;
        while (j < keys.size() && keys[j].nodes == keys[i].nodes) ++j;
        int64_t second = -1;
        // A degenerate hexahedron may repeat a face of its own; that is no neighbour.
        for (std::size_t m = i + 1; m < j && second < 0; ++m)
            if (keys[m].slot / 6 != keys[i].slot / 6) second = keys[m].slot;
        found.push_back({keys[i].slot, second});
        for (std::size_t m = i + 1; m < j; ++m)
            if (keys[m].slot != second) found.push_back({keys[m].slot, -1});
        i = j;
    }
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.first < b.first; });

    m_faces.resize(found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        Face& face = m_faces[i];
        const int64_t cell = found[i].first / 6, local = found[i].first % 6;
        for (int k = 0; k < 4; ++k) face.nodes[k] = m_hexas[std::size_t(cell)].nodes[g_faceNodes[local][k]];
        face.cells[0] = uint32_t(cell);
        face.cells[1] = found[i].second < 0 ? NO_CELL : uint32_t(found[i].second / 6);
    }
}
