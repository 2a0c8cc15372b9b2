#include <io/VxRawReader.h>

#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace {

void swapEach(unsigned char* p, std::size_t count, std::size_t width)
{
    if (width < 2) return;
    for (std::size_t v = 0; v < count; ++v, p += width) std::reverse(p, p + width);
}

QString sizeText(const VxRawDescription& d)
{
    return QString("%1x%2x%3 %4").arg(d.dims.nx).arg(d.dims.ny).arg(d.dims.nz).arg(d.type.name());
}

} // namespace

QString VxRawReader::checkDescription(const VxRawDescription& d)
{
    if (!d.type.isValid()) return "unknown value type";
    for (int a = 0; a < 3; ++a)
        if (d.dims[a] <= 0) return QString("dimensions must be positive, not %1 %2 %3").arg(d.dims.nx).arg(d.dims.ny).arg(d.dims.nz);
    if (d.dims.nx > INT32_MAX / 2 || d.dims.ny > INT32_MAX / 2 || d.dims.nz > INT32_MAX / 2)
        return "dimensions are too large";
    for (int a = 0; a < 3; ++a) {
        if (!std::isfinite(d.spacing[a]) || d.spacing[a] <= 0)
            return QString("spacing must be positive and finite, not %1").arg(d.spacing[a]);
        if (!std::isfinite(d.origin[a])) return "origin must be finite";
    }
    return QString();
}

VxUniformScalarField3* VxRawReader::read(const QString& path, const VxRawDescription& d, QString* error)
{
    auto fail = [&](const QString& why) -> VxUniformScalarField3* {
        if (error) *error = QString("%1: %2").arg(path, why);
        return nullptr;
    };
    const QString bad = checkDescription(d);
    if (!bad.isEmpty()) return fail(bad);

    const QByteArray name = path.toLocal8Bit();
    struct stat st;
    if (::stat(name.constData(), &st) != 0) return fail(QString::fromLocal8Bit(std::strerror(errno)));
    if (S_ISDIR(st.st_mode)) return fail("is a directory, not a raw volume");

    const uint64_t count = uint64_t(d.dims.nx) * uint64_t(d.dims.ny) * uint64_t(d.dims.nz);
    const uint64_t needed = count * d.type.size();
    const uint64_t have = uint64_t(st.st_size);
    if (have < d.offset + needed)
        return fail(QString("file holds %1 bytes, but %2 values after an offset of %3 need %4")
                        .arg(have).arg(sizeText(d)).arg(d.offset).arg(d.offset + needed));
    if (have > d.offset + needed)
        return fail(QString("file holds %1 bytes, %2 more than %3 values need; give --offset to skip a header")
                        .arg(have).arg(have - d.offset - needed).arg(sizeText(d)));

    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(name.constData(), "rb"), &std::fclose);
    if (!file) return fail(QString::fromLocal8Bit(std::strerror(errno)));
    if (d.offset && std::fseek(file.get(), long(d.offset), SEEK_SET) != 0)
        return fail(QString::fromLocal8Bit(std::strerror(errno)));

    std::unique_ptr<void, void (*)(void*)> data(kxmalloc(needed), &kxfree);
    if (std::fread(data.get(), 1, needed, file.get()) != needed)
        return fail(std::ferror(file.get()) ? QString::fromLocal8Bit(std::strerror(errno))
                                            : QString("file ended before all %1 values were read").arg(sizeText(d)));
    if (d.swapBytes) swapEach(static_cast<unsigned char*>(data.get()), count, d.type.size());

    auto* field = new VxUniformScalarField3(d.dims, d.type, data.release());
    field->setBoundingBox(KxBox3f(float(d.origin.x), float(d.origin.x + double(d.dims.nx - 1) * d.spacing.x),
                                  float(d.origin.y), float(d.origin.y + double(d.dims.ny - 1) * d.spacing.y),
                                  float(d.origin.z), float(d.origin.z + double(d.dims.nz - 1) * d.spacing.z)));
    if (d.hasUndefined) field->setUndefinedValue(d.undefinedValue);
    return field;
}
