#pragma once
#include <cstddef>
#include <cstdint>
#include <type_traits>

// Element type of raw data. The codes are the host's and appear in saved data.
class KxPrimType
{
public:
    enum Type
    {
        UINT8 = 0,
        INT16 = 1,
        INT32 = 2,
        FLOAT = 3,
        DOUBLE = 4,
        UINT16 = 7,
        UINT32 = 8,
        INT8 = 9,
        UNKNOWN = -1
    };

    constexpr KxPrimType(Type t = UNKNOWN) : m_type(t) {}
    explicit constexpr KxPrimType(int code) : m_type(fromCode(code)) {}
    constexpr operator int() const { return m_type; }
    constexpr Type type() const { return m_type; }
    bool isValid() const { return m_type != UNKNOWN; }

    // Bytes per element; 0 for an unknown type.
    std::size_t size() const;
    // The command-line and file-header name: "uint8", "int16", ..., "float32", "float64".
    const char* name() const;
    // Parses the names above (and common aliases such as "float", "double", "uchar"); UNKNOWN if none.
    static KxPrimType fromName(const char* name);

private:
    static constexpr Type fromCode(int c)
    {
        return (c == 0 || c == 1 || c == 2 || c == 3 || c == 4 || c == 7 || c == 8 || c == 9) ? Type(c)
                                                                                              : UNKNOWN;
    }
    Type m_type;
};

// Maps a C++ element type to its code.
template <class T> struct KxPrimTypeOf;
template <> struct KxPrimTypeOf<unsigned char>
{
    static constexpr KxPrimType::Type value = KxPrimType::UINT8;
};
template <> struct KxPrimTypeOf<signed char>
{
    static constexpr KxPrimType::Type value = KxPrimType::INT8;
};
template <> struct KxPrimTypeOf<unsigned short>
{
    static constexpr KxPrimType::Type value = KxPrimType::UINT16;
};
template <> struct KxPrimTypeOf<short>
{
    static constexpr KxPrimType::Type value = KxPrimType::INT16;
};
template <> struct KxPrimTypeOf<unsigned int>
{
    static constexpr KxPrimType::Type value = KxPrimType::UINT32;
};
template <> struct KxPrimTypeOf<int>
{
    static constexpr KxPrimType::Type value = KxPrimType::INT32;
};
template <> struct KxPrimTypeOf<float>
{
    static constexpr KxPrimType::Type value = KxPrimType::FLOAT;
};
template <> struct KxPrimTypeOf<double>
{
    static constexpr KxPrimType::Type value = KxPrimType::DOUBLE;
};

// Pointer to raw data together with its element type.
struct KxTypedPointer
{
    void* data = nullptr;
    KxPrimType type;

    KxTypedPointer() = default;
    KxTypedPointer(void* d, KxPrimType t) : data(d), type(t) {}
};

// Calls f(T*) with the data pointer cast to its element type; returns false for an unknown type.
template <class F> bool kxDispatchPrimType(KxPrimType type, void* data, F&& f)
{
    switch (type.type()) {
    case KxPrimType::UINT8:
        f(static_cast<unsigned char*>(data));
        return true;
    case KxPrimType::INT8:
        f(static_cast<signed char*>(data));
        return true;
    case KxPrimType::UINT16:
        f(static_cast<unsigned short*>(data));
        return true;
    case KxPrimType::INT16:
        f(static_cast<short*>(data));
        return true;
    case KxPrimType::UINT32:
        f(static_cast<unsigned int*>(data));
        return true;
    case KxPrimType::INT32:
        f(static_cast<int*>(data));
        return true;
    case KxPrimType::FLOAT:
        f(static_cast<float*>(data));
        return true;
    case KxPrimType::DOUBLE:
        f(static_cast<double*>(data));
        return true;
    default:
        return false;
    }
}

// A function that reads element i of values of one element type, exactly, as a double; for callers
// that read one type through a pointer chosen once. An unknown type reads 0.
using KxValueReader = double (*)(const void* values, int64_t i);
template <class T> double kxReadValueAs(const void* values, int64_t i)
{
    return double(static_cast<const T*>(values)[i]);
}
inline double kxReadNothing(const void*, int64_t)
{
    return 0.0;
}
inline KxValueReader kxValueReader(KxPrimType type)
{
    KxValueReader reader = &kxReadNothing;
    kxDispatchPrimType(type, nullptr,
                       [&](auto* typed) { reader = &kxReadValueAs<std::remove_pointer_t<decltype(typed)>>; });
    return reader;
}
