#include <io/VxBuiltinField.h>

#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <cmath>
#include <functional>

namespace {

using Shape = std::function<float(float, float, float)>;

Shape shapeOf(const QString& name)
{
    if (name == "sphere")
        return [](float x, float y, float z) { return 0.8f - std::sqrt(x * x + y * y + z * z); };
    if (name == "torus")
        return [](float x, float y, float z) {
            const float q = std::sqrt(x * x + y * y) - 0.55f;
            return 0.25f - std::sqrt(q * q + z * z);
        };
    if (name == "gyroid")
        // Three periods across the box.
        return [](float x, float y, float z) {
            const float s = 3.f * float(M_PI);
            return std::sin(s * x) * std::cos(s * y) + std::sin(s * y) * std::cos(s * z) +
                   std::sin(s * z) * std::cos(s * x);
        };
    return nullptr;
}

} // namespace

QStringList VxBuiltinField::names()
{
    return {"sphere", "torus", "gyroid"};
}

VxUniformScalarField3* VxBuiltinField::create(const QString& name, int size, QString* error)
{
    const Shape shape = shapeOf(name);
    if (!shape) {
        if (error) *error = QString("unknown built-in field '%1' (use %2)").arg(name, names().join(", "));
        return nullptr;
    }
    if (size < 2 || size > 2048) {
        if (error) *error = QString("field size must be between 2 and 2048, not %1").arg(size);
        return nullptr;
    }
    const std::size_t n = std::size_t(size);
    auto* values = static_cast<float*>(kxmalloc(n * n * n * sizeof(float)));
    const float step = 2.f / float(size - 1);
    for (std::size_t k = 0; k < n; ++k)
        for (std::size_t j = 0; j < n; ++j)
            for (std::size_t i = 0; i < n; ++i)
                values[(k * n + j) * n + i] =
                    shape(-1.f + float(i) * step, -1.f + float(j) * step, -1.f + float(k) * step);
    auto* field = new VxUniformScalarField3(KxDim3l(size, size, size), KxPrimType::FLOAT, values);
    field->setBoundingBox(KxBox3f(-1, 1, -1, 1, -1, 1));
    field->setLabel(name);
    return field;
}
