#pragma once
#include <kx/KxDArray.h>
#include <kx/KxPrimType.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxVec3.h>

#include <cstdint>
#include <memory>
#include <vector>

// A uniform volume of which only a box of nodes is in memory: what one process of several holds.
struct VxVolumeWindow
{
    const void* values = nullptr; // stored.x * stored.y * stored.z values, x fastest
    KxPrimType type;
    KxVec3i dims;          // nodes of the whole volume
    KxVec3i first, stored; // the first node held and the nodes held along each axis
    KxVec3f origin, voxelSize, gradientSpacing;
    bool hasUndefined = false;
    double undefinedValue = 0;
};

// The threaded slab engine on some of the slabs of a volume, for runs that spread the slabs over
// processes. The slabs are those of the threaded path, cut along one axis; a process runs its
// consecutive slabs and merges them alone, then meets the processes below and above it on the
// layers they share:
//
//   run -> scan of vertexCount() -> topFaceTable() up, joinBelow() with the table from below ->
//   (compact) the folds back down to addFolds() -> finish -> scan of the triangle count.
//
// Numbers of this output's vertices start at 0; vertices of the process below are negative until
// the writer adds this process's first global number to every corner.
class VxSlabExtraction
{
public:
    // Node layers [begin, end) along the axis that a slab owns (it reads layer end too).
    struct Slab
    {
        uint64_t begin = 0, end = 0;
    };
    // What a slab snapped onto a vertex of the slab below, added there before the means are taken.
    struct Fold
    {
        int64_t vertex;
        float coords[3], normals[3];
        uint64_t count;
    };

    // count even slabs over the cell layers [firstCell, endCell) of n node layers along the axis:
    // the cut of the threaded path with a slab count, so that the same count gives the same slabs.
    static std::vector<Slab> evenSlabs(uint64_t firstCell, uint64_t endCell, uint64_t count, uint64_t n);
    // Throws KxException when nodes along an axis cannot give slabs cells each.
    static void checkSlabCount(uint64_t nodes, uint64_t slabs, int axis);

    // Throws KxException for a value type of none of the eight kinds or an axis other than 0 to 2.
    static std::unique_ptr<VxSlabExtraction> create(const VxVolumeWindow& window, int axis, bool compact,
                                                    float isoValue, float snapFraction);
    virtual ~VxSlabExtraction();

    // Walks the slabs on the scheduler's threads and merges them among themselves. Progress, when
    // given, counts the slabs' node layers.
    virtual void run(const std::vector<Slab>& slabs, KxProgressInterface* progress) = 0;
    virtual uint64_t vertexCount() const = 0;
    // The end layer of the highest slab, its vertices numbered from base on (-1: no vertex).
    virtual std::vector<int32_t> topFaceTable(int64_t base) const = 0;
    // Fills the lowest slab's corners on its first layer from the table of the slab below, whose
    // numbers are base + this output's numbers; compact cubes return the folds for the slab below.
    virtual std::vector<Fold> joinBelow(const std::vector<int32_t>& table, int64_t base) = 0;
    // Adds the folds of the slab above, numbered from base on. Compact cubes only.
    virtual void addFolds(const std::vector<Fold>& folds, int64_t base) = 0;
    // Compact cubes: means of the sums, triangles that snapping collapsed dropped, unit normals.
    virtual void finish() = 0;

    virtual const KxDArray<KxVec3f>& coords() const = 0;
    virtual const KxDArray<KxVec3f>& normals() const = 0;
    virtual const KxDArray<KxVec3i>& triangles() const = 0;
    virtual uint64_t degenerateCount() const = 0;
};
