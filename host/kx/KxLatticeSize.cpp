#include <kx/KxLatticeSize.h>

namespace {

using Wide = unsigned __int128;

QString decimal(Wide v)
{
    QString digits;
    do {
        digits.prepend(QChar('0' + int(v % 10)));
        v /= 10;
    } while (v);
    return digits;
}

} // namespace

QString KxLatticeSize::check(const KxDim3l& d, KxPrimType type, uint64_t offset, KxLatticeSize* size)
{
    const QString dims = QString("dimensions %1 %2 %3").arg(d.nx).arg(d.ny).arg(d.nz);
    for (int a = 0; a < 3; ++a) {
        if (d[a] < 0) return dims + " are negative";
        if (d[a] > maxAxis)
            return QString("%1 are too large: an axis holds at most %2 nodes").arg(dims).arg(maxAxis);
    }
    // Each factor is below 2^31 and the width at most 8: the products fit in 128 bits exactly.
    const Wide nodes = Wide(d.nx) * Wide(d.ny) * Wide(d.nz);
    const Wide bytes = nodes * type.size();
    if (!type.isValid() && nodes > maxTotal)
        return QString("%1 are too large: their %2 nodes are more than a volume can hold")
            .arg(dims, decimal(nodes));
    if (nodes > maxTotal || bytes + offset > maxTotal)
        return QString("%1 are too large: their %2 %3 values take %4 bytes%5, more than a volume can hold")
            .arg(dims, decimal(nodes), type.name(), decimal(bytes),
                 offset ? QString(" after an offset of %1").arg(offset) : QString());
    if (size) *size = KxLatticeSize{uint64_t(nodes), uint64_t(bytes)};
    return QString();
}
