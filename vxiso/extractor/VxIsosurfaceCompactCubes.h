#pragma once
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxDArray.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vxiso::types {

// Vertex store of compact cubes: sums of the intersections gathered at a vertex, and their count.
struct Nodes
{
    KxDArray<KxVec3f> coords;
    KxDArray<KxVec3f> normals;
    KxDArray<uint64_t> counts;

    std::size_t size() const { return coords.size(); }
    int push_back(const KxVec3f& p, const KxVec3f& n)
    {
        const int index = int(coords.size());
        coords.push_back(p);
        normals.push_back(n);
        counts.push_back(1);
        return index;
    }
    void accumulate(std::size_t v, const KxVec3f& p, const KxVec3f& n)
    {
        coords[v] += p;
        normals[v] += n;
        ++counts[v];
    }
    // Turns the sums into means.
    void average()
    {
        for (std::size_t v = 0; v < coords.size(); ++v) {
            const float c = float(counts[v]);
            coords[v] = KxVec3f(coords[v].x / c, coords[v].y / c, coords[v].z / c);
            normals[v] = KxVec3f(normals[v].x / c, normals[v].y / c, normals[v].z / c);
            counts[v] = 1;
        }
    }
};

} // namespace vxiso::types

namespace vxiso {

// Vertex policy of "compactify": an intersection within snapFraction (a fraction of the edge) of a
// grid node joins the one vertex of that node, which ends at the mean of the intersections gathered
// there. Triangles that collapse are dropped and counted. Node maps cover two node slices only.
template <class Tools> class VxIsosurfaceCompactCubes
{
public:
    static constexpr uint64_t NO_VERTEX = ~uint64_t(0);

    explicit VxIsosurfaceCompactCubes(float snapFraction) : m_snapFraction(snapFraction) {}

    types::Nodes nodes;
    KxDArray<KxVec3i> triangles;

    // Vertices are merged by snapping: normals are means of sums, made unit at the hand-over, and a
    // triangle whose corners snapped together is dropped there.
    static constexpr bool snapsVertices = true;
    // No vertex is recorded for the edges a cell takes from its neighbours.
    static constexpr bool recordsEdges = false;
    // Triangles go one by one: degenerate ones are dropped.
    static constexpr bool addsCaseTriangles = false;

    KxDArray<KxVec3f>& vertexCoords() { return nodes.coords; }
    KxDArray<KxVec3f>& vertexNormals() { return nodes.normals; }
    KxDArray<KxVec3i>& triangleArray() { return triangles; }

    float snapFraction() const { return m_snapFraction; }
    uint64_t degenerateCount() const { return m_degenerate; }

    template <class UserData> void beginBox(const Tools& tools, const KxBox3i&, UserData&)
    {
        m_nx = tools.nx;
        const std::size_t n = std::size_t(tools.nx) * std::size_t(tools.ny);
        m_mapZ.assign(n, NO_VERTEX);
        m_mapZ1.assign(n, NO_VERTEX);
        m_lastSlice = -1;
    }

    template <class UserData> void reserve(uint64_t vertices, uint64_t triangleCount, UserData&)
    {
        nodes.coords.reserve(vertices);
        nodes.normals.reserve(vertices);
        nodes.counts.reserve(vertices);
        triangles.reserve(triangleCount);
    }

    template <class UserData>
    int addNode(const Tools& tools, const KxBox3i&, const KxVec3i& cell, int edge, UserData&)
    {
        if (cell.z == m_lastSlice + 1) {
            m_mapZ.swap(m_mapZ1);
            std::fill(m_mapZ1.begin(), m_mapZ1.end(), NO_VERTEX);
        } else if (cell.z != m_lastSlice) {
            std::fill(m_mapZ.begin(), m_mapZ.end(), NO_VERTEX);
            std::fill(m_mapZ1.begin(), m_mapZ1.end(), NO_VERTEX);
        }
        m_lastSlice = cell.z;

        KxVec3f p, n;
        const float t = Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        if (m_snapFraction < t && t < 1.f - m_snapFraction) return nodes.push_back(p, n);

        const int node = tables::g_edgeEndNodeIds[edge][t <= m_snapFraction ? 0 : 1];
        const int* off = tables::g_nodeCoords[node];
        std::vector<uint64_t>& map = off[2] == 0 ? m_mapZ : m_mapZ1;
        uint64_t& entry =
            map[std::size_t(cell.y + off[1]) * std::size_t(m_nx) + std::size_t(cell.x + off[0])];
        if (entry != NO_VERTEX) {
            nodes.accumulate(entry, p, n);
            return int(entry);
        }
        entry = nodes.size();
        return nodes.push_back(p, n);
    }

    // A vertex on edge 6, 7 or 12 of a cell with a neighbour below on every axis: as any other.
    template <class UserData>
    [[gnu::always_inline]] int addOwnNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell,
                                          int edge, UserData& u)
    {
        return addNode(tools, box, cell, edge, u);
    }

    template <class UserData>
    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i&, int, int, UserData&)
    {
    }

    template <class UserData>
    void addTriangle(const Tools&, const KxVec3i&, const int*, const KxVec3i& t, UserData&)
    {
        if (tools::isDegenerate(t))
            ++m_degenerate;
        else
            triangles.push_back(t);
    }

    // After the whole box: free the node maps and turn sums into means.
    void finish()
    {
        std::vector<uint64_t>().swap(m_mapZ);
        std::vector<uint64_t>().swap(m_mapZ1);
        nodes.average();
    }

private:
    float m_snapFraction;
    int m_nx = 0;
    int m_lastSlice = -1;
    std::vector<uint64_t> m_mapZ, m_mapZ1;
    uint64_t m_degenerate = 0;
};

} // namespace vxiso
