#include <io/VxStoredNumbers.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

template <class T> T load(const unsigned char* p, bool swap)
{
    unsigned char b[sizeof(T)];
    std::memcpy(b, p, sizeof(T));
    if (swap) std::reverse(b, b + sizeof(T));
    T v;
    std::memcpy(&v, b, sizeof(T));
    return v;
}

template <class Out, class Convert>
void decode(const unsigned char* p, uint64_t n, VxNumberType t, bool swap, Out* out, Convert convert)
{
    const auto each = [&](auto tag) {
        using T = decltype(tag);
        for (uint64_t i = 0; i < n; ++i) out[i] = convert(load<T>(p + i * sizeof(T), swap));
    };
    switch (t.kind * 16 + t.width) {
    case 'i' * 16 + 1:
        return each(int8_t());
    case 'i' * 16 + 2:
        return each(int16_t());
    case 'i' * 16 + 4:
        return each(int32_t());
    case 'i' * 16 + 8:
        return each(int64_t());
    case 'u' * 16 + 1:
        return each(uint8_t());
    case 'u' * 16 + 2:
        return each(uint16_t());
    case 'u' * 16 + 4:
        return each(uint32_t());
    case 'u' * 16 + 8:
        return each(uint64_t());
    case 'f' * 16 + 4:
        return each(float());
    case 'f' * 16 + 8:
        return each(double());
    default:
        std::fill(out, out + n, Out(0));
    }
}

} // namespace

namespace VxStoredNumbers {

void toFloats(const unsigned char* bytes, uint64_t count, VxNumberType t, bool swap, float* out)
{
    decode(bytes, count, t, swap, out, [](auto v) { return float(v); });
}

void toIntegers(const unsigned char* bytes, uint64_t count, VxNumberType t, bool swap, int64_t* out)
{
    decode(bytes, count, t, swap, out, [](auto v) -> int64_t {
        using T = decltype(v);
        if constexpr (std::is_floating_point<T>::value)
            return v == std::floor(v) && std::fabs(v) < 9.2e18 ? int64_t(v) : -1;
        else if constexpr (std::is_same<T, uint64_t>::value)
            return v > uint64_t(std::numeric_limits<int64_t>::max()) ? -1 : int64_t(v);
        else
            return int64_t(v);
    });
}

} // namespace VxStoredNumbers
