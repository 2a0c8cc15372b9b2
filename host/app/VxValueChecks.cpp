#include "VxValueChecks.h"

#include <vx/VxRegScalarField3.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

constexpr double kNone = -std::numeric_limits<double>::infinity();

struct Tally
{
    int64_t plusInf = 0, minusInf = 0;
    // The engine counts a node as above when float(value) > float(threshold). Rounding keeps
    // order, so the only values it gets wrong are those above the threshold that round to the
    // same float: they count as below.
    int64_t hidden = 0;
    double roundsToThreshold = kNone; // the largest value that rounds to float(threshold)
    double below = kNone;             // the largest value that rounds below it
};

template <typename T> void tally(const T* v, int64_t n, const VxRegScalarField3& field, double t, Tally& out)
{
    constexpr bool floating = std::is_floating_point<T>::value;
    constexpr bool rounds = !std::is_same<T, float>::value;
    const bool skipUndefined = field.hasUndefinedValue();
    const float ft = float(t);
    for (int64_t i = 0; i < n; ++i) {
        const double x = double(v[i]);
        if (skipUndefined && field.isUndefined(x)) continue;
        if (floating && !std::isfinite(x)) {
            out.plusInf += x == HUGE_VAL;
            out.minusInf += x == -HUGE_VAL;
            continue;
        }
        if (!rounds) continue;
        const float fx = float(v[i]);
        if (fx == ft) {
            out.hidden += x > t;
            out.roundsToThreshold = std::max(out.roundsToThreshold, x);
        } else if (fx < ft) {
            out.below = std::max(out.below, x);
        }
    }
}

// The shortest text that reads back as the same double.
QString shortest(double v)
{
    char text[32];
    return QString::fromLatin1(text, int(std::to_chars(text, text + sizeof text, v).ptr - text));
}

QString infinityText(const Tally& t)
{
    const int64_t total = t.plusInf + t.minusInf;
    if (total == 0) return QString();
    const QString head = QString("the volume holds infinite values (%1 of them, ").arg(total);
    if (t.minusInf == 0) return head + "all inf); --undefined inf leaves them out of the surface";
    if (t.plusInf == 0) return head + "all -inf); --undefined -inf leaves them out of the surface";
    return head + QString("%1 inf, %2 -inf); --undefined inf or --undefined -inf leaves one kind out of "
                          "the surface")
                      .arg(t.plusInf)
                      .arg(t.minusInf);
}

// The nearest thresholds where float and exact comparison agree: below, the float under the
// threshold's, or the largest value under the ones that round to it when that value rounds to the
// same lower float (all of those then count as above); above, the largest value that rounds to the
// threshold (all of those then count as below).
QString precisionText(const Tally& t, double threshold)
{
    if (t.hidden == 0) return QString();
    const double low = std::max(t.below, double(std::nextafter(float(threshold), -HUGE_VALF)));
    const QString above =
        std::isfinite(low) ? QString("-t %1 puts them above, ").arg(shortest(low)) : QString();
    return QString("values above -t %1 that round to it as floats (%2 of them) count as below it, since the "
                   "engine compares floats; %3-t %4 below")
        .arg(shortest(threshold))
        .arg(t.hidden)
        .arg(above, shortest(t.roundsToThreshold));
}

} // namespace

VxValueChecks VxValueChecks::of(const VxRegScalarField3& field, double threshold, double lo, double hi)
{
    const KxPrimType type = field.primType();
    const bool floating = type == KxPrimType::FLOAT || type == KxPrimType::DOUBLE;
    const bool infinities = floating && (std::isinf(lo) || std::isinf(hi));
    // A value above the threshold that rounds to it needs a range reaching past it whose low end
    // rounds no higher; integers within 2^24 are all exact floats.
    const bool rounding = type != KxPrimType::FLOAT && hi > threshold && float(lo) <= float(threshold) &&
                          (floating || std::max(std::fabs(lo), std::fabs(hi)) > double(1 << 24));
    Tally t;
    if (infinities || rounding)
        kxDispatchPrimType(type, const_cast<void*>(field.lattice().dataPtr()), [&](auto* v) {
            // Every value of the 8- and 16-bit types is a float, and none is infinite.
            if constexpr (sizeof(*v) >= 4) tally(v, field.getDims().count(), field, threshold, t);
        });
    return {infinityText(t), precisionText(t, threshold)};
}
