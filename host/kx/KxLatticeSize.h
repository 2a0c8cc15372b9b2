#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <QString>

#include <cstdint>

// The sizes of a lattice of values, worked out so that they cannot wrap: a header claiming
// 65536 x 32769 x 1073709057 float64 values must be refused, not taken for the 524288 bytes its
// byte count comes to modulo 2^64. Every reader and every lattice asks here.
struct KxLatticeSize
{
    // The engine indexes an axis with a 32-bit int.
    static constexpr int64_t maxAxis = INT32_MAX;
    // Nodes, and bytes up to the end of the values, stay below this, so that code which multiplies
    // a count by a small constant (edges per node, bytes per value) stays inside 64 bits.
    static constexpr uint64_t maxTotal = uint64_t(1) << 56;

    uint64_t nodes = 0;
    uint64_t bytes = 0; // nodes times the value's width

    // Checks dims (none negative) of values of type that start offset bytes into a file (0 in
    // memory); an invalid type checks the nodes alone. An empty string, with *size filled, when they fit;
    // else one sentence saying what is too large, e.g. "dimensions 65536 32769 1073709057 are too large:
    // their 2305843009213693952 float64 values take 18446744073709551616 bytes, more than a volume can hold".
    static QString check(const KxDim3l& dims, KxPrimType type, uint64_t offset = 0,
                         KxLatticeSize* size = nullptr);
};
