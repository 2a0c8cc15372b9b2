#pragma once

// Colour of three float components, each in 0..1.
class KxColor
{
public:
    float r = 0.f, g = 0.f, b = 0.f;

    constexpr KxColor() = default;
    constexpr KxColor(float red, float green, float blue) : r(red), g(green), b(blue) {}
    explicit constexpr KxColor(const float rgb[3]) : r(rgb[0]), g(rgb[1]), b(rgb[2]) {}

    float& operator[](int i) { return (&r)[i]; }
    const float& operator[](int i) const { return (&r)[i]; }
    bool operator==(const KxColor& o) const { return r == o.r && g == o.g && b == o.b; }
    bool operator!=(const KxColor& o) const { return !(*this == o); }
};
