#pragma once
#include <vx/VxCellBuckets.h>
#include <vx/VxSpatialData.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

// Nodes of a grid of cells given by node indices (tetrahedra, hexahedra): one float triple per
// node. The derived grid checks its cells against the nodes once, when it is made, so that every
// later read by index is in bounds.
class VxUnstructuredGrid : public VxSpatialData
{
    KX_HEADER(VxUnstructuredGrid)

public:
    int32_t getNumNodes() const { return m_numNodes; }
    // x, y, z of every node in turn.
    const float* getNodes() const { return m_xyz.data(); }
    KxVec3f getNode(int32_t i) const { return {m_xyz[3 * i], m_xyz[3 * i + 1], m_xyz[3 * i + 2]}; }
    // The box of the nodes (all zeros without nodes).
    KxBox3f getBoundingBox() const override { return m_box; }

    // The cells' spatial index for point location; made on first use and kept. Safe to call from
    // any thread.
    const VxCellBuckets& cellBuckets() const;

protected:
    // Throws KxException, naming the grid (kind, e.g. "tetrahedral grid"), when xyz does not hold
    // whole finite nodes or more nodes than 32-bit indices reach.
    VxUnstructuredGrid(const char* kind, std::vector<float> xyz);
    // The number of cells in `cells`, n node indices each; throws when the count does not divide,
    // when there are more cells than 32-bit indices reach, or when an index is not a node.
    int32_t checkCells(const std::vector<int32_t>& cells, int n, const char* cellName,
                       const char* cellsName) const;

    // The derived grid's cells, for the index: their number, nodes per cell, and cell c's nodes.
    virtual int64_t numCells() const = 0;
    virtual int cellSize() const = 0;
    virtual const int32_t* cellNodes(int64_t c) const = 0;

    const char* m_kind;

private:
    mutable std::once_flag m_bucketsOnce;
    mutable std::unique_ptr<VxCellBuckets> m_buckets;

    std::vector<float> m_xyz;
    int32_t m_numNodes = 0;
    KxBox3f m_box;
};
