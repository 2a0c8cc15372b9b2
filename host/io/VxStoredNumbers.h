#pragma once
#include <cstdint>

// Numbers as mesh files store them: the kind and width of a value, decoded from bytes in either
// byte order, or parsed from a word of text. Converting readers stay free of per-type code.
struct VxNumberType
{
    char kind = 0; // 'i' signed, 'u' unsigned, 'f' floating point; 0 for none
    int width = 0; // bytes: 1, 2, 4 or 8

    bool isValid() const { return kind != 0; }
    bool isInteger() const { return kind == 'i' || kind == 'u'; }
};

namespace VxStoredNumbers {

// The count numbers of type t at bytes (swapped when swap), as floats or as 64-bit integers (an
// unsigned value past the int64 range becomes -1, which every index check refuses).
void toFloats(const unsigned char* bytes, uint64_t count, VxNumberType t, bool swap, float* out);
void toIntegers(const unsigned char* bytes, uint64_t count, VxNumberType t, bool swap, int64_t* out);

constexpr bool kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

} // namespace VxStoredNumbers
