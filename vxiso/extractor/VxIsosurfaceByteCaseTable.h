#pragma once
#include <vxiso/extractor/VxIsosurfaceTables.h>

// The case table in bytes, for readers that want a compact row. Derived at compile time from
// g_marchingCases, so that the tables cannot drift apart.

namespace vxiso::tables {

template <class Byte> struct ByteCaseTable
{
    Byte rows[256][ROW_LENGTH];
    constexpr const Byte* operator[](int c) const { return rows[c]; }
};

template <class Byte> constexpr ByteCaseTable<Byte> makeByteCaseTable()
{
    ByteCaseTable<Byte> t{};
    for (int c = 0; c < 256; ++c)
        for (int w = 0; w < ROW_LENGTH; ++w) t.rows[c][w] = static_cast<Byte>(g_marchingCases[c][w]);
    return t;
}

// The rows in signed bytes.
inline constexpr ByteCaseTable<signed char> LUT = makeByteCaseTable<signed char>();

} // namespace vxiso::tables
