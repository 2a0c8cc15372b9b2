#include <kx/KxRawData.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxString.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace {

// Sums are kept in a type that no block can overflow: 64-bit integers for integer samples (2^31
// samples of the widest type fit), double for float, and long double for double so that a block of
// values near the largest double still has a finite mean.
template <class T>
using Accumulator =
    std::conditional_t<std::is_integral<T>::value, int64_t,
                       std::conditional_t<std::is_same<T, float>::value, double, long double>>;

template <class T> T mean(Accumulator<T> sum, int64_t count)
{
    if constexpr (std::is_integral<T>::value) {
        // Round half away from zero, in integers: exact for any sum.
        return T(sum >= 0 ? (sum + count / 2) / count : -((-sum + count / 2) / count));
    } else {
        return T(sum / Accumulator<T>(count));
    }
}

template <class T>
bool downSample(T* dst, const T* src, long nx, long ny, long nz, int fx, int fy, int fz,
                KxProgressInterface* progress)
{
    using Acc = Accumulator<T>;
    const long mx = nx / fx, my = ny / fy, mz = nz / fz;
    const int64_t count = int64_t(fx) * fy * fz;
    std::vector<Acc> sums(std::size_t(mx * my));
    for (long kz = 0; kz < mz; ++kz) {
        if (progress && progress->wasInterrupted()) return false;
        std::fill(sums.begin(), sums.end(), Acc(0));
        for (long z = kz * fz; z < (kz + 1) * fz; ++z)
            for (long ky = 0; ky < my; ++ky) {
                Acc* out = &sums[std::size_t(ky * mx)];
                for (long y = ky * fy; y < (ky + 1) * fy; ++y) {
                    const T* in = src + (z * ny + y) * nx;
                    for (long kx = 0; kx < mx; ++kx, in += fx) {
                        Acc s = 0;
                        for (int dx = 0; dx < fx; ++dx) s += Acc(in[dx]);
                        out[kx] += s;
                    }
                }
            }
        T* slice = dst + kz * mx * my;
        for (std::size_t i = 0; i < sums.size(); ++i) slice[i] = mean<T>(sums[i], count);
        if (progress) progress->setProgressValue(float(kz + 1) / float(mz));
    }
    return true;
}

} // namespace

bool KxRawData::downSample3D(void* dst, KxTypedPointer src, long nx, long ny, long nz, int fx, int fy, int fz,
                             KxProgressInterface* progress)
{
    if (fx < 1 || fy < 1 || fz < 1)
        throw KxException(
            KxString::printf("downSample3D: averaging factors %d, %d, %d must be at least 1", fx, fy, fz));
    if (nx < 0 || ny < 0 || nz < 0)
        throw KxException(KxString::printf("downSample3D: negative dimensions %ld x %ld x %ld", nx, ny, nz));
    if (!src.type.isValid())
        throw KxException(KxString::printf("downSample3D: unknown primitive type %d", int(src.type)));
    if (nx / fx == 0 || ny / fy == 0 || nz / fz == 0) return true;
    if (!dst || !src.data) throw KxException("downSample3D: missing source or destination array");

    bool finished = true;
    kxDispatchPrimType(src.type, src.data, [&](auto* in) {
        using T = std::remove_pointer_t<decltype(in)>;
        finished = downSample<T>(static_cast<T*>(dst), in, nx, ny, nz, fx, fy, fz, progress);
    });
    return finished;
}
